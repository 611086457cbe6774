#pragma once

#include <unordered_map>
#include <vector>

#include <kestrixkit/context/KXIdentityMap_p.h>
#include <kestrixkit/context/KXObjectAccess_p.h>

/// Which objects a context has in memory, and how long they stay there.
///
/// One object a key. An object stays while somebody holds it, while it is observed, of a resident entity, or among
/// those used last; else it goes with its last reference. The objects of a child context all stay until that ends.
///
/// The only writer of an object's residency. Of the context's thread.
class KXWorkingSet
{
public:
    /// Of a context with so many entities.
    KXWorkingSet(KXObjectKeeper &keeper, bool isOfChild, qsizetype entityCount);
    ~KXWorkingSet();
    Q_DISABLE_COPY_MOVE(KXWorkingSet)

    /// nullptr where there is no object of the key.
    [[nodiscard]] KXManagedObject *find(qint64 key) const { return m_objects.find(key); }
    /// Calls the function with each object, which it must neither make nor let go.
    template <typename Function> void forEach(Function &&function) const { m_objects.forEach(function); }

    // Coming and going.

    /// Of the class that serves the entity; in no context yet.
    [[nodiscard]] KXRef<KXManagedObject> instance(const KXEntityDescription &entity);
    /// A fault at its key, where nobody else may be.
    [[nodiscard]] KXRef<KXManagedObject> make(const KXEntityDescription &entity, qint64 key);
    /// Puts an object (back) to its key, where nobody else may be.
    void enter(KXManagedObject *object);
    /// Nothing of the set holds the object any more; the caller must.
    void leave(KXManagedObject *object);
    /// The last reference is gone, and the object goes.
    void forget(KXManagedObject *object) { m_objects.remove(KXObjectAccess::key(object), object); }
    /// The context ends: `detach` is called for each object in turn, then all go that nobody else holds.
    template <typename Function> void end(Function &&detach);

    // Staying.

    /// Somebody has asked for the object.
    static void use(KXManagedObject *object) { KXObjectAccess::residency(object) |= KXObjectAccess::Touched; }
    /// Its values were read: keeps it until many others were.
    void keep(KXManagedObject *object);
    void setObserved(KXManagedObject *object, bool observed);
    /// Of a child context: whether anybody else holds one of its objects.
    [[nodiscard]] bool isAnyHeld();

private:
    void endOwned();

    KXObjectKeeper &m_keeper;
    const bool m_isOfChild;
    KXIdentityMap<KXManagedObject> m_objects;
    std::vector<KXManagedObject::Factory> m_factories; // by the entities' numbers; looked up once a registration
    quint32 m_factoriesSerial = 0;
    std::unordered_map<KXManagedObject *, KXRef<KXManagedObject>> m_observed;
    std::vector<KXRef<KXManagedObject>> m_recent; // a ring
    size_t m_recentNext = 0;
    std::vector<KXManagedObject *> m_owned; // of a child context: all that it ever made
    size_t m_holder = 0; // place of one of them that somebody held when it was last looked for
};

template <typename Function> void KXWorkingSet::end(Function &&detach)
{
    // Whoever still holds an object keeps what it has read.
    std::vector<KXRef<KXManagedObject>> residents;
    m_objects.forEach([&](KXManagedObject *object) {
        quint16 &residency = KXObjectAccess::residency(object);
        if (residency & KXObjectAccess::HeldAsResident) {
            residents.emplace_back(object);
            object->deref();
        }
        residency &= KXObjectAccess::Owned;
        detach(object);
    });
    endOwned();
}
