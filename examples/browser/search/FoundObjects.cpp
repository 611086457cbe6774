#include "search/FoundObjects.h"

#include <span>

#include "filters/FilterStrip.h"
#include "places/PlaceNavigator.h"
#include "places/PlaceSteps.h"
#include "places/SourceColumn.h"
#include "player/Preview.h"
#include "table/TrackTableView.h"

FoundObjects::FoundObjects(Parts parts, QObject *parent)
    : QObject(parent)
    , m_parts(std::move(parts))
{
}

/// -1 where it is not in the table.
int FoundObjects::rowOf(const KXManagedObjectID &track) const
{
    const qint64 key = track.key();
    return int(m_parts.model->tracks().indexesOf(std::span(&key, 1)).front());
}

bool FoundObjects::showTrack(const KXManagedObjectID &track)
{
    int row = rowOf(track);
    if (row < 0) { // it lies elsewhere
        m_parts.places->visitAllTracks();
        m_parts.strip->setNarrowingText({});
        row = rowOf(track);
    }
    TrackTableView *const table = m_parts.table;
    const QModelIndex index = m_parts.model->index(row, 0);
    if (!index.isValid())
        return false;
    table->setCurrentIndex(index);
    table->selectRow(index.row());
    table->scrollTo(index, QAbstractItemView::PositionAtCenter);
    table->setFocus();
    return true;
}

void FoundObjects::show(const KXManagedObjectID &found)
{
    const KXRef<KXManagedObject> object = m_parts.context->objectWithID(found);
    if (!object || object->isDeleted() || object->isMissing())
        return;
    if (m_parts.sources->selectPlaces({ found.URIRepresentation() }))
        return;
    if (KXDynamicRefCast<Track>(object)) {
        showTrack(found);
        return;
    }
    if (const auto step = PlaceSteps::to(*object))
        m_parts.places->visit({ { m_parts.sources->allTracksURL() }, { *step } });
    m_parts.table->setCurrentIndex(m_parts.model->index(0, 0));
    m_parts.table->setFocus();
}

void FoundObjects::play(const KXManagedObjectID &found)
{
    show(found);
    if (m_parts.table->currentIndex().isValid())
        m_parts.preview->playRow(m_parts.table->currentIndex().row());
}
