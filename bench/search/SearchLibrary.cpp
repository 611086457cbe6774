#include "search/SearchLibrary.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include <QDir>
#include <QFile>
#include <QSet>

#include <kestrixkit/context/KXManagedObjectOf.h>

#include "peer/plain_search.h"
#include "store/StoreFiller.h"

#include <sqlite3.h>

using namespace Qt::StringLiterals;

namespace {

using Property = KXPropertyDescription;
using Random = std::mt19937;

constexpr int searchAlbums = 150'000;
constexpr int searchLabels = 8'000;
constexpr int searchWords = 60'000;

int searchBelow(Random &random, int count) { return int(random() % uint(count)); }

/// Few are met often, most hardly ever, as in any language.
int searchRank(Random &random, int count)
{
    const double share = double(random()) / double(Random::max());
    return std::min(count - 1, int(std::pow(double(count), share)) - 1);
}

/// Words as titles and names have them: common ones first, then made of syllables.
const QStringList &searchVocabulary()
{
    static const QStringList words = [] {
        QStringList all
            = u"The Love You Me My In To Night Of Time Life Feel Your It On Get Dance One Dream Music Party World "
              u"Heart "
              u"Don't Down Up We Way Light Day Baby Good Let Sun Star House Back Be Go Girl All I'm Can't Black Fire "
              u"Never Sky Deep Soul Rock Body Blue Home Free Moon Sound Run Come High Lost Summer Beat Moving Sweet "
              u"Magic Bad Boy Mind Eyes City New Make Know Take Away Again Stay Forever Wild Electric Rain Groove Big "
              u"Jungle Ocean Shadow Golden Energy Paradise Control Rhythm Burning River Machine Future Crazy Angel "
              u"Echo Mirror Velvet Garden Signal Memory Freedom Higher Dreams Lights Africa Disco Acid Dub Space "
              u"Cosmic "
              u"Pressure Phantom Desire Lady Heaven Thunder Amour Noche Corazón Vida Été Nuit Über Straße Köln São "
              u"Björk "
              u"Émotion Señorita L'Amour Rock'n'Roll R&B U.S.A. 2Pac 808 909 1984 99 24/7 303 Jay-Z AC/DC M.I.A. 東京 "
              u"愛 夜 タワー 夏の夜 さくら 사랑 밤 Ночь Любовь Москва"_s.split(u' ');
        static const QStringList first
            = u"ba be bo bra ca car co da de di do el fa fer ga gra ha hen il ja ka kar kro la le "
              u"lu ma mar me mi mo na ne no or pa pe po ra re ri ro sa sch se si so sta ta te ti to "
              u"tra va ve vi wa we wi xa ya za zo"_s.split(u' ');
        static const QStringList last
            = u"n r s t nd ll ne ra ni no son sen ski ez ova er in on us ka ko ta ti to la lo ry by "
              u"ck x ne nt rd st th"_s.split(u' ');
        Random random(7);
        QSet<QString> known(all.begin(), all.end());
        while (all.size() < searchWords) {
            QString word;
            for (int syllables = 1 + searchBelow(random, 2); syllables >= 0; --syllables)
                word += first[searchRank(random, int(first.size()))];
            word += last[searchBelow(random, int(last.size()))];
            word[0] = word[0].toUpper();
            if (!known.contains(word)) {
                known.insert(word);
                all.append(word);
            }
        }
        return all;
    }();
    return words;
}

QString searchPhrase(Random &random, int most)
{
    QString phrase;
    for (int words = 1 + searchBelow(random, most); words > 0; --words)
        phrase += searchVocabulary()[searchRank(random, searchWords)] + (words > 1 ? u" "_s : QString());
    return phrase;
}

QString searchArtist(Random &random)
{
    // Names are rarer words than titles.
    const auto name = [&] { return searchVocabulary()[150 + searchRank(random, searchWords - 150)]; };
    switch (searchBelow(random, 8)) {
    case 0:
        return u"DJ "_s + name();
    case 1:
        return u"The "_s + searchPhrase(random, 1) + u's';
    case 2:
        return searchPhrase(random, 2);
    default:
        return name() + u' ' + name();
    }
}

const QStringList searchGenres { u"House"_s, u"Deep House"_s, u"Tech House"_s, u"Techno"_s, u"Minimal"_s, u"Trance"_s,
    u"Drum & Bass"_s, u"Breaks"_s, u"Electro"_s, u"Ambient"_s, u"Dub"_s, u"Disco"_s, u"Hip-Hop"_s, u"R&B"_s,
    u"Hardcore"_s, u"UK Garage"_s, u"Pop"_s, u"Rock"_s, u"Jazz"_s, u"Soul"_s };

void fillStore(const QString &path)
{
    Random random(11);
    StoreFiller filler(path);
    const auto names = [&](const char *sql, int count, auto &&name) {
        std::vector<qint64> keys;
        for (int i = 0; i < count; ++i)
            keys.push_back(filler.insert(sql, { name(i) }));
        return keys;
    };
    QStringList artistNames;
    const auto artists = names("INSERT INTO Artist(kx_id, kx_version, name) VALUES(?, 1, ?)", SearchLibrary::Artists,
        [&](int) { return artistNames.emplaceBack(searchArtist(random)); });
    const auto albums = names("INSERT INTO Album(kx_id, kx_version, title) VALUES(?, 1, ?)", searchAlbums,
        [&](int) { return searchPhrase(random, 3); });
    const auto genres = names("INSERT INTO Genre(kx_id, kx_version, name) VALUES(?, 1, ?)", int(searchGenres.size()),
        [&](int i) { return searchGenres[i]; });
    const auto labels = names("INSERT INTO Label(kx_id, kx_version, name) VALUES(?, 1, ?)", searchLabels,
        [&](int) { return searchPhrase(random, 2) + (searchBelow(random, 3) ? u" Records"_s : u" Music"_s); });
    for (int i = 0; i < SearchLibrary::Tracks; ++i) {
        QString title = searchPhrase(random, 4);
        switch (searchBelow(random, 10)) {
        case 0:
        case 1:
        case 2:
            title += u" (Original Mix)"_s;
            break;
        case 3:
            title += u" (Extended Mix)"_s;
            break;
        case 4:
            title += u" ("_s + artistNames[searchRank(random, SearchLibrary::Artists)] + u" Remix)"_s;
            break;
        case 5:
            title += u" (feat. "_s + artistNames[searchRank(random, SearchLibrary::Artists)] + u')';
            break;
        default:
            break;
        }
        const QVariant comment = searchBelow(random, 3)
            ? QVariant()
            : QVariant(u"%1%2 - %3 bought %4"_s.arg(1 + searchBelow(random, 12))
                           .arg(searchBelow(random, 2) ? u'A' : u'B')
                           .arg(90 + searchBelow(random, 90))
                           .arg(2000 + searchBelow(random, 25)));
        const qint64 track = filler.insert(
            "INSERT INTO Track(kx_id, kx_version, title, comment, rating, album) VALUES(?, 1, ?, ?, ?, ?)",
            { title, comment, searchBelow(random, 6), albums[size_t(searchRank(random, searchAlbums))] });
        for (int count = searchBelow(random, 5) == 0 ? 2 : 1; count > 0; --count)
            filler.pair("INSERT OR IGNORE INTO \"kx_Artist.tracks\"(a, b) VALUES(?, ?)",
                artists[size_t(searchRank(random, SearchLibrary::Artists))], track);
        filler.pair("INSERT INTO \"kx_Genre.tracks\"(a, b) VALUES(?, ?)",
            genres[size_t(searchBelow(random, int(genres.size())))], track);
        filler.pair("INSERT INTO \"kx_Label.tracks\"(a, b) VALUES(?, ?)",
            labels[size_t(searchRank(random, searchLabels))], track);
    }
}

QString searchFolder()
{
    const QString folder = qEnvironmentVariable("KX_BENCH_DATA", u"bench-data"_s) + u"/search"_s;
    QDir().mkpath(folder);
    return folder;
}

}

