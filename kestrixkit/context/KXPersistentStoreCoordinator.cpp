#include <kestrixkit/context/KXPersistentStoreCoordinator.h>

#include <deque>
#include <mutex>
#include <thread>

#include <kestrixkit/foundation/KXApplication.h>
#include <kestrixkit/foundation/KXBundle.h>
#include <kestrixkit/foundation/KXFileManager.h>
#include <kestrixkit/foundation/KXLock_p.h>
#include <kestrixkit/foundation/KXLog.h>
#include <kestrixkit/foundation/KXMainThreadDictionary.h>
#include <kestrixkit/foundation/KXRunCaught_p.h>
#include <kestrixkit/foundation/KXStringWithFormat.h>
#include <kestrixkit/migration/KXStoreMigration_p.h>
#include <kestrixkit/store/KXPersistentStore.h>
#include <kestrixkit/store/KXPersistentStore_p.h>

using namespace Qt::StringLiterals;

/// The queue of committed saves and those who listen. Shared with the tokens, which may outlive the coordinator.
struct KXPersistentStoreCoordinator::Feed
{
    struct Observer
    {
        ChangeObserver function;
        // Held during a call, so that the token's end can wait for it; recursive, as an observer may save.
        std::recursive_mutex calling;
        bool ended = false;
    };
    KXMutex mutex;
    std::vector<std::shared_ptr<Observer>> observers KX_GUARDED_BY(mutex);
    std::deque<std::shared_ptr<const KXStoreChange>> queue KX_GUARDED_BY(mutex);
    bool delivering KX_GUARDED_BY(mutex) = false;
    quint64 lastSerial KX_GUARDED_BY(mutex) = 0;
};

namespace {

std::unique_ptr<KXPersistentStorePrivate> coordinatorOpenMigrating(
    const QString &path, const KXManagedObjectModel::Ref &model, KXError &error)
{
    const QUrl url = QUrl::fromLocalFile(path);
    KXError problem;
    auto store = KXPersistentStorePrivate::open(url, model, {}, &problem);
    if (problem.code() == KXStoreErrorCode::IncompatibleModel) {
        KXError migration = KXStoreMigration::migrateInPlace(path, model);
        problem = {};
        if (migration)
            problem = migration;
        else
            store = KXPersistentStorePrivate::open(url, model, {}, &problem);
    }
    error = problem;
    return store;
}

}

KXPersistentStoreCoordinator::KXPersistentStoreCoordinator(
    KXManagedObjectModel::Ref model, std::unique_ptr<KXPersistentStore> store)
    : m_model(std::move(model))
    , m_store(std::move(store))
    , m_feed(std::make_shared<Feed>())
{
}

KXPersistentStoreCoordinator::~KXPersistentStoreCoordinator() = default;

QString KXPersistentStoreCoordinator::storePathForName(const QString &name)
{
    const QString folder = KXFileManager::applicationSupportFolderPath();
    return folder.isEmpty() ? QString() : folder + u'/' + name;
}

KXPersistentStoreCoordinator::Ref KXPersistentStoreCoordinator::persistentStoreCoordinatorWithName(const QString &name)
{
    static std::mutex opening;
    // Presenting may wait for the user, here as well as below: it happens without the lock.
    const QString path = storePathForName(name);
    KXError error;
    Ref coordinator;
    {
        const std::lock_guard lock(opening);
        const KXManagedObjectModel::Ref model = KXManagedObjectModel::managedObjectModel();
        std::unique_ptr<KXPersistentStorePrivate> store;
        if (!model)
            error = KXError(KXKestrixKitErrorDomain, KXStoreErrorCode::CannotOpen, u"There is no object model"_s);
        else if (!path.isEmpty()) // else the missing folder has been presented already
            store = coordinatorOpenMigrating(path, model, error);
        coordinator.reset(new KXPersistentStoreCoordinator(
            model, store ? std::make_unique<KXPersistentStore>(std::move(store)) : nullptr));
        KXMainThreadDictionary::setValue(KLNSPersistentStoreCoordinatorMainThreadKey, coordinator);
    }
    if (error) {
        KXLogError(store, "Failed to create Persistent Store - %@", error.localizedDescription());
        KXApplication::presentError(error);
        KXApplication::terminate();
    }
    return coordinator;
}

KXPersistentStoreCoordinator::Ref KXPersistentStoreCoordinator::persistentStoreCoordinator()
{
    return KXMainThreadDictionary::get<Ref>(KLNSPersistentStoreCoordinatorMainThreadKey);
}

