#pragma once

#include <memory>

#include <kestrixkit/context/KXManagedObject.h>
#include <kestrixkit/entity/KXRowValues_p.h>

/// What the parts of a context may see and do of an object that nobody else may: its key and its values. Its state is
/// written by the ledger, its residency by the working set. Null is not tolerated.
class KXObjectAccess
{
    using Object = KXManagedObject;

public:
    // Any handle will do: a pointer, a KXRef, a KXContextHold.

    /// Of its row; 0 for a temporary instance.
    template <class Handle> [[nodiscard]] static qint64 key(const Handle &object) { return of(object)->m_key; }
    /// nullptr where they are not in memory.
    template <class Handle> [[nodiscard]] static KXRowValues *values(const Handle &object)
    {
        return reinterpret_cast<KXRowValues *>(of(object)->m_values);
    }
    /// Read from the store where they must be; nullptr where there is nothing to read.
    template <class Handle> [[nodiscard]] static KXRowValues *loadedValues(const Handle &object)
    {
        return of(object)->loadedValues() ? values(object) : nullptr;
    }
    template <class Handle> [[nodiscard]] static bool isDetached(const Handle &object)
    {
        return of(object)->m_state & Detached;
    }
    template <class Handle> [[nodiscard]] static bool isIn(const Handle &object, const KXObjectKeeper *keeper)
    {
        return !isDetached(object) && of(object)->m_keeper == keeper;
    }
    /// Whether the next objects-did-change names it as inserted.
    template <class Handle> [[nodiscard]] static bool isInsertPending(const Handle &object)
    {
        return of(object)->m_state & InsertPending;
    }
    template <class Handle> [[nodiscard]] static bool isDeletePending(const Handle &object)
    {
        return of(object)->m_state & DeletePending;
    }

    /// Of a fault.
    static void setValues(Object *object, KXRowValues *values) { object->m_values = reinterpret_cast<char *>(values); }
    /// Makes it a fault, if it is none.
    static void dropValues(Object *object)
    {
        if (!object->m_values)
            return;
        KXRowValues::destroy(values(object), *object->m_entity);
        object->m_values = nullptr;
    }
    /// Tells observers of a setting that changes nothing.
    static void announceUnchanged(Object *object, const KXPropertyDescription &property)
    {
        object->announceUnchanged(property);
    }
    static void awakeFromInsert(Object *object) { object->awakeFromInsert(); }
    static void awakeFromFetch(Object *object) { object->awakeFromFetch(); }
    static void prepareForDeletion(Object *object) { object->prepareForDeletion(); }

private:
    friend class KXChangeLedger;
    friend class KXWorkingSet;
    enum State : quint16 {
        Inserted = Object::Inserted,
        Updated = Object::Updated,
        Deleted = Object::Deleted,
        Missing = Object::Missing,
        InsertPending = Object::InsertPending,
        DeletePending = Object::DeletePending,
        Detached = Object::Detached,
    };
    enum Residency : quint16 {
        HeldAsResident = Object::HeldAsResident,
        Touched = Object::Touched,
        Owned = Object::Owned,
    };

    template <class Handle> [[nodiscard]] static const Object *of(const Handle &object)
    {
        return std::to_address(object);
    }
    [[nodiscard]] static quint16 &state(Object *object) { return object->m_state; }
    [[nodiscard]] static quint16 &residency(Object *object) { return object->m_residency; }
    [[nodiscard]] static qint32 references(const Object *object) { return object->m_references; }
    static void setEntity(Object *object, const KXEntityDescription &entity) { object->m_entity = &entity; }
    /// Gives an object without context to one.
    static void attach(Object *object, KXObjectKeeper &keeper, qint64 key)
    {
        if (isDetached(object))
            delete object->m_store;
        object->m_keeper = &keeper;
        object->m_key = key;
    }
    /// Takes it from its context; the caller marks it as detached.
    static void detach(Object *object, std::shared_ptr<const KXStoreIdentity> store)
    {
        object->m_store = new Object::StoreHolder(std::move(store));
    }
    static void destroyUnreferenced(const Object *object) { object->destroyUnreferenced(); }
};
