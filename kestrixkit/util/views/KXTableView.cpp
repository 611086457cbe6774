#include <kestrixkit/util/views/KXTableView.h>

#include <cmath>

#include <QApplication>
#include <QContextMenuEvent>
#include <QScopedValueRollback>
#include <QScrollBar>

#include <kestrixkit/foundation/KXLog.h>
#include <kestrixkit/foundation/KXStringWithFormat.h>
#include <kestrixkit/foundation/KXUserDefaults.h>
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

// Columns

void KXTableView::setTableColumns(const QList<KXTableColumn> &columns)
{
    m_columns = columns;
    arrange(defaultLayout());
    loadColumnPresets();
    showSortIndicator();
}

int KXTableView::columnWithIdentifier(const QString &identifier) const
{
    const auto found = std::find_if(m_columns.begin(), m_columns.end(),
        [&](const KXTableColumn &column) { return column.identifier == identifier; });
    return found == m_columns.end() ? -1 : int(found - m_columns.begin());
}

KXTableLayout KXTableView::defaultLayout() const
{
    KXTableLayout layout;
    for (const KXTableColumn &column : m_columns)
        layout.columns.append({ column.identifier, column.width, column.hidden, int(layout.columns.size()) });
    return layout;
}

/// Of all columns, those that the model lacks at present included: they keep their places among the others.
KXTableLayout KXTableView::layoutOfColumns() const
{
    const QHeaderView *const header = horizontalHeader();
    QList<KXTableLayout::Column> shown(m_layout->columns.size());
    for (const KXTableLayout::Column &column : m_layout->columns)
        shown[column.number] = column;
    KXTableLayout layout = *m_layout;
    int visual = 0;
    for (KXTableLayout::Column &place : layout.columns) {
        if (place.number >= header->count())
            continue;
        int column = header->logicalIndex(visual++);
        while (column >= shown.size()) // the model has more than the table knows of
            column = header->logicalIndex(visual++);
        place = shown[column];
        place.hidden = header->isSectionHidden(column);
    }
    return layout;
}

void KXTableView::arrange(const KXTableLayout &layout)
{
    const QScopedValueRollback guard(m_arranging, true);
    *m_layout = layout;
    QHeaderView *const header = horizontalHeader();
    int visual = 0;
    for (const KXTableLayout::Column &column : layout.columns) {
        if (column.number >= header->count())
            continue;
        header->moveSection(header->visualIndex(column.number), visual++);
        header->setSectionHidden(column.number, column.hidden);
        header->resizeSection(column.number, int(std::lround(column.width)));
    }
    // A header without columns could not be opened to bring one back.
    if (visual > 0 && header->hiddenSectionCount() == header->count())
        header->setSectionHidden(header->logicalIndex(0), false);
}

void KXTableView::resetColumns()
{
    arrange(defaultLayout());
    saveColumnPresets();
}

void KXTableView::setColumnShown(const QString &identifier, bool shown)
{
    const int column = columnWithIdentifier(identifier);
    const QHeaderView *const header = horizontalHeader();
    if (column < 0 || column >= header->count() || header->isSectionHidden(column) != shown)
        return;
    if (!shown && header->hiddenSectionCount() >= header->count() - 1)
        return;
    {
        const QScopedValueRollback guard(m_arranging, true);
        setColumnHidden(column, !shown);
    }
    saveColumnPresets();
}

void KXTableView::columnWasResized(int column, int oldWidth, int width)
{
    if (m_arranging || column >= m_columns.size())
        return;
    if (oldWidth == 0 || width == 0) {
        // Somebody hides or shows it, and has not finished doing so.
        if (!std::exchange(m_saveDue, true))
            QMetaObject::invokeMethod(this, &KXTableView::saveColumnPresets, Qt::QueuedConnection);
        return;
    }
    const QHeaderView *const header = horizontalHeader();
    int last = header->count() - 1;
    while (last > 0 && header->isSectionHidden(header->logicalIndex(last)))
        --last;
    if (header->stretchLastSection() && header->visualIndex(column) == last)
        return; // the window's doing, not the user's
    for (KXTableLayout::Column &resized : m_layout->columns) {
        if (resized.number == column)
            resized.width = width; // the header answers 0 for hidden columns
    }
    saveColumnPresets();
}

QMenu *KXTableView::columnsMenu()
{
    if (m_columnsMenu)
        return m_columnsMenu;
    m_sortMenu = new QMenu(KXLocalizedString("Sort By"), this);
    m_sortMenu->setAccessibleName(m_sortMenu->title());
    m_columnsMenu = new KXMenu(KXLocalizedString("Columns"), this);
    m_columnsMenu->setAccessibleName(m_columnsMenu->title());
    m_columnsMenu->setUpdater([this](KXMenu &menu) { fillColumnsMenu(menu); });
    m_columnsMenu->validate();
    return m_columnsMenu;
}

