#include "files/FoundFile.h"

#include <cmath>

#include <kestrixkit/audio/KXAudioOutline.h>

#include "tags/TagReaders.h"

namespace {

constexpr double foundLikeLength = 0.6; // seconds that an encoder may add

}

FoundFile FoundFile::read(const std::string &path, TagReaders &readers)
{
    FoundFile found;
    found.file.path = path;
    const Scan scan = scanFiles({ path });
    if (scan.files.empty()) {
        found.refusal = scan.skipped.empty() ? QString() : scan.skipped.front().reason;
        return found;
    }
    found.file = scan.files.front();
    const TagReading reading = readers.read(found.file.path);
    found.tags = reading.tags;
    found.refusal = reading.refusal;
    if (found.tags)
        found.sound = Sounds::ofFile(found.file.path);
    return found;
}

FileLikeness likenessOf(const Track &track, const FoundFile &file)
{
    const qint64 hash = track.soundHash().value_or(0);
    if (hash != 0 && hash == file.sound.hash)
        return FileLikeness::Same;
    const bool lasts = track.duration() && file.tags && file.tags->duration
        && std::abs(*track.duration() - *file.tags->duration) <= foundLikeLength;
    if (hash == 0)
        return lasts || !track.duration() ? FileLikeness::Unknown : FileLikeness::Other;
    const auto outline = KXAudioOutline::fromBytes(track.soundOutline().value_or(QByteArray()));
    const double likeness = outline.likeness(KXAudioOutline::fromBytes(file.sound.outline));
    return lasts && likeness >= KXAudioOutline::LikeFrom ? FileLikeness::Same : FileLikeness::Other;
}
