#include <kestrixkit/context/KXContextMerger_p.h>

#include <kestrixkit/foundation/KXLog.h>
#include <kestrixkit/foundation/KXRunCaught_p.h>
#include <kestrixkit/foundation/KXUndoGuards.h>
#include <kestrixkit/foundation/KXUndoManager.h>

using Access = KXObjectAccess;
using Object = KXManagedObject;

void KXContextMerger::noteRefreshed(Object *object, const KXPropertyDescription &property)
{
    QSet<QString> &keys = m_did.changedKeys[object];
    if (keys.isEmpty()) {
        m_did.refreshed.append(KXRef<Object>(object));
        QSet<QString> &alone = m_alone[&property];
        if (alone.isEmpty())
            alone.insert(property.name());
        keys = alone;
    } else if (!keys.contains(property.name())) {
        keys.insert(property.name());
    }
}

void KXContextMerger::tell()
{
    // What was saved is to be told of, whatever one observer does.
    KXRunCaught("observers of a merge", [this] { m_together.tell(); });
    for (KXChangesTogether &changes : m_takenBack)
        KXRunCaught("observers of a merge", [&changes] { changes.tell(); });
    m_context.announcer.announce(std::exchange(m_did, {}));
}

/// An edit that nobody here has made, so nobody takes it back.
void KXContextMerger::willChangeUnrecorded(Object *object, const KXPropertyDescription &property)
{
    const KXUndoRegistrationOff off(m_context.recorder.manager().get());
    m_context.editor.willChange(object, property.index());
}

// Rows that are gone

QSet<qint64> KXContextMerger::knownEnds(const Object *object, const KXPropertyDescription &property)
{
    if (property.isToOne())
        return { Access::values(object)->toOne(property) };
    const KXToManyKeys *keys = Access::values(object)->existingToMany(property);
    return keys ? keys->added + keys->members : QSet<qint64>();
}

void KXContextMerger::leaveMembers(Object *object)
{
    const qint64 gone = Access::key(object);
    for (const KXPropertyDescription &property : object->entity()->properties()) {
        const KXPropertyDescription *inverse = property.isRelationship() ? property.inverse() : nullptr;
        if (!inverse || !inverse->isToMany() || !Access::values(object))
            continue;
        for (const qint64 key : knownEnds(object, property)) {
            Object *other = key ? m_context.reader.registered(key) : nullptr;
            KXToManyKeys *keys = other && Access::values(other) && other != object
                ? Access::values(other)->existingToMany(*inverse)
                : nullptr;
            if (!keys || !(keys->added.contains(gone) || keys->members.contains(gone)))
                continue;
            if (other->isObserved())
                m_together.willLink(other, *inverse, KXRef<Object>(object), false);
            keys->added.remove(gone);
            keys->members.remove(gone);
            if (!other->isDeleted())
                noteRefreshed(other, *inverse);
        }
    }
}

void KXContextMerger::dropLinks(Object *object)
{
    for (const KXPropertyDescription &property : object->entity()->properties()) {
        const KXPropertyDescription *inverse = property.isRelationship() ? property.inverse() : nullptr;
        if (!inverse || !inverse->isToOne() || !Access::values(object))
            continue;
        for (const qint64 key : knownEnds(object, property)) {
            Object *other = key ? m_context.reader.registered(key) : nullptr;
            if (!other || !Access::values(other) || other == object || other->isDeleted()
                || Access::values(other)->toOne(*inverse) != Access::key(object))
                continue;
            m_together.willSet(other, *inverse);
            willChangeUnrecorded(other, *inverse);
            Access::values(other)->setToOne(*inverse, 0);
            noteRefreshed(other, *inverse);
        }
    }
    leaveMembers(object);
}

void KXContextMerger::vanish(const KXRef<Object> &object)
{
    dropLinks(object.get());
    if (m_context.recorder.hasReceiver() && Access::values(object))
        m_context.ledger.noteFormerVersion(Access::key(object), Access::values(object)->version);
    m_context.reader.dismiss(object.get());
    m_did.deleted.append(object);
}

// What both sides have changed

