#pragma once

#include <functional>
#include <memory>

#include <QList>
#include <QUrl>

#include <kestrixkit/entity/KXManagedObjectID.h>
#include <kestrixkit/foundation/KXError.h>
#include <kestrixkit/model/KXManagedObjectModel.h>
#include <kestrixkit/store/KXPersistentStore.h>
#include <kestrixkit/store/KXStoreChange.h>

class KXBundle;
class KXPersistentStore;

/// Key of the coordinator opened by name in KXMainThreadDictionary.
inline constexpr QLatin1StringView KLNSPersistentStoreCoordinatorMainThreadKey {
    "KLNSPersistentStoreCoordinatorMainThreadKey"
};

/// An open store and its model: what contexts stand on. Any thread; held by shared_ptr, also by each of its contexts.
///
/// A coordinator whose store could not be opened by name has none: its contexts fetch nothing, insert nothing and
/// fail to save, each with an error. Whatever opens a store logs where the accessors of registered classes do not fit
/// the model: see registerEntity().
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
    /// coordinator in place of an earlier one. A store of another model is migrated in place, by what can be inferred
    /// from the model that it was written with; nothing of the old file is kept. On failure the error is logged and
    /// presented and the application asked to terminate; the coordinator, without store, is registered all the same.
    static Ref persistentStoreCoordinatorWithName(const QString &name);

    /// The coordinator that persistentStoreCoordinatorWithName() registered last; nullptr before.
    [[nodiscard]] static Ref persistentStoreCoordinator();

    /// Opens or makes the store at the URL with the merged models of the bundles (the main bundle's where the list is
    /// empty). A store of another model of these bundles is migrated by migrateURL() first, which keeps the old file.
    /// nullptr, a log line and an error where that fails; nothing is presented.
    /// A model has one configuration, so the name is not used.
    static Ref persistentStoreCoordinatorWithStoreURL(const QUrl &url,
        const QList<const KXBundle *> &mergedModelFromBundles, const QString &configuraton = {},
        KXError *error = nullptr);
    /// Opens or makes the store with a model at hand, and refuses stores of other models (code 134100). `vfs` names a
    /// registered SQLite VFS, for tests of failing disks.
    static Ref persistentStoreCoordinatorWithStoreURL(
        const QUrl &url, const KXManagedObjectModel::Ref &model, KXError *error = nullptr, const QByteArray &vfs = {});

    /// The same for a host whose model changes from version to version: a store of an older model is migrated by
    /// migrateURL() first, which keeps the old file beside it. Refused (code 134100) where something would be lost by
    /// that, as when a newer version of the host has written the store.
    static Ref persistentStoreCoordinatorByMigratingStoreURL(
        const QUrl &url, const KXManagedObjectModel::Ref &model, KXError *error = nullptr);

    /// Migrates a store that nobody has open from the one model to the other, with an inferred mapping. The old store
    /// is kept beside it, as "name-UNIQUE.extension", and never deleted.
    ///
    /// False where no mapping can be inferred or somebody has the store open, which leaves it alone; where the
    /// migration itself fails the store is at its other name all the same, which the log tells, and nothing is at the
    /// URL. A migration that ends with the process is finished or taken back when the store is opened next.
    static bool migrateURL(const QUrl &url, const KXManagedObjectModel::Ref &sourceModel,
        const KXManagedObjectModel::Ref &destinationModel, KXError *error = nullptr);
    static bool migrateURL(const QUrl &url, const KXManagedObjectModel::Ref &sourceModel,
        const KXManagedObjectModel::Ref &destinationModel, const KXStoreProgress &progress, KXError *error);

    /// Migrates a store that nobody has open from model to model of the main bundle, by its mapping-model files, until
    /// it fits the last; each step keeps the store before it, as "UNIQUE.model.extension". True where it fits already
    /// and where there is no file. False with code 8001, and the store as it was, where the bundle has no models or no
    /// mappings that lead there. Throws KXException where the bundle has no model that the store was written with.
    static bool progressivelyMigrateURL(
        const QUrl &url, const QString &ofType, const KXManagedObjectModel::Ref &toModel, KXError *error = nullptr);

    /// Makes today's backup of the store, see KXPersistentStore::createBackup(). Saves wait meanwhile, reading goes on.
    /// False and an error where none was made, because there is one already (code BackupExists) or because it failed.
    bool backupPersistentStores(KXError *error = nullptr);

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
    std::shared_ptr<const KXStoreChange> enqueueChange(
        const void *originatingContext, std::vector<KXEntityChange> entities, qint64 numberBefore, qint64 numberAfter);
    void deliverChanges();

private:
    struct Feed;
    KXPersistentStoreCoordinator(KXManagedObjectModel::Ref model, std::unique_ptr<KXPersistentStore> store);

    KXManagedObjectModel::Ref m_model;
    std::unique_ptr<KXPersistentStore> m_store;
    std::shared_ptr<Feed> m_feed;
};
