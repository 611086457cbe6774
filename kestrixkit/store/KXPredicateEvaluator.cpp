#include <kestrixkit/store/KXPredicateEvaluator_p.h>

#include <algorithm>

#include <kestrixkit/foundation/KXException.h>
#include <kestrixkit/foundation/KXObservable.h>
#include <kestrixkit/foundation/KXStringWithFormat.h>
#include <kestrixkit/store/KXPredicate_p.h>
#include <kestrixkit/store/KXTextFolding_p.h>

using namespace Qt::StringLiterals;

namespace {

constexpr size_t longListSize = 16; // from here on a table beats comparing one by one

// A visitor gets each value and whether it came from a list; it answers false to end the visit, which then
// answers false too.

template <typename Visitor>
bool evaluatorVisitKeys(
    const KXObservable *object, const QStringList &keys, qsizetype at, bool fromList, Visitor &visitor);

/// Visits what the keys from `at` on reach from a value.
template <typename Visitor>
bool evaluatorVisitValue(const QVariant &value, const QStringList &keys, qsizetype at, bool fromList, Visitor &visitor)
{
    if (value.typeId() == QMetaType::QVariantList || value.typeId() == QMetaType::QStringList) {
        const QVariantList list = value.toList();
        if (at < keys.size() && keys[at] == "@count"_L1)
            return evaluatorVisitValue(qint64(list.size()), keys, at + 1, fromList, visitor);
        return std::all_of(list.begin(), list.end(),
            [&](const QVariant &element) { return evaluatorVisitValue(element, keys, at, true, visitor); });
    }
    if (at == keys.size())
        return visitor(value, fromList);
    if (value.typeId() == QMetaType::QVariantMap) {
        // A key may hold dots of its own.
        const QVariantMap map = value.toMap();
        const auto whole = map.constFind(keys.mid(at).join(u'.'));
        return whole != map.constEnd() ? evaluatorVisitValue(*whole, keys, keys.size(), fromList, visitor)
                                       : evaluatorVisitValue(map.value(keys[at]), keys, at + 1, fromList, visitor);
    }
    return evaluatorVisitKeys(KXObservableFromVariant(value), keys, at, fromList, visitor);
}

template <typename Visitor>
bool evaluatorVisitKeys(
    const KXObservable *object, const QStringList &keys, qsizetype at, bool fromList, Visitor &visitor)
{
    if (!object || keys[at].isEmpty() || keys[at].startsWith(u'@'))
        return visitor(QVariant(), fromList);
    return evaluatorVisitValue(object->valueForKey(keys[at]), keys, at + 1, fromList, visitor);
}

}

/// Visits the values that an expression stands for; one for most, any number for lists and to-many paths.
template <typename Visitor>
bool KXPredicateEvaluator::visit(
    const KXExpression &expression, const KXObservable *object, Visitor &&visitor, bool fromList) const
{
    switch (expression.type()) {
    case KXExpressionType::Constant:
        return evaluatorVisitValue(expression.constantValue(), {}, 0, fromList, visitor);
    case KXExpressionType::EvaluatedObject:
        return visitor(object ? QVariant::fromValue(const_cast<KXObservable *>(object)) : QVariant(), fromList);
    case KXExpressionType::Variable:
        return evaluatorVisitValue(variable(expression.variable(), m_variables), {}, 0, fromList, visitor);
    case KXExpressionType::KeyPath:
        return evaluatorVisitKeys(object, expression.keys(), 0, fromList, visitor);
    case KXExpressionType::Function: {
        const KXExpression &operand = expression.operand();
        if (operand.type() == KXExpressionType::Variable) // not visited: the list itself may be counted
            return evaluatorVisitValue(
                variable(operand.variable(), m_variables), expression.keys(), 0, fromList, visitor);
        return evaluatorVisitValue(value(operand, object), expression.keys(), 0, fromList, visitor);
    }
    case KXExpressionType::Aggregate:
        return std::all_of(expression.arguments().begin(), expression.arguments().end(),
            [&](const KXExpression &element) { return visit(element, object, visitor, true); });
    }
    return true;
}

