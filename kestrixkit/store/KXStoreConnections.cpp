#include <kestrixkit/store/KXStoreConnections_p.h>

#include <kestrixkit/foundation/KXAbstractOperation.h>
#include <kestrixkit/foundation/KXMainQueue.h>
#include <kestrixkit/store/KXStoreDisk_p.h>

namespace {
/// Background readers beyond this wait for one another: more would only fight for two or four cores.
constexpr int mostReaders = 4;
/// The log is folded into the file when it holds four times as much, so that a young store's file holds what was saved
/// first, but not below 4 MiB, and in any case at 64 MiB, of 4 KiB pages. Folding as soon as it holds as much made
/// large imports a tenth slower.
constexpr int fewestPagesFolded = 1 << 10;
constexpr int mostPagesLogged = 16 << 10;

/// Readers that the thread has been given, of all stores. An object that is being read may read others.
constinit thread_local int connectionsReadersOfThread = 0;

/// The operation that asks for a connection and is to interrupt it when it is cancelled from now on; may be null.
KXAbstractOperation *connectionsCurrentOperation()
{
    KXAbstractOperation *operation = KXAbstractOperation::current();
    return operation && !operation->isCancelled() ? operation : nullptr;
}

KXScopeToken connectionsInterruption(KXAbstractOperation *operation, KXSQLiteConnection *connection)
{
    // Called at once if the operation was cancelled while the connection was waited for.
    return operation ? operation->addCancelHandler([connection] { connection->interrupt(); }) : KXScopeToken();
}

}

void KXStoreConnections::setWriter(std::unique_ptr<KXSQLiteConnection> writer)
{
    m_writer = std::move(writer);
    m_file = KXFileIdentity::ofPath(m_path);
    m_isMapped = m_vfs.isEmpty() && KXStoreDisk::isFixed(m_path);
}

KXStoreConnections::Reader KXStoreConnections::reader(KXError *error)
{
    const bool main = KXMainQueue::isMainThread();
    KXAbstractOperation *const operation = connectionsCurrentOperation();
    std::unique_ptr<KXSQLiteConnection> connection;
    {
        KXMutexLocker lock(m_mutex);
        if (main) {
            connection = std::move(m_mainIdle);
        } else {
            // Whoever holds one already must get another, or threads that hold them all would wait for one another.
            const bool isNested = connectionsReadersOfThread > 0;
            while (m_idle.empty() && m_readers >= mostReaders && !isNested)
                lock.wait(m_changed);
            if (m_idle.empty()) {
                ++m_readers;
            } else {
                connection = std::move(m_idle.back());
                m_idle.pop_back();
            }
        }
    }
    if (!connection) {
        connection = std::make_unique<KXSQLiteConnection>();
        KXError problem = connection->open(m_path, { .vfs = m_vfs });
        if (!problem)
            problem = connection->execute("PRAGMA query_only=1");
        if (!problem && m_isMapped)
            problem = connection->map();
        if (!problem && KXFileIdentity::ofPath(m_path) != m_file)
            problem = KXSQLiteConnection::goneError();
        if (problem) {
            if (!main) {
                const KXMutexLocker lock(m_mutex);
                --m_readers;
                m_changed.notify_all();
            }
            KXSetError(error, problem);
            return {};
        }
    }
    connection->lookAtMapping();
    ++connectionsReadersOfThread;
    KXSQLiteConnection *const given = connection.get();
    return Reader(this, std::move(connection), main, connectionsInterruption(operation, given));
}

void KXStoreConnections::handBack(std::unique_ptr<KXSQLiteConnection> connection, bool main)
{
    --connectionsReadersOfThread;
    const KXMutexLocker lock(m_mutex);
    if (main) {
        // A query inside a query opened a second connection; one is enough to keep.
        if (!m_mainIdle)
            m_mainIdle = std::move(connection);
        return;
    }
    if (m_readers > mostReaders)
        --m_readers; // likewise
    else
        m_idle.push_back(std::move(connection));
    m_changed.notify_all();
}

KXStoreConnections::Writer KXStoreConnections::writer(bool cancellable)
{
    const bool main = KXMainQueue::isMainThread();
    KXAbstractOperation *const operation = cancellable ? connectionsCurrentOperation() : nullptr;
    KXMutexLocker lock(m_mutex);
    if (main) {
        ++m_mainWaiting;
        while (m_writing)
            lock.wait(m_changed);
        --m_mainWaiting;
    } else {
        const quint64 ticket = m_nextTicket++;
        while (m_writing || m_mainWaiting > 0 || ticket != m_served)
            lock.wait(m_changed);
        ++m_served;
    }
    m_writing = true;
    lock.unlock();
    return Writer(this, connectionsInterruption(operation, m_writer.get()));
}

void KXStoreConnections::releaseWriter()
{
    // Readers keep what they see; what the log holds beyond them is folded in the next time.
    const int logged = m_writer->logPages();
    if (logged > fewestPagesFolded && (logged > mostPagesLogged || logged > 4 * (m_writer->fileSize() / 4096)))
        sqlite3_wal_checkpoint_v2(m_writer->handle(), nullptr, SQLITE_CHECKPOINT_PASSIVE, nullptr, nullptr);
    const KXMutexLocker lock(m_mutex);
    m_writing = false;
    m_changed.notify_all();
}
