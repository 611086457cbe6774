#pragma once

#include "MusicReader.h"

namespace KeyFinder {

/// "Am", "F#"; empty where none stands out.
QString key(const Music &music);

} // namespace KeyFinder
