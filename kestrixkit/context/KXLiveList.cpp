#include <kestrixkit/context/KXLiveList.h>

#include <algorithm>
#include <bitset>
#include <functional>

#include <QCoreApplication>

#include <kestrixkit/context/KXContextFetch_p.h>
#include <kestrixkit/entity/KXModelPath.h>
#include <kestrixkit/foundation/KXLog.h>
#include <kestrixkit/foundation/KXMainQueue.h>
#include <kestrixkit/store/KXStoreChange.h>

using Access = KXObjectAccess;
using Object = KXManagedObject;

namespace {

/// More ranges than this become one reordering: views look at all their rows for each step.
constexpr size_t liveListStepsAtMost = 24;
/// When so many rows (and more than a quarter of all) changed, fetching is cheaper than placing.
constexpr size_t liveListRowsPlacedAnyway = 256;
constexpr size_t liveListSeenAtMost = 65'536;
constexpr double liveListCompletesAfter = 0.25; // seconds: views have painted by then

/// A few keys to be found among many, one look at a bit for most.
class LiveListKeyFilter
{
public:
    /// The keys are sorted, and borrowed.
    explicit LiveListKeyFilter(std::span<const qint64> keys)
        : m_keys(keys)
    {
        for (const qint64 key : keys)
            m_bits.set(size_t(key) % m_bits.size());
    }
    [[nodiscard]] bool contains(qint64 key) const
    {
        return m_bits.test(size_t(key) % m_bits.size()) && std::binary_search(m_keys.begin(), m_keys.end(), key);
    }

private:
    std::span<const qint64> m_keys;
    std::bitset<65'536> m_bits;
};

void liveListSortUnique(std::vector<qint64> &keys)
{
    std::sort(keys.begin(), keys.end());
    keys.erase(std::unique(keys.begin(), keys.end()), keys.end());
}

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

}

/// What a change may mean for the list.
struct KXLiveList::Touched
{
    std::vector<qint64> keys; ///< rows to be looked at: they may come, leave or move
    std::vector<qint64> updated; ///< rows of which only other values changed
    bool all = false; ///< any row may be concerned
};

KXLiveListObserver::~KXLiveListObserver() = default;

KXLiveList::KXLiveList(
    const KXManagedObjectContext::Ref &context, const KXFetchRequest &request, KXLiveListObserver *observer)
    : m_context(context)
    , m_borrowed(&KXManagedObjectContextPrivate::of(*context))
    , m_coordinator(context->persistentStoreCoordinator())
    , m_request(request)
    , m_observer(nullptr)
    , m_entity(&m_borrowed->entity(request.entityName()))
{
    prepare();
    // A fetch sees what is not announced yet; what of it is taken back before it is would never be heard of.
    m_borrowed->announcer.processPendingChanges();
    if (!openWithFirstRows())
        refetch();
    m_observer = observer;
    m_token = KXManagedObjectContext::onChange(context.get(), [this](const KXObjectsDidChange &did) { follow(did); });
}

KXLiveList::~KXLiveList() = default;

void KXLiveList::prepare()
{
    m_fetcher = std::make_unique<KXContextFetcher>(*m_borrowed, m_request);
    m_directKeys.clear();
    m_remoteKeys.clear();
    QStringList paths = m_request.predicate().keyPaths();
    for (const KXSortDescriptor &descriptor : m_request.sortDescriptors())
        paths.append(descriptor.keyPaths());
    for (const QString &path : paths) {
        bool isDirect = true;
        for (const KXModelPath::Step &step : KXModelPath(*m_entity, path).steps()) {
            if (std::exchange(isDirect, false))
                m_directKeys.insert(step.property->name());
            else
                m_remoteKeys.push_back({ step.entity->root(), step.property->name() });
        }
    }
}

