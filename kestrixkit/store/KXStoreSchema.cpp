#include <kestrixkit/store/KXStoreSchema_p.h>

#include <cstddef>
#include <vector>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRandomGenerator>
#include <QSet>
#include <QUuid>
#include <QtEndian>

#include <kestrixkit/foundation/KXLog.h>
#include <kestrixkit/foundation/KXStringWithFormat.h>
#include <kestrixkit/store/KXStoreFiles_p.h>

using namespace Qt::StringLiterals;

namespace {

KXError schemaError(int code, const QString &text) { return KXError(KXKestrixKitErrorDomain, code, text); }

QByteArray columnType(const KXPropertyDescription &property)
{
    if (property.isRelationship())
        return "INTEGER";
    switch (property.type()) {
    case KXAttributeType::Double:
        return "REAL";
    case KXAttributeType::Decimal:
        return "TEXT COLLATE KX_DECIMAL"; // the order of numbers, in comparisons, sorting and indexes alike
    case KXAttributeType::String:
    case KXAttributeType::URI:
    case KXAttributeType::UUID:
        return "TEXT";
    case KXAttributeType::Binary:
    case KXAttributeType::Variant:
        return "BLOB";
    default:
        return "INTEGER";
    }
}

/// The name of an index and the statement that makes it. With a second column it has another name than without, and so
/// takes the place of that one.
std::pair<QByteArray, QByteArray> createIndex(const KXEntityDescription &root, const KXPropertyDescription &column,
    const KXPropertyDescription *second, const QByteArray &schema)
{
    const auto bare = [](const QByteArray &quoted) { return quoted.mid(1, quoted.size() - 2); };
    QByteArray name = "kx_i_" + bare(root.table()) + '_' + bare(column.column()), columns = column.column();
    if (second) {
        name += '+' + bare(second->column());
        columns += ',' + second->column();
    }
    return { name, "CREATE INDEX " + schema + ".\"" + name + "\" ON " + root.table() + '(' + columns + ')' };
}

/// nullptr for a column that is indexed alone.
const KXPropertyDescription *secondInIndex(const KXEntityDescription &root, const KXPropertyDescription &column)
{
    if (column.secondInIndex().isEmpty())
        return nullptr;
    for (const KXEntityDescription *entity : root.family()) {
        const KXPropertyDescription *const own = entity->property(column.name());
        if (own && own->column() == column.column())
            return entity->property(column.secondInIndex());
    }
    return nullptr;
}

/// Statements by the indexes' names.
QMap<QByteArray, QByteArray> wantedIndexes(const KXManagedObjectModel &model, const QByteArray &schema)
{
    QMap<QByteArray, QByteArray> indexes;
    for (const KXEntityDescription *root : model.entities()) {
        if (root->parent())
            continue;
        for (const KXPropertyDescription *column : KXStoreSchema::columnsOfTable(*root)) {
            if (column->isIndexed() || column->isToOne()) {
                const auto [name, sql] = createIndex(*root, *column, secondInIndex(*root, *column), schema);
                indexes.insert(name, sql);
            }
        }
    }
    return indexes;
}

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

QList<const KXPropertyDescription *> KXStoreSchema::columnsOfTable(const KXEntityDescription &root)
{
    QList<const KXPropertyDescription *> columns;
    QSet<QByteArray> seen;
    for (const KXEntityDescription *entity : root.family()) {
        for (const KXPropertyDescription &property : entity->properties()) {
            if (property.hasColumn() && !seen.contains(property.column())) {
                seen.insert(property.column());
                columns.append(&property);
            }
        }
    }
    return columns;
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

QList<QByteArray> KXStoreSchema::tables(const KXManagedObjectModel &model, const QByteArray &schema)
{
    const QByteArray create = "CREATE TABLE " + schema + '.';
    QList<QByteArray> sql { create + "kx_metadata(key TEXT PRIMARY KEY, value) WITHOUT ROWID",
        create + "kx_sequence(next INTEGER NOT NULL)", "INSERT INTO " + schema + ".kx_sequence VALUES(1)" };
    QSet<QByteArray> joins;
    for (const KXEntityDescription *entity : model.entities()) {
        if (!entity->parent()) {
            QByteArray table = create + entity->table() + "(kx_id INTEGER PRIMARY KEY";
            if (entity->hasDiscriminator())
                table += ", kx_entity INTEGER NOT NULL";
            table += ", kx_version INTEGER NOT NULL";
            for (const KXPropertyDescription *column : columnsOfTable(*entity))
                table += ", " + column->column() + ' ' + columnType(*column);
            sql.append(table + ')');
        }
        for (const KXPropertyDescription &property : entity->properties()) {
            if (property.joinTable().isEmpty() || joins.contains(property.joinTable()))
                continue;
            joins.insert(property.joinTable());
            sql.append(create + property.joinTable()
                + "(a INTEGER NOT NULL, b INTEGER NOT NULL, PRIMARY KEY(a, b)) WITHOUT ROWID");
        }
    }
    return sql;
}

QList<QByteArray> KXStoreSchema::indexes(const KXManagedObjectModel &model, const QByteArray &schema)
{
    QList<QByteArray> sql = wantedIndexes(model, schema).values();
    QSet<QByteArray> joins;
    for (const KXEntityDescription *entity : model.entities()) {
        for (const KXPropertyDescription &property : entity->properties()) {
            const QByteArray &join = property.joinTable();
            if (join.isEmpty() || joins.contains(join))
                continue;
            joins.insert(join);
            sql.append("CREATE INDEX " + schema + ".\"kx_j_" + join.mid(1) + " ON " + join + "(b, a)");
        }
    }
    return sql;
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
    for (const QByteArray &sql : tables(model) + indexes(model)) {
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

KXError KXStoreSchema::checkSchema(KXSQLiteConnection &connection, const KXManagedObjectModel &model)
{
    // As statements stand in the file: without the name of the database. Of a table, the columns in any order, for the
    // order in which a model declares them does not matter.
    const auto inFile = [](QByteArray sql) {
        const qsizetype name = sql.indexOf("main.");
        return sql.remove(name, 5);
    };
    const auto sorted = [](const QByteArray &sql) {
        QByteArrayList columns = (sql.endsWith(')') ? sql.chopped(1) : sql).split(',');
        std::sort(columns.begin(), columns.end());
        return columns.join(',');
    };
    QSet<QByteArray> missing;
    for (const QByteArray &sql : tables(model)) {
        if (sql.startsWith("CREATE"))
            missing.insert(sorted(inFile(sql)));
    }
    // What any program's ANALYZE leaves.
    QSet<QByteArray> known = missing
        + QSet<QByteArray> { sorted("CREATE TABLE sqlite_stat1(tbl,idx,stat)"),
              sorted("CREATE TABLE sqlite_stat4(tbl,idx,neq,nlt,ndlt,sample)") };
    for (const QByteArray &sql : indexes(model))
        known.insert(inFile(sql));
    // Those of attributes that were indexed once, alone or with others.
    const auto isFormerIndex = [&](const QByteArray &sql) {
        for (const KXEntityDescription *root : model.entities()) {
            const auto columns = root->parent() ? QList<const KXPropertyDescription *>() : columnsOfTable(*root);
            for (const KXPropertyDescription *column : columns) {
                if (sql == inFile(createIndex(*root, *column, nullptr, "main").second)
                    || std::any_of(columns.begin(), columns.end(), [&](const KXPropertyDescription *second) {
                           return sql == inFile(createIndex(*root, *column, second, "main").second);
                       }))
                    return true;
            }
        }
        return false;
    };
    // The indexes of primary keys have no statement.
    KXStatement query = connection.prepare("SELECT type, name, sql FROM sqlite_schema WHERE sql IS NOT NULL");
    int code = query ? SQLITE_ROW : SQLITE_ERROR;
    while (query && (code = query.step()) == SQLITE_ROW) {
        const QByteArray sql = query.bytes(0) == "table" ? sorted(query.bytes(2)) : query.bytes(2);
        missing.remove(sql);
        if (!known.contains(sql) && !isFormerIndex(sql))
            return schemaError(KXStoreErrorCode::Damaged,
                KXStringWithFormat(
                    "The store holds the %@ \"%@\", which is none of its model's", query.text(0), query.text(1)));
    }
    if (code == SQLITE_DONE && !missing.isEmpty())
        return schemaError(KXStoreErrorCode::Damaged, u"The store lacks tables of its model"_s);
    return code == SQLITE_DONE ? KXError() : connection.lastError();
}

KXError KXStoreSchema::updateIndexes(KXSQLiteConnection &connection, const KXManagedObjectModel &model)
{
    QMap<QByteArray, QByteArray> missing = wantedIndexes(model, "main");
    QByteArray sql;
    {
        KXStatement query
            = connection.prepare("SELECT name FROM sqlite_master WHERE type = 'index' AND name GLOB 'kx_i_*'");
        if (!query)
            return connection.lastError();
        while (query.step() == SQLITE_ROW) {
            QByteArray name = query.bytes(0);
            if (!missing.remove(name))
                sql += "DROP INDEX \"" + name.replace('"', "\"\"") + "\";";
        }
    }
    for (const QByteArray &create : missing)
        sql += create + ';';
    if (sql.isEmpty())
        return {};
    KXTransaction transaction(connection);
    if (KXError error = transaction.begin())
        return error;
    if (KXError error = connection.execute(sql.constData()))
        return error;
    return transaction.commit();
}
