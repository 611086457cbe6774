#pragma once

#include <optional>

#include <QDateTime>
#include <QMap>
#include <QString>
#include <QVariant>

#include <kestrixkit/foundation/KXGlobal.h>

/// How many objects match, by the identifier of the place that counts them. A value; any thread.
using KXCounts = QMap<QString, qint64>;

/// As key-value readers see it: a map; invalid when absent.
[[nodiscard]] KX_CORE_EXPORT QVariant KXVariantFromCounts(const std::optional<KXCounts> &counts);

/// How old a count is, such as "counted 5 minutes ago", by KXClock. Empty for an invalid date.
[[nodiscard]] KX_CORE_EXPORT QString KXCountAgeText(const QDateTime &counted);

/// What a badge shows: nothing below 1, the number up to 999, "999+" from 1000.
[[nodiscard]] KX_CORE_EXPORT QString KXCountBadgeText(qint64 count);
