#pragma once

#include <atomic>
#include <list>
#include <memory>
#include <string_view>
#include <unordered_map>

#include <QByteArray>
#include <QString>
#include <QVariant>

#include <sqlite3.h>

#include <kestrixkit/entity/KXPropertyDescription.h>
#include <kestrixkit/entity/KXStoreErrorCode.h>
#include <kestrixkit/foundation/KXError.h>

class KXSQLiteConnection;

/// A prepared statement in use: bound, stepped and read, then handed back to its connection's cache when the
/// handle goes, reset and without values, so that no reading transaction stays open behind it.
class KXStatement
{
public:
    KXStatement() = default;
    KXStatement(KXSQLiteConnection *connection, sqlite3_stmt *statement)
        : m_connection(connection)
        , m_statement(statement)
    {
    }
    KXStatement(KXStatement &&other) noexcept
        : m_connection(other.m_connection)
        , m_statement(std::exchange(other.m_statement, nullptr))
    {
    }
    KXStatement &operator=(KXStatement &&other) noexcept
    {
        std::swap(m_connection, other.m_connection);
        std::swap(m_statement, other.m_statement);
        return *this;
    }
    ~KXStatement() { finish(); }

    explicit operator bool() const { return m_statement; }
    [[nodiscard]] sqlite3_stmt *get() const { return m_statement; }

    // Parameters count from 1. Texts and bytes are not copied: they must live until the statement is reset.
    void bind(int parameter, qint64 value) { sqlite3_bind_int64(m_statement, parameter, value); }
    void bind(int parameter, double value) { sqlite3_bind_double(m_statement, parameter, value); }
    void bindText(int parameter, std::string_view utf8)
    {
        sqlite3_bind_text64(
            m_statement, parameter, utf8.data() ? utf8.data() : "", utf8.size(), SQLITE_STATIC, SQLITE_UTF8);
    }
    void bindNull(int parameter) { sqlite3_bind_null(m_statement, parameter); }
    /// A value in its storage form: integer, double, text or bytes. Copies.
    void bindVariant(int parameter, const QVariant &value);

    /// SQLITE_ROW, SQLITE_DONE or an error code.
    int step() { return sqlite3_step(m_statement); }
    void reset() { sqlite3_reset(m_statement); }

    // Columns count from 0.
    [[nodiscard]] bool isNull(int column) const { return sqlite3_column_type(m_statement, column) == SQLITE_NULL; }
    [[nodiscard]] qint64 integer(int column) const { return sqlite3_column_int64(m_statement, column); }
    [[nodiscard]] double real(int column) const { return sqlite3_column_double(m_statement, column); }
    [[nodiscard]] QString text(int column) const;
    [[nodiscard]] QByteArray bytes(int column) const;
    /// Until the next step.
    [[nodiscard]] QByteArrayView utf8(int column) const
    {
        const auto *text = reinterpret_cast<const char *>(sqlite3_column_text(m_statement, column));
        return { text, sqlite3_column_bytes(m_statement, column) };
    }

private:
    void finish();
    KXSQLiteConnection *m_connection = nullptr;
    sqlite3_stmt *m_statement = nullptr;
};

/// One connection to a store file, used by one thread at a time, with a cache of prepared statements.
class KXSQLiteConnection
{
public:
    struct Options
    {
        bool untouched = false; ///< for a look at a file that may turn out not to be ours: neither checkpoints it nor
                                ///< changes its journal mode, and leaves no log that was not there
        bool brief = false; ///< the same for a moment's look: where nobody else has it open the file is locked, so that
                            ///< not even the log's index is made, and where somebody has it is Busy at once
        QByteArray vfs; ///< name of a registered SQLite VFS; empty for the default
    };

    KXSQLiteConnection() = default;
    ~KXSQLiteConnection();
    KXSQLiteConnection(const KXSQLiteConnection &) = delete;
    KXSQLiteConnection &operator=(const KXSQLiteConnection &) = delete;

