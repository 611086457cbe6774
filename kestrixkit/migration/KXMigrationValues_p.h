#pragma once

#include <kestrixkit/entity/KXPropertyDescription.h>
#include <kestrixkit/store/KXSQLite_p.h>

/// What becomes of a stored value when its attribute gets another type.
namespace KXMigrationValues {

/// Types whose stored forms SQLite turns into one another by itself when it puts them into a column.
[[nodiscard]] bool isPlain(KXAttributeType from, KXAttributeType to);

/// The value in the form in which it is stored as that type; invalid where there is none.
[[nodiscard]] QVariant storageForm(QVariant value, KXAttributeType type);

/// Gives the connection kx_convert(value, type it is stored as, type it becomes) for all others; null where there is
/// no such value.
void registerFunction(sqlite3 *database);

}
