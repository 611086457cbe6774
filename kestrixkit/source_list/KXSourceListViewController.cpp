// Rows, drops and edits. What is remembered is in KXSourceListState.cpp.

#include <kestrixkit/source_list/KXSourceListViewController.h>

#include <algorithm>

#include <QKeyEvent>
#include <QLocale>
#include <QMimeData>

#include <kestrixkit/foundation/KXClock.h>
#include <kestrixkit/foundation/KXObserver.h>
#include <kestrixkit/foundation/KXStringWithFormat.h>
#include <kestrixkit/foundation/KXUndoManager.h>
#include <kestrixkit/source_list/KXSourceListItemController.h>
#include <kestrixkit/toolkit/KXPasteboard.h>

using namespace Qt::StringLiterals;

using Object = KXManagedObject;

KXSourceListItemController::~KXSourceListItemController() = default;
Qt::DropAction KXSourceListItemController::validateDrop(
    KXSourceListView &, const QMimeData &, Qt::DropActions, KXSourceListItem *, int)
{
    return Qt::IgnoreAction;
}
bool KXSourceListItemController::acceptDrop(KXSourceListView &, const QMimeData &, KXSourceListItem *, int)
{
    return false;
}
QMenu *KXSourceListItemController::contextMenuForItem(KXSourceListView &, KXSourceListItem *) { return nullptr; }
bool KXSourceListItemController::didReceiveKeyDownEvent(KXSourceListView &, QKeyEvent &) { return false; }

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
    if (m_tree) {
        m_tree->setRowData({});
        m_tree->disconnect(this);
    }
    followNoCounts();
    m_tree = tree;
    if (m_tree) {
        m_tree->setRowData([this](const KXTreeNode &node, int role) { return rowData(node, role); });
        connect(m_tree, &KXTreeController::selectionChanged, this, &KXSourceListViewController::selectionDidChange);
        connect(m_tree, &QAbstractItemModel::rowsInserted, this, &KXSourceListViewController::rowsDidChange);
        connect(m_tree, &QAbstractItemModel::rowsMoved, this, &KXSourceListViewController::rowsDidChange);
        connect(m_tree, &QAbstractItemModel::rowsRemoved, this, [this] {
            followNoCounts(); // deleted objects are not to be kept by being observed
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
    followBadgeOf(*item, node.representedObject().get());
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

void KXSourceListViewController::followNoCounts()
{
    m_followed.clear();
    m_observers.clear();
    if (m_view)
        m_view->viewport()->update(); // what is in sight will be followed again
}

/// Rows out of sight need no telling: they are asked anew when they are painted.
void KXSourceListViewController::followBadgeOf(const KXSourceListItem &item, Object *object)
{
    constexpr size_t mostFollowed = 400; // a few screens full
    const QStringList keys = item.badgeKeys();
    if (keys.isEmpty())
        return;
    if (m_followed.size() >= mostFollowed)
        followNoCounts();
    if (!m_followed.insert(object->objectID().key()).second)
        return;
    for (const QString &key : keys)
        m_observers.push_back(KXObserver::observerFor(object, key, {}, [this](const KXKeyValueChange &) {
            if (m_view)
                m_view->viewport()->update();
        }));
}

// Dragging

QMimeData *KXSourceListViewController::mimeDataForRows(KXSourceListView &, const QModelIndexList &rows)
{
    std::vector<std::pair<KXIndexPath, const KXTreeNode *>> dragged;
    for (const QModelIndex &row : rows) {
        const KXTreeNode *const node = m_tree ? m_tree->nodeForIndex(row) : nullptr;
        const KXSourceListItem *const item = node ? itemOf(node->representedObject()) : nullptr;
        if (!item || !item->canBeRepositioned())
            return nullptr;
        dragged.emplace_back(node->indexPath(), node);
    }
    std::sort(dragged.begin(), dragged.end(), [](const auto &a, const auto &b) { return a.first < b.first; });
    QVariantList paths, uris;
    for (const auto &[path, node] : dragged) {
        paths.append(QVariant(QVariantList(path.begin(), path.end())));
        uris.append(node->representedObject()->objectID().URIRepresentation());
    }
    QMimeData *const data = KXPasteboard::mimeDataWithItems(KXSourceListItemPasteboardType, paths);
    const std::unique_ptr<QMimeData> objects(KXPasteboard::mimeDataWithItems(KXSourceListObjectPasteboardType, uris));
    data->setData(KXSourceListObjectPasteboardType, objects->data(KXSourceListObjectPasteboardType));
    return data;
}

QList<KXRef<Object>> KXSourceListViewController::objectsOfMimeData(const QMimeData &data) const
{
    QList<KXRef<Object>> objects;
    const KXManagedObjectContext::Ref context = m_tree ? m_tree->managedObjectContext() : nullptr;
    const QVariantList paths = KXPasteboard::itemsOfMimeData(&data, KXSourceListItemPasteboardType);
    if (!context || paths.isEmpty())
        return objects;
    if (data.hasFormat(KXSourceListObjectPasteboardType)) {
        QList<QUrl> uris;
        for (const QVariant &uri : KXPasteboard::itemsOfMimeData(&data, KXSourceListObjectPasteboardType))
            uris.append(uri.toUrl());
        objects = context->objectInstancesFromURIRepresentations(uris);
    } else {
        for (const QVariant &value : paths) {
            KXIndexPath path;
            for (const QVariant &row : value.toList())
                path.append(row.canConvert<int>() ? row.toInt() : -1);
            const KXTreeNode *const node = path.isEmpty() ? nullptr : m_tree->nodeAtIndexPath(path);
            objects.append(node ? node->representedObject() : KXRef<Object>());
        }
    }
    objects.removeIf([this](const KXRef<Object> &object) {
        return !object || !m_tree->treeNodeForObject(object.get()) || !itemOf(object);
    });
    return objects;
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

// Changing the tree

/// One step to undo, named and saved.
bool KXSourceListViewController::perform(const QString &actionName, const std::function<bool()> &act)
{
    const KXManagedObjectContext::Ref context = m_tree ? m_tree->managedObjectContext() : nullptr;
    bool done = false;
    {
        // The host may have the list undone by another manager than its context; that one gathers the facts.
        KXUndoManager *const own = m_view ? m_view->undoManager() : nullptr;
        const KXUndoGroup outer(own, actionName);
        KXUndoManager *const ofContext = context ? context->undoManager() : nullptr;
        const KXUndoGroup group(ofContext == own ? nullptr : ofContext, actionName);
        done = act();
        if (done && context)
            context->processPendingChanges();
    }
    if (done && context)
        context->save();
    return done;
}

namespace {

QList<KXSourceListItem *> sourceListItems(const QList<KXRef<Object>> &objects)
{
    QList<KXSourceListItem *> items;
    for (const KXRef<Object> &object : objects)
        items.append(KXSourceListViewController::itemOf(object));
    return items;
}

}

bool KXSourceListViewController::moveItems(const QList<KXRef<Object>> &items, const KXIndexPath &path)
{
    if (!perform(KXLocalizedString("Move Items"), [&] { return m_tree->moveObjects(items, path); }))
        return false;
    if (KXSourceListViewControllerDelegate *const told = delegate())
        told->didRepositionItems(*this, sourceListItems(items));
    return true;
}

bool KXSourceListViewController::moveSelectedItems(Qt::ArrowType direction)
{
    const QList<KXRef<Object>> items = m_tree ? m_tree->selectedObjects() : QList<KXRef<Object>>();
    const KXTreeNode *const first = items.isEmpty() ? nullptr : m_tree->treeNodeForObject(items.first().get());
    if (!first)
        return false;
    const KXTreeNode *const level = first->parentNode();
    const int end = m_tree->treeNodeForObject(items.last().get())->row() + 1;
    const KXTreeNode *to = level;
    int row = -1;
    if (direction == Qt::UpArrow) {
        row = first->row() - 1;
    } else if (direction == Qt::DownArrow) {
        row = end < level->childCount() ? end + 1 : -1;
    } else if (direction == Qt::LeftArrow) {
        to = level->parentNode();
        row = level->row() + 1;
    } else if (direction == Qt::RightArrow) {
        to = level->childAt(first->row() - 1);
        row = to ? to->childCount() : -1;
    }
    if (!to || row < 0)
        return false;
    const KXSourceListItem *const target = itemOf(to->representedObject());
    for (const KXRef<Object> &object : items) {
        const KXSourceListItem *const item = itemOf(object);
        if (!item || !item->canBeRepositioned() || m_tree->treeNodeForObject(object.get())->parentNode() != level
            || (to != level && (target ? !target->canBeParentForItem(item) : !item->canBeChildForItem(nullptr))))
            return false;
    }
    if (!moveItems(items, to->indexPath() + KXIndexPath { row }))
        return false;
    if (m_view)
        m_view->scrollTo(m_view->currentIndex());
    return true;
}

bool KXSourceListViewController::copyItems(const QList<KXRef<Object>> &items, const KXIndexPath &path)
{
    const KXTreeNode *const parent = m_tree->nodeAtIndexPath(path.first(path.size() - 1));
    const KXTreeNode *const next = parent ? parent->childAt(path.last()) : nullptr;
    const KXRef<Object> above = parent ? parent->representedObject() : KXRef<Object>();
    KXRef<Object> before = next ? next->representedObject() : KXRef<Object>();
    QList<KXRef<Object>> copies;
    const bool done = perform(KXLocalizedString("Copy Items"), [&] {
        for (const KXRef<Object> &object : items) {
            if (auto *const copy = dynamic_cast<Object *>(itemOf(object)->duplicateItem()))
                copies.append(KXRef<Object>(copy));
        }
        // From the last on, each in front of the one after it: new objects may stand anywhere in the tree until then.
        for (qsizetype i = copies.size(); i-- > 0; before = copies[i]) {
            m_tree->managedObjectContext()->processPendingChanges();
            const KXTreeNode *const level = above ? m_tree->treeNodeForObject(above.get()) : m_tree->rootNode();
            const KXTreeNode *const after = m_tree->treeNodeForObject(before.get());
            if (level)
                m_tree->insertObject(
                    copies[i], level->indexPath() + KXIndexPath { after ? after->row() : level->childCount() });
        }
        return !copies.isEmpty();
    });
    if (KXSourceListViewControllerDelegate *const told = done ? delegate() : nullptr)
        told->didRepositionItems(*this, sourceListItems(copies));
    return done;
}

// The changes of objects that the context records undo these.

bool KXSourceListViewController::insertItem(const KXRef<Object> &item, const KXIndexPath &atArrangedObjectIndexPath)
{
    return m_tree && m_tree->insertObject(item, atArrangedObjectIndexPath);
}

bool KXSourceListViewController::removeItemAtArrangedObjectIndexPath(const KXIndexPath &path)
{
    return m_tree && m_tree->removeObjectsAtIndexPaths({ path });
}

bool KXSourceListViewController::removeItem(const KXSourceListItem *item)
{
    const KXTreeNode *const node = nodeOf(item);
    const KXUndoRegistrationOff unrecorded(m_tree ? m_tree->undoManager() : nullptr);
    return node && m_tree->removeObjectsAtIndexPaths({ node->indexPath() });
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
