#include <kestrixkit/context/KXContextReverter_p.h>

#include <algorithm>

#include <kestrixkit/foundation/KXUndoManager.h>

using Access = KXObjectAccess;
using Object = KXManagedObject;

namespace {

/// A fact of one context: reverted there as long as it lives.
class ContextFact : public KXUndoFact
{
    using Entry = KXContextRecorder::Entry;

public:
    ContextFact(std::weak_ptr<KXManagedObjectContext> context, const void *target, std::vector<Entry> entries)
        : m_context(std::move(context))
        , m_target(target)
        , m_entries(std::move(entries))
    {
    }

    std::unique_ptr<KXUndoFact> revert() override
    {
        const auto context = m_context.lock();
        if (!context)
            return nullptr;
        auto opposite
            = KXContextReverter(KXManagedObjectContextPrivate::of(*context)).revert(std::move(m_entries), m_told);
        return std::make_unique<ContextFact>(m_context, m_target, std::move(opposite));
    }
    void didRevert() override { m_told.tell(); }
    [[nodiscard]] const void *target() const override { return m_target; }

private:
    std::weak_ptr<KXManagedObjectContext> m_context;
    const void *m_target;
    std::vector<Entry> m_entries;
    KXChangesTogether m_told;
};

}

std::unique_ptr<KXUndoFact> KXContextReverter::factOf(KXManagedObjectContext *context, std::vector<Entry> entries)
{
    return std::make_unique<ContextFact>(context->weak_from_this(), context, std::move(entries));
}

/// Takes from revived objects the members that they did not have before and that do not refer to them, now that all is
/// what it was. Those that do have come by somebody else's save while the object was deleted.
void KXContextReverter::dropFormerMembers(const std::vector<Entry> &entries)
{
    std::unordered_map<const Object *, const Entry *> revived;
    for (const Entry &entry : entries) {
        if (entry.existedBefore && !entry.existsAfter && entry.object->managedObjectContext() == m_context.q
            && !entry.object->isDeleted())
            revived.emplace(entry.object.get(), &entry);
    }
    for (const auto &[object, entry] : revived) {
        for (const auto &[index, before] : entry->membersBefore) {
            const KXPropertyDescription &property = entry->object->entity()->properties()[index];
            const KXPropertyDescription *inverse = property.inverse();
            const auto refersBack = [&, key = Access::key(entry->object)](qint64 member) {
                Object *other = inverse ? m_context.reader.registered(member) : nullptr;
                if (!other || !Access::values(other))
                    return inverse != nullptr; // never in memory, so nobody here has linked it
                if (other->isDeleted() || inverse->isToOne())
                    return !other->isDeleted() && Access::values(other)->toOne(*inverse) == key;
                if (const auto found = revived.find(other); found != revived.end()) {
                    const auto back = found->second->membersBefore.find(inverse->index());
                    return back != found->second->membersBefore.end() && back->second.contains(key);
                }
                const KXToManyKeys *back = Access::values(other)->existingToMany(*inverse);
                return !back || (back->loaded ? back->members.contains(key) : !back->removed.contains(key));
            };
            for (const qint64 member :
                QSet<qint64>(m_context.reader.loadedToMany(entry->object.get(), property).members) - before) {
                if (!refersBack(member))
                    m_context.editor.link(entry->object.get(), property, member, false);
            }
        }
    }
}

/// What the store or another context has done meanwhile may have taken what an undo would connect with.
bool KXContextReverter::isThere(const KXPropertyDescription &property, qint64 key)
{
    const KXRef<Object> other = m_context.reader.object(*property.destinationEntity(), key);
    return other && !other->isDeleted() && !other->isMissing();
}

bool KXContextReverter::isAlive(const Object *object) const
{
    return Access::isIn(object, &m_context) && !object->isDeleted() && !object->isMissing();
}

/// Unless one of the two is gone.
void KXContextReverter::linkOnce(Object *object, const KXPropertyDescription &property, qint64 key, bool add)
{
    if (!object->isDeleted() && !object->isMissing() && (!add || isThere(property, key)))
        m_context.editor.link(object, property, key, add);
}

