#pragma once

#include <QColor>
#include <QLineF>
#include <QRectF>

#include <kestrixkit/foundation/KXGlobal.h>

class QPainter;

/// A border or separator, one pixel of the device thick, at a distance from a side of a rectangle. A value; draws on
/// the painter's thread.
struct KX_CORE_EXPORT KXPixelThickLine
{
    int position = 0; ///< points from the side
    int inset = 0; ///< points left free at the ends
    QRectF rect;
    bool horizontal = true;
    bool flip = false; ///< measured from the opposite side
    bool inFlippedView = true; ///< y grows downwards, as it does in every widget

    /// Where it runs: the rectangle's edges are moved to the nearest pixels first. A horizontal line that is not
    /// flipped runs on beyond the right edge by the inset; all other ends stay clear of theirs.
    [[nodiscard]] QLineF line(qreal devicePixelRatio = 1) const;
    /// With the thinnest pen of the painter's device.
    void draw(QPainter &painter, const QColor &colour) const;
};
