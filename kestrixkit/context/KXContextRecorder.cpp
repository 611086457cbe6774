#include <kestrixkit/context/KXContextRecorder_p.h>

#include <kestrixkit/context/KXManagedObjectContext_p.h>
#include <kestrixkit/foundation/KXUndoManager.h>

using Object = KXManagedObject;

namespace {

/// A fact of one context: reverted there as long as it lives.
class ContextFact : public KXUndoFact
{
public:
    ContextFact(std::weak_ptr<KXManagedObjectContext> context, const void *target,
        std::vector<KXContextRecorder::Entry> entries)
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
        auto opposite = KXContextRecorder::revert(context->d(), std::move(m_entries));
        return std::make_unique<ContextFact>(m_context, m_target, std::move(opposite));
    }
    [[nodiscard]] const void *target() const override { return m_target; }

private:
    std::weak_ptr<KXManagedObjectContext> m_context;
    const void *m_target;
    std::vector<KXContextRecorder::Entry> m_entries;
};

KXRowValues::Owner cloneOfValues(const Object *object, const KXRowValues *values)
{
    return KXRowValues::Owner(values ? KXRowValues::clone(*values, *object->entity()) : nullptr, { object->entity() });
}

}

KXContextRecorder::~KXContextRecorder() = default;

void KXContextRecorder::setManager(std::shared_ptr<KXUndoManager> manager)
{
    flush();
    m_manager = std::move(manager);
    m_boundary = m_manager ? m_manager->addBoundaryObserver([this] { flush(); }) : KXScopeToken();
}

bool KXContextRecorder::isRecording() const
{
    return m_manager && !m_reverting && m_manager->isUndoRegistrationEnabled();
}

KXContextRecorder::Entry &KXContextRecorder::entryOf(Object *object)
{
    const auto [found, fresh] = m_indexes.try_emplace(object, m_entries.size());
    if (fresh) {
        m_entries.push_back({ .object = KXRef<Object>(object) });
        if (m_entries.size() == 1)
            m_manager->willAddStep();
    }
    return m_entries[found->second];
}

void KXContextRecorder::didInsert(Object *object)
{
    if (isRecording())
        entryOf(object).existedBefore = false;
}

void KXContextRecorder::willChange(Object *object, int property)
{
    if (!isRecording())
        return;
    Entry &entry = entryOf(object);
    if (!entry.existedBefore)
        return;
    if (!entry.before)
        entry.before = cloneOfValues(object, object->values());
    entry.changed.set(size_t(property));
}

void KXContextRecorder::willLink(Object *object, int property, qint64 key, bool add)
{
    if (!isRecording())
        return;
    Entry &entry = entryOf(object);
    if (!entry.existedBefore)
        return;
    Links &links = entry.links[property];
    if (!(add ? links.removed : links.added).remove(key))
        (add ? links.added : links.removed).insert(key);
}

void KXContextRecorder::willDelete(Object *object)
{
    if (!isRecording())
        return;
    Entry &entry = entryOf(object);
    if (!entry.existedBefore)
        return;
    if (!entry.before)
        entry.before = cloneOfValues(object, object->values());
    // Once the deletion is saved nobody can say any more who the members were.
    for (const KXPropertyDescription *property : m_context.store->codec(*object->entity()).toMany()) {
        QSet<qint64> members = m_context.loadedToMany(object, *property).members;
        if (const auto links = entry.links.find(property->index()); links != entry.links.end())
            members.subtract(links->second.added).unite(links->second.removed);
        entry.membersBefore[property->index()] = members;
    }
}

void KXContextRecorder::flush()
{
    if (m_entries.empty())
        return;
    m_indexes.clear();
    std::vector<Entry> entries = std::exchange(m_entries, {});
    std::erase_if(entries, [this](Entry &entry) {
        Object *object = entry.object.get();
        entry.existsAfter = object->managedObjectContext() && !object->isDeleted() && !object->isMissing();
        if (!entry.existedBefore && entry.existsAfter) {
            for (const KXPropertyDescription *property : m_context.store->codec(*object->entity()).toMany()) {
                if (object->values()->existingToMany(*property))
                    entry.membersAfter[property->index()] = m_context.loadedToMany(object, *property).members;
            }
        }
        if (entry.existsAfter)
            entry.after = cloneOfValues(object, object->values());
        return !entry.existedBefore && !entry.existsAfter;
    });
    if (!entries.empty() && m_manager)
        m_manager->addStep(
            std::make_unique<ContextFact>(m_context.q->weak_from_this(), m_context.q, std::move(entries)));
}

