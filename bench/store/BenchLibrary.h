/// The tracks of the store's benchmarks: 12 columns (5 texts, 3 integers, 4 numbers) of made-up music, the same for
/// us and for the peer.
#pragma once

#include <random>

#include <kestrixkit/context/KXManagedObjectOf.h>

struct PlainTrack
{
    QString title, artist, album, genre, comment;
    qint64 year, rating, plays;
    double bpm, duration, gain, energy;
};

class BenchTrack : public KXManagedObjectOf<BenchTrack>
{
public:
    static constexpr QLatin1StringView entityName { "Track" };
    KX_ATTRIBUTE(QString, title, setTitle)
    KX_ATTRIBUTE(QString, artist, setArtist)
    KX_ATTRIBUTE(QString, album, setAlbum)
    KX_ATTRIBUTE(QString, genre, setGenre)
    KX_ATTRIBUTE(QString, comment, setComment)
    KX_ATTRIBUTE(qint64, year, setYear)
    KX_ATTRIBUTE(qint64, rating, setRating)
    KX_ATTRIBUTE(qint64, plays, setPlays)
    KX_ATTRIBUTE(double, bpm, setBpm)
    KX_ATTRIBUTE(double, duration, setDuration)
    KX_ATTRIBUTE(double, gain, setGain)
    KX_ATTRIBUTE(double, energy, setEnergy)

    void take(const PlainTrack &plain);
};

namespace BenchLibrary {

inline constexpr int Rows = 1'000'000;

/// Tracks from a seed, one after the other.
class Source
{
public:
    explicit Source(quint32 seed = 1)
        : m_random(seed)
    {
    }
    PlainTrack next();

private:
    std::mt19937 m_random;
    int m_number = 0;
};

/// Genres and tempi are indexed, or titles as they are sorted.
KXManagedObjectModel::Ref model(bool indexed, bool sortable = false);
/// Where stores of 1,000,000 tracks are kept between runs; made by prepare().
QString storePath(bool indexed);
QString emptyStorePath();
void prepare();
/// A copy to write into, in a temporary folder that goes with the process.
QString scratchCopy(const QString &path);
/// Saves the next tracks of the source; ends the process where it cannot.
void insert(KXManagedObjectContext &context, Source &source, int count);
KXManagedObjectContext::Ref open(const QString &path, bool indexed = false, bool sortable = false);
/// 100,000 (or so many) keys of the big store in random order.
std::vector<qint64> randomKeys(int count);

}
