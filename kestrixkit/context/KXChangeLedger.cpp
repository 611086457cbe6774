#include <kestrixkit/context/KXChangeLedger_p.h>

#include <algorithm>
#include <array>
#include <bit>
#include <utility>

#include <kestrixkit/context/KXObjectKeeper_p.h>
#include <kestrixkit/foundation/KXCheck.h>

using Access = KXObjectAccess;
using Object = KXManagedObject;

// The states

enum class KXChangeLedger::Transition {
    Inserted,
    Edited,
    Deleted,
    Revived,
    Saved,
    Restored,
    Found,
    Missed,
    Vanished,
    Detached
};

void KXChangeLedger::check(Transition transition, Object *object)
{
    // What an object is, one bit each; to be named in the next announcement it may be besides.
    constexpr unsigned stored = 1, missing = 2, inserted = 4, updated = 8, deleted = 16, detached = 32;
    constexpr unsigned inContext = stored | missing | inserted | updated | deleted;
    struct Legal
    {
        const char *name;
        unsigned from;
    };
    static constexpr std::array<Legal, 10> table { {
        { "inserted", stored },
        { "edited", stored | inserted | updated },
        { "deleted", stored | inserted | updated },
        { "revived", deleted | detached },
        { "saved", inserted | updated },
        { "restored", stored | updated | deleted },
        { "found", missing },
        { "missed", stored | missing },
        { "vanished", inContext },
        { "detached", inContext },
    } };
    const unsigned state = Access::state(object);
    const unsigned is = state & Access::Detached ? detached
        : state & Access::Missing                ? missing
        : state & Access::Deleted                ? deleted
        : state & Access::Inserted               ? inserted
        : state & Access::Updated                ? updated
                                                 : stored;
    const Legal &legal = table[size_t(transition)];
    KX_CHECK(legal.from & is, "An object in the state %x cannot be %s", state, legal.name);
    KX_CHECK(std::popcount(state & (Access::Missing | Access::Deleted | Access::Inserted | Access::Updated)) <= 1,
        "An object has two states: %x", state);
}

// What is unsaved

const KXChangeLedger::Change *KXChangeLedger::changeOf(const Object *object) const
{
    const auto found = m_changes.find(const_cast<Object *>(object));
    return found == m_changes.end() ? nullptr : &found->second;
}

qint64 KXChangeLedger::firstVersion(qint64 key) const
{
    const auto former = m_formerVersions.find(key);
    return former == m_formerVersions.end() ? 1 : former->second + 1;
}

// Transitions

void KXChangeLedger::inserted(const KXRef<Object> &object)
{
    check(Transition::Inserted, object.get());
    Access::state(object.get()) |= Access::Inserted | Access::InsertPending;
    m_inserted.push_back(object);
    m_announcements.push_back(object);
}

void KXChangeLedger::editedKnown(Object *object, int property)
{
    quint16 &state = Access::state(object);
    if (state & Access::Deleted)
        return;
    check(Transition::Edited, object);
    Change &change = m_changes[object];
    if (!change.object) {
        change.object = KXContextHold(object);
        change.isStored = !(state & Access::Inserted);
        if (change.isStored)
            state |= Access::Updated;
    }
    if (const KXEntityDescription *entity = object->entity();
        change.isStored && !change.before && !entity->properties()[property].isToMany())
        change.before = KXRowValues::Owner(KXRowValues::clone(*Access::values(object), *entity), { entity });
    if (change.unannounced.none())
        m_announcements.push_back(change.object);
    change.changed.set(size_t(property));
    change.unannounced.set(size_t(property));
}

void KXChangeLedger::deleted(const KXRef<Object> &object)
{
    check(Transition::Deleted, object.get());
    quint16 &state = Access::state(object.get());
    if (!(state & Access::InsertPending)) {
        state |= Access::DeletePending;
        m_announcements.push_back(object);
    }
    state &= quint16(~(Access::Inserted | Access::InsertPending | Access::Updated));
    state |= Access::Deleted;
    m_deleted.push_back(object);
}

void KXChangeLedger::revived(const KXRef<Object> &object)
{
    check(Transition::Revived, object.get());
    quint16 &state = Access::state(object.get());
    if (state & Access::Detached) {
        Access::attach(object.get(), m_keeper, Access::key(object));
        state = Access::Inserted;
        m_inserted.push_back(object);
    } else {
        std::erase(m_deleted, object);
        state &= quint16(~Access::Deleted);
        if (Access::values(object)->version == 0)
            state |= Access::Inserted; // and is still among those to insert
        else if (storedValues(object.get()))
            state |= Access::Updated;
    }
    // Nobody was told of the deletion yet, or all were.
    if (state & Access::DeletePending)
        state &= quint16(~Access::DeletePending);
    else
        state |= Access::InsertPending;
    m_announcements.push_back(object);
}

