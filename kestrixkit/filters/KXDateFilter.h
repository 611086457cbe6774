#pragma once

#include <kestrixkit/filters/KXFilter.h>

/// The spans that a date filter can stand for, as they are stored: append only. Other codes have no span.
enum class KXDateRange : int {
    All = 0, ///< from 1970 to now
    Today = 1, ///< from the start of yesterday to now: up to two calendar days
    Yesterday = 2, ///< from two days before now to one day before now: no calendar day
    Last7Days = 3, ///< from this time of day seven days ago to now
    Last30Days = 4,
    ThisYear = 5, ///< from the start of the year to now
    Custom = 6, ///< startDate to endDate
};

/// A span of dates, most of them relative to now: the predicate holds for the moment at which it is made. Belongs to
/// the thread of its context.
class KX_CORE_EXPORT KXDateFilter : public KXManagedObjectOf<KXDateFilter, KXFilter>
{
public:
    static constexpr QLatin1StringView entityName { "KXDateFilter" };

    KX_ATTRIBUTE(KXDateRange, range, setRange)
    // Of the custom span; invalid when absent.
    KX_ATTRIBUTE(QDateTime, startDate, setStartDate)
    KX_ATTRIBUTE(QDateTime, endDate, setEndDate)

    /// The span's two ends by KXClock, which each of them asks anew; invalid where a span has none.
    [[nodiscard]] QDateTime startOfRange() const;
    [[nodiscard]] QDateTime endOfRange() const;

    /// The name of the span, or both dates of a custom one in the short form of the clock's locale.
    [[nodiscard]] QString defaultLabel() const override;
    [[nodiscard]] QString detailsAsHTMLString() const override;
    /// Not before the start and not after the end; a missing end is an absent constant, which nothing fits.
    [[nodiscard]] KXPredicate representedPredicateWithKeyPath(
        const QString &keyPath, KXPredicateModifier modifier) const override;

protected:
    void copyTo(KXFilter &copy) const override;
    [[nodiscard]] QStringList keysAffectingLabel() const override;
};
