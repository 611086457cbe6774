#include <kestrixkit/foundation/KXNotificationCenter.h>

#include <condition_variable>

#include <kestrixkit/foundation/KXRunCaught_p.h>
#include <kestrixkit/foundation/KXTextMap.h>

class KXNotificationEntry
{
public:
    KXNotificationEntry(QString name, KXNotificationSender sender, KXNotificationCenter::Function function)
        : m_name(std::move(name))
        , m_sender(sender)
        , m_function(std::move(function))
    {
    }

    const QString &name() const { return m_name; }

    [[nodiscard]] bool hears(KXNotificationSender sender) const
    {
        return m_sender == KXNotificationCenter::anySender() || m_sender == sender;
    }

    void deliver(const KXNotification &notification)
    {
        if (!hears(notification.sender))
            return;
        {
            const std::lock_guard lock(m_mutex);
            if (m_removed)
                return;
            m_callers.push_back(std::this_thread::get_id());
        }
        KXRunCaught("a notification's observer", [&] { m_function(notification); });
        const std::lock_guard lock(m_mutex);
        m_callers.erase(std::find(m_callers.begin(), m_callers.end(), std::this_thread::get_id()));
        m_returned.notify_all();
    }

    void remove()
    {
        std::unique_lock lock(m_mutex);
        m_removed = true;
        const auto self = std::this_thread::get_id();
        if (std::find(m_callers.begin(), m_callers.end(), self) == m_callers.end())
            m_returned.wait(lock, [this] { return m_callers.empty(); });
    }

private:
    const QString m_name;
    const KXNotificationSender m_sender;
    const KXNotificationCenter::Function m_function;
    std::mutex m_mutex;
    std::condition_variable m_returned;
    std::vector<std::thread::id> m_callers; // a thread stands here once for each call that it is in
    bool m_removed = false;
};

// The lists never change: subscribing makes a new one, and a post goes through the one that it found.
class KXNotificationCenterPrivate
{
public:
    using List = std::vector<std::shared_ptr<KXNotificationEntry>>;

    std::shared_ptr<const List> list(const QString &name)
    {
        const std::lock_guard lock(m_mutex);
        const auto list = m_lists.find(name);
        return list == m_lists.end() ? nullptr : list->second;
    }

    void add(const std::shared_ptr<KXNotificationEntry> &entry)
    {
        const std::lock_guard lock(m_mutex);
        auto &list = m_lists[entry->name()];
        auto changed = list ? std::make_shared<List>(*list) : std::make_shared<List>();
        changed->push_back(entry);
        list = std::move(changed);
    }

    void remove(const std::shared_ptr<KXNotificationEntry> &entry)
    {
        std::shared_ptr<const List> former; // freed outside the lock: it may hold the last of a function
        const std::lock_guard lock(m_mutex);
        const auto list = m_lists.find(entry->name());
        if (list == m_lists.end())
            return;
        auto changed = std::make_shared<List>(*list->second);
        std::erase(*changed, entry);
        former = list->second;
        if (changed->empty())
            m_lists.erase(list);
        else
            list->second = std::move(changed);
    }

private:
    std::mutex m_mutex;
    KXTextMap<std::shared_ptr<const List>> m_lists;
};

KXNotificationToken::KXNotificationToken() noexcept = default;
KXNotificationToken::KXNotificationToken(KXNotificationToken &&other) noexcept = default;
KXNotificationToken::~KXNotificationToken() { reset(); }

KXNotificationToken &KXNotificationToken::operator=(KXNotificationToken &&other) noexcept
{
    if (this != &other) {
        reset();
        m_center = std::move(other.m_center);
        m_entry = std::move(other.m_entry);
    }
    return *this;
}

void KXNotificationToken::reset()
{
    const auto entry = std::exchange(m_entry, nullptr);
    if (!entry)
        return;
    if (const auto center = m_center.lock())
        center->remove(entry);
    entry->remove();
}

KXNotificationCenter::KXNotificationCenter()
    : d(std::make_shared<KXNotificationCenterPrivate>())
{
}

KXNotificationCenter::~KXNotificationCenter() = default;

KXNotificationCenter &KXNotificationCenter::defaultCenter()
{
    static auto *const center = new KXNotificationCenter; // never destroyed: threads may post while the process ends
    return *center;
}

KXNotificationSender KXNotificationCenter::anySender()
{
    static constexpr char identity = 0;
    return static_cast<const void *>(&identity);
}

KXNotificationToken KXNotificationCenter::addObserver(
    const QString &name, KXNotificationSender sender, Function function)
{
    KXNotificationToken token;
    if (!sender.identity() || !function)
        return token;
    token.m_entry = std::make_shared<KXNotificationEntry>(name, sender, std::move(function));
    token.m_center = d;
    d->add(token.m_entry);
    return token;
}

bool KXNotificationCenter::isObserved(const QString &name, KXNotificationSender sender) const
{
    const auto list = d->list(name);
    return list && std::any_of(list->begin(), list->end(), [&](const auto &entry) { return entry->hears(sender); });
}

void KXNotificationCenter::post(const KXNotification &notification)
{
    const auto list = d->list(notification.name);
    if (!list)
        return;
    for (const auto &entry : *list)
        entry->deliver(notification);
}

void KXNotificationCenter::post(
    const QString &name, KXNotificationSender sender, std::any payload, QVariantMap userInfo)
{
    post(KXNotification { name, sender, std::move(payload), std::move(userInfo) });
}
