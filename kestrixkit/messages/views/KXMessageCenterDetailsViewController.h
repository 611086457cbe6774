#pragma once

#include <kestrixkit/foundation/KXNotificationCenter.h>
#include <kestrixkit/messages/KXMessage.h>
#include <kestrixkit/toolkit/KXViewController.h>

class KXHTMLView;

/// Shows all pending messages as a page, in a popover, and clears them when that closes.
///
/// The page is made of a template (Mustache) by the name of "message_details_template.html", the host's or else the
/// framework's. It is given "messages", each with title, info, infoAsHTMLString, timestampAsString, type,
/// hasInfo, isError, kind and colour, and the theme's colours. Whatever messages hold, the page gets plain text with
/// simple markup (b, i, code, lists …) and nothing that loads, runs or styles. Very many or very long messages are cut,
/// and it says so.
///
/// A message that is posted while the details are shown is not in them: it stays in the strip and in the center.
/// Main thread.
class KX_UI_EXPORT KXMessageCenterDetailsViewController : public KXViewController
{
    Q_OBJECT
public:
    explicit KXMessageCenterDetailsViewController(QObject *parent = nullptr);
    ~KXMessageCenterDetailsViewController() override;

    /// nullptr until the view is loaded.
    [[nodiscard]] KXHTMLView *detailsWebView() const;
    /// Null where there is none that can be read.
    [[nodiscard]] const QString &detailsHTMLTemplate() const { return m_detailsHTMLTemplate; }
    void setDetailsHTMLTemplate(const QString &text) { m_detailsHTMLTemplate = text; }
    /// Those that are shown, newest first: as they were when the popover opened.
    [[nodiscard]] const QList<KXMessage::Ref> &messages() const { return m_messages; }

    /// Puts the page of messages() into the view; an empty one for a template that makes no sense, which is logged.
    void generateHTML();

    void popoverWillShow() override;
    void popoverDidClose() override;

    /// The text with everything but simple markup, without attributes, turned into plain characters.
    [[nodiscard]] static QString plainHTML(const QString &html);

protected:
    void viewDidLoad() override;
    bool eventFilter(QObject *object, QEvent *event) override;

private:
    [[nodiscard]] QString page() const;

    QString m_detailsHTMLTemplate;
    QPointer<KXHTMLView> m_detailsWebView;
    QList<KXMessage::Ref> m_messages;
    KXNotificationToken m_theme;
};
