// Child contexts: what they read from their parent, what a save hands to it, and how long they last.

#include <kestrixkit/store/KXContextSave_p.h>

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
        if (object && !object->isFault())
            continue;
        const KXRef<Object> original = source.object(entity, key);
        if (!original && !object)
            continue; // of a family, and its row is gone
        if (!object)
            object = makeObject(*original->m_entity, key);
        if (!original || original->isDeleted() || original->isMissing() || original->m_entity != object->m_entity) {
            object->m_flags |= Object::Missing;
            continue;
        }
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

void KXContextSaver::pass(KXManagedObjectContextPrivate &parent)
{
    const auto columns = [&parent](Object *target, const Object &from, auto &&isWanted) {
        for (const KXPropertyDescription &property : target->m_entity->properties()) {
            if (property.isToMany() || !isWanted(property))
                continue;
            if (property.isAttribute()) {
                parent.assign(target, property, *from.values());
            } else { // with its other end, which may have changed in the parent meanwhile
                const qint64 key = from.values()->toOne(property);
                parent.setToOne(
                    target, property, key ? parent.object(*property.destinationEntity(), key).get() : nullptr);
            }
        }
    };
    const auto members = [&parent](Object *target, const Object &from) {
        for (const KXPropertyDescription &property : target->m_entity->properties()) {
            const KXToManyKeys *keys = property.isToMany() ? from.values()->existingToMany(property) : nullptr;
            if (!keys || (property.inverse() && property.inverse()->isToOne()))
                continue; // the other ends tell
            for (const bool add : { true, false }) {
                for (const qint64 key : add ? keys->added : keys->removed) {
                    const KXRef<Object> member = parent.object(*property.destinationEntity(), key);
                    if (member && !member->isMissing())
                        add ? parent.addToMany(target, property, member.get())
                            : parent.removeFromMany(target, property, member.get());
                }
            }
        }
    };

    // All new objects are there before anything refers to them, and all that go are marked before rules are followed.
    std::vector<std::pair<KXRef<Object>, Object *>> inserted;
    for (Object *object : m_inserted) {
        inserted.emplace_back(parent.makeObject(*object->m_entity, object->m_key), object);
        parent.insertNew(inserted.back().first);
    }
    std::vector<KXRef<Object>> deleted;
    for (Object *object : m_deleted)
        deleted.push_back(m_context.inParent(object));
    for (const auto &[target, object] : inserted)
        columns(target.get(), *object, [](const KXPropertyDescription &) { return true; });
    for (const Update &update : m_updated) {
        if (const KXRef<Object> target = m_context.inParent(update.object))
            columns(target.get(), *update.object, [&](const KXPropertyDescription &property) {
                return update.change->changed.test(size_t(property.index()));
            });
    }
    for (const auto &[target, object] : inserted)
        members(target.get(), *object);
    for (const Update &update : m_updated) {
        if (const KXRef<Object> target = m_context.inParent(update.object))
            members(target.get(), *update.object);
    }
    std::erase(deleted, nullptr);
    for (const KXRef<Object> &object : deleted)
        parent.markDeleted(object);
    for (const KXRef<Object> &object : deleted)
        parent.followDeleteRules(object.get());
}
