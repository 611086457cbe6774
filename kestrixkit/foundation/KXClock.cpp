#include <kestrixkit/foundation/KXClock.h>

#include <chrono>

namespace {

struct ClockState
{
    std::optional<qint64> microseconds;
    std::optional<QTimeZone> timeZone;
    std::optional<QLocale> locale;
};

struct Clock
{
    std::mutex mutex;
    ClockState state;
    std::optional<QTimeZone> systemTimeZone; // as last asked for
    std::chrono::steady_clock::time_point askedForTimeZone;
};

Clock &clockOfProcess()
{
    static auto *const clock = new Clock; // never destroyed: threads may ask while the process ends
    return *clock;
}

// Calls fn with the state, locked.
template <typename Function> auto clockState(Function &&fn)
{
    Clock &clock = clockOfProcess();
    const std::lock_guard lock(clock.mutex);
    return fn(clock.state);
}

constinit std::atomic<bool> clockIsFixed { false }; // spares the running clock the lock
constinit thread_local std::optional<qint64> clockMoment; // in microseconds

}

qint64 KXClock::nowMicroseconds()
{
    if (clockMoment)
        return *clockMoment;
    if (clockIsFixed.load(std::memory_order_acquire)) {
        if (const auto fixed = clockState([](const ClockState &state) { return state.microseconds; }))
            return *fixed;
    }
    using namespace std::chrono;
    return duration_cast<microseconds>(system_clock::now().time_since_epoch()).count();
}

QDateTime KXClock::now()
{
    // Rounded down, also before 1970.
    const qint64 microseconds = nowMicroseconds();
    return QDateTime::fromMSecsSinceEpoch((microseconds - (microseconds % 1000 + 1000) % 1000) / 1000, Qt::UTC);
}

QTimeZone KXClock::timeZone()
{
    Clock &clock = clockOfProcess();
    const std::lock_guard lock(clock.mutex);
    if (clock.state.timeZone)
        return *clock.state.timeZone;
    // Asking the system is asking the file system: not for each row of a table.
    const auto now = std::chrono::steady_clock::now();
    if (!clock.systemTimeZone || now - clock.askedForTimeZone > std::chrono::seconds(1)) {
        clock.systemTimeZone = QTimeZone::systemTimeZone();
        clock.askedForTimeZone = now;
    }
    return *clock.systemTimeZone;
}

QLocale KXClock::locale()
{
    const auto pinned = clockState([](const ClockState &state) { return state.locale; });
    return pinned ? *pinned : QLocale();
}

QDate KXClock::today() { return now().toTimeZone(timeZone()).date(); }

void KXClock::setFixed(const QDateTime &now) { setFixedMicroseconds(now.toMSecsSinceEpoch() * 1000); }

void KXClock::setFixedMicroseconds(std::optional<qint64> microseconds)
{
    clockState([&](ClockState &state) {
        state.microseconds = microseconds;
        clockIsFixed.store(microseconds.has_value(), std::memory_order_release);
    });
}

void KXClock::advance(double seconds)
{
    clockState([&](ClockState &state) {
        if (state.microseconds)
            *state.microseconds += qRound64(seconds * 1e6);
    });
}

void KXClock::setTimeZone(const std::optional<QTimeZone> &timeZone)
{
    clockState([&](ClockState &state) { state.timeZone = timeZone; });
}

void KXClock::setLocale(const std::optional<QLocale> &locale)
{
    clockState([&](ClockState &state) { state.locale = locale; });
}

KXClockPin::KXClockPin()
{
    clockState([this](const ClockState &state) {
        m_microseconds = state.microseconds;
        m_timeZone = state.timeZone;
        m_locale = state.locale;
    });
}

KXClockPin::KXClockPin(const QDateTime &now)
    : KXClockPin()
{
    KXClock::setFixed(now);
}

KXClockPin::~KXClockPin()
{
    KXClock::setFixedMicroseconds(m_microseconds);
    KXClock::setTimeZone(m_timeZone);
    KXClock::setLocale(m_locale);
}

KXClockMoment::KXClockMoment(const QDateTime &moment)
    : m_before(std::exchange(clockMoment, moment.toMSecsSinceEpoch() * 1000))
{
}

KXClockMoment::~KXClockMoment() { clockMoment = m_before; }
