#include "TrackDelegate.h"

#include <cmath>
#include <numbers>

#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>

#include "BrowserStyle.h"
#include "TrackTableModel.h"

namespace {

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

void paintStars(QPainter *painter, const QStyleOptionViewItem &option, int stars, bool missing)
{
    const QColor bright = missing ? BrowserStyle::missingText() : BrowserStyle::accent();
    for (int star = 1; star <= 5; ++star) {
        const QRect box = TrackDelegate::starBox(option, star);
        painter->fillPath(
            starPath(QRectF(box).center(), box.width() / 2.0), star <= stars ? bright : BrowserStyle::emptyStar());
    }
}

void paintKey(QPainter *painter, const QRect &cell, const MusicalKey &key, const QString &text, bool missing)
{
    const QColor colour = missing ? BrowserStyle::missingText() : BrowserStyle::keyColour(key);
    const QRectF plate(
        cell.left() + BrowserStyle::margin - 2, cell.center().y() - 9, cell.width() - 2 * BrowserStyle::margin + 4, 20);
    QColor fill = colour;
    fill.setAlphaF(0.20F);
    painter->setPen(Qt::NoPen);
    painter->setBrush(fill);
    painter->drawRoundedRect(plate, 5, 5);
    painter->setPen(colour);
    painter->drawText(
        plate, Qt::AlignCenter, painter->fontMetrics().elidedText(text, Qt::ElideRight, int(plate.width()) - 4));
}

} // namespace

void TrackDelegate::paint(QPainter *painter, const QStyleOptionViewItem &option, const QModelIndex &index) const
{
    const bool selected = option.state & QStyle::State_Selected;
    const QColor background = selected                      ? BrowserStyle::selection()
        : option.features & QStyleOptionViewItem::Alternate ? BrowserStyle::alternateRow()
                                                            : BrowserStyle::row();
    painter->fillRect(option.rect, background);

    painter->save();
    painter->setRenderHint(QPainter::Antialiasing);
    const bool missing = index.data(TrackTableModel::MissingRole).toBool();
    const QString text = index.data(Qt::DisplayRole).toString();
    const int key = index.data(TrackTableModel::KeyRole).toInt();
    if (index.column() == TrackTableModel::Rating) {
        paintStars(painter, option, index.data(TrackTableModel::StarsRole).toInt(), missing);
    } else if (key != 0) {
        paintKey(painter, option.rect, { std::abs(key), key < 0 }, text, missing);
    } else {
        const bool primary = index.column() == TrackTableModel::Title || selected;
        painter->setPen(missing ? BrowserStyle::missingText()
                : selected      ? BrowserStyle::selectedText()
                : primary       ? BrowserStyle::text()
                                : BrowserStyle::secondaryText());
        const QRect box = option.rect.adjusted(BrowserStyle::margin, 0, -BrowserStyle::margin, 0);
        const auto alignment
            = QStyle::visualAlignment(option.direction, index.data(Qt::TextAlignmentRole).value<Qt::Alignment>());
        painter->drawText(
            box, int(alignment) | Qt::TextSingleLine, option.fontMetrics.elidedText(text, Qt::ElideRight, box.width()));
    }
    painter->restore();

    if (option.state & QStyle::State_HasFocus) {
        painter->setPen(BrowserStyle::accent());
        painter->drawRect(option.rect.adjusted(0, 0, -1, -1));
    }
}

QSize TrackDelegate::sizeHint(const QStyleOptionViewItem &, const QModelIndex &) const
{
    return { 80, BrowserStyle::rowHeight };
}

QRect TrackDelegate::starBox(const QStyleOptionViewItem &option, int star)
{
    constexpr int size = 12, step = 15;
    const QRect &cell = option.rect;
    const QRect box(
        cell.left() + BrowserStyle::margin + (star - 1) * step, cell.center().y() - size / 2 + 1, size, size);
    return QStyle::visualRect(option.direction, cell, box);
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
        if (starBox(option, star).adjusted(-2, -9, 2, 9).contains(mouse->position().toPoint())) {
            const bool isLast = star == index.data(TrackTableModel::StarsRole).toInt();
            model->setData(index, isLast ? 0 : star, TrackTableModel::StarsRole);
            return true;
        }
    }
    return false;
}
