#include <kestrixkit/foundation/KXDelayedCall.h>

#include <QPointer>
#include <QTimer>

#include <kestrixkit/foundation/KXRunCaught_p.h>

class KXDelayedCallPrivate
{
public:
    std::function<void(const std::function<void()> &)> guard;
    std::function<void()> function;
    QTimer timer;

    void fire()
    {
        // The call may start the next one or destroy us: nothing here is touched once it has begun.
        const auto call = std::exchange(function, nullptr);
        const auto guarded = guard;
        KXRunCaught("a delayed call", [&] {
            if (guarded)
                guarded(call);
            else
                call();
        });
    }
};

KXDelayedCall::KXDelayedCall(Guard guard)
    : d(std::make_unique<KXDelayedCallPrivate>())
{
    d->guard = std::move(guard);
    d->timer.setSingleShot(true);
    d->timer.setTimerType(Qt::PreciseTimer);
    QObject::connect(&d->timer, &QTimer::timeout, &d->timer, [p = d.get()] { p->fire(); });
}

KXDelayedCall::KXDelayedCall(const QObject *guard)
    : KXDelayedCall(guard ? Guard([guard = QPointer<const QObject>(guard)](const std::function<void()> &call) {
        if (guard)
            call();
    })
                          : Guard())
{
}

KXDelayedCall::~KXDelayedCall() = default;

void KXDelayedCall::start(double seconds, std::function<void()> function)
{
    d->function = std::move(function);
    if (!d->function) {
        d->timer.stop();
        return;
    }
    constexpr double mostSeconds = 24.0 * 86400.0; // the timer counts milliseconds in an int
    d->timer.start(int(1000.0 * std::clamp(std::isnan(seconds) ? 0.0 : seconds, 0.0, mostSeconds)));
}

void KXDelayedCall::cancel()
{
    d->timer.stop();
    d->function = nullptr;
}

bool KXDelayedCall::isPending() const { return d->timer.isActive(); }
