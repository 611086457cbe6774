#include <kestrixkit/entity/KXValueConversion_p.h>

#include <cmath>
#include <cstring>
#include <limits>

#include <QCborArray>
#include <QCborMap>
#include <QCborValue>
#include <QUuid>

#include <kestrixkit/foundation/KXDecimal.h>

using namespace Qt::StringLiterals;

namespace {

/// Tag of a decimal in its canonical text; from the range that CBOR leaves to applications.
constexpr auto decimalTag = QCborTag(55'001);

bool isIntegerType(int type)
{
    switch (type) {
    case QMetaType::Bool:
    case QMetaType::Char:
    case QMetaType::SChar:
    case QMetaType::UChar:
    case QMetaType::Short:
    case QMetaType::UShort:
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::Long:
    case QMetaType::ULong:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
        return true;
    default:
        return false;
    }
}

bool isBeyondSigned(const QVariant &value)
{
    return (value.typeId() == QMetaType::ULongLong || value.typeId() == QMetaType::ULong)
        && value.toULongLong() > quint64(std::numeric_limits<qint64>::max());
}

QVariant integerInRange(const QVariant &value, qint64 lowest, qint64 highest)
{
    bool ok = false;
    qint64 number = 0;
    const int type = value.typeId();
    if (type == QMetaType::Double || type == QMetaType::Float) {
        const double real = value.toDouble();
        ok = real == std::floor(real) && real >= -9223372036854775808.0 && real < 9223372036854775808.0;
        number = ok ? qint64(real) : 0;
    } else if (type == qMetaTypeId<KXDecimal>()) {
        const KXDecimal decimal = value.value<KXDecimal>();
        number = QVariant(decimal.toString()).toLongLong(&ok);
    } else if (isIntegerType(type) || type == QMetaType::QString) {
        if (isBeyondSigned(value))
            return {};
        number = value.toLongLong(&ok);
    }
    return ok && number >= lowest && number <= highest ? QVariant(number) : QVariant();
}

QVariant decimalFrom(const QVariant &value)
{
    if (value.typeId() == qMetaTypeId<KXDecimal>())
        return value;
    if (isBeyondSigned(value))
        return QVariant::fromValue(KXDecimal::fromString(value.toString()).value_or(KXDecimal()));
    if (isIntegerType(value.typeId()))
        return QVariant::fromValue(KXDecimal::fromInteger(value.toLongLong()));
    if (value.typeId() == QMetaType::Double || value.typeId() == QMetaType::Float)
        return std::isfinite(value.toDouble()) ? QVariant::fromValue(KXDecimal::fromDouble(value.toDouble()))
                                               : QVariant();
    if (value.typeId() == QMetaType::QString) {
        if (const auto decimal = KXDecimal::fromString(value.toString()))
            return QVariant::fromValue(*decimal);
    }
    return {};
}

bool hasWholeTexts(const QVariant &value)
{
    if (value.typeId() == QMetaType::QString)
        return KXValueConversion::isWholeText(value.toString());
    if (value.typeId() == QMetaType::QStringList || value.typeId() == QMetaType::QVariantList) {
        const QVariantList list = value.toList();
        return std::all_of(list.begin(), list.end(), hasWholeTexts);
    }
    if (value.typeId() == QMetaType::QVariantMap || value.typeId() == QMetaType::QVariantHash) {
        const QVariantMap map = value.toMap();
        return std::all_of(map.keyBegin(), map.keyEnd(), KXValueConversion::isWholeText)
            && std::all_of(map.begin(), map.end(), hasWholeTexts);
    }
    return true;
}

QCborValue cborFrom(const QVariant &value)
{
    if (value.typeId() == qMetaTypeId<KXDecimal>())
        return QCborValue(decimalTag, value.value<KXDecimal>().toString());
    if (value.typeId() == QMetaType::QVariantList) {
        QCborArray list;
        for (const QVariant &element : value.toList())
            list.append(cborFrom(element));
        return list;
    }
    if (value.typeId() == QMetaType::QVariantMap) {
        QCborMap map;
        const QVariantMap values = value.toMap();
        for (auto it = values.begin(); it != values.end(); ++it)
            map.insert(it.key(), cborFrom(it.value()));
        return map;
    }
    return QCborValue::fromVariant(value);
}

QVariant fromCbor(const QCborValue &value)
{
    if (value.isTag() && value.tag() == decimalTag) {
        const auto decimal = KXDecimal::fromString(value.taggedValue().toString());
        return decimal ? QVariant::fromValue(*decimal) : QVariant();
    }
    if (value.isArray()) {
        QVariantList list;
        for (const QCborValue &element : value.toArray())
            list.append(fromCbor(element));
        return list;
    }
    if (value.isMap()) {
        QVariantMap map;
        const QCborMap values = value.toMap();
        for (auto it = values.begin(); it != values.end(); ++it)
            map.insert(it.key().toString(), fromCbor(it.value()));
        return map;
    }
    return value.toVariant();
}

}

QVariant KXValueConversion::convert(const QVariant &value, KXAttributeType type)
{
    if (!value.isValid())
        return {};
    switch (type) {
    case KXAttributeType::Integer16:
        return integerInRange(value, std::numeric_limits<qint16>::min(), std::numeric_limits<qint16>::max());
    case KXAttributeType::Integer32:
        return integerInRange(value, std::numeric_limits<qint32>::min(), std::numeric_limits<qint32>::max());
    case KXAttributeType::Integer64:
        return integerInRange(value, std::numeric_limits<qint64>::min(), std::numeric_limits<qint64>::max());
    case KXAttributeType::Boolean:
        return isIntegerType(value.typeId()) ? QVariant(value.toLongLong() != 0) : QVariant();
    case KXAttributeType::Double: {
        bool ok = false;
        const double number = value.typeId() == qMetaTypeId<KXDecimal>()
            ? (ok = true, value.value<KXDecimal>().toDouble())
            : value.toDouble(&ok);
        const bool isWord = value.typeId() == QMetaType::QString && !std::isfinite(number); // "nan", "inf"
        return ok && !isWord ? QVariant(number) : QVariant();
    }
    case KXAttributeType::Decimal:
        return decimalFrom(value);
    case KXAttributeType::String:
        return value.typeId() == QMetaType::QString && isWholeText(value.toString()) ? value : QVariant();
    case KXAttributeType::Date:
        return value.typeId() == QMetaType::QDateTime && value.toDateTime().isValid()
                && isDateInRange(value.toDateTime())
            ? QVariant(value.toDateTime().toUTC())
            : QVariant();
    case KXAttributeType::URI:
        if (value.typeId() == QMetaType::QString)
            return QUrl(value.toString());
        return value.typeId() == QMetaType::QUrl ? value : QVariant();
    case KXAttributeType::UUID:
        if (value.typeId() == QMetaType::QString) {
            const QUuid uuid = QUuid::fromString(value.toString());
            return uuid.isNull() ? QVariant() : QVariant(uuid);
        }
        return value.typeId() == QMetaType::QUuid ? value : QVariant();
    case KXAttributeType::Binary:
        return value.typeId() == QMetaType::QByteArray ? value : QVariant();
    case KXAttributeType::Variant:
        return hasWholeTexts(value) ? value : QVariant();
    }
    return {};
}

bool KXValueConversion::isWholeText(QStringView text)
{
    // A surrogate has its highest bit set, and few texts have such units at all. Four are looked at in one.
    constexpr quint64 highest = 0x8000'8000'8000'8000;
    const char16_t *unit = text.utf16();
    const char16_t *const end = unit + text.size();
    quint64 seen = 0;
    for (quint64 four; end - unit >= 4; unit += 4) {
        std::memcpy(&four, unit, sizeof four);
        seen |= four;
    }
    while (unit != end)
        seen |= *unit++;
    return !(seen & highest) || text.isValidUtf16();
}

QByteArray KXValueConversion::bytesFromVariant(const QVariant &value) { return cborFrom(value).toCbor(); }

QVariant KXValueConversion::variantFromBytes(const QByteArray &bytes)
{
    QCborParserError error;
    const QCborValue value = QCborValue::fromCbor(bytes, &error);
    return error.error == QCborError::NoError ? fromCbor(value) : QVariant();
}
