#include <cmath>
#include <random>

#include <QDateTime>

#include <kestrixkit/catalogue/KXCatalogueSchema.h>
#include <kestrixkit/foundation/KXDecimal.h>

#include "TrackSource.h"

using namespace Qt::StringLiterals;

namespace {

const QStringList syntheticGenres = u"House|Techno|Tech House|Deep House|Melodic Techno|Drum & Bass|Trance|Progressive "
                                    u"House|Minimal|Electro|Breaks|Afro House|Dubstep|Garage|Disco|Ambient|Downtempo|"
                                    u"Hardcore|Jungle|Psytrance|Acid|Dub|Hip-Hop|Funk|Soul|Broken Beat|Leftfield|"
                                    u"Italo|Bassline|Hard Techno|Organic House|Électro|Neo Soul|Footwork|Grime|"
                                    u"Big Room|Balearic|Industrial|Lo-fi|Jazz"_s.split(u'|');
const QStringList syntheticWords = u"Night Signal Deep Motion Été Ocean Velvet Mirror Golden Shadow Rhythm Echo Solar "
                                   u"Über Phantom River Neon Garden Pulse Corazón Machine Future Silver Dust Memory "
                                   u"Lights Paradise Storm Crystal Noir Straße Horizon Voltage Gravity Eclipse Ritual "
                                   u"Static Bloom Tide Ember"_s.split(u' ');

class SyntheticTrack
{
public:
    explicit SyntheticTrack(qint64 id)
        : m_id(id)
        , m_random(quint64(id) * 0x9E3779B97F4A7C15ull)
    {
    }

    QVariantMap values()
    {
        // Half of all tracks are of the first few genres.
        const double place = share();
        const int genre = int(place * place * double(syntheticGenres.size()));
        const QDateTime released = QDateTime(QDate(2001, 1, 1), QTime(), Qt::UTC)
                                       .addSecs(qint64(std::sqrt(share()) * 25.5 * 365.25 * 86'400));
        QStringList artists;
        for (int i = m_random() % 5 ? 1 : 2; i > 0; --i)
            artists.append(
                word() + u' ' + word() + (m_random() % 3 ? QString() : u' ' + QString::number(m_random() % 100)));
        const QString title = word() + u' ' + word() + (m_random() % 4 ? QString() : u" (%1 Remix)"_s.arg(word()));
        const QString label = word() + u" Records "_s + QString::number(m_random() % 200);
        const double bpm = 90 + (genre * 7) % 60 + std::round(share() * 80) / 10;
        QVariantMap values { { u"id"_s, m_id }, { u"released"_s, released }, { u"title"_s, title },
            { u"artists.name"_s, artists }, { u"artistText"_s, artists.join(u", "_s) },
            { u"album"_s, word() + u' ' + word() }, { u"genre"_s, syntheticGenres[genre] }, { u"label"_s, label },
            { u"bpm"_s, bpm }, { u"keyOrder"_s, int(2 + m_random() % 24) }, { u"year"_s, released.date().year() },
            { u"rating"_s, int(m_random() % 6) }, { u"duration"_s, 180 + std::round(share() * 3000) / 10 },
            { u"price"_s, QVariant::fromValue(KXDecimal::fromDouble(double(99 + m_random() % 4 * 50) / 100)) },
            { u"exclusive"_s, m_random() % 20 == 0 },
            { u"file"_s, QString::number(m_id) + (m_random() % 3 ? u".wav"_s : u".flac"_s) },
            { u"search"_s, QStringList { title, artists.join(u' '), label } } };
        if (m_random() % 10 == 0)
            values.remove(u"bpm"_s);
        if (m_random() % 4 == 0)
            values[u"comment"_s] = word() + u" with "_s + word();
        return values;
    }

private:
    double share() { return double(m_random() % 1'000'000) / 1'000'000; }
    QString word() { return syntheticWords[qsizetype(m_random() % size_t(syntheticWords.size()))]; }

    const qint64 m_id;
    std::mt19937_64 m_random;
};

} // namespace

TrackSource TrackSources::synthetic(const KXCatalogueSchema &schema, qint64 count)
{
    return [schema, count, next = qint64(1)](SourceTrack &track) mutable {
        if (next > count)
            return false;
        const QVariantMap made = SyntheticTrack(next).values();
        track = { .name = QString::number(next++) };
        for (const KXCatalogueColumn &column : schema.columns())
            track.values.append(made.value(column.keyPath));
        return true;
    };
}
