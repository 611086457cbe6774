#pragma once

#include <kestrixkit/catalogue/KXCatalogueDialect.h>
#include <kestrixkit/catalogue/KXCatalogueSchema.h>

/// PostgreSQL's numbers of types, and how values are written as theirs.
namespace KXPostgreSQLTypes {

inline constexpr quint32 Words = 3615; ///< tsquery

[[nodiscard]] quint32 typeOf(KXCatalogueType type);
[[nodiscard]] quint32 arrayTypeOf(KXCatalogueType type);
/// As a column is declared: "bigint".
[[nodiscard]] QByteArray nameOf(KXCatalogueType type);
/// An array's text of its elements' texts.
[[nodiscard]] QByteArray arrayText(const QList<QByteArray> &elements);
/// An instant in microseconds since 1970; empty outside the years 1 to 9999.
[[nodiscard]] QByteArray dateText(qint64 microseconds);
[[nodiscard]] QByteArray realText(double value);

}
