#include <kestrixkit/theme/controls/KXThemeableOutlineView.h>

#include <QPainter>
#include <QStyledItemDelegate>

#include <kestrixkit/theme/controls/KXControlAccessibility_p.h>
#include <kestrixkit/theme/controls/KXControlPainter.h>
#include <kestrixkit/theme/controls/KXThemeableScroller.h>

namespace {

/// Rows with room to be hit. The focus is painted by the row.
class OutlineItemDelegate : public QStyledItemDelegate
{
public:
    explicit OutlineItemDelegate(QTreeView *view)
        : QStyledItemDelegate(view)
        , m_view(view)
    {
    }
    void paint(QPainter *painter, const QStyleOptionViewItem &option, const QModelIndex &index) const override
    {
        QStyleOptionViewItem item(option);
        item.state &= ~QStyle::State_HasFocus;
        if (!m_view->rootIsDecorated()) // a plain list: where a tree has its arrows
            item.rect = QStyle::visualRect(option.direction, option.rect, option.rect.adjusted(7, 0, 0, 0));
        QStyledItemDelegate::paint(painter, item, index);
    }
    QSize sizeHint(const QStyleOptionViewItem &option, const QModelIndex &index) const override
    {
        return QStyledItemDelegate::sizeHint(option, index).expandedTo({ 0, option.fontMetrics.height() + 10 });
    }

private:
    QTreeView *m_view;
};

}

KXThemeableOutlineView::KXThemeableOutlineView(QWidget *parent)
    : KXThemed<QTreeView>(parent)
    , m_rowView(new KXThemeableTableRowView(this))
    , m_groupRowView(new KXThemeableTableRowView(this))
{
    KXInstallControlAccessibility();
    setItemDelegate(new OutlineItemDelegate(this));
    setHeaderHidden(true);
    setFrameShape(QFrame::NoFrame);
    setUniformRowHeights(true);
    setMouseTracking(true);
    setVerticalScrollBar(KXThemeableScroller::ofView(Qt::Vertical));
}

void KXThemeableOutlineView::drawRow(
    QPainter *painter, const QStyleOptionViewItem &option, const QModelIndex &index) const
{
    const auto *const rowView = index.data(GroupRole).toBool() ? m_groupRowView : m_rowView;
    KXThemeableTableRowView::State state;
    state.selected = selectionModel() && selectionModel()->isSelected(index);
    state.emphasised = hasFocus();
    state.hovered = option.state & QStyle::State_MouseOver;
    state.enabled = index.flags() & Qt::ItemIsEnabled;
    state.row = index.row();
    const_cast<KXThemeableTableRowView *>(rowView)->setState(state);
    const QRect whole(0, option.rect.top(), viewport()->width(), option.rect.height());
    rowView->draw(*painter, whole, option.palette);
    // The selection is painted: the style is left with text and icon.
    QStyleOptionViewItem inner(option);
    inner.palette.setColor(QPalette::Highlight, Qt::transparent);
    if (state.selected) {
        const QPalette::ColorGroup group = state.emphasised ? QPalette::Active : QPalette::Inactive;
        inner.palette.setColor(QPalette::Text, inner.palette.color(group, QPalette::HighlightedText));
    }
    QTreeView::drawRow(painter, inner, index);
    if (hasFocus() && index.row() == currentIndex().row() && index.parent() == currentIndex().parent())
        KXControlPainter::focusRing(*painter, QRectF(whole).adjusted(1, 1, -1, -1), palette());
}

void KXThemeableOutlineView::drawBranches(QPainter *painter, const QRect &rect, const QModelIndex &index) const
{
    if (!model()->hasChildren(index))
        return;
    const bool rightToLeft = isRightToLeft();
    const QRectF place(
        rightToLeft ? rect.left() : rect.right() - indentation() + 1, rect.top(), indentation(), rect.height());
    const bool selected = selectionModel() && selectionModel()->isSelected(index);
    const QColor colour = palette().color(hasFocus() ? QPalette::Active : QPalette::Inactive,
        selected ? QPalette::HighlightedText : QPalette::PlaceholderText);
    KXControlPainter::chevron(*painter, place.center(), 7, isExpanded(index) ? 0 : rightToLeft ? 90 : -90, colour);
}

void KXThemeableOutlineView::setNeedsDisplay()
{
    // Where the application has a style sheet the viewport keeps the palette that it got first.
    viewport()->setPalette(palette());
    viewport()->update();
}

void KXThemeableOutlineView::currentChanged(const QModelIndex &current, const QModelIndex &previous)
{
    QTreeView::currentChanged(current, previous);
    // The focus surrounds the whole row, the branches included, which the base class leaves as they are.
    for (const QModelIndex &index : { current, previous }) {
        if (const QRect row = visualRect(index); row.isValid())
            viewport()->update(0, row.y(), viewport()->width(), row.height());
    }
}
