#include "import/TrackFilling.h"

#include <cmath>

#include "files/Sounds.h"
#include "library/TrackFields.h"
#include "library/TrackNames.h"

using namespace Qt::StringLiterals;

namespace {

using TrackFields::Field;

constexpr double sameLength = 0.02; // seconds: other tags change a guess by less

std::optional<QString> present(const QString &text) { return text.isEmpty() ? std::nullopt : std::optional(text); }

void fillField(Track &track, const TrackTags &tags, Field field, TrackNames &names, KXError *error)
{
    switch (field) {
    case Field::Title:
        track.setTitle(tags.title);
        break;
    case Field::Artist:
        track.setArtistText(present(tags.artistText));
        track.setArtists(names.artists.objects(tags.artists, error));
        break;
    case Field::Album:
        track.setAlbumText(present(tags.album));
        track.setAlbum(names.album(tags.album, tags.albumArtist, error));
        break;
    case Field::Genre:
        track.setGenreText(present(tags.genres.join(", "_L1)));
        track.setGenres(names.genres.objects(tags.genres, error));
        break;
    case Field::Label:
        track.setLabelText(present(tags.labels.join(", "_L1)));
        track.setLabels(names.labels.objects(tags.labels, error));
        break;
    case Field::Year:
        track.setYear(tags.year);
        break;
    case Field::Key:
        track.setKeyOrder(tags.key ? std::optional(tags.key->number * 2 + !tags.key->minor) : std::nullopt);
        track.setKey(names.key(tags.key, error));
        if (track.analysedKey())
            track.setAnalysedKey({});
        break;
    case Field::Tempo:
        track.setBpm(tags.bpm);
        if (track.analysedBpm())
            track.setAnalysedBpm({});
        break;
    case Field::Comment:
        track.setComment(present(tags.comment));
        break;
    }
}

} // namespace

void TrackFilling::setFacts(Track &track, const TrackTags &tags)
{
    const bool lastsOtherwise = std::abs(track.duration().value_or(-1) - tags.duration.value_or(-1)) > sameLength;
    if (track.soundHash() == 0 || (track.soundHash() && lastsOtherwise))
        Sounds::forget(track);
    if (lastsOtherwise)
        TrackFields::forgetAnalysed(track);
    track.setDuration(tags.duration);
    track.setSampleRate(tags.sampleRate);
    track.setChannels(tags.channels);
    track.setBitrate(tags.bitrate);
    track.setImportNotes(present(tags.notes.join(u'\n')));
}

void TrackFilling::fill(Track &track, const TrackTags &tags, TrackNames &names, KXError *error)
{
    setFacts(track, tags);
    track.setTrackNumber(tags.trackNumber);
    const QByteArray says = TrackFields::marks(tags), said = track.fileTags().value_or(QByteArray());
    for (const Field field : TrackFields::all()) {
        // The same text is taken again: who is behind it may have been spelt out.
        if (TrackFields::differs(says, said, field)
            || TrackFields::plainText(track, field) == TrackFields::plainText(tags, field))
            fillField(track, tags, field, names, error);
    }
    track.setFileTags(says);
    if (track.isInserted() || track.fileRating() != tags.rating)
        track.setRating(tags.rating);
    track.setFileRating(tags.rating);
}
