// A context as the sum of its parts.

#include <kestrixkit/context/KXContextReverter_p.h>

#include <kestrixkit/context/KXChangesTogether_p.h>
#include <kestrixkit/foundation/KXException.h>
#include <kestrixkit/foundation/KXStringWithFormat.h>
#include <kestrixkit/foundation/KXUndoManager.h>

using namespace Qt::StringLiterals;

using Access = KXObjectAccess;
using Object = KXManagedObject;

KXManagedObjectContextPrivate::KXManagedObjectContextPrivate(KXManagedObjectContext *context,
    KXPersistentStoreCoordinator::Ref storeCoordinator, KXManagedObjectContext::Ref parentContext)
    : KXObjectKeeper(context)
    , coordinator(std::move(storeCoordinator))
    , store(coordinator->store() ? &KXPersistentStorePrivate::of(*coordinator->store()) : nullptr)
    , parent(std::move(parentContext))
    , workingSet(*this, parent != nullptr, coordinator->model() ? coordinator->model()->entities().size() : 0)
    , ledger(*this)
    , reader(*this, store, coordinator->model().get(), workingSet, ledger, parent ? &of(*parent).reader : nullptr)
    , recorder(context, store, reader,
          [context](std::vector<KXContextRecorder::Entry> entries) {
              return KXContextReverter::factOf(context, std::move(entries));
          })
    , announcer(*this, ledger, recorder, isOfMainThread)
    , editor(*this, workingSet, ledger, reader, recorder, announcer)
{
    KXRegisterObservableHandle(KXRef<Object>());
}

KXManagedObjectContextPrivate::~KXManagedObjectContextPrivate()
{
    // An operation's context ends with the operation, wherever the last handle on that goes. What the main thread has
    // queued for a context of its own is safe only there.
    if (isOfMainThread)
        checkThread();
    workingSet.end([this](Object *object) { ledger.detached(object); });
}

QString KXManagedObjectContextPrivate::description() const
{
    return KXStringWithFormat("%@", store ? store->url.toString() : u"no store"_s);
}

const KXEntityDescription &KXManagedObjectContextPrivate::entity(const QString &name) const
{
    const KXEntityDescription *entity = coordinator->model() ? coordinator->model()->entity(name) : nullptr;
    if (!entity)
        throw KXException(
            QString(KXUnknownEntityException), KXStringWithFormat("The model has no entity \"%@\"", name));
    return *entity;
}

KXRef<Object> KXManagedObjectContextPrivate::makeTemporary(const KXEntityDescription &entity)
{
    KXRef<Object> object = workingSet.instance(entity);
    KXContextEditor::setDefaults(object.get());
    ledger.detached(object.get(), std::make_shared<KXStoreIdentity>(KXStoreIdentity { {}, coordinator->model() }));
    return object;
}

void KXManagedObjectContextPrivate::unreferenced(Object *object)
{
    if (object->belongsToContext())
        released(); // which may end the object, too
    else
        workingSet.forget(object);
}

void KXManagedObjectContextPrivate::rollback()
{
    checkThread();
    recorder.forget();
    KXObjectsDidChange did; // takes back what was announced
    KXChangesTogether together;
    const KXChangeLedger::Unsaved unsaved = ledger.takeAll();
    for (const KXContextHold &object : unsaved.inserted) {
        if (Access::isDetached(object))
            continue;
        if (!Access::isInsertPending(object))
            did.deleted.append(object);
        const KXRef<Object> held(object);
        workingSet.leave(object.get());
        ledger.detached(object.get());
    }
    for (const KXContextHold &object : unsaved.deleted) {
        if (Access::isDetached(object))
            continue; // it was inserted, too
        if (!Access::isDeletePending(object)) // else nobody knows
            did.inserted.append(object);
        ledger.restored(object.get());
    }
    for (const auto &[object, change] : unsaved.changes) {
        if (Access::isDetached(object) || !change.isStored)
            continue;
        ledger.restored(object);
        did.refreshed.append(change.object);
        QSet<QString> &keys = did.changedKeys[object];
        for (const KXPropertyDescription &property : object->entity()->properties()) {
            if (!change.changed.test(size_t(property.index())))
                continue;
            keys.insert(property.name());
            together.willSet(object, property);
            if (property.isToMany()) {
                KXToManyKeys &members = Access::values(object)->toMany(property);
                if (members.loaded)
                    members.members.subtract(members.added).unite(members.removed);
                members.added.clear();
                members.removed.clear();
            } else {
                Access::values(object)->copy(*change.before, property);
            }
        }
    }
    together.tell();
    announcer.announce(std::move(did));
}
