#include "start/StartLibrary.h"

#include <cstdio>
#include <cstdlib>

#include <QFile>
#include <QFileInfo>
#include <QHash>

#include <library/Library.h>

#include "counts/RulePresets.h"
#include "store/BenchLibrary.h"
#include "store/StoreFiller.h"

using namespace Qt::StringLiterals;

namespace {

constexpr qint64 startFirstAdded = 1'577'880'000'000'000; // microseconds since 1970: the beginning of 2020
constexpr qint64 startAddedEvery = 600'000'000; // microseconds: within six years, or twenty for a million
constexpr int startKeys = 24;

struct StartNames
{
    std::vector<qint64> keys;
    QStringList names;

    [[nodiscard]] size_t any(std::mt19937 &random) const { return random() % keys.size(); }
};

StartNames makeNames(StoreFiller &filler, const char *sql, const QStringList &names)
{
    StartNames made { {}, names };
    for (const QString &name : names)
        made.keys.push_back(filler.insert(sql, { name }));
    return made;
}

/// Each is another one.
QStringList startTitles(int count, quint32 seed)
{
    BenchLibrary::Source source(seed);
    QStringList titles;
    for (int i = 0; i < count; ++i)
        titles.append(source.next().title);
    return titles;
}

class StartTracks
{
public:
    StartTracks(StoreFiller &filler, int count)
        : m_filler(filler)
        , m_artists(makeNames(
              filler, "INSERT INTO Artist(kx_id, kx_version, name) VALUES(?, 1, ?)", startTitles(count / 8, 2)))
        , m_albums(makeNames(
              filler, "INSERT INTO Album(kx_id, kx_version, title) VALUES(?, 1, ?)", startTitles(count / 5, 3)))
        , m_labels(makeNames(
              filler, "INSERT INTO Label(kx_id, kx_version, name) VALUES(?, 1, ?)", startTitles(count / 150, 4)))
    {
        for (int i = 0; i < startKeys; ++i)
            m_keys.push_back(
                filler.insert("INSERT INTO Key(kx_id, kx_version, name, number, isMinor) VALUES(?, 1, ?, ?, ?)",
                    { u"Key %1"_s.arg(i), 1 + i / 2, i % 2 == 0 }));
    }

    void add(int number)
    {
        const PlainTrack plain = m_source.next();
        const size_t artist = m_artists.any(m_random), album = m_albums.any(m_random), label = m_labels.any(m_random);
        const int key = number % startKeys;
        const qint64 track = m_filler.insert(
            "INSERT INTO Track(kx_id, kx_version, location, fileSize, fileModified, missing, title, artistText, "
            "albumText, genreText, labelText, bpm, keyOrder, year, rating, comment, duration, sampleRate, channels, "
            "bitrate, added, album, \"key\", soundHash, soundHead) VALUES(?, 1, ?, ?, ?, 0, ?, ?, ?, ?, ?, ?, ?, ?, ?, "
            "?, ?, 44100, 2, 320, ?, ?, ?, ?, ?)",
            { u"file:///music/%1/%2.flac"_s.arg(album).arg(number), number, number, plain.title,
                m_artists.names[qsizetype(artist)], m_albums.names[qsizetype(album)], plain.genre,
                m_labels.names[qsizetype(label)], plain.bpm, 2 + key, plain.year, plain.rating,
                plain.comment.isEmpty() ? QVariant() : QVariant(plain.comment), plain.duration,
                startFirstAdded + number * startAddedEvery, m_albums.keys[album], m_keys[size_t(key)], number + 1,
                number + 1 }); // each sound is known, and another one
        m_filler.pair("INSERT INTO \"kx_Artist.tracks\"(a, b) VALUES(?, ?)", m_artists.keys[artist], track);
        m_filler.pair("INSERT INTO \"kx_Genre.tracks\"(a, b) VALUES(?, ?)", genre(plain.genre), track);
        m_filler.pair("INSERT INTO \"kx_Label.tracks\"(a, b) VALUES(?, ?)", m_labels.keys[label], track);
    }

private:
    qint64 genre(const QString &name)
    {
        qint64 &key = m_genres[name];
        if (key == 0)
            key = m_filler.insert("INSERT INTO Genre(kx_id, kx_version, name) VALUES(?, 1, ?)", { name });
        return key;
    }

    StoreFiller &m_filler;
    BenchLibrary::Source m_source;
    std::mt19937 m_random { 5 };
    const StartNames m_artists, m_albums, m_labels;
    std::vector<qint64> m_keys;
    QHash<QString, qint64> m_genres;
};

void makeWithPresets(const QString &path)
{
    Library::registerEntities();
    KXError error;
    const auto coordinator = Library::open(path, &error);
    if (!coordinator) {
        std::fprintf(stderr, "%s\n", qPrintable(error.localizedDescription()));
        std::exit(1);
    }
    const auto context = KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator);
    RulePresets::make(*context, { u"genres.name"_s, true, {}, {} });
}

}

int StartLibrary::tracks() { return qEnvironmentVariableIsSet("KX_BENCH_FULL") ? 1'000'000 : 300'000; }

QString StartLibrary::folder() { return QFileInfo(BenchLibrary::emptyStorePath()).absolutePath(); }

QString StartLibrary::path() { return folder() + u"/start-%1k.db"_s.arg(tracks() / 1000); }

void StartLibrary::prepare()
{
    if (QFile::exists(path()))
        return;
    const QString making = path() + u".making"_s;
    QFile::remove(making);
    makeWithPresets(making);
    {
        StoreFiller filler(making);
        StartTracks all(filler, tracks());
        for (int i = 0; i < tracks(); ++i)
            all.add(i);
    }
    if (!QFile::rename(making, path()))
        std::exit(1);
}
