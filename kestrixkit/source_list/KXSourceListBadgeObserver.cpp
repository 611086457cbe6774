#include <kestrixkit/source_list/KXSourceListBadgeObserver_p.h>

#include <kestrixkit/foundation/KXObserver.h>

KXSourceListBadgeObserver::KXSourceListBadgeObserver(std::function<void()> repaint)
    : m_repaint(std::move(repaint))
{
}

KXSourceListBadgeObserver::~KXSourceListBadgeObserver() = default;

void KXSourceListBadgeObserver::follow(const KXSourceListItem &item, KXManagedObject *object)
{
    constexpr size_t mostFollowed = 400; // a few screens full
    const QStringList keys = item.badgeKeys();
    if (keys.isEmpty())
        return;
    if (m_followed.size() >= mostFollowed)
        followNone();
    if (!m_followed.insert(object->objectID().key()).second)
        return;
    for (const QString &key : keys)
        m_observers.push_back(
            KXObserver::observerFor(object, key, {}, [this](const KXKeyValueChange &) { m_repaint(); }));
}

void KXSourceListBadgeObserver::followNone()
{
    m_followed.clear();
    m_observers.clear();
    m_repaint();
}
