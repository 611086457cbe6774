#include <kestrixkit/util/views/KXTableView.h>

#include <QApplication>
#include <QContextMenuEvent>
#include <QScopedValueRollback>
#include <QScrollBar>

#include <kestrixkit/theme/KXThemeStyleNames.h>
#include <kestrixkit/theme/controls/KXThemeableTableHeaderCell.h>
#include <kestrixkit/toolkit/KXMenu.h>
#include <kestrixkit/util/views/KXTableLayout_p.h>
#include <kestrixkit/util/views/KXTableText_p.h>

KXTableView::KXTableView(QWidget *parent)
    : KXThemeableTableView(parent)
    , m_layout(std::make_unique<KXTableLayout>())
{
    setSelectionMode(ExtendedSelection);
    setVerticalScrollMode(ScrollPerPixel);
    setHorizontalScrollMode(ScrollPerPixel);
    setWordWrap(false);
    viewport()->setMouseTracking(true);
    // One height for all rows: nothing is measured, however many there are.
    verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    connect(verticalScrollBar(), &QScrollBar::valueChanged, this, &KXTableView::rememberTopRow);

    auto *const header = new KXThemeableTableHeaderView(Qt::Horizontal);
    setHorizontalHeader(header);
    // Looks, and where the header's texts stand above the cells', are the theme's as soon as there is one.
    setThemeStyleName(QString(KXTableStyles));
    header->setThemeStyleName(QString(KXTableHeaderStyles));
    header->setSectionsMovable(true);
    header->setSortIndicatorShown(true);
    header->setSortIndicator(-1, Qt::AscendingOrder);
    header->setContextMenuPolicy(Qt::CustomContextMenu);
    connect(header, &QHeaderView::sectionCountChanged, this, [this] {
        arrange(*m_layout); // columns that the model had no more for a while come back to their places
        loadColumnPresets();
    });
    connect(header, &QHeaderView::sectionMoved, this, [this] {
        if (!m_arranging)
            saveColumnPresets();
    });
    connect(header, &QHeaderView::sectionResized, this, &KXTableView::columnWasResized);
    connect(header, &QHeaderView::sortIndicatorChanged, this, &KXTableView::sortIndicatorWasChanged);
    connect(header, &QWidget::customContextMenuRequested, this,
        [this, header](const QPoint &position) { columnsMenu()->popup(header->viewport()->mapToGlobal(position)); });

    connect(qApp, &QGuiApplication::applicationStateChanged, this, [this](Qt::ApplicationState state) {
        if (state != Qt::ApplicationActive && window()->isVisible())
            saveSortOptions();
    });
    connect(qApp, &QCoreApplication::aboutToQuit, this, &KXTableView::saveSortOptions);
}

KXTableView::~KXTableView() { saveSortOptions(); }

void KXTableView::setModel(QAbstractItemModel *model)
{
    m_topRow = m_trackedCell = m_clickedCell = QModelIndex();
    KXThemeableTableView::setModel(model);
    if (model && !m_sortDescriptors.isEmpty())
        sortRows(m_sortDescriptors);
    showSortIndicator();
}

// Pointer and menu

bool KXTableView::maySelect(int row) const
{
    auto *const self = const_cast<KXTableView *>(this);
    return !m_delegate || (!m_delegate->isGroupRow(self, row) && m_delegate->shouldSelectRow(self, row));
}

QItemSelectionModel::SelectionFlags KXTableView::selectionCommand(const QModelIndex &index, const QEvent *event) const
{
    if (index.isValid() && !maySelect(index.row()))
        return QItemSelectionModel::NoUpdate;
    const auto *const key
        = event && event->type() == QEvent::KeyPress ? static_cast<const QKeyEvent *>(event) : nullptr;
    if (key && (key->key() == Qt::Key_Home || key->key() == Qt::Key_End) && selectionBehavior() == SelectRows) {
        const QKeyEvent plain(
            QEvent::KeyPress, key->key(), key->modifiers() & ~Qt::KeyboardModifiers(Qt::ControlModifier));
        return KXThemeableTableView::selectionCommand(index, &plain); // a current row that is not selected is not seen
    }
    return KXThemeableTableView::selectionCommand(index, event);
}

