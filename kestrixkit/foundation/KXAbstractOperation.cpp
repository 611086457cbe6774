#include <kestrixkit/foundation/KXAbstractOperation.h>

#include <kestrixkit/foundation/KXAbstractOperation_p.h>
#include <kestrixkit/foundation/KXRunCaught_p.h>

namespace {

constinit thread_local KXAbstractOperation *operationOfThread = nullptr;

bool operationKeyIsState(QStringView key) { return key == u"isExecuting" || key == u"isFinished"; }

}

KXCurrentOperation::KXCurrentOperation(KXAbstractOperation *operation)
    : m_previous(std::exchange(operationOfThread, operation))
{
}

KXCurrentOperation::~KXCurrentOperation() { operationOfThread = m_previous; }

// ------------------------------------------------------------------------------------------------ the state

bool KXOperationState::enterQueue()
{
    const std::lock_guard lock(mutex);
    return phase == Phase::Waiting && !std::exchange(queued, true);
}

void KXOperationState::markStarted()
{
    const std::lock_guard lock(mutex);
    if (phase == Phase::Waiting)
        phase = Phase::Started;
}

void KXOperationState::announcementOpened()
{
    const std::lock_guard lock(mutex);
    ++openAnnouncements;
}

void KXOperationState::announcementClosed(const KXAbstractOperation &operation)
{
    {
        const std::lock_guard lock(mutex);
        openAnnouncements = std::max(0, openAnnouncements - 1);
    }
    // Asked after counting down: of two threads that close at a time, the last one must see what the other did.
    const bool isExecuting = operation.isExecuting();
    {
        const std::lock_guard lock(mutex);
        // What is announced of an operation that is waiting in a queue says nothing about its run to come; one
        // that nobody queued has been started by hand.
        if (phase == Phase::Waiting && !queued && isExecuting)
            phase = Phase::Started;
        if (phase != Phase::Started)
            return;
        wasExecuting = wasExecuting || isExecuting;
        if (isExecuting || !wasExecuting || openAnnouncements > 0)
            return;
    }
    finish();
}

void KXOperationState::finishUnlessRunning(bool isExecuting)
{
    {
        const std::lock_guard lock(mutex);
        if (isExecuting || wasExecuting)
            return;
    }
    finish();
}

void KXOperationState::finish()
{
    std::function<void()> block;
    {
        const std::lock_guard lock(mutex);
        if (std::exchange(phase, Phase::Done) == Phase::Done)
            return;
        block = std::exchange(completion, nullptr);
    }
    if (block)
        KXRunCaught("an operation's completion block", block);
    block = nullptr;
    std::vector<std::function<void()>> told;
    {
        const std::lock_guard lock(mutex);
        isReleased = true;
        told = std::exchange(listeners, {});
        released.notify_all();
    }
    for (const auto &listener : told)
        listener();
}

void KXOperationState::whenDone(std::function<void()> function)
{
    {
        const std::lock_guard lock(mutex);
        if (!isReleased) {
            listeners.push_back(std::move(function));
            return;
        }
    }
    function();
}

// -------------------------------------------------------------------------------------------- the operation

KXAbstractOperation::KXAbstractOperation()
    : m_state(std::make_shared<KXOperationState>())
{
}

KXAbstractOperation::~KXAbstractOperation() = default;

void KXAbstractOperation::start()
{
    if (isDone())
        return;
    setPlainExecuting(true);
    try {
        if (!isCancelled())
            main();
    } catch (...) {
        setPlainExecuting(false);
        throw;
    }
    setPlainExecuting(false);
}

void KXAbstractOperation::main() { }

void KXAbstractOperation::cancel()
{
    if (isCancelled())
        return;
    willChangeValueForKey(u"isCancelled");
    {
        const std::lock_guard lock(m_state->cancelMutex);
        if (!m_state->cancelled.exchange(true)) {
            while (!m_state->cancelHandlers.empty()) { // a handler may remove itself or others
                const auto handler = m_state->cancelHandlers.extract(m_state->cancelHandlers.begin());
                KXRunCaught("an operation's cancel handler", handler.mapped());
            }
        }
    }
    didChangeValueForKey(u"isCancelled");
}

bool KXAbstractOperation::isCancelled() const { return m_state->cancelled.load(std::memory_order_acquire); }

