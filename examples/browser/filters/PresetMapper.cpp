#include "filters/PresetMapper.h"

#include "command_line/Report.h"

namespace {

bool isUnderstood(const KXFilter &filter)
{
    const KXPredicate predicate = filter.representedLocalPredicateWithKeyPath();
    return !predicate || Report::unknownName(predicate).isEmpty();
}

} // namespace

bool PresetMapper::canMapFilterSet(const KXRef<KXFilterSet> &set) const
{
    const QList<KXRef<KXFilter>> filters = set ? set->filters() : QList<KXRef<KXFilter>>();
    return !filters.isEmpty() && std::all_of(filters.begin(), filters.end(), [](const auto &filter) {
        return !filter->enabled() || isUnderstood(*filter);
    });
}

KXRef<KXFilterSet> PresetMapper::createInstanceByMappingFilterSet(
    const KXRef<KXFilterSet> &set, KXManagedObjectContext &inContext) const
{
    KXRef<KXFilterSet> copy = set->duplicateInContext(inContext);
    if (!copy)
        return {};
    for (const KXRef<KXFilter> &filter : copy->filters()) {
        if (!isUnderstood(*filter))
            inContext.removeManagedObject(filter);
    }
    return copy;
}
