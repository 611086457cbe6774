#pragma once

#include <list>
#include <map>
#include <memory>
#include <span>
#include <thread>
#include <unordered_map>
#include <vector>

#include <kestrixkit/context/KXContextHold_p.h>
#include <kestrixkit/context/KXContextRecorder_p.h>
#include <kestrixkit/context/KXIdentityMap_p.h>
#include <kestrixkit/context/KXManagedObjectContext.h>
#include <kestrixkit/entity/KXRowValues_p.h>
#include <kestrixkit/foundation/KXMainQueue.h>
#include <kestrixkit/store/KXPersistentStore_p.h>

/// Values that change together: whoever observes them is told when all are in place, and finds, and may change, a
/// context that is settled.
class KXChangesTogether
{
public:
    /// To be called before the change, which the caller makes.
    void willSet(KXManagedObject *object, const KXPropertyDescription &property);
    /// The object must be observed.
    void willLink(
        KXManagedObject *object, const KXPropertyDescription &property, const KXRef<KXManagedObject> &member, bool add);
    void tell();

private:
    struct Announced
    {
        KXRef<KXManagedObject> object;
        const KXPropertyDescription *property;
        KXChangeKind kind;
        QVariantList gone;
        QVariantList come;
    };
    std::vector<Announced> m_announced;
};

/// What a context consists of: the objects it holds, what is unsaved of them, and how they are read and written.
class KXManagedObjectContextPrivate
{
public:
    KXManagedObjectContextPrivate(KXManagedObjectContext *context, KXPersistentStoreCoordinator::Ref storeCoordinator,
        KXManagedObjectContext::Ref parentContext);
    ~KXManagedObjectContextPrivate();

    /// The calling thread must be the context's (in checking builds).
    void checkThread() const;
    [[nodiscard]] QString description() const;
    [[nodiscard]] static KXError notOpen();
    /// Throws KXException for a name that the model does not have.
    [[nodiscard]] const KXEntityDescription &entity(const QString &name) const;

    // Objects in memory: KXManagedObjectContext.cpp.

    [[nodiscard]] KXManagedObject *registered(qint64 key) const { return objects.find(key); }
    /// The object of the key, made as a fault where the context does not hold it. Of a family the entity is read
    /// from the row; empty where there is no row then.
    [[nodiscard]] KXRef<KXManagedObject> object(const KXEntityDescription &entity, qint64 key);
    [[nodiscard]] KXRef<KXManagedObject> makeObject(const KXEntityDescription &entity, qint64 key);
    /// Reads the newest rows of those keys whose values are not in memory, making objects where needed. All are then
    /// held for a while.
    void fill(const KXEntityDescription &entity, std::span<const qint64> keys);
    void fillFault(KXManagedObject *object);
    void turnIntoFault(KXManagedObject *object);
    void insertNew(const KXRef<KXManagedObject> &object);
    [[nodiscard]] KXRef<KXManagedObject> makeTemporary(const KXEntityDescription &entity);
    /// Keeps the object until many others were touched.
    void touch(KXManagedObject *object);
    /// The last reference is gone.
    void forget(KXManagedObject *object) { objects.remove(object->m_key, object); }
    /// Puts an object to its key; nobody else may be there.
    void enter(KXManagedObject *object);
    /// The object's row was deleted or never came to be: nothing of the context holds it any more.
    void leave(KXManagedObject *object);
    /// One that turned out to name no row leaves.
    void dismiss(KXManagedObject *object);
    void setObserved(KXManagedObject *object, bool observed);

    // Changes: KXContextChanges.cpp.

