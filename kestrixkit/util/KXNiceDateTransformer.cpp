#include <kestrixkit/util/KXNiceDateTransformer.h>

#include <kestrixkit/foundation/KXClock.h>
#include <kestrixkit/foundation/KXStringWithFormat.h>
#include <kestrixkit/util/KXDate.h>

KXNiceDateTransformer::KXNiceDateTransformer()
    : m_locale(KXClock::locale())
    , m_timeZone(KXClock::timeZone())
{
}

QString KXNiceDateTransformer::transformedValue(const QDateTime &date) const
{
    if (!date.isValid())
        return {};
    const QDateTime local = date.toTimeZone(m_timeZone);
    const QString time = m_locale.toString(local.time(), QLocale::ShortFormat);
    if (date > KXDate::startOfToday())
        return KXStringWithFormat(KXLocalizedString("Today %@"), time);
    if (date > KXDate::startOfYesterday())
        return KXStringWithFormat(KXLocalizedString("Yesterday %@"), time);
    return m_locale.toString(local, QLocale::ShortFormat);
}
