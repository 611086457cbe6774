#include "table/TrackDelegate.h"

#include <QLineEdit>
#include <QMouseEvent>

#include "table/TrackTableModel.h"
#include "window/BrowserStyle.h"

QRect TrackDelegate::starBox(const QRect &cell, int star, Qt::LayoutDirection direction)
{
    constexpr int size = 12, step = 15;
    const QRect box(
        cell.left() + BrowserStyle::margin + (star - 1) * step, cell.center().y() - size / 2 + 1, size, size);
    return QStyle::visualRect(direction, cell, box);
}

bool TrackDelegate::editorEvent(
    QEvent *event, QAbstractItemModel *model, const QStyleOptionViewItem &option, const QModelIndex &index)
{
    if (index.column() != TrackTableModel::Rating || event->type() != QEvent::MouseButtonRelease)
        return QStyledItemDelegate::editorEvent(event, model, option, index);
    const auto *mouse = static_cast<QMouseEvent *>(event);
    if (mouse->button() != Qt::LeftButton || mouse->modifiers() != Qt::NoModifier)
        return false;
    for (int star = 1; star <= 5; ++star) {
        // The gaps between stars and what is above and below belong to them.
        if (starBox(option.rect, star, option.direction).adjusted(-2, -9, 2, 9).contains(mouse->position().toPoint())) {
            const bool isLast = star == index.data(TrackTableModel::StarsRole).toInt();
            model->setData(index, isLast ? 0 : star, TrackTableModel::StarsRole);
            return true;
        }
    }
    return false;
}

void TrackDelegate::setEditorData(QWidget *editor, const QModelIndex &index) const
{
    auto *const line = qobject_cast<QLineEdit *>(editor);
    if (line && line->isModified()) // values arrive while somebody types
        return;
    QStyledItemDelegate::setEditorData(editor, index);
    if (!line || !index.data(TrackTableModel::MixedRole).toBool())
        return;
    line->setText({}); // and not clear(), which counts as an edit
    line->setPlaceholderText(tr("Mixed"));
}

void TrackDelegate::setModelData(QWidget *editor, QAbstractItemModel *model, const QModelIndex &index) const
{
    const auto *const line = qobject_cast<const QLineEdit *>(editor);
    if (!line || line->isModified())
        QStyledItemDelegate::setModelData(editor, model, index);
}
