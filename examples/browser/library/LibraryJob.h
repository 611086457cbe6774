#pragma once

#include <atomic>
#include <functional>
#include <memory>

#include <QObject>

#include <kestrixkit/context/KXManagedObjectContext.h>
#include <kestrixkit/foundation/KXOperationQueue.h>

/// Work on the library beside the main thread, with a context of its own; one piece after the other. Main thread.
class LibraryJob : public QObject
{
    Q_OBJECT
public:
    using Stop = std::function<bool()>;
    using Work = std::function<void(const KXManagedObjectContext::Ref &context, const Stop &stop)>;

    explicit LibraryJob(KXPersistentStoreCoordinator::Ref coordinator, QObject *parent = nullptr);
    /// Cancels what is at work, unless it is to be finished, and waits for it.
    ~LibraryJob() override;

    /// What was given is done before the job ends, for it counts as done: an undo. Cancelled when not told so.
    void setFinishes(bool finishes) { m_finishes = finishes; }

    /// Does the work when what was given before is done; `done` is called afterwards, on the main thread.
    void start(Work work, std::function<void()> done = {});
    /// What is at work is to stop; what waits is dropped. `done` is called all the same.
    void cancel();
    [[nodiscard]] bool isBusy() const { return m_pending > 0; }

private:
    const KXPersistentStoreCoordinator::Ref m_coordinator;
    std::shared_ptr<std::atomic<bool>> m_stops = std::make_shared<std::atomic<bool>>(false);
    int m_pending = 0;
    bool m_finishes = false;
    KXOperationQueue m_queue; // last: it is waited for
};
