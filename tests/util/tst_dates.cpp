#include <functional>

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
    const auto days = [](int count) { return [count] { return KXDate::dateByAddingDays(count); }; };
    const struct
    {
        const char *now;
        std::function<QDateTime()> date;
        const char *expected;
        const char *zone = "Europe/Berlin";
        const char *locale = "en_US";
    } rows[] = {
        { "2024-03-15T15:30:20", &KXDate::startOfToday, "2024-03-15 00:00:00" },
        { "2024-01-01T00:00:00", &KXDate::startOfYesterday, "2023-12-31 00:00:00" },
        { "2024-04-01T12:00:00", &KXDate::startOfYesterday, "2024-03-31 00:00:00" }, // a day of 23 hours
        { "2024-04-27T10:00:00", &KXDate::startOfYesterday, "2024-04-26 01:00:00", "Africa/Cairo" }, // without midnight
        { "2024-03-15T15:30:00", &KXDate::startOfThisWeek, "2024-03-10 00:00:00" },
        { "2024-03-15T15:30:00", &KXDate::startOfThisWeek, "2024-03-11 00:00:00", "Europe/Berlin", "de_DE" },
        { "2024-03-11T00:00:00", &KXDate::startOfThisWeek, "2024-03-11 00:00:00", "Europe/Berlin", "de_DE" },
        { "2024-02-29T23:59:59", &KXDate::startOfThisMonth, "2024-02-01 00:00:00" },
        { "2024-07-01T00:30:00", &KXDate::startOfThisYear, "2024-01-01 00:00:00" },
        { "2024-03-31T12:00:00", &KXDate::startOfLastMonth, "2024-02-01 00:00:00" },
        { "2023-03-15T12:00:00", &KXDate::endOfLastMonth, "2023-02-28 00:00:00" },
        { "2024-03-31T12:00:00", &KXDate::endOfLastMonth, "2024-02-29 00:00:00" },
        { "2024-03-31T12:00:00", &KXDate::oneDayAgo, "2024-03-30 12:00:00" },
        { "2024-04-03T12:00:00", days(-7), "2024-03-27 00:00:00" },
        { "2024-04-03T12:00:00", days(0), "2024-04-03 00:00:00" },
        { "2024-03-31T12:00:00", [] { return KXDate::dateByAddingHours(-24); }, "2024-03-30 11:00:00" },
        { "2024-12-31T23:00:00", [] { return KXDate::dateByAddingMinutes(90); }, "2025-01-01 00:30:00" },
    };
    for (const auto &row : rows) {
        const At at(QString::fromLatin1(row.now), row.zone, QLocale(QString::fromLatin1(row.locale)));
        EXPECT_EQ(wall(row.date()), QString::fromLatin1(row.expected)) << row.now;
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
