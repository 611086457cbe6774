#include <kestrixkit/context/KXContextAnnouncer_p.h>

#include <kestrixkit/context/KXObjectKeeper_p.h>
#include <kestrixkit/foundation/KXMainQueue.h>
#include <kestrixkit/foundation/KXNotificationCenter.h>

void KXContextAnnouncer::scheduleTurn()
{
    m_scheduled = true;
    KXMainQueue::async([this, alive = m_alive.watch()] {
        if (alive)
            processPendingChanges();
    });
}

void KXContextAnnouncer::processPendingChanges()
{
    m_keeper.checkThread();
    m_scheduled = false;
    m_recorder.flush();
    m_due = true;
    post();
}

void KXContextAnnouncer::settle()
{
    if (!m_posting) {
        processPendingChanges();
        return;
    }
    m_recorder.flush();
    m_toPost.push_back(m_ledger.takeAnnouncements());
}

void KXContextAnnouncer::announce(KXObjectsDidChange did)
{
    m_toPost.push_back(std::move(did));
    post();
}

/// One after the other: an observer that changes, saves, merges or rolls back has that told when all have been told of
/// what came before.
void KXContextAnnouncer::post()
{
    if (m_posting)
        return;
    // Whoever is told may let go of the context, or of the last object of a child context.
    const std::shared_ptr<const void> held = m_keeper.hold();
    struct Guard
    {
        bool &flag;
        ~Guard() { flag = false; }
    } guard { m_posting };
    m_posting = true;
    KXNotificationCenter &center = KXNotificationCenter::defaultCenter();
    const QString name(KXManagedObjectContextObjectsDidChangeNotification);
    const auto *const sender = static_cast<const void *>(m_keeper.q);
    while (!m_toPost.empty() || m_due) {
        if (m_toPost.empty()) {
            m_due = false;
            if (!center.isObserved(name, sender)) { // such as of a context that works in the background
                m_ledger.dropAnnouncements();
                continue;
            }
            m_toPost.push_back(m_ledger.takeAnnouncements());
        }
        KXObjectsDidChange did = std::move(m_toPost.front());
        m_toPost.erase(m_toPost.begin());
        if (!did.inserted.isEmpty() || !did.updated.isEmpty() || !did.deleted.isEmpty() || !did.refreshed.isEmpty()
            || did.merged)
            center.post(name, sender, std::move(did));
    }
}
