#pragma once

#include <QString>

#include <kestrixkit/model/KXManagedObjectModel.h>
#include <kestrixkit/store/KXPersistentStore.h>
#include <kestrixkit/store/KXSQLite_p.h>

/// A store file but for its tables: its first bytes, metadata and numbers; docs/formats/store.md describes them.
namespace KXStoreSchema {

/// In the file's header, so that our files are known before SQLite touches them: "KSTX".
inline constexpr qint32 ApplicationId = 0x4b535458;
/// Version of the format itself, apart from the model's.
inline constexpr int FormatVersion = 1;

using Metadata = KXStoreMetadata;

/// Of an error that says what is wrong with a file, or none: as inspectFile() and a look at the metadata find it. The
/// file is left as it is. `fresh` where a store may be made at the path.
[[nodiscard]] KXError look(const QString &path, const QByteArray &vfs, bool &fresh, Metadata &metadata);

/// Looks at the first bytes alone: an error for folders, unreadable files, files of other programs and files that
/// are shorter than they say. No error for a missing or empty file, which `fresh` tells.
[[nodiscard]] KXError inspectFile(const QString &path, const QByteArray &vfs, bool &fresh);

[[nodiscard]] KXError readMetadata(KXSQLiteConnection &connection, Metadata &metadata);

/// The next key that nobody has reserved; 0 where the sequence is broken.
[[nodiscard]] qint64 nextKey(KXSQLiteConnection &connection);
/// Beyond this no key is reserved: sums of keys stay far from what 64 bits hold.
inline constexpr qint64 LastKey = qint64(1) << 62;

/// Two changes of a store that follow each other, as its change number stood before and after.
struct ChangeNumbers
{
    qint64 before = 0;
    qint64 after = 0;
};
/// What every save raises in its own transaction: who knows the number of the state that it has read knows later
/// whether anything was saved since, by whatever process. 0 where the store has none yet.
[[nodiscard]] qint64 changeNumber(KXSQLiteConnection &connection);
/// Within the saver's transaction.
[[nodiscard]] KXError raiseChangeNumber(KXSQLiteConnection &connection, ChangeNumbers &numbers);
/// Gives a store of before there was a change number one; a store that cannot be written does without.
void addChangeNumber(KXSQLiteConnection &connection);

/// Writes model and hashes beside the UUID that the metadata holds.
[[nodiscard]] KXError writeMetadata(KXSQLiteConnection &connection, const KXManagedObjectModel &model,
    Metadata &metadata, const QByteArray &schema = "main");

/// Makes a closed store of all tables and indexes, with a new UUID, in a file that is not there yet and that nobody
/// else knows. Not synced; what is left of it after an error is the caller's to remove.
[[nodiscard]] KXError create(const QString &path, const QByteArray &vfs, const KXManagedObjectModel &model);

}
