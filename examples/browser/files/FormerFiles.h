#pragma once

#include <functional>
#include <string>
#include <vector>

#include "files/Sounds.h"
#include "import/Scanner.h"
#include "library/Library.h"

/// A file that may be that of a track whose own is gone.
struct LikelyFile
{
    qint64 track = 0; ///< its key
    std::string path; ///< in the bytes of the file system
    double likeness = 0; ///< of how both begin, up to 1
};

/// Tracks whose files are gone, and which new file is one of theirs: the same file under another name, the same sound
/// with other tags, or a sound that begins and lasts alike. Whether a file is gone is looked up when one of its length
/// turns up. On the context's thread.
class FormerFiles
{
public:
    /// Reads the library's tracks but those whose files were seen, as the function says of their paths.
    FormerFiles(KXManagedObjectContext &context, const std::function<bool(const std::string &)> &wasSeen);

    /// The track whose file it was, of that size and time; 0: none. Nothing has to be read for that.
    [[nodiscard]] qint64 ofSameFile(const ScannedFile &file, std::optional<double> duration);
    /// Whether there is one of about that length: then the sound of the file says more.
    [[nodiscard]] bool mayHave(std::optional<double> duration);
    [[nodiscard]] qint64 ofSameSound(const TrackSound &sound, std::optional<double> duration);
    /// Best first.
    [[nodiscard]] std::vector<LikelyFile> alike(
        const TrackSound &sound, std::optional<double> duration, const std::string &path);
    /// It has a file again.
    void take(qint64 track);
    [[nodiscard]] bool isGone(qint64 track);

private:
    struct Former
    {
        enum State : char { Unknown, Gone, There };
        double duration; // seconds; -1: unknown
        qint64 key, size, modified, hash;
        State state;
    };
    using Range = std::pair<std::vector<Former>::iterator, std::vector<Former>::iterator>;

    [[nodiscard]] Range ofLength(std::optional<double> duration, double give);
    [[nodiscard]] bool isGone(Former &former);
    [[nodiscard]] KXRef<Track> track(qint64 key) const;

    KXManagedObjectContext &m_context;
    std::vector<Former> m_tracks; // by duration
};
