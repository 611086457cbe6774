#pragma once

#include <compare>
#include <optional>
#include <type_traits>

#include <QByteArray>
#include <QMetaType>
#include <QString>

#include <kestrixkit/foundation/KXGlobal.h>

class QLocale;

/// A decimal number of up to 50 significant digits, for bounds and prices that must not drift.
///
/// A value is kept as its canonical text, in which equal numbers are equal: no leading or trailing zeros, no
/// plus sign, no negative zero ("5", "0.1", "-3.25"). Numbers from 1E-40 up to below 1E40 are written out;
/// beyond, the form is "1.5E+60" or "2E-41". Results are rounded to 50 digits, half away from zero; exponents go
/// to ±9999: smaller numbers become 0, larger ones cannot be represented.
///
/// In a QVariant it compares by value and converts to QString and double. A value; any thread.
class KX_CORE_EXPORT KXDecimal
{
public:
    /// Zero.
    KXDecimal();
    /// An integer, exactly. Implicit: a bound may be given as 120.
    template <typename Integer>
    requires(
        std::is_integral_v<
            Integer> && !std::is_same_v<Integer, bool> && !std::is_same_v<Integer, char> && !std::is_same_v<Integer, char16_t> && !std::is_same_v<Integer, char32_t>)
        KXDecimal(Integer value)
        : KXDecimal(value == 0 ? QByteArray() : QByteArray::number(value))
    {
    }
    /// As fromDouble(): 0.1 is 0.1.
    KXDecimal(double value)
        : KXDecimal(fromDouble(value))
    {
    }

    /// Reads "[+-]digits[.digits][E[+-]digits]" and nothing else: no spaces, no bare points, no group separators.
    [[nodiscard]] static std::optional<KXDecimal> fromString(QAnyStringView text);
    /// Reads what somebody has typed, as the language writes it: "1.234,5", ".5" and "5.", spaces around it. What the
    /// language does not read is read by fromString().
    [[nodiscard]] static std::optional<KXDecimal> fromLocalText(const QString &text, const QLocale &locale);
    [[nodiscard]] static KXDecimal fromInteger(qint64 value);
    /// The shortest decimal number that reads back as this double: 0.1 becomes 0.1. NaN and infinities become 0.
    [[nodiscard]] static KXDecimal fromDouble(double value);
    /// A text that this class or its comparison wrote, taken as it is. For the store, which keeps canonical texts.
    [[nodiscard]] static KXDecimal fromCanonical(QByteArray canonical);

    [[nodiscard]] QString toString() const { return QString::fromLatin1(canonical()); }
    /// The canonical text in ASCII.
    [[nodiscard]] QByteArray canonical() const { return m_text.isEmpty() ? QByteArrayLiteral("0") : m_text; }
    /// The nearest double; infinite when out of range.
    [[nodiscard]] double toDouble() const;
    /// The integer part (rounded towards zero). 0 and *ok = false when it is out of range.
    [[nodiscard]] qint64 toInt64(bool *ok = nullptr) const;

    [[nodiscard]] bool isZero() const { return m_text.isEmpty(); }
    [[nodiscard]] bool isNegative() const { return m_text.startsWith('-'); }

    KXDecimal operator-() const;
    KX_CORE_EXPORT friend KXDecimal operator+(const KXDecimal &a, const KXDecimal &b);
    KX_CORE_EXPORT friend KXDecimal operator-(const KXDecimal &a, const KXDecimal &b);
    KX_CORE_EXPORT friend KXDecimal operator*(const KXDecimal &a, const KXDecimal &b);
    /// Throws KXException when b is zero.
    KX_CORE_EXPORT friend KXDecimal operator/(const KXDecimal &a, const KXDecimal &b);

    friend bool operator==(const KXDecimal &a, const KXDecimal &b) { return a.m_text == b.m_text; }
    friend std::strong_ordering operator<=>(const KXDecimal &a, const KXDecimal &b)
    {
        return compare(a.canonical(), b.canonical()) <=> 0;
    }
    friend size_t qHash(const KXDecimal &value, size_t seed = 0) { return qHash(value.m_text, seed); }

    /// Compares two canonical texts by value, without arithmetic and without allocating: negative, 0 or
    /// positive. Texts that are not canonical get some answer.
    [[nodiscard]] static int compare(QByteArrayView a, QByteArrayView b);

private:
    explicit KXDecimal(QByteArray text);
    QByteArray m_text; // empty for zero
};

inline QString KXDescription(const KXDecimal &value) { return value.toString(); }

Q_DECLARE_METATYPE(KXDecimal)
