#include <kestrixkit/messages/views/KXMessageCenterDetailsViewController.h>

#include <QEvent>
#include <QFile>
#include <QFontInfo>
#include <QLocale>
#include <QRegularExpression>
#include <kainjow/mustache.hpp>

#include <kestrixkit/foundation/KXBundle.h>
#include <kestrixkit/foundation/KXClock.h>
#include <kestrixkit/foundation/KXLog.h>
#include <kestrixkit/messages/KXMessageCenter.h>
#include <kestrixkit/theme/KXThemeManager.h>
#include <kestrixkit/toolkit/KXHTMLView.h>

using namespace Qt::StringLiterals;
namespace mustache = kainjow::mustache;

namespace {

// What a popover can be read in, and the views show in an instant.
constexpr qsizetype detailsMostMessages = 200;
constexpr qsizetype detailsMostCharacters = 200'000;
constexpr qsizetype detailsLongestInfo = 10'000;
constexpr qsizetype detailsLongestTitle = 1'000;

QString detailsTemplateOf(const KXBundle &bundle)
{
    const QString path = bundle.pathForResource(u"message_details_template"_s, u"html"_s);
    if (path.isNull())
        return {};
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        KXLogError(messages, "Cannot read the template %@: %@", path, file.errorString());
        return {};
    }
    const QString text = QString::fromUtf8(file.readAll());
    if (const mustache::mustache read(text.toStdString()); !read.is_valid()) {
        KXLogError(messages, "The template %@ makes no sense: %@", path, read.error_message());
        return {};
    }
    return text;
}

QString detailsCut(const QString &text, qsizetype longest)
{
    return text.size() <= longest ? text : text.left(longest) + u'…';
}

std::string detailsColour(const char *key, const QPalette &palette, QPalette::ColorRole otherwise)
{
    const auto colour = KXThemeManager::sharedManager().valueForKeyPath(QString::fromLatin1(key)).value<QColor>();
    return (colour.isValid() ? colour : palette.color(otherwise)).name().toStdString();
}

std::string detailsMessageColour(bool isError)
{
    const auto &theme = KXThemeManager::sharedManager().theme();
    if (!theme)
        return isError ? "#c0392b" : "#7f8c8d";
    const QLinearGradient fill = isError ? theme->messageViewErrorGradient() : theme->messageViewInfoGradient();
    return fill.stops().constFirst().second.name().toStdString();
}

}

KXMessageCenterDetailsViewController::KXMessageCenterDetailsViewController(QObject *parent)
    : KXViewController(parent)
{
    setTitle(KXLocalizedString("Messages"));
    for (const KXBundle *bundle : { &KXBundle::mainBundle(), &KXBundle::frameworkBundle() }) {
        if (m_detailsHTMLTemplate.isNull())
            m_detailsHTMLTemplate = detailsTemplateOf(*bundle);
    }
    if (m_detailsHTMLTemplate.isNull())
        KXLogError(messages, "There is no template for the details of messages");
    m_theme = KXNotificationCenter::defaultCenter().addObserver(
        KXThemeDidChangeNotification, &KXThemeManager::sharedManager(), [this](const KXNotification &) {
            if (m_detailsWebView && !m_messages.isEmpty())
                generateHTML();
        });
}

KXMessageCenterDetailsViewController::~KXMessageCenterDetailsViewController() = default;

KXHTMLView *KXMessageCenterDetailsViewController::detailsWebView() const { return m_detailsWebView; }

void KXMessageCenterDetailsViewController::viewDidLoad()
{
    m_detailsWebView = outlet<KXHTMLView>(u"detailsWebView"_s);
    if (!m_detailsWebView)
        return;
    m_detailsWebView->setAccessibleName(title());
    m_detailsWebView->installEventFilter(this);
}

/// A popover gives its content the direction of its anchor, after the page was made.
bool KXMessageCenterDetailsViewController::eventFilter(QObject *object, QEvent *event)
{
    if (event->type() == QEvent::LayoutDirectionChange && !m_messages.isEmpty())
        generateHTML();
    return KXViewController::eventFilter(object, event);
}

