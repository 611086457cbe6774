#include <kestrixkit/theme/controls/KXThemeablePopUpButtonCell.h>

#include <QPainter>
#include <QStyleOptionComboBox>

#include <kestrixkit/theme/controls/KXControlPainter.h>

void KXThemeablePopUpButtonCell::paint(QPainter &painter, const QStyleOptionComboBox &option) const
{
    const auto either = [](const QBrush &gradient, const QColor &colour) {
        return gradient.style() == Qt::NoBrush && colour.isValid() ? QBrush(colour) : gradient;
    };
    const bool enabled = option.state & QStyle::State_Enabled;
    const bool open = enabled && option.state & (QStyle::State_On | QStyle::State_Sunken);
    const bool highlighted = enabled && (open || option.state & QStyle::State_MouseOver);
    painter.save();
    painter.setLayoutDirection(option.direction);
    if (m_titleFont)
        painter.setFont(*m_titleFont);

    QBrush fill = m_backgroundGradient;
    if (open)
        fill = KXControlPainter::firstOf({ either(m_selectedBackgroundGradient, m_selectedBackgroundColor), fill });
    else if (highlighted)
        fill = KXControlPainter::firstOf(
            { either(m_highlightedBackgroundGradient, m_highlightedBackgroundColor), fill });
    const QColor border
        = highlighted ? KXControlPainter::firstOf({ m_highlightedBorderColor, m_borderColor }) : m_borderColor;
    KXControlPainter::plate(painter, option.rect, fill, border);

    QColor colour = KXControlPainter::firstOf({ m_textColor, option.palette.color(QPalette::ButtonText) });
    QColor tint = m_imageTintColor;
    if (highlighted) {
        colour = KXControlPainter::firstOf({ m_highlightedTextColor, colour });
        tint = KXControlPainter::firstOf({ m_highlightedImageTintColor, tint });
    }
    if (!enabled)
        colour = KXControlPainter::firstOf({ m_disabledTextColor, colour });

    constexpr int arrowRoom = 18;
    const QRect inner = option.rect.adjusted(KXControlPainter::padding, 0, -4, 0);
    const auto visual = [&](const QRect &rect) { return QStyle::visualRect(option.direction, option.rect, rect); };
    const QRect arrow = visual(QRect(inner.right() - arrowRoom, inner.top(), arrowRoom, inner.height()));
    const QPointF centre = QRectF(arrow).center();
    KXControlPainter::chevron(painter, centre - QPointF(0, 3.5), 6, 180, colour);
    KXControlPainter::chevron(painter, centre + QPointF(0, 3.5), 6, 0, colour);
    int left = inner.left();
    if (!option.currentIcon.isNull()) {
        const QRect image(left, inner.top(), option.iconSize.width(), inner.height());
        KXControlPainter::icon(painter, visual(image), option.currentIcon, tint, option.state);
        left += option.iconSize.width() + 6;
    }
    const QRect text(left, inner.top(), inner.right() - arrowRoom - left, inner.height());
    KXControlPainter::text(painter, visual(text), Qt::AlignLeft | Qt::AlignVCenter, option.currentText, colour);
    if (option.state & QStyle::State_HasFocus)
        KXControlPainter::focusRing(painter, option.rect, option.palette);
    painter.restore();
}
