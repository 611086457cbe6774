#include "PresetCountOperation.h"

#include "Presets.h"

void PresetCountOperation::loadCounts()
{
    const KXManagedObjectContext::Ref context = isCancelled() ? nullptr : localContext();
    if (!context)
        return;
    const auto id = context->persistentStoreCoordinator()->managedObjectIDForURIRepresentation(filterSetURI());
    KXRef<KXFilterSet> set = KXFilterSet::cast(context->objectWithID(id));
    if (set && set->isMissing())
        set = {};
    if (set && filterSetMapper())
        set = filterSetMapper()->createInstanceByMappingFilterSet(set, *context); // never saved
    QList<KXPredicate> parts = basePredicates();
    parts.append(set ? set->representedLocalPredicateWithKeyPath() : KXPredicate::falsePredicate());
    KXError error;
    const qint64 count
        = context->count(KXFetchRequest(QString(Track::entityName), KXPredicate::andPredicate(parts)), &error);
    if (count < 0)
        setError(error); // or it was interrupted, because it is cancelled
    else
        deliverCount(count);
}