void KXContextMerger::keepContestedLink(const KXPropertyDescription &property, qint64 end, qint64 member, bool add)
{
    const KXRef<Object> object = end ? m_context.reader.object(*property.destinationEntity(), end) : KXRef<Object>();
    if (!object || object->isDeleted() || object->isInserted() || !Access::loadedValues(object))
        return;
    const KXPropertyDescription &inverse = *property.inverse();
    KXToManyKeys &keys = Access::values(object)->toMany(inverse);
    QSet<qint64> &own = add ? keys.added : keys.removed;
    if (own.contains(member))
        return;
    willChangeUnrecorded(object.get(), inverse);
    own.insert(member);
    if (keys.loaded && add)
        keys.members.insert(member);
    else if (keys.loaded)
        keys.members.remove(member);
}

/// Where an unsaved edit and the save lead an object to different ends, the edit stays; at those ends it becomes an
/// edit of what was saved. The end that the save leads to comes into memory for that, or reading it later would count
/// the object in.
void KXContextMerger::keepContestedLinks(const std::vector<HeldRow> &rows)
{
    if (m_context.ledger.changes().empty())
        return;
    for (const auto &[object, row] : rows) {
        const KXChangeLedger::Change *own = object->isUpdated() ? m_context.ledger.changeOf(object.get()) : nullptr;
        if (!own)
            continue;
        const KXPropertySet changed = own->changed;
        for (const KXPropertyChange &news : row->properties) {
            const KXPropertyDescription &property = *news.property;
            if (!property.isToOne() || !property.inverse() || !property.inverse()->isToMany()
                || !changed.test(size_t(property.index())) || row->version <= Access::values(object)->version)
                continue;
            const qint64 here = Access::values(object)->toOne(property);
            const qint64 there = news.newValue.toLongLong();
            if (here != there) {
                keepContestedLink(property, here, row->key, true);
                keepContestedLink(property, there, row->key, false);
            }
        }
    }
}

/// A partner that the save gave to the object, while an unsaved edit gives it to another one or to none, keeps to that
/// edit: the object goes without, which is now an edit as well.
void KXContextMerger::keepContestedPartner(Object *object, const KXPropertyDescription &property)
{
    const KXPropertyDescription &inverse = *property.inverse();
    const Object *partner = m_context.reader.registered(Access::values(object)->toOne(property));
    if (!partner || !Access::values(partner) || partner->isDeleted()
        || Access::values(partner)->toOne(inverse) == Access::key(object)
        || !m_context.ledger.isChanged(partner, inverse))
        return;
    m_together.willSet(object, property);
    willChangeUnrecorded(object, property);
    Access::values(object)->setToOne(property, 0);
}

/// Two contexts' moves made a circle of a tree: the one that is not saved gives way.
void KXContextMerger::breakCircle(Object *object, const KXPropertyDescription &property)
{
    if (!Access::values(object)
        || !m_context.editor.makesCircle(object, property, Access::values(object)->toOne(property)))
        return;
    KXRef<Object> mover(object);
    do {
        const KXPropertyDescription &moved = *mover->entity()->property(property.name());
        const KXEntityDescription &destination = *moved.destinationEntity();
        const KXRowValues *stored = m_context.ledger.storedValues(mover.get());
        const qint64 now = Access::values(mover)->toOne(moved);
        const qint64 before = stored ? stored->toOne(moved) : now;
        if (before != now) {
            KXLogWarning(store, "A move of \"%@\" is taken back: another context has moved what it was moved to",
                mover->entity()->name());
            const KXUndoRegistrationOff off(m_context.recorder.manager().get());
            const KXRef<Object> home = before ? m_context.reader.object(destination, before) : KXRef<Object>();
            const bool isFree = home && m_context.editor.mayConnect(mover.get(), moved, home.get());
            KXContextEditor::Together together(m_context.editor);
            m_context.editor.setToOne(mover.get(), moved, isFree ? home.get() : nullptr);
            m_takenBack.push_back(together.take());
            return;
        }
        mover = m_context.reader.object(destination, now);
    } while (mover != object);
}

// Taking over

void KXContextMerger::takeAttribute(Object *object, const KXPropertyDescription &property, const KXRowValues &from)
{
    m_together.willSet(object, property);
    Access::values(object)->copy(from, property);
    noteRefreshed(object, property);
}