/// False where nothing would be gained.
bool KXLiveList::openWithFirstRows()
{
    const QList<KXSortDescriptor> &order = m_request.sortDescriptors();
    const KXPropertyDescription *first = order.isEmpty() ? nullptr : m_entity->property(order.first().key);
    const bool isServed = order.isEmpty()
        || (first && first->isIndexed() && (order.first().options == 0 || first->type() != KXAttributeType::String));
    const bool isClean = !m_borrowed->parent && m_borrowed->ledger.isEmpty();
    if (!isServed || !isClean || m_request.predicate() || m_request.fetchLimit() > 0 || m_request.fetchOffset() > 0
        || !KXMainQueue::isMainThread() || !QCoreApplication::instance())
        return false;
    KXFetchRequest some(m_request);
    some.setFetchLimit(m_request.fetchBatchSize());
    qint64 number = 0;
    if (!KXContextFetcher(*m_borrowed, some).fetch(m_keys) || !KXContextFetcher(*m_borrowed, m_request).count(number)
        || number <= m_request.fetchBatchSize() || qsizetype(m_keys.size()) < m_request.fetchBatchSize()) {
        m_keys.clear();
        return false;
    }
    m_complete = false;
    m_openedSize = number;
    m_completion = std::make_unique<KXDelayedCall>();
    m_completion->start(liveListCompletesAfter, [this] {
        complete();
        if (m_following)
            m_due = true;
        else if (m_doubtful)
            refetch();
    });
    return true;
}

bool KXLiveList::fetchAll(std::vector<qint64> &keys)
{
    m_fetchedOverChanges = !m_borrowed->ledger.changes().empty() || !m_borrowed->ledger.insertions().empty();
    KXContextFetcher fetcher(*m_borrowed, m_request);
    m_valid = fetcher.fetch(keys);
    ++m_fetches;
    m_doubtful = false;
    m_fetchedUntil = m_coordinator->lastSerialNumber() + 1;
    m_seen.clear();
    m_seenBefore.clear();
    if (!m_valid)
        KXLogError(store, "Cannot fetch \"%@\": %@", m_request.entityName(), fetcher.error());
    return m_valid;
}

/// Makes the list one of all rows that it was opened with. Nobody knows more of them than their number and the first:
/// the others may be those given, or, if there are too few, none that exist.
void KXLiveList::assume(const std::vector<qint64> &keys)
{
    m_complete = true;
    if (qsizetype(keys.size()) == m_openedSize && std::equal(m_keys.begin(), m_keys.end(), keys.begin())) {
        m_keys = keys;
        return;
    }
    std::vector<qint64> known = m_keys;
    liveListSortUnique(known);
    const LiveListKeyFilter first(known);
    for (auto key = keys.begin(); key != keys.end() && qsizetype(m_keys.size()) < m_openedSize; ++key) {
        if (!first.contains(*key))
            m_keys.push_back(*key);
    }
    for (qint64 nobody = -1; qsizetype(m_keys.size()) < m_openedSize; --nobody)
        m_keys.push_back(nobody);
}

/// For one who asks for more than the first rows. Where the store has changed since, the list is put right when the
/// change is merged, or a moment later.
void KXLiveList::complete() const
{
    if (m_complete || m_context.expired())
        return;
    auto *const self = const_cast<KXLiveList *>(this);
    std::vector<qint64> keys;
    (void)self->fetchAll(keys); // a failure is logged, and tried again
    self->assume(keys);
    self->m_doubtful = keys != m_keys;
}

qint64 KXLiveList::key(qsizetype index) const
{
    if (index < 0 || index >= size())
        return 0;
    if (size_t(index) >= m_keys.size())
        complete();
    return size_t(index) < m_keys.size() ? m_keys[size_t(index)] : 0;
}

const std::vector<qint64> &KXLiveList::keys() const
{
    complete();
    return m_keys;
}

KXRef<Object> KXLiveList::at(qsizetype index) const
{
    if (m_context.expired() || key(index) <= 0)
        return {};
    return KXContextFetcher::objectAt(
        *m_borrowed, *m_entity, m_keys, size_t(index), size_t(m_request.fetchBatchSize()));
}

KXManagedObjectID KXLiveList::objectID(qsizetype index) const
{
    const qint64 shown = key(index);
    return shown > 0 ? KXManagedObjectID(m_coordinator->store()->identity(), m_entity, shown) : KXManagedObjectID();
}

