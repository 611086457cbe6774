// What a change means for a live list: which rows come, leave and move.

#include <kestrixkit/context/KXLiveList.h>

#include <algorithm>

#include <kestrixkit/context/KXContextFetch_p.h>
#include <kestrixkit/context/KXKeyFilter_p.h>
#include <kestrixkit/store/KXStoreChange.h>

using Access = KXObjectAccess;
using Object = KXManagedObject;

namespace {

/// More ranges than this become one reordering: views look at all their rows for each step.
constexpr size_t liveListStepsAtMost = 24;
/// When so many rows (and more than a quarter of all) changed, fetching is cheaper than placing.
constexpr size_t liveListRowsPlacedAnyway = 256;
constexpr size_t liveListSeenAtMost = 65'536;
constexpr double liveListTurn = 0.001; // seconds: whatever else is due goes first

/// Which of the keys come and go; sorted.
void liveListCompare(const std::vector<qint64> &before, const std::vector<qint64> &after, std::vector<qint64> &gone,
    std::vector<qint64> &come)
{
    const qint64 last = std::max(before.empty() ? 0 : *std::max_element(before.begin(), before.end()),
        after.empty() ? 0 : *std::max_element(after.begin(), after.end()));
    if (before.empty() || size_t(last) > 64 * (before.size() + after.size())
        || std::any_of(before.begin(), before.end(), [](qint64 key) { return key < 0; })) {
        std::vector<qint64> old = before;
        come = after;
        std::sort(old.begin(), old.end());
        if (old.empty())
            return; // all of them, in whatever order
        std::vector<qint64> now = std::exchange(come, {});
        std::sort(now.begin(), now.end());
        std::set_difference(old.begin(), old.end(), now.begin(), now.end(), std::back_inserter(gone));
        std::set_difference(now.begin(), now.end(), old.begin(), old.end(), std::back_inserter(come));
        return;
    }
    // Keys mostly fill their range: two bits for each instead of sorting them all.
    std::vector<bool> isOld(size_t(last) + 1), isNew(size_t(last) + 1);
    for (const qint64 key : before)
        isOld[size_t(key)] = true;
    for (const qint64 key : after)
        isNew[size_t(key)] = true;
    std::copy_if(
        before.begin(), before.end(), std::back_inserter(gone), [&](qint64 key) { return !isNew[size_t(key)]; });
    std::copy_if(after.begin(), after.end(), std::back_inserter(come), [&](qint64 key) { return !isOld[size_t(key)]; });
    std::sort(gone.begin(), gone.end());
    std::sort(come.begin(), come.end());
}

/// How many steps it takes to remove them: neighbours go together.
size_t liveListRanges(std::vector<size_t> indexes)
{
    std::sort(indexes.begin(), indexes.end());
    size_t ranges = 0;
    for (size_t i = 0; i < indexes.size(); ++i)
        ranges += i == 0 || indexes[i] != indexes[i - 1] + 1;
    return ranges;
}

}

/// What a change may mean for the list.
struct KXLiveList::Touched
{
    std::vector<qint64> keys; ///< rows to be looked at: they may come, leave or move
    std::vector<qint64> arrived; ///< rows that somebody else has inserted
    std::vector<qint64> updated; ///< rows of which only other values changed
    bool all = false; ///< any row may be concerned
};

void KXLiveList::follow(const KXObjectsDidChange &did)
{
    // An observer of the list that changes things all the same makes it look at everything once more.
    if (m_following) {
        m_due = true;
        return;
    }
    Touched touched = touchedBy(did);
    const size_t rows = touched.keys.size() + touched.arrived.size();
    const bool many = rows > std::max(m_keys.size() / 4, liveListRowsPlacedAnyway);
    const bool isWhole = m_request.fetchLimit() > 0 || m_request.fetchOffset() > 0 || !m_remoteKeys.empty();
    // One that knows its first rows alone knows no other's place, but may stay so while others' objects change.
    const bool isUnknown = !m_complete && (rows > 0 || !touched.updated.empty());
    std::vector<qint64> updated = touched.updated;
    updated.insert(updated.end(), touched.keys.begin(), touched.keys.end());
    KXSortUnique(updated);
    if (touched.all || many || m_doubtful || isUnknown || ((isWhole || !m_valid) && rows > 0)) {
        refetch();
    } else if (rows > 0) {
        m_arrivals.insert(m_arrivals.end(), touched.arrived.begin(), touched.arrived.end());
        // Very many begin with the next turn: this one has had a merge.
        const bool areMany = m_arrivalsPerTurn > 0 && m_arrivals.size() > size_t(m_arrivalsPerTurn);
        takeArrivals(areMany ? 0 : m_arrivals.size(), touched);
        place(touched);
    }
    settle();
    if (!updated.empty())
        announceUpdates(updated);
}

