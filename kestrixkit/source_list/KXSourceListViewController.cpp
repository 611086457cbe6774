// Rows, drops and keys. What is remembered is in KXSourceListState.cpp, what changes the tree in
// KXSourceListStructure.cpp.

#include <kestrixkit/source_list/KXSourceListViewController.h>

#include <algorithm>

#include <QKeyEvent>
#include <QLocale>
#include <QMimeData>

#include <kestrixkit/foundation/KXClock.h>
#include <kestrixkit/foundation/KXStringWithFormat.h>
#include <kestrixkit/source_list/KXSourceListBadgeObserver_p.h>
#include <kestrixkit/source_list/KXSourceListItemController.h>
#include <kestrixkit/source_list/KXSourceListPasteboard_p.h>

using namespace Qt::StringLiterals;

using Object = KXManagedObject;

KXSourceListViewControllerDelegate::~KXSourceListViewControllerDelegate() = default;
void KXSourceListViewControllerDelegate::itemWasSelected(KXSourceListViewController &, KXSourceListItem *) { }
void KXSourceListViewControllerDelegate::didRepositionItems(
    KXSourceListViewController &, const QList<KXSourceListItem *> &)
{
}
void KXSourceListViewControllerDelegate::willDisplayCellView(
    KXSourceListViewController &, KXSourceListCell &, KXSourceListItem *)
{
}
void KXSourceListViewControllerDelegate::didEndEditingItem(KXSourceListViewController &, KXSourceListItem *) { }

KXSourceListViewController::KXSourceListViewController(QObject *parent)
    : KXViewController(parent)
    , m_badges(std::make_unique<KXSourceListBadgeObserver>([this] {
        if (m_view)
            m_view->viewport()->update();
    }))
{
}

KXSourceListViewController::~KXSourceListViewController()
{
    saveState();
    setTreeController(nullptr);
    if (m_view)
        m_view->setDelegate(nullptr);
}

KXSourceListView *KXSourceListViewController::sourceListView()
{
    Q_UNUSED(view()) // which loads it
    return m_view;
}

void KXSourceListViewController::loadView()
{
    KXInterfaceLoader::shared().registerWidgetOnce<KXSourceListView>();
    KXViewController::loadView();
}

void KXSourceListViewController::viewDidLoad()
{
    m_view = outlet<KXSourceListView>(u"sourceListView"_s);
    if (!m_view)
        return;
    m_view->setDelegate(this);
    m_view->setTreeController(m_tree);
    connect(m_view, &QTreeView::expanded, this, [this](const QModelIndex &row) { rowDidExpand(row, true); });
    connect(m_view, &QTreeView::collapsed, this, [this](const QModelIndex &row) { rowDidExpand(row, false); });
    restoreStateLater();
}

void KXSourceListViewController::setTreeController(KXTreeController *tree)
{
    if (tree == m_tree)
        return;
    saveState(); // what is due is of the tree before
    m_isRestored = false;
    if (m_tree) {
        m_tree->setRowData({});
        m_tree->disconnect(this);
    }
    m_badges->followNone();
    m_tree = tree;
    if (m_tree) {
        m_tree->setRowData([this](const KXTreeNode &node, int role) { return rowData(node, role); });
        connect(m_tree, &KXTreeController::selectionChanged, this, &KXSourceListViewController::selectionDidChange);
        connect(m_tree, &QAbstractItemModel::rowsInserted, this, &KXSourceListViewController::rowsDidChange);
        connect(m_tree, &QAbstractItemModel::rowsMoved, this, &KXSourceListViewController::rowsDidChange);
        connect(m_tree, &QAbstractItemModel::rowsRemoved, this, [this] {
            m_badges->followNone(); // deleted objects are not to be kept by being observed
            rowsDidChange();
        });
    }
    if (m_view)
        m_view->setTreeController(m_tree);
    restoreStateLater();
}

void KXSourceListViewController::setCountsContextIdentifier(const QString &identifier)
{
    m_countsContextIdentifier = identifier;
    if (m_view)
        m_view->viewport()->update();
}

const KXTreeNode *KXSourceListViewController::nodeOf(const KXSourceListItem *item) const
{
    return m_tree ? m_tree->treeNodeForObject(dynamic_cast<const Object *>(item)) : nullptr;
}

