#include <kestrixkit/predicate/KXPredicateValue_p.h>

#include <cmath>

#include <QDateTime>
#include <QHash>
#include <QUrl>
#include <QUuid>

#include <kestrixkit/entity/KXIdentifiedObject.h>
#include <kestrixkit/entity/KXValueConversion_p.h>
#include <kestrixkit/predicate/KXTextFolding_p.h>

namespace {

std::partial_ordering compareIntegerWithReal(qint64 integer, double real)
{
    if (std::isnan(real))
        return std::partial_ordering::unordered;
    if (real >= 0x1p63)
        return std::partial_ordering::less;
    if (real < -0x1p63)
        return std::partial_ordering::greater;
    const qint64 whole = qint64(real);
    if (integer != whole)
        return integer <=> whole;
    return 0.0 <=> real - double(whole);
}

std::partial_ordering compareRealWithDecimal(double real, const KXDecimal &decimal)
{
    const double nearest = decimal.toDouble();
    if (std::isinf(real))
        return real <=> 0.0;
    if (real != nearest)
        return real <=> nearest;
    return KXDecimal::fromDouble(real) <=> decimal;
}

std::partial_ordering reversed(std::partial_ordering order) { return 0 <=> order; }

}

std::optional<KXObjectKey> KXObjectKeyFromVariant(const QVariant &value)
{
    KXManagedObjectID id;
    if (value.metaType() == QMetaType::fromType<KXManagedObjectID>())
        id = value.value<KXManagedObjectID>();
    else if (const auto *object = dynamic_cast<KXIdentifiedObject *>(KXObservableFromVariant(value)))
        id = object->objectID();
    if (id.isNull())
        return std::nullopt;
    return KXObjectKey { id.store()->serial, id.entity()->layoutSerial(), id.key() };
}

QVariant KXConstantFromObject(const QVariant &object)
{
    const auto *const identified = dynamic_cast<KXIdentifiedObject *>(KXObservableFromVariant(object));
    const KXManagedObjectID id = identified ? identified->objectID() : KXManagedObjectID();
    return id.isNull() ? object : QVariant::fromValue(id);
}

KXPredicateValue::KXPredicateValue(const QVariant &value, int options)
{
    const auto setText = [this, options](const QString &text) {
        m_kind = Text;
        m_text = options ? KXTextFolding::folded(text, options) : text;
    };
    switch (value.typeId()) {
    case QMetaType::UnknownType:
    case QMetaType::Nullptr:
        return;
    case QMetaType::Bool:
    case QMetaType::Char:
    case QMetaType::SChar:
    case QMetaType::UChar:
    case QMetaType::Short:
    case QMetaType::UShort:
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::Long:
    case QMetaType::LongLong:
        m_kind = Integer;
        m_integer = value.toLongLong();
        return;
    case QMetaType::ULong:
    case QMetaType::ULongLong:
        m_kind = value.toULongLong() >> 63 ? Decimal : Integer;
        if (m_kind == Integer)
            m_integer = value.toLongLong();
        else
            m_decimal = KXDecimal::fromString(value.toString()).value_or(KXDecimal());
        return;
    case QMetaType::Float:
    case QMetaType::Double:
        m_kind = Real;
        m_real = value.toDouble();
        return;
    case QMetaType::QString:
        setText(*static_cast<const QString *>(value.constData()));
        return;
    case QMetaType::QUrl:
        setText(KXValueConversion::textFromUrl(value.toUrl()));
        return;
    case QMetaType::QUuid:
        setText(value.toUuid().toString(QUuid::WithoutBraces));
        return;
    case QMetaType::QDateTime:
        if (const QDateTime date = value.toDateTime(); date.isValid()) {
            m_kind = Date;
            m_integer = KXValueConversion::microsecondsFromDate(date);
        }
        return;
    case QMetaType::QByteArray:
        m_kind = Binary;
        m_bytes = value.toByteArray();
        return;
    default:
        break;
    }
    if (value.typeId() == qMetaTypeId<KXDecimal>()) {
        m_kind = Decimal;
        m_decimal = value.value<KXDecimal>();
        return;
    }
    const std::optional<KXObjectKey> key = KXObjectKeyFromVariant(value);
    m_address = KXObservableFromVariant(value);
    if (key || m_address) {
        m_kind = Object;
        m_object = key.value_or(KXObjectKey());
    } else if (!(value.metaType().flags() & QMetaType::IsPointer) || *static_cast<void *const *>(value.constData())) {
        m_kind = Other;
    }
}