KXContextHold KXChangeLedger::saved(Object *object)
{
    check(Transition::Saved, object);
    KXContextHold held(object);
    quint16 &state = Access::state(object);
    if (state & Access::Inserted)
        m_formerVersions.erase(Access::key(object));
    state &= quint16(~(Access::Inserted | Access::Updated));
    m_changes.erase(object);
    return held;
}

void KXChangeLedger::restored(Object *object)
{
    check(Transition::Restored, object);
    Access::state(object) &= quint16(~(Access::Updated | Access::Deleted | Access::DeletePending));
}

void KXChangeLedger::foundAgain(Object *object)
{
    check(Transition::Found, object);
    Access::state(object) &= quint16(~Access::Missing);
}

void KXChangeLedger::missed(Object *object)
{
    check(Transition::Missed, object);
    Access::state(object) |= Access::Missing;
}

void KXChangeLedger::vanished(Object *object)
{
    check(Transition::Vanished, object);
    quint16 &state = Access::state(object);
    // A deleted object that was never stored is still among those to insert.
    if (state & Access::Inserted || (state & Access::Deleted && Access::values(object)->version == 0))
        std::erase(m_inserted, object);
    if (state & Access::Deleted)
        std::erase(m_deleted, object);
    m_changes.erase(object);
    state = Access::Missing | Access::Detached;
    Access::detach(object, m_keeper.identity());
}

void KXChangeLedger::detached(Object *object) { detached(object, m_keeper.identity()); }

void KXChangeLedger::detached(Object *object, std::shared_ptr<const KXStoreIdentity> store)
{
    check(Transition::Detached, object);
    quint16 &state = Access::state(object);
    state = (state & Access::Missing) | Access::Detached;
    Access::detach(object, std::move(store));
}

// For a save, a merge and a rollback

void KXChangeLedger::dropSettledInsertions()
{
    const auto inserted = std::exchange(m_inserted, {});
    std::copy_if(inserted.begin(), inserted.end(), std::back_inserter(m_inserted),
        [](const KXContextHold &object) { return object->isInserted(); });
}

std::vector<KXContextHold> KXChangeLedger::takeDeletions(size_t count)
{
    std::vector<KXContextHold> deleted = std::exchange(m_deleted, {});
    m_deleted.assign(deleted.begin() + ptrdiff_t(count), deleted.end());
    deleted.resize(count);
    return deleted;
}

void KXChangeLedger::rebase(Object *object, const KXPropertyDescription &property, const QVariant &stored)
{
    const auto found = m_changes.find(object);
    if (found == m_changes.end() || !found->second.before)
        return;
    if (property.isAttribute())
        found->second.before->setAttribute(property, stored);
    else
        found->second.before->setToOne(property, stored.toLongLong());
}

/// What is to be said of the object; from then on nothing is. `keys` are those of an update.
KXChangeLedger::Announcement KXChangeLedger::settleAnnouncement(Object *object, KXPropertySet &keys)
{
    quint16 &state = Access::state(object);
    const auto found = m_changes.find(object);
    // Also of one that comes or goes: a key left here would keep later changes of it from being announced.
    keys = found == m_changes.end() ? KXPropertySet() : std::exchange(found->second.unannounced, {});
    const unsigned pending = state & (Access::DeletePending | Access::InsertPending);
    if (pending & Access::DeletePending) {
        state &= quint16(~Access::DeletePending);
        return Announcement::Deletion;
    }
    if (pending) {
        state &= quint16(~Access::InsertPending);
        return Announcement::Insertion;
    }
    return keys.any() && !(state & Access::Deleted) ? Announcement::Update : Announcement::None;
}

KXObjectsDidChange KXChangeLedger::takeAnnouncements()
{
    KXObjectsDidChange did;
    for (const KXContextHold &object : std::exchange(m_announcements, {})) {
        KXPropertySet keys;
        switch (settleAnnouncement(object.get(), keys)) {
        case Announcement::None:
            break;
        case Announcement::Deletion:
            did.deleted.append(object);
            break;
        case Announcement::Insertion:
            did.inserted.append(object);
            break;
        case Announcement::Update:
            if (object->entity() != m_alike.entity || keys != m_alike.keys) {
                m_alike = { object->entity(), keys, {} };
                for (const KXPropertyDescription &property : object->entity()->properties()) {
                    if (keys.test(size_t(property.index())))
                        m_alike.names.insert(property.name());
                }
            }
            did.changedKeys.insert(object.get(), m_alike.names);
            did.updated.append(object);
        }
    }
    return did;
}

void KXChangeLedger::dropAnnouncements()
{
    KXPropertySet keys;
    for (const KXContextHold &object : std::exchange(m_announcements, {}))
        settleAnnouncement(object.get(), keys);
}

KXChangeLedger::Unsaved KXChangeLedger::takeAll()
{
    m_formerVersions.clear();
    return { std::exchange(m_announcements, {}), std::exchange(m_inserted, {}), std::exchange(m_deleted, {}),
        std::exchange(m_changes, {}) };
}
