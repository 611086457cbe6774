#include "TrackTableView.h"

#include <QHeaderView>
#include <QScopedValueRollback>
#include <QScrollBar>

#include <kestrixkit/theme/KXThemeStyleNames.h>
#include <kestrixkit/theme/controls/KXThemeableScroller.h>
#include <kestrixkit/theme/controls/KXThemeableTableHeaderCell.h>

#include "BrowserStyle.h"
#include "TrackDelegate.h"
#include "TrackTableModel.h"

namespace {

constexpr int columnWidths[TrackTableModel::ColumnCount] = { 220, 170, 162, 130, 62, 92, 98, 66, 108, 58, 106, 150 };

} // namespace

TrackTableView::TrackTableView(QWidget *parent)
    : QTableView(parent)
{
    setAccessibleName(tr("Tracks"));
    setItemDelegate(new TrackDelegate(this));
    setShowGrid(false);
    setAlternatingRowColors(true);
    setSelectionBehavior(QAbstractItemView::SelectRows);
    setSelectionMode(QAbstractItemView::ExtendedSelection);
    setEditTriggers(QAbstractItemView::NoEditTriggers);
    setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);
    setHorizontalScrollMode(QAbstractItemView::ScrollPerPixel);
    setTabKeyNavigation(false);
    setWordWrap(false);
    setFrameShape(QFrame::NoFrame);
    for (const Qt::Orientation side : { Qt::Vertical, Qt::Horizontal }) {
        auto *scroller = new KXThemeableScroller(side);
        scroller->setThemeStyleName(KXScrollerStyles);
        side == Qt::Vertical ? setVerticalScrollBar(scroller) : setHorizontalScrollBar(scroller);
    }
    auto *header = new KXThemeableTableHeaderView(Qt::Horizontal);
    header->setThemeStyleName(KXTableHeaderStyles);
    setHorizontalHeader(header);

    // One height for all rows: nothing is measured, however many there are.
    verticalHeader()->hide();
    verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    verticalHeader()->setDefaultSectionSize(BrowserStyle::rowHeight);
    connect(verticalScrollBar(), &QScrollBar::valueChanged, this, &TrackTableView::rememberTopRow);
}

void TrackTableView::setModel(QAbstractItemModel *model)
{
    QTableView::setModel(model);
    QHeaderView *header = horizontalHeader();
    header->setHighlightSections(false);
    header->setSectionsMovable(true);
    header->setStretchLastSection(true);
    header->setMinimumSectionSize(44);
    for (int column = 0; column < TrackTableModel::ColumnCount; ++column)
        header->resizeSection(column, columnWidths[column]);
    header->setSortIndicator(TrackTableModel::Artist, Qt::AscendingOrder);
    setSortingEnabled(true);
    // After another order was asked for one looks for the current track, or begins at the top.
    connect(header, &QHeaderView::sortIndicatorChanged, this, [this] {
        if (currentIndex().isValid())
            scrollTo(currentIndex(), PositionAtCenter);
        else
            scrollToTop();
    });
}

void TrackTableView::commitOpenEditor()
{
    if (state() == EditingState) {
        if (QWidget *editor = indexWidget(currentIndex())) {
            commitData(editor);
            closeEditor(editor, QAbstractItemDelegate::NoHint);
        }
    }
}

void TrackTableView::rememberTopRow()
{
    if (m_isLayingOut)
        return;
    const int row = verticalScrollBar()->value() > 0 ? rowAt(0) : -1;
    m_topRow = row < 0 ? QModelIndex() : model()->index(row, 0);
    m_topOffset = row < 0 ? 0 : -rowViewportPosition(row);
}

void TrackTableView::updateGeometries()
{
    const QScopedValueRollback guard(m_isLayingOut, true);
    QTableView::updateGeometries();
    if (m_topRow.isValid())
        verticalScrollBar()->setValue(verticalHeader()->sectionPosition(m_topRow.row()) + m_topOffset);
}
