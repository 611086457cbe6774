#pragma once

#include <string>

#include <QString>

#include "demo/AudioEncoder.h"
#include "demo/Synth.h"
#include "tags/TrackTags.h"

/// One record of the demo music: what is played, how it is tagged and what it is written as.
struct DemoTrack
{
    const char *title;
    const char *artists; ///< parted at ";"
    const char *album;
    const char *genres; ///< parted at ";"
    const char *label;
    const char *key; ///< as in MusicalKey::name
    LoopStyle style;
    double bpm;
    int year;
    int rating; ///< stars; 0 leaves it open
    AudioFormat format;
    bool stems = false; ///< eight channels: drums, bass, chords and lead

    /// "Genre/Artist - Title.ext", relative to its folder.
    [[nodiscard]] QString fileName() const;
    [[nodiscard]] LoopRecipe recipe(uint32_t seed) const;
};

/// A few dozen short loops of people, records and labels that do not exist: real files to run on where
/// nobody names a folder of music.
namespace DemoMusic {

const std::vector<DemoTrack> &tracks();

/// Makes the music in the given folder unless it is there, and answers its path; an empty one and an error
/// when it cannot be written. It appears whole or not at all, also when several processes make it.
std::string make(const QString &cachesFolder, QString *error);

/// Writes a record's tags into its file, in the way of the file's format. An empty text, or what went wrong.
QString writeTags(const DemoTrack &track, int trackNumber, const std::string &path);

} // namespace DemoMusic
