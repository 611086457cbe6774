#pragma once

#include "library/Library.h"

class KXFilterSet;

/// Why a track is in the list that is shown, or is not: in words, for the user.
namespace TrackReasons {

/// A line for each filter, by position, with what the track has. The set may be empty: then there is nothing to
/// explain.
[[nodiscard]] QString text(const KXRef<KXFilterSet> &set, const Track &track);

} // namespace TrackReasons