std::partial_ordering KXPredicateValue::compare(const KXPredicateValue &a, const KXPredicateValue &b)
{
    if (a.isNumber() && b.isNumber() && a.m_kind != b.m_kind) {
        if (a.m_kind > b.m_kind)
            return reversed(compare(b, a));
        if (b.m_kind == Real)
            return compareIntegerWithReal(a.m_integer, b.m_real);
        if (a.m_kind == Real)
            return compareRealWithDecimal(a.m_real, b.m_decimal);
        return KXDecimal::fromInteger(a.m_integer) <=> b.m_decimal;
    }
    if (a.m_kind != b.m_kind)
        return std::partial_ordering::unordered;
    switch (a.m_kind) {
    case Integer:
    case Date:
        return a.m_integer <=> b.m_integer;
    case Real:
        return a.m_real <=> b.m_real;
    case Decimal:
        return a.m_decimal <=> b.m_decimal;
    case Text:
        return KXTextFolding::compare(a.m_text, b.m_text);
    case Binary:
        return QByteArrayView(a.m_bytes).compare(b.m_bytes) <=> 0;
    case Object:
        if (a.m_object.key || b.m_object.key ? a.m_object == b.m_object : a.m_address == b.m_address)
            return std::partial_ordering::equivalent;
        break;
    case Null:
    case Other:
        break;
    }
    return std::partial_ordering::unordered;
}

bool KXPredicateValue::isEqual(const KXPredicateValue &a, const KXPredicateValue &b)
{
    return (a.isNull() && b.isNull()) || compare(a, b) == 0;
}

size_t KXPredicateValue::hash() const
{
    switch (m_kind) {
    case Integer:
    case Real:
    case Decimal: // equal numbers have the same nearest double, whatever they are kept as
        return ::qHash(m_kind == Integer ? double(m_integer) : m_kind == Real ? m_real : m_decimal.toDouble(), 0);
    case Date:
        return ::qHash(m_integer, 0);
    case Text:
        return ::qHash(m_text, 0);
    case Binary:
        return ::qHash(m_bytes, 0);
    case Object:
        return m_object.key ? ::qHash(m_object.key, 0) : ::qHash(quintptr(m_address), 0);
    case Null:
    case Other:
        break;
    }
    return 0;
}

int KXCompareForSorting(const QVariant &a, const QVariant &b, int options)
{
    const KXPredicateValue left(a, options);
    const KXPredicateValue right(b, options);
    const std::partial_ordering order = KXPredicateValue::compare(left, right);
    if (order == std::partial_ordering::unordered) {
        if (left.kind() == KXPredicateValue::Object && right.kind() == KXPredicateValue::Object)
            return left.objectKey().key < right.objectKey().key ? -1 : 1;
        return left.kind() < right.kind() ? -1 : int(left.kind() > right.kind());
    }
    return order < 0 ? -1 : int(order > 0);
}

bool KXConstantsAreEqual(const QVariant &a, const QVariant &b)
{
    if (a.metaType() != b.metaType())
        return false;
    if (a.typeId() == QMetaType::Double && std::isnan(a.toDouble()))
        return std::isnan(b.toDouble());
    if (a.typeId() == QMetaType::QVariantList) {
        const QVariantList left = a.toList();
        const QVariantList right = b.toList();
        return std::equal(left.begin(), left.end(), right.begin(), right.end(), KXConstantsAreEqual);
    }
    return a == b;
}

size_t KXConstantHash(const QVariant &value, size_t seed)
{
    if (value.typeId() == QMetaType::QVariantList) {
        for (const QVariant &element : value.toList())
            seed = KXConstantHash(element, seed) * 31 + 1;
        return seed;
    }
    const KXPredicateValue comparable(value);
    return qHashMulti(seed, comparable.kind(), comparable.hash());
}