void KXTableView::fillColumnsMenu(KXMenu &menu)
{
    m_sortMenu->clear();
    menu.addMenu(m_sortMenu);
    const auto title = [this](int column) { return model()->headerData(column, Qt::Horizontal).toString(); };
    for (const KXTableLayout::Column &shown : layoutOfColumns().columns) {
        if (shown.number >= horizontalHeader()->count())
            continue;
        const KXTableColumn &column = m_columns[shown.number];
        QAction *const show = menu.addItem(
            title(shown.number), this,
            [this, column, hidden = shown.hidden] { setColumnShown(column.identifier, hidden); },
            [this, hidden = shown.hidden] {
                return hidden || horizontalHeader()->hiddenSectionCount() < horizontalHeader()->count() - 1;
            });
        show->setCheckable(true);
        show->setChecked(!shown.hidden);
        if (column.sortDescriptorPrototype.key.isEmpty())
            continue;
        const bool isFirst
            = !m_sortDescriptors.isEmpty() && m_sortDescriptors.first().key == column.sortDescriptorPrototype.key;
        QAction *const sort = m_sortMenu->addAction(title(shown.number), this, [this, column, isFirst] {
            KXSortDescriptor descriptor = column.sortDescriptorPrototype;
            if (isFirst && !m_sortDescriptors.isEmpty()) // once more turns it round
                descriptor.ascending = !m_sortDescriptors.first().ascending;
            setSortDescriptors({ descriptor });
        });
        sort->setCheckable(true);
        sort->setChecked(isFirst);
    }
    m_sortMenu->setEnabled(!m_sortMenu->isEmpty());
    menu.addSeparator();
    menu.addItem(KXLocalizedString("Default Columns"), this, [this] { resetColumns(); });
}

// Presets

void KXTableView::setColumnPresetsName(const QString &name)
{
    if (name == m_columnPresetsName)
        return;
    m_presetsToken.reset();
    m_columnPresetsName = name;
    if (name.isEmpty())
        return;
    m_presetsToken = KXNotificationCenter::defaultCenter().addObserver(KXTableViewColumnPresetsDidChangeNotification,
        KXNotificationCenter::anySender(),
        [this](const KXNotification &notification) { columnPresetsDidChange(notification); });
    loadColumnPresets();
}

void KXTableView::columnPresetsDidChange(const KXNotification &notification)
{
    const auto *const name = notification.payloadAs<QString>();
    if (name && *name == m_columnPresetsName && notification.sender != KXNotificationSender(this))
        loadColumnPresets();
}

QVariantMap KXTableView::columnPresetDictionary(const QString &identifier) const
{
    const KXTableLayout layout = layoutOfColumns();
    for (qsizetype i = 0; i < layout.columns.size(); ++i) {
        if (layout.columns[i].identifier == identifier)
            return KXTableLayout::preset(layout.columns[i], i);
    }
    return {};
}

void KXTableView::saveColumnPresets()
{
    m_saveDue = false;
    *m_layout = layoutOfColumns();
    if (m_columnPresetsName.isEmpty() || m_layout->columns.isEmpty() || horizontalHeader()->count() == 0)
        return;
    QVariantList presets = m_layout->presets();
    if (m_delegate)
        presets = m_delegate->willSaveColumnPresets(this, presets);
    if (KXUserDefaults::standard().setValue(m_columnPresetsName, presets))
        KXNotificationCenter::defaultCenter().post(
            KXTableViewColumnPresetsDidChangeNotification, this, m_columnPresetsName);
}

void KXTableView::loadColumnPresets()
{
    KXTableLayout layout = layoutOfColumns();
    if (m_columnPresetsName.isEmpty() || layout.columns.isEmpty() || horizontalHeader()->count() == 0)
        return;
    const auto stored = KXUserDefaults::standard().arrayForKey(m_columnPresetsName);
    if (!stored) {
        if (KXUserDefaults::standard().valueForKey(m_columnPresetsName).isValid())
            KXLogWarning(util, "The user default \"%@\" is no list of columns", m_columnPresetsName);
        return;
    }
    const QList<KXSortDescriptor> sorted = m_sortDescriptors;
    if (!layout.apply(m_delegate ? m_delegate->willLoadColumnPresets(this, *stored) : *stored)) {
        KXLogWarning(util, "The user default \"%@\" names no column of the table", m_columnPresetsName);
        return;
    }
    arrange(layout);
    if (!sorted.isEmpty())
        setSortDescriptors(sorted);
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
    QWidget *const editor = state() == EditingState ? indexWidget(currentIndex()) : nullptr;
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
