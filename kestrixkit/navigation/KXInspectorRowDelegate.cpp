#include <kestrixkit/navigation/KXInspectorRowDelegate_p.h>

#include <QPainter>

#include <kestrixkit/navigation/KXInspectorModel_p.h>
#include <kestrixkit/navigation/KXInspectorOutlineView.h>
#include <kestrixkit/navigation/KXInspectorViewController.h>
#include <kestrixkit/theme/controls/KXControlPainter.h>

namespace {

constexpr int inspectorChevron = 20; // points of room for it

}

KXInspectorRowDelegate::KXInspectorRowDelegate(KXInspectorModel *model, KXInspectorOutlineView *view)
    : QStyledItemDelegate(view)
    , m_model(model)
    , m_view(view)
{
}

QSize KXInspectorRowDelegate::sizeHint(const QStyleOptionViewItem &, const QModelIndex &index) const
{
    const auto *const item = KXInspectorViewItem::inspectorViewItem(m_model->controller(index));
    if (!KXInspectorModel::isHeader(index)) {
        const QWidget *const cell = m_view->indexWidget(index);
        return { 0, cell ? cell->sizeHint().height() : 0 };
    }
    return { 0,
        item && item->showHeader() ? KXInspectorViewController::HeaderHeight
                                   : KXInspectorViewController::SpacerHeight };
}

void KXInspectorRowDelegate::paint(
    QPainter *painter, const QStyleOptionViewItem &option, const QModelIndex &index) const
{
    const auto *const item = KXInspectorViewItem::inspectorViewItem(m_model->controller(index));
    if (!item || !KXInspectorModel::isHeader(index) || !item->showHeader())
        return;
    if (KXThemeableTableRowView *const looks = item->tableRowView()) {
        looks->setState({ .selected = bool(option.state & QStyle::State_Selected),
            .emphasised = m_view->hasFocus(),
            .hovered = bool(option.state & QStyle::State_MouseOver),
            .row = index.row() });
        looks->draw(*painter, option.rect, option.palette);
    }
    const bool mirrored = option.direction == Qt::RightToLeft;
    const QRect arrow = QStyle::visualRect(option.direction, option.rect,
        QRect(option.rect.left(), option.rect.top(), inspectorChevron, option.rect.height()));
    const int angle = m_view->isExpanded(index) ? 0 : mirrored ? 90 : -90;
    KXControlPainter::chevron(*painter, QRectF(arrow).center(), 7, angle,
        m_view->palette().color(QPalette::Active, QPalette::PlaceholderText));
    painter->save();
    QFont font = option.font;
    font.setBold(true);
    painter->setFont(font);
    painter->setLayoutDirection(option.direction);
    const QRect text = QStyle::visualRect(
        option.direction, option.rect, option.rect.adjusted(inspectorChevron, 0, -KXControlPainter::padding, 0));
    KXControlPainter::text(*painter, text, int(Qt::AlignVCenter | Qt::AlignLeft), item->title(),
        option.palette.color(QPalette::Active, QPalette::Text));
    painter->restore();
}
