#include "TrackTableView.h"

#include <cmath>
#include <numbers>

#include <QHeaderView>
#include <QPainter>
#include <QPainterPath>
#include <QPixmapCache>
#include <QScrollBar>

#include <kestrixkit/theme/KXThemeStyleNames.h>
#include <kestrixkit/theme/controls/KXThemeableScroller.h>
#include <kestrixkit/theme/controls/KXThemeableTableHeaderCell.h>

#include "BrowserStyle.h"
#include "TrackDelegate.h"

using namespace Qt::StringLiterals;

namespace {

struct TrackColumn
{
    QLatin1StringView identifier; // in the user's settings: stays as it is
    int width;
};

constexpr TrackColumn trackColumns[TrackTableModel::ColumnCount] = { { "title"_L1, 220 }, { "artist"_L1, 170 },
    { "album"_L1, 162 }, { "genre"_L1, 130 }, { "bpm"_L1, 62 }, { "key"_L1, 92 }, { "rating"_L1, 98 },
    { "length"_L1, 76 }, { "label"_L1, 108 }, { "year"_L1, 58 }, { "added"_L1, 106 }, { "comment"_L1, 136 } };

QPainterPath starPath(QPointF centre, double radius)
{
    QPolygonF star;
    for (int i = 0; i < 10; ++i) {
        const double angle = std::numbers::pi * (i / 5.0 - 0.5), r = i % 2 ? radius * 0.45 : radius;
        star.append(centre + QPointF(r * std::cos(angle), r * std::sin(angle)));
    }
    QPainterPath path;
    path.addPolygon(star);
    path.closeSubpath();
    return path;
}

/// Five stars, that many of them bright. Their paths cost more than all texts of the row: they are painted once.
void paintStars(QPainter &painter, const QRect &cell, Qt::LayoutDirection direction, int stars, bool missing)
{
    const QColor bright = missing ? BrowserStyle::missingText() : BrowserStyle::accent(),
                 empty = BrowserStyle::emptyStar();
    const QRect place = TrackDelegate::starBox(cell, 1, direction).united(TrackDelegate::starBox(cell, 5, direction));
    const qreal ratio = painter.device()->devicePixelRatio();
    const QString key
        = u"stars %1 %2 %3 %4 %5"_s.arg(stars).arg(int(direction)).arg(bright.rgba()).arg(empty.rgba()).arg(ratio);
    QPixmap picture;
    if (!QPixmapCache::find(key, &picture)) {
        picture = QPixmap(place.size() * ratio);
        picture.setDevicePixelRatio(ratio);
        picture.fill(Qt::transparent);
        QPainter drawing(&picture);
        drawing.setRenderHint(QPainter::Antialiasing);
        drawing.translate(-place.topLeft());
        for (int number = 1; number <= 5; ++number) {
            const QRectF box = TrackDelegate::starBox(cell, number, direction);
            drawing.fillPath(starPath(box.center(), box.width() / 2), number <= stars ? bright : empty);
        }
        drawing.end();
        QPixmapCache::insert(key, picture);
    }
    painter.drawPixmap(place.topLeft(), picture);
}

} // namespace

TrackTableView::TrackTableView(QWidget *parent)
    : KXTableView(parent)
{
    setAccessibleName(tr("Tracks"));
    setItemDelegate(new TrackDelegate(this));
    setEditTriggers(QAbstractItemView::NoEditTriggers);
    setThemeStyleName(KXTableStyles);
    for (QScrollBar *bar : { verticalScrollBar(), horizontalScrollBar() })
        static_cast<KXThemeableScroller *>(bar)->setThemeStyleName(KXScrollerStyles);
    static_cast<KXThemeableTableHeaderView *>(horizontalHeader())->setThemeStyleName(KXTableHeaderStyles);
    horizontalHeader()->setMinimumSectionSize(44);
    verticalHeader()->setDefaultSectionSize(BrowserStyle::rowHeight);
    QList<KXTableColumn> columns;
    for (int i = 0; i < TrackTableModel::ColumnCount; ++i)
        columns.append({ trackColumns[i].identifier, double(trackColumns[i].width), false,
            TrackTableModel::sortDescriptor(TrackTableModel::Column(i)) });
    setTableColumns(columns);
    setSortDescriptors({ TrackTableModel::sortDescriptor(TrackTableModel::Added) });
}

void TrackTableView::sortRows(const QList<KXSortDescriptor> &descriptors)
{
    static_cast<TrackTableModel *>(model())->setSortDescriptors(descriptors);
}

void TrackTableView::drawCell(QPainter &painter, const KXTableCell &cell) const
{
    const bool missing = cell.index.data(TrackTableModel::MissingRole).toBool();
    if (cell.index.column() == TrackTableModel::Rating) {
        paintStars(painter, cell.rect, layoutDirection(), cell.index.data(TrackTableModel::StarsRole).toInt(), missing);
        return;
    }
    if (const int number = cell.index.data(TrackTableModel::KeyRole).toInt()) {
        const MusicalKey key { std::abs(number), number < 0 };
        const QColor colour = missing ? BrowserStyle::missingText() : BrowserStyle::keyColour(key);
        const QRect plate(cell.rect.left() + BrowserStyle::margin - 2, cell.rect.center().y() - 9,
            cell.rect.width() - 2 * BrowserStyle::margin + 4, 20);
        QColor fill = colour;
        fill.setAlphaF(0.20F);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.setPen(Qt::NoPen);
        painter.setBrush(fill);
        painter.drawRoundedRect(plate, 5, 5);
        painter.setRenderHint(QPainter::Antialiasing, false);
        painter.setPen(colour);
        drawText(painter, plate.adjusted(2, 0, -2, 0), Qt::AlignHCenter, cell.index.data().toString());
        return;
    }
    KXTableCell shown = cell;
    if (missing)
        shown.text = BrowserStyle::missingText();
    else if (!cell.selected && cell.index.column() != TrackTableModel::Title)
        shown.text = BrowserStyle::secondaryText();
    KXTableView::drawCell(painter, shown);
}
