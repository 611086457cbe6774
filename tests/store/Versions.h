#pragma once

#include <QTemporaryDir>

#include <kestrixkit/context/KXManagedObjectContext.h>
#include <kestrixkit/store/KXPersistentStore.h>

/// A store whose model has three versions: tracks become songs with a tempo and a mood, then tempos become whole
/// numbers, which nobody can infer, and songs get tags.
namespace Versions {

KXManagedObjectModel::Ref model(int version);

/// A closed store of that version with so many tracks on two albums, called "title 0" and so on.
void make(const QString &path, int tracks, int version = 1, const QString &title = QStringLiteral("title"));
/// Adds a track to an open store, whichever its version is, and saves.
bool add(const KXPersistentStoreCoordinator::Ref &coordinator, const QString &title);
/// "key title" of each track, read by plain SQL. Empty where there is no store.
QStringList tracks(const QString &path);
/// As the store's metadata says; 0 where it cannot be read.
int versionOf(const QString &path);
/// Opened with the model of its own version; nullptr where that fails.
KXPersistentStoreCoordinator::Ref open(const QString &path);

/// All names below the folder but those of logs and their indexes, sorted.
QStringList files(const QString &folder);

} // namespace Versions
