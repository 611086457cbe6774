#pragma once

#include <functional>

#include <QColor>
#include <QMetaType>
#include <QRectF>
#include <QSizeF>

#include <kestrixkit/foundation/KXGlobal.h>

class QPainter;

/// A soft copy of a shape beneath it. Offset and radius are in points; a positive height lifts the shadow upwards, so
/// painting where y grows downwards takes its negative. A value; any thread.
struct KXShadow
{
    QColor colour;
    QSizeF offset;
    qreal blurRadius = 0;

    friend bool operator==(const KXShadow &, const KXShadow &) = default;
};

/// Fills or decorates a rectangle.
using KXDrawBlock = std::function<void(QPainter &painter, const QRectF &rect)>;

Q_DECLARE_METATYPE(KXShadow)
Q_DECLARE_METATYPE(KXDrawBlock)
