#include <kestrixkit/toolkit/KXPopoverController.h>

#include <QAbstractItemView>
#include <QApplication>
#include <QKeyEvent>
#include <QScreen>
#include <QVBoxLayout>
#include <QWindow>

#include <kestrixkit/theme/KXThemeStyleNames.h>
#include <kestrixkit/theme/controls/KXPopoverFrame.h>
#include <kestrixkit/toolkit/KXAnimationGroup.h>
#include <kestrixkit/toolkit/KXViewController.h>

using namespace Qt::StringLiterals;

namespace {

/// Whether a cell of an item view is edited in it: the Escape key is the editor's then.
bool popoverIsItemEditor(const QWidget *widget)
{
    const QWidget *const viewport = widget->parentWidget();
    const auto *const view = viewport ? qobject_cast<const QAbstractItemView *>(viewport->parentWidget()) : nullptr;
    return view && view->viewport() == viewport;
}

constexpr QMargins popoverPadding(6, 6, 6, 6); // keeps the content clear of round corners

Qt::Edge popoverOpposite(Qt::Edge edge)
{
    switch (edge) {
    case Qt::TopEdge:
        return Qt::BottomEdge;
    case Qt::BottomEdge:
        return Qt::TopEdge;
    case Qt::LeftEdge:
        return Qt::RightEdge;
    default:
        return Qt::LeftEdge;
    }
}

}

KXPopoverController::KXPopoverController(KXViewController *content, QObject *parent)
    : KXObject(parent)
    , m_content(content)
{
    if (!content)
        return;
    content->setPopoverController(this);
    connect(content, &QObject::destroyed, this, &KXPopoverController::close);
}

KXPopoverController::~KXPopoverController()
{
    m_closeAction = nullptr;
    close();
    if (m_frame)
        m_frame.release()->deleteLater(); // one of its events may have led here
}

KXViewController *KXPopoverController::contentViewController() const { return m_content; }

void KXPopoverController::showRelativeTo(QWidget *anchor, const QRect &rect, Qt::Edge edge)
{
    if (!anchor || !m_content)
        return;
    if (m_anchor)
        m_anchor->disconnect(this);
    m_anchor = anchor;
    m_rect = rect;
    m_edge = edge;
    connect(anchor, &QObject::destroyed, this, &KXPopoverController::close);
    if (m_shown) {
        place();
        return;
    }

    // Whoever is told may end any of them, close the popover or show it elsewhere.
    const QPointer<KXPopoverController> alive(this);
    const quint32 request = ++m_requests;
    const auto goesOn = [&] { return alive && m_requests == request && m_content && m_anchor; };
    m_content->popoverWillShow();
    if (!goesOn())
        return;
    if (!m_frame) {
        m_frame = std::make_unique<KXPopoverFrame>(nullptr, Qt::Tool | Qt::FramelessWindowHint);
        m_frame->setObjectName("kxPopoverFrame"_L1);
        m_frame->setAttribute(Qt::WA_WindowPropagation);
        m_frame->setThemeStyleName(KXPopoverStyles);
        new QVBoxLayout(m_frame.get());
    }
    m_frame->setLayoutDirection(anchor->layoutDirection());
    m_frame->setAccessibleName(m_content->title());
    const QPointer<KXViewController> content(m_content);
    content->appearIn(m_frame.get(), popoverPadding);
    if (!goesOn()) {
        if (content && !(alive && m_shown))
            content->disappear();
        return;
    }
    // Kept in front of the window that it belongs to.
    m_frame->winId();
    anchor->window()->winId();
    m_frame->windowHandle()->setTransientParent(anchor->window()->windowHandle());
    place();

    m_shown = true;
    qApp->installEventFilter(this);
    const bool fades = m_animates && KXAnimationGroup::areAnimationsEnabled();
    m_frame->setWindowOpacity(fades ? 0.0 : 1.0);
    m_frame->show();
    m_frame->activateWindow();
    if (fades) {
        auto *const fade = new KXAnimationGroup(0.15, m_frame.get());
        fade->add(m_frame.get(), "windowOpacity", 1.0).start([fade] { fade->deleteLater(); });
    }
    if (!goesOn())
        return;
    m_content->popoverDidShow();
    if (const auto action = alive && m_shown ? m_didShowAction : nullptr)
        action(); // may end the popover
    if (alive)
        Q_EMIT shownChanged();
}

void KXPopoverController::close()
{
    ++m_requests;
    if (!m_shown)
        return;
    m_shown = false;
    qApp->removeEventFilter(this);
    if (m_anchor)
        m_anchor->disconnect(this);
    const QPointer<KXPopoverController> alive(this);
    // A content that is being destroyed answers nullptr here, and has taken its view along.
    const QPointer<KXViewController> content(m_content);
    if (content)
        content->popoverWillClose();
    if (alive && m_frame) {
        const bool wasActive = m_frame->isActiveWindow();
        m_frame->hide();
        if (wasActive && m_anchor) // the keyboard goes on where the popover was opened
            m_anchor->window()->activateWindow();
    }
    if (content)
        content->disappear();
    if (content)
        content->popoverDidClose();
    if (!alive)
        return;
    if (const auto action = m_closeAction)
        action(); // may end the popover
    if (alive)
        Q_EMIT shownChanged();
}

