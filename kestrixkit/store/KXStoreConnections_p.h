#pragma once

#include <condition_variable>
#include <memory>
#include <vector>

#include <kestrixkit/foundation/KXApplication.h>
#include <kestrixkit/foundation/KXLock_p.h>
#include <kestrixkit/store/KXSQLite_p.h>
#include <kestrixkit/store/KXStoreFiles_p.h>

/// The connections of one open store: one that writes and a few that read.
///
/// The writer is given out fairly, except that the main thread goes before all others: a user who renames a
/// playlist does not queue behind an import. Readers are made as they are needed; one is kept for the main
/// thread alone, so that it never waits for a background query.
///
/// What an operation is given is interrupted when that operation is cancelled, until it hands it back. An operation
/// that is cancelled already is not interrupted any more: it may choose to read and save to the end.
class KXStoreConnections
{
public:
    KXStoreConnections(QString path, QByteArray vfs)
        : m_path(std::move(path))
        , m_vfs(std::move(vfs))
    {
    }
    KXStoreConnections(const KXStoreConnections &) = delete;
    KXStoreConnections &operator=(const KXStoreConnections &) = delete;

    /// Takes over the connection with which the store was opened.
    void setWriter(std::unique_ptr<KXSQLiteConnection> writer);
    /// Answers queries on the store until it goes; not to be kept across calls. Empty with an error where no
    /// connection could be opened.
    class Reader;
    [[nodiscard]] Reader reader(KXError *error = nullptr);
    /// The one writer; waits for its turn. Not `cancellable` for what others wait for as well.
    class Writer;
    [[nodiscard]] Writer writer(bool cancellable = true);
    /// How many threads wait for the writer.
    [[nodiscard]] int waiting() const
    {
        const KXMutexLocker lock(m_mutex);
        return int(m_nextTicket - m_served) + m_mainWaiting;
    }

private:
    void handBack(std::unique_ptr<KXSQLiteConnection> connection, bool main);
    void releaseWriter();

    const QString m_path;
    const QByteArray m_vfs;
    KXFileIdentity m_file; // that the writer has open
    bool m_isMapped = false; // whether readers read it through a mapping
    mutable KXMutex m_mutex;
    std::condition_variable m_changed;
    std::unique_ptr<KXSQLiteConnection> m_writer;
    std::vector<std::unique_ptr<KXSQLiteConnection>> m_idle KX_GUARDED_BY(m_mutex);
    std::unique_ptr<KXSQLiteConnection> m_mainIdle KX_GUARDED_BY(m_mutex);
    int m_readers KX_GUARDED_BY(m_mutex) = 0; // given out or idle, without the main thread's
    bool m_writing KX_GUARDED_BY(m_mutex) = false;
    quint64 m_nextTicket KX_GUARDED_BY(m_mutex) = 0; // of those who wait for the writer, in order of arrival
    quint64 m_served KX_GUARDED_BY(m_mutex) = 0;
    int m_mainWaiting KX_GUARDED_BY(m_mutex) = 0;
};

class KXStoreConnections::Reader
{
public:
    Reader() = default;
    Reader(
        KXStoreConnections *owner, std::unique_ptr<KXSQLiteConnection> connection, bool main, KXScopeToken interruption)
        : m_owner(owner)
        , m_connection(std::move(connection))
        , m_main(main)
        , m_interruption(std::move(interruption))
    {
    }
    Reader(Reader &&) = default;
    Reader &operator=(Reader &&) = delete;
    ~Reader()
    {
        if (!m_connection)
            return;
        m_interruption.reset(); // from here on nobody interrupts it
        m_connection->endInterrupt();
        m_owner->handBack(std::move(m_connection), m_main);
    }
    explicit operator bool() const { return bool(m_connection); }
    KXSQLiteConnection *operator->() const { return m_connection.get(); }
    KXSQLiteConnection &operator*() const { return *m_connection; }

private:
    KXStoreConnections *m_owner = nullptr;
    std::unique_ptr<KXSQLiteConnection> m_connection;
    bool m_main = false;
    KXScopeToken m_interruption;
};

class KXStoreConnections::Writer
{
public:
    Writer(KXStoreConnections *owner, KXScopeToken interruption)
        : m_owner(owner)
        , m_interruption(std::move(interruption))
    {
    }
    Writer(const Writer &) = delete;
    Writer &operator=(const Writer &) = delete;
    ~Writer()
    {
        m_interruption.reset();
        m_owner->m_writer->endInterrupt();
        m_owner->releaseWriter();
    }
    KXSQLiteConnection *operator->() const { return m_owner->m_writer.get(); }
    KXSQLiteConnection &operator*() const { return *m_owner->m_writer; }

private:
    KXStoreConnections *m_owner;
    KXScopeToken m_interruption;
};
