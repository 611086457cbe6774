// What a context does when its objects change: both ends of relationships, delete rules, announcements.

#include <algorithm>

#include <kestrixkit/context/KXManagedObjectContext_p.h>
#include <kestrixkit/foundation/KXException.h>
#include <kestrixkit/foundation/KXLog.h>
#include <kestrixkit/foundation/KXMainQueue.h>
#include <kestrixkit/foundation/KXNotificationCenter.h>
#include <kestrixkit/foundation/KXStringWithFormat.h>

using Object = KXManagedObject;

void KXManagedObjectContextPrivate::willChange(Object *object, int property)
{
    checkThread();
    if (object->m_flags & Object::Deleted)
        return;
    if (recorder.manager())
        recorder.willChange(object, property);
    if (object->isInserted() && object->m_flags & Object::InsertPending)
        return; // it is written and announced whole
    Change &change = changes[object];
    if (!change.object) {
        change.object = KXContextHold(object);
        if (!(object->m_flags & Object::Inserted)) {
            change.before
                = KXRowValues::Owner(KXRowValues::clone(*object->values(), *object->m_entity), { object->m_entity });
            object->m_flags |= Object::Updated;
        }
    }
    if (change.unannounced.none())
        m_announcements.push_back(change.object);
    change.changed.set(size_t(property));
    change.unannounced.set(size_t(property));
    scheduleProcessing();
}

// Relationships

bool KXManagedObjectContextPrivate::mayConnect(Object *object, const KXPropertyDescription &property, Object *other)
{
    if (!other)
        return true;
    if (other->managedObjectContext() != q) {
        if (other->managedObjectContext()) {
            throw KXException(QStringLiteral("KXInvalidArgumentException"),
                KXStringWithFormat("\"%@\" of \"%@\" cannot hold an object of another context", property.name(),
                    object->entity()->name()));
        }
        KXLogWarning(
            store, "\"%@\" of \"%@\" cannot hold an object without context", property.name(), object->entity()->name());
        return false;
    }
    if (!other->entity()->isKindOf(property.destinationEntity())) {
        throw KXException(QStringLiteral("KXInvalidArgumentException"),
            KXStringWithFormat("\"%@\" of \"%@\" cannot hold an object of the entity \"%@\"", property.name(),
                object->entity()->name(), other->entity()->name()));
    }
    if (other->isDeleted() || !other->loadedValues())
        return false;
    const KXPropertyDescription *inverse = property.inverse();
    if (property.isAcyclic() ? makesCircle(object, property, other->m_key)
                             : inverse && inverse->isAcyclic() && makesCircle(other, *inverse, object->m_key)) {
        KXLogWarning(store, "\"%@\" of \"%@\" would lead in a circle", property.name(), object->entity()->name());
        return false;
    }
    return true;
}

bool KXManagedObjectContextPrivate::makesCircle(
    const Object *object, const KXPropertyDescription &property, qint64 above)
{
    QSet<qint64> seen; // a damaged file may have circles
    for (qint64 key = above; key != 0 && !seen.contains(key);) {
        if (key == object->m_key)
            return true;
        const KXRef<Object> next = this->object(*property.destinationEntity(), key);
        const KXPropertyDescription *further = next ? next->m_entity->property(property.name()) : nullptr;
        // A deleted one keeps its values and holds nothing together; should it come back, it is asked itself.
        if (!further || !next->loadedValues() || next->isDeleted())
            return false;
        seen.insert(std::exchange(key, next->values()->toOne(*further)));
    }
    return false;
}

void KXManagedObjectContextPrivate::assignToOne(Object *object, const KXPropertyDescription &property, qint64 key)
{
    if (object->m_flags & Object::Deleted || !object->loadedValues())
        return; // a deleted object keeps its values
    object->willChangeValueForKey(property.name());
    willChange(object, property.index());
    object->values()->setToOne(property, key);
    object->didChangeValueForKey(property.name());
}

void KXManagedObjectContextPrivate::assign(
    Object *object, const KXPropertyDescription &property, const KXRowValues &from)
{
    object->willChangeValueForKey(property.name());
    willChange(object, property.index());
    object->values()->copy(from, property);
    object->didChangeValueForKey(property.name());
}

