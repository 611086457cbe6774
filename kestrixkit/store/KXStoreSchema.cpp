#include <kestrixkit/store/KXStoreSchema_p.h>

#include <QFile>
#include <QDir>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSet>
#include <QUuid>
#include <QtEndian>

#include <kestrixkit/foundation/KXStringWithFormat.h>

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

QMap<QByteArray, QByteArray> wantedIndexes(const KXManagedObjectModel &model)
{
    QMap<QByteArray, QByteArray> indexes;
    for (const KXEntityDescription *root : model.entities()) {
        if (root->parent())
            continue;
        for (const KXPropertyDescription *column : KXStoreSchema::columnsOfTable(*root)) {
            if (!column->isIndexed() && !column->isToOne())
                continue;
            QByteArray name = "kx_i_" + root->table().mid(1, root->table().size() - 2) + '_' + column->column().mid(1, column->column().size() - 2);
            indexes.insert(name, "CREATE INDEX \"" + name + "\" ON " + root->table() + '(' + column->column() + ')');
        }
    }
    return indexes;
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

KXError KXStoreSchema::inspectFile(const QString &path, bool &fresh)
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
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return schemaError(KXStoreErrorCode::CannotOpen, KXStringWithFormat("%@: %@", path, file.errorString()));
    if (file.size() == 0) {
        fresh = true; // as a creation that was cut short leaves it
        return {};
    }
    if (!info.isWritable())
        return schemaError(KXStoreErrorCode::ReadOnly, KXStringWithFormat("%@ cannot be written", path));

    // Offsets as documented for the SQLite file format: page size at 16, change counter at 24, pages at 28,
    // application id at 68, the change counter for which the number of pages holds at 92.
    const QByteArray header = file.read(100);
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
    if (!journalled && !logged && number(24) == number(92) && file.size() < pageSize * qint64(number(28)))
        return schemaError(KXStoreErrorCode::Damaged, KXStringWithFormat("%@ is cut off", path));
    return {};
}

KXError KXStoreSchema::readMetadata(KXSQLiteConnection &connection, Metadata &metadata)
{
    KXStatement query = connection.prepare("SELECT key, value FROM kx_metadata");
    if (!query)
        return schemaError(KXStoreErrorCode::Damaged, connection.lastError().localizedDescription());
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

KXError KXStoreSchema::create(KXSQLiteConnection &connection, const KXManagedObjectModel &model, Metadata &metadata)
{
    KXTransaction transaction(connection);
    if (KXError error = transaction.begin())
        return error;

    QByteArray sql = "CREATE TABLE kx_metadata(key TEXT PRIMARY KEY, value) WITHOUT ROWID;"
                     "CREATE TABLE kx_sequence(next INTEGER NOT NULL); INSERT INTO kx_sequence VALUES(1);";
    QSet<QByteArray> joins;
    for (const KXEntityDescription *entity : model.entities()) {
        if (!entity->parent()) {
            sql += "CREATE TABLE " + entity->table() + "(kx_id INTEGER PRIMARY KEY";
            if (entity->hasDiscriminator())
                sql += ", kx_entity INTEGER NOT NULL";
            sql += ", kx_version INTEGER NOT NULL";
            for (const KXPropertyDescription *column : columnsOfTable(*entity))
                sql += ", " + column->column() + ' ' + columnType(*column);
            sql += ");";
        }
        for (const KXPropertyDescription &property : entity->properties()) {
            const QByteArray &join = property.joinTable();
            if (join.isEmpty() || joins.contains(join))
                continue;
            joins.insert(join);
            sql += "CREATE TABLE " + join + "(a INTEGER NOT NULL, b INTEGER NOT NULL, PRIMARY KEY(a, b)) WITHOUT ROWID;";
            sql += "CREATE INDEX \"kx_j_" + join.mid(1) + " ON " + join + "(b, a);";
        }
    }
    for (const QByteArray &index : wantedIndexes(model))
        sql += index + ';';
    if (KXError error = connection.execute(sql.constData()))
        return error;

    metadata.uuid = QUuid::createUuid().toString(QUuid::WithoutBraces);
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
    KXStatement insert = connection.prepare("INSERT INTO kx_metadata VALUES(?1, ?2)");
    for (const auto &[key, value] : entries) {
        insert.bindText(1, key);
        insert.bindVariant(2, value);
        if (insert.step() != SQLITE_DONE)
            return connection.lastError();
        insert.reset();
    }
    return transaction.commit();
}

KXError KXStoreSchema::updateIndexes(KXSQLiteConnection &connection, const KXManagedObjectModel &model)
{
    QMap<QByteArray, QByteArray> missing = wantedIndexes(model);
    QByteArray sql;
    {
        KXStatement query = connection.prepare("SELECT name FROM sqlite_master WHERE type = 'index' AND name GLOB 'kx_i_*'");
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
