#include <gtest/gtest.h>

#include <kestrixkit/foundation/KXClock.h>
#include <kestrixkit/util/KXDate.h>
#include <kestrixkit/util/KXNiceDateTransformer.h>

#include "support/KXTestPrint.h"

using namespace Qt::StringLiterals;

namespace {

/// Stops the clock at a wall-clock time of a zone.
class At
{
public:
    explicit At(const QString &time, const char *zone = "Europe/Berlin", const QLocale &locale = QLocale(u"en_US"_s))
    {
        const QTimeZone timeZone { QByteArray(zone) };
        const QDateTime wall = QDateTime::fromString(time, Qt::ISODate);
        KXClock::setTimeZone(timeZone);
        KXClock::setLocale(locale);
        KXClock::setFixed(QDateTime(wall.date(), wall.time(), timeZone));
    }

private:
    KXClockPin m_pin;
};

QString wall(const QDateTime &date) { return date.toString(u"yyyy-MM-dd HH:mm:ss"); }

}

TEST(Dates, areCalendarArithmetic)
{
    struct Row
    {
        const char *name;
        QString now;
        QDateTime (*date)();
        QString expected;
        const char *zone = "Europe/Berlin";
        QString locale = u"en_US"_s;
    };
    const Row rows[] = {
        { "today", u"2024-03-15T15:30:20"_s, &KXDate::startOfToday, u"2024-03-15 00:00:00"_s },
        { "yesterday, over the end of a year", u"2024-01-01T00:00:00"_s, &KXDate::startOfYesterday,
            u"2023-12-31 00:00:00"_s },
        { "yesterday, after the clocks went forward", u"2024-04-01T12:00:00"_s, &KXDate::startOfYesterday,
            u"2024-03-31 00:00:00"_s },
        { "yesterday began an hour late", u"2024-04-27T10:00:00"_s, &KXDate::startOfYesterday, u"2024-04-26 01:00:00"_s,
            "Africa/Cairo" },
        { "a week that begins on Sunday", u"2024-03-15T15:30:00"_s, &KXDate::startOfThisWeek,
            u"2024-03-10 00:00:00"_s },
        { "a week that begins on Monday", u"2024-03-15T15:30:00"_s, &KXDate::startOfThisWeek, u"2024-03-11 00:00:00"_s,
            "Europe/Berlin", u"de_DE"_s },
        { "the week's first day", u"2024-03-11T00:00:00"_s, &KXDate::startOfThisWeek, u"2024-03-11 00:00:00"_s,
            "Europe/Berlin", u"de_DE"_s },
        { "month", u"2024-02-29T23:59:59"_s, &KXDate::startOfThisMonth, u"2024-02-01 00:00:00"_s },
        { "year, which began in winter time", u"2024-07-01T00:30:00"_s, &KXDate::startOfThisYear,
            u"2024-01-01 00:00:00"_s },
        { "last month, which is shorter", u"2024-03-31T12:00:00"_s, &KXDate::startOfLastMonth,
            u"2024-02-01 00:00:00"_s },
        { "last month's last day", u"2023-03-15T12:00:00"_s, &KXDate::endOfLastMonth, u"2023-02-28 00:00:00"_s },
        { "the same after a short month", u"2024-03-31T12:00:00"_s, &KXDate::endOfLastMonth, u"2024-02-29 00:00:00"_s },
        { "a day ago, 23 hours", u"2024-03-31T12:00:00"_s, &KXDate::oneDayAgo, u"2024-03-30 12:00:00"_s },
        { "seven days ago", u"2024-04-03T12:00:00"_s, [] { return KXDate::dateByAddingDays(-7); },
            u"2024-03-27 00:00:00"_s },
        { "no days", u"2024-04-03T12:00:00"_s, [] { return KXDate::dateByAddingDays(0); }, u"2024-04-03 00:00:00"_s },
        { "24 hours ago, over a clock change", u"2024-03-31T12:00:00"_s, [] { return KXDate::dateByAddingHours(-24); },
            u"2024-03-30 11:00:00"_s },
        { "90 minutes on", u"2024-12-31T23:00:00"_s, [] { return KXDate::dateByAddingMinutes(90); },
            u"2025-01-01 00:30:00"_s },
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.name);
        const At at(row.now, row.zone, QLocale(row.locale));
        EXPECT_EQ(wall(row.date()), row.expected);
    }
    const At at(u"2024-12-31T23:59:59"_s, "Pacific/Auckland");
    EXPECT_EQ(KXDate::currentYearAsString(), u"2024"_s);
}

TEST(Dates, movesBetweenWallClocks)
{
    // Summer in a zone of half hours behind: the offset of now holds, also for a date in winter.
    const At at(u"2024-07-01T12:00:00"_s, "America/St_Johns");
    EXPECT_EQ(KXDate::localDateFromUTCString(u"2024-01-15 10:00:00"_s).toUTC(),
        QDateTime(QDate(2024, 1, 15), QTime(7, 30), Qt::UTC));
    for (const QString &text : { u""_s, u"2024-01-15T10:00:00"_s, u"2024-01-15 10:00:00Z"_s, u"2024-01-15 10:00"_s,
             u"2024-13-01 10:00:00"_s, u"2024-02-30 10:00:00"_s, u"2024-01-15 24:00:00"_s, u"2024-1-15 10:00:00"_s,
             u" 2024-01-15 10:00:00"_s, u"2024-01-15 10:00:00 "_s })
        EXPECT_FALSE(KXDate::localDateFromUTCString(text).isValid()) << text.toStdString();

    const QDateTime noon(QDate(2024, 7, 1), QTime(12, 0), Qt::UTC);
    const QTimeZone kolkata("Asia/Kolkata");
    EXPECT_EQ(wall(KXDate::convertToTimeZone(noon, kolkata)), wall(noon.toTimeZone(kolkata)));
    EXPECT_FALSE(KXDate::convertToTimeZone({}, kolkata).isValid());
}

TEST(Dates, areRenderedByDay)
{
    const At at(u"2024-03-15T15:30:00"_s, "Europe/Berlin", QLocale(u"de_DE"_s));
    const KXNiceDateTransformer transformer;
    const QTimeZone zone("Europe/Berlin");
    const auto rendered
        = [&](QDate day, QTime time) { return transformer.transformedValue(QDateTime(day, time, zone).toUTC()); };
    EXPECT_EQ(rendered({ 2024, 3, 15 }, { 8, 5 }), u"Today 08:05"_s);
    EXPECT_EQ(rendered({ 2025, 1, 1 }, { 8, 5 }), u"Today 08:05"_s); // the future as well
    EXPECT_EQ(rendered({ 2024, 3, 15 }, { 0, 0 }), u"Yesterday 00:00"_s);
    EXPECT_EQ(rendered({ 2024, 3, 14 }, { 0, 0, 1 }), u"Yesterday 00:00"_s);
    EXPECT_EQ(rendered({ 2024, 3, 14 }, { 0, 0 }), u"14.03.24 00:00"_s);
    EXPECT_TRUE(transformer.transformedValue({}).isNull());

    // Its language and zone stay, the day moves on.
    KXClock::setLocale(QLocale(u"en_US"_s));
    KXClock::advance(86400);
    EXPECT_EQ(rendered({ 2024, 3, 15 }, { 8, 5 }), u"Yesterday 08:05"_s);
}
