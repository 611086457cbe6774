#pragma once

#include <optional>

#include "MusicReader.h"

namespace TempoFinder {

/// Beats a minute; absent where there is no steady beat.
std::optional<double> tempo(const Music &music);

} // namespace TempoFinder
