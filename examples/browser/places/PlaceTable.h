#pragma once

#include "places/Place.h"

class FilterStrip;
class TrackTableView;

/// How the table looks at its place, taken and given back.
namespace PlaceTable {

PlaceView viewOf(const TrackTableView &table, const FilterStrip &strip);
/// Tracks that are not in the table any more are left out.
void show(const PlaceView &view, TrackTableView &table, FilterStrip &strip);
/// From the top, nothing selected.
void showTop(TrackTableView &table);

} // namespace PlaceTable
