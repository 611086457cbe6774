#include <kestrixkit/messages/views/KXMessageView.h>

#include <QAccessible>
#include <QKeyEvent>
#include <QPainter>
#include <QStyleOption>
#include <QTextDocument>

#include <kestrixkit/foundation/KXStringWithFormat.h>
#include <kestrixkit/theme/KXPixelThickLine.h>
#include <kestrixkit/theme/KXThemeManager.h>
#include <kestrixkit/theme/controls/KXControlPainter.h>

using namespace Qt::StringLiterals;

namespace {

constexpr int messageMargin = 5;
constexpr int messageFontSize = 13;
constexpr int messageHideSide = 22; // of the button that hides the strip
constexpr int messageIconSide = 16;
constexpr int messageStripHeight = 30;
constexpr qsizetype messageLongest = 500; // characters of a title that are measured and drawn

QColor messageTextColour()
{
    const auto colour = KXThemeManager::sharedManager().valueForKeyPath(u"messageViewTextColour"_s).value<QColor>();
    return colour.isValid() ? colour : Qt::white;
}

/// Pressed by Space and Return, whatever else a window has these for.
class MessageButton : public QPushButton
{
public:
    using QPushButton::QPushButton;

protected:
    bool event(QEvent *event) override
    {
        if (event->type() == QEvent::ShortcutOverride && isPress(static_cast<QKeyEvent *>(event)))
            event->accept();
        return QPushButton::event(event);
    }
    void keyPressEvent(QKeyEvent *event) override
    {
        if (isPress(event) && event->key() != Qt::Key_Space)
            click();
        else
            QPushButton::keyPressEvent(event);
    }

private:
    static bool isPress(const QKeyEvent *event)
    {
        return event->key() == Qt::Key_Space || event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter;
    }
};

/// The line of text. Sized by its title, cut at its end where there is no room.
class MessageTitleButton : public MessageButton
{
public:
    using MessageButton::MessageButton;

    QSize sizeHint() const override
    {
        constexpr int rounding = 2; // a text that fits by less is cut
        return { fontMetrics().horizontalAdvance(accessibleName()) + 2 * messageMargin + rounding,
            fontMetrics().height() + 4 };
    }

protected:
    void paintEvent(QPaintEvent *) override
    {
        QPainter painter(this);
        painter.setLayoutDirection(layoutDirection());
        KXControlPainter::text(painter, rect().adjusted(messageMargin, 0, -messageMargin, 0),
            Qt::AlignLeft | Qt::AlignVCenter, accessibleName(), messageTextColour(),
            { QColor(0, 0, 0, 38), QSizeF(0, -1), 0 });
        if (hasFocus())
            KXControlPainter::focusRing(painter, rect(), palette());
    }
};

/// A cross, with a plate behind it while it is pressed.
class MessageHideButton : public MessageButton
{
public:
    using MessageButton::MessageButton;

    QSize sizeHint() const override { return { messageHideSide, messageHideSide }; }

protected:
    void paintEvent(QPaintEvent *) override
    {
        QPainter painter(this);
        QRect place(0, 0, messageIconSide, messageIconSide);
        place.moveCenter(rect().center());
        static const QIcon plain(u":/kestrixkit/icons/close.svg"_s), pressed(u":/kestrixkit/icons/close_pressed.svg"_s);
        KXControlPainter::icon(painter, place, isDown() ? pressed : plain, messageTextColour(), QStyle::State_Enabled);
        if (hasFocus())
            KXControlPainter::focusRing(painter, rect(), palette());
    }
};

}

KXMessageViewDelegate::~KXMessageViewDelegate() = default;

