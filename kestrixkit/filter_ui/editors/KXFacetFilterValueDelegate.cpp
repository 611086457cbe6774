#include <kestrixkit/filter_ui/editors/KXFacetFilterValueDelegate_p.h>

#include <QPainter>

#include <kestrixkit/filter_ui/editors/KXFacetFilterValuesModel.h>
#include <kestrixkit/foundation/KXClock.h>
#include <kestrixkit/theme/controls/KXControlPainter.h>
#include <kestrixkit/theme/controls/KXThemeableTableView.h>

namespace {

// In points.
constexpr int facetMarkWidth = 22; // before the title
constexpr int facetExclusionWidth = 26; // at the row's end
constexpr int facetGap = 8;
constexpr int facetSlack = 4; // beside a count, which must not be cut

/// A check mark or a bar, in the middle of the rectangle.
void facetPaintMark(QPainter &painter, const QRect &rect, bool isCheck, const QColor &colour)
{
    const QPointF centre = QRectF(rect).center();
    painter.setPen(QPen(colour, 2, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    if (isCheck)
        painter.drawPolyline(QPolygonF { centre + QPointF(-4, 0), centre + QPointF(-1, 3), centre + QPointF(4, -4) });
    else
        painter.drawLine(centre + QPointF(-4, 0), centre + QPointF(4, 0));
}

}

QRect KXFacetFilterValueDelegate::exclusionRect(const QRect &row, Qt::LayoutDirection direction)
{
    const QRect end(row.right() + 1 - facetExclusionWidth, row.top(), facetExclusionWidth, row.height());
    return QStyle::visualRect(direction, row, end);
}

void KXFacetFilterValueDelegate::paint(
    QPainter *painter, const QStyleOptionViewItem &option, const QModelIndex &index) const
{
    using State = KXFacetFilterValuesModel::State;
    const auto cell = index.data(KXFacetFilterValuesModel::CellRole).value<KXSourceListCell>();
    const auto state = State(index.data(KXFacetFilterValuesModel::StateRole).toInt());
    const QRect row = option.rect;
    const bool isSelected = option.state & QStyle::State_Selected;
    const auto place = [&](int left, int width) {
        return QStyle::visualRect(option.direction, row, QRect(left, row.top(), width, row.height()));
    };
    const QColor text = option.palette.color(QPalette::Active, isSelected ? QPalette::HighlightedText : QPalette::Text);
    QColor pale = text;
    pale.setAlphaF(0.55F);
    const QColor colour = cell.isEnabled ? text : pale;

    painter->save();
    if (const auto *view = qobject_cast<const KXThemeableTableView *>(option.widget))
        painter->fillRect(row, view->rowColour(index.row(), isSelected));
    painter->setRenderHint(QPainter::Antialiasing);
    painter->setLayoutDirection(option.direction);
    painter->setFont(option.font);
    if (state != State::NotChosen)
        facetPaintMark(*painter, place(row.left(), facetMarkWidth), state == State::Included, text);
    QColor exclusion = pale;
    if (state != State::Excluded)
        exclusion.setAlphaF(option.state & QStyle::State_MouseOver || isSelected ? 0.55F : 0.2F);
    if (index.data(KXFacetFilterValuesModel::ExcludableRole).toBool())
        facetPaintMark(*painter, exclusionRect(row, option.direction), false, exclusion);

    int right = row.right() + 1 - facetExclusionWidth - facetGap / 2;
    const QVariant added = index.data(KXFacetFilterValuesModel::AddedRole);
    if (added.isValid()) {
        const QString count = KXClock::locale().toString(cell.count);
        const int width = painter->fontMetrics().horizontalAdvance(count) + facetSlack;
        KXControlPainter::text(*painter, place(right - width, width), Qt::AlignRight | Qt::AlignVCenter, count, pale);
        right -= width + facetGap;
    }
    const int left = row.left() + facetMarkWidth;
    if (right > left)
        KXControlPainter::text(
            *painter, place(left, right - left), Qt::AlignLeft | Qt::AlignVCenter, cell.title, colour);
    painter->restore();
}

QSize KXFacetFilterValueDelegate::sizeHint(const QStyleOptionViewItem &option, const QModelIndex &) const
{
    return { 0, option.fontMetrics.height() + 10 };
}
