#include "analysis/Analyser.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <thread>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QCoreApplication>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>

using namespace Qt::StringLiterals;

namespace {

using AnalyserClock = std::chrono::steady_clock;

constexpr int analyserPatience = 50; // milliseconds between looks whether to stop
constexpr qsizetype analyserMostBytes = 16 * 1024; // of an answer
constexpr int analyserMostText = 300; // characters of a reason

/// One process at work on one file.
class AnalyserProcess
{
public:
    AnalyserProcess(const std::string &program, const std::string &path)
    {
        int ends[2] = { -1, -1 };
        if (pipe2(ends, O_CLOEXEC) != 0)
            return;
        m_output = ends[0];
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
        posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
        posix_spawnattr_t attributes;
        posix_spawnattr_init(&attributes);
        posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP); // ended with whatever it starts itself
        char *arguments[] = { const_cast<char *>(program.c_str()), const_cast<char *>(path.c_str()), nullptr };
        if (posix_spawn(&m_process, program.c_str(), &actions, &attributes, arguments, environ) != 0)
            m_process = -1;
        posix_spawnattr_destroy(&attributes);
        posix_spawn_file_actions_destroy(&actions);
        close(ends[1]);
    }
    ~AnalyserProcess()
    {
        end();
        if (m_output >= 0)
            close(m_output);
    }
    Q_DISABLE_COPY_MOVE(AnalyserProcess)

    [[nodiscard]] bool isStarted() const { return m_process > 0; }

    /// Reads until it closes its output. False when it takes too long, says too much, or is to stop.
    bool readAll(QByteArray *output, AnalyserClock::time_point until, const Analyser::Stop &stop) const
    {
        while (!(stop && stop()) && AnalyserClock::now() < until && output->size() <= analyserMostBytes) {
            pollfd ready { m_output, POLLIN, 0 };
            if (poll(&ready, 1, analyserPatience) <= 0)
                continue;
            char bytes[4096];
            const ssize_t got = read(m_output, bytes, sizeof bytes);
            if (got == 0)
                return true;
            if (got > 0)
                output->append(bytes, got);
            else if (errno != EINTR)
                return false;
        }
        return false;
    }

    /// How it ended by itself; absent when it does not.
    std::optional<int> wait(AnalyserClock::time_point until, const Analyser::Stop &stop)
    {
        int status = 0;
        while (m_process > 0 && !(stop && stop())) {
            if (const pid_t ended = waitpid(m_process, &status, WNOHANG); ended == m_process) {
                m_process = -1;
                return status;
            }
            if (AnalyserClock::now() >= until)
                break;
            std::this_thread::sleep_for(std::chrono::milliseconds(1)); // it has closed its output: it is about to end
        }
        return std::nullopt;
    }

private:
    void end()
    {
        if (m_process <= 0)
            return;
        kill(-m_process, SIGKILL);
        kill(m_process, SIGKILL); // where it has not got its group yet
        int status = 0;
        while (waitpid(m_process, &status, 0) < 0 && errno == EINTR) { }
        m_process = -1;
    }

    int m_output = -1;
    pid_t m_process = -1;
};

SoundAnalysis analyserRefusal(const QString &why) { return { {}, {}, u"cannot be analysed: "_s + why }; }

SoundAnalysis readAnswer(const QByteArray &line)
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(line, &error);
    const QJsonObject answer = document.object();
    const QJsonValue problem = answer.value("error"_L1), bpm = answer.value("bpm"_L1), key = answer.value("key"_L1);
    if (problem.isString())
        return { {}, {}, TagValues::clean(problem.toString(), analyserMostText) };
    SoundAnalysis analysis;
    if (bpm.isDouble())
        analysis.bpm = TagValues::tempo(QString::number(bpm.toDouble(), 'f', 2));
    analysis.key = TagValues::key(key.toString());
    const bool isAsked = error.error == QJsonParseError::NoError && document.isObject();
    const bool makesSense = bpm.isUndefined() == !analysis.bpm && key.isUndefined() == !analysis.key;
    return isAsked && makesSense ? analysis : analyserRefusal(u"its analysis made no sense"_s);
}

} // namespace

Analyser::Analyser(std::string program, std::chrono::milliseconds limit)
    : m_program(std::move(program))
    , m_limit(limit)
{
}

std::string Analyser::besideThisProgram()
{
    return QFile::encodeName(QCoreApplication::applicationDirPath() + u"/browser_analysis"_s).toStdString();
}

bool Analyser::isInstalled() const { return access(m_program.c_str(), X_OK) == 0; }

SoundAnalysis Analyser::analyse(const std::string &path, const Stop &stop) const
{
    const AnalyserClock::time_point until = AnalyserClock::now() + m_limit;
    AnalyserProcess process(m_program, path);
    if (!process.isStarted())
        return analyserRefusal(u"the program that does it cannot be started"_s);
    QByteArray output;
    const bool isRead = process.readAll(&output, until, stop);
    const std::optional<int> status = isRead ? process.wait(until, stop) : std::nullopt;
    if (output.size() > analyserMostBytes)
        return analyserRefusal(u"its analysis made no sense"_s);
    if (!status)
        return analyserRefusal(u"its analysis did not come to an end"_s);
    if (WIFSIGNALED(*status))
        return analyserRefusal(
            u"it ended its analysis (%1)"_s.arg(QString::fromLocal8Bit(strsignal(WTERMSIG(*status)))));
    if (WEXITSTATUS(*status) != 0)
        return analyserRefusal(u"its analysis failed"_s);
    return readAnswer(output);
}
