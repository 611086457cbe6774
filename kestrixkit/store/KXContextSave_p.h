#pragma once

#include <set>
#include <tuple>
#include <vector>

#include <kestrixkit/store/KXManagedObjectContext_p.h>

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
    /// Makes the changes unsaved changes of the parent context, instead of writing them: KXContextChild.cpp.
    void pass(KXManagedObjectContextPrivate &parent);
    /// Makes what was committed the state of the context.
    void finish();

private:
    /// An updated object and what becomes of it.
    struct Update
    {
        KXManagedObject *object;
        KXManagedObjectContextPrivate::Change *change;
        qint64 version = 0; ///< of the row once it is written; 0: no column changes
        bool vanished = false; ///< somebody deleted the row
        KXRowValues::Owner stored; ///< the row as somebody else left it, where both had changed it
        KXRowValues::Owner merged; ///< that with our changes
    };

    KXError validateObject(const KXManagedObject &object);
    KXError writeInserted(KXSQLiteConnection &connection);
    KXError writeUpdated(KXSQLiteConnection &connection, Update &update);
    KXError settleConflict(
        KXSQLiteConnection &connection, Update &update, std::vector<const KXPropertyDescription *> &columns);
    KXError writeDeleted(KXSQLiteConnection &connection);
    KXError writeJoins(KXSQLiteConnection &connection, KXManagedObject &object);
    void noteUpdate(const Update &update);
    void noteVoid(const KXPropertyDescription &property, qint64 key, qint64 other);
    KXEntityChange &changeOf(const KXEntityDescription *entity);

    KXManagedObjectContextPrivate &m_context;
    std::vector<KXManagedObject *> m_inserted;
    std::vector<Update> m_updated;
    std::vector<KXManagedObject *> m_deleted; // stored ones only
    std::vector<KXEntityChange> m_changes;
    /// Members of to-many relationships that came or went here, but not in the store: somebody else was first. Index of
    /// the property, key of its object, key of the member; keys are unique among all entities.
    std::set<std::tuple<int, qint64, qint64>> m_void;
    QByteArray m_buffer; // for texts while they are bound
};
