#pragma once

#include <map>
#include <span>
#include <vector>

#include <kestrixkit/context/KXChangesTogether_p.h>
#include <kestrixkit/context/KXContextAnnouncer_p.h>
#include <kestrixkit/context/KXContextReader_p.h>
#include <kestrixkit/context/KXContextRecorder_p.h>

/// Changes the objects of a context, as the accessors, undo, a merge and a child's save do: with both ends of
/// relationships, delete rules, undo and announcements. Of the context's thread.
class KXContextEditor
{
public:
    KXContextEditor(KXObjectKeeper &keeper, KXWorkingSet &workingSet, KXChangeLedger &ledger, KXContextReader &reader,
        KXContextRecorder &recorder, KXContextAnnouncer &announcer)
        : m_keeper(keeper)
        , m_workingSet(workingSet)
        , m_ledger(ledger)
        , m_reader(reader)
        , m_recorder(recorder)
        , m_announcer(announcer)
    {
    }
    Q_DISABLE_COPY_MOVE(KXContextEditor)

    /// Holds back what observers of keys are to be told of until all ends of a change are settled: they may do as they
    /// like then. Scopes nest, and the outermost tells.
    class Together
    {
    public:
        explicit Together(KXContextEditor &editor);
        ~Together();
        Q_DISABLE_COPY_MOVE(Together)
        /// The last thing to be done: the context may be gone afterwards. Without it nobody is told.
        void tell() { take().tell(); }
        /// What is to be told, for the caller to do it later. Nothing within another scope.
        [[nodiscard]] KXChangesTogether take();

    private:
        KXContextEditor &m_editor;
        KXChangesTogether m_changes;
        bool m_isOutermost;
    };

    // Values and relationships: KXContextEditor.cpp.

    /// To be called before a property of a loaded object changes.
    void willChange(KXManagedObject *object, int property);
    /// Whether the relationship may hold the object: one of the context that is not deleted and makes no circle. False
    /// with a log line where the object cannot be held as it is; throws KXException for one that never can.
    [[nodiscard]] bool mayConnect(
        KXManagedObject *object, const KXPropertyDescription &property, KXManagedObject *other);
    /// Whether the object stands above itself once that is the other end of its acyclic relationship.
    [[nodiscard]] bool makesCircle(const KXManagedObject *object, const KXPropertyDescription &property, qint64 above);
    void setToOne(KXManagedObject *object, const KXPropertyDescription &property, KXManagedObject *other);
    void addToMany(KXManagedObject *object, const KXPropertyDescription &property, KXManagedObject *other);
    void removeFromMany(KXManagedObject *object, const KXPropertyDescription &property, KXManagedObject *other);

    // One end alone, its observers told.

    void assign(KXManagedObject *object, const KXPropertyDescription &property, const KXRowValues &from);
    void assignToOne(KXManagedObject *object, const KXPropertyDescription &property, qint64 key);
    void link(KXManagedObject *object, const KXPropertyDescription &property, qint64 key, bool add);
    void linkEnds(KXManagedObject *object, const KXPropertyDescription &property, KXManagedObject *other, bool add);

    // Coming and going: KXContextDeleting.cpp.

    /// Gives a fault of a new key its default values.
    void insertNew(const KXRef<KXManagedObject> &object);
    static void setDefaults(KXManagedObject *object);
    /// With whatever their delete rules reach.
    void remove(std::vector<KXRef<KXManagedObject>> doomed);
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

private:
    void followToOne(
        KXManagedObject *object, const KXPropertyDescription &property, qint64 before, KXManagedObject *other);
    [[nodiscard]] static bool hasDeletionToFollow(const KXPropertyDescription &property);
    void readForDeletion(std::span<const KXRef<KXManagedObject>> doomed);
    void readForDeletion(const KXEntityDescription &entity, std::span<const KXRef<KXManagedObject>> objects,
        std::span<const qint64> keys);

    KXObjectKeeper &m_keeper;
    KXWorkingSet &m_workingSet;
    KXChangeLedger &m_ledger;
    KXContextReader &m_reader;
    KXContextRecorder &m_recorder;
    KXContextAnnouncer &m_announcer;
    KXChangesTogether *m_together = nullptr; // of the outermost scope
};