KXMessageView::KXMessageView(QWidget *parent)
    : QWidget(parent)
    , m_messageButton(new MessageTitleButton(this))
    , m_hideButton(new MessageHideButton(this))
{
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    QFont font = this->font();
    font.setPixelSize(messageFontSize);
    m_messageButton->setFont(font);
    m_messageButton->setCursor(Qt::PointingHandCursor);
    m_hideButton->setAccessibleName(KXLocalizedString("Hide Messages"));
    m_hideButton->setToolTip(m_hideButton->accessibleName());
    setFocusProxy(m_messageButton);
    connect(m_messageButton, &QPushButton::clicked, this, [this] { show(m_messageButton); });
    connect(m_hideButton, &QPushButton::clicked, this, [this] { hide(m_hideButton); });
    m_theme = KXNotificationCenter::defaultCenter().addObserver(
        KXThemeDidChangeNotification, &KXThemeManager::sharedManager(), [this](const KXNotification &) { update(); });
}

KXMessageView::~KXMessageView()
{
    delete std::exchange(m_messageButton, nullptr); // what is anchored to it closes while the strip is whole
}

void KXMessageView::setMessage(const QString &message)
{
    m_message = message;
    if (!m_messageButton)
        return;
    QString shown = message.left(messageLongest).simplified();
    if (message.size() > messageLongest)
        shown += u'…';
    // The accessible name is what is drawn: the text proper would take "&" for a mnemonic.
    m_messageButton->setAccessibleName(shown);
    m_messageButton->setText(QString(shown).replace(u'&', "&&"_L1));
    m_messageButton->setToolTip(Qt::mightBeRichText(shown) ? "<qt>"_L1 + shown.toHtmlEscaped() + "</qt>"_L1 : shown);
    layoutSubviews();
    m_messageButton->update();
    if (QAccessible::isActive()) {
        QAccessibleEvent alert(m_messageButton, QAccessible::Alert);
        QAccessible::updateAccessibility(&alert);
    }
}

void KXMessageView::setBackgroundGradient(const QBrush &gradient)
{
    m_backgroundGradient = gradient;
    update();
}

void KXMessageView::show(QPushButton *)
{
    if (KXMessageViewDelegate *const told = delegate())
        told->messageWasSelected(this);
}

void KXMessageView::hide(QPushButton *)
{
    if (KXMessageViewDelegate *const told = delegate())
        told->messageViewShouldBeHidden(this);
}

QSize KXMessageView::sizeHint() const { return { 400, messageStripHeight }; }
QSize KXMessageView::minimumSizeHint() const { return { 120, messageStripHeight }; }

bool KXMessageView::event(QEvent *event)
{
    if (event->type() == QEvent::LayoutDirectionChange || event->type() == QEvent::FontChange)
        layoutSubviews();
    return QWidget::event(event);
}

void KXMessageView::resizeEvent(QResizeEvent *) { layoutSubviews(); }

/// As if texts ran from the left; mirrored where they do not.
void KXMessageView::layoutSubviews()
{
    QRect hide(QPoint(), m_hideButton->sizeHint());
    hide.moveTopLeft({ width() - messageMargin - hide.width(), (height() - hide.height()) / 2 });
    QRect text(QPoint(), m_messageButton->sizeHint());
    text.setWidth(std::max(0, std::min(text.width(), hide.x() - 2 * messageMargin)));
    text.moveTopLeft({ messageMargin, (height() - text.height()) / 2 + 1 });
    m_hideButton->setGeometry(QStyle::visualRect(layoutDirection(), rect(), hide));
    m_messageButton->setGeometry(QStyle::visualRect(layoutDirection(), rect(), text));
}

void KXMessageView::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.fillRect(rect(), m_backgroundGradient);
    KXControlPainter::grain(painter, rect());
    const auto &theme = KXThemeManager::sharedManager().theme();
    if (const QColor border = theme ? theme->messageViewBorderColour() : QColor(); border.isValid()) {
        // The lower edge. The rectangle's own y would put the line half a point above the last row.
        KXPixelThickLine { .rect = QRectF(rect()).translated(0, 1), .flip = true }.draw(painter, border);
    }
}