/// So many of those that have arrived are to be placed, where they now belong; the others in later turns.
void KXLiveList::takeArrivals(size_t most, Touched &touched)
{
    const auto end = m_arrivals.begin() + ptrdiff_t(std::min(most, m_arrivals.size()));
    touched.keys.insert(touched.keys.end(), m_arrivals.begin(), end);
    KXSortUnique(touched.keys);
    m_arrivals.erase(m_arrivals.begin(), end);
    if (m_arrivals.empty())
        return m_arrivals.shrink_to_fit();
    if (!m_later)
        m_later = std::make_unique<KXDelayedCall>();
    m_later->start(liveListTurn, [this] { placeArrivals(); });
}

void KXLiveList::placeArrivals()
{
    if (m_following) { // in an event loop of an observer
        m_due = true;
        return;
    }
    const auto context = m_context.lock();
    const KXAlive::Watch alive = m_alive.watch();
    if (context)
        m_borrowed->announcer.processPendingChanges(); // who is told may place them, or end the list
    if (!context || !alive || m_arrivals.empty())
        return;
    if (m_valid) {
        Touched touched;
        takeArrivals(m_arrivalsPerTurn > 0 ? size_t(m_arrivalsPerTurn) : m_arrivals.size(), touched);
        place(touched);
    } else {
        refetch(); // those of an earlier turn could not be read
    }
    settle();
}

void KXLiveList::settle()
{
    while (m_doubtful || std::exchange(m_due, false))
        refetch();
}

KXLiveList::Touched KXLiveList::touchedBy(const KXObjectsDidChange &did)
{
    Touched touched;
    const auto isRemote = [this](const KXEntityDescription *entity, const auto &hasKey) {
        return std::any_of(m_remoteKeys.begin(), m_remoteKeys.end(),
            [&](const Remote &remote) { return remote.root == entity->root() && hasKey(remote.key); });
    };
    for (const auto *list : { &did.inserted, &did.deleted }) {
        for (const KXRef<Object> &object : *list) {
            if (object->entity()->isKindOf(m_entity))
                touched.keys.push_back(Access::key(object));
        }
    }
    for (const KXRef<Object> &object : did.deleted)
        touched.all |= isRemote(object->entity(), [](const QString &) { return true; });
    for (const auto *list : { &did.updated, &did.refreshed }) {
        for (const KXRef<Object> &object : *list) {
            const QSet<QString> keys = did.changedKeys.value(object.get());
            touched.all |= isRemote(object->entity(), [&](const QString &key) { return keys.contains(key); });
            if (object->entity()->isKindOf(m_entity))
                (keys.intersects(m_directKeys) ? touched.keys : touched.updated).push_back(Access::key(object));
        }
    }
    if (did.merged)
        touchByStore(*did.merged, touched);
    KXSortUnique(touched.keys);
    return touched;
}

void KXLiveList::touchByStore(const KXStoreChange &change, Touched &touched)
{
    // A fetch may have seen the save, also one that got its serial number only right after.
    const bool fetchMayHaveSeen = change.serialNumber() <= m_fetchedUntil;
    const auto wasSeen = [&](qint64 key, qint64 version) {
        for (const auto *seen : { &m_seen, &m_seenBefore }) {
            if (const auto found = seen->find(key); found != seen->end())
                return !found->second.placed && (fetchMayHaveSeen || found->second.version >= version);
        }
        return false;
    };
    // Mostly the same of all rows.
    auto isDirect = [this, last = (const KXPropertyDescription *)nullptr, direct = false](
                        const KXPropertyDescription *property) mutable {
        if (std::exchange(last, property) != property)
            direct = m_directKeys.contains(property->name());
        return direct;
    };
    for (const KXEntityChange &entity : change.entities()) {
        const bool isOurs = entity.entity->isKindOf(m_entity);
        for (const Remote &remote : m_remoteKeys) {
            if (remote.root != entity.entity->root())
                continue;
            touched.all |= !entity.deleted.isEmpty();
            for (const KXRowChange &row : entity.updated)
                touched.all |= std::any_of(row.properties.begin(), row.properties.end(),
                    [&](const KXPropertyChange &news) { return news.property->name() == remote.key; });
        }
        if (!isOurs)
            continue;
        touched.arrived.insert(touched.arrived.end(), entity.inserted.begin(), entity.inserted.end());
        touched.keys.insert(touched.keys.end(), entity.deleted.begin(), entity.deleted.end());
        for (const KXRowChange &row : entity.updated) {
            const bool matters = std::any_of(row.properties.begin(), row.properties.end(),
                [&isDirect](const KXPropertyChange &news) { return isDirect(news.property); });
            (matters ? touched.keys : touched.updated).push_back(row.key);
            m_doubtful |= matters && (wasSeen(row.key, row.version) || (fetchMayHaveSeen && m_fetchedOverChanges));
        }
    }
}

// What becomes of it

