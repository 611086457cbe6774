// Saves of other contexts: what of them this context holds takes over what was saved, around its own unsaved edits.

#include <kestrixkit/context/KXManagedObjectContext_p.h>
#include <kestrixkit/foundation/KXLog.h>
#include <kestrixkit/foundation/KXUndoGuards.h>
#include <kestrixkit/foundation/KXUndoManager.h>

using Object = KXManagedObject;

void KXManagedObjectContextPrivate::noteRefreshed(
    KXObjectsDidChange &did, Object *object, const KXPropertyDescription &property)
{
    QSet<QString> &keys = did.changedKeys[object];
    if (keys.isEmpty())
        did.refreshed.append(KXRef<Object>(object));
    keys.insert(property.name());
}

QSet<qint64> KXManagedObjectContextPrivate::knownEnds(const Object *object, const KXPropertyDescription &property)
{
    const KXToManyKeys *keys = property.isToMany() ? object->values()->existingToMany(property) : nullptr;
    if (property.isToMany())
        return keys ? keys->added + keys->members : QSet<qint64>();
    return { object->values()->toOne(property) };
}

/// Members that others hold are no longer theirs.
void KXManagedObjectContextPrivate::leaveMembers(Object *object, KXObjectsDidChange &did, KXChangesTogether &together)
{
    for (const KXPropertyDescription &property : object->entity()->properties()) {
        const KXPropertyDescription *inverse = property.isRelationship() ? property.inverse() : nullptr;
        if (!inverse || !inverse->isToMany() || !object->m_values)
            continue;
        for (const qint64 key : knownEnds(object, property)) {
            Object *other = key ? registered(key) : nullptr;
            KXToManyKeys *keys
                = other && other->m_values && other != object ? other->values()->existingToMany(*inverse) : nullptr;
            if (!keys || !(keys->added.contains(object->m_key) || keys->members.contains(object->m_key)))
                continue;
            if (other->isObserved())
                together.willLink(other, *inverse, KXRef<Object>(object), false);
            keys->added.remove(object->m_key);
            keys->members.remove(object->m_key);
            if (!other->isDeleted())
                noteRefreshed(did, other, *inverse);
        }
    }
}

void KXManagedObjectContextPrivate::dropLinks(Object *object, KXObjectsDidChange &did, KXChangesTogether &together)
{
    for (const KXPropertyDescription &property : object->entity()->properties()) {
        const KXPropertyDescription *inverse = property.isRelationship() ? property.inverse() : nullptr;
        if (!inverse || !inverse->isToOne() || !object->m_values)
            continue;
        for (const qint64 key : knownEnds(object, property)) {
            Object *other = key ? registered(key) : nullptr;
            if (!other || !other->m_values || other == object || other->isDeleted()
                || other->values()->toOne(*inverse) != object->m_key)
                continue;
            const KXUndoRegistrationOff off(recorder.manager().get());
            together.willSet(other, *inverse);
            willChange(other, inverse->index());
            other->values()->setToOne(*inverse, 0);
            noteRefreshed(did, other, *inverse);
        }
    }
    leaveMembers(object, did, together);
}

void KXManagedObjectContextPrivate::vanish(
    const KXRef<Object> &object, KXObjectsDidChange &did, KXChangesTogether &together)
{
    dropLinks(object.get(), did, together);
    if (recorder.manager() && object->m_values)
        formerVersions[object->m_key] = object->values()->version;
    changes.erase(object.get());
    if (object->isInserted() || (object->isDeleted() && object->values()->version == 0))
        std::erase(inserted, object); // a deleted one that was never saved is still among them
    if (object->isDeleted())
        std::erase(deleted, object);
    dismiss(object.get());
    did.deleted.append(object);
}

/// Where an unsaved edit and the save lead an object to different ends, the edit stays; at those ends it becomes an
/// edit of what was saved. The end that the save leads to comes into memory for that, or reading it later would count
/// the object in.
void KXManagedObjectContextPrivate::keepContestedLinks(const std::vector<HeldRow> &rows)
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
    for (const auto &[object, row] : rows) {
        const auto own = object->isUpdated() ? changes.find(object.get()) : changes.end();
        if (own == changes.end())
            continue;
        const KXPropertySet changed = own->second.changed;
        for (const KXPropertyChange &news : row->properties) {
            const KXPropertyDescription &property = *news.property;
            if (!property.isToOne() || !property.inverse() || !property.inverse()->isToMany()
                || !changed.test(size_t(property.index())) || row->version <= object->values()->version)
                continue;
            const qint64 here = object->values()->toOne(property);
            const qint64 there = news.newValue.toLongLong();
            if (here != there) {
                settle(property, here, row->key, true);
                settle(property, there, row->key, false);
            }
        }
    }
}

