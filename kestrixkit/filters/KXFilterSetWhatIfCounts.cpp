#include <kestrixkit/filters/KXFilterSetWhatIfCounts.h>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

QString whatIfFacetIdentifier(const QString &keyPath) { return u"facet "_s + keyPath; }

QString whatIfSpreadIdentifier(const KXRef<KXFilter> &filter)
{
    return filter ? u"filter %1"_s.arg(filter->objectID().key()) : QString();
}

bool whatIfIsGone(const KXRef<KXManagedObject> &object)
{
    return object->isDeleted() || object->isMissing() || !object->managedObjectContext();
}

}

KXFilterSetWhatIfCounts::KXFilterSetWhatIfCounts(KXLiveCounts &counts, QObject *parent)
    : QObject(parent)
    , m_counts(counts)
{
    connect(&m_counts, &KXWhatIfCounts::countsDidChange, this, &KXFilterSetWhatIfCounts::countsDidChange);
}

KXFilterSetWhatIfCounts::~KXFilterSetWhatIfCounts() = default;

void KXFilterSetWhatIfCounts::setFilterSet(const KXRef<KXFilterSet> &set)
{
    m_set = set;
    m_changes = {};
    for (const QString &identifier : m_spread.keys())
        m_counts.removeFacet(identifier);
    m_spread.clear();
    if (const auto context = set ? set->managedObjectContext() : nullptr) {
        m_changes = KXManagedObjectContext::onChange(&*context, [this](const KXObjectsDidChange &did) { follow(did); });
    }
    takeOver();
}

void KXFilterSetWhatIfCounts::setFacet(const QString &keyPath, const QVariantList &values, KXPredicateModifier modifier,
    const KXRef<KXFacetFilter> &filter)
{
    m_facets.insert(keyPath, { values, modifier, filter });
    takeOver();
}

void KXFilterSetWhatIfCounts::removeFacet(const QString &keyPath)
{
    m_facets.remove(keyPath);
    m_counts.removeFacet(whatIfFacetIdentifier(keyPath));
    takeOver();
}

void KXFilterSetWhatIfCounts::addDistribution(const KXRef<KXFilter> &filter)
{
    if (!filter)
        return;
    m_spread.insert(whatIfSpreadIdentifier(filter), filter);
    takeOver();
}

void KXFilterSetWhatIfCounts::removeDistribution(const KXRef<KXFilter> &filter)
{
    m_spread.remove(whatIfSpreadIdentifier(filter));
    m_counts.removeFacet(whatIfSpreadIdentifier(filter));
    takeOver();
}

// The set

QList<KXRef<KXFilter>> KXFilterSetWhatIfCounts::filters() const
{
    QList<KXRef<KXFilter>> filters;
    if (!m_set || whatIfIsGone(m_set))
        return filters;
    for (const KXRef<KXFilter> &filter : m_set->sortedFilters()) {
        if (!whatIfIsGone(filter))
            filters.append(filter);
    }
    return filters;
}

KXRef<KXFacetFilter> KXFilterSetWhatIfCounts::filterOfFacet(const QString &keyPath) const
{
    const KXRef<KXFacetFilter> named = m_facets.value(keyPath).filter;
    KXRef<KXFacetFilter> first;
    for (const KXRef<KXFilter> &filter : filters()) {
        const auto facet = KXFacetFilter::cast(KXRef<KXManagedObject>(filter));
        if (!facet || facet->localValuePredicateKeyPath() != keyPath)
            continue;
        if (facet == named)
            return facet;
        first = first ? first : facet;
    }
    return first;
}

/// What the set asks for besides its facets and the filters whose distribution is watched.
KXPredicate KXFilterSetWhatIfCounts::rest() const
{
    if (m_set && whatIfIsGone(m_set))
        return KXPredicate::falsePredicate();
    QList<KXPredicate> parts;
    for (const KXRef<KXFilter> &filter : filters()) {
        const QString keyPath = filter->localValuePredicateKeyPath().value_or(QString());
        const bool isFacet = m_facets.contains(keyPath) && filterOfFacet(keyPath).get() == filter.get();
        if (filter->enabled() && !isFacet && !m_spread.contains(whatIfSpreadIdentifier(filter)))
            parts.append(filter->representedLocalPredicateWithKeyPath());
    }
    return KXPredicate::andPredicate(parts);
}

