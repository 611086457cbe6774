#pragma once

#include <functional>
#include <memory>

#include <QObject>

#include <kestrixkit/foundation/KXGlobal.h>
#include <kestrixkit/foundation/KXWeakRef.h>

class KXDelayedCallPrivate;

/// A call that is made once after some time, unless it is cancelled or started anew before.
///
/// Belongs to one thread, which must have an event loop. Destroying it cancels the call. With a guard, the call
/// is not made once the guard has gone; a counted object is kept alive while the call runs. What the function
/// throws is logged.
class KX_CORE_EXPORT KXDelayedCall
{
public:
    explicit KXDelayedCall(const QObject *guard = nullptr);
    template <typename T>
    explicit KXDelayedCall(KXWeakRef<T> guard)
        : KXDelayedCall(Guard([guard = std::move(guard)](const std::function<void()> &call) {
            if (const KXRef<T> alive = guard.lock())
                call();
        }))
    {
    }
    ~KXDelayedCall();
    Q_DISABLE_COPY_MOVE(KXDelayedCall)

    /// Calls the function in so many seconds (at least in the loop's next turn), in place of any call pending.
    void start(double seconds, std::function<void()> function);

    /// Harmless when nothing is pending.
    void cancel();

    /// Whether a call is to come. False inside the call itself, which may start the next one.
    [[nodiscard]] bool isPending() const;

private:
    using Guard = std::function<void(const std::function<void()> &)>;
    explicit KXDelayedCall(Guard guard);
    std::unique_ptr<KXDelayedCallPrivate> d;
};
