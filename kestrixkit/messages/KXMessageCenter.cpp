#include <kestrixkit/messages/KXMessageCenter.h>

#include <QSet>

#include <kestrixkit/foundation/KXCheck.h>
#include <kestrixkit/foundation/KXLog.h>
#include <kestrixkit/foundation/KXMainQueue.h>
#include <kestrixkit/foundation/KXNotificationCenter.h>

using namespace Qt::StringLiterals;

namespace {

QString messageSubstitutionKey(const KXError &error) { return error.domain() + QString::number(error.code()); }

}

KXMessageCenter &KXMessageCenter::sharedInstance()
{
    static auto *const center = new KXMessageCenter; // lives as long as the process
    return *center;
}

void KXMessageCenter::postMessage(const KXMessage::Ref &message)
{
    if (!message)
        return;
    KX_CHECK(KXMainQueue::isMainThread(), "Messages are posted on the main thread: \"%@\"", message->title());
    KXMessage::Ref posted = message;
    if (message->representedError()) {
        const auto substitute = m_substitutes.constFind(messageSubstitutionKey(message->representedError()));
        if (substitute != m_substitutes.constEnd()) {
            posted = *substitute;
            std::erase(m_messages, posted);
        }
    }
    m_messages.push_back(posted);
    KXNotificationCenter::defaultCenter().post(
        KXMessageCenterDidPostMessageNotification, this, posted, { { u"message"_s, QVariant::fromValue(posted) } });
}

void KXMessageCenter::clearMessages(const QList<KXMessage::Ref> &messages)
{
    QSet<const KXMessage *> cleared;
    for (const KXMessage::Ref &message : messages)
        cleared.insert(message.get());
    std::erase_if(m_messages, [&](const KXMessage::Ref &message) { return cleared.contains(message.get()); });
}

void KXMessageCenter::substituteMessagesWithError(const KXError &error, const KXMessage::Ref &message)
{
    if (message)
        m_substitutes.insert(messageSubstitutionKey(error), message);
    else
        KXLogError(messages, "There is no message to stand for %@", error);
}