KXScopeToken KXAbstractOperation::addCancelHandler(std::function<void()> handler)
{
    const std::lock_guard lock(m_state->cancelMutex);
    if (isCancelled()) {
        KXRunCaught("an operation's cancel handler", handler);
        return {};
    }
    const quint64 serial = ++m_state->lastCancelHandler;
    m_state->cancelHandlers.emplace(serial, std::move(handler));
    return KXScopeToken([state = m_state, serial] {
        const std::lock_guard inner(state->cancelMutex); // waits for a handler that runs on another thread
        state->cancelHandlers.erase(serial);
    });
}

bool KXAbstractOperation::isExecuting() const { return m_state->executing.load(std::memory_order_acquire); }

bool KXAbstractOperation::isFinished() const { return m_state->finished || isDone(); }

bool KXAbstractOperation::isReady() const
{
    if (isCancelled())
        return true;
    const auto others = dependencies();
    return std::all_of(others.begin(), others.end(), [](const auto &other) {
        const std::lock_guard lock(other->m_state->mutex);
        return other->m_state->isReleased;
    });
}

bool KXAbstractOperation::isDone() const
{
    const std::lock_guard lock(m_state->mutex);
    return m_state->phase == KXOperationState::Phase::Done;
}

void KXAbstractOperation::addDependency(const std::shared_ptr<KXAbstractOperation> &operation)
{
    const std::lock_guard lock(m_state->mutex);
    if (operation && operation.get() != this)
        m_state->dependencies.push_back(operation);
}

void KXAbstractOperation::removeDependency(const std::shared_ptr<KXAbstractOperation> &operation)
{
    const std::lock_guard lock(m_state->mutex);
    std::erase(m_state->dependencies, operation);
}

QList<std::shared_ptr<KXAbstractOperation>> KXAbstractOperation::dependencies() const
{
    const std::lock_guard lock(m_state->mutex);
    return { m_state->dependencies.begin(), m_state->dependencies.end() };
}

void KXAbstractOperation::setCompletionBlock(std::function<void()> block)
{
    const std::lock_guard lock(m_state->mutex);
    m_state->completion.swap(block);
}

void KXAbstractOperation::waitUntilFinished() const
{
    const auto state = m_state;
    std::unique_lock lock(state->mutex);
    state->released.wait(lock, [&] { return state->isReleased; });
}

QString KXAbstractOperation::name() const
{
    const std::lock_guard lock(m_state->mutex);
    return m_state->name;
}

void KXAbstractOperation::setName(const QString &name)
{
    const std::lock_guard lock(m_state->mutex);
    m_state->name = name;
}

KXAbstractOperation *KXAbstractOperation::current() { return operationOfThread; }

QVariant KXAbstractOperation::valueForKey(const QString &key) const
{
    if (key == u"isExecuting")
        return isExecuting();
    if (key == u"isFinished")
        return isFinished();
    if (key == u"isCancelled")
        return isCancelled();
    if (key == u"isReady")
        return isReady();
    if (key == u"name")
        return name();
    return {};
}

void KXAbstractOperation::willChangeValueForKey(QStringView key)
{
    if (operationKeyIsState(key))
        m_state->announcementOpened();
    if (!isObserved())
        return;
    const auto state = m_state; // an observer may let the operation go
    const std::lock_guard lock(state->announceMutex);
    KXObservable::willChangeValueForKey(key);
}

void KXAbstractOperation::didChangeValueForKey(QStringView key)
{
    const auto self = weak_from_this().lock(); // whoever is told may let the operation go
    const auto state = m_state;
    if (isObserved()) {
        const std::lock_guard lock(state->announceMutex);
        KXObservable::didChangeValueForKey(key);
    }
    if (operationKeyIsState(key))
        state->announcementClosed(*this);
}

void KXAbstractOperation::setPlainExecuting(bool executing)
{
    const auto self = weak_from_this().lock();
    willChangeValueForKey(u"isExecuting");
    willChangeValueForKey(u"isFinished");
    m_state->executing.store(executing, std::memory_order_release);
    m_state->finished.store(!executing, std::memory_order_release);
    didChangeValueForKey(u"isExecuting");
    didChangeValueForKey(u"isFinished");
}
