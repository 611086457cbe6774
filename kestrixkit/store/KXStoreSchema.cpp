#include <kestrixkit/store/KXStoreSchema_p.h>

#include <cstddef>
#include <vector>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRandomGenerator>
#include <QUuid>
#include <QtEndian>

#include <kestrixkit/foundation/KXLog.h>
#include <kestrixkit/foundation/KXStringWithFormat.h>
#include <kestrixkit/store/KXStoreFiles_p.h>
#include <kestrixkit/store/KXStoreTables_p.h>

using namespace Qt::StringLiterals;

namespace {

KXError schemaError(int code, const QString &text) { return KXError(KXKestrixKitErrorDomain, code, text); }

/// The first bytes of a file that this process may have open. SQLite reads them: another descriptor would take the
/// locks of all connections with it when it closes.
QByteArray schemaFileHeader(const QString &path, const QByteArray &vfsName)
{
    sqlite3_vfs *vfs = sqlite3_vfs_find(vfsName.isEmpty() ? nullptr : vfsName.constData());
    // SQLite looks for parameters behind a name's end.
    const QByteArray name = QFile::encodeName(KXStoreFiles::realPath(path)) + QByteArray(4, '\0');
    QByteArray header(100, '\0');
    std::vector<std::max_align_t> memory(size_t(vfs->szOsFile) / sizeof(std::max_align_t) + 1);
    auto *file = reinterpret_cast<sqlite3_file *>(memory.data());
    if (vfs->xOpen(vfs, name.constData(), file, SQLITE_OPEN_READONLY | SQLITE_OPEN_MAIN_DB, nullptr) != SQLITE_OK)
        return {};
    sqlite3_int64 size = 0;
    int code = file->pMethods->xFileSize(file, &size);
    header.resize(qMin<qint64>(size, header.size()));
    if (code == SQLITE_OK)
        code = file->pMethods->xRead(file, header.data(), int(header.size()), 0);
    file->pMethods->xClose(file);
    return code == SQLITE_OK ? header : QByteArray();
}

}

KXError KXStoreSchema::inspectFile(const QString &path, const QByteArray &vfs, bool &fresh)
{
    const QFileInfo info(path);
    fresh = !info.exists();
    if (fresh) {
        if (info.isSymLink() || !info.dir().exists())
            return schemaError(KXStoreErrorCode::CannotOpen, KXStringWithFormat("There is no folder for %@", path));
        return {};
    }
    if (!info.isFile())
        return schemaError(KXStoreErrorCode::CannotOpen, KXStringWithFormat("%@ is not a file", path));
    if (info.size() == 0) {
        fresh = true; // as a creation that was cut short leaves it
        return {};
    }
    const QByteArray header = schemaFileHeader(path, vfs);
    if (header.isEmpty())
        return schemaError(KXStoreErrorCode::CannotOpen, KXStringWithFormat("%@ cannot be read", path));
    if (!info.isWritable())
        return schemaError(KXStoreErrorCode::ReadOnly, KXStringWithFormat("%@ cannot be written", path));

    // Offsets as documented for the SQLite file format: page size at 16, change counter at 24, pages at 28,
    // application id at 68, the change counter for which the number of pages holds at 92.
    // Beside a journal or a log the file may be half written: SQLite makes it whole when it opens it.
    const bool journalled = QFileInfo(path + "-journal"_L1).size() > 0;
    const bool logged = QFileInfo(path + "-wal"_L1).size() > 0;
    if (journalled && header == QByteArray(100, '\0')) {
        fresh = true; // a power cut in the first moments of a creation
        return {};
    }
    if (header.size() < 100 || !header.startsWith(QByteArrayView("SQLite format 3\0", 16)))
        return schemaError(KXStoreErrorCode::NotAStore, KXStringWithFormat("%@ is not a store", path));
    const auto number = [&header](int offset) { return qFromBigEndian<quint32>(header.constData() + offset); };
    if (number(68) != quint32(ApplicationId))
        return schemaError(KXStoreErrorCode::NotAStore, KXStringWithFormat("%@ belongs to another program", path));
    const quint32 pageField = qFromBigEndian<quint16>(header.constData() + 16);
    const qint64 pageSize = pageField == 1 ? 65'536 : pageField;
    if (!journalled && !logged && number(24) == number(92) && info.size() < pageSize * qint64(number(28)))
        return schemaError(KXStoreErrorCode::Damaged, KXStringWithFormat("%@ is cut off", path));
    return {};
}

