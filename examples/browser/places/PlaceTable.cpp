#include "places/PlaceTable.h"

#include <span>

#include <QHeaderView>
#include <QScrollBar>

#include "filters/FilterStrip.h"
#include "table/TrackTableView.h"

namespace {

const TrackTableModel &placeModel(const TrackTableView &table)
{
    return *static_cast<const TrackTableModel *>(table.model());
}

/// Empty where there are more than are kept.
QList<qint64> selectedKeys(const TrackTableView &table)
{
    const KXLiveList &tracks = placeModel(table).tracks();
    QList<qint64> keys;
    for (const QItemSelectionRange &range : table.selectionModel()->selection()) {
        if (keys.size() + range.height() > PlaceView::MostSelected)
            return {};
        for (int row = range.top(); row <= range.bottom(); ++row)
            keys.append(tracks.key(row));
    }
    return keys;
}

/// Only by what columns sort by.
QList<KXSortDescriptor> placeOrder(const PlaceView &view, const TrackTableView &table)
{
    QList<KXSortDescriptor> order;
    for (const KXSortDescriptor &by : view.order) {
        for (const KXTableColumn &column : table.tableColumns()) {
            const KXSortDescriptor &own = column.sortDescriptorPrototype;
            if (own.key.isEmpty() || own.key != by.key)
                continue;
            order.append(own);
            order.last().ascending = by.ascending;
        }
    }
    return order;
}

bool isSameOrder(const QList<KXSortDescriptor> &a, const QList<KXSortDescriptor> &b)
{
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](const KXSortDescriptor &x, const KXSortDescriptor &y) {
        return x.key == y.key && x.ascending == y.ascending;
    });
}

} // namespace

PlaceView PlaceTable::viewOf(const TrackTableView &table, const FilterStrip &strip)
{
    const KXLiveList &tracks = placeModel(table).tracks();
    PlaceView view;
    const int top = table.verticalScrollBar()->value() > 0 ? table.rowAt(0) : -1;
    if (top >= 0) {
        view.top = tracks.key(top);
        view.offset = -table.rowViewportPosition(top);
    }
    view.across = table.horizontalScrollBar()->value();
    const QModelIndex current = table.currentIndex();
    view.current = current.isValid() ? tracks.key(current.row()) : 0;
    view.column = current.isValid() ? current.column() : 0;
    view.selected = selectedKeys(table);
    view.order = table.sortDescriptors();
    view.words = strip.narrowingText();
    return view;
}

void PlaceTable::show(const PlaceView &view, TrackTableView &table, FilterStrip &strip)
{
    if (const auto order = placeOrder(view, table); !order.isEmpty() && !isSameOrder(order, table.sortDescriptors()))
        table.setSortDescriptors(order);
    if (view.words != strip.narrowingText())
        strip.setNarrowingText(view.words);
    const TrackTableModel &model = placeModel(table);
    std::vector<qint64> keys { view.top, view.current };
    keys.insert(keys.end(), view.selected.begin(), view.selected.end());
    const bool isPlain = view.top == 0 && view.current == 0 && view.selected.isEmpty();
    const std::vector<qsizetype> rows
        = isPlain ? std::vector<qsizetype>(keys.size(), -1) : model.tracks().indexesOf(keys);
    QItemSelection selection;
    for (size_t i = 2; i < rows.size(); ++i) {
        if (rows[i] >= 0) {
            const QModelIndex row = model.index(int(rows[i]), 0);
            selection.select(row, row);
        }
    }
    const QModelIndex current = rows[1] < 0 ? QModelIndex() : model.index(int(rows[1]), view.column);
    QItemSelectionModel &selected = *table.selectionModel();
    selected.setCurrentIndex(current, QItemSelectionModel::NoUpdate);
    selected.select(selection, QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
    table.doItemsLayout(); // so that there is as much to scroll as there are rows
    const int top = rows[0] < 0 ? 0 : table.verticalHeader()->sectionPosition(int(rows[0])) + view.offset;
    table.verticalScrollBar()->setValue(top);
    table.horizontalScrollBar()->setValue(view.across);
}

void PlaceTable::showTop(TrackTableView &table)
{
    table.selectionModel()->clear();
    table.doItemsLayout();
    table.verticalScrollBar()->setValue(0);
}