void KXFilterSetWhatIfCounts::takeOver()
{
    for (auto facet = m_facets.cbegin(); facet != m_facets.cend(); ++facet) {
        KXWhatIfCounts::Facet asked;
        asked.keyPath = facet.key();
        asked.modifier = facet->modifier;
        asked.values = facet->values;
        if (const KXRef<KXFacetFilter> filter = filterOfFacet(facet.key())) {
            asked.modifier = filter->localValuePredicateModifier();
            asked.takesPart = filter->enabled();
            for (const KXRef<KXFacetFilterValue> &value : filter->values()) {
                if (value->enabled() && !whatIfIsGone(value))
                    asked.choices.append({ value->value(), value->operatorType() });
            }
        }
        m_counts.setFacet(whatIfFacetIdentifier(facet.key()), asked);
    }
    const QList<KXRef<KXFilter>> there = filters();
    for (auto spread = m_spread.begin(); spread != m_spread.end();) {
        if (!there.contains(*spread)) {
            m_counts.removeFacet(spread.key());
            spread = m_spread.erase(spread);
            continue;
        }
        KXWhatIfCounts::Facet asked;
        asked.keyPath = (*spread)->localValuePredicateKeyPath().value_or(QString());
        asked.modifier = (*spread)->localValuePredicateModifier();
        asked.takesPart = (*spread)->enabled();
        asked.condition = [filter = *spread] { return filter->representedLocalPredicateWithKeyPath(); };
        m_counts.setFacet(spread.key(), asked);
        ++spread;
    }
    m_counts.setCondition([this] { return rest(); });
}

void KXFilterSetWhatIfCounts::follow(const KXObjectsDidChange &did)
{
    const auto concerns = [this](const KXRef<KXManagedObject> &object) {
        const KXRef<KXFilterSet> set = KXFilterSet::filterSetOfObject(object);
        return set && set.get() == m_set.get();
    };
    // What is deleted does not tell any more whose it was.
    const auto isPart = [](const KXRef<KXManagedObject> &object) {
        return KXFilter::cast(object) || KXFilterSet::cast(object) || KXFacetFilterValue::cast(object);
    };
    if (std::any_of(did.deleted.begin(), did.deleted.end(), isPart)
        || std::any_of(did.inserted.begin(), did.inserted.end(), concerns)
        || std::any_of(did.updated.begin(), did.updated.end(), concerns)
        || std::any_of(did.refreshed.begin(), did.refreshed.end(), concerns))
        takeOver();
}

// The answers

QList<KXWhatIfCounts::ValueCounts> KXFilterSetWhatIfCounts::valueCounts(const QString &keyPath) const
{
    return m_counts.valueCounts(whatIfFacetIdentifier(keyPath));
}

std::optional<KXWhatIfCounts::ValueCounts> KXFilterSetWhatIfCounts::valueCounts(
    const QString &keyPath, const QVariant &value) const
{
    return m_counts.valueCounts(whatIfFacetIdentifier(keyPath), value);
}

QList<KXWhatIfCounts::NumberCount> KXFilterSetWhatIfCounts::distribution(const KXRef<KXFilter> &filter) const
{
    return m_counts.distribution(whatIfSpreadIdentifier(filter));
}

KXPredicate KXFilterSetWhatIfCounts::predicateWithValue(
    const QString &keyPath, const QVariant &value, KXPredicateOperator comparisonOperator) const
{
    return m_counts.predicateWithValue(whatIfFacetIdentifier(keyPath), value, comparisonOperator);
}

bool KXFilterSetWhatIfCounts::update(KXError *error)
{
    if (const auto context = m_set ? m_set->managedObjectContext() : nullptr)
        context->processPendingChanges();
    return m_counts.update(error);
}
