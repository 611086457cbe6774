#include <kestrixkit/filters/KXFilterSet.h>

#include <kestrixkit/filters/KXFacetFilter.h>
#include <kestrixkit/filters/KXFilterImages_p.h>

using namespace Qt::StringLiterals;

namespace {

/// The attributes but for the place.
QVariantMap filterSetAttributesOf(const KXManagedObject &object)
{
    QVariantMap attributes;
    for (const KXPropertyDescription &property : object.entity()->properties()) {
        if (property.isAttribute() && property.name() != "position"_L1)
            attributes.insert(property.name(), object.valueForKey(property.name()));
    }
    return attributes;
}

QList<QVariantMap> filterSetValuesOf(const KXFilter &filter)
{
    QList<QVariantMap> values;
    const auto *const facet = dynamic_cast<const KXFacetFilter *>(&filter);
    for (const auto &value : facet ? facet->values() : QList<KXRef<KXFacetFilterValue>>())
        values.append(filterSetAttributesOf(*value));
    return values;
}

bool filterSetIsSameFilter(const KXFilter &a, const KXFilter &b)
{
    if (a.entity()->name() != b.entity()->name() || filterSetAttributesOf(a) != filterSetAttributesOf(b))
        return false;
    // Values stand in no order.
    QList<QVariantMap> values = filterSetValuesOf(b);
    for (const QVariantMap &value : filterSetValuesOf(a)) {
        if (!values.removeOne(value))
            return false;
    }
    return values.isEmpty();
}

}

bool KXFilterSet::hasSameFiltersAs(const KXFilterSet &other) const
{
    const QList<KXRef<KXFilter>> ours = sortedFilters(), theirs = other.sortedFilters();
    return std::equal(ours.begin(), ours.end(), theirs.begin(), theirs.end(),
        [](const auto &a, const auto &b) { return filterSetIsSameFilter(*a, *b); });
}

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