void KXManagedObjectContextPrivate::link(Object *object, const KXPropertyDescription &property, qint64 key, bool add)
{
    if (object->m_flags & Object::Deleted || !object->loadedValues())
        return;
    // One that has come back kept its members while it was deleted: they are no news.
    const KXToManyKeys *known = object->values()->existingToMany(property);
    if (known
        && (known->loaded ? known->members.contains(key) == add : (add ? known->added : known->removed).contains(key)))
        return;
    const KXChangeKind kind = add ? KXChangeKind::Insertion : KXChangeKind::Removal;
    const QVariantList member = object->isObserved()
        ? QVariantList { KXVariantFromRef(this->object(*property.destinationEntity(), key)) }
        : QVariantList();
    object->willChangeValueForKey(property.name(), kind, add ? QVariantList() : member);
    willChange(object, property.index());
    recorder.willLink(object, property.index(), key, add);
    KXToManyKeys &keys = object->values()->toMany(property);
    QSet<qint64> &undone = add ? keys.removed : keys.added;
    if (!undone.remove(key))
        (add ? keys.added : keys.removed).insert(key);
    if (keys.loaded) {
        if (add)
            keys.members.insert(key);
        else
            keys.members.remove(key);
    }
    object->didChangeValueForKey(property.name(), kind, add ? QVariantList() : member, add ? member : QVariantList());
}

void KXManagedObjectContextPrivate::setToOne(Object *object, const KXPropertyDescription &property, Object *other)
{
    checkThread();
    if (!mayConnect(object, property, other))
        return;
    const qint64 before = object->values()->toOne(property);
    const qint64 after = other ? other->m_key : 0;
    if (before == after) {
        object->announceUnchanged(property);
        return;
    }
    const KXRef<Object> held(object);
    const KXRef<Object> heldOther(other);
    assignToOne(object, property, after);
    const KXPropertyDescription *inverse = property.inverse();
    if (!inverse)
        return;
    const KXRef<Object> partner = before ? this->object(*property.destinationEntity(), before) : KXRef<Object>();
    if (inverse->isToMany()) {
        if (partner)
            link(partner.get(), *inverse, object->m_key, false);
        if (other)
            link(other, *inverse, object->m_key, true);
        return;
    }
    if (partner && partner->loadedValues() && partner->values()->toOne(*inverse) == object->m_key)
        assignToOne(partner.get(), *inverse, 0);
    if (other) {
        // Whoever was the partner of the new partner loses it.
        if (const qint64 robbed = other->values()->toOne(*inverse); robbed && robbed != object->m_key) {
            if (const KXRef<Object> loser = this->object(*inverse->destinationEntity(), robbed))
                assignToOne(loser.get(), property, 0);
        }
        assignToOne(other, *inverse, object->m_key);
    }
}

void KXManagedObjectContextPrivate::addToMany(Object *object, const KXPropertyDescription &property, Object *other)
{
    checkThread();
    if (!mayConnect(object, property, other) || isMember(object, property, other->m_key))
        return;
    const KXPropertyDescription *inverse = property.inverse();
    if (inverse && inverse->isToOne()) {
        setToOne(other, *inverse, object);
        return;
    }
    link(object, property, other->m_key, true);
    if (inverse && !(inverse == &property && other == object))
        link(other, *inverse, object->m_key, true);
}

void KXManagedObjectContextPrivate::removeFromMany(Object *object, const KXPropertyDescription &property, Object *other)
{
    checkThread();
    if (other->managedObjectContext() != q || !isMember(object, property, other->m_key))
        return;
    const KXPropertyDescription *inverse = property.inverse();
    if (inverse && inverse->isToOne()) {
        setToOne(other, *inverse, nullptr);
        return;
    }
    link(object, property, other->m_key, false);
    if (inverse && !(inverse == &property && other == object))
        link(other, *inverse, object->m_key, false);
}

