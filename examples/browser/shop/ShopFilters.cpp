#include "shop/ShopFilters.h"

#include <kestrixkit/filters/KXFacetFilter.h>
#include <kestrixkit/foundation/KXUndoManager.h>

ShopFilters::ShopFilters(
    KXManagedObjectContext::Ref context, std::shared_ptr<const KXCatalogueFilterSetMapper> mapper, QObject *parent)
    : TrackFilters(std::move(context), parent)
    , m_mapper(std::move(mapper))
{
}

void ShopFilters::insert(const KXRef<KXFilter> &filter)
{
    if (!filter)
        return;
    {
        const KXUndoGroup group(context()->undoManager(), TrackFilters::tr("Add Filter"));
        m_mapper->giveRemoteKeyPath(*filter);
        insertFilter(filter);
    }
    context()->save();
}

void ShopFilters::addFilterOfType(const KXFilterTypeItem &type)
{
    const KXRef<KXFilter> filter = FilterTypes::make(*context(), type.tag, {});
    insert(filter);
    showFilter(filter);
}

void ShopFilters::toggleValue(const QString &keyPath, const QString &name, const FilterTypes::Choice &choice)
{
    const KXRef<KXFilterSet> set = filterSet();
    KXRef<KXFacetFilter> facet;
    for (const KXRef<KXFilter> &filter : set ? set->sortedFilters() : QList<KXRef<KXFilter>>()) {
        if (!facet && filter->localValuePredicateKeyPath() == keyPath)
            facet = KXFacetFilter::cast(KXRef<KXManagedObject>(filter));
    }
    if (!facet) {
        facet = KXFacetFilter::createInContext(*context());
        if (!facet)
            return;
        facet->setName(name);
        facet->setEnabled(true);
        facet->setLocalValuePredicateKeyPath(keyPath);
        FilterTypes::addValue(*facet, choice);
        return insert(facet);
    }
    for (const KXRef<KXFacetFilterValue> &value : facet->values()) {
        if (value->value() == choice.value) {
            context()->removeManagedObject(value);
            context()->save();
            return;
        }
    }
    FilterTypes::addValue(*facet, choice);
    context()->save();
}

KXPredicate ShopFilters::remotePredicate() const
{
    const KXRef<KXFilterSet> set = filterSet();
    const KXPredicate predicate = set ? set->representedRemotePredicateWithKeyPath() : KXPredicate();
    return predicate.countOfComparisons() > 0 ? predicate : KXPredicate();
}
