#pragma once

#include <QStyledItemDelegate>

/// Paints the cells of the track table: text, rating as stars, keys as coloured plates. One fixed height.
class TrackDelegate : public QStyledItemDelegate
{
    Q_OBJECT
public:
    using QStyledItemDelegate::QStyledItemDelegate;

    void paint(QPainter *painter, const QStyleOptionViewItem &option, const QModelIndex &index) const override;
    QSize sizeHint(const QStyleOptionViewItem &option, const QModelIndex &index) const override;
};
