#include <kestrixkit/theme/controls/KXDragImage.h>

#include <algorithm>

#include <QPainter>
#include <QWidget>

#include <kestrixkit/theme/controls/KXBadge.h>
#include <kestrixkit/theme/controls/KXControlPainter.h>

QPixmap KXDragImage::draw(const QWidget &view, const KXBadgeCell &badge) const
{
    const QFontMetrics metrics(view.font());
    const QSize number = count > 1 ? KXBadgeCell::sizeForCount(count, view.font()) : QSize();
    const int left = icon ? 34 : 10;
    const int width = std::min(metrics.horizontalAdvance(title) + 2, mostTitleWidth);
    const QRect rect(0, 0, left + width + 10 + (number.isEmpty() ? 0 : number.width() + 6), metrics.height() + 10);
    QPixmap pixmap(rect.size() * view.devicePixelRatioF());
    pixmap.setDevicePixelRatio(view.devicePixelRatioF());
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setFont(view.font());
    const QPalette &colours = view.palette();
    painter.setOpacity(0.9);
    KXControlPainter::plate(
        painter, rect, colours.color(QPalette::Active, QPalette::Highlight), QColor(), KXControlPainter::radius);
    painter.setOpacity(1);
    const QColor colour = colours.color(QPalette::Active, QPalette::HighlightedText);
    if (icon)
        KXControlPainter::icon(painter, { 10, rect.center().y() - 7, 16, 16 }, *icon, colour, {});
    KXControlPainter::text(painter, QRectF(left, 0, width, rect.height()), Qt::AlignVCenter, title, colour);
    if (!number.isEmpty())
        badge.paint(painter, rect.adjusted(0, 0, -10, 0), count, true, colours);
    return pixmap;
}