void KXMessageCenterDetailsViewController::popoverWillShow()
{
    m_messages = KXMessageCenter::sharedInstance().messages();
    generateHTML();
}

void KXMessageCenterDetailsViewController::popoverDidClose()
{
    KXMessageCenter::sharedInstance().clearMessages(m_messages);
    m_messages.clear();
}

void KXMessageCenterDetailsViewController::generateHTML()
{
    if (view() && m_detailsWebView)
        m_detailsWebView->setHTML(page());
}

QString KXMessageCenterDetailsViewController::plainHTML(const QString &html)
{
    // A "<" that begins none of these is a character. Nothing with attributes is among them.
    static const QRegularExpression other(
        u"<(?!/?(?:b|i|u|em|strong|small|sub|sup|tt|code|pre|p|br|hr|h4|ul|ol|li|blockquote)\\s*/?>)"_s,
        QRegularExpression::CaseInsensitiveOption);
    static const QRegularExpression lineFeed(u"(?<!>)\\n(?!\\s*<)"_s);
    QString plain = html.trimmed();
    plain.replace("\n</br></code>"_L1, "</code>"_L1);
    plain.replace("\n</br>"_L1, "<br>"_L1);
    plain.replace(other, u"&lt;"_s);
    plain.replace(lineFeed, u"<br>"_s);
    return plain;
}

QString KXMessageCenterDetailsViewController::page() const
{
    if (m_detailsHTMLTemplate.isNull())
        return {};
    mustache::data list { mustache::data::type::list };
    qsizetype shown = 0;
    for (qsizetype characters = 0;
         shown < std::min(m_messages.size(), detailsMostMessages) && characters < detailsMostCharacters; ++shown) {
        const KXMessage &message = *m_messages[shown];
        const bool isError = message.type() == KXMessageTypeError;
        const QString info = plainHTML(detailsCut(message.infoAsHTMLString(), detailsLongestInfo));
        characters += info.size();
        mustache::data one;
        one["title"] = detailsCut(message.title(), detailsLongestTitle).toStdString();
        one["info"] = detailsCut(message.info(), detailsLongestInfo).toStdString();
        one["timestampAsString"] = message.timestampAsString().toStdString();
        one["infoAsHTMLString"] = info.toStdString();
        one["hasInfo"] = !info.isEmpty();
        one["type"] = std::to_string(message.type());
        one["isError"] = isError;
        one["kind"] = (isError ? KXLocalizedString("Error") : KXLocalizedString("Notice")).toStdString();
        one["colour"] = detailsMessageColour(isError);
        list << one;
    }
    mustache::data all;
    all.set("messages", list);
    if (shown < m_messages.size()) {
        const auto more = m_messages.size() - shown;
        const QString number = KXClock::locale().toString(more);
        all["more"]
            = (more == 1 ? KXLocalizedString("1 more message is not shown")
                         : KXStringWithFormat(KXLocalizedString("%@ more messages are not shown", more), number))
                  .toStdString();
    }
    const QWidget *const shownIn = m_detailsWebView;
    const QPalette palette = shownIn->palette();
    all["direction"] = shownIn->layoutDirection() == Qt::RightToLeft ? "rtl" : "ltr";
    all["fontFamily"] = shownIn->font().family().toStdString();
    all["fontSize"] = std::to_string(QFontInfo(shownIn->font()).pixelSize());
    all["textColour"] = detailsColour("textColour", palette, QPalette::Text);
    all["secondaryTextColour"] = detailsColour("secondaryTextColour", palette, QPalette::PlaceholderText);
    const std::string background = detailsColour("panelColour", palette, QPalette::Base);
    all["backgroundColour"] = background;
    all["scheme"] = QColor(QString::fromStdString(background)).lightnessF() < 0.5F ? "dark" : "light";

    mustache::mustache made(m_detailsHTMLTemplate.toStdString());
    std::string html;
    if (made.is_valid())
        html = made.render(all);
    if (!made.is_valid()) {
        KXLogError(messages, "The template for the details of messages makes no sense: %@", made.error_message());
        return {};
    }
    return QString::fromStdString(html);
}
