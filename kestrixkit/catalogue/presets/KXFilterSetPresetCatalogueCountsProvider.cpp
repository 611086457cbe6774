#include <kestrixkit/catalogue/presets/KXFilterSetPresetCatalogueCountsProvider.h>

#include <condition_variable>

#include <kestrixkit/catalogue/presets/KXCatalogueFilterSetMapper.h>
#include <kestrixkit/foundation/KXClock.h>
#include <kestrixkit/foundation/KXLock_p.h>
#include <kestrixkit/foundation/KXMainQueue.h>
#include <kestrixkit/foundation/KXStringWithFormat.h>

namespace {

/// One answer, between the main thread that gets it and the operation that waits for it.
struct ProviderAnswer
{
    KXMutex mutex;
    std::condition_variable changed;
    bool isOver KX_GUARDED_BY(mutex) = false;
    std::optional<KXCatalogueCounts> counts KX_GUARDED_BY(mutex);
    KXCatalogueTicket ticket; // the main thread's

    void end(const std::optional<KXCatalogueCounts> &given)
    {
        {
            const KXMutexLocker locker(mutex);
            if (isOver)
                return;
            isOver = true;
            counts = given;
        }
        changed.notify_all();
    }
};

}

KXFilterSetPresetCatalogueCountsProvider::KXFilterSetPresetCatalogueCountsProvider(KXRef<KXFilterSetPreset> preset,
    QString contextIdentifier, std::weak_ptr<KXCatalogue> catalogue, std::shared_ptr<KXCatalogueCountsCache> cache)
    : KXFilterSetPresetCountsProvider(std::move(preset), std::move(contextIdentifier))
    , m_catalogue(std::move(catalogue))
    , m_cache(cache ? std::move(cache) : std::make_shared<KXCatalogueCountsCache>())
{
}

KXPredicate KXFilterSetPresetCatalogueCountsProvider::rule(const KXRef<KXFilterSet> &set) const
{
    QList<KXPredicate> all = basePredicates();
    all.append(set->representedRemotePredicateWithKeyPath());
    return KXPredicate::andPredicate(all);
}

/// Why the set cannot be mapped.
KXError KXFilterSetPresetCatalogueCountsProvider::refusal(const KXRef<KXFilterSet> &set) const
{
    KXError reason;
    const auto mapper = std::dynamic_pointer_cast<const KXCatalogueFilterSetMapper>(filterSetMapper());
    for (const KXRef<KXFilter> &filter : mapper ? set->filters() : QList<KXRef<KXFilter>>()) {
        if (filter->enabled() && !mapper->canMapFilter(*filter, &reason))
            return reason;
    }
    return KXError(KXKestrixKitErrorDomain, KXCatalogueError::Refused,
        KXLocalizedString("This preset is not available in the current selected section."));
}

void KXFilterSetPresetCatalogueCountsProvider::loadCounts()
{
    const KXManagedObjectContext::Ref context = localContext();
    if (!context || isCancelled())
        return;
    const auto id = context->persistentStoreCoordinator()->managedObjectIDForURIRepresentation(filterSetURI());
    KXRef<KXFilterSet> set = KXFilterSet::cast(context->objectWithID(id));
    if (!set || set->isMissing())
        return;
    if (filterSetMapper()) {
        const KXRef<KXFilterSet> local = std::exchange(
            set, KXRef<KXFilterSet>(filterSetMapper()->createInstanceByMappingFilterSet(set, *context)));
        if (!set)
            return setError(refusal(local));
    }
    KXPredicate timeless;
    {
        // "The last 30 days" is another rule every moment, and the same one to whoever looks for it. At this moment no
        // two spans are one: it begins neither a day, a month nor a year in any zone.
        const KXClockMoment moment(QDateTime(QDate(2001, 7, 18), QTime(10, 20, 30, 457), Qt::UTC));
        timeless = rule(set);
    }
    if (const auto known = m_cache->known(timeless, Young))
        return deliverCount(known->count, known->when);
    if (const KXError failure = m_cache->failure(Pause))
        return setError(failure);
    const auto counts = ask(rule(set));
    if (!counts)
        return;
    const int code = counts->error.code();
    m_cache->noteFailure(
        code == KXCatalogueError::Unreachable || code == KXCatalogueError::TimeLimit ? counts->error : KXError());
    if (counts->isComplete()) {
        m_cache->keep(timeless, counts->count);
        deliverCount(counts->count, KXClock::now());
    } else {
        setError(counts->error ? counts->error
                               : KXError(KXKestrixKitErrorDomain, KXCatalogueError::Unreachable,
                                   counts->missing.first())); // a part of a count is none
    }
}

/// None when the operation is cancelled, or the catalogue has gone.
std::optional<KXCatalogueCounts> KXFilterSetPresetCatalogueCountsProvider::ask(const KXPredicate &rule)
{
    const auto answer = std::make_shared<ProviderAnswer>();
    const KXScopeToken whenCancelled = addCancelHandler([answer] { answer->end(std::nullopt); });
    KXMainQueue::async([answer, rule, weakCatalogue = m_catalogue] {
        const auto catalogue = weakCatalogue.lock();
        if (!catalogue)
            return answer->end(std::nullopt);
        // A catalogue that goes, or throws, answers nothing: then this goes with what it was to call.
        const std::shared_ptr<void> asked(nullptr, [weak = std::weak_ptr(answer)](void *) {
            if (const auto waiting = weak.lock())
                waiting->end(std::nullopt);
        });
        answer->ticket = catalogue->count({ .rule = rule, .timeLimit = TimeLimit },
            [weak = std::weak_ptr(answer), asked](const KXCatalogueCounts &counts) {
                if (const auto waiting = weak.lock())
                    waiting->end(counts);
            });
    });
    std::optional<KXCatalogueCounts> counts;
    {
        KXMutexLocker locker(answer->mutex);
        while (!answer->isOver)
            locker.wait(answer->changed);
        counts = answer->counts;
    }
    KXMainQueue::async([answer] { answer->ticket.cancel(); }); // which is nothing after the answer
    return counts;
}
