#pragma once

#include <any>
#include <functional>
#include <memory>

#include <QList>
#include <QSet>
#include <QVariantMap>

#include <kestrixkit/context/KXFetchedList.h>
#include <kestrixkit/context/KXManagedObject.h>
#include <kestrixkit/context/KXObjectsDidChange.h>
#include <kestrixkit/context/KXPersistentStoreCoordinator.h>
#include <kestrixkit/entity/KXStoreErrorCode.h>
#include <kestrixkit/foundation/KXError.h>
#include <kestrixkit/foundation/KXNotificationCenter.h>
#include <kestrixkit/predicate/KXFetchRequest.h>

class KXManagedObjectContextPrivate;
class KXUndoManager;
struct KXNotification;

/// Key of the main context in KXMainThreadDictionary.
inline constexpr QLatin1StringView KLNSManagedObjectContextMainThreadKey { "KLNSManagedObjectContextMainThreadKey" };

/// Posted after a save, on the saving thread. Sender: the context; payload: std::shared_ptr<const KXStoreChange>.
inline constexpr QLatin1StringView KXManagedObjectContextDidSaveNotification {
    "KXManagedObjectContextDidSaveNotification"
};

/// A working set of stored objects: in it they are created, fetched, changed and saved.
///
/// Held by shared_ptr. Belongs to the thread that made it; every call is made there (checked in checking builds). One
/// that nobody uses any more may end on another thread, unless it belongs to the main thread. Fetches and counts see
/// the context's unsaved changes. A save is all or nothing, and durable when it returns. Conflicts with other savers
/// end in favour of the store, property by property: what only this context changed is written, what both changed keeps
/// the store's value, and a row that was deleted meanwhile stays deleted.
class KX_CORE_EXPORT KXManagedObjectContext : public std::enable_shared_from_this<KXManagedObjectContext>
{
public:
    using Ref = std::shared_ptr<KXManagedObjectContext>;

    ~KXManagedObjectContext();
    KXManagedObjectContext(const KXManagedObjectContext &) = delete;
    KXManagedObjectContext &operator=(const KXManagedObjectContext &) = delete;

    /// Calls the function each time the context announces what changed, on the context's thread, until the token goes.
    /// An empty token where there is no context.
    [[nodiscard]] static KXNotificationToken onChange(
        const KXManagedObjectContext *context, std::function<void(const KXObjectsDidChange &)> function);

    // Making and finding contexts.

    /// Saves and closes the registered main context, if there is one, opens the store named after the application
    /// and registers a new main context on it. Main thread.
    static Ref setupMainContext();
    /// The registered main context; nullptr before setupMainContext() or setMainContext(). Any thread may ask, only the
    /// main one may use it.
    [[nodiscard]] static Ref mainContext();
    /// Registers a context of the main thread in place of an earlier one, which is neither saved nor closed: for hosts
    /// that open their store themselves. nullptr for none. Throws KXException for a context of another thread. Main
    /// thread.
    static void setMainContext(const Ref &context);
    /// A context of the calling thread; nullptr without coordinator.
    [[nodiscard]] static Ref contextWithPersistentStoreCoordinator(
        const KXPersistentStoreCoordinator::Ref &coordinator);
    /// A context of the main thread on a store of its own; nullptr and an error where the store cannot be opened.
    [[nodiscard]] static Ref contextWithStoreURL(const QUrl &url,
        const QList<const KXBundle *> &mergedModelFromBundles = {}, const QString &configuration = {},
        KXError *error = nullptr);

    /// A child context, for edits that may be thrown away: it sees what the parent sees, unsaved changes included, and
    /// its save makes its changes unsaved changes of the parent. It never writes to the store. An object keeps the
    /// values that it read until it is refreshed; a save goes over what the parent changed meanwhile. It has no undo
    /// manager and merges nothing. Whoever holds one of its objects keeps it, and its edits; it keeps its parent. Used
    /// on the parent's thread; nullptr without parent.
    [[nodiscard]] static Ref contextWithParentContext(const Ref &parentContext);
    /// nullptr for a context that saves into a store.
    [[nodiscard]] const Ref &parentContext() const;

    [[nodiscard]] const KXPersistentStoreCoordinator::Ref &persistentStoreCoordinator() const;

    /// Asks the editors that registered for the context with KXApplication to end their editing; false when one
    /// refuses.
    [[nodiscard]] bool commitEditing() const;

    // Undo.

    /// What the user can take back; contexts of an application's main thread have one, others none until it is set.
    /// Changes are recorded while its registration is on. One that imports very much does better without:
    /// setUndoManager(nullptr).
    [[nodiscard]] KXUndoManager *undoManager() const;
    void setUndoManager(std::shared_ptr<KXUndoManager> manager);

    // Merging.

    /// Takes over another context's save, as the change feed and the did-save notification bring it. Objects that the
    /// context holds take the saved values, but for properties with unsaved edits; deleted ones leave; for inserted
    /// ones no object is made. Announced in one objects-did-change as refreshed and deleted; nothing is recorded for
    /// undo.
    void mergeChangesFromStoreChange(const std::shared_ptr<const KXStoreChange> &change);

    // Saving.

