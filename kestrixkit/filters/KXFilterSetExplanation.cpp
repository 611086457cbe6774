#include <kestrixkit/filters/KXFilterSetExplanation.h>

QList<KXPredicate> KXFilterSetExplanation::partsOfPredicate(const KXPredicate &predicate)
{
    if (predicate.type() != KXPredicateType::And || predicate.subpredicates().isEmpty())
        return { predicate };
    QList<KXPredicate> parts;
    for (const KXPredicate &part : predicate.subpredicates())
        parts.append(partsOfPredicate(part));
    return parts;
}

KXFilterSetExplanation KXFilterSetExplanation::explain(
    const KXFilterSet &set, const KXObservable *object, const std::optional<QString> &prefix)
{
    KXFilterSetExplanation explanation;
    for (const KXRef<KXFilter> &filter : set.sortedFilters()) {
        const KXPredicate predicate = filter->representedLocalPredicateWithKeyPath(prefix);
        Verdict verdict { filter, filter->enabled() && predicate, true, {}, {} };
        for (const KXPredicate &condition : predicate ? partsOfPredicate(predicate) : QList<KXPredicate>()) {
            Part part { condition, condition.evaluateWithObject(object), {} };
            if (condition.type() == KXPredicateType::Or) {
                for (const KXPredicate &alternative : condition.subpredicates()) {
                    if (alternative.evaluateWithObject(object))
                        part.matching.append(alternative);
                }
            }
            verdict.matches = verdict.matches && part.matches;
            verdict.parts.append(part);
        }
        for (const QString &keyPath : predicate.keyPaths())
            verdict.values.insert(
                keyPath, KXExpression::expressionForKeyPath(keyPath).expressionValueWithObject(object));
        explanation.m_verdicts.append(verdict);
    }
    return explanation;
}

bool KXFilterSetExplanation::matches() const { return keepingOut().isEmpty(); }

QList<KXRef<KXFilter>> KXFilterSetExplanation::filters(bool matching) const
{
    QList<KXRef<KXFilter>> filters;
    for (const Verdict &verdict : m_verdicts) {
        if (verdict.takesPart && verdict.matches == matching)
            filters.append(verdict.filter);
    }
    return filters;
}
