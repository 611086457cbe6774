#pragma once

#include <compare>
#include <optional>

#include <QString>
#include <QVariant>

#include <kestrixkit/foundation/KXDecimal.h>

class KXObservable;

/// Names a row wherever it is met: as an object of some context or as an identifier.
struct KXObjectKey
{
    quint64 store = 0; ///< KXStoreIdentity::serial of its store
    quint32 layout = 0; ///< KXEntityDescription::layoutSerial of its entity
    qint64 key = 0; ///< of the row; 0 for no row

    friend bool operator==(const KXObjectKey &, const KXObjectKey &) = default;
};

/// The row of a stored object or of an identifier; none for other values and for objects without a row.
[[nodiscard]] std::optional<KXObjectKey> KXObjectKeyFromVariant(const QVariant &value);
/// What a predicate keeps of an object: the identifier where it has one, else the object itself.
[[nodiscard]] QVariant KXConstantFromObject(const QVariant &object);

/// A value as predicates compare it: its kind and its comparable form.
class KX_CORE_EXPORT KXPredicateValue
{
public:
    enum Kind : quint8 { Null, Integer, Real, Decimal, Text, Date, Binary, Object, Other };

    KXPredicateValue() = default;
    /// Texts are folded by the options (bits of KXPredicateOption).
    explicit KXPredicateValue(const QVariant &value, int options = 0);

    [[nodiscard]] Kind kind() const { return m_kind; }
    [[nodiscard]] bool isNull() const { return m_kind == Null; }
    [[nodiscard]] bool isNumber() const { return m_kind >= Integer && m_kind <= Decimal; }
    [[nodiscard]] qint64 integer() const { return m_integer; } ///< an Integer, or a Date in microseconds since 1970
    [[nodiscard]] double real() const { return m_real; }
    [[nodiscard]] const KXDecimal &decimal() const { return m_decimal; }
    [[nodiscard]] const QString &text() const { return m_text; }
    [[nodiscard]] const QByteArray &bytes() const { return m_bytes; }
    [[nodiscard]] const KXObjectKey &objectKey() const
    {
        return m_object;
    } ///< its key is 0 for an object without a row

    /// Unordered for values that cannot be compared, absent ones included.
    [[nodiscard]] static std::partial_ordering compare(const KXPredicateValue &a, const KXPredicateValue &b);
    /// Absent equals absent.
    [[nodiscard]] static bool isEqual(const KXPredicateValue &a, const KXPredicateValue &b);
    /// The same for values that are equal, numbers of different kinds included.
    [[nodiscard]] size_t hash() const;

private:
    Kind m_kind = Null;
    qint64 m_integer = 0;
    double m_real = 0;
    KXDecimal m_decimal;
    QString m_text;
    QByteArray m_bytes;
    KXObjectKey m_object;
    const KXObservable *m_address = nullptr;
};

/// Order for sorting in memory, the same as SQL's: absent values first, then by kind, then by value.
KX_CORE_EXPORT int KXCompareForSorting(const QVariant &a, const QVariant &b, int options = 0);

/// Whether two constants are the same: type and value, so that 5, 5.0 and the decimal 5 differ.
[[nodiscard]] bool KXConstantsAreEqual(const QVariant &a, const QVariant &b);
[[nodiscard]] size_t KXConstantHash(const QVariant &value, size_t seed);
