#include <kestrixkit/audio/KXWaveformStore_p.h>

#include <sqlite3.h>
#include <sys/stat.h>

#include <QFile>

#include <kestrixkit/foundation/KXLog.h>

using namespace Qt::StringLiterals;

namespace {

constexpr int waveformStoreWait = 2000; // milliseconds, for another process
constexpr int waveformStoreVersion = 1;

QByteArray waveformStoreName(const QString &file) { return QFile::encodeName(file); }

}

void KXWaveformStore::Closer::operator()(sqlite3 *database) const { sqlite3_close(database); }

/// A statement with its values, blobs all of them but for numbers. Does nothing without a database.
class KXWaveformStore::Statement
{
public:
    Statement(KXWaveformStore &store, const char *sql)
        : m_store(store)
    {
        if (store.m_database)
            store.lookAt(sqlite3_prepare_v2(store.m_database.get(), sql, -1, &m_statement, nullptr));
    }
    ~Statement() { sqlite3_finalize(m_statement); }
    Q_DISABLE_COPY_MOVE(Statement)

    Statement &bind(const QByteArray &bytes)
    {
        sqlite3_bind_blob64(m_statement, ++m_bound, bytes.constData(), sqlite3_uint64(bytes.size()), SQLITE_TRANSIENT);
        return *this;
    }
    Statement &bind(qint64 number)
    {
        sqlite3_bind_int64(m_statement, ++m_bound, number);
        return *this;
    }
    /// Whether there is a row.
    bool step()
    {
        if (!m_statement)
            return false;
        const int status = sqlite3_step(m_statement);
        if (status != SQLITE_ROW && status != SQLITE_DONE) {
            sqlite3_finalize(std::exchange(m_statement, nullptr)); // which would keep the database open
            m_store.lookAt(status);
        }
        return status == SQLITE_ROW;
    }
    QByteArray bytes()
    {
        return { static_cast<const char *>(sqlite3_column_blob(m_statement, 0)), sqlite3_column_bytes(m_statement, 0) };
    }

private:
    KXWaveformStore &m_store;
    sqlite3_stmt *m_statement = nullptr;
    int m_bound = 0;
};

KXWaveformStore::Stamp KXWaveformStore::Stamp::of(const QString &path)
{
    struct stat info = {};
    if (::stat(QFile::encodeName(path).constData(), &info) != 0 || !S_ISREG(info.st_mode))
        return {};
    return { info.st_size, qint64(info.st_mtim.tv_sec) * 1'000'000'000 + info.st_mtim.tv_nsec };
}

KXWaveformStore::KXWaveformStore(QString path)
    : m_path(std::move(path))
{
    if (open())
        return;
    // It is made of what can be made again.
    for (const char *suffix : { "", "-wal", "-shm", "-journal" })
        QFile::remove(m_path + QLatin1StringView(suffix));
    if (!open())
        KXLogError(audio, "Waveforms cannot be kept in %@", m_path);
}

KXWaveformStore::~KXWaveformStore() = default;

bool KXWaveformStore::open()
{
    sqlite3 *database = nullptr;
    const int opened = sqlite3_open_v2(QFile::encodeName(m_path).constData(), &database,
        SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX, nullptr);
    m_database.reset(database);
    sqlite3_busy_timeout(database, waveformStoreWait);
    // What a power cut takes away is made again.
    const QByteArray sql = "PRAGMA journal_mode=WAL; PRAGMA synchronous=NORMAL; PRAGMA user_version="
        + QByteArray::number(waveformStoreVersion)
        + ";CREATE TABLE IF NOT EXISTS files (file BLOB PRIMARY KEY, size INTEGER, changed INTEGER, fingerprint BLOB) "
          "WITHOUT ROWID;"
          "CREATE TABLE IF NOT EXISTS waveforms (fingerprint BLOB PRIMARY KEY, pyramid BLOB);";
    if (opened == SQLITE_OK && sqlite3_exec(database, sql, nullptr, nullptr, nullptr) == SQLITE_OK)
        return true;
    const int status = sqlite3_errcode(database);
    // One that another process is busy with, or that may only be read, is not to be thrown away.
    if (status != SQLITE_CORRUPT && status != SQLITE_NOTADB && status != SQLITE_ERROR) {
        KXLogError(audio, "Waveforms cannot be kept in %@", m_path);
        m_hasFailed = true;
        if (status != SQLITE_READONLY)
            m_database.reset();
        return true;
    }
    m_database.reset();
    return false;
}

/// Says once that nothing is kept; a damaged file is left alone from then on.
void KXWaveformStore::lookAt(int status)
{
    if (status == SQLITE_OK || status == SQLITE_ROW || status == SQLITE_DONE)
        return;
    if (!std::exchange(m_hasFailed, true))
        KXLogError(audio, "Waveforms cannot be kept in %@ (%i)", m_path, status);
    if (status != SQLITE_CORRUPT && status != SQLITE_NOTADB)
        return;
    m_database.reset();
    for (const char *suffix : { "", "-wal", "-shm" })
        QFile::remove(m_path + QLatin1StringView(suffix));
    (void)open();
}

KXAudioFingerprint KXWaveformStore::fingerprintOf(const QString &file, const Stamp &stamp)
{
    Statement found(*this, "SELECT fingerprint FROM files WHERE file=? AND size=? AND changed=?");
    found.bind(waveformStoreName(file)).bind(stamp.size).bind(stamp.changed);
    return found.step() ? KXAudioFingerprint::fromBytes(found.bytes()) : KXAudioFingerprint();
}

void KXWaveformStore::setFingerprint(const QString &file, const Stamp &stamp, const KXAudioFingerprint &fingerprint)
{
    Statement insert(*this, "INSERT OR REPLACE INTO files VALUES(?, ?, ?, ?)");
    insert.bind(waveformStoreName(file)).bind(stamp.size).bind(stamp.changed).bind(fingerprint.bytes()).step();
}

std::optional<KXWaveformPyramid> KXWaveformStore::pyramid(const KXAudioFingerprint &fingerprint)
{
    Statement found(*this, "SELECT pyramid FROM waveforms WHERE fingerprint=?");
    found.bind(fingerprint.bytes());
    return found.step() ? KXWaveformPyramid::fromBytes(found.bytes()) : std::nullopt;
}

void KXWaveformStore::setPyramid(const KXWaveformPyramid &pyramid)
{
    Statement insert(*this, "INSERT OR REPLACE INTO waveforms VALUES(?, ?)");
    insert.bind(pyramid.fingerprint().bytes()).bind(pyramid.toBytes()).step();
}
