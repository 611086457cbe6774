#pragma once

#include <QStyledItemDelegate>

/// Paints the cells of the track table: text, rating as stars, keys as coloured plates. One fixed height. A click on a
/// star gives so many, one on the last of them takes the rating away.
class TrackDelegate : public QStyledItemDelegate
{
    Q_OBJECT
public:
    using QStyledItemDelegate::QStyledItemDelegate;

    void paint(QPainter *painter, const QStyleOptionViewItem &option, const QModelIndex &index) const override;
    QSize sizeHint(const QStyleOptionViewItem &option, const QModelIndex &index) const override;
    bool editorEvent(QEvent *event, QAbstractItemModel *model, const QStyleOptionViewItem &option,
        const QModelIndex &index) override;

    /// Where the star (from 1 to 5) is painted in a cell of the rating.
    [[nodiscard]] static QRect starBox(const QStyleOptionViewItem &option, int star);
};
