#pragma once

#include <QStyledItemDelegate>

class KXInspectorModel;
class KXInspectorOutlineView;

/// Paints the headers of an inspector's sections with their arrow heads; content is painted by its own widgets. Main
/// thread.
class KXInspectorRowDelegate : public QStyledItemDelegate
{
public:
    /// Belongs to the view. The model outlives it.
    KXInspectorRowDelegate(KXInspectorModel *model, KXInspectorOutlineView *view);

    QSize sizeHint(const QStyleOptionViewItem &option, const QModelIndex &index) const override;
    void paint(QPainter *painter, const QStyleOptionViewItem &option, const QModelIndex &index) const override;

private:
    KXInspectorModel *const m_model;
    KXInspectorOutlineView *const m_view;
};
