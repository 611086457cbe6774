// Which columns a table has, where they are, and how that is remembered.

#include <kestrixkit/util/views/KXTableView.h>

#include <algorithm>
#include <cmath>

#include <QHeaderView>
#include <QScopedValueRollback>

#include <kestrixkit/foundation/KXLog.h>
#include <kestrixkit/foundation/KXStringWithFormat.h>
#include <kestrixkit/foundation/KXUserDefaults.h>
#include <kestrixkit/toolkit/KXMenu.h>
#include <kestrixkit/util/views/KXTableLayout_p.h>

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
            QMetaObject::invokeMethod(this, &KXTableView::saveDueColumnPresets, Qt::QueuedConnection);
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
    saveDueColumnPresets(); // under the name that they were changed under
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

void KXTableView::saveDueColumnPresets()
{
    if (m_saveDue)
        saveColumnPresets();
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