    struct Change
    {
        KXContextHold object;
        KXRowValues::Owner before; ///< the stored values; none for an inserted object
        KXPropertySet changed; ///< since the last save
        KXPropertySet unannounced; ///< since the last objects-did-change
    };
    /// The values that an object with unsaved changes had when it was last read, saved or merged; nullptr for others.
    [[nodiscard]] const KXRowValues *storedValues(const KXManagedObject *object) const
    {
        const auto found = changes.find(const_cast<KXManagedObject *>(object));
        return found == changes.end() ? nullptr : found->second.before.get();
    }
    /// The other ends of a relationship without what is unsaved of it.
    [[nodiscard]] std::vector<qint64> storedKeysOf(KXManagedObject *object, const KXPropertyDescription &property);
    /// Whether the relationship may hold the object: one of the context that is not deleted and makes no circle. False
    /// with a log line where the object cannot be held as it is; throws KXException for one that never can.
    [[nodiscard]] bool mayConnect(
        KXManagedObject *object, const KXPropertyDescription &property, KXManagedObject *other);
    /// Whether the object stands above itself once that is the other end of its acyclic relationship.
    [[nodiscard]] bool makesCircle(const KXManagedObject *object, const KXPropertyDescription &property, qint64 above);
    /// To be called before a property of a loaded object changes.
    void willChange(KXManagedObject *object, int property);
    void setToOne(KXManagedObject *object, const KXPropertyDescription &property, KXManagedObject *other);
    void addToMany(KXManagedObject *object, const KXPropertyDescription &property, KXManagedObject *other);
    void removeFromMany(KXManagedObject *object, const KXPropertyDescription &property, KXManagedObject *other);
    /// The relationship with all its members in memory.
    KXToManyKeys &loadedToMany(KXManagedObject *object, const KXPropertyDescription &property);
    [[nodiscard]] bool isMember(KXManagedObject *object, const KXPropertyDescription &property, qint64 key);
    [[nodiscard]] KXRef<KXManagedObject> toOne(const KXManagedObject *object, const KXPropertyDescription &property);
    [[nodiscard]] QList<KXRef<KXManagedObject>> toMany(KXManagedObject *object, const KXPropertyDescription &property);
    /// Keys of the rows at the other end of a relationship, sorted; none of a missing object.
    [[nodiscard]] std::vector<qint64> keysOf(KXManagedObject *object, const KXPropertyDescription &property);
    void remove(KXManagedObject *object);
    void scheduleProcessing();
    void processPendingChanges();
    /// What is pending is told before what comes now: at once, or next where something is being told.
    void settleAnnouncements();
    /// Posts objects-did-change, after whatever is being posted.
    void announce(KXObjectsDidChange did);
    void rollback();
    /// Tells what a property, or a to-many relationship, has become without asking the other end.
    void assign(KXManagedObject *object, const KXPropertyDescription &property, const KXRowValues &from);
    void assignToOne(KXManagedObject *object, const KXPropertyDescription &property, qint64 key);
    void link(KXManagedObject *object, const KXPropertyDescription &property, qint64 key, bool add);
    /// Deletes the object without looking at delete rules or other ends.
    void markDeleted(const KXRef<KXManagedObject> &object);
    /// Brings an object back whose deletion is pending or was saved: the same instance under the same identifier. The
    /// values and members given are those of one whose deletion was saved; another one has kept its own.
    void revive(
        const KXRef<KXManagedObject> &object, const KXRowValues &values, const std::map<int, QSet<qint64>> &members);

    /// What the deletion of an object does to others; those that go with it are appended.
    void followDeleteRules(KXManagedObject *object, std::vector<KXRef<KXManagedObject>> &doomed);
    /// Those at the other ends that still refer to a deleted object do so no more.
    void letGo(KXManagedObject *object);

    // Child contexts: KXContextChild.cpp.

    /// Of a child context: makes the objects of the keys what they are in its parent.
    void fillFromParent(const KXEntityDescription &entity, std::span<const qint64> keys);
    /// The parent's object; empty where it has none or has deleted it.
    [[nodiscard]] KXRef<KXManagedObject> inParent(const KXManagedObject *object);
    /// Nobody holds the object of a child context any more.
    void released();
    /// What the last shared_ptr on a child context does: ends it, or leaves it to those who hold its objects.
    static void abandon(KXManagedObjectContext *context);

    // Merging: KXContextMerge.cpp.

