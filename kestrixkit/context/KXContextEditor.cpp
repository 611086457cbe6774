#include <kestrixkit/context/KXContextEditor_p.h>

#include <kestrixkit/foundation/KXException.h>
#include <kestrixkit/foundation/KXLog.h>
#include <kestrixkit/foundation/KXStringWithFormat.h>

using Access = KXObjectAccess;
using Object = KXManagedObject;

void KXContextEditor::willChange(Object *object, int property)
{
    m_keeper.checkThread();
    if (object->isDeleted())
        return;
    if (m_recorder.hasReceiver())
        m_recorder.willChange(object, property);
    m_ledger.edited(object, property);
    m_announcer.schedule();
}

// Relationships

bool KXContextEditor::mayConnect(Object *object, const KXPropertyDescription &property, Object *other)
{
    if (!other)
        return true;
    if (other->managedObjectContext() != m_keeper.q) {
        if (other->managedObjectContext()) {
            throw KXException(QString(KXInvalidArgumentException),
                KXStringWithFormat("\"%@\" of \"%@\" cannot hold an object of another context", property.name(),
                    object->entity()->name()));
        }
        KXLogWarning(
            store, "\"%@\" of \"%@\" cannot hold an object without context", property.name(), object->entity()->name());
        return false;
    }
    if (!other->entity()->isKindOf(property.destinationEntity())) {
        throw KXException(QString(KXInvalidArgumentException),
            KXStringWithFormat("\"%@\" of \"%@\" cannot hold an object of the entity \"%@\"", property.name(),
                object->entity()->name(), other->entity()->name()));
    }
    if (other->isDeleted() || !Access::loadedValues(other)) {
        KXLogWarning(store, "\"%@\" of \"%@\" cannot hold an object that was deleted", property.name(),
            object->entity()->name());
        return false;
    }
    const KXPropertyDescription *inverse = property.inverse();
    if (property.isAcyclic() ? makesCircle(object, property, Access::key(other))
                             : inverse && inverse->isAcyclic() && makesCircle(other, *inverse, Access::key(object))) {
        KXLogWarning(store, "\"%@\" of \"%@\" would lead in a circle", property.name(), object->entity()->name());
        return false;
    }
    return true;
}

bool KXContextEditor::makesCircle(const Object *object, const KXPropertyDescription &property, qint64 above)
{
    QSet<qint64> seen; // a damaged file may have circles
    for (qint64 key = above; key != 0 && !seen.contains(key);) {
        if (key == Access::key(object))
            return true;
        const KXRef<Object> next = m_reader.object(*property.destinationEntity(), key);
        const KXPropertyDescription *further = next ? next->entity()->property(property.name()) : nullptr;
        // A deleted one keeps its values and holds nothing together; should it come back, it is asked itself.
        if (!further || !Access::loadedValues(next) || next->isDeleted())
            return false;
        seen.insert(std::exchange(key, Access::values(next)->toOne(*further)));
    }
    return false;
}

KXContextEditor::Together::Together(KXContextEditor &editor)
    : m_editor(editor)
    , m_isOutermost(!editor.m_together)
{
    if (m_isOutermost)
        editor.m_together = &m_changes;
}

KXContextEditor::Together::~Together()
{
    if (m_isOutermost)
        m_editor.m_together = nullptr;
}

KXChangesTogether KXContextEditor::Together::take()
{
    if (std::exchange(m_isOutermost, false))
        m_editor.m_together = nullptr;
    return std::move(m_changes);
}

void KXContextEditor::assignToOne(Object *object, const KXPropertyDescription &property, qint64 key)
{
    if (object->isDeleted() || !Access::loadedValues(object))
        return; // a deleted object keeps its values
    Together together(*this);
    m_together->willSet(object, property);
    willChange(object, property.index());
    Access::values(object)->setToOne(property, key);
    together.tell();
}

void KXContextEditor::assign(Object *object, const KXPropertyDescription &property, const KXRowValues &from)
{
    Together together(*this);
    m_together->willSet(object, property);
    willChange(object, property.index());
    Access::values(object)->copy(from, property);
    together.tell();
}

