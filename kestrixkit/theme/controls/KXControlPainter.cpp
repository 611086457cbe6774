#include <kestrixkit/theme/controls/KXControlPainter.h>

#include <array>
#include <cmath>

#include <QPainter>
#include <QPainterPath>
#include <QPalette>

#include <kestrixkit/theme/KXThemeManager.h>

using namespace Qt::StringLiterals;

QColor KXControlPainter::firstOf(std::initializer_list<QColor> colours)
{
    for (const QColor &colour : colours) {
        if (colour.isValid())
            return colour;
    }
    return {};
}

QBrush KXControlPainter::firstOf(std::initializer_list<QBrush> brushes)
{
    for (const QBrush &brush : brushes) {
        if (brush.style() != Qt::NoBrush)
            return brush;
    }
    return {};
}

void KXControlPainter::plate(
    QPainter &painter, const QRectF &rect, const QBrush &fill, const QColor &border, qreal cornerRadius)
{
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    const bool outlined = border.isValid() && border.alpha() > 0;
    painter.setBrush(fill);
    painter.setPen(outlined ? QPen(border, 1) : QPen(Qt::NoPen));
    const qreal half = outlined ? 0.5 : 0; // so that the line covers whole pixels
    painter.drawRoundedRect(rect.adjusted(half, half, -half, -half), cornerRadius, cornerRadius);
    painter.restore();
}

void KXControlPainter::text(
    QPainter &painter, const QRectF &rect, int flags, const QString &text, const QColor &colour, const KXShadow &shadow)
{
    flags |= Qt::TextSingleLine;
    const QString shown = painter.fontMetrics().elidedText(text, Qt::ElideRight, int(std::ceil(rect.width())), flags);
    if (shadow.colour.isValid() && shadow.colour.alpha() > 0) {
        painter.setPen(shadow.colour);
        painter.drawText(rect.translated(shadow.offset.width(), -shadow.offset.height()), flags, shown);
    }
    painter.setPen(colour);
    painter.drawText(rect, flags, shown);
}

void KXControlPainter::icon(
    QPainter &painter, const QRect &rect, const QIcon &icon, const QColor &tint, QStyle::State state)
{
    const QIcon::Mode mode = tint.isValid() || (state & QStyle::State_Enabled) ? QIcon::Normal : QIcon::Disabled;
    const qreal ratio = painter.device() ? painter.device()->devicePixelRatio() : 1;
    QPixmap picture = icon.pixmap(rect.size(), ratio, mode, state & QStyle::State_On ? QIcon::On : QIcon::Off);
    if (tint.isValid() && !picture.isNull()) {
        QPainter over(&picture);
        over.setCompositionMode(QPainter::CompositionMode_SourceIn);
        over.fillRect(QRectF(QPointF(), picture.deviceIndependentSize()), tint);
    }
    QRectF place(QPointF(), picture.deviceIndependentSize());
    place.moveCenter(QRectF(rect).center());
    painter.drawPixmap(place.topLeft(), picture);
}

void KXControlPainter::chevron(QPainter &painter, const QPointF &centre, qreal size, qreal angle, const QColor &colour)
{
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    painter.translate(centre);
    painter.rotate(angle);
    painter.setPen(QPen(colour, 1.5, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    const std::array<QPointF, 3> line { QPointF(-size / 2, -size / 4), QPointF(0, size / 4),
        QPointF(size / 2, -size / 4) };
    painter.drawPolyline(line.data(), int(line.size()));
    painter.restore();
}

QColor KXControlPainter::focusRingColour(const QPalette &palette)
{
    const auto colour = KXThemeManager::sharedManager().valueForKeyPath(u"focusRingColour"_s).value<QColor>();
    return colour.isValid() ? colour : palette.color(QPalette::Highlight);
}

void KXControlPainter::dropLine(QPainter &painter, const QPointF &knob, qreal to, const QPalette &palette)
{
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(QPen(focusRingColour(palette), 2));
    painter.setBrush(Qt::NoBrush);
    painter.drawEllipse(knob, 3, 3);
    painter.drawLine(QPointF(knob.x() + (to < knob.x() ? -4 : 4), knob.y()), QPointF(to, knob.y()));
    painter.restore();
}

void KXControlPainter::focusRing(QPainter &painter, const QRectF &rect, const QPalette &palette, qreal cornerRadius)
{
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setBrush(Qt::NoBrush);
    painter.setPen(QPen(focusRingColour(palette), 2));
    painter.drawRoundedRect(rect.adjusted(1, 1, -1, -1), cornerRadius, cornerRadius);
    // A gap, so that the ring shows on a control of its own colour.
    painter.setPen(QPen(palette.color(QPalette::Window), 1));
    painter.drawRoundedRect(rect.adjusted(2.5, 2.5, -2.5, -2.5), cornerRadius - 1, cornerRadius - 1);
    painter.restore();
}

void KXControlPainter::grain(QPainter &painter, const QRectF &rect)
{
    const auto &theme = KXThemeManager::sharedManager().theme();
    if (!theme)
        return;
    painter.save();
    painter.setCompositionMode(QPainter::CompositionMode_Plus);
    painter.fillRect(rect, theme->noisePattern());
    painter.restore();
}
