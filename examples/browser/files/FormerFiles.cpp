#include "files/FormerFiles.h"

#include <algorithm>

#include <kestrixkit/audio/KXAudioOutline.h>
#include <kestrixkit/context/KXManagedObjectContext.h>

using namespace Qt::StringLiterals;

namespace {

// Seconds by which lengths may differ: other tags change guesses a little, other encoders add silence.
constexpr double formerSameLength = 0.02, formerLikeLength = 0.6;

} // namespace

FormerFiles::FormerFiles(KXManagedObjectContext &context, const std::function<bool(const std::string &)> &wasSeen)
    : m_context(context)
{
    for (const KXRef<Track> &track : Track::findAllInContext(context)) {
        if (track && !wasSeen(pathOfUrl(track->location())))
            m_tracks.push_back({ track->duration().value_or(-1), track->objectID().key(), track->fileSize(),
                track->fileModified(), track->soundHash().value_or(0), Former::Unknown });
    }
    std::sort(m_tracks.begin(), m_tracks.end(), [](const Former &a, const Former &b) {
        return a.duration != b.duration ? a.duration < b.duration : a.key < b.key;
    });
}

KXRef<Track> FormerFiles::track(qint64 key) const
{
    const KXPersistentStoreCoordinator::Ref coordinator = m_context.persistentStoreCoordinator();
    const KXManagedObjectID id(
        coordinator->store()->identity(), coordinator->model()->entity(QString(Track::entityName)), key);
    const KXRef<Track> track = Track::cast(m_context.objectWithID(id));
    return track && !track->isMissing() && !track->isDeleted() ? track : KXRef<Track>();
}

FormerFiles::Range FormerFiles::ofLength(std::optional<double> duration, double give)
{
    const double length = duration.value_or(-1);
    const auto isShorter = [](const Former &former, double than) { return former.duration < than; };
    const auto from = std::lower_bound(m_tracks.begin(), m_tracks.end(), length - give, isShorter);
    return { from, std::lower_bound(from, m_tracks.end(), length + give, isShorter) };
}

bool FormerFiles::isGone(Former &former)
{
    if (former.state == Former::Unknown) {
        const KXRef<Track> known = track(former.key);
        former.state = known && ::isGone(pathOfUrl(known->location())) ? Former::Gone : Former::There;
    }
    return former.state == Former::Gone;
}

bool FormerFiles::isGone(qint64 track)
{
    return std::any_of(m_tracks.begin(), m_tracks.end(),
        [&](const Former &former) { return former.key == track && former.state == Former::Gone; });
}

qint64 FormerFiles::ofSameFile(const ScannedFile &file, std::optional<double> duration)
{
    const auto [from, to] = ofLength(duration, formerSameLength);
    const auto found = std::find_if(from, to,
        [&](Former &former) { return former.size == file.size && former.modified == file.modified && isGone(former); });
    return found == to ? 0 : found->key;
}

bool FormerFiles::mayHave(std::optional<double> duration)
{
    const auto [from, to] = ofLength(duration, formerLikeLength);
    return duration && std::any_of(from, to, [&](Former &former) { return former.hash != 0 && isGone(former); });
}

qint64 FormerFiles::ofSameSound(const TrackSound &sound, std::optional<double> duration)
{
    const auto [from, to] = ofLength(duration, formerLikeLength);
    const auto found = std::find_if(
        from, to, [&](Former &former) { return sound.hash != 0 && former.hash == sound.hash && isGone(former); });
    return found == to ? 0 : found->key;
}

std::vector<LikelyFile> FormerFiles::alike(
    const TrackSound &sound, std::optional<double> duration, const std::string &path)
{
    std::vector<LikelyFile> likely;
    const auto outline = KXAudioOutline::fromBytes(sound.outline);
    const auto [from, to] = ofLength(duration, formerLikeLength);
    for (auto former = from; former != to && !outline.isEmpty(); ++former) {
        const KXRef<Track> known = former->hash != 0 && isGone(*former) ? track(former->key) : KXRef<Track>();
        if (!known)
            continue;
        const double likeness
            = outline.likeness(KXAudioOutline::fromBytes(known->soundOutline().value_or(QByteArray())));
        if (likeness >= KXAudioOutline::LikeFrom)
            likely.push_back({ former->key, path, likeness });
    }
    std::stable_sort(
        likely.begin(), likely.end(), [](const auto &a, const auto &b) { return a.likeness > b.likeness; });
    return likely;
}

void FormerFiles::take(qint64 track)
{
    for (Former &former : m_tracks) {
        if (former.key == track)
            former.state = Former::There;
    }
}