std::vector<qsizetype> KXLiveList::indexesOf(std::span<const qint64> keys) const
{
    complete();
    std::vector<qsizetype> places(keys.size(), -1);
    std::vector<std::pair<qint64, size_t>> wanted;
    std::vector<qint64> sorted(keys.begin(), keys.end());
    for (size_t i = 0; i < keys.size(); ++i)
        wanted.push_back({ keys[i], i });
    std::sort(wanted.begin(), wanted.end());
    liveListSortUnique(sorted);
    const LiveListKeyFilter filter(sorted);
    for (size_t i = 0; i < m_keys.size(); ++i) {
        if (!filter.contains(m_keys[i]))
            continue;
        for (auto it = std::lower_bound(wanted.begin(), wanted.end(), std::pair(m_keys[i], size_t(0)));
             it != wanted.end() && it->first == m_keys[i]; ++it)
            places[it->second] = qsizetype(i);
    }
    return places;
}

void KXLiveList::setRequest(const KXFetchRequest &request)
{
    if (m_context.expired() || m_following || &m_borrowed->entity(request.entityName()) != m_entity)
        return;
    m_borrowed->announcer.processPendingChanges();
    m_request = request;
    prepare();
    do {
        refetch();
    } while (std::exchange(m_due, false));
}

// What changed

void KXLiveList::follow(const KXObjectsDidChange &did)
{
    // An observer of the list that changes things all the same makes it look at everything once more.
    if (m_following) {
        m_due = true;
        return;
    }
    const Touched touched = touchedBy(did);
    const bool many = touched.keys.size() > std::max(m_keys.size() / 4, liveListRowsPlacedAnyway);
    const bool isWhole = m_request.fetchLimit() > 0 || m_request.fetchOffset() > 0 || !m_remoteKeys.empty();
    if (touched.all || many || m_doubtful || !m_complete || (isWhole && !touched.keys.empty()))
        refetch();
    else if (!touched.keys.empty())
        place(touched);
    while (m_doubtful || std::exchange(m_due, false))
        refetch();
    if (!touched.keys.empty() || !touched.updated.empty()) {
        std::vector<qint64> updated = touched.updated;
        updated.insert(updated.end(), touched.keys.begin(), touched.keys.end());
        liveListSortUnique(updated);
        announceUpdates(updated);
    }
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
    liveListSortUnique(touched.keys);
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
        touched.keys.insert(touched.keys.end(), entity.inserted.begin(), entity.inserted.end());
        touched.keys.insert(touched.keys.end(), entity.deleted.begin(), entity.deleted.end());
        for (const KXRowChange &row : entity.updated) {
            const bool matters = std::any_of(row.properties.begin(), row.properties.end(),
                [this](const KXPropertyChange &news) { return m_directKeys.contains(news.property->name()); });
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
    liveListCompare(m_keys, keys, gone, come);
    changeTo(std::move(keys), gone, come);
}

/// Whether the row stands before the object; notes that it was looked at.
bool KXLiveList::isBefore(qint64 key, const Object *object)
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
    return m_fetcher->sortOrder().precedes(row.get(), object);
}

void KXLiveList::place(const Touched &touched)
{
    if (m_context.expired())
        return;
    // Without the touched rows the list is in order; each that still belongs there is put to its place again.
    const LiveListKeyFilter filter(touched.keys);
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

    m_borrowed->reader.fill(*m_entity, touched.keys);
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
    if (sorted)
        std::sort(wanted.begin(), wanted.end(),
            [&](const auto &a, const auto &b) { return order.precedes(a.get(), b.get()); });
    else // rows that stay do so where they are
        std::stable_sort(wanted.begin(), wanted.end(), [&](const auto &a, const auto &b) {
            const Old *first = oldOf(Access::key(a)), *second = oldOf(Access::key(b));
            return first && (!second || first->index < second->index);
        });

    std::vector<qint64> keys;
    keys.reserve(rest.size() + wanted.size());
    size_t from = 0, lastStaying = 0;
    for (const KXRef<Object> &object : wanted) {
        const Old *old = oldOf(Access::key(object));
        size_t to;
        if (sorted)
            to = size_t(std::partition_point(rest.begin() + ptrdiff_t(from), rest.end(), [&](qint64 key) {
                return isBefore(key, object.get());
            }) - rest.begin());
        else
            to = old ? old->place : rest.size();
        keys.insert(keys.end(), rest.begin() + ptrdiff_t(from), rest.begin() + ptrdiff_t(to));
        keys.push_back(Access::key(object));
        from = to;
        if (old && old->place == to && old->index >= lastStaying)
            lastStaying = old->index;
        else if (old)
            moved.push_back(Access::key(object));
    }
    keys.insert(keys.end(), rest.begin() + ptrdiff_t(from), rest.end());
    if (gone.size() + come.size() + moved.size() <= liveListStepsAtMost)
        changeStepwise(keys, gone, come, moved);
    else
        changeTo(std::move(keys), gone, come);
}

