#include <kestrixkit/migration/KXStoreMigration_p.h>

#include <QFile>
#include <QFileInfo>

#include <kestrixkit/foundation/KXLog.h>
#include <kestrixkit/foundation/KXStringWithFormat.h>
#include <kestrixkit/migration/KXMigrationSQL_p.h>
#include <kestrixkit/migration/KXMigrationValues_p.h>
#include <kestrixkit/store/KXStoreProgress_p.h>
#include <kestrixkit/store/KXStoreReplacement_p.h>
#include <kestrixkit/store/KXStoreSchema_p.h>
#include <kestrixkit/store/KXStoreTables_p.h>

using namespace Qt::StringLiterals;

namespace {

KXError migrationRun(
    KXSQLiteConnection &connection, const KXMigrationSQL::Statement &statement, qint64 *number = nullptr)
{
    KXStatement query = connection.prepare(statement.sql);
    if (!query)
        return connection.lastError();
    for (qsizetype i = 0; i < statement.parameters.size(); ++i)
        query.bindVariant(int(i + 1), statement.parameters[i]);
    const int code = query.step();
    if (code == SQLITE_ROW && number)
        *number = query.integer(0);
    return code == SQLITE_ROW || code == SQLITE_DONE ? KXError() : connection.lastError();
}

}

KXManagedObjectModel::Ref KXStoreMigration::modelOf(const KXStoreMetadata &metadata, KXError *error)
{
    KXError problem;
    auto model = KXManagedObjectModel::modelWithJSON(metadata.modelJSON, &problem);
    if (model && model->versionHashes() == metadata.versionHashes)
        return model;
    KXSetError(error,
        KXError(KXKestrixKitErrorDomain, KXStoreErrorCode::Damaged,
            KXStringWithFormat("The store's own model is damaged%@%@", problem ? u": "_s : QString(),
                problem.localizedDescription())));
    return nullptr;
}

bool KXStoreMigration::fits(const QUrl &url, const KXManagedObjectModel &model)
{
    const auto metadata = KXPersistentStore::metadataForStoreURL(url);
    return !metadata || metadata->versionHashes == model.versionHashes();
}

KXError KXStoreMigration::checkSource(KXSQLiteConnection &connection, const KXMappingModel &mapping)
{
    KXStoreMetadata metadata;
    if (KXError error = KXStoreSchema::readMetadata(connection, metadata))
        return error;
    if (metadata.versionHashes == mapping.sourceModel()->versionHashes())
        return KXStoreTables::check(connection, *mapping.sourceModel());
    return KXError(KXKestrixKitErrorDomain, KXStoreErrorCode::IncompatibleModel,
        u"The store was not written with the model that it is to be migrated from"_s);
}

bool KXStoreMigration::mayLackValue(const KXPropertyMapping &property)
{
    if (property.destination->isOptional() || !property.destination->hasColumn() || property.value.isValid())
        return false;
    return !property.source || property.source->isOptional() || property.source->isRelationship()
        || property.converts();
}