KXError KXStoreSchema::readMetadata(KXSQLiteConnection &connection, Metadata &metadata)
{
    KXStatement query = connection.prepare("SELECT key, value FROM kx_metadata");
    if (!query) {
        const KXError problem = connection.lastError();
        return problem.code() == KXStoreErrorCode::Other // there is no such table
            ? schemaError(KXStoreErrorCode::Damaged, problem.localizedDescription())
            : problem;
    }
    int formatVersion = 0;
    while (query.step() == SQLITE_ROW) {
        const QString key = query.text(0);
        if (key == "uuid"_L1) {
            metadata.uuid = query.text(1);
        } else if (key == "format"_L1) {
            formatVersion = int(query.integer(1));
        } else if (key == "model"_L1) {
            metadata.modelJSON = query.bytes(1);
        } else if (key == "hashes"_L1) {
            const QJsonObject hashes = QJsonDocument::fromJson(query.bytes(1)).object();
            for (auto it = hashes.begin(); it != hashes.end(); ++it)
                metadata.versionHashes.insert(it.key(), QByteArray::fromHex(it.value().toString().toLatin1()));
        }
    }
    if (formatVersion > FormatVersion)
        return schemaError(KXStoreErrorCode::NotAStore, u"The store was written by a newer version"_s);
    if (formatVersion < 1 || metadata.uuid.isEmpty() || metadata.versionHashes.isEmpty())
        return schemaError(KXStoreErrorCode::Damaged, u"The store's metadata is missing"_s);
    return {};
}

KXError KXStoreSchema::look(const QString &path, const QByteArray &vfs, bool &fresh, Metadata &metadata)
{
    if (KXError error = inspectFile(path, vfs, fresh); error || fresh)
        return error;
    // With connections that never fold the log into a file that may be refused, and leave nothing beside it. The first
    // gives way to whoever has the file open.
    KXError error;
    for (const bool brief : { true, false }) {
        KXSQLiteConnection connection;
        error = connection.open(path, { .untouched = true, .brief = brief, .vfs = vfs });
        if (!error) {
            const qint64 tables = connection.integer("SELECT count(*) FROM sqlite_master", -1);
            fresh = tables == 0; // a creation that was cut short before its first commit
            metadata = {};
            error = fresh ? KXError() : tables < 0 ? connection.lastError() : readMetadata(connection, metadata);
        }
        if (error.code() != KXStoreErrorCode::Busy)
            break;
    }
    return error;
}

qint64 KXStoreSchema::nextKey(KXSQLiteConnection &connection)
{
    // One row with a whole number in it.
    return connection.integer("SELECT sum(CASE WHEN typeof(next) = 'integer' AND next BETWEEN 1 AND "
        + QByteArray::number(LastKey) + " THEN next END) FROM kx_sequence HAVING count(*) = 1");
}

qint64 KXStoreSchema::changeNumber(KXSQLiteConnection &connection)
{
    return connection.integer("SELECT value FROM kx_metadata WHERE key = 'change' AND typeof(value) = 'integer'");
}