KXPersistentStoreCoordinator::Ref KXPersistentStoreCoordinator::persistentStoreCoordinatorWithStoreURL(
    const QUrl &url, const QList<const KXBundle *> &mergedModelFromBundles, const QString &configuraton, KXError *error)
{
    Q_UNUSED(configuraton)
    KXError problem;
    const auto model = KXManagedObjectModel::mergedModelFromBundles(mergedModelFromBundles, &problem);
    if (!model) {
        KXLogError(store, "Failed to create Persistent Store - %@", problem.localizedDescription());
        KXSetError(error, problem);
        return nullptr;
    }
    const auto coordinator = [&](std::unique_ptr<KXPersistentStorePrivate> store) {
        return Ref(new KXPersistentStoreCoordinator(model, std::make_unique<KXPersistentStore>(std::move(store))));
    };
    if (auto store = KXPersistentStorePrivate::open(url, model, {}, &problem))
        return coordinator(std::move(store));
    const auto fail = [&](const char *format, const auto &subject) {
        KXLogError(store, format, subject);
        KXSetError(error, problem);
        return nullptr;
    };
    if (problem.code() != KXStoreErrorCode::IncompatibleModel)
        return fail("Failed to create Persistent Store - %@", problem.localizedDescription());
    const auto metadata = KXPersistentStore::metadataForStoreURL(url, &problem);
    if (!metadata)
        return fail("Failed to load store metadata - %@", problem.localizedDescription());
    const auto source = KXManagedObjectModel::mergedModelFromBundles(mergedModelFromBundles, *metadata);
    if (!source)
        return fail("Failed to determine source model for migration - %@", url);
    if (migrateURL(url, source, model, &problem)) {
        if (auto store = KXPersistentStorePrivate::open(url, model, {}, &problem)) {
            if (error)
                *error = {};
            return coordinator(std::move(store));
        }
    }
    return fail("Failed to migrate store - %@", problem);
}

KXPersistentStoreCoordinator::Ref KXPersistentStoreCoordinator::persistentStoreCoordinatorWithStoreURL(
    const QUrl &url, const KXManagedObjectModel::Ref &model, KXError *error, const QByteArray &vfs)
{
    KXError problem;
    auto store = KXPersistentStorePrivate::open(url, model, vfs, &problem);
    if (!store) {
        KXLogError(store, "Failed to create Persistent Store - %@", problem.localizedDescription());
        KXSetError(error, problem);
        return nullptr;
    }
    return Ref(new KXPersistentStoreCoordinator(model, std::make_unique<KXPersistentStore>(std::move(store))));
}

KXManagedObjectID KXPersistentStoreCoordinator::managedObjectIDForURIRepresentation(const QUrl &uri) const
{
    return m_store ? KXManagedObjectID::identifierForURIRepresentation(uri, m_store->identity()) : KXManagedObjectID();
}

KXPersistentStoreCoordinator::ChangeToken KXPersistentStoreCoordinator::addChangeObserver(ChangeObserver observer)
{
    auto entry = std::make_shared<Feed::Observer>();
    entry->function = std::move(observer);
    const KXMutexLocker lock(m_feed->mutex);
    m_feed->observers.push_back(entry);
    return ChangeToken(entry.get(), [feed = m_feed, entry](void *) {
        {
            const KXMutexLocker inner(feed->mutex);
            std::erase(feed->observers, entry);
        }
        const std::lock_guard running(entry->calling);
        entry->ended = true;
    });
}

quint64 KXPersistentStoreCoordinator::lastSerialNumber() const
{
    const KXMutexLocker lock(m_feed->mutex);
    return m_feed->lastSerial;
}

std::shared_ptr<const KXStoreChange> KXPersistentStoreCoordinator::enqueueChange(
    const void *originatingContext, std::vector<KXEntityChange> entities, qint64 numberBefore, qint64 numberAfter)
{
    const KXMutexLocker lock(m_feed->mutex);
    auto change = std::make_shared<const KXStoreChange>(
        m_store->identity(), ++m_feed->lastSerial, originatingContext, std::move(entities), numberBefore, numberAfter);
    m_feed->queue.push_back(change);
    return change;
}

void KXPersistentStoreCoordinator::deliverChanges()
{
    // One thread at a time delivers, whatever the others have queued included: that keeps the order, and a saver
    // never waits for an observer that another one is calling.
    KXMutexLocker lock(m_feed->mutex);
    if (m_feed->delivering)
        return;
    m_feed->delivering = true;
    while (!m_feed->queue.empty()) {
        const auto change = m_feed->queue.front();
        m_feed->queue.pop_front();
        const auto observers = m_feed->observers;
        lock.unlock();
        for (const auto &observer : observers) {
            const std::lock_guard calling(observer->calling);
            if (observer->ended)
                continue;
            KXRunCaught("an observer of saves", [&] { observer->function(change); });
        }
        lock.lock();
    }
    m_feed->delivering = false;
}

bool KXPersistentStoreCoordinator::backupPersistentStores(KXError *error)
{
    if (!m_store)
        return KXSetError(error, KXPersistentStorePrivate::notOpen());
    const KXStoreConnections::Writer held = KXPersistentStorePrivate::of(*m_store).connections.writer(false);
    return m_store->createBackup({}, error);
}
