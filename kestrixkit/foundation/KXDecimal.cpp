#include <kestrixkit/foundation/KXDecimal.h>

#include <charconv>

#include <boost/multiprecision/cpp_dec_float.hpp>

#include <QLocale>

#include <kestrixkit/foundation/KXException.h>

using namespace Qt::StringLiterals;

namespace {

using DecimalFloat = boost::multiprecision::cpp_dec_float_50;

constexpr int decimalMostDigits = 50;
constexpr int decimalWrittenOut = 40; // exponents from -40 to 39 need no E
constexpr int decimalMostExponent = 9999;

// Sign, significant digits and the exponent of the first digit (scientific notation): -3.25 is -, "325", 0.
struct DecimalParts
{
    bool negative = false;
    QByteArray digits;
    qint64 exponent = 0;
};

bool decimalIsDigit(char c) { return c >= '0' && c <= '9'; }

std::optional<DecimalParts> decimalParse(QByteArrayView text)
{
    DecimalParts parts;
    qsizetype at = 0;
    const auto digitsFrom = [&](qsizetype start) {
        qsizetype end = start;
        while (end < text.size() && decimalIsDigit(text[end]))
            ++end;
        return text.sliced(start, end - start);
    };
    if (at < text.size() && (text[at] == '-' || text[at] == '+'))
        parts.negative = text[at++] == '-';
    const QByteArrayView whole = digitsFrom(at);
    at += whole.size();
    QByteArrayView fraction;
    if (at < text.size() && text[at] == '.') {
        fraction = digitsFrom(at + 1);
        if (fraction.isEmpty())
            return std::nullopt;
        at += 1 + fraction.size();
    }
    if (at < text.size() && (text[at] == 'E' || text[at] == 'e')) {
        ++at;
        const bool down = at < text.size() && text[at] == '-';
        if (at < text.size() && (text[at] == '-' || text[at] == '+'))
            ++at;
        const QByteArrayView exponent = digitsFrom(at);
        if (exponent.isEmpty() || exponent.size() > 9)
            return std::nullopt;
        at += exponent.size();
        parts.exponent = exponent.toInt() * (down ? -1 : 1);
    }
    if (whole.isEmpty() || at != text.size())
        return std::nullopt;
    parts.digits = whole.toByteArray() + fraction.toByteArray();
    parts.exponent += whole.size() - 1;
    return parts;
}

// Rounds to the digits we keep and strips what does not count. False when the number is too large.
bool decimalNormalise(DecimalParts &parts)
{
    qsizetype zeros = 0;
    while (zeros < parts.digits.size() && parts.digits[zeros] == '0')
        ++zeros;
    parts.digits.remove(0, zeros);
    parts.exponent -= zeros;
    if (parts.digits.size() > decimalMostDigits) {
        const bool up = parts.digits[decimalMostDigits] >= '5';
        parts.digits.truncate(decimalMostDigits);
        if (up) {
            qsizetype at = decimalMostDigits;
            while (at > 0 && parts.digits[at - 1] == '9')
                --at;
            parts.digits.truncate(at);
            if (at > 0) {
                ++parts.digits.data()[at - 1];
            } else { // 999… became 1000…
                parts.digits = "1";
                ++parts.exponent;
            }
        }
    }
    while (parts.digits.endsWith('0'))
        parts.digits.chop(1);
    if (parts.digits.isEmpty() || parts.exponent < -decimalMostExponent)
        parts = {};
    return parts.exponent <= decimalMostExponent;
}

// Empty for zero, as the class keeps it.
QByteArray decimalCanonical(const DecimalParts &parts)
{
    if (parts.digits.isEmpty())
        return {};
    QByteArray text = parts.digits;
    const qsizetype exponent = parts.exponent;
    if (exponent < -decimalWrittenOut || exponent >= decimalWrittenOut) {
        if (text.size() > 1)
            text.insert(1, '.');
        text += (exponent < 0 ? "E-" : "E+") + QByteArray::number(std::abs(exponent));
    } else if (exponent < 0) {
        text.prepend("0." + QByteArray(-exponent - 1, '0'));
    } else if (text.size() > exponent + 1) {
        text.insert(exponent + 1, '.');
    } else {
        text.append(exponent + 1 - text.size(), '0');
    }
    return parts.negative ? '-' + text : text;
}

DecimalFloat decimalNumber(const KXDecimal &value) { return DecimalFloat(value.canonical().constData()); }

QByteArray decimalText(const DecimalFloat &value)
{
    auto parts = decimalParse(QByteArray::fromStdString(value.str(decimalMostDigits + 8, std::ios_base::scientific)));
    if (!parts || !decimalNormalise(*parts))
        throw KXException(KXInvalidArgumentException, u"The result is too large for a decimal number"_s);
    return decimalCanonical(*parts);
}

void decimalRegister()
{
    static const bool registered = [] {
        QMetaType::registerConverter<KXDecimal, QString>(&KXDecimal::toString);
        QMetaType::registerConverter<KXDecimal, double>(&KXDecimal::toDouble);
        return true;
    }();
    Q_UNUSED(registered)
}

// The canonical text without its sign, taken apart in place.
struct DecimalMagnitude
{
    explicit DecimalMagnitude(QByteArrayView text)
    {
        const qsizetype e = text.indexOf('E');
        if (e >= 0) {
            exponent = text.sliced(e + 1).toInt();
            text.truncate(e);
        }
        const qsizetype point = text.indexOf('.');
        whole = text.first(point < 0 ? text.size() : point);
        if (point >= 0)
            fraction = text.sliced(point + 1);
        exponent += int(whole.size()) - 1;
        if (whole == "0") { // 0.00123: the first digit stands behind the point
            while (!fraction.isEmpty() && fraction.front() == '0') {
                fraction = fraction.sliced(1);
                --exponent;
            }
            --exponent;
            whole = {};
            if (fraction.isEmpty())
                exponent = std::numeric_limits<int>::min();
        }
    }

