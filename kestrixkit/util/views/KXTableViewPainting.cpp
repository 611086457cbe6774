#include <kestrixkit/util/views/KXTableView.h>

#include <QHeaderView>
#include <QIcon>
#include <QPaintEvent>
#include <QPainter>

#include <kestrixkit/theme/controls/KXControlPainter.h>
#include <kestrixkit/util/views/KXTableText_p.h>

namespace {

constexpr int tableMargin = 10; // between a cell's side and its text, as in the header
constexpr int tableIcon = 16;

}

void KXTableView::paintEvent(QPaintEvent *event)
{
    QPainter painter(viewport());
    painter.setLayoutDirection(layoutDirection());
    const QRect exposed = event->rect();
    if (!m_text || m_text->font() != painter.font())
        m_text = std::make_unique<KXTableText>(painter.font());
    const QHeaderView *const rows = verticalHeader(), *const columns = horizontalHeader();
    const bool mirrored = isRightToLeft();
    const int firstColumn = columns->visualIndexAt(mirrored ? exposed.right() : exposed.left());
    int lastColumn = columns->visualIndexAt(mirrored ? exposed.left() : exposed.right());
    lastColumn = lastColumn < 0 ? columns->count() - 1 : lastColumn;
    const int firstRow = rows->visualIndexAt(exposed.top());
    int lastRow = rows->visualIndexAt(exposed.bottom());
    lastRow = lastRow < 0 ? rows->count() - 1 : lastRow;
    int bottom = 0;
    for (int visual = firstRow; visual >= 0 && visual <= lastRow; ++visual) {
        const int row = rows->logicalIndex(visual);
        if (rows->isSectionHidden(row))
            continue;
        drawRow(painter, row, firstColumn, lastColumn);
        bottom = rowViewportPosition(row) + rowHeight(row);
    }
    // The stripes go on beneath the last row.
    const int height = qMax(1, rows->defaultSectionSize());
    for (int row = rows->count(), y = bottom; y <= exposed.bottom() && lastRow == rows->count() - 1; y += height, ++row)
        painter.fillRect(0, y, viewport()->width(), height, rowColour(row, false));
    if (m_dropRow >= 0)
        paintDropRow(painter);
}

void KXTableView::drawRow(QPainter &painter, int row, int firstColumn, int lastColumn) const
{
    const QHeaderView *const columns = horizontalHeader();
    const int top = rowViewportPosition(row), height = rowHeight(row);
    const bool wholeRows = selectionBehavior() == SelectRows;
    const QItemSelectionModel *const selection = selectionModel();
    const auto isSelected = [&](const QModelIndex &index) { return selection && selection->isSelected(index); };
    KXTableCell cell;
    cell.hovered = m_trackedCell.isValid() && m_trackedCell.row() == row;
    cell.selected
        = wholeRows && isSelected(model()->index(row, columns->logicalIndex(qMax(0, firstColumn)), rootIndex()));
    const QPalette colours = palette();
    const auto group = hasFocus() ? QPalette::Active : QPalette::Inactive;
    const auto fill = [&](const QRect &rect) {
        painter.fillRect(rect, rowColour(row, cell.selected));
        if (cell.hovered && !cell.selected) {
            QColor light = colours.color(QPalette::Text);
            light.setAlphaF(0.06F);
            painter.fillRect(rect, light);
        }
    };
    fill(QRect(0, top, viewport()->width(), height));
    for (int visual = firstColumn; visual >= 0 && visual <= lastColumn; ++visual) {
        const int column = columns->logicalIndex(visual);
        if (columns->isSectionHidden(column))
            continue;
        cell.index = model()->index(row, column, rootIndex());
        cell.rect = QRect(columnViewportPosition(column), top, columnWidth(column), height);
        cell.enabled = cell.index.flags() & Qt::ItemIsEnabled;
        if (!wholeRows) {
            cell.selected = isSelected(cell.index);
            if (cell.selected)
                fill(cell.rect);
        }
        cell.text = !cell.enabled ? colours.color(QPalette::Disabled, QPalette::Text)
            : cell.selected       ? colours.color(group, QPalette::HighlightedText)
                                  : colours.color(group, QPalette::Text);
        drawCell(painter, cell);
        if (hasFocus() && cell.index == currentIndex())
            KXControlPainter::focusRing(painter, cell.rect, colours, 2);
    }
}

void KXTableView::drawCell(QPainter &painter, const KXTableCell &cell) const
{
    QRect room = cell.rect.adjusted(tableMargin, 0, -tableMargin, 0);
    const QVariant decoration = cell.index.data(Qt::DecorationRole);
    if (decoration.metaType() == QMetaType::fromType<QIcon>()) {
        const QRect place
            = QStyle::visualRect(layoutDirection(), room, QRect(room.left(), room.top(), tableIcon, room.height()));
        const auto icon = decoration.value<QIcon>();
        KXControlPainter::icon(painter, place, icon, icon.isMask() ? cell.text : QColor(),
            cell.enabled ? QStyle::State_Enabled : QStyle::State_None);
        room = QStyle::visualRect(layoutDirection(), room, room.adjusted(tableIcon + 6, 0, 0, 0));
    }
    const QVariant alignment = cell.index.data(Qt::TextAlignmentRole);
    painter.setPen(cell.text);
    drawText(painter, room,
        alignment.isValid() ? alignment.value<Qt::Alignment>() : Qt::Alignment(Qt::AlignLeft | Qt::AlignVCenter),
        cell.index.data(Qt::DisplayRole).toString());
}

void KXTableView::drawText(QPainter &painter, const QRect &rect, Qt::Alignment alignment, const QString &text) const
{
    m_text->draw(painter, rect, alignment, text);
}
