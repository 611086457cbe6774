#pragma once

#include <algorithm>
#include <limits>

#include <QByteArray>
#include <QDateTime>
#include <QUrl>
#include <QVariant>

#include <kestrixkit/entity/KXPropertyDescription.h>

/// Between the types that callers use and the forms that values have in memory and in the store.
namespace KXValueConversion {

/// The value in the attribute's public type (qint64, bool, double, KXDecimal, QString, QDateTime in UTC, QUrl, QUuid,
/// QByteArray, any); invalid when there is no such value: a text that is no number, an integer out of the
/// type's range. Never changes a value silently: 2.5 is no integer.
[[nodiscard]] QVariant convert(const QVariant &value, KXAttributeType type);

/// The furthest moments that 64 bits of microseconds can tell, in milliseconds from 1970: 292,277 years.
inline constexpr qint64 furthestDate = std::numeric_limits<qint64>::max() / 1000;
[[nodiscard]] inline bool isDateInRange(const QDateTime &date)
{
    return date.toMSecsSinceEpoch() <= furthestDate && date.toMSecsSinceEpoch() >= -furthestDate;
}
/// Microseconds since 1970 UTC; QDateTime carries milliseconds, so the last three digits come out as 0. Dates beyond
/// the furthest are taken for it.
[[nodiscard]] inline qint64 microsecondsFromDate(const QDateTime &date)
{
    return std::clamp(date.toMSecsSinceEpoch(), -furthestDate, furthestDate) * 1000;
}
/// Whether UTF-8, and so a file, can hold the text: it has no half of a surrogate pair. Quick for ordinary texts.
[[nodiscard]] bool isWholeText(QStringView text);
[[nodiscard]] inline QDateTime dateFromMicroseconds(qint64 microseconds)
{
    // Rounded down, also before 1970.
    const qint64 milliseconds = microseconds / 1000 - (microseconds % 1000 < 0);
    return QDateTime::fromMSecsSinceEpoch(milliseconds, Qt::UTC);
}

[[nodiscard]] inline QString textFromUrl(const QUrl &url) { return url.toString(QUrl::FullyEncoded); }

/// The CBOR form in which variants are stored; it keeps strings and numbers, decimals and dates apart.
[[nodiscard]] QByteArray bytesFromVariant(const QVariant &value);
[[nodiscard]] QVariant variantFromBytes(const QByteArray &bytes);

}
