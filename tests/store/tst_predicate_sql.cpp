// Predicates mean the same in memory and in SQL, and their SQL is such that SQLite can be quick about it.

#include <cmath>
#include <map>

#include <QUrl>
#include <QUuid>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <kestrixkit/foundation/KXException.h>
#include <kestrixkit/predicate/KXPredicateCheck_p.h>
#include <kestrixkit/predicate/KXPredicateValue_p.h>
#include <kestrixkit/store/KXPredicateSQL_p.h>

#include "store/Library.h"
#include "store/RandomPredicates.h"

using namespace Qt::StringLiterals;

namespace {

/// A library whose tracks, albums, genres… are changed at random.
class RandomLibrary : public LibraryTest
{
public:
    explicit RandomLibrary(KXTestRandom &random)
        : random(random)
        , predicates(random)
    {
    }

    void grow(int count)
    {
        for (int i = 0; i < count; ++i) {
            tracks.push_back(track(predicates.value(RandomPredicates::Text).toString()));
            if (i % 4 == 0) {
                genres.push_back(genre(predicates.value(RandomPredicates::Text).toString()));
                albums.push_back(Album::createInContext(*context));
                albums.back()->setTitle(text());
                people.push_back(
                    i % 8 ? Person::createInContext(*context) : Person::cast(Producer::createInContext(*context)));
                tags.push_back(Tag::createInContext(*context));
                tags.back()->setName(predicates.value(RandomPredicates::Text).toString());
            }
        }
        for (int i = 0; i < count * 15; ++i)
            change();
        predicates.objects.clear();
        for (int i = 0; i < 3; ++i) {
            predicates.objects.append(KXVariantFromRef(random.oneOf(tracks)));
            predicates.objects.append(KXVariantFromRef(random.oneOf(albums)));
            predicates.objects.append(KXVariantFromRef(random.oneOf(genres)));
        }
    }

    void change()
    {
        const KXRef<Track> track = random.oneOf(tracks);
        const KXRef<Album> album = random.oneOf(albums);
        const bool absent = random.chance(0.3);
        const QVariant number = predicates.value(RandomPredicates::Number);
        switch (random.below(20)) {
        case 0:
            track->setTitle(text());
            break;
        case 1:
            track->setComment(absent ? std::nullopt : std::optional(text()));
            break;
        case 2:
            track->setIdentifier(absent ? std::nullopt : std::optional(text()));
            break;
        case 3:
            track->setBpm(absent ? std::nullopt : std::optional(number.toDouble()));
            break;
        case 4:
            track->setYear(absent ? std::nullopt : std::optional(random.below(5) - 1));
            break;
        case 5:
            track->setPlays(number.toLongLong());
            break;
        case 6:
            track->setLoved(random.chance(0.5));
            break;
        case 7:
            track->setAdded(
                absent ? std::nullopt : std::optional(predicates.value(RandomPredicates::Date).toDateTime()));
            break;
        case 8:
            track->setPrice(
                absent || !number.canConvert<KXDecimal>() ? std::nullopt : std::optional(number.value<KXDecimal>()));
            break;
        case 9:
            track->setFile(absent ? std::nullopt : std::optional(predicates.value(RandomPredicates::Uri).toUrl()));
            break;
        case 10:
            track->setUuid(absent ? std::nullopt : std::optional(predicates.value(RandomPredicates::Uuid).toUuid()));
            break;
        case 11:
            track->setCover(
                absent ? std::nullopt : std::optional(predicates.value(RandomPredicates::Binary).toByteArray()));
            break;
        case 12:
            track->setAlbum(absent ? nullptr : album);
            break;
        case 13:
            track->setOriginal(absent ? nullptr : random.oneOf(tracks));
            break;
        case 14:
            random.chance(0.6) ? track->addToGenres(random.oneOf(genres))
                               : track->removeFromGenres(random.oneOf(genres));
            break;
        case 15:
            random.chance(0.6) ? track->addToNeighbours(random.oneOf(tracks))
                               : track->removeFromNeighbours(random.oneOf(tracks));
            break;
        case 16:
            random.chance(0.6) ? track->addToTags(random.oneOf(tags)) : track->removeFromTags(random.oneOf(tags));
            break;
        case 17:
            album->setArtist(absent ? nullptr : random.oneOf(people));
            break;
        case 18:
            album->setTitle(text());
            break;
        case 19:
            random.oneOf(people)->setName(text());
            break;
        }
    }

