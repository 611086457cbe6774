#include <kestrixkit/util/KXDate.h>

#include <kestrixkit/foundation/KXClock.h>

using namespace Qt::StringLiterals;

namespace {

QDateTime dateStartOfDay(QDate day) { return day.startOfDay(KXClock::timeZone()); }
QDateTime dateNow() { return KXClock::now().toTimeZone(KXClock::timeZone()); }
QDate dateFirstOfMonth(QDate day) { return QDate(day.year(), day.month(), 1); }
QDate dateFirstOfLastMonth() { return dateFirstOfMonth(KXClock::today().addMonths(-1)); }

}

QDateTime KXDate::startOfToday() { return dateStartOfDay(KXClock::today()); }
QDateTime KXDate::startOfYesterday() { return dateByAddingDays(-1); }

QDateTime KXDate::startOfThisWeek()
{
    const QDate today = KXClock::today();
    return dateStartOfDay(today.addDays(-((today.dayOfWeek() - KXClock::locale().firstDayOfWeek() + 7) % 7)));
}

QDateTime KXDate::startOfThisMonth() { return dateStartOfDay(dateFirstOfMonth(KXClock::today())); }
QDateTime KXDate::startOfThisYear() { return dateStartOfDay(QDate(KXClock::today().year(), 1, 1)); }
QDateTime KXDate::startOfLastMonth() { return dateStartOfDay(dateFirstOfLastMonth()); }
QDateTime KXDate::endOfLastMonth() { return dateStartOfDay(dateFirstOfLastMonth().addMonths(1).addDays(-1)); }
QDateTime KXDate::oneDayAgo() { return dateNow().addDays(-1); }

QDateTime KXDate::dateByAddingDays(int days) { return dateStartOfDay(KXClock::today().addDays(days)); }
QDateTime KXDate::dateByAddingHours(int hours) { return dateNow().addSecs(qint64(hours) * 3600); }
QDateTime KXDate::dateByAddingMinutes(int minutes) { return dateNow().addSecs(qint64(minutes) * 60); }

QDateTime KXDate::localDateFromUTCString(const QString &text)
{
    // Date and time apart: as one, Qt would read them in a zone in which that time may not exist.
    const QDate day = QDate::fromString(text.left(10), u"yyyy-MM-dd");
    const QTime time = QTime::fromString(text.mid(11), u"HH:mm:ss");
    const QDateTime date(day, time, Qt::UTC);
    // Qt's parser forgives, so what was read has to be what stands there.
    if (!day.isValid() || !time.isValid() || date.toString(u"yyyy-MM-dd HH:mm:ss") != text)
        return {};
    const QTimeZone zone = KXClock::timeZone();
    return date.addSecs(zone.offsetFromUtc(KXClock::now())).toTimeZone(zone);
}

QDateTime KXDate::convertToTimeZone(const QDateTime &date, const QTimeZone &zone)
{
    if (!date.isValid() || !zone.isValid())
        return {};
    const QTimeZone local = KXClock::timeZone();
    return date.toTimeZone(local).addSecs(zone.offsetFromUtc(date) - local.offsetFromUtc(date));
}

QString KXDate::currentYearAsString() { return KXClock::today().toString(u"yyyy"); }
