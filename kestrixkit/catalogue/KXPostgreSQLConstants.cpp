// Constants as columns keep them, so that comparing needs no conversion that an index would not survive.

#include <kestrixkit/catalogue/KXPostgreSQLRule_p.h>

#include <cmath>

#include <kestrixkit/catalogue/KXPostgreSQLTypes_p.h>
#include <kestrixkit/foundation/KXStringWithFormat.h>

using Value = KXPredicateValue;

namespace {

/// A bound between two numbers that the column can hold; `below` tells whether the neighbour here is the lower one.
bool constantMoveBound(KXPredicateOperator &comparisonOperator, bool below)
{
    if (comparisonOperator > KXPredicateOperator::GreaterThanOrEqual)
        return false;
    if (comparisonOperator <= KXPredicateOperator::LessThanOrEqual)
        comparisonOperator = below ? KXPredicateOperator::LessThanOrEqual : KXPredicateOperator::LessThan;
    else
        comparisonOperator = below ? KXPredicateOperator::GreaterThan : KXPredicateOperator::GreaterThanOrEqual;
    return true;
}

KXDecimal constantDecimal(const Value &value)
{
    switch (value.kind()) {
    case Value::Decimal:
        return value.decimal();
    case Value::Real:
        return KXDecimal::fromDouble(value.real());
    default:
        return KXDecimal::fromInteger(value.integer());
    }
}

Value::Kind constantKindOf(KXCatalogueType type)
{
    static constexpr Value::Kind kinds[]
        = { Value::Integer, Value::Integer, Value::Real, Value::Decimal, Value::Text, Value::Date, Value::Other };
    return kinds[int(type)];
}

}

void KXPostgreSQLRule::refuseHalves(const QString &text)
{
    if (!text.isValidUtf16())
        refuse(KXLocalizedString("a text holds half a character"));
}

std::optional<KXCatalogueParameter> KXPostgreSQLRule::stored(
    KXCatalogueType type, const KXPredicateValue &value, KXPredicateOperator &comparisonOperator, bool &always)
{
    if (value.isNumber() && type >= KXCatalogueType::Integer && type <= KXCatalogueType::Decimal)
        return storedNumber(type, value, comparisonOperator, always);
    if (value.kind() != constantKindOf(type))
        return std::nullopt;
    const quint32 number = KXPostgreSQLTypes::typeOf(type);
    if (value.kind() == Value::Date) {
        const QByteArray text = KXPostgreSQLTypes::dateText(value.integer());
        if (text.isEmpty())
            refuse(KXLocalizedString("a date lies outside the years 1 to 9999"));
        return KXCatalogueParameter { number, text };
    }
    QString text = value.text();
    if (!isEquality(comparisonOperator))
        refuseHalves(text);
    const qsizetype nul = text.indexOf(QChar::Null);
    if (isEquality(comparisonOperator) && (nul >= 0 || !text.isValidUtf16()))
        return std::nullopt; // no column holds such a text
    if (nul >= 0) {
        // What lies before it is the last that is less.
        text.truncate(nul);
        constantMoveBound(comparisonOperator, true);
    }
    return KXCatalogueParameter { number, text.toUtf8() };
}

std::optional<KXCatalogueParameter> KXPostgreSQLRule::storedNumber(
    KXCatalogueType type, const KXPredicateValue &value, KXPredicateOperator &comparisonOperator, bool &always)
{
    const bool isOrder = !isEquality(comparisonOperator);
    const bool isLess = comparisonOperator <= KXPredicateOperator::LessThanOrEqual;
    const bool isReal = value.kind() == Value::Real;
    const auto parameter = [type](QByteArray text) {
        return KXCatalogueParameter { KXPostgreSQLTypes::typeOf(type), std::move(text) };
    };
    const auto between = [&](QByteArray neighbour, bool below) -> std::optional<KXCatalogueParameter> {
        if (!constantMoveBound(comparisonOperator, below))
            return std::nullopt;
        return parameter(std::move(neighbour));
    };
    if (isReal && std::isnan(value.real()))
        return std::nullopt;
    if (isReal && std::isinf(value.real()) && type != KXCatalogueType::Real) {
        always = isOrder && isLess == (value.real() > 0);
        return std::nullopt;
    }
    if (type == KXCatalogueType::Decimal)
        return parameter(constantDecimal(value).canonical());
    if (type == KXCatalogueType::Integer) {
        if (value.kind() == Value::Integer)
            return parameter(QByteArray::number(value.integer()));
        bool ok = true;
        if (isReal)
            ok = value.real() < 0x1p63 && value.real() >= -0x1p63;
        else
            (void)value.decimal().toInt64(&ok);
        if (!ok) {
            always = isOrder && isLess == (isReal ? value.real() > 0 : !value.decimal().isNegative());
            return std::nullopt;
        }
        const qint64 whole = isReal ? qint64(value.real()) : value.decimal().toInt64();
        const bool isWhole = isReal ? double(whole) == value.real() : KXDecimal::fromInteger(whole) == value.decimal();
        const bool below = isReal ? double(whole) < value.real() : KXDecimal::fromInteger(whole) < value.decimal();
        return isWhole ? parameter(QByteArray::number(whole)) : between(QByteArray::number(whole), below);
    }
    if (isReal)
        return parameter(KXPostgreSQLTypes::realText(value.real()));
    const double nearest = value.kind() == Value::Integer ? double(value.integer()) : value.decimal().toDouble();
    const std::partial_ordering order = Value::compare(Value(QVariant(nearest)), value);
    return order == 0 ? parameter(KXPostgreSQLTypes::realText(nearest))
                      : between(KXPostgreSQLTypes::realText(nearest), order < 0);
}

KXCatalogueParameter KXPostgreSQLRule::parameterOf(const QVariant &value, KXCatalogueType type) const
{
    KXPredicateOperator equal = KXPredicateOperator::Equal;
    bool always = false;
    if (type == KXCatalogueType::Boolean)
        return { KXPostgreSQLTypes::typeOf(type), value.toBool() ? "true" : "false" };
    if (type == KXCatalogueType::Date && value.typeId() == QMetaType::LongLong) // of a row's key
        return { KXPostgreSQLTypes::typeOf(type), KXPostgreSQLTypes::dateText(value.toLongLong()) };
    const auto parameter = stored(type, KXPredicateValue(value), equal, always);
    if (!parameter)
        refuse(KXLocalizedString("the page goes on from another order"));
    return *parameter;
}
