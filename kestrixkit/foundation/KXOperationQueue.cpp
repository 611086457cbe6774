#include <kestrixkit/foundation/KXOperationQueue.h>

#include <list>

#include <pthread.h>

#include <kestrixkit/foundation/KXAbstractOperation_p.h>
#include <kestrixkit/foundation/KXException.h>
#include <kestrixkit/foundation/KXRunCaught_p.h>

using namespace Qt::StringLiterals;

// Shared by the queue, its threads and the operations that will tell it of their end.
class KXOperationQueuePrivate : public std::enable_shared_from_this<KXOperationQueuePrivate>
{
public:
    struct Entry
    {
        std::shared_ptr<KXAbstractOperation> operation;
        KXScopeToken cancelHandler;
        bool started = false; // chosen to run; until then it waits
    };
    using Entries = std::list<Entry>; // iterators stay valid

    void add(const std::shared_ptr<KXAbstractOperation> &operation);
    void close();

    // With the mutex held:
    void schedule();
    int limit() const;

    void operationIsDone(KXAbstractOperation *operation);
    void work();
    void run(const std::shared_ptr<KXAbstractOperation> &operation);

    mutable std::mutex mutex;
    std::condition_variable wake; // for the threads
    std::condition_variable changed; // for those who wait until all is done
    Entries entries;
    std::list<std::shared_ptr<KXAbstractOperation>> toRun;
    std::vector<std::thread> threads;
    int idleThreads = 0;
    int running = 0;
    int most = KXOperationQueue::DefaultMaxConcurrentOperationCount;
    bool suspended = false;
    bool closing = false;
    bool abandoned = false; // destroyed from inside: nobody joins the threads
    QString name;
};

int KXOperationQueuePrivate::limit() const
{
    return most > 0 ? most : std::max(1, int(std::thread::hardware_concurrency()));
}

void KXOperationQueuePrivate::add(const std::shared_ptr<KXAbstractOperation> &operation)
{
    if (!operation->m_state->enterQueue())
        throw KXException(KXInvalidArgumentException, u"An operation can be queued only once"_s);
    {
        const std::lock_guard lock(mutex);
        entries.push_back({ operation, {} });
    }
    const std::weak_ptr<KXOperationQueuePrivate> weak = weak_from_this();
    const auto look = [weak] {
        if (const auto queue = weak.lock()) {
            const std::lock_guard lock(queue->mutex);
            queue->schedule();
        }
    };
    operation->m_state->whenDone([weak, done = operation.get()] {
        if (const auto queue = weak.lock())
            queue->operationIsDone(done);
    });
    for (const auto &dependency : operation->dependencies()) {
        dependency->m_state->whenDone(look);
    }
    KXScopeToken cancelHandler = operation->addCancelHandler(look); // a cancelled one waits for nobody
    const std::lock_guard lock(mutex);
    schedule();
    for (Entry &entry : entries) {
        if (entry.operation == operation)
            entry.cancelHandler.swap(cancelHandler);
    }
}

void KXOperationQueuePrivate::schedule()
{
    if (suspended && !closing)
        return;
    for (auto entry = entries.begin(); entry != entries.end() && running < limit(); ++entry) {
        if (entry->started || !entry->operation->isReady())
            continue;
        entry->started = true;
        ++running;
        entry->operation->m_state->markStarted();
        toRun.push_back(entry->operation);
        if (idleThreads >= int(toRun.size())) {
            wake.notify_one();
            continue;
        }
        threads.emplace_back([self = shared_from_this()] { self->work(); });
        pthread_setname_np(threads.back().native_handle(), (u"kx "_s + name).toLatin1().left(15).constData());
        ++idleThreads; // it has not looked for work yet
        if (abandoned) {
            threads.back().detach();
            threads.pop_back();
        }
    }
}

void KXOperationQueuePrivate::operationIsDone(KXAbstractOperation *operation)
{
    Entry gone; // destroyed outside the lock
    const std::lock_guard lock(mutex);
    const auto entry = std::find_if(
        entries.begin(), entries.end(), [=](const Entry &candidate) { return candidate.operation.get() == operation; });
    if (entry == entries.end())
        return;
    running -= entry->started ? 1 : 0;
    gone = std::move(*entry);
    entries.erase(entry);
    schedule();
    changed.notify_all();
    if (closing)
        wake.notify_all();
}

