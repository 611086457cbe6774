#pragma once

#include <kestrixkit/context/KXContextEditor_p.h>
#include <kestrixkit/context/KXManagedObjectContext.h>
#include <kestrixkit/foundation/KXMainQueue.h>

/// What a context consists of: its parts, each of which owns one thing. What happens in one go has a class of its own
/// that lives as long as it lasts: KXContextFetcher, KXContextSaver, KXContextMerger, KXContextReverter.
class KXManagedObjectContextPrivate final : public KXObjectKeeper
{
public:
    KXManagedObjectContextPrivate(KXManagedObjectContext *context, KXPersistentStoreCoordinator::Ref storeCoordinator,
        KXManagedObjectContext::Ref parentContext);
    ~KXManagedObjectContextPrivate();

    [[nodiscard]] static KXManagedObjectContextPrivate &of(const KXManagedObjectContext &context)
    {
        return *context.m_p;
    }

    [[nodiscard]] QString description() const;
    /// Throws KXException for a name that the model does not have.
    [[nodiscard]] const KXEntityDescription &entity(const QString &name) const;
    /// The codec of an entity's rows; there must be a store.
    [[nodiscard]] const KXRowCodec &codec(const KXEntityDescription &entity) const { return store->codec(entity); }

    [[nodiscard]] KXRef<KXManagedObject> makeTemporary(const KXEntityDescription &entity);
    void rollback();

    // Each by an object of its own: KXContextFetch.cpp, KXContextSave.cpp, KXContextMerge.cpp.

    [[nodiscard]] KXFetchedList fetch(const KXFetchRequest &request, KXError *error);
    [[nodiscard]] qint64 count(const KXFetchRequest &request, KXError *error);
    [[nodiscard]] bool save(KXError *error);
    /// Writes in a transaction, and says what rows it changed.
    using WriteRows = std::function<KXError(KXSQLiteConnection &connection, std::vector<KXEntityChange> &changes)>;
    /// A save of rows beside the context's objects, which take it over as they do somebody else's; nothing where
    /// nothing is changed.
    [[nodiscard]] bool saveRows(const WriteRows &write, KXError *error);
    void mergeChanges(const KXStoreChange &change);

    // How long a child context lasts: KXContextChild.cpp.

    /// Nobody holds the object of a child context any more.
    void released();
    /// What the last shared_ptr on a child context does: ends it, or leaves it to those who hold its objects.
    static void abandon(KXManagedObjectContext *context);

    // For the objects: KXObjectKeeper.

    [[nodiscard]] std::shared_ptr<const void> hold() const override { return q->weak_from_this().lock(); }
    [[nodiscard]] const std::shared_ptr<const KXStoreIdentity> &identity() const override { return store->identity; }
    void fillFault(KXManagedObject *object) override { reader.fillFault(object); }
    [[nodiscard]] KXRef<KXManagedObject> object(const KXEntityDescription &entity, qint64 key) override
    {
        return reader.object(entity, key);
    }
    [[nodiscard]] KXRef<KXManagedObject> toOne(
        const KXManagedObject *object, const KXPropertyDescription &property) override
    {
        return reader.toOne(object, property);
    }
    [[nodiscard]] QList<KXRef<KXManagedObject>> toMany(
        KXManagedObject *object, const KXPropertyDescription &property) override
    {
        return reader.toMany(object, property);
    }
    [[nodiscard]] const KXRowValues *storedValues(const KXManagedObject *object) const override
    {
        return ledger.storedValues(object);
    }
    [[nodiscard]] std::vector<qint64> storedKeysOf(
        KXManagedObject *object, const KXPropertyDescription &property) override
    {
        return reader.storedKeysOf(object, property);
    }
    void willChange(KXManagedObject *object, int property) override { editor.willChange(object, property); }
    [[nodiscard]] bool mayConnect(
        KXManagedObject *object, const KXPropertyDescription &property, KXManagedObject *other) override
    {
        return editor.mayConnect(object, property, other);
    }
    void setToOne(KXManagedObject *object, const KXPropertyDescription &property, KXManagedObject *other) override
    {
        editor.setToOne(object, property, other);
    }
    void addToMany(KXManagedObject *object, const KXPropertyDescription &property, KXManagedObject *other) override
    {
        editor.addToMany(object, property, other);
    }
    void removeFromMany(KXManagedObject *object, const KXPropertyDescription &property, KXManagedObject *other) override
    {
        editor.removeFromMany(object, property, other);
    }
    void setObserved(KXManagedObject *object, bool observed) override { workingSet.setObserved(object, observed); }
    void unreferenced(KXManagedObject *object) override;

    const KXPersistentStoreCoordinator::Ref coordinator;
    KXPersistentStorePrivate *const store; ///< nullptr where the coordinator has none
    const KXManagedObjectContext::Ref parent; ///< of a child context
    const bool isOfMainThread = KXMainQueue::isMainThread();
    quint64 newestSerial = 0; ///< of the coordinator's saves, those that were merged and the context's own

    KXWorkingSet workingSet;
    KXChangeLedger ledger;
    KXContextReader reader;
    KXContextRecorder recorder;
    KXContextAnnouncer announcer;
    KXContextEditor editor;

private:
    void tellOfSaves(bool delivers);
    KXManagedObjectContext::Ref m_self; // of a child context that only its objects' holders keep
};
