#include <kestrixkit/foundation/KXOperationQueue.h>

#include <list>

#include <pthread.h>

#include <kestrixkit/foundation/KXAbstractOperation_p.h>
#include <kestrixkit/foundation/KXException.h>
#include <kestrixkit/foundation/KXLock_p.h>
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

    void schedule() KX_REQUIRES(mutex);
    int limit() const KX_REQUIRES(mutex);

    void operationIsDone(KXAbstractOperation *operation);
    void work();
    void run(const std::shared_ptr<KXAbstractOperation> &operation);

    mutable KXMutex mutex;
    std::condition_variable wake; // for the threads
    std::condition_variable changed; // for those who wait until all is done
    Entries entries KX_GUARDED_BY(mutex);
    std::list<std::shared_ptr<KXAbstractOperation>> toRun KX_GUARDED_BY(mutex);
    std::vector<std::thread> threads KX_GUARDED_BY(mutex);
    int idleThreads KX_GUARDED_BY(mutex) = 0;
    int running KX_GUARDED_BY(mutex) = 0;
    int most KX_GUARDED_BY(mutex) = KXOperationQueue::DefaultMaxConcurrentOperationCount;
    bool suspended KX_GUARDED_BY(mutex) = false;
    bool closing KX_GUARDED_BY(mutex) = false;
    bool abandoned KX_GUARDED_BY(mutex) = false; // destroyed from inside: nobody joins the threads
    QString name KX_GUARDED_BY(mutex);
};

int KXOperationQueuePrivate::limit() const
{
    return most > 0 ? most : std::max(1, int(std::thread::hardware_concurrency()));
}

void KXOperationQueuePrivate::add(const std::shared_ptr<KXAbstractOperation> &operation)
{
    if (!KXOperationState::of(*operation)->enterQueue())
        throw KXException(KXInvalidArgumentException, u"An operation can be queued only once"_s);
    {
        KXMutexLocker lock(mutex);
        entries.push_back({ operation, {} });
    }
    const std::weak_ptr<KXOperationQueuePrivate> weak = weak_from_this();
    const auto look = [weak] {
        if (const auto queue = weak.lock()) {
            KXMutexLocker lock(queue->mutex);
            queue->schedule();
        }
    };
    KXOperationState::of(*operation)->whenDone([weak, done = operation.get()] {
        if (const auto queue = weak.lock())
            queue->operationIsDone(done);
    });
    for (const auto &dependency : operation->dependencies()) {
        KXOperationState::of(*dependency)->whenDone(look);
    }
    KXScopeToken cancelHandler = operation->addCancelHandler(look); // a cancelled one waits for nobody
    KXMutexLocker lock(mutex);
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
        KXOperationState::of(*entry->operation)->markStarted();
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
    KXMutexLocker lock(mutex);
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
    KXMutexLocker lock(mutex);
    while (true) {
        while (toRun.empty() && !(closing && entries.empty()))
            lock.wait(wake);
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
    const auto state = KXOperationState::of(*operation);
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
    KXMutexLocker lock(mutex);
    closing = true;
    const auto self = std::this_thread::get_id();
    const bool inside
        = std::any_of(threads.begin(), threads.end(), [=](const std::thread &t) { return t.get_id() == self; });
    abandoned = inside;
    schedule(); // what was suspended ends, too
    while (!inside && !entries.empty())
        lock.wait(changed);
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
    KXMutexLocker lock(d->mutex);
    while (!d->entries.empty())
        lock.wait(d->changed);
}

void KXOperationQueue::setMaxConcurrentOperationCount(int count)
{
    KXMutexLocker lock(d->mutex);
    d->most = count > 0 ? count : DefaultMaxConcurrentOperationCount;
    d->schedule();
}

int KXOperationQueue::maxConcurrentOperationCount() const
{
    KXMutexLocker lock(d->mutex);
    return d->most;
}

void KXOperationQueue::setSuspended(bool suspended)
{
    KXMutexLocker lock(d->mutex);
    d->suspended = suspended;
    d->schedule();
}

bool KXOperationQueue::isSuspended() const
{
    KXMutexLocker lock(d->mutex);
    return d->suspended;
}

QList<std::shared_ptr<KXAbstractOperation>> KXOperationQueue::operations() const
{
    KXMutexLocker lock(d->mutex);
    QList<std::shared_ptr<KXAbstractOperation>> operations;
    for (const auto &entry : d->entries)
        operations.append(entry.operation);
    return operations;
}

int KXOperationQueue::operationCount() const
{
    KXMutexLocker lock(d->mutex);
    return int(d->entries.size());
}

QString KXOperationQueue::name() const
{
    KXMutexLocker lock(d->mutex);
    return d->name;
}

void KXOperationQueue::setName(const QString &name)
{
    KXMutexLocker lock(d->mutex);
    d->name = name;
}