KXError KXStoreMigration::write(KXSQLiteConnection &connection, const KXMappingModel &mapping, const QString &fresh,
    const KXStoreProgress &progress)
{
    if (KXError error = checkSource(connection, mapping))
        return error;
    KXMigrationValues::registerFunction(connection.handle());
    const KXMigrationSQL sql(mapping);
    for (const KXEntityMapping &entity : mapping.entityMappings()) {
        for (const KXPropertyMapping &property : entity.properties) {
            qint64 rows = 0;
            if (KXError error = mayLackValue(property)
                    ? migrationRun(connection, sql.missing(entity.source, property), &rows)
                    : KXError())
                return error;
            if (rows > 0) {
                return KXError(KXKestrixKitErrorDomain, KXStoreErrorCode::ValidationFailed,
                    KXStringWithFormat("%@ rows of \"%@\" would have no value for \"%@\"", rows,
                        entity.destination->name(), property.destination->name()));
            }
        }
    }

    {
        KXNewFile file; // for ATTACH opens none that is not there
        if (KXError error = file.create(fresh))
            return error;
    }
    KXStoreFiles::shareModeOf(QFile::decodeName(sqlite3_db_filename(connection.handle(), "main")), fresh);
    KXStatement attach = connection.prepare("ATTACH ?1 AS fresh");
    const QByteArray path = fresh.toUtf8();
    attach.bindText(1, std::string_view(path.constData(), size_t(path.size())));
    if (attach.step() != SQLITE_DONE)
        return connection.lastError();
    attach = {};
    // Until it is whole nobody needs the new file: no journal, and one sync at its end. Sorting for indexes goes to
    // files, so that memory does not grow with the store.
    if (KXError error = connection.execute(
            "PRAGMA temp_store=FILE; PRAGMA main.cache_size=-8192; PRAGMA fresh.cache_size=-16384;"
            "PRAGMA fresh.journal_mode=MEMORY; PRAGMA fresh.synchronous=OFF; PRAGMA fresh.locking_mode=EXCLUSIVE"))
        return error;
    const QByteArray mark = "PRAGMA fresh.application_id=" + QByteArray::number(KXStoreSchema::ApplicationId);
    if (KXError error = connection.execute(mark.constData()))
        return error;

    const double size = std::max(
        double(connection.integer("PRAGMA main.page_count") * connection.integer("PRAGMA main.page_size")), 1.0);
    const KXStatementProgress shown(connection, progress, [&] { return double(QFileInfo(fresh).size()) / size; });
    if (KXError error = connection.execute("BEGIN"))
        return error;
    for (const QByteArray &table : KXStoreTables::tables(*mapping.destinationModel(), "fresh")) {
        if (KXError error = connection.execute(table.constData()))
            return error;
    }
    for (const KXMigrationSQL::Statement &copy : sql.copies()) {
        if (KXError error = migrationRun(connection, copy))
            return error;
    }
    for (const QByteArray &index : KXStoreTables::indexes(*mapping.destinationModel(), "fresh")) {
        if (KXError error = connection.execute(index.constData()))
            return error;
    }
    KXStoreMetadata metadata;
    if (KXError error = KXStoreSchema::readMetadata(connection, metadata)) // for the UUID
        return error;
    if (KXError error = KXStoreSchema::writeMetadata(connection, *mapping.destinationModel(), metadata, "fresh"))
        return error;
    if (KXError error = connection.execute("COMMIT"))
        return error;
    // The file belongs to nobody from here on. The old one stays locked by the connection.
    return connection.execute("DETACH fresh");
}

KXError KXStoreMigration::migrateInPlace(const QString &storePath, const KXManagedObjectModel::Ref &destination)
{
    const QString path = KXStoreFiles::realPath(storePath);
    if (KXError error = KXStoreReplacement::recover(path))
        return error;
    KXSQLiteConnection old;
    KXStoreMetadata metadata;
    KXError error = old.openAlone(path);
    if (!error)
        error = KXStoreSchema::readMetadata(old, metadata);
    if (error || metadata.versionHashes == destination->versionHashes()) // another process was faster
        return error;
    const auto source = modelOf(metadata, &error);
    const auto mapping = source ? KXMappingModel::inferredMappingModel(source, destination, &error) : nullptr;
    if (!mapping)
        return error;

    const QString fresh = KXStorePath(path).unique();
    KXStoreReplacement replacement(path, fresh);
    error = replacement.begin();
    if (error)
        return error;
    error = write(old, *mapping, fresh, {});
    if (!error)
        error = replacement.freshIsWhole();
    if (!error)
        error = KXStoreFiles::replace(fresh, path);
    if (!error)
        KXLogInfo(store, "Migrated store %@", path);
    replacement.end(bool(error));
    return error;
}
