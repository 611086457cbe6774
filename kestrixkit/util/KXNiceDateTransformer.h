#pragma once

#include <QDateTime>
#include <QLocale>
#include <QTimeZone>

#include <kestrixkit/foundation/KXGlobal.h>

/// Renders dates for tables: today and yesterday by name with the time, others as a short date with the time.
///
/// Locale and time zone of the texts are those of KXClock when the transformer is made; which day it is follows the
/// clock. One thread at a time.
class KX_CORE_EXPORT KXNiceDateTransformer
{
public:
    KXNiceDateTransformer();

    /// A date after the start of today, also one in the future, is "Today %@"; after the start of yesterday
    /// "Yesterday %@". Midnight itself still belongs to the day before. Null for an invalid date.
    [[nodiscard]] QString transformedValue(const QDateTime &date) const;

private:
    const QLocale m_locale;
    const QTimeZone m_timeZone;
};
