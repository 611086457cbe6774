// Child contexts: what they read from their parent, what a save hands to it, and how long they last.

#include <kestrixkit/context/KXContextMerger_p.h>
#include <kestrixkit/context/KXContextSave_p.h>

using Access = KXObjectAccess;
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

void KXManagedObjectContextPrivate::abandon(KXManagedObjectContext *context)
{
    KXManagedObjectContextPrivate &d = of(*context);
    if (d.workingSet.isAnyHeld())
        d.m_self
            = KXManagedObjectContext::Ref(context, &abandon); // whoever asks an object for its context shares this one
    else
        delete context;
}

void KXManagedObjectContextPrivate::released()
{
    if (m_self && !workingSet.isAnyHeld())
        const KXManagedObjectContext::Ref last = std::move(m_self);
}

// Saving

void KXContextSaver::pass(KXManagedObjectContextPrivate &parent, KXContextMerger &others)
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
        const KXEntityDescription &entity = *from.entity();
        Passed one { std::move(target),
            KXRowValues::Owner(KXRowValues::clone(*Access::values(&from), entity), { &entity }), changed, {} };
        for (const KXPropertyDescription &property : entity.properties()) {
            const KXToManyKeys *keys = property.isToMany() ? Access::values(&from)->existingToMany(property) : nullptr;
            if (keys && keys->isChanged() && !(property.inverse() && property.inverse()->isToOne()))
                one.links.push_back({ &property, { keys->added, keys->removed } }); // else the other ends tell
        }
        return one;
    };
    std::vector<Passed> all;
    std::vector<KXRef<Object>> deleted;
    for (Object *object : m_deleted) {
        if (KXRef<Object> target = m_context.reader.inParent(object))
            deleted.push_back(std::move(target));
    }
    for (const Object *object : m_inserted)
        all.push_back(passed({}, *object, KXPropertySet().set()));
    for (const Update &update : m_updated) {
        if (KXRef<Object> target = m_context.reader.inParent(update.object))
            all.push_back(passed(std::move(target), *update.object, update.change->changed));
    }
    const std::vector<Object *> inserted = m_inserted;
    finish(others);

    KXContextEditor::Together together(parent.editor);
    // All new objects are there before anything refers to them, and all that go are marked before rules are followed.
    for (size_t i = 0; i < inserted.size(); ++i) {
        all[i].target = parent.reader.makeObject(*inserted[i]->entity(), Access::key(inserted[i]));
        parent.editor.insertNew(all[i].target);
    }
    for (const Passed &one : all) {
        for (const KXPropertyDescription &property : one.target->entity()->properties()) {
            if (property.isToMany() || !one.changed.test(size_t(property.index())) || one.target->isDeleted())
                continue;
            if (property.isAttribute()) {
                parent.editor.assign(one.target.get(), property, *one.values);
            } else { // with its other end, which may have changed in the parent meanwhile
                const qint64 key = one.values->toOne(property);
                const KXRef<Object> other
                    = key ? parent.reader.object(*property.destinationEntity(), key) : KXRef<Object>();
                parent.editor.setToOne(one.target.get(), property, other.get());
            }
        }
    }
    for (const Passed &one : all) {
        for (const auto &[property, links] : one.links) {
            for (const bool add : { true, false }) {
                for (const qint64 key : add ? links.added : links.removed) {
                    const KXRef<Object> member = parent.reader.object(*property->destinationEntity(), key);
                    if (member && !member->isMissing())
                        add ? parent.editor.addToMany(one.target.get(), *property, member.get())
                            : parent.editor.removeFromMany(one.target.get(), *property, member.get());
                }
            }
        }
    }
    for (const KXRef<Object> &object : deleted)
        parent.editor.markDeleted(object);
    std::vector<KXRef<Object>> doomed; // what of the parent's goes with them, though the child did not know
    for (const KXRef<Object> &object : deleted)
        parent.editor.followDeleteRules(object.get(), doomed);
    for (const KXRef<Object> &object : doomed)
        parent.editor.remove({ KXRef<Object>(object.get()) });
    together.tell();
}