bool KXManagedObjectContextPrivate::isMember(Object *object, const KXPropertyDescription &property, qint64 key)
{
    const KXRowValues &values = *object->values();
    const KXToManyKeys *keys = values.existingToMany(property);
    if (keys && (keys->loaded || keys->added.contains(key) || keys->removed.contains(key)))
        return keys->loaded ? keys->members.contains(key) : keys->added.contains(key);
    if (values.version == 0)
        return false; // never stored: it has only what was added
    const KXPropertyDescription *inverse = property.inverse();
    if (Object *other = inverse ? registered(key) : nullptr; other && other->loadedValues()) {
        // The other end may know without a look into the store. A deleted one keeps its values, but is a member only
        // where the store says so.
        if (other->isDeleted() && other->values()->version == 0)
            return false;
        if (inverse->isToOne()) {
            const auto change = other->isDeleted() ? changes.find(other) : changes.end();
            const KXRowValues *stored = change != changes.end() ? change->second.before.get() : nullptr;
            return (stored ? stored : other->values())->toOne(*inverse) == object->m_key;
        }
        const KXToManyKeys *back = other->isDeleted() ? nullptr : other->values()->existingToMany(*inverse);
        if (back ? back->loaded : other->values()->version == 0)
            return back && back->members.contains(object->m_key);
    }
    if (parent) {
        const KXRef<Object> source = inParent(object);
        return source && parent->d().isMember(source.get(), property, key);
    }
    // A look at the one pair, not at all members: a genre may have half a million tracks.
    KXError error;
    const KXStoreConnections::Reader reader = store->connections.reader(&error);
    KXStatement query = reader ? reader->prepare("SELECT 1 FROM " + property.joinTable() + " WHERE "
                            + property.joinSource() + " = ? AND " + property.joinTarget() + " = ?")
                               : KXStatement();
    if (!query) {
        KXLogError(store, "Cannot read \"%@\": %@", property.name(), reader ? reader->lastError() : error);
        return false;
    }
    query.bind(1, object->m_key);
    query.bind(2, key);
    return query.step() == SQLITE_ROW;
}

KXToManyKeys &KXManagedObjectContextPrivate::loadedToMany(Object *object, const KXPropertyDescription &property)
{
    KXToManyKeys &keys = object->values()->toMany(property);
    if (keys.loaded)
        return keys;
    if (parent) {
        if (const KXRef<Object> source = object->values()->version != 0 ? inParent(object) : KXRef<Object>())
            keys.members = parent->d().loadedToMany(source.get(), property).members;
    } else if (object->values()->version != 0 && store) {
        const QByteArray sql = property.joinTable().isEmpty() ? "SELECT kx_id FROM "
                + property.destinationEntity()->table() + " WHERE " + property.inverse()->column() + " = ?"
                                                              : "SELECT " + property.joinTarget() + " FROM "
                + property.joinTable() + " WHERE " + property.joinSource() + " = ?";
        KXError error;
        const KXStoreConnections::Reader reader = store->connections.reader(&error);
        KXStatement query = reader ? reader->prepare(sql) : KXStatement();
        if (!query) {
            KXLogError(store, "Cannot read \"%@\": %@", property.name(), reader ? reader->lastError() : error);
            return keys; // stays unloaded: the next call tries again
        }
        query.bind(1, object->m_key);
        int code;
        while ((code = query.step()) == SQLITE_ROW)
            keys.members.insert(query.integer(0));
        if (code != SQLITE_DONE) {
            KXLogError(store, "Cannot read \"%@\": %@", property.name(), reader->lastError());
            keys.members.clear();
            return keys;
        }
    }
    keys.members.unite(keys.added).subtract(keys.removed);
    keys.loaded = true;
    return keys;
}

KXRef<Object> KXManagedObjectContextPrivate::toOne(const Object *object, const KXPropertyDescription &property)
{
    checkThread();
    const qint64 key = object->values()->toOne(property);
    return key ? this->object(*property.destinationEntity(), key) : KXRef<Object>();
}

std::vector<qint64> KXManagedObjectContextPrivate::keysOf(Object *object, const KXPropertyDescription &property)
{
    if (!object->loadedValues())
        return {};
    if (property.isToOne()) {
        const qint64 key = object->values()->toOne(property);
        return key ? std::vector<qint64> { key } : std::vector<qint64>();
    }
    const QSet<qint64> &members = loadedToMany(object, property).members;
    std::vector<qint64> keys(members.begin(), members.end());
    std::sort(keys.begin(), keys.end());
    return keys;
}

