#include <limits>

#include <QVariant>
#include <gtest/gtest.h>

#include <kestrixkit/foundation/KXDecimal.h>
#include <kestrixkit/foundation/KXException.h>

#include <support/KXTestPrint.h>
#include <support/KXTestRandom.h>

using namespace Qt::StringLiterals;

namespace decimal_test {

KXDecimal decimal(const char *text) { return KXDecimal::fromString(text).value(); }
QString canonical(const char *text) { return decimal(text).toString(); }

TEST(Decimal, HasOneTextForEachNumber)
{
    const struct
    {
        const char *text;
        const char *canonical;
    } rows[] = {
        { "5", "5" },
        { "5.0", "5" },
        { "005.00", "5" },
        { "+5", "5" },
        { "50E-1", "5" },
        { "0.05e2", "5" },
        { "0.1", "0.1" },
        { "-3.250", "-3.25" },
        { "-0", "0" },
        { "0.000", "0" },
        { "-0E5", "0" },
        { "1200", "1200" },
        { "1E3", "1000" },
        { "1E39", "1000000000000000000000000000000000000000" },
        { "1.50E+60", "1.5E+60" },
        { "1E-3", "0.001" },
        { "2E-41", "2E-41" },
        { "2E-40", "0.0000000000000000000000000000000000000002" },
        { "12345678901234567890123456789012345678901234567890",
            "1.234567890123456789012345678901234567890123456789E+49" },
        { "0.33333333333333333333333333333333333333333333333333333",
            "0.33333333333333333333333333333333333333333333333333" },
        { "0.99999999999999999999999999999999999999999999999999995", "1" },
        { "1E-10000", "0" },
        { "9.5E9999", "9.5E+9999" },
    };
    for (const auto &row : rows) {
        EXPECT_EQ(canonical(row.text), QLatin1StringView(row.canonical)) << row.text;
        EXPECT_EQ(KXDecimal::fromString(row.canonical), decimal(row.text)) << row.text;
    }
    EXPECT_EQ(qHash(decimal("5.00")), qHash(KXDecimal::fromInteger(5)));
    EXPECT_EQ(decimal("0.0"), KXDecimal());
}

TEST(Decimal, RefusesWhatIsNoNumber)
{
    for (const char *text : { "", " 5", "5 ", ".5", "5.", "-", "+", "1e", "1e+", "1,5", "0x10", "nan", "inf", "--1",
             "1.2.3", "1E10000", "1E9999999999", "½", "٣" })
        EXPECT_FALSE(KXDecimal::fromString(QString::fromUtf8(text))) << text;
    EXPECT_FALSE(KXDecimal::fromString(QString(2000, u'9')));
}

TEST(Decimal, ConvertsFromAndToBinaryNumbers)
{
    EXPECT_EQ(KXDecimal::fromDouble(0.1).toString(), u"0.1"_s);
    EXPECT_EQ(KXDecimal::fromDouble(-1e300).toString(), u"-1E+300"_s);
    EXPECT_EQ(KXDecimal::fromDouble(5e-324).toDouble(), 5e-324);
    EXPECT_EQ(KXDecimal::fromDouble(-0.0), KXDecimal());
    EXPECT_EQ(KXDecimal::fromDouble(std::numeric_limits<double>::quiet_NaN()), KXDecimal());
    EXPECT_EQ(decimal("1E400").toDouble(), std::numeric_limits<double>::infinity());
    const struct
    {
        const char *text;
        qint64 integer;
        bool ok;
    } rows[] = {
        { "0", 0, true },
        { "2.99", 2, true },
        { "-2.99", -2, true },
        { "-0.5", 0, true },
        { "1E-50", 0, true },
        { "9223372036854775807.9", std::numeric_limits<qint64>::max(), true },
        { "-9223372036854775808", std::numeric_limits<qint64>::min(), true },
        { "9223372036854775808", 0, false },
        { "1E45", 0, false },
    };
    for (const auto &row : rows) {
        bool ok = !row.ok;
        EXPECT_EQ(decimal(row.text).toInt64(&ok), row.integer) << row.text;
        EXPECT_EQ(ok, row.ok) << row.text;
    }
}

TEST(Decimal, CalculatesWithoutDrift)
{
    KXDecimal sum;
    for (int i = 0; i < 1000; ++i)
        sum = sum + decimal("0.1");
    EXPECT_EQ(sum.toString(), u"100"_s);
    EXPECT_EQ((decimal("1") / decimal("8")).toString(), u"0.125"_s);
    EXPECT_EQ((decimal("1") / decimal("3")).toString(), u"0."_s + QString(50, u'3'));
    EXPECT_EQ((decimal("2") / decimal("-3")).toString(), u"-0."_s + QString(49, u'6') + u'7');
    EXPECT_EQ((-decimal("5") + decimal("5")).toString(), u"0"_s);
    EXPECT_EQ((decimal("1E+60") * decimal("1E-60")).toString(), u"1"_s);
    EXPECT_THROW(decimal("1") / KXDecimal(), KXException);
    EXPECT_THROW(decimal("9E9999") * decimal("10"), KXException);
}

// Scaled integers know the right answers.
TEST(Decimal, AgreesWithIntegerArithmetic)
{
    KXTestRandom random;
    const auto scaledText = [](qint64 value, int scale) {
        QByteArray digits = QByteArray::number(std::abs(value)).rightJustified(scale + 1, '0');
        if (scale > 0)
            digits.insert(digits.size() - scale, '.');
        return (value < 0 ? "-" : "") + digits;
    };
    for (int round = KXTestRandom::scaled(50000); round > 0; --round) {
        const int scale = random.between(0, 6);
        const qint64 most = random.chance(0.3) ? 20 : 2'000'000'000;
        const qint64 a = random.between(-most, most);
        const qint64 b = random.between(-most, most);
        const QByteArray aText = scaledText(a, scale);
        const QByteArray bText = scaledText(b, scale);
        const KXDecimal da = decimal(aText.constData());
        const KXDecimal db = decimal(bText.constData());
        ASSERT_EQ(da + db, decimal(scaledText(a + b, scale).constData()))
            << aText.toStdString() << " + " << bText.toStdString();
        ASSERT_EQ(da - db, decimal(scaledText(a - b, scale).constData()))
            << aText.toStdString() << " - " << bText.toStdString();
        ASSERT_EQ(da * db, decimal(scaledText(a * b, 2 * scale).constData()))
            << aText.toStdString() << " * " << bText.toStdString();
        if (b != 0) {
            ASSERT_EQ(da * db / db, da) << aText.toStdString() << " / " << bText.toStdString();
        }
        ASSERT_EQ(da <=> db, a <=> b) << aText.toStdString() << " <=> " << bText.toStdString();
        ASSERT_EQ(da == db, a == b);
        ASSERT_EQ(da.toDouble(), aText.toDouble()) << aText.toStdString();
    }
}

TEST(Decimal, OrdersCanonicalTextsOfEveryForm)
{
    const QList<QByteArray> ascending { "-1.5E+60", "-1E+60", "-1E+40", "-1000", "-100", "-99.9", "-1", "-0.5", "-0.05",
        "-2E-41", "-1E-50", "0", "1E-50", "2E-41", "0.0000000000000000000000000000000000000002", "0.05", "0.055", "0.5",
        "0.9", "1", "1.01", "1.1", "9", "10", "99.9", "100", "1000", "1E+40", "9E+40", "1E+41", "1.5E+60", "1E+9999" };
    for (qsizetype i = 0; i < ascending.size(); ++i) {
        for (qsizetype j = 0; j < ascending.size(); ++j) {
            const int order = KXDecimal::compare(ascending[i], ascending[j]);
            EXPECT_EQ(order <=> 0, i <=> j) << ascending[i].toStdString() << " " << ascending[j].toStdString();
            EXPECT_EQ(decimal(ascending[i]) < decimal(ascending[j]), i < j);
        }
    }
    // Foreign texts reach the comparison out of a damaged file.
    const QList<QByteArray> rubbish { "", "-", ".", "E", "abc", "1E", "-.E-", "1.2.3E9999999999",
        QByteArray("\0\xff", 2) };
    for (const auto &a : rubbish) {
        for (const auto &b : rubbish + ascending)
            EXPECT_EQ(KXDecimal::compare(a, b) <=> 0, 0 <=> KXDecimal::compare(b, a))
                << a.toStdString() << "|" << b.toStdString();
    }
}

TEST(Decimal, WorksAsAVariant)
{
    const QVariant five = QVariant::fromValue(decimal("5.00"));
    EXPECT_EQ(five, QVariant::fromValue(KXDecimal::fromInteger(5)));
    EXPECT_EQ(QVariant::compare(five, QVariant::fromValue(decimal("10"))), QPartialOrdering::Less);
    EXPECT_EQ(five.toString(), u"5"_s);
    EXPECT_EQ(QVariant::fromValue(KXDecimal()).toString(), u"0"_s);
    EXPECT_EQ(five.toDouble(), 5.0);
}

}