QModelIndex KXTableView::moveCursor(CursorAction action, Qt::KeyboardModifiers modifiers)
{
    const bool isHome = action == MoveHome;
    if ((!isHome && action != MoveEnd) || selectionBehavior() != SelectRows || !model())
        return KXThemeableTableView::moveCursor(action, modifiers);
    const int step = isHome ? 1 : -1;
    int row = isHome ? 0 : model()->rowCount() - 1;
    while (row >= 0 && row < model()->rowCount() && isRowHidden(row))
        row += step;
    const int column = currentIndex().isValid() ? currentIndex().column() : horizontalHeader()->logicalIndexAt(0);
    return model()->index(row, std::max(0, column));
}

bool KXTableView::edit(const QModelIndex &index, EditTrigger trigger, QEvent *event)
{
    const bool begins = KXThemeableTableView::edit(index, trigger, event);
    QWidget *const editor = begins ? indexWidget(index) : nullptr;
    if (editor)
        m_editedCell = index;
    if (editor && editor->accessibleName().isEmpty())
        editor->setAccessibleName(model()->headerData(index.column(), Qt::Horizontal).toString());
    return begins;
}

QMenu *KXTableView::menuForEvent(const QContextMenuEvent *event)
{
    const QModelIndex cell = event->reason() == QContextMenuEvent::Keyboard ? currentIndex() : indexAt(event->pos());
    m_clickedCell = cell;
    if (cell.isValid() && selectionMode() != NoSelection && !selectionModel()->isSelected(cell)
        && maySelect(cell.row())) {
        selectionModel()->setCurrentIndex(cell, QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
        setFocus(Qt::MouseFocusReason);
    }
    return m_menu;
}

void KXTableView::contextMenuEvent(QContextMenuEvent *event)
{
    const QPointer<QMenu> shown(menuForEvent(event));
    if (!shown) {
        event->ignore();
        return;
    }
    const bool byKey = event->reason() == QContextMenuEvent::Keyboard && m_clickedCell.isValid();
    shown->popup(byKey ? viewport()->mapToGlobal(visualRect(m_clickedCell).center()) : event->globalPos());
}

/// Null for a mouse that has gone.
void KXTableView::track(const QPoint *position)
{
    const QModelIndex cell = position && viewport()->rect().contains(*position) ? indexAt(*position) : QModelIndex();
    if (cell == m_trackedCell)
        return;
    const auto update = [this](const QModelIndex &index) {
        if (index.isValid())
            viewport()->update(0, rowViewportPosition(index.row()), viewport()->width(), rowHeight(index.row()));
    };
    update(m_trackedCell);
    m_trackedCell = cell;
    update(cell);
    Q_EMIT trackedCellChanged();
}

bool KXTableView::viewportEvent(QEvent *event)
{
    if (event->type() == QEvent::MouseMove || event->type() == QEvent::MouseButtonPress) {
        const QPoint position = static_cast<QMouseEvent *>(event)->position().toPoint();
        track(&position);
    } else if (event->type() == QEvent::Leave || event->type() == QEvent::Hide) {
        track(nullptr);
    } else if (event->type() == QEvent::FontChange) {
        m_text.reset();
    }
    return KXThemeableTableView::viewportEvent(event);
}

void KXTableView::commitOpenEditor()
{
    // Not asked of state(), which forgets the editor where other rows go.
    QWidget *const editor = m_editedCell.isValid() ? indexWidget(m_editedCell) : nullptr;
    if (!editor)
        return;
    commitData(editor);
    closeEditor(editor, QAbstractItemDelegate::NoHint);
}

// Scrolling

void KXTableView::scrollContentsBy(int dx, int dy)
{
    KXThemeableTableView::scrollContentsBy(dx, dy);
    if (m_trackedCell.isValid()) {
        const QPoint position = viewport()->mapFromGlobal(QCursor::pos());
        track(&position);
    }
}

void KXTableView::rememberTopRow()
{
    if (m_isLayingOut || !model())
        return;
    const int row = verticalScrollBar()->value() > 0 ? rowAt(0) : -1;
    m_topRow = row < 0 ? QModelIndex() : model()->index(row, 0);
    m_topOffset = row < 0 ? 0 : -rowViewportPosition(row);
}

void KXTableView::updateGeometries()
{
    const QScopedValueRollback guard(m_isLayingOut, true);
    KXThemeableTableView::updateGeometries();
    if (m_topRow.isValid())
        verticalScrollBar()->setValue(verticalHeader()->sectionPosition(m_topRow.row()) + m_topOffset);
}
