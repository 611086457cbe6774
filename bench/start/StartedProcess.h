/// A program with a window, started as users start it, in a home folder of its own that lasts between starts; it tells
/// on standard output how far it is, a line of JSON each.
#pragma once

#include <QByteArray>
#include <QElapsedTimer>
#include <QJsonObject>
#include <QProcess>

class StartedProcess
{
public:
    StartedProcess(const QString &program, const QStringList &arguments);
    /// Asks it to end, and waits for that.
    ~StartedProcess();
    Q_DISABLE_COPY_MOVE(StartedProcess)

    /// Milliseconds from the start until it tells of this; negative where it ends, or is silent for ten minutes,
    /// without doing so.
    double waitFor(const QString &key);
    /// What it told last.
    [[nodiscard]] const QJsonObject &told() const { return m_told; }

    /// Context switches of all its threads since they began.
    [[nodiscard]] qint64 contextSwitches() const;
    /// Its own memory that no file is behind, in bytes.
    [[nodiscard]] qint64 anonymousBytes() const;
    [[nodiscard]] static QProcessEnvironment environment();

private:
    [[nodiscard]] QString processFolder() const;

    QProcess m_process;
    QElapsedTimer m_clock;
    QJsonObject m_told;
};