void KXLiveList::refetch()
{
    if (m_context.expired())
        return;
    std::vector<qint64> keys, gone, come;
    if (!fetchAll(keys))
        return;
    if (!m_complete)
        assume(keys);
    m_arrivals.clear(); // they are among all
    liveListCompare(m_keys, keys, gone, come);
    changeTo(std::move(keys), gone, come);
}

/// Whether the row stands before the object; notes that it was looked at.
bool KXLiveList::isBefore(qint64 key, const KXSortedRow &object)
{
    const KXRef<Object> row = m_borrowed->reader.object(*m_entity, key);
    if (!row || !Access::loadedValues(row)) {
        m_doubtful = true; // deleted in the store, which is still to be merged
        return false;
    }
    m_doubtful |= m_borrowed->ledger.isUnannounced(row.get());
    if (m_seen.size() >= liveListSeenAtMost)
        m_seenBefore = std::exchange(m_seen, {});
    const Seen now { Access::values(row)->version, false };
    if (const auto [known, isNew] = m_seen.try_emplace(key, now); !isNew && known->second.version < now.version)
        known->second = now;
    return m_fetcher->sortOrder().precedes(KXSortedRow(row.get()), object);
}

void KXLiveList::place(const Touched &touched)
{
    if (m_context.expired() || touched.keys.empty())
        return;
    // Without the touched rows the list is in order; each that still belongs there is put to its place again.
    const KXKeyFilter filter(touched.keys);
    std::vector<qint64> rest;
    rest.reserve(m_keys.size() + touched.keys.size());
    struct Old
    {
        qint64 key;
        size_t index;
        size_t place; // among the others
    };
    std::vector<Old> olds;
    for (size_t i = 0; i < m_keys.size(); ++i) {
        if (filter.contains(m_keys[i]))
            olds.push_back({ m_keys[i], i, rest.size() });
        else
            rest.push_back(m_keys[i]);
    }
    std::sort(olds.begin(), olds.end(), [](const Old &a, const Old &b) { return a.key < b.key; });
    const auto oldOf = [&olds](qint64 key) {
        const auto found
            = std::lower_bound(olds.begin(), olds.end(), key, [](const Old &old, qint64 k) { return old.key < k; });
        return found != olds.end() && found->key == key ? &*found : nullptr;
    };

    if (m_borrowed->reader.fill(*m_entity, touched.keys)) {
        m_valid = false; // rows that are not read are not gone
        return;
    }
    std::vector<KXRef<Object>> wanted;
    std::vector<qint64> gone, come, moved;
    for (const qint64 key : touched.keys) {
        if (KXRef<Object> object; m_fetcher->isWanted(key, object)) {
            m_seen.insert_or_assign(key, Seen { Access::values(object)->version, true });
            wanted.push_back(std::move(object));
            if (!oldOf(key))
                come.push_back(key);
        } else if (oldOf(key)) {
            gone.push_back(key);
        }
    }
    const KXSortOrder &order = m_fetcher->sortOrder();
    const bool sorted = !order.isEmpty();
    std::vector<KXSortedRow> rows = order.sorted(wanted);
    if (!sorted) // rows that stay do so where they are
        std::stable_sort(rows.begin(), rows.end(), [&](const auto &a, const auto &b) {
            const Old *first = oldOf(Access::key(a.object())), *second = oldOf(Access::key(b.object()));
            return first && (!second || first->index < second->index);
        });

    std::vector<qint64> keys;
    keys.reserve(rest.size() + wanted.size());
    size_t from = 0, lastStaying = 0, ranges = 0; // of neighbours that come together
    bool isBesideOne = false;
    const size_t distance = rest.size() / std::max<size_t>(1, rows.size());
    const auto placeOf = [&](const KXSortedRow &row) {
        return KXPlaceAmong(rest, from, distance, [&](qint64 key) { return isBefore(key, row); });
    };
    for (const KXSortedRow &row : rows) {
        const qint64 key = Access::key(row.object());
        const Old *old = oldOf(key);
        const size_t to = sorted ? placeOf(row) : old ? old->place : rest.size();
        keys.insert(keys.end(), rest.begin() + ptrdiff_t(from), rest.begin() + ptrdiff_t(to));
        keys.push_back(key);
        isBesideOne = isBesideOne && to == from;
        ranges += !old && !isBesideOne;
        isBesideOne = !old;
        from = to;
        if (old && old->place == to && old->index >= lastStaying)
            lastStaying = old->index;
        else if (old)
            moved.push_back(key);
    }
    keys.insert(keys.end(), rest.begin() + ptrdiff_t(from), rest.end());
    std::vector<size_t> goneIndexes;
    goneIndexes.reserve(gone.size());
    for (const qint64 key : gone)
        goneIndexes.push_back(oldOf(key)->index);
    if (liveListRanges(std::move(goneIndexes)) + ranges + moved.size() <= liveListStepsAtMost)
        changeStepwise(keys, gone, come, moved);
    else
        changeTo(std::move(keys), gone, come);
}