KXSourceListItem *KXSourceListViewController::itemForRow(const QModelIndex &row) const
{
    const KXTreeNode *const node = m_tree ? m_tree->nodeForIndex(row) : nullptr;
    return node ? itemOf(node->representedObject()) : nullptr;
}

// What rows show

QVariant KXSourceListViewController::rowData(const KXTreeNode &node, int role)
{
    switch (role) {
    case KXSourceListView::CellRole:
        return QVariant::fromValue(cellForNode(node));
    case KXSourceListView::GroupRole: {
        const KXSourceListItem *const item = itemOf(node.representedObject());
        return item && item->isGroup();
    }
    case Qt::ToolTipRole: {
        const KXSourceListCell cell = cellForNode(node);
        const QString text = cell.toolTip.isEmpty() ? cell.title : cell.toolTip;
        // Exactly, whatever the badge says.
        return cell.count > 0 ? text + u'\n' + countText(node, KXClock::locale().toString(cell.count)) : text;
    }
    case Qt::AccessibleTextRole: {
        const KXSourceListCell cell = cellForNode(node);
        return cell.count > 0 ? countText(node, KXStringWithFormat("%@, %lld", cell.title, cell.count)) : cell.title;
    }
    case Qt::CheckStateRole: {
        const KXSourceListCell cell = cellForNode(node);
        return cell.isChecked ? QVariant(*cell.isChecked ? Qt::Checked : Qt::Unchecked) : QVariant();
    }
    case Qt::AccessibleDescriptionRole:
        return cellForNode(node).toolTip;
    default:
        return {};
    }
}

KXSourceListCell KXSourceListViewController::cellForNode(const KXTreeNode &node)
{
    KXSourceListCell cell;
    KXSourceListItem *const item = itemOf(node.representedObject());
    if (!item)
        return cell;
    cell.title = item->title();
    cell.image = item->image();
    cell.isEditable = item->isEditable();
    cell.isExpandable = item->isExpandable();
    cell.isGroup = item->isGroup();
    cell.count = countForNode(node);
    cell.inProgress = item->inProgress();
    m_badges->follow(*item, node.representedObject().get());
    if (KXSourceListViewControllerDelegate *const told = delegate())
        told->willDisplayCellView(*this, cell, item);
    return cell;
}

/// With its age, where it has one.
QString KXSourceListViewController::countText(const KXTreeNode &node, const QString &count) const
{
    const KXSourceListItem *const item = itemOf(node.representedObject());
    const QString note = item ? item->countNoteForContextIdentifier(m_countsContextIdentifier) : QString();
    return note.isEmpty() ? count : count + u", "_s + note;
}

qint64 KXSourceListViewController::countForNode(const KXTreeNode &node) const
{
    const KXSourceListItem *const item = itemOf(node.representedObject());
    if (!item)
        return 0;
    if (const std::optional<qint64> count = item->countForContextIdentifier(m_countsContextIdentifier))
        return *count;
    // The sum of what it holds; the tree knows that without a look into the store.
    qint64 sum = 0;
    for (int i = 0; i < node.childCount(); ++i)
        sum += countForNode(*node.childAt(i));
    return sum;
}

// Dragging

QMimeData *KXSourceListViewController::mimeDataForRows(KXSourceListView &, const QModelIndexList &rows)
{
    return m_tree ? KXSourceListPasteboard::mimeDataForRows(*m_tree, rows) : nullptr;
}

QList<KXRef<Object>> KXSourceListViewController::objectsOfMimeData(const QMimeData &data) const
{
    return m_tree ? KXSourceListPasteboard::objectsOfMimeData(*m_tree, data) : QList<KXRef<Object>>();
}

KXSourceListDropRules::Question KXSourceListViewController::questionForDrop(
    const KXSourceListDrop &drop, const QList<KXRef<Object>> &dragged) const
{
    KXSourceListDropRules::Question question;
    question.allowed = drop.allowed;
    question.childIndex = drop.childIndex;
    question.height = drop.height;
    const KXSourceListItem *const target = itemForRow(drop.item);
    question.hasTarget = target;
    question.targetHasParent = drop.item.parent().isValid();
    question.targetIndex = drop.item.row();
    question.targetCanBeParent = target;
    question.canBeDuplicated = true;
    for (const KXRef<Object> &object : dragged) {
        const KXSourceListItem *const item = itemOf(object);
        question.canBeDuplicated &= item->canBeDuplicated();
        question.isRefused |= !item->canBeChildForItem(target);
        if (target) {
            question.targetCanBeParent &= target->canBeParentForItem(item);
            question.targetIsInside |= target == item || target->isDescendantOfItem(item);
        }
    }
    const KXTreeNode *const first = m_tree->treeNodeForObject(dragged.first().get());
    const KXTreeNode *const below = m_tree->nodeForIndex(drop.item);
    question.targetIsBelow = below && first && first->indexPath() < below->indexPath();
    return question;
}

