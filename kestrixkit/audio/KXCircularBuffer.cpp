#include <kestrixkit/audio/KXCircularBuffer.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <utility>

#include <sys/mman.h>
#include <unistd.h>

namespace {

constexpr qint64 circularBufferMostBytes = qint64(1) << 30; // twice that is mapped and offsets are 32 bits wide

bool circularBufferFailed(int line, const char *step, int error)
{
    std::printf("%s:%d: %s: %s\n", "KXCircularBuffer.cpp", line, step, std::strerror(error));
    std::fflush(stdout);
    return false;
}

/// Closes a file descriptor, keeping errno.
class CircularBufferMemoryFile
{
public:
    CircularBufferMemoryFile()
        : m_descriptor(memfd_create("kestrixkit-ring", MFD_CLOEXEC))
    {
    }
    ~CircularBufferMemoryFile()
    {
        const int error = errno;
        if (m_descriptor >= 0)
            close(m_descriptor);
        errno = error;
    }
    Q_DISABLE_COPY_MOVE(CircularBufferMemoryFile)

    [[nodiscard]] bool resize(size_t bytes) const
    {
        return m_descriptor >= 0 && ftruncate(m_descriptor, off_t(bytes)) == 0;
    }
    /// Over memory that was reserved, so it cannot land elsewhere. Populated: no page fault on the render thread.
    [[nodiscard]] bool mapAt(char *address, size_t bytes) const
    {
        return mmap(address, bytes, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_FIXED | MAP_POPULATE, m_descriptor, 0)
            != MAP_FAILED;
    }

private:
    int m_descriptor;
};

/// The memory of a ring that has gone, kept for the next of the same length: a player makes one for each item, and the
/// kernel takes longer to provide it than a file takes to be opened.
class CircularBufferSpare
{
public:
    static constexpr size_t MostBytes = 1 << 20;

    [[nodiscard]] static char *take(size_t length)
    {
        const std::lock_guard lock(s_mutex);
        return s_memory && s_length == length ? std::exchange(s_memory, nullptr) : nullptr;
    }
    static void give(char *memory, size_t length)
    {
        if (length <= MostBytes) {
            const std::lock_guard lock(s_mutex);
            std::swap(s_memory, memory);
            std::swap(s_length, length);
        }
        if (memory)
            munmap(memory, 2 * length);
    }

private:
    static inline std::mutex s_mutex;
    static inline char *s_memory = nullptr;
    static inline size_t s_length = 0;
};

}

bool KXCircularBuffer::init(qint32 requestedBytes)
{
    cleanup();
    if (requestedBytes <= 0 || requestedBytes > circularBufferMostBytes)
        return circularBufferFailed(__LINE__, "Buffer allocation", requestedBytes <= 0 ? EINVAL : ENOMEM);
    const qint64 page = sysconf(_SC_PAGESIZE);
    const auto length = size_t((requestedBytes + page - 1) / page * page);

    if (char *spare = CircularBufferSpare::take(length)) {
        m_buffer = spare;
        m_length = qint32(length);
        return true;
    }
    for (int attemptsLeft = 4; attemptsLeft > 0; --attemptsLeft) {
        const bool last = attemptsLeft == 1;
        const CircularBufferMemoryFile file;
        void *reserved = file.resize(length)
            ? mmap(nullptr, 2 * length, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0)
            : MAP_FAILED;
        if (reserved == MAP_FAILED) {
            if (last)
                return circularBufferFailed(__LINE__, "Buffer allocation", errno);
            continue;
        }
        auto *const memory = static_cast<char *>(reserved);
        if (!file.mapAt(memory, length) || !file.mapAt(memory + length, length)) {
            const int error = errno;
            munmap(memory, 2 * length);
            if (last)
                return circularBufferFailed(__LINE__, "Remap buffer memory", error);
            continue;
        }
        m_buffer = memory;
        m_length = qint32(length);
        return true;
    }
    return false;
}

void KXCircularBuffer::cleanup()
{
    if (m_buffer)
        CircularBufferSpare::give(m_buffer, size_t(m_length));
    m_buffer = nullptr;
    m_length = m_tail = m_head = 0;
    m_fillCount = 0;
}

void KXCircularBuffer::clear()
{
    qint32 bytes = 0;
    if (tail(&bytes))
        consume(bytes);
}
