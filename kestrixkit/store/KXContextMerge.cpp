// Saves of other contexts: what of them this context holds takes over what was saved, around its own unsaved edits.

#include <kestrixkit/foundation/KXNotificationCenter.h>
#include <kestrixkit/foundation/KXUndoGuards.h>
#include <kestrixkit/foundation/KXUndoManager.h>
#include <kestrixkit/store/KXManagedObjectContext_p.h>

using Object = KXManagedObject;

/// What is unsaved of links to an object that goes by somebody else's doing.
void KXManagedObjectContextPrivate::dropUnsavedLinks(Object *object)
{
    for (const KXPropertyDescription &property : object->entity()->properties()) {
        const KXPropertyDescription *inverse = property.isRelationship() ? property.inverse() : nullptr;
        if (!inverse || !inverse->isToMany() || !object->m_values)
            continue;
        const KXToManyKeys *own = property.isToMany() ? object->values()->existingToMany(property) : nullptr;
        const QSet<qint64> others = own ? own->added
            : property.isToOne()        ? QSet<qint64> { object->values()->toOne(property) }
                                        : QSet<qint64>();
        for (const qint64 key : others) {
            Object *other = key ? registered(key) : nullptr;
            KXToManyKeys *keys = other && other->m_values ? other->values()->existingToMany(*inverse) : nullptr;
            if (!keys || !keys->added.remove(object->m_key))
                continue;
            keys->members.remove(object->m_key);
            const auto change = changes.find(other);
            if (change == changes.end())
                continue; // inserted and not announced yet
            if (change->second.unannounced.none())
                m_announcements.push_back(change->second.object);
            change->second.unannounced.set(size_t(inverse->index()));
            scheduleProcessing();
        }
    }
}

/// The object's row is gone by somebody else's doing: it leaves the context, unsaved edits included.
void KXManagedObjectContextPrivate::vanish(const KXRef<Object> &object)
{
    dropUnsavedLinks(object.get());
    changes.erase(object.get());
    std::erase(inserted, object);
    std::erase(deleted, object);
    std::erase(m_resident, object);
    objects.remove(object->m_key);
    turnIntoFault(object.get());
    object->m_flags |= Object::Missing;
    object->detach(store->identity);
    m_observed.erase(object.get());
}

/// Where an unsaved edit and the save lead an object to different ends, the edit stays; at those ends it becomes an
/// edit of what was saved. The end that the save leads to comes into memory for that, or reading it later would count
/// the object in.
void KXManagedObjectContextPrivate::keepContestedLinks(const KXStoreChange &change)
{
    const auto settle = [this](const KXPropertyDescription &property, qint64 end, qint64 member, bool add) {
        const KXRef<Object> object = end ? this->object(*property.destinationEntity(), end) : KXRef<Object>();
        if (!object || object->isDeleted() || object->isInserted() || !object->loadedValues())
            return;
        const KXPropertyDescription &inverse = *property.inverse();
        KXToManyKeys &keys = object->values()->toMany(inverse);
        QSet<qint64> &own = add ? keys.added : keys.removed;
        if (own.contains(member))
            return;
        const KXUndoRegistrationOff off(recorder.manager().get());
        willChange(object.get(), inverse.index());
        own.insert(member);
        if (keys.loaded && add)
            keys.members.insert(member);
        else if (keys.loaded)
            keys.members.remove(member);
    };
    if (changes.empty())
        return;
    for (const KXEntityChange &entity : change.entities()) {
        for (const KXRowChange &row : entity.updated) {
            Object *object = registered(row.key);
            const auto own = object && object->isUpdated() ? changes.find(object) : changes.end();
            if (own == changes.end())
                continue;
            const KXPropertySet changed = own->second.changed;
            for (const KXPropertyChange &news : row.properties) {
                const KXPropertyDescription &property = *news.property;
                if (!property.isToOne() || !property.inverse() || !property.inverse()->isToMany()
                    || !changed.test(size_t(property.index())))
                    continue;
                const qint64 here = object->values()->toOne(property);
                const qint64 there = news.newValue.toLongLong();
                if (here != there) {
                    settle(property, here, row.key, true);
                    settle(property, there, row.key, false);
                }
            }
        }
    }
}

