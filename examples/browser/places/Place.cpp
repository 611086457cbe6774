#include "places/Place.h"

using namespace Qt::StringLiterals;

namespace {

constexpr qsizetype mostPlaceParts = 200; // rows, steps and sort keys of one place: more is rubbish
constexpr qsizetype mostPlaceText = 10'000;

/// Integers that fit; everything else is the least.
int placeInt(const QCborValue &value) { return int(std::clamp<qint64>(value.toInteger(), 0, 1 << 30)); }

bool readUrl(const QCborValue &value, QUrl &url)
{
    const QString text = value.toString();
    url = text.size() <= mostPlaceText ? QUrl(text, QUrl::StrictMode) : QUrl();
    return url.isValid() && !url.isEmpty();
}

} // namespace

QCborValue PlaceArchive::of(const Place &place)
{
    QCborArray source, trail;
    for (const QUrl &url : place.source)
        source.append(url.toString(QUrl::FullyEncoded));
    for (const PlaceStep &step : place.trail)
        trail.append(QCborArray { int(step.kind), step.object.toString(QUrl::FullyEncoded) });
    return QCborArray { source, trail };
}

bool PlaceArchive::read(const QCborValue &value, Place &place)
{
    const QCborArray parts = value.toArray();
    const QCborArray source = parts.at(0).toArray(), trail = parts.at(1).toArray();
    if (parts.size() != 2 || !parts.at(0).isArray() || !parts.at(1).isArray() || source.size() > mostPlaceParts
        || trail.size() > mostPlaceParts)
        return false;
    place = {};
    for (const QCborValue one : source) {
        place.source.append(QUrl());
        if (!readUrl(one, place.source.last()))
            return false;
    }
    for (const QCborValue one : trail) {
        PlaceStep step;
        const qint64 kind = one.toArray().at(0).toInteger();
        if (kind < PlaceStep::ToArtist || kind > PlaceStep::ToAlike || !readUrl(one.toArray().at(1), step.object))
            return false;
        step.kind = PlaceStep::Kind(kind);
        place.trail.append(step);
    }
    return true;
}

QCborValue PlaceArchive::of(const PlaceView &view)
{
    QCborArray selected, order, open;
    for (const QUrl &row : view.open.value_or(QList<QUrl>()))
        open.append(row.toString(QUrl::FullyEncoded));
    for (const qint64 key : view.selected.first(std::min(view.selected.size(), PlaceView::MostSelected)))
        selected.append(key);
    for (const KXSortDescriptor &by : view.order)
        order.append(QCborArray { by.key, by.ascending });
    return QCborArray { view.top, view.offset, view.across, view.current, view.column, selected, order, view.words,
        view.open && open.size() <= mostPlaceParts ? QCborValue(open) : QCborValue(QCborValue::Null) };
}

bool PlaceArchive::read(const QCborValue &value, PlaceView &view)
{
    const QCborArray parts = value.toArray();
    const QCborArray selected = parts.at(5).toArray(), order = parts.at(6).toArray();
    if (parts.size() < 8 || selected.size() > PlaceView::MostSelected || order.size() > mostPlaceParts)
        return false;
    view = {};
    view.top = parts.at(0).toInteger();
    view.offset = placeInt(parts.at(1));
    view.across = placeInt(parts.at(2));
    view.current = parts.at(3).toInteger();
    view.column = placeInt(parts.at(4));
    for (const QCborValue key : selected)
        view.selected.append(key.toInteger());
    for (const QCborValue by : order) {
        const QCborArray one = by.toArray();
        view.order.append({ .key = one.at(0).toString(), .ascending = one.at(1).toBool() });
    }
    view.words = parts.at(7).toString().left(mostPlaceText);
    if (parts.at(8).isArray()
        && parts.at(8).toArray().size() <= mostPlaceParts) { // not there in what was kept by earlier versions
        view.open.emplace();
        for (const QCborValue row : parts.at(8).toArray()) {
            if (QUrl url; readUrl(row, url))
                view.open->append(url);
        }
    }
    return true;
}