/// The same at both ends of objects that were here all the time, unless somebody else's save has done it: then at
/// neither, lest what takes this back find it at one of them.
void KXContextReverter::linkEnds(Object *object, const KXPropertyDescription &property, qint64 key, bool add)
{
    const KXPropertyDescription *inverse = property.inverse();
    const KXRef<Object> other = inverse && inverse->isToMany()
        ? m_context.reader.object(*property.destinationEntity(), key)
        : KXRef<Object>();
    if (!other || !isAlive(other.get()) || !isAlive(object))
        linkOnce(object, property, key, add);
    else if (m_context.reader.isMember(object, property, key) != add)
        m_context.editor.linkEnds(object, property, other.get(), add);
}

/// Columns and links of objects that were there before and are now. To-one relationships are set like anybody sets
/// them, so that an end that was changed by somebody else's save meanwhile follows. `back` are the keys of those that
/// have just come back.
void KXContextReverter::revertValues(const std::vector<Entry> &entries, const QSet<qint64> &back)
{
    struct Move
    {
        Object *object;
        const KXPropertyDescription *property;
        qint64 key;
    };
    std::vector<Move> moves; // each may have to wait for another, lest there be a circle in between
    for (const Entry &entry : entries) {
        Object *object = entry.object.get();
        if (!entry.existedBefore || entry.restored || !isAlive(object))
            continue;
        for (const KXPropertyDescription &property : object->entity()->properties()) {
            if (!entry.before || !entry.changed.test(size_t(property.index())) || property.isToMany())
                continue;
            if (property.isAttribute())
                m_context.editor.assign(object, property, *entry.before);
            else
                moves.push_back({ object, &property, entry.before->toOne(property) });
        }
    }
    while (!moves.empty()) {
        const size_t left = std::erase_if(moves, [this](const Move &move) {
            if (move.property->isAcyclic() && m_context.editor.makesCircle(move.object, *move.property, move.key))
                return false;
            const bool there = move.key != 0 && isThere(*move.property, move.key);
            const KXRef<Object> other
                = there ? m_context.reader.object(*move.property->destinationEntity(), move.key) : KXRef<Object>();
            m_context.editor.setToOne(move.object, *move.property, other.get());
            return true;
        });
        if (left == 0)
            break; // somebody else's move stays
    }
    QSet<qint64> passing = back; // who comes or goes knows its own end better
    for (const Entry &entry : entries) {
        if (!entry.existedBefore)
            passing.insert(Access::key(entry.object));
    }
    for (const Entry &entry : entries) {
        Object *object = entry.object.get();
        if (!entry.existedBefore || entry.restored || !isAlive(object))
            continue;
        for (const auto &[index, links] : entry.links) {
            const KXPropertyDescription &property = object->entity()->properties()[index];
            const bool isPassing = passing.contains(Access::key(object));
            for (const bool adds : { false, true }) {
                for (const qint64 key : adds ? links.removed : links.added) {
                    if (!isPassing && !passing.contains(key))
                        linkEnds(object, property, key, adds);
                    else if (!adds || !property.inverse() || !back.contains(key) || back.contains(Access::key(object)))
                        linkOnce(object, property, key, adds);
                }
            }
        }
    }
}

