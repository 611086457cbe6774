#pragma once

#include <QStyledItemDelegate>

class KXSourceListView;

/// Paints and edits the rows of a source list: image, title, badge.
class KXSourceListRowDelegate : public QStyledItemDelegate
{
    Q_OBJECT
public:
    explicit KXSourceListRowDelegate(KXSourceListView *view);

    void paint(QPainter *painter, const QStyleOptionViewItem &option, const QModelIndex &index) const override;
    /// Of the row's check box; empty where it has none.
    [[nodiscard]] static QRect checkRect(const QStyleOptionViewItem &option, const struct KXSourceListCell &cell);
    QSize sizeHint(const QStyleOptionViewItem &option, const QModelIndex &index) const override;
    QWidget *createEditor(QWidget *parent, const QStyleOptionViewItem &option, const QModelIndex &index) const override;
    void setEditorData(QWidget *editor, const QModelIndex &index) const override;
    void setModelData(QWidget *editor, QAbstractItemModel *model, const QModelIndex &index) const override;
    void updateEditorGeometry(
        QWidget *editor, const QStyleOptionViewItem &option, const QModelIndex &index) const override;

private:
    KXSourceListView *const m_view;
};