KXManagedObjectModel::Ref SearchLibrary::model()
{
    const auto named = [](const QString &name, const QString &key, const QString &inverse) {
        return KXEntityDescription(name)
            .add(Property::attribute(key, KXAttributeType::String).required())
            .add(Property::toMany(u"tracks"_s, u"Track"_s, inverse));
    };
    static const auto made = KXManagedObjectModel::make({
        KXEntityDescription(u"Track"_s)
            .add(Property::attribute(u"title"_s, KXAttributeType::String).required())
            .add(Property::attribute(u"comment"_s, KXAttributeType::String))
            .add(Property::attribute(u"rating"_s, KXAttributeType::Integer16))
            .add(Property::toOne(u"album"_s, u"Album"_s, u"tracks"_s))
            .add(Property::toMany(u"artists"_s, u"Artist"_s, u"tracks"_s))
            .add(Property::toMany(u"genres"_s, u"Genre"_s, u"tracks"_s))
            .add(Property::toMany(u"labels"_s, u"Label"_s, u"tracks"_s)),
        named(u"Artist"_s, u"name"_s, u"artists"_s),
        named(u"Album"_s, u"title"_s, u"album"_s),
        named(u"Genre"_s, u"name"_s, u"genres"_s),
        named(u"Label"_s, u"name"_s, u"labels"_s),
    });
    return made;
}