std::vector<qint64> KXManagedObjectContextPrivate::storedKeysOf(Object *object, const KXPropertyDescription &property)
{
    const KXRowValues *stored = storedValues(object);
    if (!stored || !object->m_values)
        return keysOf(object, property);
    if (property.isToOne()) {
        const qint64 key = stored->toOne(property);
        return key ? std::vector<qint64> { key } : std::vector<qint64>();
    }
    const KXToManyKeys &keys = loadedToMany(object, property);
    const QSet<qint64> members = QSet<qint64>(keys.members).subtract(keys.added).unite(keys.removed);
    std::vector<qint64> list(members.begin(), members.end());
    std::sort(list.begin(), list.end());
    return list;
}

QList<KXRef<Object>> KXManagedObjectContextPrivate::toMany(Object *object, const KXPropertyDescription &property)
{
    checkThread();
    const std::vector<qint64> keys = keysOf(object, property);
    fill(*property.destinationEntity(), keys);
    QList<KXRef<Object>> list;
    list.reserve(qsizetype(keys.size()));
    for (const qint64 key : keys) {
        KXRef<Object> member = this->object(*property.destinationEntity(), key);
        // Nothing tells a relationship without inverse that a member was deleted, and none that a row went of which
        // whoever deleted it did not know that it was a member.
        if (member && !member->isMissing() && (property.inverse() || !member->isDeleted()))
            list.append(std::move(member));
    }
    return list;
}

// Deleting

void KXManagedObjectContextPrivate::markDeleted(const KXRef<Object> &object)
{
    if (object->managedObjectContext() != q || object->isDeleted() || !object->loadedValues())
        return;
    recorder.willDelete(object.get());
    if (!(object->m_flags & Object::InsertPending)) {
        object->m_flags |= Object::DeletePending;
        m_announcements.push_back(object);
    }
    object->m_flags
        = (object->m_flags & ~quint32(Object::Inserted | Object::InsertPending | Object::Updated)) | Object::Deleted;
    deleted.push_back(object);
    scheduleProcessing();
}

void KXManagedObjectContextPrivate::revive(
    const KXRef<Object> &object, const KXRowValues &values, const std::map<int, QSet<qint64>> &members)
{
    const KXEntityDescription &entity = *object->m_entity;
    if (object->m_flags & Object::Detached) {
        // Its deletion was saved: the next save inserts the row again, under its old key.
        if (Object *held = registered(object->m_key)) {
            if (held->m_values)
                return;
            dismiss(held); // somebody has asked for the identifier meanwhile
        }
        delete object->m_store;
        object->m_context = q;
        object->m_flags = Object::Inserted;
        turnIntoFault(object.get());
        KXRowValues *restored = KXRowValues::clone(values, entity);
        restored->version = 0;
        object->m_values = reinterpret_cast<char *>(restored);
        for (const auto &[index, keys] : members) {
            KXToManyKeys &toMany = restored->toMany(entity.properties()[index]);
            toMany.loaded = true;
            toMany.members = toMany.added = keys;
        }
        enter(object.get());
        if (object->isObserved())
            setObserved(object.get(), true);
        inserted.push_back(object);
    } else if (object->isDeleted()) {
        std::erase(deleted, object);
        object->m_flags &= ~quint32(Object::Deleted);
        if (object->values()->version == 0)
            object->m_flags |= Object::Inserted; // and is still among those to insert
        else if (const auto found = changes.find(object.get()); found != changes.end() && found->second.before)
            object->m_flags |= Object::Updated;
    } else {
        return;
    }
    // Nobody was told of the deletion yet, or all were.
    if (object->m_flags & Object::DeletePending)
        object->m_flags &= ~quint32(Object::DeletePending);
    else
        object->m_flags |= Object::InsertPending;
    m_announcements.push_back(object);
    scheduleProcessing();
}

