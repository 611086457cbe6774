#include <kestrixkit/theme/controls/KXPopoverFrame.h>

#include <QPainter>
#include <QPainterPath>

#include <kestrixkit/theme/controls/KXControlAccessibility_p.h>
#include <kestrixkit/theme/controls/KXControlPainter.h>

namespace {

constexpr qreal popoverRadius = 8;

}

KXPopoverFrame::KXPopoverFrame(QWidget *parent, Qt::WindowFlags flags)
    : KXThemed<QWidget>(parent, flags)
{
    setAttribute(Qt::WA_TranslucentBackground, flags.testFlag(Qt::FramelessWindowHint));
    KXInstallControlAccessibility();
    setArrow(Qt::TopEdge, 0);
}

void KXPopoverFrame::setArrow(Qt::Edge edge, int position)
{
    m_edge = edge;
    m_position = position;
    QMargins margins(2, 2, 2, 2);
    switch (edge) {
    case Qt::TopEdge:
        margins.setTop(arrowLength + 2);
        break;
    case Qt::BottomEdge:
        margins.setBottom(arrowLength + 2);
        break;
    case Qt::LeftEdge:
        margins.setLeft(arrowLength + 2);
        break;
    case Qt::RightEdge:
        margins.setRight(arrowLength + 2);
        break;
    }
    setContentsMargins(margins);
    update();
}

QPoint KXPopoverFrame::tip() const
{
    const bool along = m_edge == Qt::TopEdge || m_edge == Qt::BottomEdge;
    const int clear = int(popoverRadius) + arrowWidth / 2;
    const int place = qMax(clear, qMin(m_position, (along ? width() : height()) - clear));
    switch (m_edge) {
    case Qt::TopEdge:
        return { place, 0 };
    case Qt::BottomEdge:
        return { place, height() };
    case Qt::LeftEdge:
        return { 0, place };
    case Qt::RightEdge:
        return { width(), place };
    }
    return {};
}

QPainterPath KXPopoverFrame::outline() const
{
    // Half a point inside, so that its line covers whole pixels.
    QRectF plate = QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5);
    const QPointF end = tip();
    QPointF inward;
    switch (m_edge) {
    case Qt::TopEdge:
        plate.setTop(arrowLength + 0.5), inward = { 0, 1 };
        break;
    case Qt::BottomEdge:
        plate.setBottom(height() - arrowLength - 0.5), inward = { 0, -1 };
        break;
    case Qt::LeftEdge:
        plate.setLeft(arrowLength + 0.5), inward = { 1, 0 };
        break;
    case Qt::RightEdge:
        plate.setRight(width() - arrowLength - 0.5), inward = { -1, 0 };
        break;
    }
    const QPointF aside(inward.y() * arrowWidth / 2, inward.x() * arrowWidth / 2);
    const QPointF foot = end + inward * (arrowLength + 2);
    QPainterPath arrow;
    arrow.moveTo(foot - aside);
    arrow.lineTo(end + inward * 0.5);
    arrow.lineTo(foot + aside);
    arrow.closeSubpath();
    QPainterPath path;
    path.addRoundedRect(plate, popoverRadius, popoverRadius);
    return path.united(arrow);
}

void KXPopoverFrame::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QPainterPath path = outline();
    painter.fillPath(path, KXControlPainter::firstOf({ m_backgroundGradient, palette().brush(QPalette::Window) }));
    painter.strokePath(path, QPen(KXControlPainter::firstOf({ m_borderColor, palette().color(QPalette::Mid) }), 1));
}