KXError KXStoreSchema::raiseChangeNumber(KXSQLiteConnection &connection, ChangeNumbers &numbers)
{
    KXStatement raise = connection.prepare(
        "INSERT INTO kx_metadata VALUES('change', ?1) ON CONFLICT(key) DO UPDATE SET value = CASE WHEN typeof(value) = "
        "'integer' AND value BETWEEN 1 AND 1 << 62 THEN value + ?2 ELSE ?1 END RETURNING value");
    if (!raise)
        return connection.lastError();
    // By random steps: a copy of the store that goes its own way never comes to a number of the original's.
    QRandomGenerator *random = QRandomGenerator::system();
    const qint64 step = 1 + qint64(random->generate() >> 2);
    raise.bind(1, 1 + qint64(random->generate64() >> 4));
    raise.bind(2, step);
    if (raise.step() != SQLITE_ROW)
        return connection.lastError();
    numbers.after = raise.integer(0);
    numbers.before = numbers.after - step;
    return raise.step() == SQLITE_DONE ? KXError() : connection.lastError();
}

void KXStoreSchema::addChangeNumber(KXSQLiteConnection &connection)
{
    if (changeNumber(connection) != 0)
        return;
    KXTransaction transaction(connection);
    ChangeNumbers numbers;
    KXError error = transaction.begin();
    if (!error)
        error = raiseChangeNumber(connection, numbers);
    if (!error)
        error = transaction.commit();
    if (error)
        KXLogInfo(store, "The store gets no change number: %@", error);
}

KXError KXStoreSchema::writeMetadata(
    KXSQLiteConnection &connection, const KXManagedObjectModel &model, Metadata &metadata, const QByteArray &schema)
{
    metadata.modelJSON = model.toJSON();
    metadata.versionHashes = model.versionHashes();
    QJsonObject hashes;
    for (auto it = metadata.versionHashes.cbegin(); it != metadata.versionHashes.cend(); ++it)
        hashes[it.key()] = QString::fromLatin1(it.value().toHex());
    const std::pair<const char *, QVariant> entries[] = {
        { "uuid", metadata.uuid },
        { "format", FormatVersion },
        { "model", QString::fromUtf8(metadata.modelJSON) },
        { "hashes", QString::fromUtf8(QJsonDocument(hashes).toJson(QJsonDocument::Compact)) },
    };
    KXStatement insert = connection.prepare("INSERT INTO " + schema + ".kx_metadata VALUES(?1, ?2)");
    if (!insert)
        return connection.lastError();
    for (const auto &[key, value] : entries) {
        insert.bindText(1, key);
        insert.bindVariant(2, value);
        if (insert.step() != SQLITE_DONE)
            return connection.lastError();
        insert.reset();
    }
    return {};
}

KXError KXStoreSchema::create(const QString &path, const QByteArray &vfs, const KXManagedObjectModel &model)
{
    {
        KXNewFile file; // which nobody else has made
        if (KXError error = file.create(path))
            return error;
    }
    KXSQLiteConnection connection;
    if (KXError error = connection.open(path, { .untouched = true, .vfs = vfs }))
        return error;
    // Whole or not at all is the caller's business, as is the sync.
    const QByteArray pragmas = "PRAGMA locking_mode=EXCLUSIVE; PRAGMA journal_mode=MEMORY; PRAGMA synchronous=OFF;"
                               "PRAGMA application_id="
        + QByteArray::number(ApplicationId);
    if (KXError error = connection.execute(pragmas.constData()))
        return error;
    KXTransaction transaction(connection);
    if (KXError error = transaction.begin())
        return error;
    for (const QByteArray &sql : KXStoreTables::tables(model) + KXStoreTables::indexes(model)) {
        if (KXError error = connection.execute(sql.constData()))
            return error;
    }
    Metadata metadata {
        .uuid = QUuid::createUuid().toString(QUuid::WithoutBraces), .modelJSON = {}, .versionHashes = {}
    };
    if (KXError error = writeMetadata(connection, model, metadata))
        return error;
    if (KXError error = transaction.commit())
        return error;
    return connection.execute("PRAGMA journal_mode=WAL"); // so that those who open it need not change it
}