QVariant KXPredicateEvaluator::value(const KXExpression &expression, const KXObservable *object) const
{
    QVariantList values;
    bool isList = expression.type() == KXExpressionType::Aggregate;
    visit(expression, object, [&](const QVariant &value, bool fromList) {
        values.append(value);
        isList = isList || fromList;
        return true;
    });
    return isList || values.size() != 1 ? QVariant(values) : values.first();
}

QVariant KXPredicateEvaluator::variable(const QString &name, const QVariantMap &variables)
{
    const auto found = variables.constFind(name);
    if (found == variables.constEnd())
        throw KXException(
            u"KXInvalidArgumentException"_s, KXStringWithFormat("No value for the variable $%@ of a predicate", name));
    return *found;
}

bool KXPredicateEvaluator::evaluate(const KXPredicate &predicate, const KXObservable *object) const
{
    const QList<KXPredicate> &parts = predicate.subpredicates();
    const auto isTruePart = [this, object](const KXPredicate &part) { return evaluate(part, object); };
    switch (predicate.type()) {
    case KXPredicateType::True:
        return true;
    case KXPredicateType::False:
        return false;
    case KXPredicateType::And:
        return std::all_of(parts.begin(), parts.end(), isTruePart);
    case KXPredicateType::Or:
        return std::any_of(parts.begin(), parts.end(), isTruePart);
    case KXPredicateType::Not:
        return !evaluate(parts.first(), object);
    case KXPredicateType::Comparison:
        return compare(predicate, object);
    }
    return false;
}

int KXPredicateEvaluator::foldingOptions(KXPredicateOperator comparisonOperator, int options)
{
    return comparisonOperator == KXPredicateOperator::Matches ? options & KXDiacriticInsensitive : options;
}

QRegularExpression KXPredicateEvaluator::regularExpression(const QString &pattern, int options)
{
    const QRegularExpression expression(QRegularExpression::anchoredPattern(pattern),
        QRegularExpression::UseUnicodePropertiesOption
            | (options & KXCaseInsensitive ? QRegularExpression::CaseInsensitiveOption
                                           : QRegularExpression::NoPatternOption));
    return expression.isValid() ? expression : QRegularExpression(u"(?!)"_s);
}

bool KXPreparedSide::contains(const KXPredicateValue &value) const
{
    if (value.isNull())
        return false;
    if (table.empty())
        return std::any_of(values.begin(), values.end(),
            [&](const auto &element) { return KXPredicateValue::isEqual(value, element); });
    const auto [from, to] = std::equal_range(table.begin(), table.end(), std::pair(value.hash(), qsizetype(0)),
        [](const auto &a, const auto &b) { return a.first < b.first; });
    return std::any_of(
        from, to, [&](const auto &entry) { return KXPredicateValue::isEqual(value, values[size_t(entry.second)]); });
}

KXPreparedSide KXPredicateEvaluator::side(const KXExpression &expression, const KXObservable *object, int folding) const
{
    KXPreparedSide side;
    side.isList = expression.type() == KXExpressionType::Aggregate
        || expression.constantValue().typeId() == QMetaType::QVariantList; // perhaps an empty one
    visit(expression, object, [&side, folding](const QVariant &value, bool fromList) {
        side.values.emplace_back(value, folding);
        side.isList = side.isList || fromList;
        return true;
    });
    return side;
}

KXPreparedSide KXPredicateEvaluator::prepareRight(const KXPredicate &predicate, const KXObservable *object) const
{
    const KXPredicateOperator comparisonOperator = predicate.comparisonOperator();
    KXPreparedSide side
        = this->side(predicate.rightExpression(), object, foldingOptions(comparisonOperator, predicate.options()));
    if (comparisonOperator == KXPredicateOperator::In && side.values.size() >= longListSize) {
        for (size_t i = 0; i < side.values.size(); ++i)
            side.table.emplace_back(side.values[i].hash(), qsizetype(i));
        std::sort(side.table.begin(), side.table.end());
    }
    if (comparisonOperator == KXPredicateOperator::Matches) {
        for (const KXPredicateValue &value : side.values)
            side.expressions.push_back(regularExpression(value.text(), predicate.options()));
    }
    return side;
}