    /// False on failure, which is logged and presented to the user; pending changes then stay for another try.
    /// Without changes nothing is written or posted.
    bool save();
    /// The same, with the error in the slot instead of before the user.
    bool save(KXError *error);
    /// Saves a context other than the main one and has the main context merge it in a later turn, without waiting for
    /// that. False on failure, which is only logged.
    bool saveOnMainThread();
    /// Has the registered main context merge the save that a did-save notification tells of, in the main thread's next
    /// turn. Nothing without main context. Any thread.
    static void managedObjectContextDidSave(const KXNotification &notification);
    [[nodiscard]] bool hasChanges() const;
    [[nodiscard]] QList<KXRef<KXManagedObject>> insertedObjects() const;
    [[nodiscard]] QList<KXRef<KXManagedObject>> updatedObjects() const;
    [[nodiscard]] QList<KXRef<KXManagedObject>> deletedObjects() const;
    /// Forgets all unsaved changes: inserted objects leave, the others take their stored values again. Announced at
    /// once: as deleted and inserted what the last announcements named the other way round, as refreshed the rest.
    void rollback();
    /// Posts objects-did-change for what changed since the last time. A call while it is being posted marks it due.
    void processPendingChanges();

    // Creating and deleting.

    /// A new object of the entity, with its identifier for good. Empty, with a log line and an error, where the store
    /// gives no key (locked, full, read-only). Throws KXException for an unknown entity.
    [[nodiscard]] KXRef<KXManagedObject> managedObjectForEntity(const QString &entityName, KXError *error = nullptr);
    /// An object that is in no context and is never saved.
    [[nodiscard]] KXRef<KXManagedObject> temporaryInstanceOfEntity(const QString &entityName);
    /// Marks the object and whatever its delete rules reach as deleted. Nothing for missing, deleted or temporary
    /// objects.
    void removeManagedObject(KXManagedObject *object);
    void removeManagedObject(const KXRef<KXManagedObject> &object) { removeManagedObject(object.get()); }
    /// All in the order of the list, then those that their rules reach. What these rules look at is read together.
    void deleteObjects(const QList<KXRef<KXManagedObject>> &objects);

    // Fetching and counting. A failure is logged and answers a null list, an empty handle or 0; who gives an error slot
    // finds it there instead. A comparison of a number with a text, or of a date with either, is such a failure (code
    // NotComparable). So is a key that the entity does not have (code UnknownKey); who gives no slot for it gets a
    // KXException (KXUnknownKeyException).

    [[nodiscard]] KXFetchedList fetch(const KXFetchRequest &request, KXError *error = nullptr);
    /// -1 on failure.
    [[nodiscard]] qint64 count(const KXFetchRequest &request, KXError *error = nullptr);
    [[nodiscard]] KXFetchedList fetchAllForEntity(const QString &entityName);
    [[nodiscard]] KXFetchedList fetchForEntity(const QString &entityName, const KXPredicate &usingPredicate);
    [[nodiscard]] KXRef<KXManagedObject> fetchFirstForEntity(
        const QString &entityName, const KXPredicate &usingPredicate);
    [[nodiscard]] qint64 countForEntity(const QString &entityName, const KXPredicate &usingPredicate = {});

    // By a template of the model; an unknown one throws KXException. IDENTIFIER is the identifier given, USER the user
    // default "kestrixUsername" or "*".

    /// -1 on failure, unlike all other counts.
    [[nodiscard]] qint64 countFor(const QVariant &identifier, const QString &usingTemplate);
    [[nodiscard]] qint64 countUsingTemplate(const QString &templateName);
    [[nodiscard]] KXRef<KXManagedObject> fetchFirstUsingTemplate(const QString &templateName);
    [[nodiscard]] KXRef<KXManagedObject> fetchFirstFor(const QVariant &identifier, const QString &usingTemplate);
    [[nodiscard]] KXFetchedList fetchUsingTemplate(
        const QString &templateName, const QVariantMap &variables, KXError *error = nullptr);
    [[nodiscard]] KXFetchedList fetchUsingTemplate(const QString &templateName, const QVariantMap &variables,
        const QString &sortBy, bool ascending, KXError *error = nullptr);
    [[nodiscard]] KXRef<KXManagedObject> fetchFirstUsingTemplate(
        const QString &templateName, const QVariantMap &variables, KXError *error = nullptr);

    // Resolving references.

    /// The object of each URI that names one of this store, in order; the others are skipped. Rows are not looked up.
    [[nodiscard]] QList<KXRef<KXManagedObject>> objectInstancesFromURIRepresentations(const QList<QUrl> &uris);
    /// The objects that still exist in the store, in order.
    [[nodiscard]] QList<KXRef<KXManagedObject>> existingObjectsWithIDs(const QList<KXManagedObjectID> &ids);
    /// The object of the identifier, possibly a fault; empty for a null identifier or one of another store.
    [[nodiscard]] KXRef<KXManagedObject> objectWithID(const KXManagedObjectID &id);
    /// Only where the context holds it already.
    [[nodiscard]] KXRef<KXManagedObject> registeredObjectWithID(const KXManagedObjectID &id) const;
    /// Whether an identifier that lasts could be given to each of the objects. They have one since they were inserted,
    /// so this fails only for objects that are in no context.
    bool obtainPermanentIDsForObjects(const QList<KXRef<KXManagedObject>> &objects, KXError *error = nullptr);
    /// Drops the object's values, so that the next access reads the row again; unsaved changes of it are kept.
    void refreshObject(KXManagedObject *object);

private:
    friend class KXManagedObjectContextPrivate;
    explicit KXManagedObjectContext(KXPersistentStoreCoordinator::Ref coordinator, Ref parent = nullptr);
    std::unique_ptr<KXManagedObjectContextPrivate> m_p;
};
