#pragma once

#include <csignal>
#include <vector>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QCoreApplication>
#include <QProcessEnvironment>

/// This program again, running one test until it is killed. Not a QProcess: even one that is started
/// by fork makes the thread sanitizer lose track of the locks of its thread.
class ChildProcess
{
public:
    ChildProcess(const char *filter, const QProcessEnvironment &environment)
    {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0)
            qFatal("No pipe");
        m_output = ends[0];
        QByteArrayList texts { QCoreApplication::applicationFilePath().toLocal8Bit(), "--gtest_also_run_disabled_tests",
            "--gtest_filter=" + QByteArray(filter) };
        const qsizetype arguments = texts.size();
        for (const QString &variable : environment.toStringList())
            texts.append(variable.toLocal8Bit());
        std::vector<char *> pointers;
        for (QByteArray &text : texts) {
            if (qsizetype(pointers.size()) == arguments)
                pointers.push_back(nullptr);
            pointers.push_back(text.data());
        }
        pointers.push_back(nullptr);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
        if (posix_spawn(&m_process, pointers[0], &actions, nullptr, pointers.data(), pointers.data() + arguments + 1)
            != 0)
            qFatal("Cannot start %s", pointers[0]);
        posix_spawn_file_actions_destroy(&actions);
        ::close(ends[1]);
    }
    ~ChildProcess() { ::close(m_output); }
    Q_DISABLE_COPY_MOVE(ChildProcess)

    /// Waits for more output; empty when the process has ended.
    QByteArray read()
    {
        char buffer[4096];
        const ssize_t size = ::read(m_output, buffer, sizeof buffer);
        return QByteArray(buffer, std::max<ssize_t>(0, size));
    }

    /// All that it writes until it ends.
    QByteArray readAll()
    {
        QByteArray output;
        for (QByteArray more; !(more = read()).isEmpty();)
            output += more;
        return output;
    }

    /// False where it had ended by itself.
    bool kill()
    {
        ::kill(m_process, SIGKILL);
        int status = 0;
        ::waitpid(m_process, &status, 0);
        return WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
    }

private:
    int m_output = -1;
    pid_t m_process = 0;
};
