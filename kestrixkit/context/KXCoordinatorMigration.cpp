// Moving the files of stores that are migrated.

#include <kestrixkit/context/KXPersistentStoreCoordinator.h>

#include <QFileInfo>

#include <kestrixkit/entity/KXStoreErrorCode.h>
#include <kestrixkit/foundation/KXBundle.h>
#include <kestrixkit/foundation/KXException.h>
#include <kestrixkit/foundation/KXLog.h>
#include <kestrixkit/foundation/KXStringWithFormat.h>
#include <kestrixkit/migration/KXStoreMigration_p.h>
#include <kestrixkit/model/KXModelFile_p.h>
#include <kestrixkit/store/KXPersistentStore.h>
#include <kestrixkit/store/KXStoreReplacement_p.h>

using namespace Qt::StringLiterals;

namespace {

/// A step of a progressive migration.
struct MigrationPass
{
    KXMappingModel::Ref mapping;
    QString modelName; // of the destination's file, without extension
};

/// The passes that lead from the one model to the other: each takes the first model file, in the bundle's order, to
/// which there is a mapping and which was not there before, so that mappings that lead in a circle come to an end.
KXError migrationPasses(
    KXManagedObjectModel::Ref source, const KXManagedObjectModel::Ref &last, QList<MigrationPass> &passes)
{
    const QStringList files = KXModelFile::allModelFiles(KXBundle::mainBundle());
    if (files.isEmpty())
        return KXError(KXKestrixKitErrorDomain, KXStoreErrorCode::NothingToMigrate, u"No models found in bundle"_s);
    QList<QMap<QString, QByteArray>> visited { source->versionHashes() };
    while (visited.last() != last->versionHashes()) {
        KXError error;
        const qsizetype before = passes.size();
        for (const QString &file : files) {
            const auto candidate = KXManagedObjectModel::modelWithContentsOfFile(file);
            if (!candidate || visited.contains(candidate->versionHashes()))
                continue;
            const auto mapping = KXMappingModel::mappingModelFromBundles({}, source, candidate, &error);
            if (error)
                return error;
            if (mapping) {
                passes.append({ mapping, KXStorePath(file).name() });
                break;
            }
        }
        if (passes.size() == before)
            return KXError(
                KXKestrixKitErrorDomain, KXStoreErrorCode::NothingToMigrate, u"No mapping models found in bundle"_s);
        source = passes.last().mapping->destinationModel();
        visited.append(source->versionHashes());
    }
    return {};
}

KXError migrationRunPass(const KXStorePath &store, const MigrationPass &pass)
{
    const QString fresh = store.unique();
    const QString kept
        = store.folder() + u'/' + KXStorePath::newUUID() + u'.' + pass.modelName + u'.' + store.extension();
    KXSQLiteConnection old;
    if (KXError error = old.openAlone(store.path()))
        return error;
    KXStoreReplacement replacement(store.path(), fresh, kept);
    if (KXError error = replacement.begin())
        return error;
    KXError error = KXStoreMigration::write(old, *pass.mapping, fresh, {});
    if (!error)
        error = replacement.freshIsWhole();
    if (!error)
        error = KXStoreFiles::move(store.path(), kept);
    if (!error) {
        error = KXStoreFiles::move(fresh, store.path());
        if (error)
            (void)KXStoreFiles::move(kept, store.path());
    }
    replacement.end(bool(error));
    return error;
}

}

KXPersistentStoreCoordinator::Ref KXPersistentStoreCoordinator::persistentStoreCoordinatorByMigratingStoreURL(
    const QUrl &url, const KXManagedObjectModel::Ref &model, KXError *error)
{
    KXError problem;
    if (KXStoreMigration::fits(url, *model))
        return persistentStoreCoordinatorWithStoreURL(url, model, error);
    const auto plan = KXMigrationPlan::planForStoreURL(url, model, &problem);
    if (plan && (plan->losesData() || !plan->isPossible())) {
        KXSetError(error,
            KXError(KXKestrixKitErrorDomain, KXStoreErrorCode::IncompatibleModel,
                KXStringWithFormat(
                    "%@ was written by another version, and cannot be opened without loss", url.toLocalFile())));
        return nullptr;
    }
    // Where another process was faster, there is nothing left to do.
    if (plan && plan->isNeeded() && !migrateURL(url, plan->mapping()->sourceModel(), model, &problem)
        && !KXStoreMigration::fits(url, *model)) {
        KXSetError(error, problem);
        return nullptr;
    }
    return persistentStoreCoordinatorWithStoreURL(url, model, error); // tells what is wrong with what is no store
}

