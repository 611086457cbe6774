#include <kestrixkit/theme/controls/KXThemeableButtonCell.h>

#include <QPainter>
#include <QStyleOptionButton>

#include <kestrixkit/theme/controls/KXControlPainter.h>

namespace {

constexpr int buttonImageGap = 6; // between image and text
constexpr int buttonArrow = 14; // room for a menu's arrow

bool buttonIs(const QStyleOption &option, QStyle::State state) { return (option.state & state) == state; }

QBrush buttonBrush(const QBrush &gradient, const QColor &colour)
{
    return gradient.style() == Qt::NoBrush && colour.isValid() ? QBrush(colour) : gradient;
}

}

void KXThemeableButtonCell::paint(QPainter &painter, const QStyleOptionButton &option) const
{
    painter.save();
    painter.setLayoutDirection(option.direction);
    paintBezel(painter, option);
    const int padding = option.text.isEmpty() ? 4 : KXControlPainter::padding;
    paintInterior(painter, option, option.rect.adjusted(padding, 0, -padding, 0));
    if (buttonIs(option, QStyle::State_HasFocus))
        KXControlPainter::focusRing(painter, option.rect, option.palette, m_cornerRadius);
    painter.restore();
}

QSize KXThemeableButtonCell::sizeHint(const QStyleOptionButton &option) const
{
    const int padding = option.text.isEmpty() ? 4 : KXControlPainter::padding;
    int width = 2 * padding;
    int height = option.fontMetrics.height() + 8;
    if (!option.text.isEmpty())
        width += option.fontMetrics.size(Qt::TextShowMnemonic, option.text).width() + 1;
    if (!option.icon.isNull()) {
        width += option.iconSize.width() + (option.text.isEmpty() ? 0 : buttonImageGap);
        height = qMax(height, option.iconSize.height() + 8);
    }
    if (option.features & QStyleOptionButton::HasMenu)
        width += buttonArrow;
    return { qMax(width, height), height };
}

void KXThemeableButtonCell::paintBezel(QPainter &painter, const QStyleOptionButton &option) const
{
    const bool enabled = buttonIs(option, QStyle::State_Enabled);
    const bool pressed = enabled && buttonIs(option, QStyle::State_Sunken);
    const bool selected = buttonIs(option, QStyle::State_On);
    const bool hovered = enabled && !pressed && buttonIs(option, QStyle::State_MouseOver);
    const QBrush normal = m_backgroundGradient;
    const QBrush highlighted = KXControlPainter::firstOf(
        { buttonBrush(m_highlightedBackgroundGradient, m_highlightedBackgroundColor), normal });
    const QBrush chosen
        = KXControlPainter::firstOf({ buttonBrush(m_selectedBackgroundGradient, m_selectedBackgroundColor), normal });
    QBrush fill = selected ? chosen : normal;
    if (pressed)
        fill = highlighted;
    if (!enabled) {
        fill
            = KXControlPainter::firstOf({ buttonBrush(m_disabledBackgroundGradient, m_disabledBackgroundColor), fill });
    }
    QColor border = m_borderColor;
    if (pressed || hovered)
        border = KXControlPainter::firstOf({ m_highlightedBorderColor, border });
    if (!enabled)
        border = KXControlPainter::firstOf({ m_disabledBorderColor, border });
    KXControlPainter::plate(painter, option.rect, fill, border, m_cornerRadius);
    if (hovered && !selected) {
        painter.setOpacity(0.5);
        KXControlPainter::plate(painter, option.rect, highlighted, border, m_cornerRadius);
        painter.setOpacity(1);
    }
}

QColor KXThemeableButtonCell::textColour(const QStyleOptionButton &option) const
{
    const QColor normal
        = KXControlPainter::firstOf({ m_textColor, option.palette.color(QPalette::Active, QPalette::ButtonText) });
    if (!buttonIs(option, QStyle::State_Enabled)) {
        return KXControlPainter::firstOf(
            { m_disabledTextColor, option.palette.color(QPalette::Disabled, QPalette::ButtonText) });
    }
    const bool highlighted = option.state & (QStyle::State_Sunken | QStyle::State_On);
    return highlighted ? KXControlPainter::firstOf({ m_highlightedTextColor, normal }) : normal;
}

void KXThemeableButtonCell::paintInterior(QPainter &painter, const QStyleOptionButton &option, const QRect &rect) const
{
    const QColor colour = textColour(option);
    QRect room = rect;
    if (option.features & QStyleOptionButton::HasMenu) {
        const QRect arrow = QStyle::visualRect(
            option.direction, room, QRect(room.right() - buttonArrow + 4, room.top(), buttonArrow, room.height()));
        KXControlPainter::chevron(painter, QRectF(arrow).center(), 7, 0, colour);
        const QRect rest(room.left(), room.top(), room.width() - buttonArrow, room.height());
        room = QStyle::visualRect(option.direction, room, rest);
    }
    const KXShadow shadow { m_shadowColor, { 0, -1 }, 0 };
    if (option.icon.isNull()) {
        KXControlPainter::text(painter, room, Qt::AlignCenter | Qt::TextShowMnemonic, option.text, colour, shadow);
        return;
    }
    const bool enabled = buttonIs(option, QStyle::State_Enabled);
    const bool highlighted = option.state & (QStyle::State_Sunken | QStyle::State_On);
    QColor tint = m_imageTintColor;
    if (highlighted)
        tint = KXControlPainter::firstOf({ m_highlightedImageTintColor, tint });
    if (!enabled)
        tint = KXControlPainter::firstOf({ m_disabledImageTintColor, tint });
    const int textWidth
        = option.text.isEmpty() ? 0 : option.fontMetrics.size(Qt::TextShowMnemonic, option.text).width() + 1;
    const int gap = option.text.isEmpty() ? 0 : buttonImageGap;
    const int imageWidth = option.iconSize.width();
    const int total = qMin(room.width(), imageWidth + gap + textWidth);
    const int left = room.left() + (room.width() - total) / 2;
    const QRect image(left, room.center().y() - option.iconSize.height() / 2, imageWidth, option.iconSize.height());
    const QRect text(left + imageWidth + gap, room.top(), total - imageWidth - gap, room.height());
    KXControlPainter::icon(painter, QStyle::visualRect(option.direction, room, image), option.icon, tint, option.state);
    KXControlPainter::text(painter, QStyle::visualRect(option.direction, room, text),
        Qt::AlignLeft | Qt::AlignVCenter | Qt::TextShowMnemonic, option.text, colour, shadow);
}
