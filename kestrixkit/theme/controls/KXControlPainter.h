#pragma once

#include <initializer_list>

#include <QBrush>
#include <QIcon>
#include <QStyle>

#include <kestrixkit/theme/KXThemeValues.h>

class QPalette;

/// What the themed controls, and cells that look like them, are painted with. Main thread.
class KX_UI_EXPORT KXControlPainter
{
public:
    static constexpr qreal radius = 4; ///< of corners, in points
    static constexpr int padding = 10; ///< between a control's side and its text, in points

    /// The first that is valid; invalid if none is.
    [[nodiscard]] static QColor firstOf(std::initializer_list<QColor> colours);
    [[nodiscard]] static QBrush firstOf(std::initializer_list<QBrush> brushes);

    /// A rectangle with round corners: filled unless the brush is none, outlined by one point unless the colour is
    /// invalid or transparent.
    static void plate(
        QPainter &painter, const QRectF &rect, const QBrush &fill, const QColor &border, qreal cornerRadius = radius);
    /// One line, cut with an ellipsis where it does not fit. Flags as for QPainter::drawText; AlignLeft is the side
    /// where text begins.
    static void text(QPainter &painter, const QRectF &rect, int flags, const QString &text, const QColor &colour,
        const KXShadow &shadow = {});
    /// The icon with its shape in one colour; as it is where the colour is invalid.
    static void icon(QPainter &painter, const QRect &rect, const QIcon &icon, const QColor &tint, QStyle::State state);
    /// A small arrow head. Angle in degrees: 0 points down, 90 to the left, 180 up.
    static void chevron(QPainter &painter, const QPointF &centre, qreal size, qreal angle, const QColor &colour);
    /// Inside the rectangle. In the theme's "focusRingColour", else in the palette's highlight.
    static void focusRing(QPainter &painter, const QRectF &rect, const QPalette &palette, qreal cornerRadius = radius);
    [[nodiscard]] static QColor focusRingColour(const QPalette &palette);
    /// Where something would be dropped between rows: a knob, and a line from it to `to`, which is beside it.
    static void dropLine(QPainter &painter, const QPointF &knob, qreal to, const QPalette &palette);
    /// The theme's faint grain, added to what is there.
    static void grain(QPainter &painter, const QRectF &rect);
};
