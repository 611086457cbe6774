#pragma once

#include <QProcess>

/// Has the process started by fork. Qt's vfork runs the child in the parent's memory, where it never returns from
/// calls that the thread sanitizer watches: from then on the sanitizer no longer sees the parent take its locks.
inline void startWithFork(QProcess &process)
{
    process.setChildProcessModifier([] {});
}
