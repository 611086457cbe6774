#pragma once

#include <QStyledItemDelegate>

/// Edits the cells of the track table, the selected rows together: where they differ the field is empty and says so,
/// and nothing changes until something is entered. A click on a star gives so many, one on the last of them takes the
/// rating away.
class TrackDelegate : public QStyledItemDelegate
{
    Q_OBJECT
public:
    using QStyledItemDelegate::QStyledItemDelegate;

    bool editorEvent(QEvent *event, QAbstractItemModel *model, const QStyleOptionViewItem &option,
        const QModelIndex &index) override;

    void setEditorData(QWidget *editor, const QModelIndex &index) const override;
    void setModelData(QWidget *editor, QAbstractItemModel *model, const QModelIndex &index) const override;

    /// Where the star (from 1 to 5) is painted in a cell of the rating.
    [[nodiscard]] static QRect starBox(const QRect &cell, int star, Qt::LayoutDirection direction);
};