bool KXPredicateEvaluator::isTrue(
    const KXPredicateValue &left, KXPredicateOperator comparisonOperator, const KXPredicateValue &right)
{
    switch (comparisonOperator) {
    case KXPredicateOperator::Equal:
        return KXPredicateValue::isEqual(left, right);
    case KXPredicateOperator::NotEqual:
        return !KXPredicateValue::isEqual(left, right);
    default:
        break;
    }
    if (comparisonOperator <= KXPredicateOperator::GreaterThanOrEqual) {
        if (left.kind() == KXPredicateValue::Object)
            return false;
        const std::partial_ordering order = KXPredicateValue::compare(left, right);
        switch (comparisonOperator) {
        case KXPredicateOperator::LessThan:
            return order < 0;
        case KXPredicateOperator::LessThanOrEqual:
            return order <= 0;
        case KXPredicateOperator::GreaterThan:
            return order > 0;
        case KXPredicateOperator::GreaterThanOrEqual:
            return order >= 0;
        default:
            return false; // a negative code
        }
    }
    if (left.kind() != KXPredicateValue::Text || right.kind() != KXPredicateValue::Text)
        return false;
    switch (comparisonOperator) {
    case KXPredicateOperator::Like:
        return KXTextFolding::isLike(left.text(), right.text());
    case KXPredicateOperator::BeginsWith:
        return left.text().startsWith(right.text());
    case KXPredicateOperator::EndsWith:
        return left.text().endsWith(right.text());
    case KXPredicateOperator::Contains:
        return left.text().contains(right.text());
    default:
        return false;
    }
}

bool KXPredicateEvaluator::compare(const KXPredicate &predicate, const KXObservable *object) const
{
    const KXPredicateOperator comparisonOperator = predicate.comparisonOperator();
    const KXPredicateModifier modifier = predicate.modifier();
    const int folding = foldingOptions(comparisonOperator, predicate.options());

    KXPreparedSide ownSide;
    const KXPreparedSide *right = &ownSide;
    if (predicate.rightExpression().isConstant()) {
        std::call_once(predicate.d->preparedOnce, [&] {
            predicate.d->preparedRight = std::make_unique<const KXPreparedSide>(prepareRight(predicate, nullptr));
        });
        right = predicate.d->preparedRight.get();
    } else {
        ownSide = prepareRight(predicate, object);
    }

    const auto matches = [&](const QVariant &variant, bool fromList) {
        const KXPredicateValue left(variant, folding);
        const auto anyRight
            = [&](auto &&test) { return std::any_of(right->values.begin(), right->values.end(), test); };
        switch (comparisonOperator) {
        case KXPredicateOperator::In:
            if (right->isList)
                return right->contains(left);
            return anyRight(
                [&](const KXPredicateValue &value) { return isTrue(value, KXPredicateOperator::Contains, left); });
        case KXPredicateOperator::Contains:
            if (fromList && modifier == KXPredicateModifier::Direct)
                return anyRight([&](const KXPredicateValue &value) {
                    return !value.isNull() && KXPredicateValue::isEqual(left, value);
                });
            break;
        case KXPredicateOperator::Between:
            return right->isList && right->values.size() == 2
                && isTrue(left, KXPredicateOperator::GreaterThanOrEqual, right->values[0])
                && isTrue(left, KXPredicateOperator::LessThanOrEqual, right->values[1]);
        case KXPredicateOperator::Matches:
            for (size_t i = 0; i < right->values.size(); ++i) {
                if (left.kind() == KXPredicateValue::Text && right->values[i].kind() == KXPredicateValue::Text
                    && right->expressions[i].match(left.text()).hasMatch())
                    return true;
            }
            return false;
        default:
            break;
        }
        return anyRight([&](const KXPredicateValue &value) { return isTrue(left, comparisonOperator, value); });
    };
    const KXExpression &left = predicate.leftExpression();
    if (modifier == KXPredicateModifier::All)
        return visit(left, object, matches);
    return !visit(left, object, [&matches](const QVariant &value, bool fromList) { return !matches(value, fromList); });
}
