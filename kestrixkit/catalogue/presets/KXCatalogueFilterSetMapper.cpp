#include <kestrixkit/catalogue/presets/KXCatalogueFilterSetMapper.h>

#include <algorithm>

#include <kestrixkit/filters/KXFacetFilter.h>

using namespace Qt::StringLiterals;

namespace {

bool mapperHasRemoteKeyPath(const KXFilter &filter)
{
    return filter.remoteValuePredicateKeyPath() || filter.remoteValueIdentifierPredicateKeyPath();
}

}

KXCatalogueFilterSetMapper::KXCatalogueFilterSetMapper(
    std::shared_ptr<const KXCatalogueDialect> dialect, QHash<QString, KeyPath> remoteKeyPaths)
    : m_dialect(std::move(dialect))
    , m_keyPaths(std::move(remoteKeyPaths))
{
}

KXCatalogueFilterSetMapper::~KXCatalogueFilterSetMapper() = default;

/// What the filter asks of the catalogue once it is mapped. Without a key path of the catalogue's its local one is
/// left, which the catalogue refuses by name.
KXPredicate KXCatalogueFilterSetMapper::remotePredicate(const KXFilter &filter) const
{
    if (mapperHasRemoteKeyPath(filter))
        return filter.representedRemotePredicateWithKeyPath();
    const QString local = filter.localValuePredicateKeyPath().value_or(QString());
    const KeyPath mapped = m_keyPaths.value(local, { local, filter.localValuePredicateModifier() });
    const auto *const facet = dynamic_cast<const KXFacetFilter *>(&filter);
    if (!facet)
        return filter.representedPredicateWithKeyPath(mapped.remote, mapped.modifier);
    // Whether values are asked for or kept out makes no difference to whether they can be.
    QList<KXPredicate> values;
    for (const KXRef<KXFacetFilterValue> &value : facet->values()) {
        if (value->enabled() && value->value().isValid())
            values.append(
                KXPredicate::comparison(mapped.remote, value->operatorType(), value->value(), mapped.modifier));
    }
    return values.isEmpty() ? KXPredicate() : KXPredicate::andPredicate(values);
}

bool KXCatalogueFilterSetMapper::canMapFilter(const KXFilter &filter, KXError *error) const
{
    const KXPredicate predicate = remotePredicate(filter);
    return !predicate || m_dialect->canAnswer(predicate, error);
}

bool KXCatalogueFilterSetMapper::canMapFilterSet(const KXRef<KXFilterSet> &set) const
{
    const QList<KXRef<KXFilter>> filters = set ? set->filters() : QList<KXRef<KXFilter>>();
    return !filters.isEmpty() && std::all_of(filters.begin(), filters.end(), [this](const KXRef<KXFilter> &filter) {
        return !filter->enabled() || canMapFilter(*filter);
    });
}

bool KXCatalogueFilterSetMapper::giveRemoteKeyPath(KXFilter &filter) const
{
    if (mapperHasRemoteKeyPath(filter))
        return true;
    // As remotePredicate() took them: of a name that the catalogue has as well, there needs to be no entry.
    const QString local = filter.localValuePredicateKeyPath().value_or(QString());
    if (local.isEmpty() && !m_keyPaths.contains(local))
        return false;
    const KeyPath mapped = m_keyPaths.value(local, { local, filter.localValuePredicateModifier() });
    filter.setRemoteValuePredicateKeyPath(mapped.remote);
    filter.setRemoteValuePredicateModifier(mapped.modifier);
    return true;
}

KXRef<KXFilterSet> KXCatalogueFilterSetMapper::createInstanceByMappingFilterSet(
    const KXRef<KXFilterSet> &set, KXManagedObjectContext &inContext) const
{
    if (!canMapFilterSet(set))
        return {};
    KXRef<KXFilterSet> copy = set->duplicateInContext(inContext);
    if (!copy)
        return {};
    for (const KXRef<KXFilter> &filter : copy->filters()) {
        if (canMapFilter(*filter))
            giveRemoteKeyPath(*filter);
        else
            inContext.removeManagedObject(filter);
    }
    return copy;
}
