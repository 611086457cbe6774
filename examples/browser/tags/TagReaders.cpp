#include "tags/TagReaders.h"

#include <cerrno>
#include <csignal>
#include <cstring>

#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QCoreApplication>
#include <QDataStream>
#include <QFile>

using namespace Qt::StringLiterals;

namespace {

// Slow network drives are no reason to give a file up.
constexpr int longestReading = 120'000; // milliseconds without an answer
constexpr quint32 longestMessage = 64 << 20; // bytes

template <class Tags, class Visitor> void visitTags(Tags &tags, const Visitor &visit)
{
    visit(tags.title, tags.artistText, tags.artists, tags.album, tags.albumArtist, tags.genres, tags.labels,
        tags.comment, tags.key, tags.bpm, tags.year, tags.trackNumber, tags.rating, tags.duration, tags.sampleRate,
        tags.channels, tags.bitrate, tags.notes);
}

template <class T> void writeValue(QDataStream &stream, const T &value)
{
    if constexpr (requires { value.has_value(); }) {
        stream << value.has_value();
        if (value)
            writeValue(stream, *value);
    } else if constexpr (std::is_same_v<T, MusicalKey>) {
        stream << value.number << value.minor;
    } else if constexpr (std::is_same_v<T, TrackTags>) {
        visitTags(value, [&](const auto &...fields) { (writeValue(stream, fields), ...); });
    } else {
        stream << value;
    }
}

template <class T> void readValue(QDataStream &stream, T &value)
{
    if constexpr (requires { value.has_value(); }) {
        bool isThere = false;
        stream >> isThere;
        value.reset();
        if (isThere)
            readValue(stream, value.emplace());
    } else if constexpr (std::is_same_v<T, MusicalKey>) {
        stream >> value.number >> value.minor;
    } else if constexpr (std::is_same_v<T, TrackTags>) {
        visitTags(value, [&](auto &...fields) { (readValue(stream, fields), ...); });
    } else {
        stream >> value;
    }
}

/// All of it, or false when the other side is gone or silent for longer than that; -1: for ever.
bool receiveBytes(int socket, char *bytes, size_t size, int milliseconds)
{
    while (size > 0) {
        pollfd ready { socket, POLLIN, 0 };
        if (const int events = poll(&ready, 1, milliseconds); events < 0 && errno == EINTR)
            continue;
        else if (events <= 0)
            return false;
        const ssize_t got = recv(socket, bytes, size, 0);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            return false;
        bytes += got;
        size -= size_t(got);
    }
    return true;
}

bool sendMessage(int socket, const QByteArray &message)
{
    const auto size = quint32(message.size());
    QByteArray bytes(reinterpret_cast<const char *>(&size), sizeof size);
    bytes += message;
    for (qsizetype at = 0; at < bytes.size();) {
        const ssize_t sent = send(socket, bytes.constData() + at, size_t(bytes.size() - at), MSG_NOSIGNAL);
        if (sent < 0 && errno == EINTR)
            continue;
        if (sent <= 0)
            return false;
        at += sent;
    }
    return true;
}

std::optional<QByteArray> receiveMessage(int socket, int milliseconds)
{
    quint32 size = 0;
    if (!receiveBytes(socket, reinterpret_cast<char *>(&size), sizeof size, milliseconds) || size > longestMessage)
        return std::nullopt;
    QByteArray message(qsizetype(size), Qt::Uninitialized);
    if (!receiveBytes(socket, message.data(), size, milliseconds))
        return std::nullopt;
    return message;
}

/// What a reader is asked: a file, and what to change in it, if anything.
QByteArray requestMessage(const std::string &path, const TagChanges *changes)
{
    QByteArray message;
    QDataStream stream(&message, QIODevice::WriteOnly);
    stream << QByteArray::fromStdString(path) << (changes != nullptr);
    if (changes)
        stream << *changes;
    return message;
}

TagReading answerTo(const QByteArray &request)
{
    QByteArray path;
    bool isChange = false;
    TagChanges changes;
    QDataStream stream(request);
    stream >> path >> isChange;
    if (isChange)
        stream >> changes;
    if (stream.status() != QDataStream::Ok)
        return {};
    return isChange ? changeTags(path.toStdString(), changes) : readTags(path.toStdString());
}

} // namespace