    void mergeChanges(const KXStoreChange &change);
    /// A row of which the context holds the object with its values, and what was saved of it.
    struct HeldRow
    {
        KXRef<KXManagedObject> object;
        const KXRowChange *news;
    };
    [[nodiscard]] std::vector<HeldRow> heldRows(const std::vector<KXEntityChange> &entities) const;
    /// Makes the rows what was saved of them, around the context's own unsaved edits.
    void takeOver(const std::vector<HeldRow> &rows, KXObjectsDidChange &did, KXChangesTogether &together);
    /// Sets a to-one relationship of which the store tells, and what is in memory of its far ends.
    void takeToOne(KXManagedObject *object, const KXPropertyDescription &property, qint64 key, KXObjectsDidChange &did,
        KXChangesTogether &together);
    /// Takes an object whose row is gone out of the relationships of others.
    /// Keys of the other ends as far as they are in memory; 0 among them is nobody.
    [[nodiscard]] static QSet<qint64> knownEnds(const KXManagedObject *object, const KXPropertyDescription &property);
    void leaveMembers(KXManagedObject *object, KXObjectsDidChange &did, KXChangesTogether &together);
    void dropLinks(KXManagedObject *object, KXObjectsDidChange &did, KXChangesTogether &together);
    /// The object's row is gone by somebody else's doing: it leaves the context, unsaved edits included.
    void vanish(const KXRef<KXManagedObject> &object, KXObjectsDidChange &did, KXChangesTogether &together);
    static void noteRefreshed(KXObjectsDidChange &did, KXManagedObject *object, const KXPropertyDescription &property);
    quint64 newestSerial = 0; ///< of the coordinator's saves, those that were merged and the context's own

    // Fetching: KXContextFetch.cpp.

    [[nodiscard]] KXFetchedList fetch(const KXFetchRequest &request, KXError *error);
    [[nodiscard]] qint64 count(const KXFetchRequest &request, KXError *error);

    // Saving: KXContextSave.cpp.

    [[nodiscard]] bool save(KXError *error);

    KXManagedObjectContext *const q;
    const KXPersistentStoreCoordinator::Ref coordinator;
    KXPersistentStorePrivate *const store; ///< nullptr where the coordinator has none
    const KXManagedObjectContext::Ref parent; ///< of a child context
    const std::thread::id thread = std::this_thread::get_id();
    const bool isOfMainThread = KXMainQueue::isMainThread();

    KXIdentityMap<KXManagedObject> objects;
    std::vector<KXContextHold> inserted; ///< in order; those since deleted are no longer flagged so
    std::vector<KXContextHold> deleted;
    std::unordered_map<KXManagedObject *, Change> changes; ///< of stored objects, and of inserted ones once announced

    /// The last versions of rows that are gone and that an undo may bring back: they go on from there, so that nobody
    /// takes what was saved of their former life for news.
    std::unordered_map<qint64, qint64> formerVersions;

    KXContextRecorder recorder { *this };

private:
    [[nodiscard]] bool isHeld();
    [[nodiscard]] std::list<KXRowChange> readAgain(std::vector<HeldRow> &rows, bool isLate);
    void readColumnsAgain(KXManagedObject *object, KXRowChange &news);
    [[nodiscard]] bool isStoredMember(qint64 key, const KXPropertyDescription &property, qint64 other);
    void keepContestedLinks(const std::vector<HeldRow> &rows);
    void keepContestedPartner(
        KXManagedObject *object, const KXPropertyDescription &property, KXChangesTogether &together);
    void breakCircle(KXManagedObject *object, const KXPropertyDescription &property);
    [[nodiscard]] KXObjectsDidChange takeAnnouncements();
    void postAnnouncements();
    [[nodiscard]] KXManagedObject *instantiate(const KXEntityDescription &entity);
    void setDefaults(KXManagedObject *object);
    friend class KXContextSaver;

    std::vector<KXManagedObject::Factory> m_factories; // by the entities' numbers; looked up once
    std::unordered_map<KXManagedObject *, KXRef<KXManagedObject>> m_observed;
    std::vector<KXRef<KXManagedObject>> m_recent; // a ring
    size_t m_recentNext = 0;
    std::vector<KXContextHold> m_announcements; // whatever changed since the last objects-did-change, in order
    std::vector<KXManagedObject *> m_owned; // of a child context: all that it ever made
    size_t m_holder = 0; // place of one of them that somebody held when it was last looked for
    KXManagedObjectContext::Ref m_self; // of a child context that only its objects' holders keep
    std::vector<KXObjectsDidChange> m_toPost; // in order
    bool m_posting = false;
    bool m_processingDue = false;
    bool m_processingScheduled = false;
    const std::shared_ptr<char> m_alive = std::make_shared<char>(); // for calls queued on the main thread
};
