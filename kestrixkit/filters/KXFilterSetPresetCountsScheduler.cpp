#include <kestrixkit/filters/KXFilterSetPresetCountsScheduler.h>

#include <QCoreApplication>
#include <QTimer>

#include <kestrixkit/filters/KXFacetFilter.h>
#include <kestrixkit/filters/KXFilterSetPresetsManager.h>
#include <kestrixkit/foundation/KXMainQueue.h>
#include <kestrixkit/store/KXPersistentStore.h>

using namespace Qt::StringLiterals;

namespace {

struct CountsQueue
{
    std::mutex mutex;
    std::unique_ptr<KXOperationQueue> queue;
};

CountsQueue &countsQueueOfProcess()
{
    static auto *const queue = new CountsQueue;
    return *queue;
}

/// When the application object goes: no thread of the queue outlives it.
void countsQueueEnd()
{
    std::unique_ptr<KXOperationQueue> queue;
    {
        const std::lock_guard lock(countsQueueOfProcess().mutex);
        queue.swap(countsQueueOfProcess().queue);
    }
}

KXManagedObjectContext::Ref countsPresetsContext()
{
    const auto manager = KXFilterSetPresetsManager::sharedManager();
    return manager ? manager->context() : nullptr;
}

}

KXOperationQueue &KXFilterSetPresetCountsScheduler::countsQueue()
{
    CountsQueue &holder = countsQueueOfProcess();
    const std::lock_guard lock(holder.mutex);
    if (!holder.queue) {
        holder.queue = std::make_unique<KXOperationQueue>();
        holder.queue->setMaxConcurrentOperationCount(1);
        holder.queue->setName(u"KXCounts"_s);
        qAddPostRoutine(&countsQueueEnd);
    }
    return *holder.queue;
}

KXFilterSetPresetCountsScheduler::KXFilterSetPresetCountsScheduler(
    QString countsContextIdentifier, Callbacks callbacks, QString name)
    : m_identifier(std::move(countsContextIdentifier))
    , m_callbacks(std::move(callbacks))
    , m_name(std::move(name))
    , m_context(countsPresetsContext())
    , m_changes(KXNotificationCenter::defaultCenter().addObserver(KXManagedObjectContextObjectsDidChangeNotification,
          m_context.get(),
          [this](const KXNotification &notification) { managedObjectContextObjectsDidChange(notification); }))
    , m_saves(KXNotificationCenter::defaultCenter().addObserver(KXManagedObjectContextDidSaveNotification,
          m_context.get(), [this](const KXNotification &) { managedObjectContextDidSave(); }))
{
}

KXFilterSetPresetCountsScheduler::~KXFilterSetPresetCountsScheduler()
{
    for (const Provider &operation : std::as_const(m_countOperations))
        operation->cancel();
}

void KXFilterSetPresetCountsScheduler::log(const char *text, const QString &title) const
{
    KXLogDebug(filters, text, m_name, title);
}

void KXFilterSetPresetCountsScheduler::loadCountsForAllPresets()
{
    const auto context = countsPresetsContext();
    if (!context)
        return;
    const auto alive = m_alive.watch();
    for (const auto &preset : KXFilterSetPreset::findAllInContext(*context)) {
        if (!alive)
            return;
        if (preset && !preset->isFolder() && !preset->counts().value_or(KXCounts()).contains(m_identifier))
            enqueueCountsOperationForPreset(preset);
    }
}

void KXFilterSetPresetCountsScheduler::enqueueCountsOperationForPreset(const KXRef<KXFilterSetPreset> &preset)
{
    if (!preset || preset->isFolder())
        return;
    const QString title = preset->title();
    if (!m_callbacks.isOnScreen || !m_callbacks.isOnScreen()) {
        log("[%@] [%@] Adding preset to pending counts list", title);
        m_presetsNeedingCountUpdate.insert(preset);
        return;
    }
    if (m_context && m_context->hasChanges())
        m_countedBeforeSave.insert(preset);
    const KXManagedObjectID id = preset->objectID();
    if (const Provider earlier = m_countOperations.value(id)) {
        if (!earlier->hasStarted()) {
            log("[%@] [%@] Count operation already queued for preset", title);
            return;
        }
        // One that has ended is as good as absent, though its entry may not have been removed yet.
        if (earlier->isExecuting()) {
            log("[%@] [%@] Cancelling running counts operation", title);
            earlier->cancel();
            m_countOperations.remove(id);
        }
    }
    const auto aliveYet = m_alive.watch(); // the host may end this
    const Provider operation
        = m_callbacks.countsProviderForFilterSetPreset ? m_callbacks.countsProviderForFilterSetPreset(preset) : nullptr;
    if (!aliveYet || !operation)
        return;
    operation->setCompletionBlock([this, weakOperation = std::weak_ptr(operation), alive = m_alive.watch(), title] {
        const auto finished = weakOperation.lock();
        if (!finished || finished->isCancelled())
            return;
        KXMainQueue::async([this, finished, alive, title] {
            if (alive)
                operationDidFinish(finished, title);
        });
    });
    m_countOperations.insert(id, operation);
    countsQueue().addOperation(operation);
    log("[%@] [%@] Queued count operation for preset", title);
}

void KXFilterSetPresetCountsScheduler::operationDidFinish(const Provider &operation, const QString &title)
{
    log("[%@] [%@] Count operation finished", title);
    const auto found = m_countOperations.constFind(operation->presetID());
    if (found != m_countOperations.constEnd() && *found == operation) // else a newer one has taken its place
        m_countOperations.erase(found);
}