void KXContextRecorder::forget()
{
    m_indexes.clear();
    m_entries.clear();
    if (m_manager)
        m_manager->removeAllActionsWithTarget(m_context.q);
}

/// Takes from revived objects the members that they did not have before and that do not refer to them, now that all is
/// what it was. Those that do have come by somebody else's save while the object was deleted.
void KXContextRecorder::dropFormerMembers(KXManagedObjectContextPrivate &context, const std::vector<Entry> &entries)
{
    std::unordered_map<const Object *, const Entry *> revived;
    for (const Entry &entry : entries) {
        if (entry.existedBefore && !entry.existsAfter && entry.object->managedObjectContext() == context.q
            && !entry.object->isDeleted())
            revived.emplace(entry.object.get(), &entry);
    }
    for (const auto &[object, entry] : revived) {
        for (const auto &[index, before] : entry->membersBefore) {
            const KXPropertyDescription &property = entry->object->entity()->properties()[index];
            const KXPropertyDescription *inverse = property.inverse();
            const auto refersBack = [&, key = entry->object->m_key](qint64 member) {
                Object *other = inverse ? context.registered(member) : nullptr;
                if (!other || !other->m_values)
                    return inverse != nullptr; // never in memory, so nobody here has linked it
                if (other->isDeleted() || inverse->isToOne())
                    return !other->isDeleted() && other->values()->toOne(*inverse) == key;
                if (const auto found = revived.find(other); found != revived.end()) {
                    const auto back = found->second->membersBefore.find(inverse->index());
                    return back != found->second->membersBefore.end() && back->second.contains(key);
                }
                const KXToManyKeys *back = other->values()->existingToMany(*inverse);
                return !back || (back->loaded ? back->members.contains(key) : !back->removed.contains(key));
            };
            for (const qint64 member :
                QSet<qint64>(context.loadedToMany(entry->object.get(), property).members) - before) {
                if (!refersBack(member))
                    context.link(entry->object.get(), property, member, false);
            }
        }
    }
}

namespace {

/// What the store or another context has done meanwhile may have taken what an undo would connect with.
bool isThere(KXManagedObjectContextPrivate &context, const KXPropertyDescription &property, qint64 key)
{
    const KXRef<Object> other = context.object(*property.destinationEntity(), key);
    return other && !other->isDeleted() && !other->isMissing();
}

bool isAlive(const KXManagedObjectContextPrivate &context, const Object *object)
{
    return object->managedObjectContext() == context.q && !object->isDeleted() && !object->isMissing();
}

}

/// Unless one of the two is gone.
void KXContextRecorder::linkOnce(
    KXManagedObjectContextPrivate &context, Object *object, const KXPropertyDescription &property, qint64 key, bool add)
{
    if (object->isDeleted() || object->isMissing() || (add && !isThere(context, property, key)))
        return;
    context.link(object, property, key, add);
}

/// Columns and links of objects that were there before and are now. To-one relationships are set like anybody sets
/// them, so that an end that was changed by somebody else's save meanwhile follows. `back` are the keys of those that
/// have just come back.
void KXContextRecorder::revertValues(
    KXManagedObjectContextPrivate &context, const std::vector<Entry> &entries, const QSet<qint64> &back)
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
        if (!entry.existedBefore || entry.restored || !isAlive(context, object))
            continue;
        for (const KXPropertyDescription &property : object->entity()->properties()) {
            if (!entry.before || !entry.changed.test(size_t(property.index())) || property.isToMany())
                continue;
            if (property.isAttribute())
                context.assign(object, property, *entry.before);
            else
                moves.push_back({ object, &property, entry.before->toOne(property) });
        }
    }
    while (!moves.empty()) {
        const size_t left = std::erase_if(moves, [&context](const Move &move) {
            if (move.property->isAcyclic() && context.makesCircle(move.object, *move.property, move.key))
                return false;
            const bool there = move.key != 0 && isThere(context, *move.property, move.key);
            const KXRef<Object> other
                = there ? context.object(*move.property->destinationEntity(), move.key) : KXRef<Object>();
            context.setToOne(move.object, *move.property, other.get());
            return true;
        });
        if (left == 0)
            break; // somebody else's move stays
    }
    for (const Entry &entry : entries) {
        Object *object = entry.object.get();
        if (!entry.existedBefore || entry.restored || !isAlive(context, object))
            continue;
        for (const auto &[index, links] : entry.links) {
            const KXPropertyDescription &property = object->entity()->properties()[index];
            if (property.inverse() && property.inverse()->isToOne())
                continue; // the other ends have told
            for (const qint64 key : links.added)
                linkOnce(context, object, property, key, false);
            for (const qint64 key : links.removed) {
                if (!property.inverse() || !back.contains(key)
                    || back.contains(object->m_key)) // else it knows better itself
                    linkOnce(context, object, property, key, true);
            }
        }
    }
}

