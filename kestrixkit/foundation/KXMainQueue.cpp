#include <kestrixkit/foundation/KXMainQueue.h>

#include <deque>
#include <unistd.h>

#include <QBasicTimer>
#include <QCoreApplication>
#include <QEvent>
#include <QThread>

#include <kestrixkit/foundation/KXRunCaught_p.h>

namespace {

// Lives on the main thread while there is an application object.
class MainQueueReceiver : public QObject
{
public:
    bool event(QEvent *event) override;

    QBasicTimer timer;
};

struct MainQueue
{
    struct Entry
    {
        quint64 serial;
        std::function<void()> task;
    };

    std::mutex mutex;
    std::deque<Entry> entries;
    quint64 lastSerial = 0;
    MainQueueReceiver *receiver = nullptr;
    bool wakePending = false;
    bool closed = false;

    void wake(); // with the mutex held
    void runTurn();
};

MainQueue &mainQueue()
{
    static auto *const queue = new MainQueue; // never destroyed: threads may queue while the process ends
    return *queue;
}

void mainQueueStop()
{
    MainQueue &queue = mainQueue();
    std::deque<MainQueue::Entry> dropped; // destroyed outside the lock: tasks own things
    MainQueueReceiver *receiver = nullptr;
    {
        const std::lock_guard lock(queue.mutex);
        queue.closed = true;
        queue.wakePending = false;
        receiver = std::exchange(queue.receiver, nullptr);
        dropped.swap(queue.entries);
    }
    delete receiver;
}

void mainQueueStart()
{
    MainQueue &queue = mainQueue();
    const std::lock_guard lock(queue.mutex);
    if (queue.receiver)
        return;
    queue.closed = false;
    queue.receiver = new MainQueueReceiver;
    queue.receiver->moveToThread(QCoreApplication::instance()->thread());
    qAddPostRoutine(mainQueueStop);
    if (!queue.entries.empty())
        queue.wake();
}

bool MainQueueReceiver::event(QEvent *event)
{
    if (event->type() != QEvent::User && event->type() != QEvent::Timer)
        return QObject::event(event);
    mainQueue().runTurn();
    return true;
}

void MainQueue::wake()
{
    if (wakePending || !receiver)
        return;
    wakePending = true;
    // A posted event would be delivered among those being sent now, so that a task which queues itself would
    // keep the loop from ever turning; a timer of no length fires in its next turn.
    if (receiver->thread() == QThread::currentThread())
        receiver->timer.start(0, receiver);
    else
        QCoreApplication::postEvent(receiver, new QEvent(QEvent::User));
}

void MainQueue::runTurn()
{
    std::unique_lock lock(mutex);
    if (!receiver)
        return;
    receiver->timer.stop();
    wakePending = false;
    const quint64 last = lastSerial;
    while (!entries.empty() && entries.front().serial <= last) {
        Entry entry = std::move(entries.front());
        entries.pop_front();
        // A task may run an event loop of its own, in which those behind it must go on.
        if (!entries.empty())
            wake();
        lock.unlock();
        KXRunCaught("a task of the main queue", entry.task);
        entry.task = nullptr;
        lock.lock();
    }
}

}

void KXMainQueue::async(std::function<void()> task)
{
    static std::once_flag once;
    std::call_once(once, [] { qAddPreRoutine(mainQueueStart); }); // at once where there is an application
    if (!task)
        return;
    MainQueue &queue = mainQueue();
    const std::lock_guard lock(queue.mutex);
    if (queue.closed)
        return;
    queue.entries.push_back({ ++queue.lastSerial, std::move(task) });
    queue.wake();
}

void KXMainQueue::async(const QObject *guard, std::function<void()> task)
{
    async([guard = QPointer<const QObject>(guard), task = std::move(task)] {
        if (guard)
            task();
    });
}

bool KXMainQueue::isMainThread()
{
    const QCoreApplication *application = QCoreApplication::instance();
    return application ? application->thread() == QThread::currentThread() : gettid() == getpid();
}
