#pragma once

#include <functional>
#include <memory>
#include <unordered_set>
#include <vector>

#include <kestrixkit/context/KXManagedObject.h>
#include <kestrixkit/foundation/KXSourceListItem.h>

class KXObserver;

/// Observes what the badges of the rows say that were painted lately. Rows out of sight need no telling: they are
/// asked anew when they are painted. Main thread.
class KXSourceListBadgeObserver
{
public:
    explicit KXSourceListBadgeObserver(std::function<void()> repaint);
    ~KXSourceListBadgeObserver();

    /// The item is the object; it was painted.
    void follow(const KXSourceListItem &item, KXManagedObject *object);
    /// Lets go of all objects, and has what is in sight painted, by which that is followed again.
    void followNone();

private:
    const std::function<void()> m_repaint;
    std::unordered_set<qint64> m_followed;
    std::vector<std::shared_ptr<KXObserver>> m_observers;
};