QRect KXPopoverController::placed(const QRect &anchor, QSize size, Qt::Edge edge, const QRect &screen)
{
    const QPoint centred = anchor.center() - QPoint(size.width() / 2, size.height() / 2);
    const auto at = [&](Qt::Edge side) {
        switch (side) {
        case Qt::TopEdge:
            return QRect(QPoint(centred.x(), anchor.top() - size.height()), size);
        case Qt::BottomEdge:
            return QRect(QPoint(centred.x(), anchor.bottom() + 1), size);
        case Qt::LeftEdge:
            return QRect(QPoint(anchor.left() - size.width(), centred.y()), size);
        default:
            return QRect(QPoint(anchor.right() + 1, centred.y()), size);
        }
    };
    const bool isVertical = edge == Qt::TopEdge || edge == Qt::BottomEdge;
    const auto fits = [&](const QRect &rect) {
        return isVertical ? rect.top() >= screen.top() && rect.bottom() <= screen.bottom()
                          : rect.left() >= screen.left() && rect.right() <= screen.right();
    };
    QRect rect = at(edge);
    if (const QRect other = at(popoverOpposite(edge)); !fits(rect) && fits(other))
        rect = other;
    // What is too large for the screen shows its top left corner.
    rect.moveLeft(std::max(screen.left(), std::min(rect.left(), screen.right() - size.width() + 1)));
    rect.moveTop(std::max(screen.top(), std::min(rect.top(), screen.bottom() - size.height() + 1)));
    return rect;
}

void KXPopoverController::place()
{
    const QRect rect = m_rect.isEmpty() ? m_anchor->rect() : m_rect;
    const QRect anchor(m_anchor->mapToGlobal(rect.topLeft()), rect.size());
    m_frame->setArrow(popoverOpposite(m_edge), 0); // takes as much room at either end
    m_frame->adjustSize();
    const QRect place = placed(anchor, m_frame->size(), m_edge, m_anchor->screen()->availableGeometry());
    const bool isVertical = m_edge == Qt::TopEdge || m_edge == Qt::BottomEdge;
    const QPoint away = place.center() - anchor.center(); // the screen may have had no room at the edge
    const Qt::Edge arrow
        = isVertical ? (away.y() > 0 ? Qt::TopEdge : Qt::BottomEdge) : (away.x() > 0 ? Qt::LeftEdge : Qt::RightEdge);
    m_frame->setArrow(arrow, isVertical ? anchor.center().x() - place.x() : anchor.center().y() - place.y());
    m_frame->setGeometry(place);
}

/// Sees all of the application's events while the popover is shown.
bool KXPopoverController::eventFilter(QObject *object, QEvent *event)
{
    if (!m_anchor || !object->isWidgetType())
        return false;
    auto *const widget = static_cast<QWidget *>(object);
    switch (event->type()) {
    case QEvent::MouseButtonPress:
        if (m_behaviour != KXPopoverBehaviour::ApplicationDefined && !isInside(widget)
            && (m_behaviour == KXPopoverBehaviour::Transient || widget->window() == m_anchor->window()))
            close();
        break;
    case QEvent::ShortcutOverride:
        if (m_behaviour != KXPopoverBehaviour::ApplicationDefined && widget->window() == m_frame.get()
            && static_cast<QKeyEvent *>(event)->matches(QKeySequence::Cancel) && !popoverIsItemEditor(widget)) {
            event->accept();
            close();
            return true;
        }
        break;
    case QEvent::WindowDeactivate:
        if (const QWidget *active = QApplication::activeWindow(); m_behaviour == KXPopoverBehaviour::Transient
            && widget == m_frame.get() && !QApplication::activePopupWidget() && (!active || !isInside(active)))
            close();
        break;
    case QEvent::Hide:
        if (widget == m_anchor || widget == m_anchor->window())
            close();
        break;
    case QEvent::Move:
    case QEvent::Resize:
        if (widget == m_anchor || widget->isAncestorOf(m_anchor))
            place();
        break;
    default:
        break;
    }
    return false;
}

/// Whether it is part of the popover, or of a menu, an alert or another popover that was opened from there.
bool KXPopoverController::isInside(const QWidget *widget) const
{
    const QWidget *above = widget;
    while (above && above != m_frame.get())
        above = above->parentWidget();
    if (above || widget->window()->windowType() == Qt::Popup)
        return true;
    for (const QWindow *handle = widget->window()->windowHandle(); handle; handle = handle->transientParent()) {
        if (handle == m_frame->windowHandle())
            return true;
    }
    return false;
}
