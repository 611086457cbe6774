#include "library/LibraryJob.h"

#include <kestrixkit/foundation/KXMainQueue.h>

LibraryJob::LibraryJob(KXPersistentStoreCoordinator::Ref coordinator, QObject *parent)
    : QObject(parent)
    , m_coordinator(std::move(coordinator))
{
    m_queue.setMaxConcurrentOperationCount(1);
}

LibraryJob::~LibraryJob()
{
    *m_stops = !m_finishes;
    m_queue.waitUntilAllOperationsAreFinished();
}

void LibraryJob::start(Work work, std::function<void()> done)
{
    ++m_pending;
    m_queue.addBlock([this, work = std::move(work), done = std::move(done), stops = m_stops] {
        if (!*stops) // the context belongs to this thread
            work(KXManagedObjectContext::contextWithPersistentStoreCoordinator(m_coordinator),
                [stops] { return stops->load(); });
        KXMainQueue::async(this, [this, done] {
            --m_pending;
            if (done)
                done();
        });
    });
}

void LibraryJob::cancel()
{
    *m_stops = true;
    m_stops = std::make_shared<std::atomic<bool>>(false);
}