/// A partner that the save gave to the object, while an unsaved edit gives it to another one or to none, keeps to that
/// edit: the object goes without, which is now an edit as well.
void KXManagedObjectContextPrivate::keepContestedPartner(
    Object *object, const KXPropertyDescription &property, KXChangesTogether &together)
{
    const KXPropertyDescription &inverse = *property.inverse();
    const Object *partner = registered(object->values()->toOne(property));
    const auto own
        = partner && partner->m_values && !partner->isDeleted() && partner->values()->toOne(inverse) != object->m_key
        ? changes.find(const_cast<Object *>(partner))
        : changes.end();
    if (own == changes.end() || !own->second.changed.test(size_t(inverse.index())))
        return;
    const KXUndoRegistrationOff off(recorder.manager().get());
    together.willSet(object, property);
    willChange(object, property.index());
    object->values()->setToOne(property, 0);
}

/// Two contexts' moves made a circle of a tree: the one that is not saved gives way.
void KXManagedObjectContextPrivate::breakCircle(Object *object, const KXPropertyDescription &property)
{
    if (!object->m_values || !makesCircle(object, property, object->values()->toOne(property)))
        return;
    KXRef<Object> mover(object);
    do {
        const KXPropertyDescription &moved = *mover->m_entity->property(property.name());
        const KXRowValues *stored = storedValues(mover.get());
        const qint64 before = stored ? stored->toOne(moved) : mover->values()->toOne(moved);
        if (before != mover->values()->toOne(moved)) {
            KXLogWarning(store, "A move of \"%@\" is taken back: another context has moved what it was moved to",
                mover->m_entity->name());
            const KXUndoRegistrationOff off(recorder.manager().get());
            const KXRef<Object> home = before ? this->object(*moved.destinationEntity(), before) : KXRef<Object>();
            setToOne(mover.get(), moved, home && mayConnect(mover.get(), moved, home.get()) ? home.get() : nullptr);
            return;
        }
        mover = this->object(*moved.destinationEntity(), mover->values()->toOne(moved));
    } while (mover != object);
}

// What comes out of order

bool KXManagedObjectContextPrivate::isStoredMember(qint64 key, const KXPropertyDescription &property, qint64 other)
{
    KXError error;
    const KXStoreConnections::Reader reader = store->connections.reader(&error);
    KXStatement query;
    if (reader)
        query
            = reader->prepare(property.joinTable().isEmpty() ? "SELECT 1 FROM " + property.destinationEntity()->table()
                        + " WHERE " + property.inverse()->column() + " = ? AND kx_id = ?"
                                                             : "SELECT 1 FROM " + property.joinTable() + " WHERE "
                        + property.joinSource() + " = ? AND " + property.joinTarget() + " = ?");
    if (!query) {
        KXLogError(store, "Cannot read \"%@\": %@", property.name(), reader ? reader->lastError() : error);
        return false;
    }
    query.bind(1, key);
    query.bind(2, other);
    return query.step() == SQLITE_ROW;
}

/// Puts what of the stored row differs from what the object was read from in the place of the news about columns; the
/// version 0 where there is no row.
void KXManagedObjectContextPrivate::readColumnsAgain(Object *object, KXRowChange &news)
{
    std::erase_if(news.properties, [](const KXPropertyChange &one) { return !one.property->isToMany(); });
    news.version = 0;
    const KXEntityDescription &entity = *object->m_entity;
    const KXRowCodec &codec = store->codec(entity);
    KXRowValues::Owner row(KXRowValues::create(entity), { &entity });
    {
        KXError error;
        const KXStoreConnections::Reader reader = store->connections.reader(&error);
        KXStatement query = reader ? reader->prepare(codec.select() + " WHERE t0.kx_id = ?") : KXStatement();
        if (query)
            query.bind(1, object->m_key);
        const int code = query ? query.step() : SQLITE_ERROR;
        if (code != SQLITE_ROW) {
            // Not merged, it will be a conflict, which settles it.
            if (code != SQLITE_DONE)
                KXLogError(
                    store, "Cannot read a row of \"%@\": %@", entity.name(), reader ? reader->lastError() : error);
            return;
        }
        codec.read(query, *row);
    }
    news.version = row->version;
    const KXRowValues *stored = storedValues(object);
    const KXRowValues &known = stored ? *stored : *object->values();
    const auto value = [](const KXRowValues &values, const KXPropertyDescription &property) {
        if (property.isAttribute())
            return values.attribute(property);
        return values.isPresent(property.index()) ? QVariant(values.toOne(property)) : QVariant();
    };
    for (const KXPropertyDescription &property : entity.properties()) {
        if (property.hasColumn() && !KXRowValues::isEqual(*row, known, property))
            news.properties.push_back({ &property, value(known, property), value(*row, property), {}, {} });
    }
}

