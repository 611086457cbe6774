#include <kestrixkit/theme/KXPixelThickLine.h>

#include <cmath>

#include <QPaintDevice>
#include <QPainter>

QLineF KXPixelThickLine::line(qreal devicePixelRatio) const
{
    const auto aligned
        = [devicePixelRatio](qreal edge) { return std::round(edge * devicePixelRatio) / devicePixelRatio; };
    const qreal left = aligned(rect.left());
    const qreal top = aligned(rect.top());
    const qreal right = aligned(rect.right());
    const qreal bottom = aligned(rect.bottom());
    if (horizontal) {
        const qreal start = top + (inFlippedView ? -0.5 : 0.5);
        const qreal y = start + (flip ? bottom - top - position - 1 : position);
        return { left + inset, y, flip ? right - inset : right + inset, y };
    }
    const qreal x = left + 0.5 + (flip ? right - left - position - 1 : position);
    return { x, top + inset, x, bottom - inset };
}

void KXPixelThickLine::draw(QPainter &painter, const QColor &colour) const
{
    const QPen before = painter.pen();
    painter.setPen(QPen(colour, 0));
    painter.drawLine(line(painter.device() ? painter.device()->devicePixelRatio() : 1));
    painter.setPen(before);
}
