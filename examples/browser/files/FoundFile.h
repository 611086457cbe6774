#pragma once

#include "files/Sounds.h"
#include "import/Scanner.h"
#include "tags/TrackTags.h"

class TagReaders;

/// A music file that somebody named, and what is in it.
struct FoundFile
{
    ScannedFile file;
    std::optional<TrackTags> tags; ///< absent where it is none that can be read
    TrackSound sound;
    QString refusal; ///< why

    /// Reads it through, which takes as long as that. path is in the bytes of the file system. Any thread.
    static FoundFile read(const std::string &path, TagReaders &readers);
};

/// How alike a track and a file are.
enum class FileLikeness {
    Same, ///< the very sound, or one that begins and lasts alike
    Unknown, ///< nothing is known of the track's own
    Other,
};
[[nodiscard]] FileLikeness likenessOf(const Track &track, const FoundFile &file);