void KXManagedObjectContextPrivate::remove(Object *object)
{
    checkThread();
    std::vector<KXRef<Object>> doomed { KXRef<Object>(object) }; // with those that cascades reach, however deep
    for (size_t i = 0; i < doomed.size(); ++i) {
        const KXRef<Object> next = doomed[i];
        if (!next || next->managedObjectContext() != q || next->isDeleted() || !next->loadedValues())
            continue;
        next->prepareForDeletion();
        if (next->isDeleted())
            continue; // by its own preparation
        markDeleted(next);
        followDeleteRules(next.get(), doomed);
    }
}

void KXManagedObjectContextPrivate::followDeleteRules(Object *object, std::vector<KXRef<Object>> &doomed)
{
    for (const KXPropertyDescription &property : object->m_entity->properties()) {
        const KXPropertyDescription *inverse = property.inverse();
        if (!property.isRelationship() || property.deleteRule() == KXDeleteRule::Deny
            || (property.deleteRule() == KXDeleteRule::Nullify && !inverse))
            continue;
        QList<KXRef<Object>> others;
        if (property.isToMany())
            others = toMany(object, property);
        else if (const KXRef<Object> other = toOne(object, property))
            others.append(other);
        for (const KXRef<Object> &other : others) {
            if (property.deleteRule() == KXDeleteRule::Cascade) {
                doomed.push_back(other);
                continue;
            }
            if (!inverse || !other->loadedValues())
                continue;
            if (inverse->isToMany())
                link(other.get(), *inverse, object->m_key, false);
            else if (other->values()->toOne(*inverse) == object->m_key)
                assignToOne(other.get(), *inverse, 0);
        }
    }
}

void KXManagedObjectContextPrivate::letGo(Object *object)
{
    for (const KXPropertyDescription &property : object->m_entity->properties()) {
        const KXPropertyDescription *inverse = property.isRelationship() ? property.inverse() : nullptr;
        if (!inverse || !object->loadedValues())
            continue;
        for (const qint64 key : keysOf(object, property)) {
            const KXRef<Object> other = this->object(*property.destinationEntity(), key);
            if (!other || other->isDeleted() || !other->loadedValues())
                continue;
            if (inverse->isToMany() && isMember(other.get(), *inverse, object->m_key))
                link(other.get(), *inverse, object->m_key, false);
            else if (inverse->isToOne() && other->values()->toOne(*inverse) == object->m_key)
                assignToOne(other.get(), *inverse, 0);
        }
    }
}

// Announcing

void KXManagedObjectContextPrivate::scheduleProcessing()
{
    if (m_processingScheduled || !KXMainQueue::isMainThread())
        return; // a background context announces when it saves
    m_processingScheduled = true;
    KXMainQueue::async([this, alive = std::weak_ptr(m_alive)] {
        if (!alive.expired())
            processPendingChanges();
    });
}

void KXManagedObjectContextPrivate::processPendingChanges()
{
    checkThread();
    m_processingScheduled = false;
    recorder.flush();
    m_processingDue = true;
    postAnnouncements();
}

void KXManagedObjectContextPrivate::settleAnnouncements()
{
    if (!m_posting) {
        processPendingChanges();
        return;
    }
    recorder.flush();
    m_toPost.push_back(takeAnnouncements());
}

void KXManagedObjectContextPrivate::announce(KXObjectsDidChange did)
{
    m_toPost.push_back(std::move(did));
    postAnnouncements();
}

KXObjectsDidChange KXManagedObjectContextPrivate::takeAnnouncements()
{
    KXObjectsDidChange did;
    for (const KXContextHold &object : std::exchange(m_announcements, {})) {
        const quint32 flags = object->m_flags;
        const auto found = changes.find(object.get());
        if (flags & Object::DeletePending) {
            object->m_flags &= ~quint32(Object::DeletePending);
            did.deleted.append(object);
        } else if (flags & Object::InsertPending) {
            object->m_flags &= ~quint32(Object::InsertPending);
            did.inserted.append(object);
        } else if (!(flags & Object::Deleted) && found != changes.end() && found->second.unannounced.any()) {
            QSet<QString> &keys = did.changedKeys[object.get()];
            for (const KXPropertyDescription &property : object->m_entity->properties()) {
                if (found->second.unannounced.test(size_t(property.index())))
                    keys.insert(property.name());
            }
            did.updated.append(object);
        }
        // Also of one that comes or goes: a key left here would keep later changes of it from being announced.
        if (found != changes.end())
            found->second.unannounced.reset();
    }
    return did;
}

