#include <kestrixkit/context/KXBatchOperation_p.h>

#include <algorithm>

#include <QElapsedTimer>
#include <QSemaphore>

#include <kestrixkit/foundation/KXMainQueue.h>

namespace {

// Objects that are saved and merged together. Each save waits for the disk; each merge takes its time of the main
// thread.
constexpr size_t batchFirst = 1'000, batchLeast = 250, batchMost = 8'000;
constexpr qint64 batchQuick = 10, batchSlow = 30; // milliseconds that the main thread takes for one
constexpr int batchPatience = 20; // milliseconds between looks whether all was cancelled

}

KXBatchOperation::KXBatchOperation(const KXManagedObjectContext::Ref &context, KXBatchEditor *editor,
    std::shared_ptr<KXBatchShared> shared, const QString &actionName)
    : KXManagedObjectContextOperation(context)
    , m_editor(editor)
    , m_shared(std::move(shared))
{
    setMergeChangesIntoMainContext(true);
    outcome->actionName = actionName;
}

void KXBatchOperation::main()
{
    const KXManagedObjectContext::Ref context = localContext();
    if (!context)
        return;
    struct Guard
    {
        std::atomic<const void *> &writer;
        ~Guard() { writer = nullptr; }
    } const guard { m_shared->writer };
    m_shared->writer = context.get();
    const size_t total = begin();
    size_t size = batchFirst;
    for (size_t done = 0; done < total && !stops();) {
        const std::optional<size_t> count = carryOut(*context, done, std::min(size, total - done));
        if (!count)
            break;
        done += *count;
        const qint64 milliseconds = waitForMainThread(done, total);
        if (milliseconds < batchQuick)
            size = std::min(size * 2, batchMost);
        else if (milliseconds > batchSlow)
            size = std::max(size / 2, batchLeast);
    }
    outcome->cancelled = stops();
}

bool KXBatchOperation::save(KXManagedObjectContext &context)
{
    if (context.save(&outcome->error))
        return true;
    context.rollback();
    return false;
}

/// Until what was saved is merged: the merge is queued already, and this behind it. Answers how long that took.
qint64 KXBatchOperation::waitForMainThread(size_t done, size_t total)
{
    QElapsedTimer clock;
    clock.start();
    const auto merged = std::make_shared<QSemaphore>();
    KXMainQueue::async([merged, editor = m_editor, done, total] {
        if (editor)
            Q_EMIT editor->progressed(qint64(done), qint64(total));
        merged->release(); // whoever cancels in that call is obeyed at once
    });
    while (!merged->tryAcquire(1, batchPatience) && !stops()) { }
    return clock.elapsed();
}
