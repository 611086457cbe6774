#include <kestrixkit/filter_ui/KXFilterSetPresetDetailsModel_p.h>

#include <kestrixkit/foundation/KXStringWithFormat.h>
#include <kestrixkit/source_list/KXSourceListView.h>

namespace {

int detailsBelow(const KXFilterSetPresetDetailsModel::Row &row)
{
    return row.defaultValue ? 1 : int(row.values.size());
}

}

bool KXFilterSetPresetDetailsModel::standsAsIn(const std::vector<Row> &rows) const
{
    return std::equal(rows.begin(), rows.end(), m_rows.begin(), m_rows.end(), [](const Row &a, const Row &b) {
        return a.filter == b.filter && a.values == b.values && !a.defaultValue == !b.defaultValue;
    });
}

void KXFilterSetPresetDetailsModel::setRows(std::vector<Row> rows)
{
    const bool stands = standsAsIn(rows);
    if (!stands)
        beginResetModel();
    m_rows = std::move(rows);
    m_keys.clear();
    for (const Row &row : m_rows) {
        m_keys.insert(row.filter->objectID().key());
        for (const KXRef<KXFacetFilterValue> &value : row.values)
            m_keys.insert(value->objectID().key());
    }
    if (!stands) {
        endResetModel();
        return;
    }
    for (int i = 0; i < rowCount(); ++i) {
        const QModelIndex filter = index(i, 0);
        Q_EMIT dataChanged(filter, filter);
        if (const int below = rowCount(filter))
            Q_EMIT dataChanged(index(0, 0, filter), index(below - 1, 0, filter));
    }
}

const KXFilterSetPresetDetailsModel::Row *KXFilterSetPresetDetailsModel::rowAt(const QModelIndex &index) const
{
    if (!index.isValid() || index.model() != this)
        return nullptr;
    const size_t row = isFilter(index) ? size_t(index.row()) : index.internalId() - 1;
    return row < m_rows.size() ? &m_rows[row] : nullptr;
}

KXRef<KXFacetFilterValue> KXFilterSetPresetDetailsModel::valueAt(const QModelIndex &index) const
{
    const Row *const row = isFilter(index) ? nullptr : rowAt(index);
    return row ? row->values.value(index.row()) : KXRef<KXFacetFilterValue>();
}

KXFilterSetPresetDetailsModel::DefaultValue KXFilterSetPresetDetailsModel::defaultValueAt(
    const QModelIndex &index) const
{
    const Row *const row = isFilter(index) ? nullptr : rowAt(index);
    return row ? row->defaultValue : DefaultValue();
}

KXRef<KXFilter> KXFilterSetPresetDetailsModel::filterAt(const QModelIndex &index) const
{
    const Row *const row = rowAt(index);
    return row ? row->filter : KXRef<KXFilter>();
}

QModelIndex KXFilterSetPresetDetailsModel::indexOfValue(qint64 key) const
{
    for (size_t i = 0; i < m_rows.size(); ++i) {
        for (qsizetype j = 0; j < m_rows[i].values.size(); ++j) {
            if (m_rows[i].values[j]->objectID().key() == key)
                return createIndex(int(j), 0, quintptr(i + 1));
        }
    }
    return {};
}

QModelIndex KXFilterSetPresetDetailsModel::index(int row, int column, const QModelIndex &parent) const
{
    if (!hasIndex(row, column, parent))
        return {};
    return createIndex(row, column, parent.isValid() ? quintptr(parent.row()) + 1 : quintptr(0));
}

QModelIndex KXFilterSetPresetDetailsModel::parent(const QModelIndex &child) const
{
    return child.isValid() && !isFilter(child) ? createIndex(int(child.internalId()) - 1, 0, quintptr(0))
                                               : QModelIndex();
}

int KXFilterSetPresetDetailsModel::rowCount(const QModelIndex &parent) const
{
    if (!parent.isValid())
        return int(m_rows.size());
    const Row *const row = isFilter(parent) ? rowAt(parent) : nullptr;
    return row ? detailsBelow(*row) : 0;
}

QVariant KXFilterSetPresetDetailsModel::data(const QModelIndex &index, int role) const
{
    if (!rowAt(index) || !m_cells)
        return {};
    const QVariant value = m_cells(index);
    const auto cell = value.value<KXSourceListCell>();
    switch (role) {
    case KXSourceListView::CellRole:
        return value;
    case KXSourceListView::GroupRole:
        return cell.isGroup;
    case Qt::DisplayRole:
    case Qt::ToolTipRole:
        return cell.title;
    case Qt::AccessibleTextRole:
        return cell.count > 0 ? KXStringWithFormat("%@, %lld", cell.title, cell.count) : cell.title;
    default:
        return {};
    }
}

Qt::ItemFlags KXFilterSetPresetDetailsModel::flags(const QModelIndex &index) const
{
    if (!index.isValid())
        return Qt::NoItemFlags;
    return m_selectable && valueAt(index) ? Qt::ItemIsEnabled | Qt::ItemIsSelectable : Qt::ItemIsEnabled;
}