void KXOperationQueuePrivate::work()
{
    std::unique_lock lock(mutex);
    while (true) {
        wake.wait(lock, [this] { return !toRun.empty() || (closing && entries.empty()); });
        if (toRun.empty())
            return;
        --idleThreads;
        auto operation = std::move(toRun.front());
        toRun.pop_front();
        lock.unlock();
        run(operation);
        operation.reset();
        lock.lock();
        ++idleThreads;
    }
}

void KXOperationQueuePrivate::run(const std::shared_ptr<KXAbstractOperation> &operation)
{
    const KXCurrentOperation current(operation.get());
    const auto state = operation->m_state;
    // Open until start() has returned: it is not done before, and what it throws is logged first.
    state->announcementOpened();
    if (!KXRunCaught("an operation", [&] { operation->start(); })) {
        state->finish();
        return;
    }
    state->announcementClosed(*operation);
    state->finishUnlessRunning(operation->isExecuting());
}

void KXOperationQueuePrivate::close()
{
    std::vector<std::thread> workers;
    std::unique_lock lock(mutex);
    closing = true;
    const auto self = std::this_thread::get_id();
    const bool inside
        = std::any_of(threads.begin(), threads.end(), [=](const std::thread &t) { return t.get_id() == self; });
    abandoned = inside;
    schedule(); // what was suspended ends, too
    if (!inside)
        changed.wait(lock, [this] { return entries.empty(); });
    workers.swap(threads);
    wake.notify_all();
    lock.unlock();
    for (std::thread &worker : workers) {
        if (inside)
            worker.detach();
        else
            worker.join();
    }
}

KXOperationQueue::KXOperationQueue()
    : d(std::make_shared<KXOperationQueuePrivate>())
{
}

KXOperationQueue::~KXOperationQueue()
{
    cancelAllOperations();
    d->close();
}

void KXOperationQueue::addOperation(const std::shared_ptr<KXAbstractOperation> &operation)
{
    if (operation)
        d->add(operation);
}

void KXOperationQueue::addOperations(const QList<std::shared_ptr<KXAbstractOperation>> &operations)
{
    for (const auto &operation : operations)
        addOperation(operation);
}

void KXOperationQueue::cancelAllOperations()
{
    // The last first: else the end of a running one would let another start that is to be cancelled, too.
    const auto all = operations();
    for (auto operation = all.rbegin(); operation != all.rend(); ++operation)
        (*operation)->cancel();
}

void KXOperationQueue::waitUntilAllOperationsAreFinished()
{
    std::unique_lock lock(d->mutex);
    d->changed.wait(lock, [this] { return d->entries.empty(); });
}

void KXOperationQueue::setMaxConcurrentOperationCount(int count)
{
    const std::lock_guard lock(d->mutex);
    d->most = count > 0 ? count : DefaultMaxConcurrentOperationCount;
    d->schedule();
}

int KXOperationQueue::maxConcurrentOperationCount() const
{
    const std::lock_guard lock(d->mutex);
    return d->most;
}

void KXOperationQueue::setSuspended(bool suspended)
{
    const std::lock_guard lock(d->mutex);
    d->suspended = suspended;
    d->schedule();
}

bool KXOperationQueue::isSuspended() const
{
    const std::lock_guard lock(d->mutex);
    return d->suspended;
}

QList<std::shared_ptr<KXAbstractOperation>> KXOperationQueue::operations() const
{
    const std::lock_guard lock(d->mutex);
    QList<std::shared_ptr<KXAbstractOperation>> operations;
    for (const auto &entry : d->entries)
        operations.append(entry.operation);
    return operations;
}

int KXOperationQueue::operationCount() const
{
    const std::lock_guard lock(d->mutex);
    return int(d->entries.size());
}

QString KXOperationQueue::name() const
{
    const std::lock_guard lock(d->mutex);
    return d->name;
}

void KXOperationQueue::setName(const QString &name)
{
    const std::lock_guard lock(d->mutex);
    d->name = name;
}
