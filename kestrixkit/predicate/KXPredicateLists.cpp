#include <kestrixkit/predicate/KXPredicateLists_p.h>

#include <QHash>

namespace {

bool isEqualityWithOneValue(const KXPredicate &part)
{
    return part.type() == KXPredicateType::Comparison && part.comparisonOperator() == KXPredicateOperator::Equal
        && part.modifier() != KXPredicateModifier::All && part.leftExpression().type() == KXExpressionType::KeyPath
        && part.rightExpression().isConstant()
        && part.rightExpression().constantValue().typeId() != QMetaType::QVariantList;
}

}

QList<KXPredicate> KXPredicateJoinEqualities(const QList<KXPredicate> &parts)
{
    QHash<std::pair<QString, int>, qsizetype> places;
    QHash<qsizetype, QVariantList> lists;
    QList<KXPredicate> result;
    for (const KXPredicate &part : parts) {
        if (isEqualityWithOneValue(part)) {
            const std::pair key(part.leftExpression().keyPath(), part.options());
            const auto place = places.constFind(key);
            if (place != places.constEnd()) {
                lists[*place].append(part.rightExpression().constantValue());
                continue;
            }
            places.insert(key, result.size());
        }
        result.append(part);
    }
    for (auto it = lists.begin(); it != lists.end(); ++it) {
        const KXPredicate first = result[it.key()];
        it->prepend(first.rightExpression().constantValue());
        result[it.key()] = KXPredicate::comparison(first.leftExpression(), KXPredicateOperator::Equal,
            KXExpression::expressionForConstantValue(*it), first.modifier(), first.options());
    }
    return result;
}
