#include <kestrixkit/theme/controls/KXStarRating.h>

#include <cmath>
#include <numbers>

#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>

#include <kestrixkit/theme/controls/KXControlAccessibility_p.h>
#include <kestrixkit/theme/controls/KXControlPainter.h>

namespace {

constexpr qreal starSize = 14;
constexpr qreal starStep = 17;

QPainterPath starPath(QPointF centre, qreal radius)
{
    QPolygonF star;
    for (int i = 0; i < 10; ++i) {
        const double angle = std::numbers::pi * (i / 5.0 - 0.5);
        const double r = i % 2 ? radius * 0.45 : radius;
        star.append(centre + QPointF(r * std::cos(angle), r * std::sin(angle)));
    }
    QPainterPath path;
    path.addPolygon(star);
    path.closeSubpath();
    return path;
}

}

KXStarRating::KXStarRating(QWidget *parent)
    : KXThemed<QWidget>(parent)
{
    KXInstallControlAccessibility();
    setAttribute(Qt::WA_Hover);
    setFocusPolicy(Qt::StrongFocus);
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
}

void KXStarRating::setRating(int rating)
{
    rating = qBound(0, rating, maximum);
    if (rating == m_rating)
        return;
    m_rating = rating;
    update();
    KXAccessibleValueChanged(this);
    Q_EMIT ratingChanged(rating);
}

void KXStarRating::rate(int rating)
{
    const QPointer<KXStarRating> self(this); // a receiver may destroy it
    setRating(rating);
    if (self)
        Q_EMIT rated(m_rating);
}

void KXStarRating::paintStars(
    QPainter &painter, const QRectF &rect, int rating, const QColor &colour, const QColor &emptyColour)
{
    const bool mirrored = painter.layoutDirection() == Qt::RightToLeft;
    const qreal radius = qMin(starSize, rect.height()) / 2;
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    for (int i = 0; i < maximum; ++i) {
        const qreal along = radius + i * starStep;
        const QPointF centre(mirrored ? rect.right() - along : rect.left() + along, rect.center().y());
        painter.fillPath(starPath(centre, radius), i < rating ? colour : emptyColour);
    }
    painter.restore();
}

int KXStarRating::starsAt(const QPointF &position, const QRectF &rect, Qt::LayoutDirection direction)
{
    const qreal along = direction == Qt::RightToLeft ? rect.right() - position.x() : position.x() - rect.left();
    return qBound(0, int(std::ceil(along / starStep)), maximum);
}

QSize KXStarRating::sizeHint() const { return { int((maximum - 1) * starStep + starSize) + 8, int(starSize) + 8 }; }

QRectF KXStarRating::starsRect() const { return QRectF(rect()).adjusted(4, 0, -4, 0); }

void KXStarRating::paintEvent(QPaintEvent *)
{
    QColor colour = KXControlPainter::firstOf({ m_color, palette().color(QPalette::Active, QPalette::Text) });
    if (!isEnabled())
        colour = KXControlPainter::firstOf({ m_disabledColor, palette().color(QPalette::Text) });
    else if (underMouse() || m_tracked >= 0)
        colour = KXControlPainter::firstOf({ m_highlightedColor, colour });
    const QColor empty = KXControlPainter::firstOf({ m_emptyColor, palette().color(QPalette::Mid) });
    QPainter painter(this);
    painter.setLayoutDirection(layoutDirection());
    paintStars(painter, starsRect(), m_tracked >= 0 ? m_tracked : m_rating, colour, empty);
    if (hasFocus())
        KXControlPainter::focusRing(painter, rect(), palette());
}

void KXStarRating::mousePressEvent(QMouseEvent *event)
{
    if (event->button() == Qt::LeftButton) {
        m_tracked = starsAt(event->position(), starsRect(), layoutDirection());
        update();
    }
}

void KXStarRating::mouseMoveEvent(QMouseEvent *event)
{
    if (m_tracked >= 0) {
        m_tracked = starsAt(event->position(), starsRect(), layoutDirection());
        update();
    }
}

void KXStarRating::mouseReleaseEvent(QMouseEvent *event)
{
    if (event->button() != Qt::LeftButton || m_tracked < 0)
        return;
    const int stars = std::exchange(m_tracked, -1);
    update();
    rate(stars == m_rating ? 0 : stars);
}

void KXStarRating::keyPressEvent(QKeyEvent *event)
{
    const int forward = layoutDirection() == Qt::RightToLeft ? -1 : 1;
    switch (event->key()) {
    case Qt::Key_Right:
        rate(m_rating + forward);
        break;
    case Qt::Key_Left:
        rate(m_rating - forward);
        break;
    case Qt::Key_Up:
        rate(m_rating + 1);
        break;
    case Qt::Key_Down:
        rate(m_rating - 1);
        break;
    case Qt::Key_Home:
        rate(0);
        break;
    case Qt::Key_End:
        rate(maximum);
        break;
    default:
        if (event->key() >= Qt::Key_0 && event->key() <= Qt::Key_0 + maximum)
            rate(event->key() - Qt::Key_0);
        else
            QWidget::keyPressEvent(event);
    }
}
