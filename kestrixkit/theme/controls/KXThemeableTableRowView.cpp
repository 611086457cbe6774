#include <kestrixkit/theme/controls/KXThemeableTableRowView.h>

#include <QAbstractScrollArea>
#include <QPainter>

KXThemeableTableRowView::KXThemeableTableRowView(QWidget *view) { setParent(view); }

void KXThemeableTableRowView::draw(QPainter &painter, const QRectF &rect, const QPalette &palette) const
{
    painter.save();
    if (m_drawBackgroundBlock)
        m_drawBackgroundBlock(*this, painter, rect);
    if (m_state.selected && m_drawSelectionBlock) {
        m_drawSelectionBlock(*this, painter, rect);
    } else if (m_state.selected) {
        const QColor own = m_state.emphasised ? m_selectionColor : m_inactiveSelectionColor;
        const auto group = m_state.emphasised ? QPalette::Active : QPalette::Inactive;
        painter.fillRect(rect, own.isValid() ? own : palette.color(group, QPalette::Highlight));
    }
    if (m_drawSeparatorBlock)
        m_drawSeparatorBlock(*this, painter, rect);
    painter.restore();
}

void KXThemeableTableRowView::setNeedsDisplay()
{
    auto *const area = qobject_cast<QAbstractScrollArea *>(parent());
    if (auto *const widget = area ? area->viewport() : qobject_cast<QWidget *>(parent()))
        widget->update();
}
