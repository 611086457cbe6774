#include <kestrixkit/store/KXSQLite_p.h>

#include <chrono>
#include <thread>

#include <QFile>
#include <QFileInfo>

#include <kestrixkit/foundation/KXLog.h>
#include <kestrixkit/foundation/KXStringWithFormat.h>
#include <kestrixkit/store/KXPredicateSQL_p.h>
#include <kestrixkit/store/KXStoreFiles_p.h>

using namespace Qt::StringLiterals;

namespace {

constexpr size_t statementsKept = 200;
/// Values are bound and long lists are chunked: what a model or a predicate makes stays far below.
constexpr int mostSQLBytes = 64 << 20;
constexpr int busyTimeoutMilliseconds = 5000;
/// Between two looks whether it was interrupted: some ten microseconds of work.
constexpr int stepsBetweenLooks = 1000;

int errorCodeFromSQLite(int code)
{
    if (code == SQLITE_IOERR_SHMSIZE) // the log's index could not be made as long as it has to be
        return KXStoreErrorCode::DiskFull;
    switch (code & 0xff) {
    case SQLITE_NOTADB:
        return KXStoreErrorCode::NotAStore;
    case SQLITE_CORRUPT:
        return KXStoreErrorCode::Damaged;
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
        return KXStoreErrorCode::Busy;
    case SQLITE_FULL:
        return KXStoreErrorCode::DiskFull;
    case SQLITE_READONLY:
    case SQLITE_PERM:
        return KXStoreErrorCode::ReadOnly;
    case SQLITE_CANTOPEN:
    case SQLITE_AUTH:
        return KXStoreErrorCode::CannotOpen;
    case SQLITE_INTERRUPT:
        return KXStoreErrorCode::Interrupted;
    case SQLITE_IOERR:
        return KXStoreErrorCode::InputOutput;
    default:
        return KXStoreErrorCode::Other;
    }
}

}

void KXStatement::bindVariant(int parameter, const QVariant &value)
{
    switch (value.typeId()) {
    case QMetaType::UnknownType:
        bindNull(parameter);
        break;
    case QMetaType::QString: {
        const QByteArray utf8 = value.toString().toUtf8();
        sqlite3_bind_text64(
            m_statement, parameter, utf8.constData(), sqlite3_uint64(utf8.size()), SQLITE_TRANSIENT, SQLITE_UTF8);
        break;
    }
    case QMetaType::QByteArray: {
        const QByteArray bytes = value.toByteArray();
        sqlite3_bind_blob64(m_statement, parameter, bytes.constData(), sqlite3_uint64(bytes.size()), SQLITE_TRANSIENT);
        break;
    }
    case QMetaType::Double:
    case QMetaType::Float:
        bind(parameter, value.toDouble());
        break;
    default:
        bind(parameter, value.toLongLong());
    }
}

QString KXStatement::text(int column) const
{
    const auto *utf8 = reinterpret_cast<const char *>(sqlite3_column_text(m_statement, column));
    return QString::fromUtf8(utf8, sqlite3_column_bytes(m_statement, column));
}

QByteArray KXStatement::bytes(int column) const
{
    const auto *data = static_cast<const char *>(sqlite3_column_blob(m_statement, column));
    return QByteArray(data, sqlite3_column_bytes(m_statement, column));
}

void KXStatement::finish()
{
    if (m_statement)
        m_connection->handBack(m_statement);
    m_statement = nullptr;
}

KXSQLiteConnection::~KXSQLiteConnection() { close(); }

void KXSQLiteConnection::close()
{
    for (auto &[sql, cached] : std::exchange(m_statements, {}))
        sqlite3_finalize(cached.statement);
    sqlite3_close_v2(std::exchange(m_database, nullptr));
}

KXError KXSQLiteConnection::open(const QString &path, const Options &options)
{
    const KXError error = openThrough(path, options);
    if (error.code() != KXStoreErrorCode::DiskFull || !options.vfs.isEmpty())
        return error;
    // There is no room for the log's index, which processes share in a file. This one keeps it in memory, and the file
    // to itself: nothing has to be written to look at a library.
    close();
    if (openThrough(path, { options.untouched, options.brief, "unix-excl" })) {
        close();
        return error;
    }
    KXLogWarning(store, "There is no room beside %@: nobody else can open it while it is open here", path);
    return {};
}

