#include <kestrixkit/filter_ui/editors/KXFilterSetsViewController.h>

#include <QKeyEvent>

#include <kestrixkit/foundation/KXMainQueue.h>
#include <kestrixkit/foundation/KXStringWithFormat.h>
#include <kestrixkit/foundation/KXUndoManager.h>
#include <kestrixkit/source_list/KXSourceListView.h>
#include <kestrixkit/theme/controls/KXThemeableButton.h>
#include <kestrixkit/theme/controls/KXThemeableTextField.h>
#include <kestrixkit/toolkit/KXMenu.h>

using namespace Qt::StringLiterals;

namespace {

KXTreeRequest filterSetsRequest()
{
    KXTreeRequest request { .entityName = QString(KXFilter::entityName) };
    request.sortDescriptors = { { u"position"_s } };
    request.titleKeyPath = u"label"_s;
    return request;
}

bool filterSetsIsThere(const KXRef<KXFilter> &filter)
{
    return filter && !filter->isDeleted() && filter->managedObjectContext();
}

}

KXFilterSetsViewController::KXFilterSetsViewController(KXManagedObjectContext::Ref context, QObject *parent)
    : KXViewController(parent)
    , m_context(std::move(context))
    , m_tree(m_context ? new KXTreeController(m_context, filterSetsRequest(), this) : new KXTreeController(this))
    , m_sourceList(new KXSourceListViewController(this))
{
    setTitle(KXLocalizedString("Filters"));
    m_sourceList->setTreeController(m_tree);
    m_sourceList->setDelegate(this);
    m_changes = KXNotificationCenter::defaultCenter().addObserver(
        QString(KXManagedObjectContextObjectsDidChangeNotification), m_context.get(), [this](const KXNotification &) {
            if (m_editedFilter && !filterSetsIsThere(m_editedFilter))
                closeFilterPopover();
            if (m_sourceList->isViewLoaded()) // labels and check boxes
                m_sourceList->sourceListView()->viewport()->update();
        });
}

KXFilterSetsViewController::~KXFilterSetsViewController()
{
    m_sourceList->saveState(); // while it has its tree and its view
    m_changes = {};
    m_popover.reset();
    m_sourceList->setDelegate(nullptr);
}

KXThemeableTextField *KXFilterSetsViewController::searchField() const { return m_searchField; }
KXThemeableButton *KXFilterSetsViewController::addFilterButton() const { return m_addFilterButton; }
void KXFilterSetsViewController::addFilterMenuItems(KXMenu &) { }
std::unique_ptr<KXViewController> KXFilterSetsViewController::filterViewControllerForFilter(const KXRef<KXFilter> &)
{
    return nullptr;
}

QList<KXRef<KXFilter>> KXFilterSetsViewController::selectedFilters() const
{
    QList<KXRef<KXFilter>> filters;
    for (const KXRef<KXManagedObject> &object : m_tree->selectedObjects()) {
        if (const auto filter = KXFilter::cast(object))
            filters.append(filter);
    }
    return filters;
}

void KXFilterSetsViewController::viewDidLoad()
{
    m_searchField = outlet<KXThemeableTextField>(u"searchField"_s);
    m_addFilterButton = outlet<KXThemeableButton>(u"addFilterButton"_s);
    if (QWidget *const container = outlet<QWidget>(u"sourceListContainerView"_s))
        m_sourceList->appearIn(container);
    KXSourceListView *const list = m_sourceList->sourceListView();
    list->setAccessibleName(KXLocalizedString("Filters"));
    list->setPlaceholderText(KXLocalizedString("No filters"));
    list->setExpandsOnDoubleClick(false);
    list->installEventFilter(this);
    connect(list, &QTreeView::doubleClicked, this, &KXFilterSetsViewController::doubleClick);
    connect(list, &KXSourceListView::checkBoxClicked, this, &KXFilterSetsViewController::enabledStateChanged);
    connect(list, &KXSourceListView::deletePressed, this, &KXFilterSetsViewController::deleteFilter);
    m_contextMenu = new KXMenu(list);
    m_contextMenu->setUpdater([this](KXMenu &menu) { menuNeedsUpdate(menu); });
    list->setContextMenu(m_contextMenu);
    if (m_addFilterButton) {
        m_addMenu = new KXMenu(m_addFilterButton);
        m_addMenu->setAccessibleName(KXLocalizedString("Add"));
        m_addMenu->setUpdater([this](KXMenu &menu) { menuNeedsUpdate(menu); });
        m_addFilterButton->setMenu(m_addMenu);
    }
    if (m_searchField)
        connect(m_searchField, &QLineEdit::textChanged, this, &KXFilterSetsViewController::search);
    KXMainQueue::async(this, [this] { restoreSourceListState(); });
}

void KXFilterSetsViewController::restoreSourceListState()
{
    m_sourceList->setAutosaveName(QString::fromLatin1(metaObject()->className()));
}