QList<KXSearchGroup> SearchLibrary::groups()
{
    return {
        { u"Tracks"_s, u"Track"_s,
            { u"title"_s, u"artists.name"_s, u"album.title"_s, u"genres.name"_s, u"labels.name"_s, u"comment"_s },
            { { u"rating"_s, false }, { u"title"_s } } },
        { u"Artists"_s, u"Artist"_s, { u"name"_s }, { { u"name"_s } } },
        { u"Albums"_s, u"Album"_s, { u"title"_s }, { { u"title"_s } } },
        { u"Genres"_s, u"Genre"_s, { u"name"_s }, { { u"name"_s } } },
        { u"Labels"_s, u"Label"_s, { u"name"_s }, { { u"name"_s } } },
    };
}

QString SearchLibrary::storePath() { return searchFolder() + u"/tracks-1m.db"_s; }
QString SearchLibrary::peerPath() { return searchFolder() + u"/fts5-1m.db"_s; }

KXManagedObjectContext::Ref SearchLibrary::open(const QString &path)
{
    KXError error;
    const auto coordinator = KXPersistentStoreCoordinator::persistentStoreCoordinatorWithStoreURL(
        QUrl::fromLocalFile(path), model(), &error);
    if (!coordinator) {
        std::fprintf(stderr, "%s\n", qPrintable(error.localizedDescription()));
        std::exit(1);
    }
    const auto context = KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator);
    context->setUndoManager(nullptr); // which the peers have none of
    return context;
}

void SearchLibrary::prepare()
{
    const QString done = searchFolder() + u"/done"_s;
    if (QFile::exists(done))
        return;
    QDir(searchFolder()).removeRecursively();
    (void)open(storePath());
    fillStore(storePath());
    {
        const auto context = open(storePath());
        KXSearchIndex index(context, groups(), u"bench"_s);
        if (!index.open())
            std::exit(1);
    }
    plain::makeSearch(peerPath().toUtf8(), storePath().toUtf8());
    QFile file(done);
    if (!file.open(QIODevice::WriteOnly))
        std::exit(1);
}

const std::vector<std::vector<std::string>> &SearchLibrary::typings()
{
    static const auto typed = [] {
        std::vector<std::vector<std::string>> all;
        Random random(23);
        sqlite3 *database = nullptr;
        sqlite3_open_v2(storePath().toUtf8(), &database, SQLITE_OPEN_READONLY, nullptr);
        sqlite3_stmt *row = nullptr;
        sqlite3_prepare_v2(database,
            "SELECT t.title, a.name FROM Track t JOIN \"kx_Artist.tracks\" j ON j.b = t.kx_id JOIN Artist a ON a.kx_id "
            "= "
            "j.a WHERE t.kx_id = (SELECT min(kx_id) FROM Track) + ?",
            -1, &row, nullptr);
        while (all.size() < 500) {
            sqlite3_bind_int64(row, 1, searchBelow(random, Tracks));
            const int code = sqlite3_step(row);
            if (code != SQLITE_ROW && code != SQLITE_DONE) {
                std::fprintf(stderr, "no typings: %s\n", sqlite3_errmsg(database));
                std::exit(1);
            }
            if (code == SQLITE_ROW) {
                const auto text = [row](int column) {
                    return QString::fromUtf8(reinterpret_cast<const char *>(sqlite3_column_text(row, column)));
                };
                const QString title = text(0), artist = text(1);
                QString typing;
                switch (searchBelow(random, 4)) {
                case 0:
                    typing = artist;
                    break;
                case 1:
                    typing = title;
                    break;
                case 2:
                    typing = artist.section(u' ', -1) + u' ' + title.section(u' ', 0, 0);
                    break;
                default:
                    typing = title.section(u' ', 0, 0) + u' ' + artist.section(u' ', 0, 0);
                }
                typing = typing.left(6 + searchBelow(random, 9)).toLower();
                if (searchBelow(random, 20) == 0 && typing.size() > 4)
                    std::swap(typing[2], typing[3]); // a slip
                std::vector<std::string> keystrokes;
                for (qsizetype i = 1; i <= typing.size(); ++i)
                    keystrokes.push_back(typing.left(i).toStdString());
                all.push_back(std::move(keystrokes));
            }
            sqlite3_reset(row);
        }
        sqlite3_finalize(row);
        sqlite3_close(database);
        return all;
    }();
    return typed;
}
