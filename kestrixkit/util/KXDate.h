#pragma once

#include <QDateTime>
#include <QTimeZone>

#include <kestrixkit/foundation/KXGlobal.h>

/// The moments that relative dates are made of: "since yesterday", "the last seven days", "this year".
///
/// All of them follow KXClock and answer in its time zone. They are calendar arithmetic: a day has 23 or 25 hours where
/// the clocks change, where midnight does not exist the day starts with the first moment that does, and a month after
/// 31 January is the last day of February. Any thread.
class KX_CORE_EXPORT KXDate
{
public:
    [[nodiscard]] static QDateTime startOfToday();
    [[nodiscard]] static QDateTime startOfYesterday();
    /// Begins with the first day of the week of the clock's locale.
    [[nodiscard]] static QDateTime startOfThisWeek();
    [[nodiscard]] static QDateTime startOfThisMonth();
    [[nodiscard]] static QDateTime startOfThisYear();
    [[nodiscard]] static QDateTime startOfLastMonth();
    /// The start of the last day of the previous month, not its end.
    [[nodiscard]] static QDateTime endOfLastMonth();
    /// Yesterday at this time of day.
    [[nodiscard]] static QDateTime oneDayAgo();

    /// Counted from the start of today, so always the start of a day; hours and minutes are counted from now.
    [[nodiscard]] static QDateTime dateByAddingDays(int days);
    [[nodiscard]] static QDateTime dateByAddingHours(int hours);
    [[nodiscard]] static QDateTime dateByAddingMinutes(int minutes);

    /// Reads "yyyy-MM-dd HH:mm:ss", taken as UTC, and moves it by the offset that the clock's zone has now, so that its
    /// UTC reading becomes local wall-clock time. Dates on the other side of a clock change are off by the change.
    /// Invalid for any other text.
    [[nodiscard]] static QDateTime localDateFromUTCString(const QString &text);
    /// The moment whose local wall-clock reading is the one that this date has in the zone, to the whole second of
    /// their offsets. Invalid for an invalid date or zone.
    [[nodiscard]] static QDateTime convertToTimeZone(const QDateTime &date, const QTimeZone &zone);
    /// Four digits.
    [[nodiscard]] static QString currentYearAsString();

    KXDate() = delete;
};
