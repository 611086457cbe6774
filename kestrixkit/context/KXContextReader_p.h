#pragma once

#include <span>
#include <vector>

#include <kestrixkit/context/KXChangeLedger_p.h>
#include <kestrixkit/context/KXObjectKeeper_p.h>
#include <kestrixkit/context/KXWorkingSet_p.h>
#include <kestrixkit/store/KXPersistentStore_p.h>

/// Brings into the memory of a context what it asks for: objects of keys, their values, and the members of their
/// relationships. Out of the store, or for a child context out of its parent. Of the context's thread.
class KXContextReader
{
public:
    /// Store and model are absent where a store could not be opened; the parent is that of a child context.
    KXContextReader(KXObjectKeeper &keeper, KXPersistentStorePrivate *store, const KXManagedObjectModel *model,
        KXWorkingSet &workingSet, KXChangeLedger &ledger, KXContextReader *parent);
    Q_DISABLE_COPY_MOVE(KXContextReader)

    // Objects and their values: KXContextReader.cpp.

    /// Only where it is in memory; nullptr elsewhere.
    [[nodiscard]] KXManagedObject *registered(qint64 key) const { return m_workingSet.find(key); }
    /// The object of the key, made as a fault where the context does not hold it. Of a family the entity is read
    /// from the row; empty where there is no row then.
    [[nodiscard]] KXRef<KXManagedObject> object(const KXEntityDescription &entity, qint64 key);
    /// A fault of exactly that entity.
    [[nodiscard]] KXRef<KXManagedObject> makeObject(const KXEntityDescription &entity, qint64 key);
    /// Reads the newest rows of those keys whose values are not in memory, making objects where needed. All are then
    /// held for a while. An error where the store does not answer; that is in the log as well.
    KXError fill(const KXEntityDescription &entity, std::span<const qint64> keys);
    void fillFault(KXManagedObject *object);
    /// One that turned out to name no row, or whose row is gone, leaves the context.
    void dismiss(KXManagedObject *object);
    /// Of a child context: the parent's object; empty where it has none or has deleted it.
    [[nodiscard]] KXRef<KXManagedObject> inParent(const KXManagedObject *object);

    // The other ends of relationships: KXContextMembers.cpp.

    [[nodiscard]] KXRef<KXManagedObject> toOne(const KXManagedObject *object, const KXPropertyDescription &property);
    [[nodiscard]] QList<KXRef<KXManagedObject>> toMany(KXManagedObject *object, const KXPropertyDescription &property);
    /// Keys of the rows at the other end of a relationship, sorted; none of a missing object.
    [[nodiscard]] std::vector<qint64> keysOf(KXManagedObject *object, const KXPropertyDescription &property);
    /// The same without what is unsaved of it.
    [[nodiscard]] std::vector<qint64> storedKeysOf(KXManagedObject *object, const KXPropertyDescription &property);
    /// The relationship with all its members in memory.
    KXToManyKeys &loadedToMany(KXManagedObject *object, const KXPropertyDescription &property);
    /// The same for many objects that have their values, with one look into the store. Those that it does not answer
    /// for are read when they are asked for.
    void loadToMany(std::span<const KXRef<KXManagedObject>> objects, const KXPropertyDescription &property);
    [[nodiscard]] bool isMember(KXManagedObject *object, const KXPropertyDescription &property, qint64 key);
    /// Whether the store says so.
    [[nodiscard]] bool isStoredMember(qint64 key, const KXPropertyDescription &property, qint64 other);

private:
    KXError fillFromStore(const KXEntityDescription &entity, std::vector<struct KXWantedRow> &wanted);
    KXError fillFromParent(const KXEntityDescription &entity, std::span<const qint64> keys);
    bool readMembers(qint64 key, const KXPropertyDescription &property, QSet<qint64> &members);

    KXObjectKeeper &m_keeper;
    KXPersistentStorePrivate *const m_store;
    const KXManagedObjectModel *const m_model;
    KXWorkingSet &m_workingSet;
    KXChangeLedger &m_ledger;
    KXContextReader *const m_parent;
};
