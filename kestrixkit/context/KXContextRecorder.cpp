#include <kestrixkit/context/KXContextRecorder_p.h>

#include <kestrixkit/foundation/KXUndoManager.h>

using Access = KXObjectAccess;
using Object = KXManagedObject;

namespace {

KXRowValues::Owner cloneOfValues(const Object *object, const KXRowValues *values)
{
    return KXRowValues::Owner(values ? KXRowValues::clone(*values, *object->entity()) : nullptr, { object->entity() });
}

}

KXContextRecorder::KXContextRecorder(
    const void *target, const KXPersistentStorePrivate *store, KXContextReader &reader, MakeFact makeFact)
    : m_target(target)
    , m_store(store)
    , m_reader(reader)
    , m_makeFact(std::move(makeFact))
{
}

KXContextRecorder::~KXContextRecorder() = default;

void KXContextRecorder::setManager(std::shared_ptr<KXUndoManager> manager)
{
    flush();
    m_manager = std::move(manager);
    m_boundary = m_manager ? m_manager->addBoundaryObserver([this] { flush(); }) : KXScopeToken();
}

void KXContextRecorder::setTake(Take take)
{
    flush();
    m_take = std::move(take);
}

bool KXContextRecorder::isRecording() const
{
    return !m_reverting && (m_take || (m_manager && m_manager->isUndoRegistrationEnabled()));
}

KXContextRecorder::Entry &KXContextRecorder::entryOf(Object *object)
{
    const auto [found, fresh] = m_indexes.try_emplace(object, m_entries.size());
    if (fresh) {
        m_entries.push_back({ .object = KXRef<Object>(object) });
        if (m_entries.size() == 1 && m_manager)
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
    if (!isRecording() || object->entity()->properties()[property].isToMany())
        return; // members stand among the links
    Entry &entry = entryOf(object);
    if (!entry.existedBefore)
        return;
    if (!entry.before)
        entry.before = cloneOfValues(object, Access::values(object));
    entry.changed.set(size_t(property));
}

void KXContextRecorder::willLink(Object *object, int property, qint64 key, bool add)
{
    // Members that have a column of their own tell by that where they were: a track that comes into a hundred crates
    // is not remembered for it.
    const KXPropertyDescription *inverse = object->entity()->properties()[property].inverse();
    if (!isRecording() || (inverse && inverse->isToOne()))
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
        entry.before = cloneOfValues(object, Access::values(object));
    // Once the deletion is saved nobody can say any more who the members were.
    for (const KXPropertyDescription *property : m_store->codec(*object->entity()).toMany()) {
        QSet<qint64> members = m_reader.loadedToMany(object, *property).members;
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
            for (const KXPropertyDescription *property : m_store->codec(*object->entity()).toMany()) {
                if (Access::values(object)->existingToMany(*property))
                    entry.membersAfter[property->index()] = m_reader.loadedToMany(object, *property).members;
            }
        }
        if (entry.existsAfter && (entry.before || !entry.existedBefore))
            entry.after = cloneOfValues(object, Access::values(object));
        return !entry.existedBefore && !entry.existsAfter;
    });
    if (!entries.empty() && m_take)
        m_take(std::move(entries));
    else if (!entries.empty() && m_manager)
        m_manager->addStep(m_makeFact(std::move(entries)));
}

void KXContextRecorder::forget()
{
    m_indexes.clear();
    m_entries.clear();
    if (m_manager)
        m_manager->removeAllActionsWithTarget(m_target);
}
