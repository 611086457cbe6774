#pragma once

#include <functional>
#include <memory>

#include <QList>
#include <QUrl>

#include <kestrixkit/foundation/KXError.h>
#include <kestrixkit/store/KXManagedObjectID.h>
#include <kestrixkit/store/KXManagedObjectModel.h>
#include <kestrixkit/store/KXStoreChange.h>

class KXBundle;
class KXPersistentStore;

/// Key of the coordinator opened by name in KXMainThreadDictionary.
inline constexpr QLatin1StringView KLNSPersistentStoreCoordinatorMainThreadKey { "KLNSPersistentStoreCoordinatorMainThreadKey" };

/// An open store and its model: what contexts stand on. Any thread; held by shared_ptr, also by each of its contexts.
///
/// A coordinator whose store could not be opened by name has none: its contexts fetch nothing, insert nothing and
/// fail to save, each with an error.
class KX_CORE_EXPORT KXPersistentStoreCoordinator : public std::enable_shared_from_this<KXPersistentStoreCoordinator>
{
public:
    using Ref = std::shared_ptr<KXPersistentStoreCoordinator>;
    using ChangeObserver = std::function<void(const std::shared_ptr<const KXStoreChange> &)>;
    /// Ends a subscription when it goes; made by addChangeObserver().
    using ChangeToken = std::shared_ptr<void>;

    ~KXPersistentStoreCoordinator();

    /// The support folder of the application, then the name. Empty where the folder cannot be made.
    [[nodiscard]] static QString storePathForName(const QString &name);

    /// Opens or makes the store of that name in the support folder with the shared model, and registers the
    /// coordinator in place of an earlier one. On failure the error is logged and presented and the application
    /// asked to terminate; the coordinator, without store, is registered all the same.
    static Ref persistentStoreCoordinatorWithName(const QString &name);

    /// The coordinator that persistentStoreCoordinatorWithName() registered last; nullptr before.
    [[nodiscard]] static Ref persistentStoreCoordinator();

    /// Opens or makes the store at the URL with the merged models of the bundles (the main bundle's where the list is
    /// empty). nullptr, a log line and an error where that fails; nothing is presented and the file is left as it was.
    /// A model has one configuration, so the name is not used.
    static Ref persistentStoreCoordinatorWithStoreURL(const QUrl &url, const QList<const KXBundle *> &mergedModelFromBundles,
        const QString &configuraton = {}, KXError *error = nullptr);
    /// The same with a model at hand. `vfs` names a registered SQLite VFS, for tests of failing disks.
    static Ref persistentStoreCoordinatorWithStoreURL(const QUrl &url, const KXManagedObjectModel::Ref &model, KXError *error = nullptr,
        const QByteArray &vfs = {});

    [[nodiscard]] const KXManagedObjectModel::Ref &model() const { return m_model; }
    /// nullptr where opening failed.
    [[nodiscard]] KXPersistentStore *store() const { return m_store.get(); }

    /// The identifier that a URI names: a null one where the URI is not of this store or names no entity of the model.
    /// Whether the row exists is not looked up.
    [[nodiscard]] KXManagedObjectID managedObjectIDForURIRepresentation(const QUrl &uri) const;

    /// Calls the function with every committed save, in order of serial numbers, on a thread that is saving.
    /// It must not block, and may save itself. When the token goes, a call that runs on another thread is waited for.
    [[nodiscard]] ChangeToken addChangeObserver(ChangeObserver observer);

    /// Of the newest save; 0 before the first.
    [[nodiscard]] quint64 lastSerialNumber() const;

    /// For the framework: numbers and queues the change while the caller still holds the writer, so that order is that
    /// of the commits; deliverChanges() then calls the observers, without the writer.
    std::shared_ptr<const KXStoreChange> enqueueChange(const void *originatingContext, std::vector<KXEntityChange> entities);
    void deliverChanges();

private:
    struct Feed;
    KXPersistentStoreCoordinator(KXManagedObjectModel::Ref model, std::unique_ptr<KXPersistentStore> store);

    KXManagedObjectModel::Ref m_model;
    std::unique_ptr<KXPersistentStore> m_store;
    std::shared_ptr<Feed> m_feed;
};
