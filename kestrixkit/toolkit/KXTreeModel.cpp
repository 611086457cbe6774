// What views ask of the tree: its nodes, its selection, and all of it as an item model.

#include <algorithm>

#include <QIcon>
#include <QItemSelectionModel>
#include <QPointer>

#include <kestrixkit/foundation/KXSourceListItem.h>
#include <kestrixkit/toolkit/KXTreeController.h>

using Object = KXManagedObject;

// Nodes

KXTreeNode *KXTreeController::node(const Object *object) const
{
    const auto found = object ? m_nodes.find(object->objectID().key()) : m_nodes.end();
    return found != m_nodes.end() && found->second->m_object == object ? found->second : nullptr;
}

const KXTreeNode *KXTreeController::treeNodeForObject(const Object *object) const { return node(object); }

QList<const KXTreeNode *> KXTreeController::flattenedNodes() const
{
    QList<const KXTreeNode *> nodes;
    const KXTreeNode *node = m_root->childAt(0);
    while (node) {
        nodes.append(node);
        if (!node->isLeaf()) {
            node = node->childAt(0);
            continue;
        }
        while (node->m_parent && !node->m_parent->childAt(node->m_row + 1))
            node = node->m_parent;
        node = node->m_parent ? node->m_parent->childAt(node->m_row + 1) : nullptr;
    }
    return nodes;
}

const KXTreeNode *KXTreeController::nodeAtIndexPath(const KXIndexPath &path) const
{
    const KXTreeNode *node = m_root.get();
    for (const int row : path)
        node = node ? node->childAt(row) : nullptr;
    return node;
}

const KXTreeNode *KXTreeController::nodeForIndex(const QModelIndex &index) const
{
    return index.isValid() && index.model() == this ? static_cast<const KXTreeNode *>(index.constInternalPointer())
                                                    : nullptr;
}

QModelIndex KXTreeController::indexForNode(const KXTreeNode *node) const
{
    return node && node->m_parent ? createIndex(node->m_row, 0, node) : QModelIndex();
}

void KXTreeController::setRowData(RowData rowData) { m_rowData = std::move(rowData); }

// Selection

void KXTreeController::select(const QList<const KXTreeNode *> &nodes)
{
    QItemSelection selection;
    for (const KXTreeNode *node : nodes) {
        if (const QModelIndex index = indexForNode(node); index.isValid())
            selection.select(index, index);
    }
    const QModelIndex first = selection.isEmpty() ? QModelIndex() : QModelIndex(selection.first().topLeft());
    m_selection->setCurrentIndex(first, QItemSelectionModel::NoUpdate);
    m_selection->select(selection, QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
}

void KXTreeController::setSelectedObjects(const QList<KXRef<Object>> &objects)
{
    QList<const KXTreeNode *> nodes;
    for (const KXRef<Object> &object : objects)
        nodes.append(node(object.get()));
    select(nodes);
}

void KXTreeController::setSelectionIndexPaths(const QList<KXIndexPath> &paths)
{
    QList<const KXTreeNode *> nodes;
    for (const KXIndexPath &path : paths)
        nodes.append(nodeAtIndexPath(path));
    select(nodes);
}

void KXTreeController::updateSelection()
{
    QList<KXIndexPath> paths;
    for (const QModelIndex &index : m_selection->selectedIndexes()) {
        if (index.column() == 0)
            paths.append(nodeForIndex(index)->indexPath());
    }
    std::sort(paths.begin(), paths.end());
    QList<KXRef<Object>> objects;
    for (const KXIndexPath &path : paths)
        objects.append(nodeAtIndexPath(path)->m_object);
    if (objects == m_selected && paths == m_selectedPaths)
        return;
    const QPointer<KXTreeController> alive(this);
    for (const auto key : { u"selectedObjects", u"selectionIndexPath" })
        willChangeValueForKey(key);
    m_selected = objects;
    m_selectedPaths = paths;
    for (const auto key : { u"selectedObjects", u"selectionIndexPath" }) {
        if (alive)
            didChangeValueForKey(key);
    }
    if (alive)
        Q_EMIT selectionChanged();
}

QVariantList KXTreeController::selectedObjectValues() const
{
    QVariantList values;
    for (const KXRef<Object> &object : m_selected)
        values.append(KXVariantFromRef(object));
    return values;
}

QVariant KXTreeController::valueForKey(const QString &key) const { return property(key.toUtf8().constData()); }

// As an item model

QModelIndex KXTreeController::index(int row, int column, const QModelIndex &parent) const
{
    const KXTreeNode *above = parent.isValid() ? nodeForIndex(parent) : m_root.get();
    const KXTreeNode *node = above && parent.column() <= 0 ? above->childAt(row) : nullptr;
    return node && column >= 0 && column < columnCount(parent) ? createIndex(row, column, node) : QModelIndex();
}

QModelIndex KXTreeController::parent(const QModelIndex &child) const
{
    const KXTreeNode *node = nodeForIndex(child);
    return node ? indexForNode(node->m_parent) : QModelIndex();
}

int KXTreeController::rowCount(const QModelIndex &parent) const
{
    const KXTreeNode *node = parent.isValid() ? nodeForIndex(parent) : m_root.get();
    return node && parent.column() <= 0 ? node->childCount() : 0;
}

int KXTreeController::columnCount(const QModelIndex &) const { return 1; }

QVariant KXTreeController::data(const QModelIndex &index, int role) const
{
    const KXTreeNode *node = nodeForIndex(index);
    if (!node)
        return {};
    if (const QVariant given = m_rowData ? m_rowData(*node, role) : QVariant(); given.isValid())
        return given;
    const auto *item = dynamic_cast<const KXSourceListItem *>(node->m_object.get());
    switch (role) {
    case ObjectRole:
        return KXVariantFromRef(node->m_object);
    case Qt::DisplayRole:
    case Qt::EditRole:
        if (node->m_object->entity()->property(m_request.titleKeyPath.section(u'.', 0, 0)))
            return node->m_object->valueForKeyPath(m_request.titleKeyPath);
        return item ? item->title() : QVariant();
    case Qt::DecorationRole:
        return item ? QVariant(item->image()) : QVariant();
    default:
        return {};
    }
}

bool KXTreeController::setData(const QModelIndex &index, const QVariant &value, int role)
{
    const KXTreeNode *node = nodeForIndex(index);
    const KXManagedObjectContext::Ref context = m_context.lock();
    if (!node || !context || role != Qt::EditRole || m_rearranging
        || !node->m_object->entity()->property(m_request.titleKeyPath))
        return false;
    if (!node->m_object->setValueForKey(m_request.titleKeyPath, value))
        return false;
    context->processPendingChanges();
    return true;
}

Qt::ItemFlags KXTreeController::flags(const QModelIndex &index) const
{
    const KXTreeNode *node = nodeForIndex(index);
    if (!node)
        return Qt::ItemIsDropEnabled;
    Qt::ItemFlags flags = Qt::ItemIsEnabled | Qt::ItemIsDropEnabled;
    const auto *item = dynamic_cast<const KXSourceListItem *>(node->m_object.get());
    flags.setFlag(Qt::ItemIsSelectable, !item || item->canBeSelected());
    flags.setFlag(Qt::ItemIsEditable, !item || item->isEditable());
    flags.setFlag(Qt::ItemIsDragEnabled, !item || item->canBeRepositioned());
    return flags;
}
