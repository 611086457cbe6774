#include <kestrixkit/source_list/KXSourceListRowDelegate_p.h>

#include <QPainter>

#include <kestrixkit/source_list/KXSourceListView.h>
#include <kestrixkit/theme/KXThemeStyleNames.h>
#include <kestrixkit/theme/controls/KXControlPainter.h>
#include <kestrixkit/theme/controls/KXThemeableTextField.h>

namespace {

// In points.
constexpr int sourceListImageSide = 16;
constexpr int sourceListGap = 8; // between image and title
constexpr int sourceListTitleSpace = 3; // between title and badge, or the row's end
constexpr int sourceListMargin = 10; // between badge and the row's end

constexpr int sourceListCheckSide = 14;

/// Room for the check box.
int sourceListCheckRoom(const KXSourceListCell &cell)
{
    return cell.isChecked ? sourceListCheckSide + sourceListGap : 0;
}

/// Where the title begins, for rows that read from left to right.
int sourceListTitleLeft(const QRect &row, const KXSourceListCell &cell)
{
    return row.left() + 2 + sourceListCheckRoom(cell) + (cell.image.isNull() ? 0 : sourceListImageSide + sourceListGap);
}

void sourceListPaintCheck(QPainter &painter, const QRect &box, bool isChecked, const QColor &colour)
{
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(QPen(colour, 1.2));
    painter.drawRoundedRect(QRectF(box).adjusted(0.5, 0.5, -0.5, -0.5), 3, 3);
    if (isChecked) {
        painter.setPen(QPen(colour, 1.8, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
        const QPointF at = box.topLeft();
        painter.drawPolyline(QPolygonF { at + QPointF(3.5, 7.5), at + QPointF(6, 10), at + QPointF(10.5, 4.5) });
    }
    painter.restore();
}

void sourceListPaintProgress(QPainter &painter, const QRect &place, const QColor &colour)
{
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(QPen(colour, 2, Qt::SolidLine, Qt::RoundCap));
    painter.drawArc(QRectF(place).adjusted(2, 2, -2, -2), 90 * 16, -270 * 16);
    painter.restore();
}

}

KXSourceListRowDelegate::KXSourceListRowDelegate(KXSourceListView *view)
    : QStyledItemDelegate(view)
    , m_view(view)
{
}

void KXSourceListRowDelegate::paint(
    QPainter *painter, const QStyleOptionViewItem &option, const QModelIndex &index) const
{
    const KXSourceListCell cell = m_view->cellForRow(index);
    const QRect row = option.rect;
    const bool selected = option.state & QStyle::State_Selected;
    const auto place = [&](const QRect &rect) { return QStyle::visualRect(option.direction, row, rect); };
    const QPalette::ColorGroup group
        = option.state & QStyle::State_Active && m_view->hasFocus() ? QPalette::Active : QPalette::Inactive;
    QColor colour = option.palette.color(group, selected ? QPalette::HighlightedText : QPalette::Text);
    if (!cell.isEnabled && selected)
        colour.setAlphaF(0.65F); // the colour of disabled text would drown in the selection's
    else if (!cell.isEnabled)
        colour = option.palette.color(QPalette::Disabled, QPalette::Text);
    else if (cell.isGroup && !selected)
        colour = option.palette.color(group, QPalette::PlaceholderText);

    painter->save();
    painter->setLayoutDirection(option.direction);
    QFont font = option.font;
    if (cell.isGroup) {
        font.setBold(true);
        font.setPointSizeF(font.pointSizeF() * 0.9);
    }
    painter->setFont(font);

    int right = row.right() + 1 - sourceListMargin;
    const QSize badge = KXBadgeCell::sizeForCount(cell.count, font);
    if (cell.inProgress) {
        const QRect sign(right - sourceListImageSide, row.center().y() + 1 - sourceListImageSide / 2,
            sourceListImageSide, sourceListImageSide);
        sourceListPaintProgress(*painter, place(sign), colour);
        right = sign.left() - sourceListTitleSpace;
    } else if (!badge.isEmpty()) {
        const QRect room(row.left(), row.top(), right - row.left(), row.height());
        m_view->badgeCell(selected).paint(*painter, place(room), cell.count, cell.isEnabled, option.palette);
        right -= badge.width() + sourceListTitleSpace;
    } else {
        right = row.right() + 1 - sourceListTitleSpace;
    }
    if (cell.isChecked)
        sourceListPaintCheck(*painter, checkRect(option, cell), *cell.isChecked, colour);
    if (!cell.image.isNull()) {
        const QRect image(row.left() + 2 + sourceListCheckRoom(cell), row.center().y() + 1 - sourceListImageSide / 2,
            sourceListImageSide, sourceListImageSide);
        KXControlPainter::icon(
            *painter, place(image), cell.image, selected || !cell.isEnabled ? colour : QColor(), option.state);
    }
    const int left = sourceListTitleLeft(row, cell);
    if (right > left && !(m_view->isEditing() && m_view->m_edited == index))
        KXControlPainter::text(*painter, place(QRect(left, row.top(), right - left, row.height())),
            Qt::AlignLeft | Qt::AlignVCenter, cell.title, colour);
    painter->restore();
}

QRect KXSourceListRowDelegate::checkRect(const QStyleOptionViewItem &option, const KXSourceListCell &cell)
{
    const QRect row = option.rect;
    const QRect box(
        row.left() + 2, row.center().y() + 1 - sourceListCheckSide / 2, sourceListCheckSide, sourceListCheckSide);
    return cell.isChecked ? QStyle::visualRect(option.direction, row, box) : QRect();
}

QSize KXSourceListRowDelegate::sizeHint(const QStyleOptionViewItem &option, const QModelIndex &) const
{
    return { 0, std::max(option.fontMetrics.height() + 12, sourceListImageSide + 12) };
}

QWidget *KXSourceListRowDelegate::createEditor(
    QWidget *parent, const QStyleOptionViewItem &, const QModelIndex &index) const
{
    auto *const editor = new KXThemeableTextField(parent);
    editor->setThemeStyleName(KXTextFieldStyles);
    editor->setAccessibleName(m_view->cellForRow(index).title);
    m_view->m_edited = index;
    return editor;
}

void KXSourceListRowDelegate::setEditorData(QWidget *editor, const QModelIndex &index) const
{
    // Also asked when anything about the row changes: what the user has typed stays.
    auto *const line = qobject_cast<QLineEdit *>(editor);
    if (line && !line->isModified()) {
        const QString title = index.data(Qt::EditRole).toString();
        if (line->text() != title || title.isEmpty()) {
            line->setText(title);
            line->selectAll();
        }
    }
}

void KXSourceListRowDelegate::setModelData(QWidget *editor, QAbstractItemModel *model, const QModelIndex &index) const
{
    const auto *const line = qobject_cast<QLineEdit *>(editor);
    if (!line || !line->isModified())
        return;
    if (m_view->delegate())
        m_view->delegate()->setTitle(*m_view, index, line->text());
    else
        model->setData(index, line->text());
}

void KXSourceListRowDelegate::updateEditorGeometry(
    QWidget *editor, const QStyleOptionViewItem &option, const QModelIndex &index) const
{
    const int left = sourceListTitleLeft(option.rect, m_view->cellForRow(index)) - 8;
    const QRect room = QRect(left, option.rect.top() + 2, option.rect.right() - left - 4, option.rect.height() - 4);
    editor->setGeometry(QStyle::visualRect(option.direction, option.rect, room));
}