void KXContextEditor::link(Object *object, const KXPropertyDescription &property, qint64 key, bool add)
{
    if (object->isDeleted() || !Access::loadedValues(object))
        return;
    // One that has come back kept its members while it was deleted: they are no news.
    const KXToManyKeys *known = Access::values(object)->existingToMany(property);
    if (known
        && (known->loaded ? known->members.contains(key) == add : (add ? known->added : known->removed).contains(key)))
        return;
    Together together(*this);
    if (object->isObserved())
        m_together->willLink(object, property, m_reader.object(*property.destinationEntity(), key), add);
    willChange(object, property.index());
    m_recorder.willLink(object, property.index(), key, add);
    KXToManyKeys &keys = Access::values(object)->toMany(property);
    QSet<qint64> &undone = add ? keys.removed : keys.added;
    if (!undone.remove(key))
        (add ? keys.added : keys.removed).insert(key);
    if (keys.loaded) {
        if (add)
            keys.members.insert(key);
        else
            keys.members.remove(key);
    }
    together.tell();
}

/// Of a many-to-many relationship. Where its ends were read at different times they may not agree on what there was:
/// the word of the object counts, lest the change be one of the object alone.
void KXContextEditor::linkEnds(Object *object, const KXPropertyDescription &property, Object *other, bool add)
{
    Together together(*this);
    link(object, property, Access::key(other), add);
    const KXPropertyDescription *inverse = property.inverse();
    if (inverse && !(inverse == &property && other == object)) {
        const qint64 key = Access::key(object);
        KXToManyKeys *keys = Access::values(other) ? Access::values(other)->existingToMany(*inverse) : nullptr;
        if (keys && keys->loaded && !(add ? keys->added : keys->removed).contains(key)) {
            if (add)
                keys->members.remove(key);
            else
                keys->members.insert(key);
        }
        link(other, *inverse, key, add);
    }
    together.tell();
}

void KXContextEditor::setToOne(Object *object, const KXPropertyDescription &property, Object *other)
{
    m_keeper.checkThread();
    if (!mayConnect(object, property, other) || !Access::loadedValues(object))
        return;
    const qint64 before = Access::values(object)->toOne(property);
    const qint64 after = other ? Access::key(other) : 0;
    Together together(*this);
    if (before == after) {
        m_together->willSet(object, property); // who observes it hears of each setting
    } else {
        assignToOne(object, property, after);
        if (property.inverse())
            followToOne(object, property, before, other);
    }
    together.tell();
}

/// The ends that the object has left and come to.
void KXContextEditor::followToOne(Object *object, const KXPropertyDescription &property, qint64 before, Object *other)
{
    const KXPropertyDescription *inverse = property.inverse();
    const KXRef<Object> partner = before ? m_reader.object(*property.destinationEntity(), before) : KXRef<Object>();
    if (inverse->isToMany()) {
        if (partner)
            link(partner.get(), *inverse, Access::key(object), false);
        if (other)
            link(other, *inverse, Access::key(object), true);
        return;
    }
    if (partner && Access::loadedValues(partner) && Access::values(partner)->toOne(*inverse) == Access::key(object))
        assignToOne(partner.get(), *inverse, 0);
    if (!other)
        return;
    // Whoever was the partner of the new partner loses it, unless it has another one: one that comes back from its
    // deletion remembers a partner that has gone on.
    if (const qint64 robbed = Access::values(other)->toOne(*inverse); robbed && robbed != Access::key(object)) {
        const KXRef<Object> loser = m_reader.object(*inverse->destinationEntity(), robbed);
        if (loser && Access::loadedValues(loser) && Access::values(loser)->toOne(property) == Access::key(other))
            assignToOne(loser.get(), property, 0);
    }
    assignToOne(other, *inverse, Access::key(object));
}

void KXContextEditor::addToMany(Object *object, const KXPropertyDescription &property, Object *other)
{
    m_keeper.checkThread();
    if (!mayConnect(object, property, other) || m_reader.isMember(object, property, Access::key(other)))
        return;
    const KXPropertyDescription *inverse = property.inverse();
    if (inverse && inverse->isToOne()) {
        setToOne(other, *inverse, object);
        return;
    }
    linkEnds(object, property, other, true);
}

void KXContextEditor::removeFromMany(Object *object, const KXPropertyDescription &property, Object *other)
{
    m_keeper.checkThread();
    if (other->managedObjectContext() != m_keeper.q || !m_reader.isMember(object, property, Access::key(other)))
        return;
    const KXPropertyDescription *inverse = property.inverse();
    if (inverse && inverse->isToOne()) {
        setToOne(other, *inverse, nullptr);
        return;
    }
    linkEnds(object, property, other, false);
}
