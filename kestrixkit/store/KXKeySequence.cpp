#include <kestrixkit/store/KXKeySequence_p.h>

#include <kestrixkit/store/KXStoreSchema_p.h>

using namespace Qt::StringLiterals;

namespace {
constexpr qint64 largestKeyBlock = 65'536;
}

KXKeySequence::~KXKeySequence()
{
    if (m_thread.joinable())
        m_thread.join();
}

KXError KXKeySequence::reserve(qint64 size, Block &block)
{
    const KXStoreConnections::Writer writer
        = m_connections.writer(false); // other operations take keys of the block, too
    KXTransaction transaction(*writer);
    if (KXError error = transaction.begin())
        return error;
    if (const qint64 next = KXStoreSchema::nextKey(*writer); next == 0 || next > KXStoreSchema::LastKey - size)
        return KXError(KXKestrixKitErrorDomain, KXStoreErrorCode::Damaged,
            u"The store's sequence of keys is broken or at its end"_s);
    KXStatement advance = writer->prepare("UPDATE kx_sequence SET next = next + ?1 RETURNING next");
    if (!advance)
        return writer->lastError();
    advance.bind(1, size);
    if (advance.step() != SQLITE_ROW)
        return writer->lastError();
    const qint64 end = advance.integer(0);
    if (advance.step() != SQLITE_DONE)
        return writer->lastError();
    advance.reset();
    if (KXError error = transaction.commit())
        return error;
    block = { end - size, end };
    return {};
}

qint64 KXKeySequence::next(KXError *error)
{
    KXMutexLocker lock(m_mutex);
    while (m_current.first == m_current.end) {
        if (m_following.first != m_following.end) {
            m_current = std::exchange(m_following, {});
        } else if (m_reserving) {
            lock.wait(m_reserved);
        } else {
            m_reserving = true;
            const qint64 size = m_blockSize;
            lock.unlock();
            Block block;
            const KXError problem = reserve(size, block);
            lock.lock();
            m_reserving = false;
            m_reserved.notify_all();
            if (problem) {
                KXSetError(error, problem);
                return 0;
            }
            m_current = block;
        }
    }
    const qint64 key = m_current.first++;
    std::thread before;
    if (m_following.first == m_following.end && !m_reserving && m_current.end - m_current.first <= m_blockSize / 2)
        before = reserveInBackground();
    lock.unlock();
    if (before.joinable())
        before.join(); // it has done its work, but may need the mutex to say so
    return key;
}

std::thread KXKeySequence::reserveInBackground()
{
    m_reserving = true;
    m_blockSize = std::min(2 * m_blockSize, largestKeyBlock);
    std::thread before = std::move(m_thread);
    m_thread = std::thread([this, size = m_blockSize] {
        Block block;
        // A failure is not reported here: whoever needs the block tries again and gets the error.
        const bool failed = bool(reserve(size, block));
        const KXMutexLocker inner(m_mutex);
        if (!failed)
            m_following = block;
        m_reserving = false;
        m_reserved.notify_all();
    });
    return before;
}
