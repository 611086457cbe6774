#pragma once

#include <functional>
#include <set>
#include <string>

#include "library/Library.h"

/// What a file is known again by, whatever it is called and however it is tagged.
struct TrackSound
{
    qint64 hash = 0; ///< of its audio as it is encoded; 0: none that can be read
    qint64 head = 0; ///< of where that begins; 0: none that can be read
    QByteArray outline; ///< of how it begins, in any encoding; empty: it says nothing

    bool operator==(const TrackSound &) const = default;
};

/// The sounds of the library's tracks, and which of them are there more than once.
namespace Sounds {

/// Reads the file through, without decoding more than its beginning. Any thread.
[[nodiscard]] TrackSound ofFile(const std::string &path);
/// Of where the sound begins, for which the file is hardly read; 0 where it cannot be. Any thread.
[[nodiscard]] qint64 headOfFile(const std::string &path);

void set(Track &track, const TrackSound &sound);
/// What was known of the track's file is so no more.
void forget(Track &track);

/// Tracks of a sound that is there in more than one file.
[[nodiscard]] KXPredicate duplicates();
/// Counts the files of these sounds anew. Tracks of a sound say how many there are.
void recount(KXManagedObjectContext &context, const std::set<qint64> &hashes);

/// Reads the sounds of all tracks that have none yet, one file after the other, and saves as it goes. On the context's
/// thread, which reads from disks meanwhile only when nobody else does.
void readMissing(KXManagedObjectContext &context, const std::function<bool()> &stop);

} // namespace Sounds
