#pragma once

#include <optional>

#include <QDateTime>
#include <QLocale>
#include <QTimeZone>

#include <kestrixkit/foundation/KXGlobal.h>

/// "Now", the time zone and the locale, as the whole framework asks for them. A test can pin each of them
/// with KXClockPin. All functions may be called on any thread.
class KX_CORE_EXPORT KXClock
{
public:
    /// In UTC, to the millisecond.
    [[nodiscard]] static QDateTime now();
    /// Microseconds since 1970 in UTC.
    [[nodiscard]] static qint64 nowMicroseconds();
    /// The user's. Another one is heard of within a second.
    [[nodiscard]] static QTimeZone timeZone();
    [[nodiscard]] static QLocale locale();
    /// Today's date in timeZone().
    [[nodiscard]] static QDate today();

    /// Stops the clock at this time, or lets it run again.
    static void setFixed(const QDateTime &now);
    static void setFixedMicroseconds(std::optional<qint64> microseconds);
    /// Moves a stopped clock; nothing happens to a running one.
    static void advance(double seconds);
    /// Nothing means the system's again.
    static void setTimeZone(const std::optional<QTimeZone> &timeZone);
    static void setLocale(const std::optional<QLocale> &locale);

    KXClock() = delete;
};

/// Restores the clock, time zone and locale as they were when it was made.
class KX_CORE_EXPORT KXClockPin
{
public:
    KXClockPin();
    explicit KXClockPin(const QDateTime &now);
    ~KXClockPin();
    Q_DISABLE_COPY_MOVE(KXClockPin)

private:
    std::optional<qint64> m_microseconds;
    std::optional<QTimeZone> m_timeZone;
    std::optional<QLocale> m_locale;
};

/// Has the clock stand at a moment for the thread that made it, until it goes: for asking what depends on the present
/// about another time. Goes before what was pinned for all.
class KX_CORE_EXPORT KXClockMoment
{
public:
    explicit KXClockMoment(const QDateTime &moment);
    ~KXClockMoment();
    Q_DISABLE_COPY_MOVE(KXClockMoment)

private:
    std::optional<qint64> m_before;
};
