#pragma once

#include <compare>

#include <QByteArray>
#include <QString>

#include <kestrixkit/foundation/KXGlobal.h>

/// The text rules that predicates follow in memory and inside SQLite. Options are bits of KXPredicateOption.
namespace KXTextFolding {

/// The text without diacritics and differences of case, as far as the options ask for it. Folding twice changes
/// nothing more.
[[nodiscard]] QString folded(const QString &text, int options);
/// The same on UTF-8.
[[nodiscard]] QByteArray folded(QByteArrayView utf8, int options);
void appendFolded(QByteArrayView utf8, int options, QByteArray &to);

/// Tells apart by what rules texts are folded; another number means that some may fold to something else.
[[nodiscard]] int rules();

/// Order by code points, as bytes of UTF-8 have it; QString's own order puts characters beyond U+FFFF too low.
[[nodiscard]] std::strong_ordering compare(QStringView a, QStringView b);

/// Whether the whole text fits the pattern: "*" any characters, "?" one, a backslash takes the next as it is.
[[nodiscard]] bool isLike(QStringView text, QStringView pattern);
[[nodiscard]] bool isLike(QByteArrayView utf8, QByteArrayView pattern);

}
