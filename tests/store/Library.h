/// A small music library for the tests of the store: every kind of attribute and relationship.
#pragma once

#include <string>

#include <functional>

#include <QTemporaryDir>

#include <kestrixkit/context/KXManagedObjectOf.h>
#include <kestrixkit/foundation/KXDecimal.h>

class Album;
class Genre;
class Tag;

/// Artists and their kinds share a table.
class Person : public KXManagedObjectOf<Person>
{
public:
    static constexpr QLatin1StringView entityName { "Person" };
    KX_ATTRIBUTE(QString, name, setName)
    KX_TO_MANY(Album, albums, Albums)
};

class Producer : public KXManagedObjectOf<Producer, Person>
{
public:
    static constexpr QLatin1StringView entityName { "Producer" };
    KX_ATTRIBUTE(std::optional<QString>, studio, setStudio)
};

class Track : public KXManagedObjectOf<Track>
{
public:
    static constexpr QLatin1StringView entityName { "Track" };
    KX_ATTRIBUTE(QString, title, setTitle)
    KX_ATTRIBUTE(std::optional<QString>, comment, setComment)
    KX_ATTRIBUTE(std::optional<QString>, identifier, setIdentifier)
    KX_ATTRIBUTE(std::optional<double>, bpm, setBpm)
    KX_ATTRIBUTE(std::optional<int>, year, setYear)
    KX_ATTRIBUTE(qint64, plays, setPlays)
    KX_ATTRIBUTE(bool, loved, setLoved)
    KX_ATTRIBUTE(std::optional<QDateTime>, added, setAdded)
    KX_ATTRIBUTE(std::optional<KXDecimal>, price, setPrice)
    KX_ATTRIBUTE(std::optional<QUrl>, file, setFile)
    KX_ATTRIBUTE(std::optional<QUuid>, uuid, setUuid)
    KX_ATTRIBUTE(std::optional<QByteArray>, cover, setCover)
    KX_ATTRIBUTE(QVariant, extra, setExtra)
    KX_ATTRIBUTE(std::optional<QString>, scratch, setScratch)
    KX_TO_ONE(Album, album, setAlbum)
    KX_TO_ONE(Track, original, setOriginal)
    KX_TO_ONE(Track, remix, setRemix)
    KX_TO_MANY(Genre, genres, Genres)
    KX_TO_MANY(Track, neighbours, Neighbours)
    KX_TO_MANY(Tag, tags, Tags)

    int awakened = 0;
    static inline std::function<void(Track &)> whenAwakened;
    int prepared = 0;

protected:
    void awakeFromFetch() override
    {
        ++awakened;
        if (whenAwakened)
            whenAwakened(*this);
    }
    void awakeFromInsert() override { ++awakened; }
    void prepareForDeletion() override { ++prepared; }
};

class Album : public KXManagedObjectOf<Album>
{
public:
    static constexpr QLatin1StringView entityName { "Album" };
    KX_ATTRIBUTE(QString, title, setTitle)
    KX_TO_ONE(Person, artist, setArtist)
    KX_TO_MANY(Track, tracks, Tracks)
};

class Genre : public KXManagedObjectOf<Genre>
{
public:
    static constexpr QLatin1StringView entityName { "Genre" };
    KX_ATTRIBUTE(QString, name, setName)
    KX_TO_MANY(Track, tracks, Tracks)
};

/// Leads nowhere back; refuses to go while it has tracks.
class Tag : public KXManagedObjectOf<Tag>
{
public:
    static constexpr QLatin1StringView entityName { "Tag" };
    KX_ATTRIBUTE(QString, name, setName)
    KX_TO_MANY(Track, members, Members)
};

namespace Library {

KXManagedObjectModel::Ref model();

/// The object in a line: identifier, stored attributes and relationships by the keys at their other ends.
QString describe(const KXManagedObject &object);
/// All that the context's store holds, as the context sees it: a line an object, sorted.
QStringList dump(KXManagedObjectContext &context);

/// What SQLite says against the file; empty where it is sound.
std::string damage(const QString &path);
/// Makes a file of those bytes.
void write(const QString &path, const QByteArray &bytes);
/// Runs SQL on the file behind the framework's back.
void tamper(const QString &path, const char *sql);

}

/// A store in a temporary folder and a context on it.
class LibraryTest
{
public:
    LibraryTest();
    [[nodiscard]] QString path() const { return folder.filePath(QStringLiteral("library.db")); }
    [[nodiscard]] QUrl url() const { return QUrl::fromLocalFile(path()); }
    void open();
    void reopen();
    [[nodiscard]] KXManagedObjectContext::Ref otherContext() const
    {
        return KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator);
    }
    KXRef<Track> track(const QString &title);
    KXRef<Genre> genre(const QString &name);

    QTemporaryDir folder;
    KXPersistentStoreCoordinator::Ref coordinator;
    KXManagedObjectContext::Ref context;
};