/// One reader, at work on one file at a time.
class TagReaders::Process
{
public:
    explicit Process(const std::string &program)
    {
        int ends[2] = { -1, -1 };
        if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0)
            return;
        m_socket = ends[0];
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, ends[1], STDIN_FILENO);
        posix_spawnattr_t attributes;
        posix_spawnattr_init(&attributes);
        posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP); // an interrupt of the terminal's is not for it
        char *arguments[] = { const_cast<char *>(program.c_str()), nullptr };
        if (posix_spawn(&m_process, program.c_str(), &actions, &attributes, arguments, environ) != 0)
            m_process = -1;
        posix_spawnattr_destroy(&attributes);
        posix_spawn_file_actions_destroy(&actions);
        close(ends[1]);
        m_isRunning = m_process > 0 && receiveMessage(m_socket, longestReading); // its greeting
    }
    ~Process() { end(); }
    Q_DISABLE_COPY_MOVE(Process)

    [[nodiscard]] bool isRunning() const { return m_isRunning; }

    TagReading ask(const QByteArray &request)
    {
        std::optional<QByteArray> answer;
        if (sendMessage(m_socket, request))
            answer = receiveMessage(m_socket, longestReading);
        if (answer) {
            TagReading reading;
            QDataStream stream(*answer);
            readValue(stream, reading.tags);
            readValue(stream, reading.refusal);
            if (stream.status() == QDataStream::Ok)
                return reading;
        }
        const int status = end();
        if (WIFSIGNALED(status) && WTERMSIG(status) != SIGKILL)
            return { {},
                u"cannot be read: it ended its reader (%1)"_s.arg(
                    QString::fromLocal8Bit(strsignal(WTERMSIG(status)))) };
        return { {}, u"cannot be read: its reader gave no answer"_s };
    }

private:
    /// How it ended; at once, whatever it is doing, unless it has ended already.
    int end()
    {
        int status = 0;
        m_isRunning = false;
        if (m_process > 0) {
            kill(m_process, SIGKILL);
            while (waitpid(m_process, &status, 0) < 0 && errno == EINTR) { }
            m_process = -1;
        }
        if (m_socket >= 0)
            close(std::exchange(m_socket, -1));
        return status;
    }

    int m_socket = -1;
    pid_t m_process = -1;
    bool m_isRunning = false;
};

TagReaders::TagReaders(std::string program)
    : m_program(std::move(program))
{
}

TagReaders::~TagReaders() = default;

std::string TagReaders::besideThisProgram()
{
    return QFile::encodeName(QCoreApplication::applicationDirPath() + u"/browser_tags"_s).toStdString();
}

TagReading TagReaders::read(const std::string &path) { return ask(path, nullptr); }

TagReading TagReaders::change(const std::string &path, const TagChanges &changes) { return ask(path, &changes); }

TagReading TagReaders::ask(const std::string &path, const TagChanges *changes)
{
    std::unique_ptr<Process> process;
    bool isThere = true;
    {
        const std::lock_guard lock(m_mutex);
        isThere = m_isThere;
        if (!m_idle.empty()) {
            process = std::move(m_idle.back());
            m_idle.pop_back();
        }
    }
    if (!process && isThere)
        process = std::make_unique<Process>(m_program);
    const bool isRunning = process && process->isRunning();
    const TagReading reading = isRunning ? process->ask(requestMessage(path, changes))
        : changes                        ? changeTags(path, *changes)
                                         : readTags(path);
    const std::lock_guard lock(m_mutex);
    if (!isRunning)
        m_isThere = false;
    else if (process->isRunning())
        m_idle.push_back(std::move(process));
    return reading;
}

void TagReaders::serve(int socket)
{
    if (!sendMessage(socket, {}))
        return;
    while (const std::optional<QByteArray> request = receiveMessage(socket, -1)) {
        const TagReading reading = answerTo(*request);
        QByteArray answer;
        QDataStream stream(&answer, QIODevice::WriteOnly);
        writeValue(stream, reading.tags);
        writeValue(stream, reading.refusal);
        if (!sendMessage(socket, answer))
            return;
    }
}
