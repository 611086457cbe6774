#include <kestrixkit/filters/KXFilterSetPresetLocalCountsProvider.h>

#include <kestrixkit/foundation/KXLog.h>

KXFilterSetPresetLocalCountsProvider::KXFilterSetPresetLocalCountsProvider(
    KXRef<KXFilterSetPreset> preset, QString contextIdentifier, QString entityName)
    : KXFilterSetPresetCountsProvider(std::move(preset), std::move(contextIdentifier))
    , m_entityName(std::move(entityName))
{
}

/// What the preset asks for, translated for the place. What the mapper makes goes with the context, which is not saved.
KXPredicate KXFilterSetPresetLocalCountsProvider::predicate(KXManagedObjectContext &context) const
{
    const auto id = context.persistentStoreCoordinator()->managedObjectIDForURIRepresentation(filterSetURI());
    KXRef<KXFilterSet> set = KXFilterSet::cast(context.objectWithID(id));
    if (set && !set->isMissing() && filterSetMapper()) {
        try {
            set = filterSetMapper()->createInstanceByMappingFilterSet(set, context);
        } catch (const std::exception &failure) {
            KXLogError(filters, "A preset's filters cannot be mapped: %s", failure.what());
            set.reset();
        }
    }
    return set && !set->isMissing() ? set->representedLocalPredicateWithKeyPath() : KXPredicate::falsePredicate();
}

void KXFilterSetPresetLocalCountsProvider::loadCounts()
{
    const KXManagedObjectContext::Ref context = localContext();
    if (!context || isCancelled())
        return;
    QList<KXPredicate> all = basePredicates();
    all.append(predicate(*context));
    KXError problem;
    const qint64 count = context->count(KXFetchRequest(m_entityName, KXPredicate::andPredicate(all)), &problem);
    if (count >= 0) {
        deliverCount(count);
    } else if (!isCancelled()) { // which interrupts a query
        KXLogError(filters, "Cannot count \"%@\": %@", m_entityName, problem);
        setError(problem);
    }
}
