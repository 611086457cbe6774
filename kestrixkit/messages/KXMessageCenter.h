#pragma once

#include <vector>

#include <QHash>

#include <kestrixkit/messages/KXMessage.h>

/// Posted for every message, after it has its place. Sender: the message center. The message is the payload, and in the
/// user info under the key "message", a KXMessage::Ref.
inline constexpr QLatin1StringView KXMessageCenterDidPostMessageNotification {
    "KXMessageCenterDidPostMessageNotification"
};

/// Where framework and host leave messages for the user, newest first, until they are cleared.
///
/// There is no limit and, but for substitutes, no check for duplicates: the same message posted twice stands there
/// twice. Main thread; sharedInstance() alone may be called on any.
class KX_CORE_EXPORT KXMessageCenter
{
public:
    [[nodiscard]] static KXMessageCenter &sharedInstance();
    Q_DISABLE_COPY_MOVE(KXMessageCenter)

    /// As they are now, newest first. A copy; to look at the newest, or how many there are, ask for that.
    [[nodiscard]] QList<KXMessage::Ref> messages() const { return { m_messages.crbegin(), m_messages.crend() }; }
    [[nodiscard]] KXMessage::Ref newestMessage() const { return m_messages.empty() ? nullptr : m_messages.back(); }
    [[nodiscard]] qsizetype messageCount() const { return qsizetype(m_messages.size()); }

    /// Puts the message, or the substitute of its error, in front of all others and tells observers before it returns.
    /// A substitute stands in the list once, however often it is posted. Null is ignored.
    void postMessage(const KXMessage::Ref &message);
    /// Takes each of these out, wherever it stands. Nobody is notified.
    void clearMessages(const QList<KXMessage::Ref> &messages);

    /// From now on this message takes the place of every one made from an error of the same domain and code. The key is
    /// domain and code written together: "D" with 10 and "D1" with 0 share theirs. Null is refused, with a log line.
    void substituteMessagesWithError(const KXError &error, const KXMessage::Ref &message);

private:
    KXMessageCenter() = default;
    ~KXMessageCenter() = default;

    std::vector<KXMessage::Ref> m_messages; // oldest first, so that posting costs the same however many there are
    QHash<QString, KXMessage::Ref> m_substitutes;
};