KXError KXSQLiteConnection::openThrough(const QString &path, const Options &options)
{
    // Where there is no index of a log nobody has the file open, and a look at it needs none that others see. A log
    // that holds nothing is not missed when it goes.
    const bool isAlone = options.brief && !KXStoreFiles::exists(path + "-shm"_L1);
    const bool hasLog = options.untouched && QFileInfo(path + "-wal"_L1).size() > 0;
    const int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_EXRESCODE;
    const int code = sqlite3_open_v2(QFile::encodeName(path).constData(), &m_database, flags,
        options.vfs.isEmpty() ? nullptr : options.vfs.constData());
    if (code != SQLITE_OK)
        return lastError();
    sqlite3_busy_timeout(m_database, options.brief ? 0 : busyTimeoutMilliseconds);
    const auto look
        = [](void *flag) { return int(static_cast<const std::atomic<bool> *>(flag)->load(std::memory_order_relaxed)); };
    sqlite3_progress_handler(m_database, stepsBetweenLooks, look, &m_interrupted);
    // A predicate's text never comes from outside, but a value that looks like a name must never become one. The file
    // may come from anywhere.
    for (const auto &[option, value] :
        { std::pair(SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, int(hasLog)), { SQLITE_DBCONFIG_DQS_DML, 0 },
            { SQLITE_DBCONFIG_DQS_DDL, 0 }, { SQLITE_DBCONFIG_DEFENSIVE, 1 }, { SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0 },
            { SQLITE_DBCONFIG_ENABLE_TRIGGER, 0 }, { SQLITE_DBCONFIG_ENABLE_VIEW, 0 } })
        sqlite3_db_config(m_database, option, value, nullptr);
    for (const auto &[limit, value] : { std::pair(SQLITE_LIMIT_ATTACHED, 1), { SQLITE_LIMIT_TRIGGER_DEPTH, 1 },
             { SQLITE_LIMIT_WORKER_THREADS, 0 }, { SQLITE_LIMIT_SQL_LENGTH, mostSQLBytes } })
        sqlite3_limit(m_database, limit, value);
    KXPredicateSQL::registerFunctions(m_database);
    if (isAlone) {
        if (KXError error = execute("PRAGMA locking_mode=EXCLUSIVE"))
            return error;
    }
    sqlite3_wal_hook(
        m_database,
        [](void *connection, sqlite3 *, const char *, int pages) {
            static_cast<KXSQLiteConnection *>(connection)->m_logPages = pages;
            return SQLITE_OK;
        },
        this);
    // A change of the journal mode is written into the file; where several are about it nothing waits by itself.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(busyTimeoutMilliseconds);
    while (!options.untouched) {
        KXError error = execute("PRAGMA journal_mode=WAL");
        if (!error)
            break;
        if (error.code() != KXStoreErrorCode::Busy || std::chrono::steady_clock::now() > deadline)
            return error;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    // The writer checkpoints by its own measure: the hook above takes the place of the automatic one.
    // The schema's version is asked for, since only that opens the log.
    return execute("PRAGMA synchronous=FULL; PRAGMA cache_size=-32768; PRAGMA temp_store=MEMORY; "
                   "PRAGMA schema_version");
}

KXError KXSQLiteConnection::openAlone(const QString &path)
{
    if (KXError error = open(path, { .untouched = true }))
        return error;
    // Leaving the write-ahead mode needs the file alone, and nothing waits for that by itself. Another process may
    // come in between and bring the mode back, so it is looked at again under the lock that stays.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(busyTimeoutMilliseconds);
    for (;;) {
        KXError error = execute("PRAGMA locking_mode=NORMAL; PRAGMA journal_mode=DELETE; PRAGMA "
                                "locking_mode=EXCLUSIVE; BEGIN EXCLUSIVE; COMMIT");
        if (!error && text("PRAGMA journal_mode") == "delete"_L1)
            return hasMoved()
                ? KXError(KXKestrixKitErrorDomain, KXStoreErrorCode::Busy, u"The store was replaced meanwhile"_s)
                : KXError();
        if (error && error.code() != KXStoreErrorCode::Busy)
            return error;
        if (std::chrono::steady_clock::now() > deadline)
            return KXError(
                KXKestrixKitErrorDomain, KXStoreErrorCode::Busy, KXStringWithFormat("%@ is open elsewhere", path));
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
}

bool KXSQLiteConnection::hasMoved() const
{
    int moved = 0;
    return sqlite3_file_control(m_database, "main", SQLITE_FCNTL_HAS_MOVED, &moved) == SQLITE_OK && moved;
}

KXError KXSQLiteConnection::goneError()
{
    return KXError(KXKestrixKitErrorDomain, KXStoreErrorCode::Gone,
        u"The store's file was removed, replaced or moved while it was open"_s);
}

qint64 KXSQLiteConnection::fileSize() const
{
    sqlite3_file *file = nullptr;
    sqlite3_int64 size = 0;
    sqlite3_file_control(m_database, "main", SQLITE_FCNTL_FILE_POINTER, &file);
    if (file && file->pMethods)
        file->pMethods->xFileSize(file, &size);
    return size;
}

KXError KXSQLiteConnection::map()
{
    m_mapped = fileSize();
    return execute("PRAGMA mmap_size=2147418112"); // the most that SQLite is built for; what lies behind is read
}

void KXSQLiteConnection::lookAtMapping()
{
    if (m_mapped == 0)
        return;
    const qint64 size = fileSize();
    if (size >= m_mapped)
        m_mapped = size;
    else if (!execute("PRAGMA mmap_size=0"))
        m_mapped = 0;
}

KXStatement KXSQLiteConnection::prepare(const QByteArray &sql)
{
    const auto [from, to] = m_statements.equal_range(std::string_view(sql.constData(), size_t(sql.size())));
    for (auto it = from; it != to; ++it) {
        if (!it->second.inUse) {
            it->second.inUse = true;
            it->second.lastUse = ++m_uses;
            return KXStatement(this, it->second.statement);
        }
    }
    sqlite3_stmt *statement = nullptr;
    if (sqlite3_prepare_v3(
            m_database, sql.constData(), int(sql.size()) + 1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr)
        != SQLITE_OK) {
        KXLogError(store, "Cannot prepare \"%@\": %s", sql, sqlite3_errmsg(m_database));
        return {};
    }
    if (m_statements.size() >= statementsKept) {
        auto oldest = m_statements.end();
        for (auto it = m_statements.begin(); it != m_statements.end(); ++it) {
            if (!it->second.inUse && (oldest == m_statements.end() || it->second.lastUse < oldest->second.lastUse))
                oldest = it;
        }
        if (oldest != m_statements.end()) {
            sqlite3_stmt *unused = oldest->second.statement;
            m_statements.erase(oldest); // before its text, the key, goes
            sqlite3_finalize(unused);
        }
    }
    m_statements.emplace(
        std::string_view(sqlite3_sql(statement), size_t(sql.size())), Cached { statement, true, ++m_uses });
    return KXStatement(this, statement);
}

void KXSQLiteConnection::handBack(sqlite3_stmt *statement)
{
    sqlite3_reset(statement);
    sqlite3_clear_bindings(statement);
    const std::string_view sql(sqlite3_sql(statement));
    const auto [from, to] = m_statements.equal_range(sql);
    for (auto it = from; it != to; ++it) {
        if (it->second.statement == statement)
            it->second.inUse = false;
    }
}

KXError KXSQLiteConnection::execute(const char *sql)
{
    return sqlite3_exec(m_database, sql, nullptr, nullptr, nullptr) == SQLITE_OK ? KXError() : lastError();
}

qint64 KXSQLiteConnection::integer(const QByteArray &sql, qint64 fallback)
{
    KXStatement statement = prepare(sql);
    return statement && statement.step() == SQLITE_ROW ? statement.integer(0) : fallback;
}

QString KXSQLiteConnection::text(const QByteArray &sql)
{
    KXStatement statement = prepare(sql);
    return statement && statement.step() == SQLITE_ROW ? statement.text(0) : QString();
}

KXError KXSQLiteConnection::lastError() const
{
    const int code = m_database ? sqlite3_extended_errcode(m_database) : SQLITE_NOMEM;
    return KXError(KXKestrixKitErrorDomain, errorCodeFromSQLite(code),
        KXStringWithFormat("%s (SQLite %d)", m_database ? sqlite3_errmsg(m_database) : "out of memory", code));
}

KXTransaction::~KXTransaction()
{
    // An interruption or a full disk may have rolled back already.
    if (m_open && !sqlite3_get_autocommit(m_connection.handle()) && m_connection.execute("ROLLBACK"))
        KXLogWarning(store, "Rolling back: %@", m_connection.lastError());
}

KXError KXTransaction::begin()
{
    KXError error = m_connection.execute("BEGIN IMMEDIATE");
    m_open = !error;
    if (m_open && m_connection.hasMoved())
        error = KXSQLiteConnection::goneError();
    return error;
}

KXError KXTransaction::commit()
{
    KXError error = m_connection.execute("COMMIT");
    // A commit that found the disk full may have rolled back already.
    if (!error || sqlite3_get_autocommit(m_connection.handle()))
        m_open = false;
    return error;
}

KXReadTransaction::KXReadTransaction(KXSQLiteConnection &connection, bool wanted)
{
    if (wanted && sqlite3_get_autocommit(connection.handle())) {
        if (KXStatement begin = connection.prepare("BEGIN"); begin && begin.step() == SQLITE_DONE)
            m_connection = &connection;
    }
}

KXReadTransaction::~KXReadTransaction()
{
    // Nothing was written, so either ends it; what must not happen is that the connection goes on seeing the past.
    if (m_connection && sqlite3_exec(m_connection->handle(), "COMMIT", nullptr, nullptr, nullptr) != SQLITE_OK)
        sqlite3_exec(m_connection->handle(), "ROLLBACK", nullptr, nullptr, nullptr);
}
