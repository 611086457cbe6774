#include <kestrixkit/util/views/KXTableView.h>

#include <algorithm>

#include <QApplication>
#include <QClipboard>
#include <QDrag>
#include <QDropEvent>
#include <QHeaderView>
#include <QKeyEvent>
#include <QMimeData>
#include <QPainter>

#include <kestrixkit/theme/controls/KXBadge.h>
#include <kestrixkit/theme/controls/KXControlPainter.h>
#include <kestrixkit/theme/controls/KXDragImage.h>

using namespace Qt::StringLiterals;

void KXTableView::setDragsRows(bool drags)
{
    setDragEnabled(drags);
    setAcceptDrops(drags);
    setDropIndicatorShown(false); // painted here
}

QList<int> KXTableView::selectedRowNumbers() const
{
    QList<int> rows;
    // Ranges: a table with all of its rows selected has one of them, and a million rows.
    for (const QItemSelectionRange &range : selectionModel() ? selectionModel()->selection() : QItemSelection()) {
        for (int row = range.top(); row <= range.bottom(); ++row)
            rows.append(row);
    }
    std::sort(rows.begin(), rows.end());
    rows.erase(std::unique(rows.begin(), rows.end()), rows.end());
    return rows;
}

QString KXTableView::textOfRows(const QList<int> &rows) const
{
    QString text;
    const QHeaderView *const columns = horizontalHeader();
    for (const int row : rows) {
        QStringList cells;
        for (int visual = 0; visual < columns->count(); ++visual) {
            const int column = columns->logicalIndex(visual);
            if (!columns->isSectionHidden(column)) // a tab or a new line within a text would make it two
                cells.append(model()->index(row, column).data().toString().simplified());
        }
        text += cells.join(u'\t') + u'\n';
    }
    return text;
}

QMimeData *KXTableView::mimeDataOfRows(const QList<int> &rows) const
{
    QModelIndexList indexes;
    indexes.reserve(rows.size());
    for (const int row : rows)
        indexes.append(model()->index(row, 0));
    return indexes.isEmpty() ? nullptr : model()->mimeData(indexes);
}

void KXTableView::keyPressEvent(QKeyEvent *event)
{
    if (!event->matches(QKeySequence::Copy) || selectionBehavior() != SelectRows || !model()) {
        KXThemeableTableView::keyPressEvent(event);
        return;
    }
    event->accept();
    const QList<int> rows = selectedRowNumbers();
    if (rows.isEmpty())
        return;
    QMimeData *const data = mimeDataOfRows(rows);
    QMimeData *const copied = data ? data : new QMimeData;
    copied->setText(textOfRows(rows));
    QGuiApplication::clipboard()->setMimeData(copied);
}

// Dragging

void KXTableView::startDrag(Qt::DropActions)
{
    const QList<int> rows = selectedRowNumbers();
    QMimeData *const data = mimeDataOfRows(rows);
    if (!data)
        return;
    if (m_delegate)
        m_delegate->willDragRows(this, *data);
    auto *const drag = new QDrag(this);
    drag->setMimeData(data);
    drag->setPixmap(dragImage(rows));
    drag->setHotSpot({ 12, drag->pixmap().deviceIndependentSize().toSize().height() / 2 });
    const QPointer<KXTableView> alive(this);
    drag->exec(Qt::CopyAction | Qt::MoveAction, Qt::CopyAction);
    if (alive)
        showDropRow(-1);
}

/// The text of the row that was pressed, and the number of rows.
QPixmap KXTableView::dragImage(const QList<int> &rows) const
{
    const int row = rows.contains(currentIndex().row()) ? currentIndex().row() : rows.first();
    const QHeaderView *const columns = horizontalHeader();
    int visual = 0;
    while (visual + 1 < columns->count() && columns->isSectionHidden(columns->logicalIndex(visual)))
        ++visual;
    const QString title = model()->index(row, columns->logicalIndex(visual)).data().toString().simplified();
    return KXDragImage { .title = title, .count = rows.size() }.draw(*this, KXBadgeCell());
}

// Dropping

/// The upper half of a row stands for the place in front of it, the lower half for the one behind it.
int KXTableView::dropRowAt(const QPoint &place) const
{
    const int row = rowAt(place.y());
    if (row < 0)
        return model() ? model()->rowCount() : 0;
    return place.y() - rowViewportPosition(row) < rowHeight(row) / 2 ? row : row + 1;
}

Qt::DropAction KXTableView::validateDrop(const QDropEvent &event, int row)
{
    Qt::DropActions allowed = event.possibleActions();
    if (event.modifiers() & Qt::ControlModifier)
        allowed &= Qt::CopyAction;
    else if (event.modifiers() & Qt::ShiftModifier)
        allowed &= Qt::MoveAction;
    return m_delegate && allowed ? m_delegate->validateRowDrop(this, *event.mimeData(), allowed, row)
                                 : Qt::IgnoreAction;
}

void KXTableView::showDropRow(int row)
{
    if (std::exchange(m_dropRow, row) != row)
        viewport()->update();
}

void KXTableView::dragEnterEvent(QDragEnterEvent *event)
{
    setState(DraggingState);
    event->accept(); // or it would not be asked about other places
}

void KXTableView::dragMoveEvent(QDragMoveEvent *event)
{
    KXThemeableTableView::dragMoveEvent(event); // scrolls near the edges
    const int row = dropRowAt(event->position().toPoint());
    const Qt::DropAction action = validateDrop(*event, row);
    showDropRow(action == Qt::IgnoreAction ? -1 : row);
    if (action == Qt::IgnoreAction) {
        event->ignore();
    } else {
        event->setDropAction(action);
        event->accept();
    }
}

void KXTableView::dragLeaveEvent(QDragLeaveEvent *event)
{
    KXThemeableTableView::dragLeaveEvent(event);
    showDropRow(-1);
}

void KXTableView::dropEvent(QDropEvent *event)
{
    const int row = dropRowAt(event->position().toPoint());
    const Qt::DropAction action = validateDrop(*event, row);
    showDropRow(-1);
    stopAutoScroll();
    setState(NoState);
    if (action != Qt::IgnoreAction && m_delegate && m_delegate->acceptRowDrop(this, *event->mimeData(), action, row)) {
        event->setDropAction(action);
        event->accept();
    } else {
        event->ignore();
    }
}

/// A line with a knob, where the first of the dropped rows would begin.
void KXTableView::paintDropRow(QPainter &painter) const
{
    const int rows = model() ? model()->rowCount() : 0;
    const int y = m_dropRow < rows ? rowViewportPosition(m_dropRow)
        : rows > 0                 ? rowViewportPosition(rows - 1) + rowHeight(rows - 1)
                                   : 0;
    const double line = std::clamp(double(y), 4.0, std::max(4.0, viewport()->height() - 4.0));
    const bool mirrored = isRightToLeft();
    const double begin = mirrored ? viewport()->width() : 0, side = mirrored ? -1 : 1;
    KXControlPainter::dropLine(painter, { begin + side * 5, line }, mirrored ? 4 : viewport()->width() - 4, palette());
}
