#pragma once

#include <memory>
#include <thread>
#include <vector>

#include <QList>

#include <kestrixkit/foundation/KXGlobal.h>
#include <kestrixkit/foundation/KXRef.h>

class KXEntityDescription;
class KXManagedObject;
class KXManagedObjectContext;
class KXPropertyDescription;
class KXRowValues;
struct KXStoreIdentity;

/// What an object asks of the context that keeps it, and what the context's parts know of it. Of one thread.
class KXObjectKeeper
{
public:
    explicit KXObjectKeeper(KXManagedObjectContext *context)
        : q(context)
    {
    }
    Q_DISABLE_COPY_MOVE(KXObjectKeeper)

    KXManagedObjectContext *const q;
    const std::thread::id thread = std::this_thread::get_id();

    /// The calling thread must be the context's (in checking builds).
    void checkThread() const
    {
        KX_CHECK(std::this_thread::get_id() == thread, "A context is used on thread %llu but belongs to thread %llu",
            quint64(std::hash<std::thread::id>()(std::this_thread::get_id())),
            quint64(std::hash<std::thread::id>()(thread)));
    }
    /// Keeps the context alive while others are called, who may let go of it; empty while it ends.
    [[nodiscard]] virtual std::shared_ptr<const void> hold() const = 0;
    /// Of the store; there is one as long as there are objects.
    [[nodiscard]] virtual const std::shared_ptr<const KXStoreIdentity> &identity() const = 0;

    // For an object's accessors.

    virtual void fillFault(KXManagedObject *object) = 0;
    /// The object of a key; empty where a row of a family is gone.
    [[nodiscard]] virtual KXRef<KXManagedObject> object(const KXEntityDescription &entity, qint64 key) = 0;
    [[nodiscard]] virtual KXRef<KXManagedObject> toOne(
        const KXManagedObject *object, const KXPropertyDescription &property)
        = 0;
    [[nodiscard]] virtual QList<KXRef<KXManagedObject>> toMany(
        KXManagedObject *object, const KXPropertyDescription &property)
        = 0;
    /// The values that an object with unsaved changes had when it was last read, saved or merged; nullptr for others.
    [[nodiscard]] virtual const KXRowValues *storedValues(const KXManagedObject *object) const = 0;
    /// The other ends of a relationship without what is unsaved of it.
    [[nodiscard]] virtual std::vector<qint64> storedKeysOf(
        KXManagedObject *object, const KXPropertyDescription &property)
        = 0;
    virtual void willChange(KXManagedObject *object, int property) = 0;
    [[nodiscard]] virtual bool mayConnect(
        KXManagedObject *object, const KXPropertyDescription &property, KXManagedObject *other)
        = 0;
    virtual void setToOne(KXManagedObject *object, const KXPropertyDescription &property, KXManagedObject *other) = 0;
    virtual void addToMany(KXManagedObject *object, const KXPropertyDescription &property, KXManagedObject *other) = 0;
    virtual void removeFromMany(KXManagedObject *object, const KXPropertyDescription &property, KXManagedObject *other)
        = 0;

    // How long it stays.

    virtual void setObserved(KXManagedObject *object, bool observed) = 0;
    /// Its last reference is gone; of a child context's object nobody but the context holds it any more.
    virtual void unreferenced(KXManagedObject *object) = 0;

protected:
    ~KXObjectKeeper() = default;
};
