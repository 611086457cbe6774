#pragma once

#include <QStyledItemDelegate>

#include <kestrixkit/foundation/KXGlobal.h>

/// Paints a row of a facet filter's editor: whether the value is chosen, its title, what it would make of the list, and
/// at the end a place to exclude it by. Main thread.
class KX_UI_EXPORT KXFacetFilterValueDelegate : public QStyledItemDelegate
{
public:
    using QStyledItemDelegate::QStyledItemDelegate;

    /// Where a click excludes the value.
    [[nodiscard]] static QRect exclusionRect(const QRect &row, Qt::LayoutDirection direction);

    void paint(QPainter *painter, const QStyleOptionViewItem &option, const QModelIndex &index) const override;
    [[nodiscard]] QSize sizeHint(const QStyleOptionViewItem &option, const QModelIndex &index) const override;
};
