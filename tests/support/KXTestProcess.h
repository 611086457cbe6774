#pragma once

#include <QProcess>

/// Has the process started by fork: the thread sanitizer does not follow Qt's vfork into the parent's memory.
inline void startWithFork(QProcess &process)
{
    process.setChildProcessModifier([] {});
}
