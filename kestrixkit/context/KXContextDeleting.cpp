// Objects that come and go: defaults, delete rules, and the way back.

#include <kestrixkit/context/KXContextEditor_p.h>

using Access = KXObjectAccess;
using Object = KXManagedObject;

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

void KXContextEditor::remove(Object *object)
{
    m_keeper.checkThread();
    std::vector<KXRef<Object>> doomed { KXRef<Object>(object) }; // with those that cascades reach, however deep
    for (size_t i = 0; i < doomed.size(); ++i) {
        const KXRef<Object> next = doomed[i];
        if (!next || next->managedObjectContext() != m_keeper.q || next->isDeleted() || !Access::loadedValues(next))
            continue;
        Access::prepareForDeletion(next.get());
        if (next->isDeleted())
            continue; // by its own preparation
        markDeleted(next);
        followDeleteRules(next.get(), doomed);
    }
}

void KXContextEditor::followDeleteRules(Object *object, std::vector<KXRef<Object>> &doomed)
{
    for (const KXPropertyDescription &property : object->entity()->properties()) {
        const KXPropertyDescription *inverse = property.inverse();
        if (!property.isRelationship() || property.deleteRule() == KXDeleteRule::Deny
            || (property.deleteRule() == KXDeleteRule::Nullify && !inverse))
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