void KXContextMerger::takeToOne(Object *object, const KXPropertyDescription &property, qint64 key)
{
    const qint64 before = Access::values(object)->toOne(property);
    m_together.willSet(object, property);
    Access::values(object)->setToOne(property, key);
    noteRefreshed(object, property);
    const KXPropertyDescription *inverse = property.inverse();
    if (!inverse || inverse->isToOne())
        return;
    const qint64 own = Access::key(object);
    for (const bool add : { false, true }) {
        Object *end = m_context.reader.registered(add ? key : before);
        KXToManyKeys *keys = end && Access::values(end) ? Access::values(end)->existingToMany(*inverse) : nullptr;
        if (!keys || !keys->loaded || (add && object->isDeleted()) || keys->members.contains(own) == add)
            continue;
        if (end->isObserved())
            m_together.willLink(end, *inverse, KXRef<Object>(object), add);
        if (add)
            keys->members.insert(own);
        else
            keys->members.remove(own);
        noteRefreshed(end, *inverse);
    }
}

void KXContextMerger::mergeColumn(
    Object *object, const KXPropertyChange &news, std::vector<Led> &partners, std::vector<Led> &moves)
{
    const KXPropertyDescription &property = *news.property;
    m_context.ledger.rebase(object, property, news.newValue);
    if (m_context.ledger.isChanged(object, property)) { // an unsaved edit stays
        if (property.isAcyclic())
            moves.push_back({ KXRef<Object>(object), &property });
        return;
    }
    if (property.isAttribute()) {
        m_together.willSet(object, property);
        Access::values(object)->setAttribute(property, news.newValue);
        noteRefreshed(object, property);
        return;
    }
    takeToOne(object, property, news.newValue.toLongLong());
    if (property.isAcyclic())
        moves.push_back({ KXRef<Object>(object), &property });
    if (property.inverse() && property.inverse()->isToOne())
        partners.push_back({ KXRef<Object>(object), &property });
}

void KXContextMerger::mergeMember(
    const KXRef<Object> &object, const KXPropertyDescription &property, qint64 key, bool add)
{
    const KXPropertyDescription *inverse = property.inverse();
    KXToManyKeys *keys = Access::values(object)->existingToMany(property);
    const Object *member = inverse ? m_context.reader.registered(key) : nullptr;
    // What of a member is unsaved its own column says, from where to where: a save that the context has read past says
    // nothing of that.
    const KXRowValues *stored = keys && member && inverse->isToOne() && m_context.ledger.isChanged(member, *inverse)
        ? m_context.ledger.storedValues(member)
        : nullptr;
    if (stored) {
        const bool is = Access::values(member)->toOne(*inverse) == Access::key(object);
        const bool was = stored->toOne(*inverse) == Access::key(object);
        if (is || !was)
            keys->removed.remove(key);
        if (!is || was)
            keys->added.remove(key);
        if (keys->added.contains(key) || keys->removed.contains(key))
            return;
    }
    // Both did the same: it is no longer unsaved here. Both did the opposite: the unsaved edit stays.
    if (keys && ((add ? keys->added : keys->removed).remove(key) || (add ? keys->removed : keys->added).contains(key)))
        return;
    if (add && member && member->isDeleted() && !object->isDeleted()) {
        // Deleted here, and not saved: it leaves whatever it comes to.
        willChangeUnrecorded(object.get(), property);
        Access::values(object)->toMany(property).removed.insert(key);
        return;
    }
    // A member in memory may be newer than the save.
    const bool isToBeAsked = keys && keys->loaded && member && inverse->isToOne() && Access::values(member);
    const bool is
        = isToBeAsked && !member->isDeleted() ? Access::values(member)->toOne(*inverse) == Access::key(object) : add;
    if (keys && keys->loaded && keys->members.contains(key) == is)
        return;
    if (object->isObserved())
        m_together.willLink(object.get(), property, m_context.reader.object(*property.destinationEntity(), key), is);
    if (keys && keys->loaded && is)
        keys->members.insert(key);
    else if (keys && keys->loaded)
        keys->members.remove(key);
}

