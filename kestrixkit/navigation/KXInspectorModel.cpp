#include <kestrixkit/navigation/KXInspectorModel_p.h>

#include <kestrixkit/navigation/KXInspectorViewItem.h>
#include <kestrixkit/theme/controls/KXThemeableOutlineView.h>

void KXInspectorModel::setControllers(const QList<KXViewController *> &controllers)
{
    beginResetModel();
    m_controllers = controllers;
    endResetModel();
}

KXViewController *KXInspectorModel::controller(const QModelIndex &index) const
{
    if (!index.isValid())
        return nullptr;
    return m_controllers.value(isHeader(index) ? index.row() : qsizetype(index.internalId()) - 1);
}

void KXInspectorModel::headerDidChange(qsizetype row)
{
    const QModelIndex header = headerIndex(row);
    Q_EMIT dataChanged(header, header);
}

void KXInspectorModel::contentDidChange(qsizetype row)
{
    const QModelIndex content = contentIndex(row);
    Q_EMIT dataChanged(content, content);
}

// The internal identifier is 0 for headers, and for content the header's row plus one.

QModelIndex KXInspectorModel::index(int row, int column, const QModelIndex &parent) const
{
    if (column != 0 || row < 0 || row >= rowCount(parent))
        return {};
    return createIndex(row, 0, parent.isValid() ? quintptr(parent.row()) + 1 : quintptr(0));
}

QModelIndex KXInspectorModel::parent(const QModelIndex &child) const
{
    if (!child.isValid() || isHeader(child))
        return {};
    return createIndex(int(child.internalId()) - 1, 0, quintptr(0));
}

int KXInspectorModel::rowCount(const QModelIndex &parent) const
{
    if (!parent.isValid())
        return int(m_controllers.size());
    return isHeader(parent) ? 1 : 0;
}

QVariant KXInspectorModel::data(const QModelIndex &index, int role) const
{
    const KXInspectorViewItem *const item = KXInspectorViewItem::inspectorViewItem(controller(index));
    if (!item)
        return {};
    if (role == KXThemeableOutlineView::GroupRole)
        return isHeader(index);
    const bool isText = role == Qt::DisplayRole || role == Qt::AccessibleTextRole;
    return isText && (isHeader(index) || role == Qt::AccessibleTextRole) ? QVariant(item->title()) : QVariant();
}

Qt::ItemFlags KXInspectorModel::flags(const QModelIndex &index) const
{
    const KXInspectorViewItem *const item = KXInspectorViewItem::inspectorViewItem(controller(index));
    const bool isSelectable = item && isHeader(index) && item->showHeader();
    return isSelectable ? Qt::ItemIsEnabled | Qt::ItemIsSelectable : Qt::ItemFlags(Qt::ItemIsEnabled);
}
