#pragma once

#include <optional>

#include <QDateTime>
#include <QUrl>

#include <kestrixkit/context/KXManagedObjectOf.h>
#include <kestrixkit/context/KXPersistentStoreCoordinator.h>
#include <kestrixkit/foundation/KXError.h>

class CrateEntry;
class Track;

class Artist : public KXManagedObjectOf<Artist>
{
public:
    static constexpr QLatin1StringView entityName { "Artist" };
    KX_ATTRIBUTE(QString, name, setName)
    KX_TO_MANY(Track, tracks, Tracks)
};

class Album : public KXManagedObjectOf<Album>
{
public:
    static constexpr QLatin1StringView entityName { "Album" };
    KX_ATTRIBUTE(QString, title, setTitle)
    KX_ATTRIBUTE(QString, artistText, setArtistText) // two albums may share a title
    KX_TO_MANY(Track, tracks, Tracks)
};

class Genre : public KXManagedObjectOf<Genre>
{
public:
    static constexpr QLatin1StringView entityName { "Genre" };
    KX_ATTRIBUTE(QString, name, setName)
    KX_TO_MANY(Track, tracks, Tracks)
};

class Label : public KXManagedObjectOf<Label>
{
public:
    static constexpr QLatin1StringView entityName { "Label" };
    KX_ATTRIBUTE(QString, name, setName)
    KX_TO_MANY(Track, tracks, Tracks)
};

class Key : public KXManagedObjectOf<Key>
{
public:
    static constexpr QLatin1StringView entityName { "Key" };
    KX_ATTRIBUTE(QString, name, setName) // "F#m"
    KX_ATTRIBUTE(int, number, setNumber) // on the wheel of fifths, 1 to 12
    KX_ATTRIBUTE(bool, isMinor, setIsMinor)
    KX_TO_MANY(Track, tracks, Tracks)
};

/// One music file and what is known about it.
class Track : public KXManagedObjectOf<Track>
{
public:
    static constexpr QLatin1StringView entityName { "Track" };
    static constexpr int textOrder = KXCaseInsensitive | KXDiacriticInsensitive; ///< how its texts are sorted

    KX_ATTRIBUTE(QUrl, location, setLocation)
    KX_ATTRIBUTE(qint64, fileSize, setFileSize)
    KX_ATTRIBUTE(qint64, fileModified, setFileModified) // microseconds since 1970 UTC
    KX_ATTRIBUTE(bool, missing, setMissing) // the file was gone when its folder was last looked through

    KX_ATTRIBUTE(QString, title, setTitle)
    // Credits as the file writes them: one column to show and to sort by, beside the single objects below.
    KX_ATTRIBUTE(std::optional<QString>, artistText, setArtistText)
    KX_ATTRIBUTE(std::optional<QString>, albumText, setAlbumText)
    KX_ATTRIBUTE(std::optional<QString>, genreText, setGenreText)
    KX_ATTRIBUTE(std::optional<QString>, labelText, setLabelText)
    KX_ATTRIBUTE(std::optional<double>, bpm, setBpm)
    KX_ATTRIBUTE(std::optional<int>, keyOrder, setKeyOrder) // round the wheel: twice the number, plus one for major
    KX_ATTRIBUTE(std::optional<int>, year, setYear)
    KX_ATTRIBUTE(std::optional<int>, trackNumber, setTrackNumber)
    KX_ATTRIBUTE(std::optional<int>, rating, setRating) // stars, 0 to 5; the user's own
    KX_ATTRIBUTE(std::optional<int>, fileRating, setFileRating) // the one that the file had when it was read
    KX_ATTRIBUTE(std::optional<QString>, comment, setComment)
    KX_ATTRIBUTE(std::optional<double>, duration, setDuration) // seconds
    KX_ATTRIBUTE(std::optional<int>, sampleRate, setSampleRate) // hertz
    KX_ATTRIBUTE(std::optional<int>, channels, setChannels)
    KX_ATTRIBUTE(std::optional<int>, bitrate, setBitrate) // kilobits a second
    KX_ATTRIBUTE(QDateTime, added, setAdded)
    KX_ATTRIBUTE(std::optional<QString>, importNotes, setImportNotes) // lines; what made no sense in the file's tags

    // What the file is known again by. A hash of 0 says that it has no sound that can be read.
    KX_ATTRIBUTE(std::optional<qint64>, soundHash, setSoundHash) // of its packets: see Sounds
    KX_ATTRIBUTE(std::optional<qint64>, soundHead, setSoundHead) // of its first packets
    KX_ATTRIBUTE(std::optional<QByteArray>, soundOutline, setSoundOutline) // of how it begins, however it is encoded
    KX_ATTRIBUTE(std::optional<int>, copies, setCopies) // tracks of that sound whose files are there; absent: this one
    KX_ATTRIBUTE(std::optional<QByteArray>, fileTags, setFileTags) // marks of what it says: see TrackFields

    // What was found by listening, as long as nobody has confirmed it. A tempo or key that is another one by now came
    // from somewhere else.
    KX_ATTRIBUTE(std::optional<double>, analysedBpm, setAnalysedBpm)
    KX_ATTRIBUTE(std::optional<int>, analysedKey, setAnalysedKey) // as keyOrder
    KX_ATTRIBUTE(std::optional<QString>, analysisNote, setAnalysisNote) // why something was not found

    KX_TO_ONE(Album, album, setAlbum)
    KX_TO_ONE(Key, key, setKey)
    KX_TO_MANY(Artist, artists, Artists)
    KX_TO_MANY(Genre, genres, Genres)
    KX_TO_MANY(Label, labels, Labels)
    KX_TO_MANY(CrateEntry, crateEntries, CrateEntries) // its places in crates
};

/// A file that the user took out of the library: imports of its folder leave it alone. What is known of it tells it
/// again when it has moved.
class LeftOutFile : public KXManagedObjectOf<LeftOutFile>
{
public:
    static constexpr QLatin1StringView entityName { "LeftOutFile" };
    KX_ATTRIBUTE(QUrl, location, setLocation)
    KX_ATTRIBUTE(std::optional<qint64>, fileSize, setFileSize)
    KX_ATTRIBUTE(std::optional<qint64>, fileModified, setFileModified) // microseconds since 1970 UTC
    KX_ATTRIBUTE(std::optional<double>, duration, setDuration) // seconds
    KX_ATTRIBUTE(std::optional<qint64>, soundHash, setSoundHash) // as a track's
};

/// The library's object model and its store.
namespace Library {

/// Registers the classes above. Call it once, before a store is opened.
void registerEntities();

KXManagedObjectModel::Ref model();

/// Opens or makes the library's file; nullptr and an error where that cannot be. A library of an older version becomes
/// one of this version, its old file is kept beside it.
KXPersistentStoreCoordinator::Ref open(const QString &path, KXError *error);

} // namespace Library