/// The other ends of an object that has come back hold it again, where they are still there and free.
void KXContextRecorder::reconnect(KXManagedObjectContextPrivate &context, const Entry &entry)
{
    Object *object = entry.object.get();
    const auto letGo = [&](const KXPropertyDescription &property, Object *other) {
        context.assignToOne(object, property, 0);
        if (other && property.inverse()->isToMany())
            linkOnce(context, other, *property.inverse(), object->m_key, false);
    };
    for (const KXPropertyDescription &property : object->entity()->properties()) {
        const KXPropertyDescription *inverse = property.isRelationship() ? property.inverse() : nullptr;
        if (!inverse)
            continue;
        if (property.isToMany()) {
            for (const qint64 key : QSet<qint64>(context.loadedToMany(object, property).members)) {
                const KXRef<Object> other = context.object(*property.destinationEntity(), key);
                const bool there = other && isAlive(context, other.get());
                if (inverse->isToMany() && there) {
                    // The store let go of it with the row, whatever this end believes: the link is written anew.
                    if (entry.restored && other->values()->existingToMany(*inverse)) {
                        KXToManyKeys &back = other->values()->toMany(*inverse);
                        back.removed.remove(object->m_key);
                        if (!back.added.contains(object->m_key))
                            back.members.remove(object->m_key);
                    }
                    linkOnce(context, other.get(), *inverse, object->m_key, true);
                } else if (!there || (inverse->isToOne() && other->values()->toOne(*inverse) != object->m_key))
                    linkOnce(context, object, property, key, false);
            }
            continue;
        }
        const qint64 key = object->values()->toOne(property);
        if (key == 0)
            continue;
        const bool there = isThere(context, property, key);
        const KXRef<Object> other = there ? context.object(*property.destinationEntity(), key) : KXRef<Object>();
        if (!there || (property.isAcyclic() && context.makesCircle(object, property, key))) {
            letGo(property, other.get());
            continue;
        }
        if (inverse->isToMany()) {
            linkOnce(context, other.get(), *inverse, object->m_key, true);
            continue;
        }
        const qint64 taken = other->values()->toOne(*inverse);
        if (taken == object->m_key)
            continue;
        const KXRef<Object> taker = taken ? context.object(*inverse->destinationEntity(), taken) : KXRef<Object>();
        if (taker && isAlive(context, taker.get()) && taker->values()->toOne(property) == key)
            letGo(property, nullptr);
        else
            context.assignToOne(other.get(), *inverse, object->m_key);
    }
}

std::vector<KXContextRecorder::Entry> KXContextRecorder::revert(
    KXManagedObjectContextPrivate &context, std::vector<Entry> entries)
{
    context.recorder.flush();
    struct Guard
    {
        bool &flag;
        const bool before;
        ~Guard() { flag = before; }
    } guard { context.recorder.m_reverting, context.recorder.m_reverting };
    context.recorder.m_reverting = true;

    // Whoever comes back first, so that the others' relationships find them; whoever goes last.
    std::vector<const Entry *> back;
    QSet<qint64> backKeys;
    for (Entry &entry : entries) {
        if (!entry.existedBefore || entry.existsAfter)
            continue;
        entry.restored = !entry.object->managedObjectContext();
        context.revive(entry.object, *entry.before, entry.membersBefore);
        if (isAlive(context, entry.object.get()))
            back.push_back(&entry), backKeys.insert(entry.object->m_key);
    }
    revertValues(context, entries, backKeys);
    for (const Entry *entry : back)
        reconnect(context, *entry);
    dropFormerMembers(context, entries);
    std::vector<Object *> gone; // all are marked before others let go: among themselves they stay connected
    for (const Entry &entry : entries) {
        if (!entry.existedBefore && entry.existsAfter && isAlive(context, entry.object.get())) {
            context.markDeleted(entry.object);
            gone.push_back(entry.object.get());
        }
    }
    for (Object *object : gone)
        context.letGo(object);

    for (Entry &entry : entries) {
        std::swap(entry.existedBefore, entry.existsAfter);
        std::swap(entry.before, entry.after);
        std::swap(entry.membersBefore, entry.membersAfter);
        entry.restored = false;
        for (auto &[index, links] : entry.links)
            std::swap(links.added, links.removed);
    }
    std::reverse(entries.begin(), entries.end());
    return entries;
}
