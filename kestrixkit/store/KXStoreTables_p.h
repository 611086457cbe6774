#pragma once

#include <QByteArray>
#include <QList>

#include <kestrixkit/model/KXManagedObjectModel.h>
#include <kestrixkit/store/KXSQLite_p.h>

/// The tables and indexes that a model asks for; docs/formats/store.md describes them.
namespace KXStoreTables {

/// Each column of the root's table once, whichever entity of the family declares it.
[[nodiscard]] QList<const KXPropertyDescription *> columnsOfTable(const KXEntityDescription &root);

/// Statements that make all tables, and then all indexes, in the database of that name (of an attached one, too).
[[nodiscard]] QList<QByteArray> tables(const KXManagedObjectModel &model, const QByteArray &schema = "main");
[[nodiscard]] QList<QByteArray> indexes(const KXManagedObjectModel &model, const QByteArray &schema = "main");

/// Damaged where the store holds anything but the model's tables and indexes: what is stored in a file is never run.
[[nodiscard]] KXError check(KXSQLiteConnection &connection, const KXManagedObjectModel &model);

/// Whether there are indexes of folded texts that were made by other rules of folding than ours, which a check of the
/// file would call damaged. updateIndexes() makes them anew.
[[nodiscard]] bool isFoldedByOthers(KXSQLiteConnection &connection);

/// Adds the indexes that the model asks for and drops those that it no longer does.
[[nodiscard]] KXError updateIndexes(KXSQLiteConnection &connection, const KXManagedObjectModel &model);

}
