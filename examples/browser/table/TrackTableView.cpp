#include "table/TrackTableView.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include <QHeaderView>
#include <QPainter>
#include <QPainterPath>
#include <QPixmapCache>

#include <kestrixkit/audio/KXWaveformLibrary.h>
#include <kestrixkit/audio/views/KXAudioPlayerWaveformLayer.h>
#include <kestrixkit/theme/KXStandardTheme.h>
#include <kestrixkit/theme/KXThemeStyleNames.h>
#include <kestrixkit/theme/controls/KXThemeableTableHeaderCell.h>

#include "table/TrackDelegate.h"
#include "window/BrowserStyle.h"

using namespace Qt::StringLiterals;

namespace {

struct TrackColumn
{
    QLatin1StringView identifier; // in the user's settings: stays as it is
    int width;
};

constexpr TrackColumn trackColumns[TrackTableModel::ColumnCount]
    = { { "title"_L1, 220 }, { "artist"_L1, 170 }, { "album"_L1, 162 }, { "genre"_L1, 130 }, { "bpm"_L1, 62 },
          { "key"_L1, 92 }, { "rating"_L1, 98 }, { "length"_L1, 76 }, { "label"_L1, 108 }, { "year"_L1, 58 },
          { "added"_L1, 106 }, { "comment"_L1, 136 }, { "waveform"_L1, 140 } };

constexpr int warningSize = 14; // of the sign on a file that is cut off
constexpr int headMargins = 42; // beside a head's title: twice ten, the sign, and a little air

constexpr double textContrast = 4.5, signContrast = 3;

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
void paintStars(QPainter &painter, const QRect &cell, Qt::LayoutDirection direction, int stars, bool missing,
    const QColor &background)
{
    const QColor bright = BrowserStyle::legible(
                     missing ? BrowserStyle::missingText() : BrowserStyle::accent(), background, signContrast),
                 empty = BrowserStyle::legible(BrowserStyle::emptyStar(), background, signContrast);
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

/// Drawn once: a frame while scrolling only copies it.
void paintWaveform(
    QPainter &painter, const QRect &cell, const KXWaveformColumns &columns, const QUrl &file, QColor colour)
{
    const qreal ratio = painter.device()->devicePixelRatio();
    const QRect place = cell.adjusted(BrowserStyle::margin, 4, -BrowserStyle::margin, -4);
    const QSize pixels = place.size() * ratio;
    if (pixels.isEmpty())
        return;
    const QString key = u"waveform %1 %2 %3 %4"_s.arg(file.toString(), QString::number(pixels.width()),
        QString::number(pixels.height()), QString::number(colour.rgba()));
    QPixmap picture;
    if (!QPixmapCache::find(key, &picture)) {
        picture = QPixmap::fromImage(KXAudioPlayerWaveformLayer::waveformImage(columns, pixels, colour));
        picture.setDevicePixelRatio(ratio);
        QPixmapCache::insert(key, picture);
    }
    painter.drawPixmap(place.topLeft(), picture);
}

/// Texts are slanted while it lives, where they are guesses.
class Slanted
{
public:
    Slanted(QPainter &painter, bool isSlanted)
        : m_painter(painter)
        , m_before(painter.font())
    {
        if (!isSlanted)
            return;
        QFont font = m_before;
        font.setItalic(true);
        painter.setFont(font);
    }
    ~Slanted() { m_painter.setFont(m_before); }
    Q_DISABLE_COPY_MOVE(Slanted)

private:
    QPainter &m_painter;
    const QFont m_before;
};

/// The head of an arrow beside what is played.
void paintPlaying(QPainter &painter, const QRect &cell, Qt::LayoutDirection direction, const QColor &colour)
{
    const QRectF box = QStyle::visualRect(
        direction, cell, QRect(cell.left() + 2, cell.center().y() - 3, BrowserStyle::margin - 4, 8));
    const bool isLeft = direction == Qt::LeftToRight;
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(colour);
    painter.drawPolygon(QPolygonF { isLeft ? box.topLeft() : box.topRight(),
        isLeft ? box.bottomLeft() : box.bottomRight(), QPointF(isLeft ? box.right() : box.left(), box.center().y()) });
    painter.restore();
}

} // namespace

TrackTableView::TrackTableView(QWidget *parent)
    : KXTableView(parent)
{
    setAccessibleName(tr("Tracks"));
    setItemDelegate(new TrackDelegate(this));
    setEditTriggers(QAbstractItemView::NoEditTriggers);
    setThemeStyleName(KXTableStyles);
    static_cast<KXThemeableTableHeaderView *>(horizontalHeader())->setThemeStyleName(KXTableHeaderStyles);
    horizontalHeader()->setMinimumSectionSize(44);
    verticalHeader()->setDefaultSectionSize(BrowserStyle::rowHeight);
    QList<KXTableColumn> columns;
    QFont head = horizontalHeader()->font();
    head.setBold(true);
    for (int i = 0; i < TrackTableModel::ColumnCount; ++i) {
        const auto column = TrackTableModel::Column(i);
        // The title and the sign of what is sorted by can be read, in whatever language and font.
        const int title = QFontMetrics(head).horizontalAdvance(TrackTableModel::title(column)) + headMargins;
        columns.append({ trackColumns[i].identifier, double(std::max(trackColumns[i].width, title)), false,
            TrackTableModel::sortDescriptor(column) });
    }
    setTableColumns(columns);
    setSortDescriptors({ TrackTableModel::sortDescriptor(TrackTableModel::Added) });
}

void TrackTableView::setPlaceOrder(const std::optional<KXSortDescriptor> &order)
{
    if (order == m_placeOrder)
        return;
    if (!m_placeOrder)
        m_ownOrder = sortDescriptors();
    m_placeOrder = order;
    static_cast<TrackTableModel *>(model())->holdOrder();
    setSortDescriptors(order ? QList { *order } : m_ownOrder);
}

void TrackTableView::sortInPlaceOrder()
{
    if (m_placeOrder)
        setSortDescriptors({ *m_placeOrder });
}

void TrackTableView::sortRows(const QList<KXSortDescriptor> &descriptors)
{
    static_cast<TrackTableModel *>(model())->setOrder(descriptors);
}

std::pair<QColor, QColor> TrackTableView::plateColours(const QColor &colour, const QColor &row)
{
    constexpr float share = 0.2F;
    const auto mixed = [](float over, float under) { return over * share + under * (1 - share); };
    const QColor plate = QColor::fromRgbF(
        mixed(colour.redF(), row.redF()), mixed(colour.greenF(), row.greenF()), mixed(colour.blueF(), row.blueF()));
    return { BrowserStyle::legible(colour, plate, textContrast), plate };
}

void TrackTableView::drawCell(QPainter &painter, const KXTableCell &cell) const
{
    const bool missing = cell.index.data(TrackTableModel::MissingRole).toBool();
    if (cell.index.column() == TrackTableModel::Rating) {
        paintStars(painter, cell.rect, layoutDirection(), cell.index.data(TrackTableModel::StarsRole).toInt(), missing,
            rowColour(cell.index.row(), cell.selected));
        return;
    }
    if (const int number = cell.index.data(TrackTableModel::KeyRole).toInt()) {
        const MusicalKey key { std::abs(number), number < 0 };
        const QColor colour = missing ? BrowserStyle::missingText() : BrowserStyle::keyColour(key);
        const QRect plate(cell.rect.left() + BrowserStyle::margin - 2, cell.rect.center().y() - 9,
            cell.rect.width() - 2 * BrowserStyle::margin + 4, 20);
        const auto [letters, fill] = plateColours(colour, rowColour(cell.index.row(), cell.selected));
        const bool isGuess = cell.index.data(TrackTableModel::AnalysedRole).toBool();
        painter.setRenderHint(QPainter::Antialiasing);
        painter.setPen(Qt::NoPen);
        painter.setBrush(fill);
        if (!isGuess)
            painter.drawRoundedRect(plate, 5, 5);
        painter.setRenderHint(QPainter::Antialiasing, false);
        const QColor row = rowColour(cell.index.row(), cell.selected);
        painter.setPen(isGuess ? BrowserStyle::legible(colour, row, textContrast) : letters);
        const Slanted slanted(painter, isGuess);
        drawText(painter, plate.adjusted(2, 0, -2, 0), Qt::AlignHCenter, cell.index.data().toString());
        return;
    }
    if (cell.index.column() == TrackTableModel::Waveform) {
        const QUrl file = cell.index.data(TrackTableModel::LocationRole).toUrl();
        if (const KXWaveformColumns *columns = m_waveforms && !missing ? m_waveforms->overview(file) : nullptr)
            paintWaveform(painter, cell.rect, *columns, file, cell.selected ? cell.text : BrowserStyle::accent());
        return;
    }
    const bool isPlaying = m_playing.isValid() && cell.index.row() == m_playing.row();
    if (isPlaying && cell.index.column() == TrackTableModel::Title)
        paintPlaying(painter, cell.rect, layoutDirection(), cell.selected ? cell.text : BrowserStyle::accent());
    KXTableCell shown = cell;
    if (isPlaying && !missing && !cell.selected && cell.index.column() == TrackTableModel::Title)
        shown.text = BrowserStyle::accent();
    else if (missing)
        shown.text = BrowserStyle::missingText();
    else if (!cell.selected && cell.index.column() != TrackTableModel::Title)
        shown.text = BrowserStyle::secondaryText();
    if (cell.index.column() == TrackTableModel::Title && cell.index.data(TrackTableModel::CutOffRole).toBool()) {
        const QRect sign = QStyle::visualRect(layoutDirection(), cell.rect,
            QRect(cell.rect.right() - warningSize - BrowserStyle::margin, cell.rect.center().y() - warningSize / 2,
                warningSize, warningSize));
        const QColor colour
            = BrowserStyle::legible(BrowserStyle::accent(), rowColour(cell.index.row(), cell.selected), signContrast);
        KXStandardTheme::icon(u":/kestrixkit/icons/warning.svg"_s, colour).paint(&painter, sign);
        shown.rect = layoutDirection() == Qt::LeftToRight
            ? cell.rect.adjusted(0, 0, -warningSize - BrowserStyle::margin, 0)
            : cell.rect.adjusted(warningSize + BrowserStyle::margin, 0, 0, 0);
    }
    const Slanted slanted(painter, cell.index.data(TrackTableModel::AnalysedRole).toBool());
    KXTableView::drawCell(painter, shown);
}

void TrackTableView::setWaveforms(KXWaveformLibrary *waveforms)
{
    m_waveforms = waveforms;
    // Many of them come within a frame.
    connect(waveforms, &KXWaveformLibrary::ready, viewport(), qOverload<>(&QWidget::update));
}

void TrackTableView::setPlayingIndex(const QModelIndex &index)
{
    m_playing = index;
    viewport()->update();
}
