#pragma once

#include <functional>
#include <vector>

#include <QAbstractItemModel>
#include <QSet>

#include <kestrixkit/filters/KXFacetFilter.h>
#include <kestrixkit/filters/KXFilterDefaultValue.h>

/// The rows of a preset's details: its filters, and below each its values or its setting.
class KXFilterSetPresetDetailsModel : public QAbstractItemModel
{
    Q_OBJECT
public:
    using DefaultValue = std::shared_ptr<const KXFilterDefaultValue>;
    using Values = QList<KXRef<KXFacetFilterValue>>;
    struct Row
    {
        KXRef<KXFilter> filter;
        Values values; ///< of a facet filter
        DefaultValue defaultValue; ///< of any other
    };
    using QAbstractItemModel::QAbstractItemModel;

    /// Where objects stay in place they are only announced as changed; else everything is.
    void setRows(std::vector<Row> rows);
    [[nodiscard]] const std::vector<Row> &rows() const { return m_rows; }
    /// What rows show is asked for there, as a KXSourceListCell.
    void setCells(std::function<QVariant(const QModelIndex &row)> cells) { m_cells = std::move(cells); }
    void setSelectable(bool selectable) { m_selectable = selectable; }
    /// Keys of the filters and of their values.
    [[nodiscard]] const QSet<qint64> &keys() const { return m_keys; }

    /// Empty for rows of another kind, as is the next one.
    [[nodiscard]] KXRef<KXFacetFilterValue> valueAt(const QModelIndex &index) const;
    [[nodiscard]] DefaultValue defaultValueAt(const QModelIndex &index) const;
    /// Of the row itself or of the one above it.
    [[nodiscard]] KXRef<KXFilter> filterAt(const QModelIndex &index) const;
    [[nodiscard]] static bool isFilter(const QModelIndex &index) { return index.isValid() && index.internalId() == 0; }
    [[nodiscard]] QModelIndex indexOfValue(qint64 key) const;

    [[nodiscard]] QModelIndex index(int row, int column, const QModelIndex &parent = {}) const override;
    [[nodiscard]] QModelIndex parent(const QModelIndex &child) const override;
    using QObject::parent;
    [[nodiscard]] int rowCount(const QModelIndex &parent = {}) const override;
    [[nodiscard]] int columnCount(const QModelIndex & = {}) const override { return 1; }
    [[nodiscard]] QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;
    [[nodiscard]] Qt::ItemFlags flags(const QModelIndex &index) const override;

private:
    [[nodiscard]] const Row *rowAt(const QModelIndex &index) const;
    [[nodiscard]] bool standsAsIn(const std::vector<Row> &rows) const;

    std::vector<Row> m_rows;
    QSet<qint64> m_keys;
    std::function<QVariant(const QModelIndex &row)> m_cells;
    bool m_selectable = false;
};