void KXFilterSetPresetCountsScheduler::setPresetAsNeedingCountUpdate(const KXRef<KXFilterSetPreset> &preset)
{
    if (!preset)
        return;
    log("[%@] [%@] Mark preset as needing count update", preset->title());
    m_presetsNeedingCountUpdate.insert(preset);
}

void KXFilterSetPresetCountsScheduler::enqueuePresetsNeedingCountUpdate()
{
    const auto alive = m_alive.watch();
    const auto pending = m_presetsNeedingCountUpdate;
    for (const KXRef<KXFilterSetPreset> &preset : pending) {
        enqueueCountsOperationForPreset(preset);
        if (!alive)
            return;
        m_presetsNeedingCountUpdate.remove(preset);
    }
}

void KXFilterSetPresetCountsScheduler::dequeueCountsOperationForPreset(const KXRef<KXFilterSetPreset> &preset)
{
    if (!preset)
        return;
    if (const Provider operation = m_countOperations.take(preset->objectID())) {
        operation->cancel();
        log("[%@] [%@] Dequeued count operation for preset", preset->title());
    }
    m_countedBeforeSave.remove(preset);
    m_presetsNeedingCountUpdate.remove(preset);
    if (m_presetsNeedingCountUpdate.isEmpty() && m_timer)
        m_timer->stop();
}

void KXFilterSetPresetCountsScheduler::dequeueAllCountsOperations()
{
    log("[%@] Dequeueing all preset count operations", {});
    const auto operations = std::exchange(m_countOperations, {});
    m_presetsNeedingCountUpdate.unite(std::exchange(m_countedBeforeSave, {}));
    for (const Provider &operation : operations) {
        operation->cancel();
        const KXRef<KXFilterSetPreset> preset = operation->filterSetPreset();
        if (!preset)
            continue;
        m_presetsNeedingCountUpdate.insert(preset);
        log("[%@] [%@] Dequeued count operation for preset", preset->title());
    }
}

void KXFilterSetPresetCountsScheduler::managedObjectContextObjectsDidChange(const KXNotification &notification)
{
    const auto *did = notification.payloadAs<KXObjectsDidChange>();
    if (!did || !m_context)
        return;
    for (const KXRef<KXManagedObject> &object : did->deleted)
        dequeueCountsOperationForPreset(KXFilterSetPreset::cast(object));

    const auto alive = m_alive.watch();
    QSet<QUrl> sets;
    QSet<KXRef<KXFilterSetPreset>> enqueued; // a new preset mostly comes with its filters: once is enough
    const auto collect = [&sets](const KXRef<KXManagedObject> &object) {
        if (const auto set = KXFilterSet::filterSetOfObject(object))
            sets.insert(set->objectID().URIRepresentation());
    };
    const auto insert = [&](const KXRef<KXManagedObject> &object) {
        if (!alive)
            return;
        if (const auto preset = KXFilterSetPreset::cast(object)) {
            enqueueCountsOperationForPreset(preset);
            enqueued.insert(preset);
        } else {
            collect(object);
        }
    };
    for (const auto *list : { &did->updated, &did->refreshed })
        std::for_each(list->begin(), list->end(), collect);
    std::for_each(did->inserted.begin(), did->inserted.end(), insert);
    if (const KXStoreChange *others = alive ? did->merged.get() : nullptr) {
        // What another context saved of objects that are not in memory is named by keys alone.
        const auto coordinator = m_context->persistentStoreCoordinator();
        const auto isOf = [&](const KXEntityChange &change, QLatin1StringView root) {
            return change.entity->isKindOf(coordinator->model()->entity(root));
        };
        for (const KXEntityChange &change : others->entities()) {
            const bool ofPresets = isOf(change, KXFilterSetPreset::entityName);
            if (!ofPresets && !isOf(change, KXFilter::entityName) && !isOf(change, KXFilterSet::entityName)
                && !isOf(change, KXFacetFilterValue::entityName))
                continue;
            const auto object = [&](qint64 key) {
                return m_context->objectWithID(KXManagedObjectID(coordinator->store()->identity(), change.entity, key));
            };
            for (const qint64 key : alive ? change.inserted : QList<qint64>())
                insert(object(key));
            for (const KXRowChange &row : alive && !ofPresets ? change.updated : std::vector<KXRowChange>())
                collect(object(row.key));
        }
    }
    if (!alive || sets.isEmpty())
        return;
    const auto ofSets = KXPredicate::predicateWithFormat("filterSetURI IN %@", sets);
    for (const auto &preset : KXFilterSetPreset::findUsingPredicate(ofSets, *m_context)) {
        if (alive && !enqueued.contains(preset))
            enqueueCountsOperationForPreset(preset);
    }
}

void KXFilterSetPresetCountsScheduler::managedObjectContextDidSave()
{
    // Those that still wait will read what was saved.
    const auto alive = m_alive.watch();
    for (const KXRef<KXFilterSetPreset> &preset : std::exchange(m_countedBeforeSave, {})) {
        if (alive)
            enqueueCountsOperationForPreset(preset);
    }
}

QTimer *KXFilterSetPresetCountsScheduler::countUpdatesScheduleTimer() const { return m_timer; }
void KXFilterSetPresetCountsScheduler::setCountUpdatesScheduleTimer(QTimer *timer) { m_timer = timer; }
