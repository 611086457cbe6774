#include <kestrixkit/theme/controls/KXThemeableTableView.h>

#include <QHeaderView>
#include <QPaintEvent>
#include <QPainter>
#include <QStyledItemDelegate>

#include <kestrixkit/theme/controls/KXControlAccessibility_p.h>
#include <kestrixkit/theme/controls/KXControlPainter.h>
#include <kestrixkit/theme/controls/KXThemeableScroller.h>

namespace {

/// Text and icon on the row's colour; the focus as a ring around the cell.
class TableItemDelegate : public QStyledItemDelegate
{
public:
    explicit TableItemDelegate(KXThemeableTableView *table)
        : QStyledItemDelegate(table)
        , m_table(table)
    {
    }
    void paint(QPainter *painter, const QStyleOptionViewItem &option, const QModelIndex &index) const override
    {
        if (!m_table->isThemed()) {
            QStyledItemDelegate::paint(painter, option, index);
            return;
        }
        QStyleOptionViewItem item(option);
        const bool selected = item.state & QStyle::State_Selected;
        const QPalette::ColorGroup group = !(item.state & QStyle::State_Enabled) ? QPalette::Disabled
            : m_table->hasFocus()                                                ? QPalette::Active
                                                                                 : QPalette::Inactive;
        painter->fillRect(item.rect, m_table->rowColour(index.row(), selected));
        if (selected)
            item.palette.setColor(QPalette::Text, item.palette.color(group, QPalette::HighlightedText));
        item.state &= ~(QStyle::State_Selected | QStyle::State_HasFocus | QStyle::State_MouseOver);
        item.features &= ~QStyleOptionViewItem::Alternate;
        item.rect.adjust(7, 0, -7, 0); // in line with the header's text
        QStyledItemDelegate::paint(painter, item, index);
        if (option.state & QStyle::State_HasFocus)
            KXControlPainter::focusRing(*painter, option.rect, option.palette, 2);
    }

private:
    KXThemeableTableView *m_table;
};

}

KXThemeableTableView::KXThemeableTableView(QWidget *parent)
    : KXThemed<QTableView>(parent)
{
    KXInstallControlAccessibility();
    setItemDelegate(new TableItemDelegate(this));
    setFrameShape(QFrame::NoFrame);
    setShowGrid(false);
    setSelectionBehavior(QAbstractItemView::SelectRows);
    setTabKeyNavigation(false); // Tab leaves the table
    setVerticalScrollBar(KXThemeableScroller::ofView(Qt::Vertical));
    setHorizontalScrollBar(KXThemeableScroller::ofView(Qt::Horizontal));
    verticalHeader()->hide();
}

QColor KXThemeableTableView::rowColour(int row, bool selected) const
{
    if (selected && hasFocus())
        return KXControlPainter::firstOf(
            { m_highlightSelectionColor, palette().color(QPalette::Active, QPalette::Highlight) });
    if (selected)
        return KXControlPainter::firstOf(
            { m_highlightSelectionAlternateColor, palette().color(QPalette::Inactive, QPalette::Highlight) });
    return m_alternatingRowBackgroundColors.isEmpty()
        ? palette().color(row % 2 ? QPalette::AlternateBase : QPalette::Base)
        : m_alternatingRowBackgroundColors[row % m_alternatingRowBackgroundColors.size()];
}

void KXThemeableTableView::paintEvent(QPaintEvent *event)
{
    if (isThemed()) {
        // The stripes go on beneath the last row.
        QPainter painter(viewport());
        const int height = qMax(1, verticalHeader()->defaultSectionSize());
        const int rows = model() ? model()->rowCount(rootIndex()) : 0;
        const int last = rows - 1;
        const int bottom = rows == 0 ? 0 : rowViewportPosition(last) + rowHeight(last);
        int row = rows;
        for (int y = bottom; y < viewport()->height(); y += height, ++row) {
            if (y + height > 0)
                painter.fillRect(0, y, viewport()->width(), height, rowColour(row, false));
        }
        const int right = model()
            ? columnViewportPosition(horizontalHeader()->logicalIndex(horizontalHeader()->count() - 1))
                + horizontalHeader()->sectionSize(horizontalHeader()->logicalIndex(horizontalHeader()->count() - 1))
            : 0;
        for (int i = qMax(0, rowAt(0)); i < rows && rowViewportPosition(i) < viewport()->height(); ++i)
            painter.fillRect(
                right, rowViewportPosition(i), viewport()->width() - right, rowHeight(i), rowColour(i, false));
    }
    QTableView::paintEvent(event);
}

// The selection has another colour.
void KXThemeableTableView::focusInEvent(QFocusEvent *event)
{
    QTableView::focusInEvent(event);
    viewport()->update();
}
void KXThemeableTableView::focusOutEvent(QFocusEvent *event)
{
    QTableView::focusOutEvent(event);
    viewport()->update();
}

void KXThemeableTableView::setNeedsDisplay()
{
    // Where the application has a style sheet the viewport keeps the palette that it got first.
    viewport()->setPalette(palette());
    viewport()->update();
}
