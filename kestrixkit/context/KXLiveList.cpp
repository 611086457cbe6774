#include <kestrixkit/context/KXLiveList.h>

#include <algorithm>

#include <QCoreApplication>

#include <kestrixkit/context/KXContextFetch_p.h>
#include <kestrixkit/context/KXKeyFilter_p.h>
#include <kestrixkit/entity/KXModelPath.h>
#include <kestrixkit/foundation/KXLog.h>
#include <kestrixkit/foundation/KXMainQueue.h>

using Object = KXManagedObject;

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

bool KXLiveList::fetchAll(std::vector<qint64> &keys)
{
    KXContextFetcher fetcher(*m_borrowed, m_request);
    m_valid = fetcher.fetch(keys);
    noteFetch();
    if (m_valid)
        return true;
    KXContextFetcher::throwIfMistake(fetcher.error());
    KXLogError(store, "Cannot fetch \"%@\": %@", m_request.entityName(), fetcher.error());
    return m_valid;
}

void KXLiveList::noteFetch()
{
    ++m_fetches;
    m_doubtful = false;
    m_fetchedOverChanges = !m_borrowed->ledger.changes().empty() || !m_borrowed->ledger.insertions().empty();
    m_fetchedUntil = m_coordinator->lastSerialNumber() + 1;
    m_seen.clear();
    m_seenBefore.clear();
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
    if (keys.empty())
        return {};
    std::vector<qsizetype> places(keys.size(), -1);
    std::vector<std::pair<qint64, size_t>> wanted;
    std::vector<qint64> sorted(keys.begin(), keys.end());
    for (size_t i = 0; i < keys.size(); ++i)
        wanted.push_back({ keys[i], i });
    std::sort(wanted.begin(), wanted.end());
    KXSortUnique(sorted);
    const KXKeyFilter filter(sorted);
    for (size_t i = 0; i < m_keys.size(); ++i) {
        if (!filter.contains(m_keys[i]))
            continue;
        for (auto it = std::lower_bound(wanted.begin(), wanted.end(), std::pair(m_keys[i], size_t(0)));
             it != wanted.end() && it->first == m_keys[i]; ++it)
            places[it->second] = qsizetype(i);
    }
    return places;
}

void KXLiveList::setArrivalsPerTurn(qsizetype rows)
{
    m_arrivalsPerTurn = KXMainQueue::isMainThread() && QCoreApplication::instance() ? rows : 0;
}

void KXLiveList::setRequest(const KXFetchRequest &request)
{
    if (m_context.expired() || m_following || &m_borrowed->entity(request.entityName()) != m_entity)
        return;
    m_borrowed->announcer.processPendingChanges();
    m_aside.reset(); // it has the request
    m_request = request;
    prepare();
    do {
        refetch();
    } while (std::exchange(m_due, false));
}
