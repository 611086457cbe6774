#pragma once

#include <kestrixkit/context/KXManagedObjectContext.h>

#include "library/Library.h"
#include "places/Place.h"

/// What steps lead to: titles, and the tracks that are there.
namespace PlaceSteps {

/// To what a track has: its artists, album, genres and labels, and to what sounds like it.
QList<PlaceStep> of(const Track &track);
/// To an artist, album, genre or label; nothing for any other object.
std::optional<PlaceStep> to(const KXManagedObject &object);
/// Empty for what is there no more.
QString title(const PlaceStep &step, KXManagedObjectContext &context);
/// What a menu says of it.
QString commandTitle(const PlaceStep &step, KXManagedObjectContext &context);
/// The tracks; false for what is there no more.
KXPredicate predicate(const PlaceStep &step, KXManagedObjectContext &context);
/// Whose filters are those of the place.
QUrl filtersURL(const PlaceStep &step);

} // namespace PlaceSteps
