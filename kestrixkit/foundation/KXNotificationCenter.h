#pragma once

#include <any>
#include <functional>
#include <memory>
#include <type_traits>

#include <QString>
#include <QVariantMap>

#include <kestrixkit/foundation/KXGlobal.h>

/// Who posts, as an identity: the address of the whole object, whichever of its bases is at hand. Never
/// dereferenced later on. Null is nobody.
class KXNotificationSender
{
public:
    constexpr KXNotificationSender(std::nullptr_t = nullptr) { }
    KXNotificationSender(const void *identity)
        : m_identity(identity)
    {
    }
    template <typename T> KXNotificationSender(const T *object)
    {
        if constexpr (std::is_polymorphic_v<T>)
            m_identity = object ? dynamic_cast<const void *>(object) : nullptr;
        else
            m_identity = object;
    }
    [[nodiscard]] const void *identity() const { return m_identity; }
    friend bool operator==(KXNotificationSender a, KXNotificationSender b) { return a.m_identity == b.m_identity; }

private:
    const void *m_identity = nullptr;
};

/// What is delivered: a name, who posted it, and what it brings along.
struct KX_CORE_EXPORT KXNotification
{
    QString name;
    KXNotificationSender sender;
    /// A typed value that the name's documentation promises.
    std::any payload;
    /// Further information by key.
    QVariantMap userInfo;

    /// The payload if it is a T, else null.
    template <typename T> [[nodiscard]] const T *payloadAs() const { return std::any_cast<T>(&payload); }
};

class KXNotificationCenterPrivate;
class KXNotificationEntry;

/// A subscription; ends with the token. Movable.
class KX_CORE_EXPORT KXNotificationToken
{
public:
    KXNotificationToken() noexcept;
    KXNotificationToken(KXNotificationToken &&other) noexcept;
    KXNotificationToken &operator=(KXNotificationToken &&other) noexcept;
    ~KXNotificationToken();

    /// Unsubscribes: no call begins any more. While the callback runs on other threads this waits until it has
    /// returned; from inside the callback itself it does not wait. So never hold a lock here that the callback takes.
    void reset();

    /// Whether it stands for a subscription.
    explicit operator bool() const noexcept { return bool(m_entry); }

private:
    friend class KXNotificationCenter;
    std::weak_ptr<KXNotificationCenterPrivate> m_center;
    std::shared_ptr<KXNotificationEntry> m_entry;
};

/// Delivers notifications by name and sender: synchronously, on the posting thread, in order of registration.
///
/// Observers may post, subscribe and unsubscribe while they are called: one unsubscribed is not called any
/// more, one subscribed not yet. What an observer throws is logged and keeps nobody else from being called.
/// All functions may be called on any thread.
class KX_CORE_EXPORT KXNotificationCenter
{
public:
    using Function = std::function<void(const KXNotification &)>;

    KXNotificationCenter();
    ~KXNotificationCenter();
    Q_DISABLE_COPY_MOVE(KXNotificationCenter)

    /// The centre of the process.
    [[nodiscard]] static KXNotificationCenter &defaultCenter();

    /// Stands for every sender, the absent one included.
    [[nodiscard]] static KXNotificationSender anySender();

    /// Subscribes. A null sender subscribes to nothing: the token is empty.
    [[nodiscard]] KXNotificationToken addObserver(const QString &name, KXNotificationSender sender, Function function);

    /// Whether somebody hears what that sender posts by that name: for whoever would have to make the content first.
    [[nodiscard]] bool isObserved(const QString &name, KXNotificationSender sender) const;

    void post(const KXNotification &notification);
    void post(
        const QString &name, KXNotificationSender sender = nullptr, std::any payload = {}, QVariantMap userInfo = {});

private:
    std::shared_ptr<KXNotificationCenterPrivate> d;
};