    /// Inserts a track or deletes something, which may take tracks with it.
    void comeOrGo()
    {
        if (tracks.size() < 40 || (tracks.size() < 80 && random.chance(0.5))) {
            tracks.push_back(track(text()));
            for (int i = 0; i < 30; ++i)
                change();
        } else if (random.chance(0.5)) {
            context->removeManagedObject(random.oneOf(tracks));
        } else if (genres.size() > 5 && random.chance(0.5)) {
            take(genres);
        } else if (albums.size() > 5) {
            take(albums);
        }
        context->processPendingChanges();
        std::erase_if(tracks, [](const KXRef<Track> &track) { return track->isDeleted(); });
    }
    template <typename Object> void take(std::vector<KXRef<Object>> &objects)
    {
        const auto place = objects.begin() + random.below(int(objects.size()));
        context->removeManagedObject(*place);
        objects.erase(place);
    }

    QString text() { return predicates.value(RandomPredicates::Text).toString(); }

    KXTestRandom &random;
    RandomPredicates predicates;
    std::vector<KXRef<Track>> tracks;
    std::vector<KXRef<Genre>> genres;
    std::vector<KXRef<Album>> albums;
    std::vector<KXRef<Person>> people;
    std::vector<KXRef<Tag>> tags;
};

/// Runs SQL on the store's file on a connection of the test's own.
class Database
{
public:
    explicit Database(const QString &path)
    {
        EXPECT_EQ(sqlite3_open(path.toUtf8().constData(), &m_database), SQLITE_OK);
        sqlite3_limit(
            m_database, SQLITE_LIMIT_VARIABLE_NUMBER, 32'766); // as a library built with SQLite's own defaults
        EXPECT_EQ(KXPredicateSQL::registerFunctions(m_database), SQLITE_OK);
    }
    ~Database() { sqlite3_close(m_database); }

    /// The last column of all rows; a failure where the text does not run.
    std::vector<QByteArray> rows(const QByteArray &text, const KXPredicateSQL &sql)
    {
        std::vector<QByteArray> rows;
        sqlite3_stmt *statement = nullptr;
        EXPECT_EQ(sqlite3_prepare_v2(m_database, text.constData(), -1, &statement, nullptr), SQLITE_OK)
            << sqlite3_errmsg(m_database) << ": " << text.constData();
        if (statement) {
            EXPECT_EQ(sqlite3_bind_parameter_count(statement), int(sql.values.size()));
            EXPECT_EQ(sql.bind(statement), SQLITE_OK);
            while (sqlite3_step(statement) == SQLITE_ROW)
                rows.emplace_back(reinterpret_cast<const char *>(
                    sqlite3_column_text(statement, sqlite3_column_count(statement) - 1)));
            EXPECT_EQ(sqlite3_finalize(statement), SQLITE_OK) << sqlite3_errmsg(m_database);
        }
        return rows;
    }

private:
    sqlite3 *m_database = nullptr;
};

const KXEntityDescription &trackEntity() { return *Library::model()->entity(u"Track"_s); }

KXPredicateSQL compiled(const KXPredicate &predicate) { return KXPredicateSQL::compile(predicate, trackEntity(), 1); }

QByteArray plan(Database &database, const KXPredicate &predicate)
{
    const KXPredicateSQL sql = compiled(predicate);
    QByteArray text;
    for (const QByteArray &row :
        database.rows("EXPLAIN QUERY PLAN SELECT kx_id FROM \"Track\" t0 WHERE " + sql.text, sql))
        text += row + '\n';
    return text;
}

}

TEST(PredicateSQL, agreesWithMemoryOnSavedAndUnsavedObjects)
{
    KXTestRandom random;
    RandomLibrary library(random);
    library.grow(60);
    ASSERT_TRUE(library.context->save());

    const int rounds = KXTestRandom::scaled(20'000);
    std::map<QString, int> refused;
    int refusals = 0;
    int telling = 0;
    for (int round = 0; round < rounds; ++round) {
        // Runs of rounds on saved objects alone, and runs with unsaved changes.
        if (round % 50 >= 25) {
            library.change();
            if (round % 5 == 0)
                library.comeOrGo();
        } else if (round % 50 == 0) {
            ASSERT_TRUE(library.context->save());
        }
        KXPredicate predicate = library.predicates.predicate(4);
        while (!KXPredicateCheck::misfit(predicate, *Library::model()->entity(u"Track"_s)).isEmpty())
            predicate = library.predicates.predicate(4); // which fetches refuse
        const KXPredicateSQL sql = compiled(predicate);
        ASSERT_NE(sql.status, KXPredicateSQL::UnknownKey) << sql.reason.toStdString();
        if (sql.status == KXPredicateSQL::NotInSQL) {
            ++refused[sql.reason];
            ++refusals;
        }

        std::vector<qint64> expected;
        for (const KXRef<Track> &track : library.tracks) {
            if (predicate.evaluateWithObject(track.get()))
                expected.push_back(track->objectID().key());
        }
        telling += !expected.empty() && expected.size() < library.tracks.size();
        KXError error;
        const KXFetchedList list = library.context->fetch(KXFetchRequest(u"Track"_s, predicate), &error);
        ASSERT_FALSE(list.isNull()) << error.localizedDescription().toStdString() << "\n" << sql.text.constData();
        std::vector<qint64> found = list.keys();
        std::sort(found.begin(), found.end());
        ASSERT_EQ(found, expected) << (library.context->hasChanges() ? "with" : "without") << " unsaved changes, round "
                                   << round << "\n"
                                   << predicate.predicateFormat().toStdString() << "\n"
                                   << sql.text.constData();
    }
    for (const auto &[reason, count] : refused)
        std::printf("not in SQL, because %s: %d of %d\n", qPrintable(reason), count, rounds);
    EXPECT_LT(refusals, rounds / 2 + 10) << "hardly any SQL was tested";
    EXPECT_GT(telling, rounds / 4) << "most predicates fit all tracks or none";
}

TEST(PredicateSQL, sortsAsMemoryDoes)
{
    KXTestRandom random;
    RandomLibrary library(random);
    library.grow(60);
    const QString keys[] = { u"title"_s, u"comment"_s, u"bpm"_s, u"plays"_s, u"price"_s, u"added"_s, u"cover"_s,
        u"file"_s, u"uuid"_s, u"album.title"_s, u"album.artist.name"_s, u"original.price"_s, u"genres.@count"_s,
        u"album.tracks.@count"_s };
    const int rounds = KXTestRandom::scaled(500);
    for (int round = 0; round < rounds; ++round) {
        if (round % 2)
            library.change();
        else
            ASSERT_TRUE(library.context->save());
        QList<KXSortDescriptor> order;
        for (int i = random.below(3); i >= 0; --i)
            order.append({ random.oneOf(keys), random.chance(0.5), random.between(0, 3), random.chance(0.5) });
        std::vector<KXRef<Track>> expected = library.tracks;
        std::stable_sort(expected.begin(), expected.end(), [&order](const KXRef<Track> &a, const KXRef<Track> &b) {
            for (const KXSortDescriptor &descriptor : order) {
                const auto key = KXExpression::expressionForKeyPath(descriptor.key);
                const QVariant ofA = key.expressionValueWithObject(a.get()),
                               ofB = key.expressionValueWithObject(b.get());
                if (descriptor.absentLast && ofA.isNull() != ofB.isNull())
                    return ofB.isNull();
                if (const int result = KXCompareForSorting(ofA, ofB, descriptor.options))
                    return descriptor.ascending ? result < 0 : result > 0;
            }
            return false;
        });
        KXError error;
        const KXFetchedList found
            = library.context->fetch(KXFetchRequest(u"Track"_s).setSortDescriptors(order), &error);
        ASSERT_EQ(size_t(found.size()), expected.size()) << error.localizedDescription().toStdString();
        for (qsizetype i = 0; i < found.size(); ++i) {
            ASSERT_EQ(found.key(i), expected[size_t(i)]->objectID().key())
                << order.first().key.toStdString() << ", round " << round
                << (library.context->hasChanges() ? ", unsaved" : "");
        }
    }
}

TEST(PredicateSQL, letsSQLiteUseItsIndexes)
{
    LibraryTest library;
    ASSERT_TRUE(library.context->save());
    Database database(library.path());
    const struct
    {
        const char *predicate;
        const char *plan;
    } rows[] = {
        { "identifier == 'a'", "SEARCH t0 USING INDEX kx_i_Track_identifier (identifier=?)" },
        { "identifier == nil", "SEARCH t0 USING INDEX kx_i_Track_identifier (identifier=?)" },
        { "identifier IN {'a', 'b', 'c'}", "SEARCH t0 USING INDEX kx_i_Track_identifier (identifier=?)" },
        { "identifier == 'a' OR identifier == 'b' OR identifier == 'c'",
            "SEARCH t0 USING INDEX kx_i_Track_identifier (identifier=?)" },
        { "identifier BEGINSWITH 'a'", "SEARCH t0 USING INDEX kx_i_Track_identifier (identifier>? AND identifier<?)" },
        { "identifier LIKE 'a\\*b*'", "SEARCH t0 USING INDEX kx_i_Track_identifier (identifier>? AND identifier<?)" },
        { "bpm BETWEEN {120, 130}", "SEARCH t0 USING INDEX kx_i_Track_bpm (bpm>? AND bpm<?)" },
        { "bpm >= DECIMAL('120.5')", "SEARCH t0 USING INDEX kx_i_Track_bpm (bpm>?)" },
        { "price < 10", "SEARCH t0 USING INDEX kx_i_Track_price (price<?)" },
        { "year > 1990 AND ANY genres.name == 'House'", "SEARCH t0 USING INTEGER PRIMARY KEY (rowid=?)" },
        { "album.artist.name == 'X'", "SEARCH t0 USING INDEX kx_i_Track_album (album=?)" },
    };
    for (const auto &[predicate, expected] : rows) {
        const QByteArray found = plan(database, KXPredicate::predicateWithFormat(predicate)).replace("COVERING ", "");
        EXPECT_TRUE(found.contains(expected)) << predicate << "\n" << found.constData();
    }
}

TEST(PredicateSQL, sortsTextsThatAgreeForLong)
{
    LibraryTest library;
    library.track(u"absent"_s);
    for (const int length : { 0, 7, 8, 9, 127, 128, 136, 1000, 300'000 }) {
        for (const QString &end : { QString(), QString(QChar(0)), u"a"_s, u"\u00C1"_s, u"B"_s, u"\U0001F600"_s })
            library.track(u"long"_s)->setComment(QString(length, u'x') + end);
    }
    ASSERT_TRUE(library.context->save());
    for (const bool ascending : { true, false }) {
        for (const bool absentLast : { true, false }) {
            for (const int options : { 1, 2, 3 }) {
                KXFetchRequest request(u"Track"_s);
                request.setSortDescriptors({ { u"comment"_s, ascending, options, absentLast } });
                const std::vector<qint64> here = library.context->fetch(request).keys();
                ASSERT_EQ(here.size(), 55U);
                EXPECT_EQ(here, library.context->fetch(request.setFetchLimit(100)).keys()) << "as SQLite sorts";
            }
        }
    }
}

TEST(PredicateSQL, sortsByItsIndexes)
{
    LibraryTest library;
    ASSERT_TRUE(library.context->save());
    Database database(library.path());
    constexpr int plain = KXCaseInsensitive | KXDiacriticInsensitive;
    const struct
    {
        KXSortDescriptor order;
        const char *index; ///< none where SQLite sorts
    } rows[] = {
        { { u"title"_s, true, plain }, "kx_i_Track_title~3" },
        { { u"title"_s, true, plain, true }, "kx_i_Track_title~3" },
        { { u"title"_s, true, KXCaseInsensitive }, nullptr },
        { { u"title"_s }, nullptr },
        { { u"comment"_s, true, KXCaseInsensitive, true }, "kx_i_Track_comment~1" },
        { { u"identifier"_s }, "kx_i_Track_identifier" },
        { { u"identifier"_s, true, plain }, nullptr },
    };
    for (const auto &[descriptor, index] : rows) {
        const KXPredicateSQL sql = KXPredicateSQL::compileOrder({ descriptor }, trackEntity());
        const std::vector<QByteArray> plan
            = database.rows("EXPLAIN QUERY PLAN SELECT t0.kx_id FROM \"Track\" t0 ORDER BY " + sql.text, sql);
        const QByteArray found = QByteArrayList(plan.begin(), plan.end()).join('\n');
        EXPECT_EQ(found.contains("USE TEMP B-TREE"), !index) << found.constData();
        EXPECT_TRUE(!index || found.contains(index)) << found.constData();
    }
}

TEST(PredicateSQL, staysWithinSQLitesLimits)
{
    LibraryTest library;
    library.track(u"id-4711"_s)->setBpm(4711.5);
    library.track(u"a\"\\\n\u0001"_s);
    library.track(u"nul\u0000"_s);
    ASSERT_TRUE(library.context->save());
    Database database(library.path());
    const auto count = [&](const KXPredicate &predicate) {
        const KXPredicateSQL sql = compiled(predicate);
        EXPECT_EQ(sql.status, KXPredicateSQL::Compiled) << sql.reason.toStdString();
        return database.rows("SELECT kx_id FROM \"Track\" t0 WHERE " + sql.text, sql).size();
    };
    QList<KXPredicate> equal, ordered;
    QVariantList texts { u"a\"\\\n\u0001"_s }, numbers, reals;
    for (int i = 0; i < 10'000; ++i) {
        equal.append(KXPredicate::predicateWithFormat("title == %@", QString(u"id-"_s + QString::number(i))));
        if (i < 1500) // parameters outside of lists cost SQLite time by their square
            ordered.append(KXPredicate::predicateWithFormat(
                "title BEGINSWITH %@ AND bpm < %d", QString(u"id-"_s + QString::number(i)), i));
        texts.append(u"id-"_s + QString::number(i));
        reals.append(i + 0.5);
    }
    EXPECT_EQ(count(KXPredicate::orPredicate(equal)), 1U);
    EXPECT_EQ(count(KXPredicate::notPredicate(KXPredicate::orPredicate(ordered))), 3U);
    EXPECT_EQ(count(KXPredicate::andPredicate(ordered)), 0U);
    EXPECT_EQ(count(KXPredicate::predicateWithFormat("title IN %@", texts)), 2U);
    EXPECT_EQ(count(KXPredicate::predicateWithFormat("title IN %@", texts + QVariantList { u"nul\u0000"_s })), 3U);
    EXPECT_EQ(count(KXPredicate::predicateWithFormat("bpm IN %@", reals)), 1U);
    while (reals.size() < 40'000)
        reals.append(-double(reals.size()));
    EXPECT_EQ(compiled(KXPredicate::predicateWithFormat("bpm IN %@", reals)).status, KXPredicateSQL::NotInSQL);

    // However deep: what is compiled runs, and what everyday predicates need is compiled.
    KXPredicate deep = KXPredicate::predicateWithFormat("year == 1");
    KXPredicate inverted = deep;
    QString path = u"original"_s;
    for (int depth = 1; depth < 200; ++depth) {
        deep = depth % 2
            ? KXPredicate::andPredicate({ KXPredicate::predicateWithFormat("year > %d", depth), deep })
            : KXPredicate::orPredicate({ KXPredicate::predicateWithFormat("ALL genres.name == 'x'"), deep });
        inverted = KXPredicate::notPredicate(KXPredicate::andPredicate({ inverted, KXPredicate::truePredicate() }));
        path += u".original"_s;
        for (const KXPredicate &predicate : { deep, inverted, KXPredicate::predicateWithFormat("%K.title == 'x'", path),
                 KXPredicate::predicateWithFormat("%K.neighbours.title != 'x'", path),
                 KXPredicate::predicateWithFormat("%K.title == title", path) }) {
            if (depth < 5 || compiled(predicate).status == KXPredicateSQL::Compiled)
                count(predicate);
        }
    }
}

TEST(PredicateSQL, neverTakesTextForSQL)
{
    LibraryTest library;
    const QString hostile = u"x') OR 1=1; DROP TABLE \"Track\"; --"_s;
    library.track(hostile);
    library.track(u"other"_s);
    ASSERT_TRUE(library.context->save());
    EXPECT_EQ(
        Track::countOfUsingPredicate(KXPredicate::predicateWithFormat("title == %@", hostile), *library.context), 1);
    EXPECT_EQ(Track::countOfUsingPredicate(
                  KXPredicate::predicateWithFormat("title IN %@", QStringList(300, hostile)), *library.context),
        1);
    for (const QString &key : { hostile, u"kx_id"_s, u"title.x"_s, u"genres.@max"_s, u"@count"_s, u"\"title\""_s })
        EXPECT_EQ(compiled(KXPredicate::predicateWithFormat("%K == 1", key)).status, KXPredicateSQL::UnknownKey)
            << key.toStdString();
    EXPECT_EQ(compiled(KXPredicate::predicateWithFormat("scratch == 'x'")).status, KXPredicateSQL::NotInSQL);
    EXPECT_EQ(compiled(KXPredicate::predicateWithFormat("extra == 'x'")).status, KXPredicateSQL::NotInSQL);
    EXPECT_EQ(compiled(KXPredicate::predicateWithFormat("extra == nil")).status, KXPredicateSQL::Compiled);
    EXPECT_THROW(compiled(KXPredicate::predicateWithFormat("title == $NAME")), KXException);
}

TEST(PredicateSQL, manyWaysThroughRelationshipsAreNotAllGone)
{
    LibraryTest library;
    QList<KXRef<KXManagedObject>> genres;
    for (int i = 0; i < 30; ++i)
        genres.append(library.genre(QString::number(i)));
    for (int i = 0; i < 30; ++i)
        library.track(u"t%1"_s.arg(i))->setGenres(genres);
    ASSERT_TRUE(library.context->save());
    const auto countOf = [&](const char *text) {
        return Track::countOfUsingPredicate(KXPredicate::predicateWithFormat(text), *library.context);
    };
    // With values, in SQL; with what the row itself has, in memory from four relationships on.
    EXPECT_EQ(countOf("ANY genres.tracks.genres.tracks.genres.tracks.genres.tracks.title == 'x'"), 0);
    EXPECT_EQ(countOf("ALL genres.tracks.genres.tracks.genres.tracks.genres.tracks.title != 'x'"), 30);
    EXPECT_EQ(countOf("ANY genres.tracks.genres.tracks.genres.tracks.genres.tracks.genres.name == title"), 0);
    EXPECT_EQ(countOf("ANY genres.tracks.genres.tracks.genres.tracks.genres.tracks.title == title"), 30);
    EXPECT_EQ(countOf("ANY genres.tracks.genres.name == title"), 0);
}

TEST(PredicateSQL, numbersHaveWordsOnWhicheverSideTheyStand)
{
    LibraryTest library;
    for (const QString &title : { u"5"_s, u"50.5"_s, u"51"_s, u""_s, u"a"_s })
        library.track(title)->setPlays(50);
    ASSERT_TRUE(library.context->save());
    for (const char *format :
        { "50.5 BEGINSWORD title", "50 BEGINSWORD title", "'50' BEGINSWORD title", "plays BEGINSWORD '5'" }) {
        const auto predicate = KXPredicate::predicateWithFormat(format);
        qint64 inMemory = 0;
        for (const KXRef<KXManagedObject> &track : Track::findAllInContext(*library.context))
            inMemory += predicate.evaluateWithObject(track.get());
        EXPECT_GT(inMemory, 0) << format;
        EXPECT_EQ(Track::countOfUsingPredicate(predicate, *library.context), inMemory) << format;
    }
}
