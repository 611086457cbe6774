#pragma once

#include <QMap>
#include <QString>

#include <kestrixkit/store/KXManagedObjectModel.h>
#include <kestrixkit/store/KXPersistentStore.h>
#include <kestrixkit/store/KXSQLite_p.h>

/// The tables of a store file; docs/formats/store.md describes them.
namespace KXStoreSchema {

/// In the file's header, so that our files are known before SQLite touches them: "KSTX".
inline constexpr qint32 ApplicationId = 0x4b535458;
/// Version of the format itself, apart from the model's.
inline constexpr int FormatVersion = 1;

using Metadata = KXStoreMetadata;

/// Of an error that says what is wrong with a file, or none: as inspectFile() and a look at the metadata find it. The
/// file is left as it is. `fresh` where a store may be made at the path.
[[nodiscard]] KXError look(const QString &path, const QByteArray &vfs, bool &fresh, Metadata &metadata);

/// Each column of the root's table once, whichever entity of the family declares it.
[[nodiscard]] QList<const KXPropertyDescription *> columnsOfTable(const KXEntityDescription &root);

/// Statements that make all tables, and then all indexes, in the database of that name (of an attached one, too).
[[nodiscard]] QList<QByteArray> tables(const KXManagedObjectModel &model, const QByteArray &schema = "main");
[[nodiscard]] QList<QByteArray> indexes(const KXManagedObjectModel &model, const QByteArray &schema = "main");

/// Looks at the first bytes alone: an error for folders, unreadable files, files of other programs and files that
/// are shorter than they say. No error for a missing or empty file, which `fresh` tells.
[[nodiscard]] KXError inspectFile(const QString &path, const QByteArray &vfs, bool &fresh);

[[nodiscard]] KXError readMetadata(KXSQLiteConnection &connection, Metadata &metadata);

/// Writes model and hashes beside the UUID that the metadata holds.
[[nodiscard]] KXError writeMetadata(KXSQLiteConnection &connection, const KXManagedObjectModel &model,
    Metadata &metadata, const QByteArray &schema = "main");

/// Makes all tables and indexes in one transaction and gives the store a new UUID.
[[nodiscard]] KXError create(KXSQLiteConnection &connection, const KXManagedObjectModel &model, Metadata &metadata);

/// Adds the indexes that the model asks for and drops those that it no longer does.
[[nodiscard]] KXError updateIndexes(KXSQLiteConnection &connection, const KXManagedObjectModel &model);

}
