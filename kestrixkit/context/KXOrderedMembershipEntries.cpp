// The entries of lists: which there are, and how they come to be.

#include <kestrixkit/context/KXOrderedMembership.h>

#include <algorithm>

#include <kestrixkit/context/KXContextRows_p.h>
#include <kestrixkit/context/KXManagedObjectContext_p.h>
#include <kestrixkit/foundation/KXLog.h>
#include <kestrixkit/store/KXRowReader_p.h>

namespace {

constexpr size_t membershipBatch = 4'096; // members read at a time

}

/// Keys of what may be an entry of the list and one of the members: by what is stored, or by what is unsaved. Asked
/// from the members' ends, which have few: SQLite would look through the whole list, however few are asked for.
std::vector<qint64> KXOrderedMembership::candidates(
    const KXManagedObjectID &list, std::span<const qint64> members) const
{
    KXManagedObjectContextPrivate &context = KXManagedObjectContextPrivate::of(*m_context);
    const KXEntityDescription &entity = context.entity(m_membership.entityName);
    std::vector<qint64> keys;
    {
        KXError error;
        KXRowReader reader(context.store, &error);
        const std::vector<qint64> wanted(members.begin(), members.end());
        std::vector<qint64> all; // of other lists, too
        if (reader)
            error = reader.links(*m_member->destinationEntity(), { m_member->inverse() }, &wanted,
                [&all](qint64, qint64 entry) { all.push_back(entry); });
        if (!error && !all.empty())
            error = reader.rows(entity, { m_list }, &all, [&](qint64 entry, const auto &values) {
                if (values(0).integer() == list.key())
                    keys.push_back(entry);
            });
        if (error)
            KXLogError(store, "Cannot read \"%@\": %@", m_membership.entityName, error);
    }
    for (const KXManagedObjectContextPrivate *each = &context; each;
         each = each->parent ? &KXManagedObjectContextPrivate::of(*each->parent) : nullptr) {
        for (const KXContextHold &object : each->ledger.insertions()) {
            if (object->entity()->isKindOf(&entity))
                keys.push_back(KXObjectAccess::key(object));
        }
        for (const auto &[object, change] : each->ledger.changes()) {
            if (object->entity()->isKindOf(&entity))
                keys.push_back(KXObjectAccess::key(object));
        }
    }
    std::sort(keys.begin(), keys.end());
    keys.erase(std::unique(keys.begin(), keys.end()), keys.end());
    return keys;
}

/// The entries of those members that are in the list; the first of each is the one that counts.
QHash<qint64, QList<KXRef<KXManagedObject>>> KXOrderedMembership::entries(
    const KXManagedObjectID &list, std::span<const qint64> members) const
{
    const KXManagedObjectContextPrivate &context = KXManagedObjectContextPrivate::of(*m_context);
    const std::vector<qint64> keys = candidates(list, members);
    const KXContextRows rows(*m_context);
    const KXEntityDescription &entity = context.entity(m_membership.entityName);
    rows.fill(entity, keys);
    const QSet<qint64> wanted(members.begin(), members.end());
    struct Found
    {
        qint64 position, member;
        Object entry;
    };
    std::vector<Found> found;
    for (const qint64 key : keys) {
        const Object entry = rows.object(entity, key);
        const qint64 member = entry && !entry->isDeleted() ? memberOf(entry) : 0;
        if (wanted.contains(member) && KXObjectAccess::values(entry)->toOne(*m_list) == list.key())
            found.push_back({ position(entry), member, entry });
    }
    std::stable_sort(
        found.begin(), found.end(), [](const Found &a, const Found &b) { return a.position < b.position; });
    QHash<qint64, QList<Object>> entries;
    for (const Found &each : found)
        entries[each.member].append(each.entry);
    return entries;
}

qint64 KXOrderedMembership::memberOf(const Object &entry) const
{
    const KXRowValues *values = KXObjectAccess::loadedValues(entry);
    return values ? values->toOne(*m_member) : 0;
}

qint64 KXOrderedMembership::position(const Object &entry) const
{
    return entry->valueForKey(m_membership.positionKey).toLongLong();
}

void KXOrderedMembership::setPosition(const Object &entry, qint64 position) const
{
    if (this->position(entry) != position || entry->isInserted())
        entry->setValueForKey(m_membership.positionKey, position);
}

std::vector<KXRef<KXManagedObject>> KXOrderedMembership::makeEntries(
    const Object &list, std::span<const qint64> members)
{
    KXManagedObjectContextPrivate &context = KXManagedObjectContextPrivate::of(*m_context);
    const KXEntityDescription &entity = *m_member->destinationEntity();
    std::vector<Object> made;
    for (size_t from = 0; from < members.size(); from += membershipBatch) {
        const auto batch = members.subspan(from, std::min(membershipBatch, members.size() - from));
        context.reader.fill(entity, batch);
        for (const qint64 key : batch) {
            const Object member = context.reader.object(entity, key);
            if (!member || member->isDeleted() || member->isMissing() || !member->entity()->isKindOf(&entity))
                continue;
            const Object entry = m_context->managedObjectForEntity(m_membership.entityName);
            if (!entry)
                return made; // the store gives no keys, which is logged
            context.editor.setToOne(entry.get(), *m_list, list.get());
            context.editor.setToOne(entry.get(), *m_member, member.get());
            made.push_back(entry);
        }
    }
    return made;
}
