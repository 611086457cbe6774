#include <kestrixkit/predicate/KXPredicateCheck_p.h>

#include <optional>

#include <kestrixkit/entity/KXEntityDescription.h>
#include <kestrixkit/entity/KXModelPath.h>
#include <kestrixkit/foundation/KXStringWithFormat.h>
#include <kestrixkit/predicate/KXPredicateValue_p.h>

using namespace Qt::StringLiterals;

namespace {

/// Values of different kinds never equal each other, and have no order.
enum class CheckedKind : quint8 { Number, Text, Date };

QString checkedName(CheckedKind kind)
{
    return kind == CheckedKind::Number ? u"a number"_s : kind == CheckedKind::Text ? u"a text"_s : u"a date"_s;
}

std::optional<CheckedKind> checkedKind(KXAttributeType type)
{
    switch (type) {
    case KXAttributeType::Integer16:
    case KXAttributeType::Integer32:
    case KXAttributeType::Integer64:
    case KXAttributeType::Boolean:
    case KXAttributeType::Double:
    case KXAttributeType::Decimal:
        return CheckedKind::Number;
    case KXAttributeType::String:
    case KXAttributeType::URI:
    case KXAttributeType::UUID:
        return CheckedKind::Text;
    case KXAttributeType::Date:
        return CheckedKind::Date;
    default:
        return std::nullopt;
    }
}

std::optional<CheckedKind> checkedKind(const QVariant &constant)
{
    const KXPredicateValue value(constant);
    if (value.isNumber())
        return CheckedKind::Number;
    if (value.kind() == KXPredicateValue::Text)
        return CheckedKind::Text;
    return value.kind() == KXPredicateValue::Date ? std::optional(CheckedKind::Date) : std::nullopt;
}

/// One side of a comparison: the kinds of its values, each with the first that is of it.
struct CheckedSide
{
    std::vector<std::pair<CheckedKind, QString>> kinds;

    void add(std::optional<CheckedKind> kind, const QVariant &value)
    {
        const auto isThere = [&](const auto &known) { return known.first == *kind; };
        if (kind && std::none_of(kinds.begin(), kinds.end(), isThere))
            kinds.emplace_back(*kind, KXDescription(value));
    }
};

CheckedSide checkedSide(const KXExpression &expression, const KXEntityDescription &entity)
{
    CheckedSide side;
    if (expression.type() == KXExpressionType::KeyPath) {
        const KXModelPath path(entity, expression.keyPath());
        const KXPropertyDescription *const last = path.steps().empty() ? nullptr : path.steps().back().property;
        if (path.isKnown() && path.isCount())
            side.add(CheckedKind::Number, expression.keyPath());
        else if (path.isKnown() && !path.isAmbiguous() && last && last->isAttribute())
            side.add(checkedKind(last->type()), expression.keyPath());
    } else if (expression.isConstant()) {
        const QVariant &constant = expression.constantValue();
        if (constant.typeId() == QMetaType::QVariantList) {
            for (const QVariant &element : *static_cast<const QVariantList *>(constant.constData()))
                side.add(checkedKind(element), element);
        } else {
            side.add(checkedKind(constant), constant);
        }
    }
    return side;
}

bool isChecked(KXPredicateOperator comparisonOperator)
{
    return comparisonOperator <= KXPredicateOperator::NotEqual || comparisonOperator == KXPredicateOperator::In
        || comparisonOperator == KXPredicateOperator::Between;
}

}

QString KXPredicateCheck::misfit(const KXPredicate &predicate, const KXEntityDescription &entity)
{
    for (const KXPredicate &part : predicate.subpredicates()) {
        if (QString found = misfit(part, entity); !found.isEmpty())
            return found;
    }
    if (predicate.type() != KXPredicateType::Comparison || !isChecked(predicate.comparisonOperator()))
        return {};
    const KXExpression &left = predicate.leftExpression(), &right = predicate.rightExpression();
    if (left.isConstant() && right.isConstant())
        return {};
    const CheckedSide one = checkedSide(left, entity), other = checkedSide(right, entity);
    for (const auto &[kind, value] : one.kinds) {
        for (const auto &[otherKind, otherValue] : other.kinds) {
            if (kind != otherKind)
                return KXStringWithFormat("\"%@\" is %@ and \"%@\" is %@: they cannot be compared", value,
                    checkedName(kind), otherValue, checkedName(otherKind));
        }
    }
    return {};
}
