// Live lists that open with their first rows, and get the others from another thread.

#include <kestrixkit/context/KXLiveList.h>

#include <algorithm>

#include <QCoreApplication>

#include <kestrixkit/context/KXContextFetch_p.h>
#include <kestrixkit/context/KXKeyFilter_p.h>
#include <kestrixkit/foundation/KXMainQueue.h>
#include <kestrixkit/foundation/KXOperationQueue.h>

using namespace Qt::StringLiterals;

namespace {

constexpr double liveListCompletesAfter = 0.05; // seconds: views have painted by then

}

/// The fetch of all rows on another thread.
struct KXLiveList::Aside
{
    Aside(KXManagedObjectContextPrivate &context, const KXFetchRequest &request)
        : fetcher(context, request)
    {
    }

    KXContextFetcher fetcher;
    std::vector<qint64> keys;
    bool hasAnswered = false;
    std::shared_ptr<KXBlockOperation> work;
    QObject guard; // of the delivery
    KXOperationQueue queue; // goes first: interrupts the work and waits for it
};

/// False where nothing would be gained.
bool KXLiveList::openWithFirstRows()
{
    const QList<KXSortDescriptor> &order = m_request.sortDescriptors();
    const KXPropertyDescription *first = order.isEmpty() ? nullptr : m_entity->property(order.first().key);
    const bool isServed
        = order.isEmpty() || (first && first->isAttribute() && first->isIndexedForSorting(order.first().options));
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
    m_later = std::make_unique<KXDelayedCall>();
    m_later->start(liveListCompletesAfter, [this] { completeAside(); });
    return true;
}

void KXLiveList::completeAside()
{
    if (m_context.expired())
        return;
    if (m_complete) { // who asked for all of them was faster
        if (m_following)
            m_due = true;
        else if (m_doubtful)
            refetch();
        return;
    }
    m_aside = std::make_shared<Aside>(*m_borrowed, m_request);
    Aside &aside = *m_aside;
    if (!aside.fetcher.isAnsweredByStore())
        return takeAside();
    aside.queue.setName(u"list"_s);
    aside.work = aside.queue.addBlock([this, &aside](KXAbstractOperation &operation) {
        aside.hasAnswered = !operation.isCancelled() && aside.fetcher.fetchFromStore(aside.keys);
        KXMainQueue::async(&aside.guard, [this] { takeAside(); });
    });
}

void KXLiveList::takeAside()
{
    complete();
    m_aside.reset();
    if (m_following)
        m_due = true;
    else if (m_doubtful)
        refetch();
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
    KXSortUnique(known);
    const KXKeyFilter first(known);
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
    if (const auto aside = std::exchange(self->m_aside, nullptr); aside && aside->work) {
        aside->work->waitUntilFinished();
        // What was read holds if the context has nothing to add. A change of the rows would have made the list whole.
        if (aside->hasAnswered && KXContextFetcher(*m_borrowed, m_request).isAnsweredByStore())
            keys.swap(aside->keys);
    }
    if (keys.empty())
        (void)self->fetchAll(keys); // a failure is logged, and tried again
    else
        self->noteFetch();
    self->assume(keys);
    self->m_doubtful = keys != m_keys;
    if (m_doubtful && m_later && !m_later->isPending())
        m_later->start(liveListCompletesAfter, [self] { self->completeAside(); });
}
