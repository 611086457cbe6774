#include <limits>

#include <QCoreApplication>
#include <QDateTime>
#include <QTranslator>
#include <QUrl>
#include <gtest/gtest.h>

#include <kestrixkit/foundation/KXDecimal.h>
#include <kestrixkit/foundation/KXError.h>
#include <kestrixkit/foundation/KXException.h>
#include <kestrixkit/foundation/KXStringWithFormat.h>

#include <support/KXTestPrint.h>

using namespace Qt::StringLiterals;

namespace format_test {

struct OwnType
{
    int number = 0;
};
QString KXDescription(const OwnType &value) { return u"own %1"_s.arg(value.number); }

enum class Speed : quint8 { Fast = 3 };

TEST(Format, PrintsEachTypeInItsShortestForm)
{
    EXPECT_EQ(KXStringWithFormat("%@|%@|%@", 120, 0.1, 120.0), u"120|0.1|120"_s);
    EXPECT_EQ(KXStringWithFormat("%@ %@ %@", 0.1F, 1.5e300, 1234567.0), u"0.1 1.5e+300 1234567"_s);
    EXPECT_EQ(KXStringWithFormat("%@ %@", std::numeric_limits<quint64>::max(), std::numeric_limits<qint64>::min()),
        u"18446744073709551615 -9223372036854775808"_s);
    EXPECT_EQ(KXStringWithFormat("%@%@%@", u"a"_s, "b"_L1, "c"), u"abc"_s);
    EXPECT_EQ(KXStringWithFormat("%@ %@", true, Speed::Fast), u"1 3"_s);
    EXPECT_EQ(KXStringWithFormat("%@", *KXDecimal::fromString("120.50")), u"120.5"_s);
    EXPECT_EQ(KXStringWithFormat("%@", QUrl(u"file:///a/b.db"_s)), u"file:///a/b.db"_s);
    EXPECT_EQ(KXStringWithFormat("%@", KXError(u"d"_s, 7, u"broken"_s)), u"broken (d 7)"_s);
    EXPECT_EQ(KXStringWithFormat("%@", std::runtime_error("thrown")), u"thrown"_s);
    EXPECT_EQ(KXStringWithFormat("%@", OwnType { 4 }), u"own 4"_s);
    EXPECT_EQ(KXStringWithFormat("%@ %@", QStringList { u"a"_s, u"b"_s }, QList<int>()), u"(a, b) ()"_s);
    EXPECT_EQ(KXStringWithFormat("%@", QVariantMap { { u"k"_s, 0.25 } }), u"{k = 0.25}"_s);
    EXPECT_EQ(KXStringWithFormat("%@ %@", QVariant(5.0), QVariant::fromValue(KXDecimal::fromInteger(-2))), u"5 -2"_s);
}

TEST(Format, AbsentValuesPrintAsNothing)
{
    const char *noText = nullptr;
    EXPECT_EQ(KXStringWithFormat(
                  "[%@%@%@%@%@%d]", QString(), QVariant(), std::optional<int>(), noText, nullptr, std::nullopt),
        u"[]"_s);
    EXPECT_EQ(KXStringWithFormat("[%@]", std::optional<QString>(u"x"_s)), u"[x]"_s);
}

TEST(Format, UnderstandsTheUsualConversions)
{
    EXPECT_EQ(
        KXStringWithFormat("%d %i %u %ld %lu %lld %zu", -1, 2, 3U, 4L, 5UL, -6LL, size_t(7)), u"-1 2 3 4 5 -6 7"_s);
    EXPECT_EQ(KXStringWithFormat("%f %.2f %05d %-3d| %x", 0.5, 2.345678, 42, 7, 255), u"0.500000 2.35 00042 7  | ff"_s);
    EXPECT_EQ(KXStringWithFormat("100%% %s", "sure"), u"100% sure"_s);
    EXPECT_EQ(KXStringWithFormat("%2$@ of %1$03d, %@ to %@", 1, u"two"_s), u"two of 001, 1 to two"_s);
}

// A format and its arguments that do not fit must print something sensible and never read what is not there.
TEST(Format, MismatchesAreHarmless)
{
    EXPECT_EQ(KXStringWithFormat("%d %f %s", u"text"_s, 3, 1.5), u"text 3.000000 1.5"_s);
    EXPECT_EQ(KXStringWithFormat("%@ and %@", 1), u"1 and "_s);
    EXPECT_EQ(KXStringWithFormat("none", 1, 2), u"none"_s);
    EXPECT_EQ(KXStringWithFormat("%3$@ %99$d %123$@ %2$", 1, 2), u"  %123$@ %2$"_s);
    EXPECT_EQ(KXStringWithFormat("%d", std::numeric_limits<double>::infinity()), u"inf"_s);
    EXPECT_EQ(KXStringWithFormat("%"), u"%"_s);
    EXPECT_EQ(KXStringWithFormat("%y %@", 1), u"%y 1"_s);
    EXPECT_EQ(KXStringWithFormat("%99999999d"), u"%99999999d"_s.last(0)); // nothing to print, and nothing padded
    EXPECT_LT(KXStringWithFormat("%9999999d", 1).size(), 100);
    EXPECT_EQ(KXStringWithFormat("%.-+5..3.1f|", 1.0).right(1), u"|"_s);
    EXPECT_EQ(KXStringWithFormat("%@", u"%@ %d"_s), u"%@ %d"_s); // arguments are no formats
}

class UpperCase : public QTranslator
{
public:
    bool isEmpty() const override { return false; }
    QString translate(const char *context, const char *text, const char *, int) const override
    {
        return qstrcmp(context, "KestrixKit") == 0 ? QString::fromUtf8(text).toUpper() : QString();
    }
};

TEST(Format, LooksTextsUpInTheFrameworksContext)
{
    EXPECT_EQ(KXLocalizedString("Today %@"), u"Today %@"_s);
    UpperCase translator;
    QCoreApplication::installTranslator(&translator);
    EXPECT_EQ(KXLocalizedString("Move Items"), u"MOVE ITEMS"_s);
    EXPECT_EQ(KXLocalizedString(u"Größe"_s), u"GRÖSSE"_s);
    QCoreApplication::removeTranslator(&translator);
}

}