// Saying so

void KXLiveList::apply(const KXListStep &step, const std::function<void()> &change)
{
    m_following = true;
    if (m_observer)
        m_observer->listWillChange(step);
    change();
    if (m_observer)
        m_observer->listDidChange(step);
    m_following = false;
}

/// A few steps, the last of which makes the list what is given. `moved` is in the new order.
void KXLiveList::changeStepwise(const std::vector<qint64> &keys, const std::vector<qint64> &gone,
    const std::vector<qint64> &come, const std::vector<qint64> &moved)
{
    const auto at = [this](qint64 key) { return std::find(m_keys.begin(), m_keys.end(), key); };
    std::vector<qsizetype> places = indexesOf(gone);
    std::sort(places.begin(), places.end());
    while (!places.empty()) {
        // From the last to the first, neighbours together.
        qsizetype first = places.back(), count = 0;
        for (; !places.empty() && places.back() == first - (count > 0); ++count) {
            first = places.back();
            places.pop_back();
        }
        apply({ KXListStep::Removal, first, count },
            [&] { m_keys.erase(m_keys.begin() + first, m_keys.begin() + first + count); });
    }
    const LiveListKeyFilter comes(come);
    for (const qint64 key : moved) {
        auto before = std::find(keys.begin(), keys.end(), key);
        while (before != keys.begin() && comes.contains(*(before - 1)))
            --before;
        const auto from = at(key);
        const auto to = before == keys.begin() ? m_keys.begin() : at(*(before - 1)) + 1;
        if (to == from || to == from + 1)
            continue;
        apply({ KXListStep::Move, from - m_keys.begin(), 1, to - m_keys.begin() }, [&] {
            if (to > from)
                std::rotate(from, from + 1, to);
            else
                std::rotate(to, from, from + 1);
        });
    }
    if (come.empty())
        return;
    for (size_t i = 0; i < keys.size();) {
        size_t end = i;
        while (end < keys.size() && comes.contains(keys[end]))
            ++end;
        if (end > i) {
            apply({ KXListStep::Insertion, qsizetype(i), qsizetype(end - i) }, [&] {
                m_keys.insert(
                    m_keys.begin() + ptrdiff_t(i), keys.begin() + ptrdiff_t(i), keys.begin() + ptrdiff_t(end));
            });
        }
        i = end + 1;
    }
}

/// However many rows changed: what comes is put to the end, everything is put in order, with what goes last, and that
/// is cut off.
void KXLiveList::changeTo(std::vector<qint64> keys, const std::vector<qint64> &gone, const std::vector<qint64> &come)
{
    if (!come.empty()) {
        apply({ KXListStep::Insertion, size(), qsizetype(come.size()) }, [&] {
            if (m_keys.empty()) // the whole list comes, and already in order
                m_keys = keys;
            else
                m_keys.insert(m_keys.end(), come.begin(), come.end());
        });
    }
    const qsizetype left = qsizetype(keys.size());
    keys.insert(keys.end(), gone.begin(), gone.end());
    if (keys != m_keys)
        apply({ KXListStep::Reordering, 0, size() }, [&] { m_keys = std::move(keys); });
    if (!gone.empty())
        apply({ KXListStep::Removal, left, qsizetype(gone.size()) }, [&] { m_keys.resize(size_t(left)); });
    m_keys.shrink_to_fit();
}

void KXLiveList::announceUpdates(const std::vector<qint64> &keys)
{
    if (!m_observer)
        return;
    std::vector<qsizetype> places = indexesOf(keys);
    std::erase(places, -1);
    std::sort(places.begin(), places.end());
    for (size_t i = 0; i < places.size();) {
        size_t end = i + 1;
        while (end < places.size() && places[end] == places[end - 1] + 1)
            ++end;
        m_observer->listDidChange({ KXListStep::Update, places[i], qsizetype(end - i) });
        i = end;
    }
}