/// One after the other: an observer that changes, saves, merges or rolls back has that told when all have been told of
/// what came before.
void KXManagedObjectContextPrivate::postAnnouncements()
{
    if (m_posting)
        return;
    // Whoever is told may let go of the context, or of the last object of a child context.
    const KXManagedObjectContext::Ref held = q->weak_from_this().lock();
    struct Guard
    {
        bool &flag;
        ~Guard() { flag = false; }
    } guard { m_posting };
    m_posting = true;
    while (!m_toPost.empty() || m_processingDue) {
        if (m_toPost.empty()) {
            m_processingDue = false;
            m_toPost.push_back(takeAnnouncements());
        }
        const KXObjectsDidChange did = std::move(m_toPost.front());
        m_toPost.erase(m_toPost.begin());
        if (!did.inserted.isEmpty() || !did.updated.isEmpty() || !did.deleted.isEmpty() || !did.refreshed.isEmpty()
            || did.merged)
            KXNotificationCenter::defaultCenter().post(
                QString(KXManagedObjectContextObjectsDidChangeNotification), q, did);
    }
}

void KXManagedObjectContextPrivate::rollback()
{
    checkThread();
    recorder.forget();
    formerVersions.clear();
    KXObjectsDidChange did; // takes back what was announced
    KXChangesTogether together;
    const auto unannounced = std::exchange(m_announcements, {});
    const auto wereInserted = std::exchange(inserted, {});
    const auto wereDeleted = std::exchange(deleted, {});
    const auto wereChanged = std::exchange(changes, {});
    for (const KXContextHold &object : wereInserted) {
        if (!(object->m_flags & Object::Detached)) {
            if (!(object->m_flags & Object::InsertPending))
                did.deleted.append(object);
            leave(object.get());
        }
    }
    for (const KXContextHold &object : wereDeleted) {
        if (!(object->m_flags
                & (Object::DeletePending | Object::Detached))) // else nobody knows, or it was inserted, too
            did.inserted.append(object);
        object->m_flags &= ~quint32(Object::Deleted | Object::DeletePending);
    }
    for (const auto &[object, change] : wereChanged) {
        if (object->m_flags & Object::Detached || !change.before)
            continue;
        object->m_flags &= ~quint32(Object::Updated);
        did.refreshed.append(change.object);
        QSet<QString> &keys = did.changedKeys[object];
        for (const KXPropertyDescription &property : object->m_entity->properties()) {
            if (!change.changed.test(size_t(property.index())))
                continue;
            keys.insert(property.name());
            together.willSet(object, property);
            if (property.isToMany()) {
                KXToManyKeys &members = object->values()->toMany(property);
                if (members.loaded)
                    members.members.subtract(members.added).unite(members.removed);
                members.added.clear();
                members.removed.clear();
            } else {
                object->values()->copy(*change.before, property);
            }
        }
    }
    together.tell();
    announce(std::move(did));
}

void KXChangesTogether::willSet(Object *object, const KXPropertyDescription &property)
{
    if (!object->isObserved())
        return;
    m_announced.push_back({ KXRef<Object>(object), &property, KXChangeKind::Setting, {}, {} });
    object->willChangeValueForKey(property.name());
}

void KXChangesTogether::willLink(
    Object *object, const KXPropertyDescription &property, const KXRef<Object> &member, bool add)
{
    const QVariantList members { KXVariantFromRef(member) };
    m_announced.push_back({ KXRef<Object>(object), &property, add ? KXChangeKind::Insertion : KXChangeKind::Removal,
        add ? QVariantList() : members, add ? members : QVariantList() });
    const Announced &one = m_announced.back();
    object->willChangeValueForKey(property.name(), one.kind, one.gone);
}

void KXChangesTogether::tell()
{
    for (const Announced &one : std::exchange(m_announced, {})) {
        if (one.kind == KXChangeKind::Setting)
            one.object->didChangeValueForKey(one.property->name());
        else
            one.object->didChangeValueForKey(one.property->name(), one.kind, one.gone, one.come);
    }
}
