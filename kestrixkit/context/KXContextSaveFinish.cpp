// What a save tells others, and what it makes of its own context once it is committed.

#include <kestrixkit/context/KXContextMerger_p.h>
#include <kestrixkit/context/KXContextSave_p.h>

using Access = KXObjectAccess;
using Object = KXManagedObject;

void KXContextSaver::noteVoid(const KXPropertyDescription &property, qint64 key, qint64 other)
{
    m_void.insert({ property.index(), key, other });
    if (property.inverse())
        m_void.insert({ property.inverse()->index(), other, key });
}

/// Members of a to-many relationship whose inverse is to-one come and go by a column of their own. One that left in
/// memory alone, such as one that an older state of it never belonged to, is no news to others.
bool KXContextSaver::isWrittenByMember(const KXPropertyDescription &property, qint64 key, qint64 member, bool add) const
{
    const KXPropertyDescription *inverse = property.inverse();
    if (!inverse || !inverse->isToOne())
        return true;
    const Object *object = m_context.reader.registered(member);
    if (!object || object->isDeleted() || object->isInserted())
        return object && object->isInserted() == add;
    return m_context.ledger.isChanged(object, *inverse)
        && (add ? Access::values(object) : m_context.ledger.storedValues(object))->toOne(*inverse) == key;
}

void KXContextSaver::noteUpdate(const Update &update)
{
    const Object &object = *update.object;
    const KXRowValues &after = update.merged ? *update.merged : *Access::values(&object);
    const KXRowValues &before = update.stored ? *update.stored
        : update.change->before               ? *update.change->before
                                              : *Access::values(&object); // members alone changed
    KXRowChange row { .key = Access::key(&object), .version = update.version };
    for (const KXPropertyDescription &property : object.entity()->properties()) {
        if (property.isToMany()) {
            const KXToManyKeys *keys = Access::values(&object)->existingToMany(property);
            if (!keys || !keys->isChanged())
                continue;
            KXPropertyChange members { &property, {}, {}, keys->added.values(), keys->removed.values() };
            const auto leaveWritten = [&](QList<qint64> &others, bool add) {
                others.removeIf([&](qint64 other) {
                    return m_void.contains({ property.index(), Access::key(&object), other })
                        || !isWrittenByMember(property, Access::key(&object), other, add);
                });
            };
            leaveWritten(members.added, true);
            leaveWritten(members.removed, false);
            if (!members.added.isEmpty() || !members.removed.isEmpty())
                row.properties.push_back(std::move(members));
        } else if (property.hasColumn() && (update.merged || update.change->changed.test(size_t(property.index())))
            && !KXRowValues::isEqual(after, before, property)) {
            const auto value = [&property](const KXRowValues &values) {
                if (property.isAttribute())
                    return values.attribute(property);
                return values.isPresent(property.index()) ? QVariant(values.toOne(property)) : QVariant();
            };
            row.properties.push_back({ &property, value(before), value(after), {}, {} });
        }
    }
    if (!row.properties.empty())
        changeOf(object.entity()).updated.push_back(std::move(row));
}

void KXContextSaver::settleMembers(Object *object)
{
    for (const KXPropertyDescription *property : m_context.codec(*object->entity()).toMany()) {
        KXToManyKeys *keys = Access::values(object)->existingToMany(*property);
        if (!keys)
            continue;
        if (Access::values(object)->version == 0 && !keys->loaded) {
            // What was added to a relationship of a new object is all there is of it.
            keys->members = keys->added;
            keys->loaded = true;
        }
        keys->added.clear();
        keys->removed.clear();
    }
}

/// From here to the end of finish() nobody is called, and what was collected goes, no more: the ledger holds new
/// changes from then on.
std::vector<KXContextHold> KXContextSaver::settleLedger(KXContextMerger &others)
{
    std::vector<KXContextHold> held;
    held.reserve(m_updated.size());
    for (Object *object : m_inserted) {
        settleMembers(object);
        Access::values(object)->version = m_context.ledger.firstVersion(Access::key(object));
        m_context.workingSet.keep(object);
        (void)m_context.ledger.saved(object);
    }
    for (const Update &update : m_updated) {
        settleMembers(update.object);
        held.push_back(m_context.ledger.saved(update.object));
    }
    m_context.ledger.dropSettledInsertions();
    for (const auto &[key, version] : m_gone)
        m_context.ledger.noteFormerVersion(key, version);
    for (const KXContextHold &object : m_context.ledger.takeDeletions(m_deletions)) {
        others.leaveMembers(object.get()); // what others have linked to it since it was deleted here
        m_context.reader.dismiss(object.get());
    }
    return held;
}

/// What others have saved, or taken, meanwhile.
void KXContextSaver::takeMerged(const Update &update, KXContextMerger &others)
{
    Object *object = update.object;
    if (update.vanished) {
        Access::dropValues(object);
        m_context.ledger.missed(object);
        return;
    }
    if (update.merged) {
        for (const KXPropertyDescription &property : object->entity()->properties()) {
            if (!property.hasColumn() || KXRowValues::isEqual(*Access::values(object), *update.merged, property))
                continue;
            if (property.isToOne())
                others.takeToOne(object, property, update.merged->toOne(property));
            else
                others.takeAttribute(object, property, *update.merged);
        }
    }
    if (update.version)
        Access::values(object)->version = update.version;
    m_context.workingSet.keep(object);
}

void KXContextSaver::finish(KXContextMerger &others)
{
    for (const Update &update : m_updated) {
        if (update.vanished)
            others.dropLinks(update.object);
    }
    const std::vector<KXContextHold> held = settleLedger(others);
    for (const Update &update : m_updated)
        takeMerged(update, others);
    for (const auto &[object, row] : m_overruled) {
        for (const KXPropertyChange &change : row.properties)
            others.takeToOne(object, *change.property, change.newValue.toLongLong());
        Access::values(object)->version = row.version;
    }
    std::vector<KXContextMerger::HeldRow> rows;
    for (const KXRowChange &row : m_foreign) {
        Object *object = m_context.reader.registered(row.key);
        if (object && Access::values(object))
            rows.push_back({ KXRef<Object>(object), &row });
    }
    others.takeOver(std::move(rows));
    for (const Row &row : m_doomed) { // those that were deleted here have left already
        if (const KXRef<Object> object { m_context.reader.registered(row.key) })
            others.vanish(object);
    }
}
