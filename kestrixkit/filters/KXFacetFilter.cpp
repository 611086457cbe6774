#include <kestrixkit/filters/KXFacetFilter.h>

#include <kestrixkit/predicate/KXTextFolding_p.h>

using namespace Qt::StringLiterals;

namespace {

/// Collects the comparisons of a facet filter's values.
struct FacetComparisons
{
    QList<KXPredicate> included;
    QList<KXPredicate> excluded;

    void add(const QString &keyPath, KXPredicateOperator comparisonOperator, const QVariant &constant,
        KXPredicateModifier modifier)
    {
        (comparisonOperator == KXPredicateOperator::NotEqual ? excluded : included)
            .append(KXPredicate::comparison(keyPath, comparisonOperator, constant, modifier));
    }
    [[nodiscard]] KXPredicate joined(bool allOfExcluded) const
    {
        QList<KXPredicate> parts;
        if (!included.isEmpty())
            parts.append(KXPredicate::orPredicate(included));
        if (!excluded.isEmpty())
            parts.append(allOfExcluded ? KXPredicate::andPredicate(excluded) : KXPredicate::orPredicate(excluded));
        return parts.isEmpty() ? KXPredicate() : KXPredicate::andPredicate(parts);
    }
};

}

QList<KXRef<KXFacetFilterValue>> KXFacetFilter::valuesSortedByName() const
{
    QList<KXRef<KXFacetFilterValue>> sorted = values();
    std::stable_sort(sorted.begin(), sorted.end(), [](const auto &a, const auto &b) {
        const auto left = a->name();
        const auto right = b->name();
        return left && right ? KXTextFolding::compare(*left, *right) < 0 : !left && right;
    });
    return sorted;
}

QString KXFacetFilter::defaultLabel() const
{
    const auto values = valuesSortedByName();
    if (values.isEmpty())
        return name().value_or(QString());
    if (values.size() > 4)
        return KXStringWithFormat("%@ (%ld)", name(), qint64(values.size()));
    QStringList names;
    for (const KXRef<KXFacetFilterValue> &value : values) {
        if (const auto name = value->name())
            names.append(value->operatorType() == KXPredicateOperator::NotEqual
                    ? KXStringWithFormat(KXLocalizedString("NOT %@"), *name)
                    : *name);
    }
    return names.join(u", "_s);
}

QString KXFacetFilter::detailsAsHTMLString() const
{
    const auto values = valuesSortedByName();
    if (values.isEmpty())
        return KXStringWithFormat("<i>%@</i> </br>", name());
    QString html;
    for (const KXRef<KXFacetFilterValue> &value : values)
        html += KXStringWithFormat("%@ </br>", value->name());
    return html;
}

KXPredicate KXFacetFilter::representedRemotePredicateWithKeyPath(const std::optional<QString> &prefix) const
{
    const auto identifierKeyPath = remoteValueIdentifierPredicateKeyPath();
    const auto valueKeyPath = remoteValuePredicateKeyPath();
    FacetComparisons comparisons;
    for (const KXRef<KXFacetFilterValue> &value : values()) {
        if (!value->enabled())
            continue;
        const auto identifier = value->valueIdentifier();
        if (identifier && identifierKeyPath)
            comparisons.add(prefixed(prefix, identifierKeyPath), value->operatorType(), *identifier,
                remoteValueIdentifierPredicateModifier());
        else if (const QVariant constant = value->value(); constant.isValid() && valueKeyPath)
            comparisons.add(
                prefixed(prefix, valueKeyPath), value->operatorType(), constant, remoteValuePredicateModifier());
    }
    return comparisons.joined(true);
}

KXPredicate KXFacetFilter::representedLocalPredicateWithKeyPath(const std::optional<QString> &prefix) const
{
    const QString keyPath = prefixed(prefix, localValuePredicateKeyPath());
    FacetComparisons comparisons;
    for (const KXRef<KXFacetFilterValue> &value : values()) {
        if (value->enabled())
            comparisons.add(keyPath, value->operatorType(), value->value(), localValuePredicateModifier());
    }
    return comparisons.joined(false);
}

void KXFacetFilter::copyTo(KXFilter &copy) const
{
    KXFilter::copyTo(copy);
    auto *facet = dynamic_cast<KXFacetFilter *>(&copy);
    if (!facet) {
        KXLogWarning(filters, "The values of a copied filter are lost: \"%@\" has none", copy.entity()->name());
        return;
    }
    for (const KXRef<KXFacetFilterValue> &value : values())
        facet->addToValues(value->duplicateInContext(*copy.managedObjectContext()));
}

QStringList KXFacetFilter::keysAffectingLabel() const { return { u"values"_s, u"count"_s }; }
