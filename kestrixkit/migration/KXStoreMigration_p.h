#pragma once

#include <kestrixkit/migration/KXMappingModel.h>
#include <kestrixkit/migration/KXMigrationPlan.h>
#include <kestrixkit/store/KXPersistentStore.h>
#include <kestrixkit/store/KXSQLite_p.h>

/// Writes a store anew for another model. What becomes of the files is the caller's.
namespace KXStoreMigration {

/// The model that a store was written with, out of its own metadata.
[[nodiscard]] KXManagedObjectModel::Ref modelOf(const KXStoreMetadata &metadata, KXError *error = nullptr);

/// Whether a store can be opened with the model as it is, or made: true where there is none that could be read, too.
[[nodiscard]] bool fits(const QUrl &url, const KXManagedObjectModel &model);

/// An error where the connection's store is not of the mapping's source model.
[[nodiscard]] KXError checkSource(KXSQLiteConnection &connection, const KXMappingModel &mapping);

/// Whether there may be rows without a value that the destination requires.
[[nodiscard]] bool mayLackValue(const KXPropertyMapping &property);

/// Makes the file `fresh`, which does not exist, of the store that the connection has opened alone: same identifiers,
/// UUID, next key and row versions, all indexes. Not synced. What is left of it after an error is the caller's to
/// remove.
[[nodiscard]] KXError write(KXSQLiteConnection &connection, const KXMappingModel &mapping, const QString &fresh,
    const KXStoreProgress &progress);

/// Migrates the store at the path to the model, with an inferred mapping: the file is replaced in one step, and nothing
/// of the old one is kept. On failure it is as it was.
[[nodiscard]] KXError migrateInPlace(const QString &path, const KXManagedObjectModel::Ref &destination);

}
