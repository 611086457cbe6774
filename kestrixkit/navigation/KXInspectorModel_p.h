#pragma once

#include <QAbstractItemModel>
#include <QPointer>

#include <kestrixkit/toolkit/KXViewController.h>

class KXInspectorViewItem;

/// A row of the top level for each inspected controller, its header, and one below each, its view.
class KXInspectorModel : public QAbstractItemModel
{
public:
    using QAbstractItemModel::QAbstractItemModel;

    [[nodiscard]] const QList<KXViewController *> &controllers() const { return m_controllers; }
    void setControllers(const QList<KXViewController *> &controllers);
    [[nodiscard]] QModelIndex headerIndex(qsizetype row) const { return index(int(row), 0); }
    [[nodiscard]] QModelIndex contentIndex(qsizetype row) const { return index(0, 0, headerIndex(row)); }
    /// nullptr for an invalid index.
    [[nodiscard]] KXViewController *controller(const QModelIndex &index) const;
    [[nodiscard]] static bool isHeader(const QModelIndex &index) { return index.isValid() && index.internalId() == 0; }
    void headerDidChange(qsizetype row);
    void contentDidChange(qsizetype row);

    [[nodiscard]] QModelIndex index(int row, int column, const QModelIndex &parent = {}) const override;
    [[nodiscard]] QModelIndex parent(const QModelIndex &child) const override;
    [[nodiscard]] int rowCount(const QModelIndex &parent = {}) const override;
    [[nodiscard]] int columnCount(const QModelIndex & = {}) const override { return 1; }
    [[nodiscard]] QVariant data(const QModelIndex &index, int role) const override;
    [[nodiscard]] Qt::ItemFlags flags(const QModelIndex &index) const override;

private:
    QList<KXViewController *> m_controllers; // those that end are taken out by whoever set them
};