/// The other ends of an object that has come back hold it again, where they are still there and free.
void KXContextReverter::reconnect(const Entry &entry)
{
    Object *object = entry.object.get();
    const auto letGo = [&](const KXPropertyDescription &property, Object *other) {
        m_context.editor.assignToOne(object, property, 0);
        if (other && property.inverse()->isToMany())
            linkOnce(other, *property.inverse(), Access::key(object), false);
    };
    for (const KXPropertyDescription &property : object->entity()->properties()) {
        const KXPropertyDescription *inverse = property.isRelationship() ? property.inverse() : nullptr;
        if (!inverse)
            continue;
        if (property.isToMany()) {
            for (const qint64 key : QSet<qint64>(m_context.reader.loadedToMany(object, property).members)) {
                const KXRef<Object> other = m_context.reader.object(*property.destinationEntity(), key);
                const bool there = other && isAlive(other.get());
                if (inverse->isToMany() && there) {
                    // The store let go of it with the row, whatever this end believes: the link is written anew.
                    if (entry.restored && Access::values(other)->existingToMany(*inverse)) {
                        KXToManyKeys &back = Access::values(other)->toMany(*inverse);
                        back.removed.remove(Access::key(object));
                        if (!back.added.contains(Access::key(object)))
                            back.members.remove(Access::key(object));
                    }
                    linkOnce(other.get(), *inverse, Access::key(object), true);
                } else if (!there
                    || (inverse->isToOne() && Access::values(other)->toOne(*inverse) != Access::key(object))) {
                    linkOnce(object, property, key, false);
                    // Deleted when it had not read of the link: should it come back, it comes with it.
                    if (inverse->isToMany() && other && other->isDeleted() && Access::values(other))
                        m_context.reader.loadedToMany(other.get(), *inverse).members.insert(Access::key(object));
                }
            }
            continue;
        }
        const qint64 key = Access::values(object)->toOne(property);
        if (key == 0)
            continue;
        const bool there = isThere(property, key);
        const KXRef<Object> other
            = there ? m_context.reader.object(*property.destinationEntity(), key) : KXRef<Object>();
        if (!there || (property.isAcyclic() && m_context.editor.makesCircle(object, property, key))) {
            letGo(property, other.get());
            continue;
        }
        if (inverse->isToMany()) {
            linkOnce(other.get(), *inverse, Access::key(object), true);
            continue;
        }
        const qint64 taken = Access::values(other)->toOne(*inverse);
        if (taken == Access::key(object))
            continue;
        const KXRef<Object> taker
            = taken ? m_context.reader.object(*inverse->destinationEntity(), taken) : KXRef<Object>();
        if (taker && isAlive(taker.get()) && Access::values(taker)->toOne(property) == key)
            letGo(property, nullptr);
        else
            m_context.editor.assignToOne(other.get(), *inverse, Access::key(object));
    }
}

/// Of a row that others have deleted and brought back the context has another object by now.
void KXContextReverter::findAgain(Entry &entry)
{
    if (!entry.existsAfter || !Access::isDetached(entry.object))
        return;
    const KXRef<Object> now = m_context.reader.object(*entry.object->entity(), Access::key(entry.object));
    if (now && Access::loadedValues(now))
        entry.object = now;
}

std::vector<KXContextRecorder::Entry> KXContextReverter::revert(std::vector<Entry> entries, KXChangesTogether &told)
{
    m_context.recorder.flush();
    KXContextEditor::Together together(m_context.editor);
    struct Guard
    {
        KXContextRecorder &recorder;
        const bool before = recorder.setReverting(true);
        ~Guard() { (void)recorder.setReverting(before); }
    } const guard { m_context.recorder };

    for (Entry &entry : entries)
        findAgain(entry);
    // Whoever comes back first, so that the others' relationships find them; whoever goes last.
    std::vector<const Entry *> back;
    QSet<qint64> backKeys;
    for (Entry &entry : entries) {
        if (!entry.existedBefore || entry.existsAfter)
            continue;
        entry.restored = !entry.object->managedObjectContext();
        m_context.editor.revive(entry.object, *entry.before, entry.membersBefore);
        if (isAlive(entry.object.get()))
            back.push_back(&entry), backKeys.insert(Access::key(entry.object));
    }
    revertValues(entries, backKeys);
    for (const Entry *entry : back)
        reconnect(*entry);
    dropFormerMembers(entries);
    std::vector<Object *> gone; // all are marked before others let go: among themselves they stay connected
    for (const Entry &entry : entries) {
        if (!entry.existedBefore && entry.existsAfter && isAlive(entry.object.get())) {
            m_context.editor.markDeleted(entry.object);
            gone.push_back(entry.object.get());
        }
    }
    for (Object *object : gone)
        m_context.editor.letGo(object);

    for (Entry &entry : entries) {
        std::swap(entry.existedBefore, entry.existsAfter);
        std::swap(entry.before, entry.after);
        std::swap(entry.membersBefore, entry.membersAfter);
        entry.restored = false;
        for (auto &[index, links] : entry.links)
            std::swap(links.added, links.removed);
    }
    std::reverse(entries.begin(), entries.end());
    told = together.take();
    return entries;
}