void KXContextMerger::mergeMembers(const KXRef<Object> &object, const KXPropertyChange &news)
{
    noteRefreshed(object.get(), *news.property);
    for (const qint64 key : news.added)
        mergeMember(object, *news.property, key, true);
    for (const qint64 key : news.removed)
        mergeMember(object, *news.property, key, false);
}

void KXContextMerger::takeOverRows(const std::vector<HeldRow> &rows)
{
    std::vector<Led> partners, moves;
    // Columns first: they say where members belong.
    for (const auto &[object, row] : rows) {
        if (!Access::values(object) || row->version <= Access::values(object)->version)
            continue;
        for (const KXPropertyChange &news : row->properties) {
            if (!news.property->isToMany())
                mergeColumn(object.get(), news, partners, moves);
        }
        Access::values(object)->version = row->version;
    }
    for (const auto &[object, row] : rows) {
        for (const KXPropertyChange &news : row->properties) {
            if (news.property->isToMany() && Access::values(object))
                mergeMembers(object, news);
        }
    }
    for (const Led &led : partners) {
        if (Access::values(led.object))
            keepContestedPartner(led.object.get(), *led.property);
    }
    for (const Led &led : moves)
        breakCircle(led.object.get(), *led.property);
}

void KXContextMerger::takeOver(std::vector<HeldRow> rows)
{
    const std::list<KXRowChange> again = readAgain(rows, false);
    takeOverRows(rows);
}

std::vector<KXContextMerger::HeldRow> KXContextMerger::heldRows(const std::vector<KXEntityChange> &entities) const
{
    // Objects that nobody has looked at for a while are fetched into the cache together, and so are their values.
    std::vector<std::pair<Object *, const KXRowChange *>> known;
    for (const KXEntityChange &entity : entities) {
        for (const KXRowChange &row : entity.updated) {
            if (Object *object = m_context.reader.registered(row.key)) {
                __builtin_prefetch(object, 1);
                known.emplace_back(object, &row);
            }
        }
    }
    std::vector<HeldRow> rows;
    for (const auto &[object, row] : known) {
        if (const KXRowValues *values = Access::values(object); values && !object->isInserted()) {
            __builtin_prefetch(values, 1);
            rows.push_back({ KXRef<Object>(object), row });
        }
    }
    return rows;
}

void KXContextMerger::merge(const KXStoreChange &change, bool isLate)
{
    m_did.merged = change.weak_from_this().lock();
    std::vector<HeldRow> rows = heldRows(change.entities());
    if (!rows.empty())
        m_did.changedKeys.reserve(qsizetype(rows.size()));
    const std::list<KXRowChange> again = rows.empty() ? std::list<KXRowChange>() : readAgain(rows, isLate);
    keepContestedLinks(rows);
    takeOverRows(rows);
    std::list<KXRowChange> read;
    std::vector<HeldRow> back;
    for (const KXEntityChange &entity : change.entities()) {
        m_did.insertedKeys.append(entity.inserted);
        for (const qint64 key : entity.inserted) {
            if (Object *asked = m_context.reader.registered(key)) // before there was a row
                m_context.ledger.found(asked);
        }
        for (const qint64 key : entity.deleted) {
            const KXRef<Object> object(m_context.reader.registered(key));
            if (object && isLate && hasComeBack(object.get(), read.emplace_back(KXRowChange { .key = key })))
                back.push_back({ object, &read.back() });
            else if (object)
                vanish(object);
        }
    }
    keepContestedLinks(back);
    takeOverRows(back);
    dropStaleMembers(change.entities());
}

void KXManagedObjectContextPrivate::mergeChanges(const KXStoreChange &change)
{
    checkThread();
    if (!store || parent || change.originatingContext() == q || change.store()->uuid != store->identity->uuid)
        return;
    const auto held = hold();
    // What was done here before is told before.
    announcer.settle();
    // Another coordinator's saves are numbered otherwise.
    const bool isLate = change.store()->serial != store->identity->serial || change.serialNumber() < newestSerial;
    if (!isLate)
        newestSerial = change.serialNumber();
    KXContextMerger merger(*this);
    merger.merge(change, isLate);
    if (!change.entities().empty())
        merger.tell();
}
