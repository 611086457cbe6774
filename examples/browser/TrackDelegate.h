#pragma once

#include <QStyledItemDelegate>

/// Edits the cells of the track table. A click on a star gives so many, one on the last of them takes the rating away.
class TrackDelegate : public QStyledItemDelegate
{
    Q_OBJECT
public:
    using QStyledItemDelegate::QStyledItemDelegate;

    bool editorEvent(QEvent *event, QAbstractItemModel *model, const QStyleOptionViewItem &option,
        const QModelIndex &index) override;

    /// Where the star (from 1 to 5) is painted in a cell of the rating.
    [[nodiscard]] static QRect starBox(const QRect &cell, int star, Qt::LayoutDirection direction);
};