    /// Opens a file that exists with the pragmas of every store connection, write-ahead log included, and registers the
    /// functions that predicates use. Nothing that is stored in a file is run: no triggers, no views.
    [[nodiscard]] KXError open(const QString &path, const Options &options);

    /// Opens a file that exists as its only connection, of any process, until it goes: folds the log in and removes it.
    /// Busy where another connection does not go within five seconds. Never made, never left in write-ahead mode.
    [[nodiscard]] KXError openAlone(const QString &path);

    /// The statement for the text, from the cache where it was used before; empty on failure, see lastError().
    [[nodiscard]] KXStatement prepare(const QByteArray &sql);
    /// Runs statements that answer nothing.
    [[nodiscard]] KXError execute(const char *sql);
    /// The single number that a query answers; `fallback` where it answers none or fails.
    [[nodiscard]] qint64 integer(const QByteArray &sql, qint64 fallback = 0);
    [[nodiscard]] QString text(const QByteArray &sql);

    /// Whether the file has been moved or removed since it was opened.
    [[nodiscard]] bool hasMoved() const;

    [[nodiscard]] static KXError goneError();

    /// Size of the file without its log, in bytes.
    [[nodiscard]] qint64 fileSize() const;

    /// Reads the file through a mapping, which spares a system call and a copy for each page. Touching what is mapped
    /// and not there any more ends the process: only for files that nothing takes away, and with a look before use.
    [[nodiscard]] KXError map();
    /// Reads as before map() where somebody has cut the file off since the last look, so that there is an error to
    /// tell.
    void lookAtMapping();

    /// What went wrong in the last call that failed, as an error of ours.
    [[nodiscard]] KXError lastError() const;
    [[nodiscard]] int changes() const { return sqlite3_changes(m_database); }
    [[nodiscard]] sqlite3 *handle() const { return m_database; }
    /// Size of the write-ahead log after the connection's last commit, in pages.
    [[nodiscard]] int logPages() const { return m_logPages; }
    /// Makes what runs on the connection, or is begun on it, fail with Interrupted at the next look of its progress
    /// handler, until endInterrupt(). Any thread. (SQLite's own interrupt is lost when it comes just before a query.)
    void interrupt() { m_interrupted.store(true, std::memory_order_relaxed); }
    void endInterrupt() { m_interrupted.store(false, std::memory_order_relaxed); }

private:
    friend class KXStatement;
    KXError openThrough(const QString &path, const Options &options);
    void close();
    void handBack(sqlite3_stmt *statement);

    struct Cached
    {
        sqlite3_stmt *statement;
        bool inUse;
        quint64 lastUse;
    };
    sqlite3 *m_database = nullptr;
    std::unordered_multimap<std::string_view, Cached> m_statements; // keys point into the statements' own texts
    quint64 m_uses = 0;
    int m_logPages = 0;
    qint64 m_mapped = 0; // bytes that the file had at the last look; 0: it is not mapped
    std::atomic<bool> m_interrupted { false };
};

/// Rolls a write transaction back unless it was committed. None begins on a file that is gone from its place, where
/// what is written would go with it.
class KXTransaction
{
public:
    explicit KXTransaction(KXSQLiteConnection &connection)
        : m_connection(connection)
    {
    }
    ~KXTransaction();
    [[nodiscard]] KXError begin();
    [[nodiscard]] KXError commit();

private:
    KXSQLiteConnection &m_connection;
    bool m_open = false;
};

/// Has the statements of a scope see one state of the file, and take its locks once. Only for readers that are in no
/// transaction.
class KXReadTransaction
{
public:
    explicit KXReadTransaction(KXSQLiteConnection &connection, bool wanted = true);
    ~KXReadTransaction();
    Q_DISABLE_COPY_MOVE(KXReadTransaction)

private:
    KXSQLiteConnection *m_connection = nullptr; // where one is open
};
