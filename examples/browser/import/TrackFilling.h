#pragma once

#include "library/Library.h"
#include "tags/TrackTags.h"

class TrackNames;

/// From what a file says into its track.
namespace TrackFilling {

/// What the sound is like, and what made no sense: nothing that anybody edits.
void setFacts(Track &track, const TrackTags &tags);
/// The fields as well. What the user changed here stays until the file itself says something new.
void fill(Track &track, const TrackTags &tags, TrackNames &names, KXError *error);

} // namespace TrackFilling
