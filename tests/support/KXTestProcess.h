#pragma once

#include <csignal>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include <QByteArray>
#include <QProcess>

#include <sys/wait.h>
#include <unistd.h>

/// Has the process started by fork: the thread sanitizer does not follow Qt's vfork into the parent's memory.
inline void startWithFork(QProcess &process)
{
    process.setChildProcessModifier([] {});
}

/// This test program once more, with other arguments, to be killed. No QProcess: under the thread sanitizer the parent
/// of one that is killed is no longer seen to take its locks.
class KXTestChild
{
public:
    KXTestChild(std::vector<std::string> arguments, const std::vector<std::pair<std::string, std::string>> &environment)
    {
        int ends[2];
        if (pipe(ends) != 0)
            return;
        std::vector<char *> pointers { const_cast<char *>("/proc/self/exe") };
        for (std::string &argument : arguments)
            pointers.push_back(argument.data());
        pointers.push_back(nullptr);
        m_pid = fork();
        if (m_pid == 0) {
            dup2(ends[1], STDOUT_FILENO);
            for (const auto &[name, value] : environment)
                setenv(name.c_str(), value.c_str(), 1);
            execv(pointers[0], pointers.data());
            _exit(127);
        }
        close(ends[1]);
        m_output = ends[0];
    }
    ~KXTestChild() { close(m_output); }
    Q_DISABLE_COPY_MOVE(KXTestChild)

    /// Waits for output; empty at its end.
    QByteArray read()
    {
        QByteArray text(4096, '\0');
        text.resize(std::max<qsizetype>(0, ::read(m_output, text.data(), size_t(text.size()))));
        return text;
    }

    /// True if it was our signal that ended it; `rest` gets what it still wrote.
    [[nodiscard]] bool kill(QByteArray &rest)
    {
        ::kill(m_pid, SIGKILL);
        int status = 0;
        waitpid(m_pid, &status, 0);
        for (QByteArray text = read(); !text.isEmpty(); text = read())
            rest += text;
        return WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
    }

private:
    pid_t m_pid = -1;
    int m_output = -1;
};
