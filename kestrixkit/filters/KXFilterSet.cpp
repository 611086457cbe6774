#include <kestrixkit/filters/KXFilterSet.h>

#include <kestrixkit/filters/KXFacetFilter.h>
#include <kestrixkit/filters/KXFilterImages_p.h>

using namespace Qt::StringLiterals;

QList<KXRef<KXFilter>> KXFilterSet::sortedFilters() const
{
    QList<KXRef<KXFilter>> sorted = filters();
    std::stable_sort(
        sorted.begin(), sorted.end(), [](const auto &a, const auto &b) { return a->position() < b->position(); });
    return sorted;
}

KXPredicate KXFilterSet::representedLocalPredicateWithKeyPath(const std::optional<QString> &prefix) const
{
    QList<KXPredicate> parts;
    for (const KXRef<KXFilter> &filter : sortedFilters()) {
        if (filter->enabled())
            parts.append(filter->representedLocalPredicateWithKeyPath(prefix));
    }
    return KXPredicate::andPredicate(parts);
}

KXPredicate KXFilterSet::representedRemotePredicateWithKeyPath(const std::optional<QString> &prefix) const
{
    QList<KXPredicate> parts;
    for (const KXRef<KXFilter> &filter : sortedFilters()) {
        if (filter->enabled())
            parts.append(filter->representedRemotePredicateWithKeyPath(prefix));
    }
    return KXPredicate::andPredicate(parts);
}

KXRef<KXFilterSet> KXFilterSet::duplicateInContext(KXManagedObjectContext &context) const
{
    const KXRef<KXFilterSet> copy = cast(context.managedObjectForEntity(entity()->name()));
    if (!copy)
        return {};
    for (const KXRef<KXFilter> &filter : filters()) {
        if (const KXRef<KXFilter> copied = filter->duplicateInContext(context))
            copied->setFilterSet(copy);
    }
    return copy;
}

QIcon KXFilterSet::image() const { return KXFilterImage(isFolder() ? u"filter_set_folder"_s : u"filter_set"_s); }

KXRef<KXFilterSet> KXFilterSet::filterSetOfObject(const KXRef<KXManagedObject> &object)
{
    if (const auto set = KXFilterSet::cast(object))
        return set;
    if (const auto filter = KXFilter::cast(object))
        return filter->filterSet();
    const auto value = KXFacetFilterValue::cast(object);
    const auto filter = value ? value->filter() : KXRef<KXFacetFilter>();
    return filter ? filter->filterSet() : KXRef<KXFilterSet>();
}
