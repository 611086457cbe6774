// Objects that come and go: defaults, delete rules, and the way back.

#include <kestrixkit/context/KXContextEditor_p.h>

#include <algorithm>

using Access = KXObjectAccess;
using Object = KXManagedObject;

namespace {

// Objects whose surroundings are read in one go: fewer than the working set keeps of those.
constexpr size_t deletingTogether = 1'000;

}

void KXContextEditor::setDefaults(Object *object)
{
    KXRowValues *values = KXRowValues::create(*object->entity());
    Access::setValues(object, values);
    for (const KXPropertyDescription &property : object->entity()->properties()) {
        if (property.isAttribute() && property.defaultValue().isValid())
            values->setAttribute(property, property.defaultValue());
    }
}

void KXContextEditor::insertNew(const KXRef<Object> &object)
{
    setDefaults(object.get());
    m_ledger.inserted(object);
    m_recorder.didInsert(object.get());
    m_announcer.schedule();
}

void KXContextEditor::markDeleted(const KXRef<Object> &object)
{
    if (object->managedObjectContext() != m_keeper.q || object->isDeleted() || !Access::loadedValues(object))
        return;
    m_recorder.willDelete(object.get());
    m_ledger.deleted(object);
    m_announcer.schedule();
}

void KXContextEditor::revive(
    const KXRef<Object> &object, const KXRowValues &values, const std::map<int, QSet<qint64>> &members)
{
    if (object->isDeleted()) {
        m_ledger.revived(object);
        m_announcer.schedule();
        return;
    }
    if (!Access::isDetached(object))
        return;
    // Its deletion was saved: the next save inserts the row again, under its old key.
    if (Object *held = m_reader.registered(Access::key(object))) {
        if (Access::values(held))
            return;
        m_reader.dismiss(held); // somebody has asked for the identifier meanwhile
    }
    m_ledger.revived(object);
    const KXEntityDescription &entity = *object->entity();
    KXRowValues *restored = KXRowValues::clone(values, entity);
    restored->version = 0;
    Access::dropValues(object.get());
    Access::setValues(object.get(), restored);
    for (const auto &[index, keys] : members) {
        KXToManyKeys &toMany = restored->toMany(entity.properties()[index]);
        toMany.loaded = true;
        toMany.members = toMany.added = keys;
    }
    m_workingSet.enter(object.get());
    if (object->isObserved())
        m_workingSet.setObserved(object.get(), true);
    m_announcer.schedule();
}

bool KXContextEditor::hasDeletionToFollow(const KXPropertyDescription &property)
{
    return property.deleteRule() == KXDeleteRule::Cascade
        || (property.deleteRule() == KXDeleteRule::Nullify && property.inverse());
}

/// What the rules of objects of one entity look at, with a few looks into the store for all of them.
void KXContextEditor::readForDeletion(
    const KXEntityDescription &entity, std::span<const KXRef<Object>> objects, std::span<const qint64> keys)
{
    m_reader.fill(entity, keys);
    for (const KXPropertyDescription &property : entity.properties()) {
        if (!property.isRelationship() || !hasDeletionToFollow(property))
            continue;
        if (property.isToMany())
            m_reader.loadToMany(objects, property);
        std::vector<qint64> others;
        for (const KXRef<Object> &object : objects) {
            const std::vector<qint64> ends = m_reader.keysOf(object.get(), property);
            others.insert(others.end(), ends.begin(), ends.end());
        }
        m_reader.fill(*property.destinationEntity(), others);
    }
}

void KXContextEditor::readForDeletion(std::span<const KXRef<Object>> doomed)
{
    if (doomed.size() < 2)
        return;
    std::map<const KXEntityDescription *, std::pair<std::vector<KXRef<Object>>, std::vector<qint64>>> sorted;
    for (const KXRef<Object> &object : doomed) {
        if (!object || object->managedObjectContext() != m_keeper.q || object->isDeleted())
            continue;
        auto &[objects, keys] = sorted[object->entity()];
        objects.push_back(object);
        keys.push_back(Access::key(object));
    }
    for (const auto &[entity, together] : sorted)
        readForDeletion(*entity, together.first, together.second);
}

void KXContextEditor::remove(std::vector<KXRef<Object>> doomed)
{
    m_keeper.checkThread();
    const auto held = m_keeper.hold();
    size_t read = 0;
    for (size_t i = 0; i < doomed.size(); ++i) { // with those that cascades reach, however deep
        if (i == read) {
            const size_t count = std::min(deletingTogether, doomed.size() - i);
            readForDeletion(std::span(doomed).subspan(i, count));
            read += count;
        }
        const KXRef<Object> next = doomed[i];
        const auto isThere = [&] {
            return next && next->managedObjectContext() == m_keeper.q && !next->isDeleted()
                && Access::loadedValues(next);
        };
        if (!isThere())
            continue;
        Access::prepareForDeletion(next.get());
        if (!isThere())
            continue; // deleted by its own preparation, perhaps saved
        Together together(*this);
        markDeleted(next);
        followDeleteRules(next.get(), doomed);
        together.tell();
    }
}

void KXContextEditor::followDeleteRules(Object *object, std::vector<KXRef<Object>> &doomed)
{
    for (const KXPropertyDescription &property : object->entity()->properties()) {
        const KXPropertyDescription *inverse = property.inverse();
        if (!property.isRelationship() || !hasDeletionToFollow(property))
            continue;
        QList<KXRef<Object>> others;
        if (property.isToMany())
            others = m_reader.toMany(object, property);
        else if (const KXRef<Object> other = m_reader.toOne(object, property))
            others.append(other);
        for (const KXRef<Object> &other : others) {
            if (property.deleteRule() == KXDeleteRule::Cascade) {
                doomed.push_back(other);
                continue;
            }
            if (!inverse || !Access::loadedValues(other))
                continue;
            if (inverse->isToMany())
                link(other.get(), *inverse, Access::key(object), false);
            else if (Access::values(other)->toOne(*inverse) == Access::key(object))
                assignToOne(other.get(), *inverse, 0);
        }
    }
}

void KXContextEditor::letGo(Object *object)
{
    for (const KXPropertyDescription &property : object->entity()->properties()) {
        const KXPropertyDescription *inverse = property.isRelationship() ? property.inverse() : nullptr;
        if (!inverse || !Access::loadedValues(object))
            continue;
        for (const qint64 key : m_reader.keysOf(object, property)) {
            const KXRef<Object> other = m_reader.object(*property.destinationEntity(), key);
            if (!other || other->isDeleted() || !Access::loadedValues(other))
                continue;
            if (inverse->isToMany() && m_reader.isMember(other.get(), *inverse, Access::key(object)))
                link(other.get(), *inverse, Access::key(object), false);
            else if (inverse->isToOne() && Access::values(other)->toOne(*inverse) == Access::key(object))
                assignToOne(other.get(), *inverse, 0);
        }
    }
}