bool KXPersistentStoreCoordinator::migrateURL(const QUrl &url, const KXManagedObjectModel::Ref &sourceModel,
    const KXManagedObjectModel::Ref &destinationModel, KXError *error)
{
    return migrateURL(url, sourceModel, destinationModel, {}, error);
}

bool KXPersistentStoreCoordinator::migrateURL(const QUrl &url, const KXManagedObjectModel::Ref &sourceModel,
    const KXManagedObjectModel::Ref &destinationModel, const KXStoreProgress &progress, KXError *error)
{
    const KXStorePath store(url.toLocalFile());
    KXError problem;
    const auto mapping = KXMappingModel::inferredMappingModel(sourceModel, destinationModel, &problem);
    if (!mapping)
        return KXSetError(error, problem);
    if ((problem = KXStoreReplacement::recover(store.path())))
        return KXSetError(error, problem);

    // Locked until the new file is in place. A store that somebody else works on is left alone; with any other mistake
    // the work goes on, and fails where it must.
    KXSQLiteConnection old;
    problem = old.openAlone(store.path());
    const QString fresh = store.unique();
    const QString kept = store.unique();
    KXStoreReplacement replacement(store.path(), fresh, kept);
    const bool isBusy = problem.code() == KXStoreErrorCode::Busy;
    KXError note = isBusy ? problem : replacement.begin();
    if (note) {
        KXLogError(store, "Failed to migrate store: %@", note);
        return KXSetError(error, note);
    }
    if (!problem)
        problem = KXStoreMigration::write(old, *mapping, fresh, progress);
    if (!problem)
        problem = replacement.freshIsWhole();
    if (problem)
        KXLogError(store, "Failed to migrate store: %@", problem);

    // Where the migration failed there is no new file to move, and the old one stays where it is put now.
    const auto beside = [&store](QLatin1StringView suffix) { return store.base() + u'.' + store.extension() + suffix; };
    struct Move
    {
        QString from;
        QString to;
        bool isThere;
        const char *failure;
    };
    const Move moves[] = {
        { store.path(), kept, true, "Failed to backup original store %@: %@" },
        { beside("-wal"_L1), kept + "-wal"_L1, false, "Failed to backup original store wal file %@: %@" },
        { beside("-shm"_L1), kept + "-shm"_L1, false, "Failed to backup original store shm file %@: %@" },
        { fresh, store.path(), true, "Failed to move migrated store into place: %@" },
        { fresh + "-wal"_L1, beside("-wal"_L1), false, "Failed to move migrated store wal file %@: %@" },
        { fresh + "-shm"_L1, beside("-shm"_L1), false, "Failed to move migrated store shm file %@: %@" },
    };
    KXError failure;
    for (const Move &move : moves) {
        if (!move.isThere && !KXStoreFiles::exists(move.from))
            continue;
        // A part of a new file must never get there.
        failure = problem && move.from == fresh ? problem : KXStoreFiles::move(move.from, move.to);
        if (!failure)
            continue;
        if (QByteArrayView(move.failure).count("%@") == 2)
            KXLogError(store, move.failure, move.from, failure);
        else
            KXLogError(store, move.failure, failure);
        break;
    }
    replacement.end(problem || failure);
    if (problem || failure)
        return KXSetError(error, problem ? problem : failure);
    return true;
}

bool KXPersistentStoreCoordinator::progressivelyMigrateURL(
    const QUrl &url, const QString &ofType, const KXManagedObjectModel::Ref &toModel, KXError *error)
{
    const KXStorePath store(url.toLocalFile());
    if (KXError problem = KXStoreReplacement::recover(store.path()))
        return KXSetError(error, problem);
    if (!KXStoreFiles::exists(store.path()))
        return true;
    if (ofType != KXSQLiteStoreType)
        return KXSetError(error,
            KXError(KXKestrixKitErrorDomain, KXStoreErrorCode::NotAStore,
                KXStringWithFormat("There are no stores of the type \"%@\"", ofType)));
    const auto metadata = KXPersistentStore::metadataForStoreURL(url, error);
    if (!metadata)
        return false;
    if (metadata->versionHashes != toModel->versionHashes()) {
        const auto source = KXManagedObjectModel::mergedModelFromBundles({}, *metadata);
        if (!source) {
            throw KXException(KXInternalInconsistencyException,
                KXStringWithFormat("Failed to find source model\n%@", QString::fromUtf8(metadata->modelJSON)));
        }
        QList<MigrationPass> passes;
        if (KXError problem = migrationPasses(source, toModel, passes))
            return KXSetError(error, problem);
        for (const MigrationPass &pass : passes) {
            if (KXError problem = migrationRunPass(store, pass))
                return KXSetError(error, problem);
        }
    }
    if (error)
        *error = {};
    return true;
}
