#include "store/BenchLibrary.h"

#include <cstdio>
#include <cstdlib>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <kestrixkit/store/KXPersistentStore.h>

using namespace Qt::StringLiterals;

namespace {

QString benchFolder()
{
    const QString folder = qEnvironmentVariable("KX_BENCH_DATA", u"bench-data"_s);
    QDir().mkpath(folder);
    return folder;
}

}

PlainTrack BenchLibrary::Source::next()
{
    static const QString genres[] = { u"House"_s, u"Deep House"_s, u"Tech House"_s, u"Techno"_s, u"Minimal"_s,
        u"Trance"_s, u"Drum & Bass"_s, u"Breaks"_s, u"Electro"_s, u"Ambient"_s, u"Dub"_s, u"Disco"_s, u"Hip-Hop"_s,
        u"Downtempo"_s, u"Hardcore"_s, u"Garage"_s };
    static const QString words[]
        = { u"Night"_s, u"Signal"_s, u"Velvet"_s, u"Machine"_s, u"Ocean"_s, u"Mirror"_s, u"Über"_s, u"Static"_s,
              u"Garden"_s, u"Nova"_s, u"Echo"_s, u"Paper"_s, u"Amber"_s, u"Circuit"_s, u"Saudade"_s, u"North"_s };
    const auto word = [&] { return words[m_random() % std::size(words)]; };
    const auto number = [&](int below) { return int(m_random() % uint(below)); };
    PlainTrack track;
    track.title = word() + u' ' + word() + u' ' + QString::number(m_number++);
    track.artist = word() + u' ' + QString::number(number(20'000));
    track.album = word() + u' ' + word() + u' ' + QString::number(number(80'000));
    track.genre = genres[number(int(std::size(genres)))];
    track.comment = number(3)
        ? QString()
        : u"Bought in "_s + QString::number(2000 + number(26)) + u", plays well after "_s + word();
    track.year = 1970 + number(56);
    track.rating = number(6);
    track.plays = number(300);
    track.bpm = 60 + number(14'000) / 100.0;
    track.duration = 90 + number(600'000) / 1000.0;
    track.gain = number(2'000) / 100.0 - 10;
    track.energy = number(10'000) / 10'000.0;
    return track;
}

KXManagedObjectModel::Ref BenchLibrary::model(bool indexed, bool sortable)
{
    BenchTrack::registerEntity();
    KXEntityDescription track(u"Track"_s);
    for (const auto name : { "title"_L1, "artist"_L1, "album"_L1, "genre"_L1, "comment"_L1 }) {
        auto property = KXPropertyDescription::attribute(QString(name), KXAttributeType::String);
        if (indexed && name == "genre"_L1)
            property.indexed();
        if (sortable && name == "title"_L1)
            property.indexedFolded(KXCaseInsensitive | KXDiacriticInsensitive);
        track.add(property);
    }
    for (const auto name : { "year"_L1, "rating"_L1, "plays"_L1 })
        track.add(KXPropertyDescription::attribute(QString(name), KXAttributeType::Integer64));
    for (const auto name : { "bpm"_L1, "duration"_L1, "gain"_L1, "energy"_L1 }) {
        auto property = KXPropertyDescription::attribute(QString(name), KXAttributeType::Double);
        if (indexed && name == "bpm"_L1)
            property.indexed();
        track.add(property);
    }
    return KXManagedObjectModel::make({ track });
}

void BenchTrack::take(const PlainTrack &plain)
{
    setTitle(plain.title);
    setArtist(plain.artist);
    setAlbum(plain.album);
    setGenre(plain.genre);
    setComment(plain.comment);
    setYear(plain.year);
    setRating(plain.rating);
    setPlays(plain.plays);
    setBpm(plain.bpm);
    setDuration(plain.duration);
    setGain(plain.gain);
    setEnergy(plain.energy);
}

QString BenchLibrary::storePath(bool indexed) { return benchFolder() + (indexed ? u"/indexed.db"_s : u"/plain.db"_s); }
QString BenchLibrary::emptyStorePath() { return benchFolder() + u"/empty.db"_s; }

KXManagedObjectContext::Ref BenchLibrary::open(const QString &path, bool indexed, bool sortable)
{
    KXError error;
    const auto coordinator = KXPersistentStoreCoordinator::persistentStoreCoordinatorWithStoreURL(
        QUrl::fromLocalFile(path), model(indexed, sortable), &error);
    if (!coordinator) {
        std::fprintf(stderr, "%s\n", qPrintable(error.localizedDescription()));
        std::exit(1);
    }
    const auto context = KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator);
    context->setUndoManager(nullptr); // which the peers have none of
    return context;
}

void BenchLibrary::insert(KXManagedObjectContext &context, Source &source, int count)
{
    for (int i = 0; i < count; ++i) {
        const PlainTrack plain = source.next();
        BenchTrack::createInContext(context)->take(plain);
    }
    if (!context.save())
        std::exit(1);
}

void BenchLibrary::prepare()
{
    for (const bool indexed : { false, true }) {
        if (QFile::exists(storePath(indexed)))
            continue;
        const QString making = storePath(indexed) + u".making"_s;
        QFile::remove(making);
        {
            const auto context = open(making, indexed);
            Source source;
            for (int saved = 0; saved < Rows; saved += 50'000)
                insert(*context, source, 50'000);
        }
        QFile::rename(making, storePath(indexed));
    }
    if (!QFile::exists(emptyStorePath()))
        open(emptyStorePath());
}

QString BenchLibrary::scratchCopy(const QString &path)
{
    static QTemporaryDir folder(benchFolder() + u"/scratch-XXXXXX"_s);
    const QString copy = folder.filePath(u"copy.db"_s);
    QFile::remove(copy);
    if (!QFile::copy(path, copy))
        std::exit(1);
    return copy;
}

std::vector<qint64> BenchLibrary::randomKeys(int count)
{
    // The store was filled by one context with one entity, so its keys are 1 to Rows.
    std::mt19937 random(7);
    std::vector<qint64> keys(size_t(Rows), 0);
    for (size_t i = 0; i < keys.size(); ++i)
        keys[i] = qint64(i + 1);
    std::shuffle(keys.begin(), keys.end(), random);
    keys.resize(size_t(count));
    return keys;
}