    char digit(qsizetype at) const
    {
        if (at < whole.size())
            return whole[at];
        at -= whole.size();
        return at < fraction.size() ? fraction[at] : '0';
    }
    qsizetype size() const { return whole.size() + fraction.size(); }

    QByteArrayView whole;
    QByteArrayView fraction;
    int exponent = 0;
};

int decimalCompareMagnitudes(QByteArrayView a, QByteArrayView b)
{
    const DecimalMagnitude left(a);
    const DecimalMagnitude right(b);
    if (left.exponent != right.exponent)
        return left.exponent < right.exponent ? -1 : 1;
    for (qsizetype at = 0, end = std::max(left.size(), right.size()); at < end; ++at) {
        if (left.digit(at) != right.digit(at))
            return left.digit(at) < right.digit(at) ? -1 : 1;
    }
    return 0;
}

}

KXDecimal::KXDecimal() { decimalRegister(); }

KXDecimal::KXDecimal(QByteArray text)
    : m_text(std::move(text))
{
    decimalRegister();
}

std::optional<KXDecimal> KXDecimal::fromString(QAnyStringView text)
{
    // Longer texts are no number that anybody means; a megabyte of digits should not cost a megabyte of work.
    if (text.size() > 1000)
        return std::nullopt;
    auto parts = decimalParse(text.toString().toUtf8());
    if (!parts || !decimalNormalise(*parts))
        return std::nullopt;
    return KXDecimal(decimalCanonical(*parts));
}

std::optional<KXDecimal> KXDecimal::fromLocalText(const QString &text, const QLocale &locale)
{
    const QString typed = text.trimmed();
    bool isNumber = false;
    locale.toDouble(typed, &isNumber); // which looks where group separators stand
    if (!isNumber || typed.contains(u'e', Qt::CaseInsensitive))
        return fromString(typed);
    QString plain = typed;
    plain.remove(locale.groupSeparator());
    plain.replace(locale.decimalPoint(), QStringLiteral(".")).replace(locale.negativeSign(), QStringLiteral("-"));
    const char32_t zero = locale.zeroDigit().toUcs4().value(0);
    for (QChar &c : plain) {
        if (c.unicode() >= zero && c.unicode() <= zero + 9)
            c = QChar(char16_t(u'0' + (c.unicode() - zero)));
    }
    // ".5" and "5." are numbers to those who type them.
    if (plain.endsWith(u'.'))
        plain.chop(1);
    const qsizetype point = plain.indexOf(u'.');
    if (point == 0 || (point == 1 && !plain[0].isDigit()))
        plain.insert(point, u'0');
    return fromString(plain);
}

KXDecimal KXDecimal::fromInteger(qint64 value) { return KXDecimal(value ? QByteArray::number(value) : QByteArray()); }

KXDecimal KXDecimal::fromDouble(double value)
{
    if (!std::isfinite(value))
        return {};
    return fromString(QString::number(value, 'g', QLocale::FloatingPointShortest)).value_or(KXDecimal());
}

KXDecimal KXDecimal::fromCanonical(QByteArray canonical)
{
    return KXDecimal(canonical == "0" ? QByteArray() : std::move(canonical));
}

double KXDecimal::toDouble() const
{
    const QByteArray text = canonical();
    double value = 0.0;
    const auto read = std::from_chars(text.cbegin(), text.cend(), value);
    if (read.ec == std::errc::result_out_of_range)
        value = text.contains("E+") ? std::numeric_limits<double>::infinity() : 0.0;
    return isNegative() ? -std::abs(value) : value;
}

qint64 KXDecimal::toInt64(bool *ok) const
{
    bool fits = true;
    qint64 value = 0;
    const QByteArray text = canonical();
    if (text.contains("E+"))
        fits = false;
    else if (!text.contains("E-"))
        value = text.split('.').first().toLongLong(&fits); // "-0" reads as 0
    if (ok)
        *ok = fits;
    return fits ? value : 0;
}

KXDecimal KXDecimal::operator-() const
{
    if (isZero())
        return *this;
    return KXDecimal(isNegative() ? m_text.mid(1) : '-' + m_text);
}

KXDecimal operator+(const KXDecimal &a, const KXDecimal &b)
{
    return KXDecimal(decimalText(decimalNumber(a) + decimalNumber(b)));
}
KXDecimal operator-(const KXDecimal &a, const KXDecimal &b)
{
    return KXDecimal(decimalText(decimalNumber(a) - decimalNumber(b)));
}
KXDecimal operator*(const KXDecimal &a, const KXDecimal &b)
{
    return KXDecimal(decimalText(decimalNumber(a) * decimalNumber(b)));
}

KXDecimal operator/(const KXDecimal &a, const KXDecimal &b)
{
    if (b.isZero())
        throw KXException(KXInvalidArgumentException, u"Division of a decimal number by zero"_s);
    return KXDecimal(decimalText(decimalNumber(a) / decimalNumber(b)));
}

int KXDecimal::compare(QByteArrayView a, QByteArrayView b)
{
    const bool aNegative = a.startsWith('-');
    if (aNegative != b.startsWith('-'))
        return aNegative ? -1 : 1;
    if (aNegative)
        return decimalCompareMagnitudes(b.sliced(1), a.sliced(1));
    return decimalCompareMagnitudes(a, b);
}
