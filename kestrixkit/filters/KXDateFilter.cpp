#include <kestrixkit/filters/KXDateFilter.h>

#include <kestrixkit/foundation/KXClock.h>
#include <kestrixkit/util/KXDate.h>

using namespace Qt::StringLiterals;

namespace {

/// This time of day, so many days ago.
QDateTime dateFilterDaysAgo(int days) { return KXClock::now().toTimeZone(KXClock::timeZone()).addDays(-days); }

}

QDateTime KXDateFilter::startOfRange() const
{
    switch (range()) {
    case KXDateRange::All:
        return QDateTime::fromMSecsSinceEpoch(0, Qt::UTC);
    case KXDateRange::Today:
        return KXDate::startOfYesterday();
    case KXDateRange::Yesterday:
        return dateFilterDaysAgo(2);
    case KXDateRange::Last7Days:
        return dateFilterDaysAgo(7);
    case KXDateRange::Last30Days:
        return dateFilterDaysAgo(30);
    case KXDateRange::ThisYear:
        return KXDate::startOfThisYear();
    case KXDateRange::Custom:
        return startDate();
    }
    return {};
}

QDateTime KXDateFilter::endOfRange() const
{
    switch (range()) {
    case KXDateRange::All:
    case KXDateRange::Today:
    case KXDateRange::Last7Days:
    case KXDateRange::Last30Days:
    case KXDateRange::ThisYear:
        return KXClock::now();
    case KXDateRange::Yesterday:
        return dateFilterDaysAgo(1);
    case KXDateRange::Custom:
        return endDate();
    }
    return {};
}

QString KXDateFilter::defaultLabel() const
{
    switch (range()) {
    case KXDateRange::All:
        return KXLocalizedString("All");
    case KXDateRange::Today:
        return KXLocalizedString("Today");
    case KXDateRange::Yesterday:
        return KXLocalizedString("Yesterday");
    case KXDateRange::Last7Days:
        return KXLocalizedString("Last 7 Days");
    case KXDateRange::Last30Days:
        return KXLocalizedString("Last 30 Days");
    case KXDateRange::ThisYear:
        return KXLocalizedString("This Year");
    case KXDateRange::Custom: {
        const auto text = [](const QDateTime &date) {
            return date.isValid()
                ? KXClock::locale().toString(date.toTimeZone(KXClock::timeZone()).date(), QLocale::ShortFormat)
                : QString();
        };
        return KXStringWithFormat(KXLocalizedString("%@ - %@"), text(startDate()), text(endDate()));
    }
    }
    return {};
}

QString KXDateFilter::detailsAsHTMLString() const { return KXStringWithFormat("%@</br>", defaultLabel()); }

KXPredicate KXDateFilter::representedPredicateWithKeyPath(const QString &keyPath, KXPredicateModifier modifier) const
{
    const auto start
        = KXPredicate::comparison(keyPath, KXPredicateOperator::GreaterThanOrEqual, startOfRange(), modifier);
    const auto end = KXPredicate::comparison(keyPath, KXPredicateOperator::LessThanOrEqual, endOfRange(), modifier);
    return KXPredicate::andPredicate({ start, end });
}

void KXDateFilter::copyTo(KXFilter &copy) const
{
    KXFilter::copyTo(copy);
    copyAttributes({ u"range"_s, u"startDate"_s, u"endDate"_s }, copy);
}

QStringList KXDateFilter::keysAffectingLabel() const
{
    return { u"range"_s, u"startDate"_s, u"endDate"_s, u"count"_s };
}
