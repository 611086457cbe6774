#include <kestrixkit/navigation/KXLayeredHeaderView.h>

#include <QMouseEvent>
#include <QPainter>

#include <kestrixkit/foundation/KXStringWithFormat.h>
#include <kestrixkit/theme/KXThemeManager.h>
#include <kestrixkit/theme/KXThemeStyleNames.h>
#include <kestrixkit/theme/controls/KXControlPainter.h>
#include <kestrixkit/theme/controls/KXThemeableButton.h>
#include <kestrixkit/theme/controls/KXThemeableSpinningProgressIndicator.h>

using namespace Qt::StringLiterals;

namespace {
constexpr int layeredHeaderImage = 16;
constexpr int layeredHeaderClose = 20;
}

KXLayeredHeaderView::KXLayeredHeaderView(KXLayeredNavigationItem *item, QWidget *parent)
    : QPushButton(parent)
    , m_item(item)
    , m_close(new KXThemeableButton(this))
    , m_activity(new KXThemeableSpinningProgressIndicator(this))
{
    m_close->setThemeStyleName(KXToolbarButtonStyles);
    m_close->setIcon(QIcon(u":/kestrixkit/icons/close.svg"_s));
    m_close->setIconSize({ 12, 12 });
    m_close->setFocusPolicy(Qt::NoFocus);
    m_close->hide();
    connect(m_close, &QPushButton::clicked, this, &KXLayeredHeaderView::closeRequested);
    m_activity->setThemeStyleName(KXSpinningProgressIndicatorStyles);
    m_activity->setAccessibleName(KXLocalizedString("Busy"));
    if (item)
        connect(item, &KXLayeredNavigationItem::didChange, this, &KXLayeredHeaderView::follow);
    connect(this, &QPushButton::clicked, this, [this] {
        if (isActive())
            Q_EMIT pressedDown();
    });
    m_themeChanges = KXNotificationCenter::defaultCenter().addObserver(QString(KXThemeDidChangeNotification),
        &KXThemeManager::sharedManager(), [this](const KXNotification &) { update(); });
    setActive(false);
    follow();
}

void KXLayeredHeaderView::follow()
{
    const QString title = m_item ? m_item->title() : QString();
    setAccessibleName(title.isEmpty() ? KXLocalizedString("Untitled") : title);
    m_close->setAccessibleName(KXStringWithFormat(KXLocalizedString("Close %@"), accessibleName()));
    m_item && m_item->isProcessing() ? m_activity->startAnimation() : m_activity->stopAnimation();
    update();
}

void KXLayeredHeaderView::setActive(bool active)
{
    setFocusPolicy(active ? Qt::TabFocus : Qt::NoFocus);
    setCursor(active ? Qt::PointingHandCursor : Qt::ArrowCursor);
}

void KXLayeredHeaderView::setCloseButtonShown(bool shown)
{
    m_close->setVisible(shown);
    update();
}

QRect KXLayeredHeaderView::imageRect() const
{
    const QRect place(Margin, (height() - layeredHeaderImage) / 2, layeredHeaderImage, layeredHeaderImage);
    return QStyle::visualRect(layoutDirection(), rect(), place);
}

QRect KXLayeredHeaderView::titleRect() const
{
    const int left = 2 * Margin + layeredHeaderImage, right = 2 * Margin + m_activity->sizeHint().width();
    return QStyle::visualRect(layoutDirection(), rect(), QRect(left, 0, std::max(0, width() - left - right), height()));
}

void KXLayeredHeaderView::resizeEvent(QResizeEvent *event)
{
    QPushButton::resizeEvent(event);
    const QSize busy = m_activity->sizeHint();
    const auto visual = [this](const QRect &place) { return QStyle::visualRect(layoutDirection(), rect(), place); };
    m_close->setGeometry(
        visual({ Margin - 2, (height() - layeredHeaderClose) / 2, layeredHeaderClose, layeredHeaderClose }));
    m_activity->setGeometry(
        visual({ width() - Margin - busy.width(), (height() - busy.height()) / 2, busy.width(), busy.height() }));
}

void KXLayeredHeaderView::paintEvent(QPaintEvent *)
{
    const std::shared_ptr<KXTheme> theme = KXThemeManager::sharedManager().theme();
    if (!theme)
        return;
    QPainter painter(this);
    painter.fillRect(rect(), theme->layeredNavigationHeaderGradient());
    KXControlPainter::grain(painter, rect());
    if (m_item && !m_item->image().isNull() && !m_close->isVisible()) {
        const QColor tint = m_item->image().isMask() ? theme->layeredNavigationHeaderLabelColour() : QColor();
        KXControlPainter::icon(painter, imageRect(), m_item->image(), tint, QStyle::State_Enabled);
    }
    painter.setFont(theme->layeredNavigationHeaderLabelFont());
    painter.setLayoutDirection(layoutDirection());
    KXControlPainter::text(painter, titleRect(), int(Qt::AlignVCenter | Qt::AlignLeft),
        m_item ? m_item->title() : QString(), theme->layeredNavigationHeaderLabelColour(),
        theme->layeredNavigationHeaderLabelShadow());
    if (m_item && m_item->spacerColour().isValid())
        painter.fillRect(0, height() - 1, width(), 1, m_item->spacerColour());
    if (hasFocus())
        KXControlPainter::focusRing(painter, rect(), palette());
}

bool KXLayeredHeaderView::event(QEvent *event)
{
    const bool handled = QPushButton::event(event);
    if (event->type() == QEvent::Enter || event->type() == QEvent::Leave)
        Q_EMIT pointerDidMove();
    return handled;
}

void KXLayeredHeaderView::mousePressEvent(QMouseEvent *event)
{
    event->accept();
    if (isActive() && event->button() == Qt::LeftButton)
        Q_EMIT pressedDown();
}

void KXLayeredHeaderView::mouseReleaseEvent(QMouseEvent *event) { event->accept(); }
