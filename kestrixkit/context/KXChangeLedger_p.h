#pragma once

#include <bitset>
#include <unordered_map>
#include <vector>

#include <kestrixkit/context/KXContextHold_p.h>
#include <kestrixkit/context/KXObjectAccess_p.h>
#include <kestrixkit/context/KXObjectsDidChange.h>

/// One bit for each property of an entity.
using KXPropertySet = std::bitset<KXEntityDescription::MostProperties>;

/// What is unsaved in a context, and what of it was not announced yet.
///
/// The only writer of an object's state, by transitions. Each has the states that it may begin from; checking builds
/// end the process where one begins from another. The ledger holds what it names, so that nothing unsaved is lost. It
/// tells nobody and records nothing: that is for the callers. Of the context's thread.
class KX_CORE_EXPORT KXChangeLedger
{
public:
    explicit KXChangeLedger(KXObjectKeeper &keeper)
        : m_keeper(keeper)
    {
    }
    Q_DISABLE_COPY_MOVE(KXChangeLedger)

    /// Of a stored object, or of an inserted one that was announced.
    struct Change
    {
        KXContextHold object;
        bool isStored = false; ///< the object has a row: it is no inserted one
        /// The values of that row, once a column was edited: until then the object has them itself.
        KXRowValues::Owner before;
        KXPropertySet changed; ///< since the last save
        KXPropertySet unannounced; ///< since the last objects-did-change
    };
    using Changes = std::unordered_map<KXManagedObject *, Change>;

    // What is unsaved.

    [[nodiscard]] bool isEmpty() const { return m_inserted.empty() && m_deleted.empty() && m_changes.empty(); }
    /// In order; those that were deleted since are still among them, but no longer isInserted().
    [[nodiscard]] const std::vector<KXContextHold> &insertions() const { return m_inserted; }
    /// In order; those that were never stored included.
    [[nodiscard]] const std::vector<KXContextHold> &deletions() const { return m_deleted; }
    /// Those of deleted objects included, which are no longer isUpdated().
    [[nodiscard]] const Changes &changes() const { return m_changes; }
    /// nullptr where nothing of it was changed.
    [[nodiscard]] const Change *changeOf(const KXManagedObject *object) const;
    /// The values that an object with unsaved changes had when it was last read, saved or merged; nullptr for others.
    /// To be read at once: those of an object of which members alone changed are its own.
    [[nodiscard]] const KXRowValues *storedValues(const KXManagedObject *object) const
    {
        const Change *change = changeOf(object);
        if (!change || !change->isStored)
            return nullptr;
        return change->before ? change->before.get() : KXObjectAccess::values(object);
    }
    [[nodiscard]] bool isChanged(const KXManagedObject *object, const KXPropertyDescription &property) const
    {
        const Change *change = changeOf(object);
        return change && change->changed.test(size_t(property.index()));
    }
    /// The version that the first save gives the row of an inserted object: of one that had a row before, the next.
    [[nodiscard]] qint64 firstVersion(qint64 key) const;

    // Transitions.

    /// A new object, with its values.
    void inserted(const KXRef<KXManagedObject> &object);
    /// Before a property changes. Nothing for a deleted object, which keeps what it has, and for one that was not
    /// announced yet, which is written and announced whole.
    void edited(KXManagedObject *object, int property)
    {
        using Access = KXObjectAccess;
        constexpr unsigned isNew = Access::Inserted | Access::InsertPending;
        if ((Access::state(object) & (Access::Deleted | isNew)) != isNew)
            editedKnown(object, property);
    }
    void deleted(const KXRef<KXManagedObject> &object);
    /// Takes back a deletion. Where that was saved, the object is in the context again as one that is to be inserted;
    /// its values are the caller's to restore.
    void revived(const KXRef<KXManagedObject> &object);
    /// Inserted or updated, it is stored now. Answers a hold on it.
    KXContextHold saved(KXManagedObject *object);
    /// Forgets unsaved changes of a stored object, its deletion included; its values are the caller's to restore.
    void restored(KXManagedObject *object);
    /// Its row is there (again).
    void found(KXManagedObject *object)
    {
        if (KXObjectAccess::state(object) & KXObjectAccess::Missing)
            foundAgain(object);
    }
    /// The object has no row (any more), and no unsaved changes.
    void missed(KXManagedObject *object);
    /// It leaves the context for good, because its row is gone: by its saved deletion or by somebody else's doing.
    /// Unsaved changes go with it. To be called while it has its values.
    void vanished(KXManagedObject *object);
    /// It leaves the context with what it knows; what is unsaved of it was taken out before.
    void detached(KXManagedObject *object);
    /// The same for one that was in none.
    void detached(KXManagedObject *object, std::shared_ptr<const KXStoreIdentity> store);

    // For a save.

    /// Drops from the insertions those that were saved or deleted.
    void dropSettledInsertions();
    /// The oldest so many, which are deletions no longer.
    [[nodiscard]] std::vector<KXContextHold> takeDeletions(size_t count);
    /// Notes the last version of a row that is gone and that an undo may bring back: it goes on from there, so that
    /// nobody takes what was saved of its former life for news.
    void noteFormerVersion(qint64 key, qint64 version) { m_formerVersions[key] = version; }

    // For a merge.

    /// What another one saved of a column is stored now; an unsaved edit is from now on one of that.
    void rebase(KXManagedObject *object, const KXPropertyDescription &property, const QVariant &stored);

    // For announcing.

    [[nodiscard]] bool isUnannounced(const KXManagedObject *object) const
    {
        const Change *change = changeOf(object);
        return change && change->unannounced.any();
    }
    /// What changed since the last call.
    [[nodiscard]] KXObjectsDidChange takeAnnouncements();
    /// Nobody is there to be told of it.
    void dropAnnouncements();

    // For a rollback.

    struct Unsaved
    {
        std::vector<KXContextHold> announcements;
        std::vector<KXContextHold> inserted;
        std::vector<KXContextHold> deleted;
        Changes changes;
    };
    /// All of it; the objects' states are the caller's to settle, by detached() and restored().
    [[nodiscard]] Unsaved takeAll();

private:
    enum class Transition;
    enum class Announcement { None, Deletion, Insertion, Update };
    Announcement settleAnnouncement(KXManagedObject *object, KXPropertySet &keys);
    static void check(Transition transition, KXManagedObject *object);
    void editedKnown(KXManagedObject *object, int property);
    void foundAgain(KXManagedObject *object);

    KXObjectKeeper &m_keeper;
    std::vector<KXContextHold> m_inserted;
    std::vector<KXContextHold> m_deleted;
    Changes m_changes;
    std::vector<KXContextHold> m_announcements; // whatever changed since the last objects-did-change, in order
    struct
    {
        const KXEntityDescription *entity = nullptr;
        KXPropertySet keys;
        QSet<QString> names;
    } m_alike; // what was told of last: most objects change alike, and share the names of what did
    std::unordered_map<qint64, qint64> m_formerVersions; // by key
};
