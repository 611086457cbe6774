#pragma once

#include <set>
#include <tuple>
#include <vector>

#include <kestrixkit/context/KXManagedObjectContext_p.h>
#include <kestrixkit/store/KXStoreChange.h>
#include <kestrixkit/store/KXStoreSchema_p.h>

class KXContextMerger;

/// One save under way. Nothing of the context changes before the transaction was committed.
class KXContextSaver
{
public:
    explicit KXContextSaver(KXManagedObjectContextPrivate &context)
        : m_context(context)
    {
    }

    /// Whether there is anything to save.
    bool collect();
    KXError validate();
    KXError write(KXSQLiteConnection &connection);
    [[nodiscard]] std::vector<KXEntityChange> takeChanges() { return std::move(m_changes); }
    /// Of the store, once the save was written.
    [[nodiscard]] const KXStoreSchema::ChangeNumbers &changeNumbers() const { return m_changeNumbers; }
    /// Makes the changes unsaved changes of the parent context, instead of writing them: KXContextChild.cpp.
    void pass(KXManagedObjectContextPrivate &parent, KXContextMerger &others);
    /// Makes what was committed the state of the context. What somebody else's saves had to do with it is taken over,
    /// and is told when the caller has it told.
    void finish(KXContextMerger &others);

private:
    /// An updated object and what becomes of it.
    struct Update
    {
        KXManagedObject *object;
        const KXChangeLedger::Change *change;
        qint64 version = 0; ///< of the row once it is written; 0: no column changes
        bool vanished = false; ///< somebody deleted the row
        KXRowValues::Owner stored; ///< the row as somebody else left it, where both had changed it
        KXRowValues::Owner merged; ///< that with our changes
    };

    /// A to-one relationship with an inverse that was written.
    struct Link
    {
        const KXEntityDescription *entity;
        const KXPropertyDescription *property;
        qint64 key;
        qint64 other;
    };
    struct Row
    {
        const KXEntityDescription *entity;
        qint64 key;
    };
    /// Which rows lead to a row by a to-one relationship.
    struct Referrer
    {
        QByteArray sql; ///< key and entity's number
        const KXEntityDescription *root;
        QString property;
    };
    /// What the deletion of an entity's row does to other rows.
    struct Deletion
    {
        QByteArray row;
        QByteArrayList joins;
        std::vector<Referrer> referrers;
    };

    // Reading what is to be written, and writing it: KXContextSave.cpp.
    KXError validateObject(const KXManagedObject &object);
    KXError writeInserted(KXSQLiteConnection &connection);
    KXError writeUpdated(KXSQLiteConnection &connection, Update &update);
    KXError settleConflict(
        KXSQLiteConnection &connection, Update &update, std::vector<const KXPropertyDescription *> &columns);
    KXError writeJoins(KXSQLiteConnection &connection, KXManagedObject &object);

    // Rows that go: KXContextSaveDeletions.cpp.
    KXError writeDeleted(KXSQLiteConnection &connection);
    [[nodiscard]] Deletion deletionOf(const KXEntityDescription &entity) const;
    [[nodiscard]] static Referrer referrerBy(const KXPropertyDescription &property, const KXEntityDescription &of);
    KXError findReferrers(
        KXSQLiteConnection &connection, const Referrer &referrer, qint64 key, std::vector<Row> &found) const;
    KXError followReferrers(KXSQLiteConnection &connection, const Deletion &deletion, qint64 key);

    // Links that others have to do with: KXContextSaveLinks.cpp.
    KXError breakCircles(KXSQLiteConnection &connection);
    KXError settleLinks(KXSQLiteConnection &connection);
    KXError overrule(KXSQLiteConnection &connection, const KXEntityDescription &entity,
        const KXPropertyDescription &property, qint64 key, qint64 value);
    [[nodiscard]] Update *updateOf(const KXEntityDescription &entity, qint64 key);

    // What others are told, and what becomes of the context: KXContextSaveFinish.cpp.
    [[nodiscard]] bool isWrittenByMember(
        const KXPropertyDescription &property, qint64 key, qint64 member, bool add) const;
    void noteUpdate(const Update &update);
    void noteVoid(const KXPropertyDescription &property, qint64 key, qint64 other);
    KXEntityChange &changeOf(const KXEntityDescription *entity);
    void settleMembers(KXManagedObject *object);
    [[nodiscard]] std::vector<KXContextHold> settleLedger(KXContextMerger &others);
    void takeMerged(const Update &update, KXContextMerger &others);

    KXManagedObjectContextPrivate &m_context;
    std::vector<KXManagedObject *> m_inserted;
    std::vector<Update> m_updated;
    std::vector<KXManagedObject *> m_deleted; // stored ones only
    size_t m_deletions = 0; // of the context's, those that were never stored included
    std::vector<KXEntityChange> m_changes;
    KXStoreSchema::ChangeNumbers m_changeNumbers;
    /// Members of to-many relationships that came or went here, but not in the store: somebody else was first. Index of
    /// the property, key of its object, key of the member; keys are unique among all entities.
    std::set<std::tuple<int, qint64, qint64>> m_void;
    std::vector<Link> m_links;
    std::vector<Link> m_moves; // links of acyclic relationships that were changed; `other` is what they were before
    std::unordered_map<qint64, qint64> m_gone; // deleted rows' last versions, where an undo may bring them back
    std::vector<Row> m_doomed; // rows to be deleted, those that delete rules reach in the store included
    std::vector<std::pair<KXManagedObject *, KXRowChange>> m_overruled; // of inserted objects
    std::vector<KXRowChange> m_foreign; // what became of rows that the context had not changed
    KXRowTexts m_texts;
    QByteArray m_update; // of these columns
    std::vector<const KXPropertyDescription *> m_writtenColumns;
};