/// Of some rows the save does not say what has become of them here: a version in between was not merged, or another
/// save of them was merged before. The store says it; answers what the rows then point to.
std::list<KXRowChange> KXManagedObjectContextPrivate::readAgain(std::vector<HeldRow> &rows, bool isLate)
{
    std::list<KXRowChange> again;
    for (auto &[object, row] : rows) {
        const bool isGap = row->version > object->values()->version + 1;
        const auto isDoubtful = [&object = object](const KXPropertyChange &one) {
            const KXToManyKeys *keys
                = one.property->isToMany() ? object->values()->existingToMany(*one.property) : nullptr;
            return keys && (keys->loaded || keys->isChanged());
        };
        if (!isGap && !(isLate && std::any_of(row->properties.begin(), row->properties.end(), isDoubtful)))
            continue;
        row = &again.emplace_back(*row);
        if (isGap)
            readColumnsAgain(object.get(), again.back());
        for (KXPropertyChange &one : again.back().properties) {
            if (!isLate || !isDoubtful(one))
                continue;
            const QList<qint64> named = std::exchange(one.added, {}) + std::exchange(one.removed, {});
            for (const qint64 key : named)
                (isStoredMember(row->key, *one.property, key) ? one.added : one.removed).append(key);
        }
    }
    return again;
}

// Taking over

void KXManagedObjectContextPrivate::takeToOne(Object *object, const KXPropertyDescription &property, qint64 key,
    KXObjectsDidChange &did, KXChangesTogether &together)
{
    const qint64 before = object->values()->toOne(property);
    together.willSet(object, property);
    object->values()->setToOne(property, key);
    noteRefreshed(did, object, property);
    const KXPropertyDescription *inverse = property.inverse();
    if (!inverse || inverse->isToOne())
        return;
    for (const bool add : { false, true }) {
        Object *end = registered(add ? key : before);
        KXToManyKeys *keys = end && end->m_values ? end->values()->existingToMany(*inverse) : nullptr;
        if (!keys || !keys->loaded || (add && object->isDeleted()) || keys->members.contains(object->m_key) == add)
            continue;
        if (end->isObserved())
            together.willLink(end, *inverse, KXRef<Object>(object), add);
        if (add)
            keys->members.insert(object->m_key);
        else
            keys->members.remove(object->m_key);
        noteRefreshed(did, end, *inverse);
    }
}

std::vector<KXManagedObjectContextPrivate::HeldRow> KXManagedObjectContextPrivate::heldRows(
    const std::vector<KXEntityChange> &entities) const
{
    std::vector<HeldRow> rows;
    for (const KXEntityChange &entity : entities) {
        for (const KXRowChange &row : entity.updated) {
            Object *object = registered(row.key);
            if (object && object->m_values && !object->isInserted())
                rows.push_back({ KXRef<Object>(object), &row });
        }
    }
    return rows;
}

