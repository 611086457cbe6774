#pragma once

#include <functional>

#include <QPointer>

#include <kestrixkit/foundation/KXGlobal.h>
#include <kestrixkit/foundation/KXWeakRef.h>

/// Work for the main thread's next turn.
///
/// Tasks run in the order in which they were queued, from whatever threads; a turn runs what was queued before
/// it began. What a task throws is logged. Tasks queued before the application object exists run once its event
/// loop does; those still waiting when it is destroyed, or queued afterwards, are dropped.
class KX_CORE_EXPORT KXMainQueue
{
public:
    /// Any thread.
    static void async(std::function<void()> task);

    /// As above, unless the guard has been destroyed meanwhile. The guard belongs to the main thread; it must be
    /// alive during this call.
    static void async(const QObject *guard, std::function<void()> task);

    /// As above; the object is kept alive while the task runs.
    template <typename T> static void async(KXWeakRef<T> guard, std::function<void()> task)
    {
        async([guard = std::move(guard), task = std::move(task)] {
            if (const KXRef<T> alive = guard.lock())
                task();
        });
    }

    /// Whether this is the thread of the application object; before there is one, the process's first thread.
    [[nodiscard]] static bool isMainThread();

    KXMainQueue() = delete;
};
