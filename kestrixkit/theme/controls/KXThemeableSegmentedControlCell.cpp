#include <kestrixkit/theme/controls/KXThemeableSegmentedControlCell.h>

#include <QPainter>
#include <QPainterPath>
#include <QStyleOption>

#include <kestrixkit/theme/controls/KXControlPainter.h>

void KXThemeableSegmentedControlCell::paint(QPainter &painter, const QStyleOption &option,
    const QList<KXSegment> &segments, const QList<QRect> &rects, int active, int current) const
{
    const QPalette &palette = option.palette;
    const QColor border = KXControlPainter::firstOf({ m_borderColor, palette.color(QPalette::Mid) });
    const QColor back = KXControlPainter::firstOf({ m_backgroundColor, palette.color(QPalette::Button) });
    const QColor chosen = KXControlPainter::firstOf({ m_selectedBackgroundColor, palette.color(QPalette::Highlight) });
    const QColor highlighted = KXControlPainter::firstOf({ m_highlightedBackgroundColor, chosen });
    const QColor text = KXControlPainter::firstOf({ m_textColor, palette.color(QPalette::ButtonText) });
    painter.save();
    painter.setLayoutDirection(option.direction);
    KXControlPainter::plate(painter, option.rect, back, {});
    QPainterPath shape;
    shape.addRoundedRect(option.rect, KXControlPainter::radius, KXControlPainter::radius);
    for (int i = 0; i < segments.size(); ++i) {
        const KXSegment &segment = segments[i];
        const bool enabled = segment.enabled && option.state & QStyle::State_Enabled;
        const bool pressed = enabled && i == active && option.state & QStyle::State_Sunken;
        const bool hovered = enabled && i == active && !pressed && option.state & QStyle::State_MouseOver;
        painter.save();
        painter.setRenderHint(QPainter::Antialiasing);
        painter.setClipRect(rects[i]);
        if (segment.selected || pressed)
            painter.fillPath(shape, pressed || !enabled ? highlighted : chosen);
        if (hovered && !segment.selected) {
            painter.setOpacity(0.5);
            painter.fillPath(shape, highlighted);
        }
        painter.restore();

        QColor colour = text;
        if (segment.selected) {
            colour = KXControlPainter::firstOf({ m_selectedTextColor,
                m_selectedBackgroundColor.isValid() ? text : palette.highlightedText().color() });
        }
        if (pressed)
            colour = KXControlPainter::firstOf({ m_highlightedTextColor, colour });
        if (!enabled) {
            colour = KXControlPainter::firstOf(
                { m_disabledTextColor, palette.color(QPalette::Disabled, QPalette::ButtonText) });
        }
        QRect room = rects[i].adjusted(KXControlPainter::padding - 2, 0, -KXControlPainter::padding + 2, 0);
        if (!segment.icon.isNull()) {
            const QRect image(room.left(), room.top(), 16, room.height());
            KXControlPainter::icon(painter,
                segment.label.isEmpty() ? room : QStyle::visualRect(option.direction, room, image), segment.icon,
                colour, option.state);
            room = QStyle::visualRect(option.direction, room, room.adjusted(20, 0, 0, 0));
        }
        KXControlPainter::text(painter, room, Qt::AlignCenter, segment.label, colour);
        // Between two segments, unless a filled one parts them already.
        if (i > 0 && !segment.selected && !segments[i - 1].selected) {
            const int x = option.direction == Qt::RightToLeft ? rects[i].right() : rects[i].left();
            painter.fillRect(QRect(x, rects[i].top() + 5, 1, rects[i].height() - 10), border);
        }
    }
    KXControlPainter::plate(painter, option.rect, Qt::NoBrush, border);
    if (option.state & QStyle::State_HasFocus && current >= 0 && current < rects.size())
        KXControlPainter::focusRing(painter, rects[current], palette);
    painter.restore();
}
