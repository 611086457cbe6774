#include <kestrixkit/filter_ui/editors/KXFilterBarLayout.h>

#include <numeric>

QList<QPoint> KXFilterBarLayout::places(const QList<int> &widths, int barWidth, int rowHeight)
{
    QList<QPoint> places;
    places.reserve(widths.size());
    QPoint at;
    for (const int width : widths) {
        if (width > barWidth - at.x())
            at = { 0, at.y() + rowHeight };
        places.append(at);
        at.rx() += width;
    }
    return places;
}

int KXFilterBarLayout::rows(const QList<int> &widths, int barWidth)
{
    return widths.isEmpty() ? 1 : places(widths, barWidth, 1).last().y() + 1;
}

QList<qsizetype> KXFilterBarLayout::orderAfterDrop(qsizetype count, qsizetype dragged, KXFilterBarDropPosition position)
{
    const std::optional<qsizetype> before = position.index();
    if (position.isNone() || dragged < 0 || dragged >= count || before == dragged || (before && *before >= count))
        return {};
    QList<qsizetype> order(count);
    std::iota(order.begin(), order.end(), qsizetype(0));
    order.removeAt(dragged);
    order.insert(before ? order.indexOf(*before) : order.size(), dragged);
    return order;
}