void KXManagedObjectContextPrivate::mergeChanges(const KXStoreChange &change)
{
    checkThread();
    if (!store || parent || change.originatingContext() == q || change.store()->uuid != store->identity->uuid)
        return;
    // What was done here before is told before.
    processPendingChanges();
    KXObjectsDidChange did;
    did.merged = change.weak_from_this().lock();

    const auto mergeColumn = [](Object *object, Change *own, const KXPropertyChange &news) {
        const KXPropertyDescription &property = *news.property;
        const auto take = [&](KXRowValues &values) {
            if (property.isAttribute())
                values.setAttribute(property, news.newValue);
            else
                values.setToOne(property, news.newValue.toLongLong());
        };
        // An unsaved edit stays; it is now an edit of what the other one saved.
        if (own && own->before)
            take(*own->before);
        if (own && own->changed.test(size_t(property.index())))
            return false;
        object->willChangeValueForKey(property.name());
        take(*object->values());
        object->didChangeValueForKey(property.name());
        return true;
    };
    const auto mergeMembers = [this](Object *object, const KXPropertyChange &news) {
        const KXPropertyDescription &property = *news.property;
        KXToManyKeys *keys = object->values()->existingToMany(property);
        const auto announce = [&](bool before, bool add, qint64 key) {
            if (!object->isObserved())
                return;
            const KXChangeKind kind = add ? KXChangeKind::Insertion : KXChangeKind::Removal;
            const QVariantList member { KXVariantFromRef(this->object(*property.destinationEntity(), key)) };
            if (before)
                object->willChangeValueForKey(property.name(), kind, add ? QVariantList() : member);
            else
                object->didChangeValueForKey(
                    property.name(), kind, add ? QVariantList() : member, add ? member : QVariantList());
        };
        for (const bool add : { true, false }) {
            for (const qint64 key : add ? news.added : news.removed) {
                // Both did the same: it is no longer unsaved here. Both did the opposite: the unsaved edit stays.
                if (keys
                    && ((add ? keys->added : keys->removed).remove(key)
                        || (add ? keys->removed : keys->added).contains(key)))
                    continue;
                announce(true, add, key);
                if (keys && keys->loaded && add)
                    keys->members.insert(key);
                else if (keys && keys->loaded)
                    keys->members.remove(key);
                announce(false, add, key);
            }
        }
    };

    keepContestedLinks(change);
    for (const KXEntityChange &entity : change.entities()) {
        did.insertedKeys.append(entity.inserted);
        for (const KXRowChange &row : entity.updated) {
            Object *found = registered(row.key);
            if (!found || !found->m_values || found->isInserted())
                continue;
            const KXRef<Object> object(found);
            const bool newer = row.version > object->values()->version;
            QSet<QString> keys;
            for (const KXPropertyChange &news : row.properties) {
                if (news.property->isToMany())
                    mergeMembers(found, news);
                else if (const auto own = changes.find(found);
                         !newer || !mergeColumn(found, own == changes.end() ? nullptr : &own->second, news))
                    continue;
                keys.insert(news.property->name());
                if (!found->m_values || object->managedObjectContext() != q)
                    break; // an observer saw to that
            }
            if (newer && found->m_values)
                object->values()->version = row.version;
            if (!keys.isEmpty()) {
                did.refreshed.append(object);
                did.changedKeys.insert(found, keys);
            }
        }
        for (const qint64 key : entity.deleted) {
            if (Object *found = registered(key)) {
                const KXRef<Object> object(found);
                vanish(object);
                did.deleted.append(object);
            }
        }
    }
    if (!change.entities().empty())
        KXNotificationCenter::defaultCenter().post(QString(KXManagedObjectContextObjectsDidChangeNotification), q, did);
}
