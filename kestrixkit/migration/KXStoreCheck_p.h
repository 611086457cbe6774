#pragma once

#include <QStringList>

#include <kestrixkit/store/KXPersistentStore.h>
#include <kestrixkit/store/KXSQLite_p.h>

class KXManagedObjectModel;

/// Looks for what should not be in a store file. A line of English for each find.
namespace KXStoreCheck {

/// What SQLite says of the file itself.
[[nodiscard]] QStringList damage(KXSQLiteConnection &connection, const KXStoreProgress &progress = {});

/// Rows that break the model's promises: keys that were never given out, entities that there are not, required values
/// that are missing, relationships whose two ends do not agree.
[[nodiscard]] QStringList brokenPromises(
    KXSQLiteConnection &connection, const KXManagedObjectModel &model, const KXStoreProgress &progress = {});

}