void KXFilterSetsViewController::search(const QString &text)
{
    KXTreeRequest request = filterSetsRequest();
    if (!text.trimmed().isEmpty())
        request.rootPredicate
            = KXPredicate::predicateWithFormat("parent == nil AND name CONTAINS[cd] %@", text.trimmed());
    m_tree->setRequest(m_context, request);
}

void KXFilterSetsViewController::willDisplayCellView(
    KXSourceListViewController &, KXSourceListCell &cell, KXSourceListItem *item)
{
    if (const auto *const filter = dynamic_cast<const KXFilter *>(item)) {
        cell.isChecked = filter->enabled();
        if (cell.title.isEmpty())
            cell.title = filter->name().value_or(KXLocalizedString("Filter"));
    }
}

// Editing

void KXFilterSetsViewController::closeFilterPopover()
{
    if (m_popover)
        m_popover->close();
}

void KXFilterSetsViewController::showFilter(const KXRef<KXFilter> &given)
{
    // NOLINTNEXTLINE(performance-unnecessary-copy-initialization): whoever gave it may end
    const KXRef<KXFilter> filter = given;
    if (!filterSetsIsThere(filter) || !isViewLoaded())
        return;
    closeFilterPopover();
    m_sourceList->selectItem(filter.get());
    KXSourceListView *const list = m_sourceList->sourceListView();
    const QModelIndex row = m_tree->indexForNode(m_tree->treeNodeForObject(filter.get()));
    list->scrollTo(row);
    auto editor = row.isValid() ? filterViewControllerForFilter(filter) : nullptr;
    if (!editor)
        return;
    KXViewController *const content = editor.release();
    m_popover = std::make_unique<KXPopoverController>(content);
    content->setParent(m_popover.get());
    m_editedFilter = filter;
    m_popover->setCloseAction([this] {
        m_editedFilter = {};
        if (KXPopoverController *const ended = m_popover.release())
            ended->deleteLater();
    });
    m_popover->showRelativeTo(list->viewport(), list->visualRect(row), Qt::RightEdge);
}

void KXFilterSetsViewController::insertFilter(const KXRef<KXFilter> &filter)
{
    if (!m_context || !filterSetsIsThere(filter))
        return;
    const KXRef<KXFilter> above = selectedFilter();
    if (filterSetsIsThere(above) && above != filter) {
        filter->setPosition(above->children().size());
        filter->setParent(above);
    } else {
        const auto atTop = KXPredicate::predicateWithFormat("parent == nil AND SELF != %@", KXVariantFromRef(filter));
        filter->setPosition(m_context->countForEntity(m_tree->request().entityName, atTop));
    }
    m_context->processPendingChanges(); // the tree has its row by then
    showFilter(filter);
}

void KXFilterSetsViewController::deleteFilter()
{
    const QList<KXRef<KXFilter>> filters = selectedFilters();
    if (!m_context || filters.isEmpty())
        return;
    closeFilterPopover();
    m_context->processPendingChanges();
    {
        const KXUndoGroup group(m_context->undoManager(), KXLocalizedString("Delete Filters"));
        for (const KXRef<KXFilter> &filter : filters) {
            if (filterSetsIsThere(filter)) // one above may have taken it along
                m_context->removeManagedObject(filter);
        }
    }
    m_context->save();
}

void KXFilterSetsViewController::enabledStateChanged(const QModelIndex &row)
{
    const KXTreeNode *const node = m_tree->nodeForIndex(row);
    const auto filter = node ? KXFilter::cast(node->representedObject()) : KXRef<KXFilter>();
    if (!m_context || !filterSetsIsThere(filter))
        return;
    const KXUndoRegistrationOff unrecorded(m_context->undoManager());
    filter->setEnabled(!filter->enabled());
    m_context->save();
}

void KXFilterSetsViewController::menuNeedsUpdate(KXMenu &menu)
{
    if (&menu == m_addMenu) {
        menu.clear();
        addFilterMenuItems(menu);
    } else if (&menu == m_contextMenu) {
        menu.clear();
        menu.addItem(
            KXLocalizedString("Delete"), this, [this] { deleteFilter(); },
            [this] { return !selectedFilters().isEmpty(); });
        menu.addSeparator();
        auto *const add = new KXMenu(KXLocalizedString("Add"), &menu);
        addFilterMenuItems(*add);
        menu.addMenu(add);
    }
}

bool KXFilterSetsViewController::eventFilter(QObject *object, QEvent *event)
{
    const auto *const list = qobject_cast<KXSourceListView *>(object);
    if (list && event->type() == QEvent::KeyPress && !list->isEditing()) {
        const int key = static_cast<QKeyEvent *>(event)->key();
        if (key == Qt::Key_Return || key == Qt::Key_Enter) {
            doubleClick();
            return true;
        }
    }
    return KXViewController::eventFilter(object, event);
}
