#include <kestrixkit/filters/KXCounts.h>

#include <kestrixkit/foundation/KXClock.h>
#include <kestrixkit/foundation/KXStringWithFormat.h>

using namespace Qt::StringLiterals;

QVariant KXVariantFromCounts(const std::optional<KXCounts> &counts)
{
    if (!counts)
        return {};
    QVariantMap map;
    for (auto entry = counts->cbegin(); entry != counts->cend(); ++entry)
        map.insert(entry.key(), entry.value());
    return map;
}

QString KXCountAgeText(const QDateTime &counted)
{
    constexpr qint64 minute = 60, hour = 60 * minute, day = 24 * hour;
    if (!counted.isValid())
        return {};
    const qint64 seconds = counted.secsTo(KXClock::now());
    if (seconds < minute)
        return KXLocalizedString("counted just now");
    if (seconds < 2 * minute)
        return KXLocalizedString("counted a minute ago");
    if (seconds < hour)
        return KXStringWithFormat(KXLocalizedString("counted %lld minutes ago", seconds / minute), seconds / minute);
    if (seconds < 2 * hour)
        return KXLocalizedString("counted an hour ago");
    if (seconds < day)
        return KXStringWithFormat(KXLocalizedString("counted %lld hours ago", seconds / hour), seconds / hour);
    if (seconds < 2 * day)
        return KXLocalizedString("counted a day ago");
    return KXStringWithFormat(KXLocalizedString("counted %lld days ago", seconds / day), seconds / day);
}

QString KXCountBadgeText(qint64 count)
{
    if (count < 1)
        return {};
    return count < 1000 ? KXStringWithFormat("%ld", count) : u"999+"_s;
}