void KXManagedObjectContextPrivate::takeOver(
    const std::vector<HeldRow> &rows, KXObjectsDidChange &did, KXChangesTogether &together)
{
    struct Led
    {
        KXRef<Object> object;
        const KXPropertyDescription *property;
    };
    std::vector<Led> partners, moves;
    const auto mergeColumn = [&](Object *object, const KXPropertyChange &news) {
        const KXPropertyDescription &property = *news.property;
        const auto found = changes.find(object);
        Change *own = found == changes.end() ? nullptr : &found->second;
        // An unsaved edit stays; it is now an edit of what the other one saved.
        if (own && own->before) {
            if (property.isAttribute())
                own->before->setAttribute(property, news.newValue);
            else
                own->before->setToOne(property, news.newValue.toLongLong());
        }
        if (own && own->changed.test(size_t(property.index()))) {
            if (property.isAcyclic())
                moves.push_back({ KXRef<Object>(object), &property });
            return;
        }
        if (property.isAttribute()) {
            together.willSet(object, property);
            object->values()->setAttribute(property, news.newValue);
            noteRefreshed(did, object, property);
            return;
        }
        takeToOne(object, property, news.newValue.toLongLong(), did, together);
        if (property.isAcyclic())
            moves.push_back({ KXRef<Object>(object), &property });
        if (property.inverse() && property.inverse()->isToOne())
            partners.push_back({ KXRef<Object>(object), &property });
    };
    const auto mergeMembers = [&](const KXRef<Object> &object, const KXPropertyChange &news) {
        const KXPropertyDescription &property = *news.property;
        const KXPropertyDescription *inverse = property.inverse();
        KXToManyKeys *keys = object->values()->existingToMany(property);
        noteRefreshed(did, object.get(), property);
        for (const bool add : { true, false }) {
            for (const qint64 key : add ? news.added : news.removed) {
                // Both did the same: it is no longer unsaved here. Both did the opposite: the unsaved edit stays.
                if (keys
                    && ((add ? keys->added : keys->removed).remove(key)
                        || (add ? keys->removed : keys->added).contains(key)))
                    continue;
                const Object *member = inverse ? registered(key) : nullptr;
                if (add && member && member->isDeleted() && !object->isDeleted()) {
                    // Deleted here, and not saved: it leaves whatever it comes to.
                    const KXUndoRegistrationOff off(recorder.manager().get());
                    willChange(object.get(), property.index());
                    object->values()->toMany(property).removed.insert(key);
                    continue;
                }
                // A member in memory may be newer than the save.
                const bool is
                    = keys && keys->loaded && member && inverse->isToOne() && member->m_values && !member->isDeleted()
                    ? member->values()->toOne(*inverse) == object->m_key
                    : add;
                if (keys && keys->loaded && keys->members.contains(key) == is)
                    continue;
                if (object->isObserved())
                    together.willLink(object.get(), property, this->object(*property.destinationEntity(), key), is);
                if (keys && keys->loaded && is)
                    keys->members.insert(key);
                else if (keys && keys->loaded)
                    keys->members.remove(key);
            }
        }
    };

    // Columns first: they say where members belong.
    for (const auto &[object, row] : rows) {
        if (!object->m_values || row->version <= object->values()->version)
            continue;
        for (const KXPropertyChange &news : row->properties) {
            if (!news.property->isToMany())
                mergeColumn(object.get(), news);
        }
        object->values()->version = row->version;
    }
    for (const auto &[object, row] : rows) {
        for (const KXPropertyChange &news : row->properties) {
            if (news.property->isToMany() && object->m_values)
                mergeMembers(object, news);
        }
    }
    for (const Led &led : partners) {
        if (led.object->m_values)
            keepContestedPartner(led.object.get(), *led.property, together);
    }
    for (const Led &led : moves)
        breakCircle(led.object.get(), *led.property);
}

void KXManagedObjectContextPrivate::mergeChanges(const KXStoreChange &change)
{
    checkThread();
    if (!store || parent || change.originatingContext() == q || change.store()->uuid != store->identity->uuid)
        return;
    // What was done here before is told before.
    settleAnnouncements();
    KXObjectsDidChange did;
    did.merged = change.weak_from_this().lock();
    // Another coordinator's saves are numbered otherwise.
    const bool isLate = change.store()->serial != store->identity->serial || change.serialNumber() < newestSerial;
    if (!isLate)
        newestSerial = change.serialNumber();

    std::vector<HeldRow> rows = heldRows(change.entities());
    const std::list<KXRowChange> again = rows.empty() ? std::list<KXRowChange>() : readAgain(rows, isLate);
    keepContestedLinks(rows);
    KXChangesTogether together;
    takeOver(rows, did, together);
    for (const KXEntityChange &entity : change.entities()) {
        did.insertedKeys.append(entity.inserted);
        for (const qint64 key : entity.inserted) {
            if (Object *asked = registered(key)) // before there was a row
                asked->m_flags &= ~quint32(Object::Missing);
        }
        for (const qint64 key : entity.deleted) {
            const KXRef<Object> object(registered(key));
            if (!object)
                continue;
            if (isLate && object->m_values && !object->isInserted()) {
                // An undo may have brought the row back since.
                KXRowChange row { .key = key };
                readColumnsAgain(object.get(), row);
                if (row.version != 0) {
                    object->values()->version = 0; // whatever the new one is, it is newer
                    // Its members came with it, which no change tells: they are read again when they are asked for.
                    for (const KXPropertyDescription *property : store->codec(*object->m_entity).toMany()) {
                        KXToManyKeys *keys = object->values()->existingToMany(*property);
                        if (!keys || !keys->loaded)
                            continue;
                        together.willSet(object.get(), *property);
                        keys->loaded = false;
                        keys->members.clear();
                        noteRefreshed(did, object.get(), *property);
                    }
                    takeOver({ { object, &row } }, did, together);
                    continue;
                }
            }
            vanish(object, did, together);
        }
    }
    together.tell();
    if (!change.entities().empty())
        announce(std::move(did));
}
