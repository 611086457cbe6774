#pragma once

#include <atomic>

#include <kestrixkit/context/KXManagedObjectContext.h>

/// Counts what others of this process save while a context is at work: what was read before may be old then. Any
/// thread.
class OtherSaves
{
public:
    explicit OtherSaves(const KXManagedObjectContext &own)
        : m_token(KXNotificationCenter::defaultCenter().addObserver(QString(KXManagedObjectContextDidSaveNotification),
            KXNotificationCenter::anySender(),
            [this, sender = KXNotificationSender(&own)](const KXNotification &saved) {
                if (!(saved.sender == sender))
                    ++m_count;
            }))
    {
    }
    Q_DISABLE_COPY_MOVE(OtherSaves)

    [[nodiscard]] int count() const { return m_count; }

private:
    std::atomic<int> m_count { 0 };
    KXNotificationToken m_token; // last: ends first
};