KXSourceListDropTarget KXSourceListViewController::validateDrop(KXSourceListView &view, const KXSourceListDrop &drop)
{
    if (!m_tree || !drop.data)
        return {};
    if (!drop.data->hasFormat(KXSourceListItemPasteboardType)) {
        KXSourceListItem *const item = itemForRow(drop.item);
        KXSourceListItemController *const controller = item ? item->controller() : nullptr;
        if (!controller)
            return {};
        return { controller->validateDrop(view, *drop.data, drop.allowed, item, drop.childIndex), drop.item,
            drop.childIndex };
    }
    const QList<KXRef<Object>> dragged = objectsOfMimeData(*drop.data);
    if (dragged.isEmpty())
        return {};
    const auto answer = KXSourceListDropRules::decide(questionForDrop(drop, dragged));
    return { answer.operation, answer.intoTarget ? drop.item : QModelIndex(), answer.childIndex };
}

bool KXSourceListViewController::acceptDrop(
    KXSourceListView &view, const KXSourceListDrop &drop, const KXSourceListDropTarget &target)
{
    if (!m_tree || !drop.data)
        return false;
    if (!drop.data->hasFormat(KXSourceListItemPasteboardType)) {
        KXSourceListItem *const item = itemForRow(target.item);
        KXSourceListItemController *const controller = item ? item->controller() : nullptr;
        return controller && controller->acceptDrop(view, *drop.data, item, target.childIndex);
    }
    const KXTreeNode *const parent = target.item.isValid() ? m_tree->nodeForIndex(target.item) : m_tree->rootNode();
    const QList<KXRef<Object>> dragged = objectsOfMimeData(*drop.data);
    if (!parent || dragged.isEmpty())
        return false;
    const KXIndexPath path = parent->indexPath() + KXIndexPath { std::max(target.childIndex, 0) };
    return target.operation == Qt::CopyAction ? copyItems(dragged, path) : moveItems(dragged, path);
}

// Keys, menus, titles

bool KXSourceListViewController::didReceiveKeyDownEvent(KXSourceListView &view, QKeyEvent &event)
{
    KXSourceListItem *const item = selectedItem();
    KXSourceListItemController *const controller = item ? item->controller() : nullptr;
    if (controller && controller->didReceiveKeyDownEvent(view, event))
        return true;
    if (!KXSourceListView::isMovingKey(event))
        return false;
    Qt::ArrowType direction = event.key() == Qt::Key_Up ? Qt::UpArrow
        : event.key() == Qt::Key_Down                   ? Qt::DownArrow
        : event.key() == Qt::Key_Left                   ? Qt::LeftArrow
                                                        : Qt::RightArrow;
    if (view.isRightToLeft() && event.key() == Qt::Key_Left)
        direction = Qt::RightArrow;
    else if (view.isRightToLeft() && event.key() == Qt::Key_Right)
        direction = Qt::LeftArrow;
    moveSelectedItems(direction);
    return true;
}

QMenu *KXSourceListViewController::contextMenuForRow(KXSourceListView &view, const QModelIndex &row)
{
    KXSourceListItem *const item = itemForRow(row);
    KXSourceListItemController *const controller = item ? item->controller() : nullptr;
    return controller ? controller->contextMenuForItem(view, item) : nullptr;
}

void KXSourceListViewController::setTitle(KXSourceListView &, const QModelIndex &row, const QString &title)
{
    const QString simple = title.simplified();
    const QPersistentModelIndex place(row);
    // Something without a title could not be found again.
    if (!simple.isEmpty() && simple != row.data(Qt::EditRole).toString())
        perform(KXLocalizedString("Rename"), [&] { return m_tree->setData(place, simple); });
}

void KXSourceListViewController::didEndEditing(KXSourceListView &, const QModelIndex &row)
{
    KXSourceListViewControllerDelegate *const told = delegate();
    if (KXSourceListItem *const item = told ? itemForRow(row) : nullptr)
        told->didEndEditingItem(*this, item);
}
