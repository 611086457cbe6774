#include <kestrixkit/context/KXBatchRecord_p.h>

#include <algorithm>
#include <map>

#include <kestrixkit/context/KXContextReverter_p.h>

using Access = KXObjectAccess;
using Object = KXManagedObject;

namespace {

/// Keys to be read, by what they may be.
using RecordKeys = std::map<const KXEntityDescription *, std::vector<qint64>>;

KXRowValues::Owner recordCopy(const KXRowValues::Owner &values, const KXEntityDescription &entity)
{
    return KXRowValues::Owner(values ? KXRowValues::clone(*values, entity) : nullptr, { &entity });
}

void recordRead(const KXManagedObjectContextPrivate &context, const RecordKeys &wanted)
{
    for (const auto &[entity, keys] : wanted)
        const_cast<KXManagedObjectContextPrivate &>(context).reader.fill(*entity, keys);
}

bool recordIsThere(const KXManagedObjectContextPrivate &context, qint64 key)
{
    const Object *const object = context.reader.registered(key);
    return object && Access::values(object);
}

}

KXBatchRecord::KXBatchRecord(
    std::vector<qint64> keys, std::vector<Entry> entries, const KXManagedObjectContextPrivate &context)
    : m_keys(std::move(keys))
{
    m_rows.reserve(entries.size());
    for (Entry &entry : entries) {
        const KXRef<Object> object = std::exchange(entry.object, {});
        const qint64 key = Access::key(object);
        m_rows.push_back({ object->entity(), key, isDeletion(entry) ? context.ledger.firstVersion(key) - 1 : qint64(0),
            std::move(entry) });
    }
    prune();
}

/// Of a hundred thousand objects every set counts. What a deleted object knows itself nobody else has to.
void KXBatchRecord::prune()
{
    QSet<qint64> deleted;
    for (const Row &row : m_rows) {
        if (isDeletion(row.entry))
            deleted.insert(row.key);
    }
    std::erase_if(m_rows, [&](Row &row) {
        Entry &entry = row.entry;
        std::erase_if(entry.membersBefore, [](const auto &members) { return members.second.isEmpty(); });
        if (!entry.existedBefore) { // it goes, whatever it has become
            entry.after.reset();
            entry.membersAfter.clear();
            return false;
        }
        if (!entry.existsAfter)
            return false;
        for (auto links = entry.links.begin(); links != entry.links.end();) {
            if (row.entity->properties()[links->first].inverse())
                links->second.removed.subtract(deleted);
            const bool isLeft = !links->second.removed.isEmpty() || !links->second.added.isEmpty();
            links = isLeft ? std::next(links) : entry.links.erase(links);
        }
        return entry.links.empty() && entry.changed.none();
    });
    m_rows.shrink_to_fit();
}

/// The other ends of what comes back: whether they are still there.
void KXBatchRecord::readEnds(KXManagedObjectContextPrivate &context, const QSet<qint64> &back) const
{
    RecordKeys wanted;
    const auto want = [&](const KXPropertyDescription &property, qint64 key) {
        if (key != 0 && !back.contains(key))
            wanted[property.destinationEntity()].push_back(key);
    };
    for (const Row &row : m_rows) {
        const Entry &entry = row.entry;
        for (const KXPropertyDescription &property : row.entity->properties()) {
            if (property.isToOne() && entry.before
                && (back.contains(row.key) || entry.changed.test(size_t(property.index()))))
                want(property, entry.before->toOne(property));
        }
        for (const auto &[index, members] : entry.membersBefore) {
            for (const qint64 key : members)
                want(row.entity->properties()[index], key);
        }
        for (const auto &[index, links] : entry.links) {
            for (const qint64 key : links.removed)
                want(row.entity->properties()[index], key);
        }
    }
    recordRead(context, wanted);
}

/// What its owner would have taken along does not come back without it, and not without what it cannot be.
void KXBatchRecord::dropOrphans(const KXManagedObjectContextPrivate &context, QSet<qint64> &back) const
{
    const auto isOrphan = [&](const Row &row) {
        return std::any_of(row.entity->properties().begin(), row.entity->properties().end(), [&](const auto &property) {
            const bool isOwner = property.isToOne()
                && (!property.isOptional()
                    || (property.inverse() && property.inverse()->deleteRule() == KXDeleteRule::Cascade));
            const qint64 owner = isOwner ? row.entry.before->toOne(property) : 0;
            return owner != 0 && !back.contains(owner) && !recordIsThere(context, owner);
        });
    };
    for (qsizetype before = -1; before != back.size();) { // one may be another's owner
        before = back.size();
        for (const Row &row : m_rows) {
            if (back.contains(row.key) && isOrphan(row))
                back.remove(row.key);
        }
    }
}

std::optional<KXBatchRecord::Entry> KXBatchRecord::entryFor(
    KXManagedObjectContextPrivate &context, const Row &row, bool isBack, qint64 &kept)
{
    const bool isThere = recordIsThere(context, row.key);
    if (isDeletion(row.entry) ? !isBack : !isThere)
        return std::nullopt;
    Entry entry;
    entry.existedBefore = row.entry.existedBefore;
    entry.existsAfter = row.entry.existsAfter;
    entry.before = recordCopy(row.entry.before, *row.entity);
    entry.links = row.entry.links;
    entry.membersBefore = row.entry.membersBefore;
    if (isBack) {
        // An object that left the context is what comes back.
        entry.object = context.reader.makeObject(*row.entity, row.key);
        context.reader.dismiss(entry.object.get());
        context.ledger.noteFormerVersion(row.key, row.formerVersion);
        return entry;
    }
    entry.object = KXRef<Object>(context.reader.registered(row.key));
    const KXRowValues &now = *Access::values(entry.object);
    for (const KXPropertyDescription &property : row.entity->properties()) {
        if (row.entry.changed.test(size_t(property.index())))
            entry.changed.set(size_t(property.index()), KXRowValues::isEqual(now, *row.entry.after, property));
    }
    kept += entry.changed != row.entry.changed;
    return entry;
}

KXBatchRecord::Undone KXBatchRecord::undo(KXManagedObjectContextPrivate &context) const
{
    RecordKeys own;
    for (const Row &row : m_rows)
        own[row.entity].push_back(row.key);
    recordRead(context, own);
    Undone undone;
    QSet<qint64> back;
    for (const Row &row : m_rows) {
        if (!isDeletion(row.entry))
            continue;
        if (recordIsThere(context, row.key))
            ++undone.kept;
        else
            back.insert(row.key);
    }
    readEnds(context, back);
    dropOrphans(context, back);
    std::vector<Entry> entries;
    QSet<qint64> keys;
    for (const Row &row : m_rows) {
        if (std::optional<Entry> entry = entryFor(context, row, back.contains(row.key), undone.kept)) {
            entries.push_back(std::move(*entry));
            keys.insert(row.key);
        }
    }
    KXChangesTogether told;
    (void)KXContextReverter(context).revert(std::move(entries), told);
    std::copy_if(m_keys.begin(), m_keys.end(), std::back_inserter(undone.keys),
        [&keys](qint64 key) { return keys.contains(key); });
    told.tell();
    return undone;
}
