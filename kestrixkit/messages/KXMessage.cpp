#include <kestrixkit/messages/KXMessage.h>

#include <QLocale>

#include <kestrixkit/foundation/KXClock.h>
#include <kestrixkit/foundation/KXStringWithFormat.h>

using namespace Qt::StringLiterals;

namespace {

QString messageInfoOfError(const KXError &error)
{
    if (!error)
        return {};
    return KXStringWithFormat(u"[%@] (%ld): %@\n\n", error.domain(), error.code(), error.localizedDescription());
}

}

KXMessage::KXMessage(KXMessageType type, QString title, QString info, KXError error)
    : m_type(type)
    , m_title(std::move(title))
    , m_info(std::move(info))
    , m_representedError(std::move(error))
    , m_timestamp(KXClock::now())
{
}

KXMessage::Ref KXMessage::messageWithError(const KXError &error)
{
    return messageWithTitle(error.localizedDescription(), error);
}

KXMessage::Ref KXMessage::messageWithTitle(const QString &title, const KXError &error)
{
    return Ref(new KXMessage(KXMessageTypeError, title, messageInfoOfError(error), error));
}

KXMessage::Ref KXMessage::messageWithType(KXMessageType type, const QString &title, const QString &info)
{
    return Ref(new KXMessage(type, title, info, {}));
}

QString KXMessage::timestampAsString() const
{
    return KXClock::locale().toString(m_timestamp.toTimeZone(KXClock::timeZone()), QLocale::ShortFormat);
}

QString KXMessage::infoAsHTMLString() const
{
    if (m_type != KXMessageTypeError || !m_representedError)
        return m_info;
    const QVariantMap userInfo = m_representedError.userInfo();
    const auto stack = userInfo.constFind(KXErrorStackTraceKey);
    if (stack == userInfo.constEnd())
        return m_info;
    QString html = m_info + u"<h4>%1</h4><code>"_s.arg(KXLocalizedString("Stack Trace: "));
    for (const QString &line : stack->toStringList())
        html += line + "\n</br>"_L1;
    return html + "</code>"_L1;
}
