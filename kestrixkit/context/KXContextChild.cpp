// Child contexts: what they read from their parent, what a save hands to it, and how long they last.

#include <kestrixkit/context/KXContextSave_p.h>

using Object = KXManagedObject;

KXManagedObjectContext::Ref KXManagedObjectContext::contextWithParentContext(const Ref &parentContext)
{
    if (!parentContext)
        return nullptr;
    parentContext->m_p->checkThread();
    return Ref(new KXManagedObjectContext(parentContext->persistentStoreCoordinator(), parentContext),
        &KXManagedObjectContextPrivate::abandon);
}

const KXManagedObjectContext::Ref &KXManagedObjectContext::parentContext() const { return m_p->parent; }

// How long it lasts

bool KXManagedObjectContextPrivate::isHeld()
{
    const auto holds = [this](size_t place) {
        return m_owned[place]->m_references > 0 && !(m_owned[place]->m_flags & Object::Detached);
    };
    if (m_holder < m_owned.size() && holds(m_holder))
        return true;
    for (m_holder = 0; m_holder < m_owned.size(); ++m_holder) {
        if (holds(m_holder))
            return true;
    }
    return false;
}

void KXManagedObjectContextPrivate::abandon(KXManagedObjectContext *context)
{
    KXManagedObjectContextPrivate &d = context->d();
    if (d.isHeld())
        d.m_self
            = KXManagedObjectContext::Ref(context, &abandon); // whoever asks an object for its context shares this one
    else
        delete context;
}

void KXManagedObjectContextPrivate::released()
{
    if (m_self && !isHeld())
        const KXManagedObjectContext::Ref last = std::move(m_self);
}

// Reading

KXRef<Object> KXManagedObjectContextPrivate::inParent(const Object *object)
{
    KXRef<Object> source = parent->d().object(*object->m_entity, object->m_key);
    return source && !source->isDeleted() && !source->isMissing() ? source : KXRef<Object>();
}

void KXManagedObjectContextPrivate::fillFromParent(const KXEntityDescription &entity, std::span<const qint64> keys)
{
    KXManagedObjectContextPrivate &source = parent->d();
    source.fill(entity, keys);
    std::vector<KXRef<Object>> filled;
    for (const qint64 key : keys) {
        KXRef<Object> object(registered(key));
        if (object && object->m_values)
            continue;
        const KXRef<Object> original = source.object(entity, key);
        if (!original && !object)
            continue; // of a family, and its row is gone
        if (original && (!object || original->m_entity != object->m_entity))
            object = makeObject(*original->m_entity, key);
        if (!original || original->isDeleted() || original->isMissing()) {
            object->m_flags |= Object::Missing;
            continue;
        }
        object->m_flags &= ~quint32(Object::Missing);
        KXRowValues *values = KXRowValues::clone(*original->values(), *object->m_entity);
        // What the parent has not saved yet is stored as far as the child is concerned.
        values->version = std::max<qint64>(1, values->version);
        object->m_values = reinterpret_cast<char *>(values);
        filled.push_back(std::move(object));
    }
    for (const KXRef<Object> &object : filled)
        object->awakeFromFetch();
}

// Saving

void KXContextSaver::pass(KXManagedObjectContextPrivate &parent, KXObjectsDidChange &did, KXChangesTogether &together)
{
    // Whoever observes the parent's objects may change those of the child: what is handed over is set down before.
    struct Passed
    {
        KXRef<Object> target; // the parent's
        KXRowValues::Owner values;
        KXPropertySet changed;
        std::vector<std::pair<const KXPropertyDescription *, KXContextRecorder::Links>> links;
    };
    const auto passed = [](KXRef<Object> target, const Object &from, const KXPropertySet &changed) {
        const KXEntityDescription &entity = *from.m_entity;
        Passed one { std::move(target), KXRowValues::Owner(KXRowValues::clone(*from.values(), entity), { &entity }),
            changed, {} };
        for (const KXPropertyDescription &property : entity.properties()) {
            const KXToManyKeys *keys = property.isToMany() ? from.values()->existingToMany(property) : nullptr;
            if (keys && keys->isChanged() && !(property.inverse() && property.inverse()->isToOne()))
                one.links.push_back({ &property, { keys->added, keys->removed } }); // else the other ends tell
        }
        return one;
    };
    std::vector<Passed> all;
    std::vector<KXRef<Object>> deleted;
    for (Object *object : m_deleted) {
        if (KXRef<Object> target = m_context.inParent(object))
            deleted.push_back(std::move(target));
    }
    for (const Object *object : m_inserted)
        all.push_back(passed({}, *object, KXPropertySet().set()));
    for (const Update &update : m_updated) {
        if (KXRef<Object> target = m_context.inParent(update.object))
            all.push_back(passed(std::move(target), *update.object, update.change->changed));
    }
    const std::vector<Object *> inserted = m_inserted;
    finish(did, together);

    // All new objects are there before anything refers to them, and all that go are marked before rules are followed.
    for (size_t i = 0; i < inserted.size(); ++i) {
        all[i].target = parent.makeObject(*inserted[i]->m_entity, inserted[i]->m_key);
        parent.insertNew(all[i].target);
    }
    for (const Passed &one : all) {
        for (const KXPropertyDescription &property : one.target->m_entity->properties()) {
            if (property.isToMany() || !one.changed.test(size_t(property.index())) || one.target->isDeleted())
                continue;
            if (property.isAttribute()) {
                parent.assign(one.target.get(), property, *one.values);
            } else { // with its other end, which may have changed in the parent meanwhile
                const qint64 key = one.values->toOne(property);
                const KXRef<Object> other = key ? parent.object(*property.destinationEntity(), key) : KXRef<Object>();
                parent.setToOne(one.target.get(), property, other.get());
            }
        }
    }
    for (const Passed &one : all) {
        for (const auto &[property, links] : one.links) {
            for (const bool add : { true, false }) {
                for (const qint64 key : add ? links.added : links.removed) {
                    const KXRef<Object> member = parent.object(*property->destinationEntity(), key);
                    if (member && !member->isMissing())
                        add ? parent.addToMany(one.target.get(), *property, member.get())
                            : parent.removeFromMany(one.target.get(), *property, member.get());
                }
            }
        }
    }
    for (const KXRef<Object> &object : deleted)
        parent.markDeleted(object);
    std::vector<KXRef<Object>> doomed; // what of the parent's goes with them, though the child did not know
    for (const KXRef<Object> &object : deleted)
        parent.followDeleteRules(object.get(), doomed);
    for (const KXRef<Object> &object : doomed)
        parent.remove(object.get());
}
