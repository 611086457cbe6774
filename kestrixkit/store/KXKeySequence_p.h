#pragma once

#include <condition_variable>
#include <thread>

#include <kestrixkit/foundation/KXLock_p.h>
#include <kestrixkit/store/KXStoreConnections_p.h>

/// Gives out the keys of new rows: unique in the store, never used twice, also after deletions, rollbacks, crashes
/// and vacuuming. Keys of a store that was copied aside and back may repeat, as with any counter in a file.
///
/// Keys are reserved in the file in blocks before the first of them is given out; what a process did not use of
/// its blocks is lost, which costs nothing. When half of a block is used, a thread of its own reserves the next,
/// so that inserting hardly ever waits for the disk. Blocks grow with use. Any thread.
class KXKeySequence
{
public:
    explicit KXKeySequence(KXStoreConnections &connections)
        : m_connections(connections)
    {
    }
    ~KXKeySequence();
    KXKeySequence(const KXKeySequence &) = delete;
    KXKeySequence &operator=(const KXKeySequence &) = delete;

    /// A new key, or 0 and an error when the file cannot give any.
    [[nodiscard]] qint64 next(KXError *error = nullptr);

private:
    struct Block
    {
        qint64 first = 0;
        qint64 end = 0;
    };
    KXError reserve(qint64 size, Block &block);
    /// Answers a thread that has done its work, to be joined without the lock.
    [[nodiscard]] std::thread reserveInBackground() KX_REQUIRES(m_mutex);

    KXStoreConnections &m_connections;
    KXMutex m_mutex;
    std::condition_variable m_reserved;
    Block m_current KX_GUARDED_BY(m_mutex);
    Block m_following KX_GUARDED_BY(m_mutex);
    qint64 m_blockSize KX_GUARDED_BY(m_mutex) = 1024;
    bool m_reserving KX_GUARDED_BY(m_mutex) = false;
    std::thread m_thread;
};
