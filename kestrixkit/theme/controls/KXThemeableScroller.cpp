#include <kestrixkit/theme/controls/KXThemeableScroller.h>

#include <QPainter>
#include <QStyleOptionSlider>

#include <kestrixkit/theme/KXThemeStyleNames.h>
#include <kestrixkit/theme/controls/KXControlPainter.h>

KXThemeableScroller::KXThemeableScroller(Qt::Orientation orientation, QWidget *parent)
    : KXThemed<QScrollBar>(orientation, parent)
{
    setAttribute(Qt::WA_Hover);
}

KXThemeableScroller *KXThemeableScroller::ofView(Qt::Orientation orientation)
{
    auto *const scroller = new KXThemeableScroller(orientation);
    scroller->setThemeStyleName(KXScrollerStyles);
    return scroller;
}

void KXThemeableScroller::paintEvent(QPaintEvent *event)
{
    if (!isThemed()) {
        QScrollBar::paintEvent(event);
        return;
    }
    QStyleOptionSlider option;
    initStyleOption(&option);
    const auto part = [&](QStyle::SubControl control) {
        return style()->subControlRect(QStyle::CC_ScrollBar, &option, control, this);
    };
    QPainter painter(this);
    painter.fillRect(rect(), KXControlPainter::firstOf({ m_knobSlotColor, palette().color(QPalette::Base) }));
    const bool upright = orientation() == Qt::Vertical;
    if (m_borderColor.isValid()) {
        const bool mirrored = isRightToLeft();
        painter.fillRect(
            upright ? QRect(mirrored ? width() - 1 : 0, 0, 1, height()) : QRect(0, 0, width(), 1), m_borderColor);
    }
    const QColor knob = KXControlPainter::firstOf({ m_knobColor, palette().color(QPalette::Mid) });
    // The style's own arrows stay where clicks on them work.
    const bool mirrored = !upright && isRightToLeft();
    const auto arrow = [&](QStyle::SubControl control, qreal angle) {
        const QRect place = part(control);
        if (place.isValid() && place.height() > 4 && place.width() > 4)
            KXControlPainter::chevron(painter, QRectF(place).center(), 5, angle, knob);
    };
    arrow(QStyle::SC_ScrollBarSubLine, upright ? 180 : mirrored ? -90 : 90);
    arrow(QStyle::SC_ScrollBarAddLine, upright ? 0 : mirrored ? 90 : -90);
    if (!isEnabled() || minimum() == maximum())
        return;
    const QRectF slider = part(QStyle::SC_ScrollBarSlider);
    const QRectF plate = upright ? slider.adjusted(4, 1, -3, -1) : slider.adjusted(1, 4, -1, -3);
    painter.setOpacity(isSliderDown() ? 1 : underMouse() ? 0.9 : 0.7);
    KXControlPainter::plate(painter, plate, knob, {}, qMin(plate.width(), plate.height()) / 2);
}
