// The shop's window over a catalogue of its own: what it counts and shows, offline too.

#include <QFile>
#include <QTest>
#include <gtest/gtest.h>

#include <kestrixkit/audio/KXHandCrankedAudioOutput.h>
#include <kestrixkit/catalogue/KXCatalogueLoader.h>
#include <kestrixkit/filters/KXDateFilter.h>
#include <kestrixkit/filters/KXFacetFilter.h>
#include <kestrixkit/filters/KXRangeFilter.h>
#include <kestrixkit/theme/controls/KXThemeableTextField.h>

#include <BrowserWindow.h>
#include <FilterTypes.h>
#include <Presets.h>
#include <shop/ShopFacets.h>
#include <shop/ShopFilters.h>
#include <shop/ShopPreview.h>
#include <shop/ShopTableModel.h>
#include <shop/ShopWindow.h>

#include "LibraryTest.h"
#include "catalogue/PostgresServer.h"
#include "support/AudioFiles.h"
#include "support/HttpServer.h"

#include "../../tools/kxtool/TrackSource.h"

using namespace Qt::StringLiterals;

namespace {

class ShopTest : public LibraryTest
{
protected:
    static constexpr int Tracks = 1000;

    void SetUp() override
    {
        QString reason;
        if (!PostgresServer::isAvailable(&reason))
            GTEST_SKIP() << qPrintable(reason);
        LibraryTest::SetUp();
        server = std::make_unique<PostgresServer>();
        KXError error;
        const auto servers = KXCatalogueServers::fromText(server->address(), &error);
        ASSERT_TRUE(servers);
        address = *servers;
        const KXCatalogueSchema schema = KXCatalogueSchema::standard();
        KXCatalogueLoader loader(address.parts().first().first(), schema, KXCatalogueLayout::standard());
        ASSERT_TRUE(loader.create(&error) && loader.begin(&error)) << qPrintable(error.localizedDescription());
        SourceTrack track;
        for (auto source = TrackSources::synthetic(schema, Tracks); source(track);)
            ASSERT_TRUE(loader.add(track.values, &error)) << qPrintable(error.localizedDescription());
        ASSERT_TRUE(loader.finish(&error) && loader.index(&error));
    }
    qint64 inTable(const QString &condition)
    {
        return server->run(u"SELECT count(*) FROM catalogue.tracks WHERE "_s + condition).toLongLong();
    }
    static bool waitForAnswer(ShopWindow &shop, const QString &text)
    {
        return QTest::qWaitFor([&] { return shop.stateText() == text; }, 10'000);
    }

    std::unique_ptr<PostgresServer> server;
    KXCatalogueServers address;
};

TEST_F(ShopTest, EveryFilterThatIsOfferedIsAnswered)
{
    const auto mapper = Shop::makeMapper();
    KXPostgreSQLCatalogue catalogue(address, KXCatalogueSchema::standard());
    // Of each there is something to choose.
    Genre::createInContext(*context)->setName(u"House"_s);
    Artist::createInContext(*context)->setName(u"Ann"_s);
    Label::createInContext(*context)->setName(u"Label"_s);
    for (const KXFilterTypeItem &type : FilterTypes::items()) {
        const KXRef<KXFilter> filter = FilterTypes::make(*context, type.tag, {});
        ASSERT_TRUE(filter);
        filter->setEnabled(true);
        const KXRef<KXManagedObject> object(filter);
        if (const auto range = KXRangeFilter::cast(object)) {
            range->setStartValue(KXDecimal::fromInteger(1));
            range->setEndValue(KXDecimal::fromString(u"2000.5"_s));
        } else if (const auto facet = KXFacetFilter::cast(object)) {
            if (FilterTypes::editorOf(*filter) == FilterTypes::Editor::Text)
                FilterTypes::addValue(
                    *facet, { u"é.m"_s, FilterTypes::patternOfText(u"é.m"_s), {}, KXPredicateOperator::Matches });
            const auto choices = FilterTypes::choicesFor(*context, *filter);
            for (const FilterTypes::Choice &choice : choices)
                FilterTypes::addValue(*facet, choice);
            EXPECT_FALSE(facet->values().isEmpty()) << qPrintable(type.name);
        }
        KXError error;
        EXPECT_TRUE(mapper->canMapFilter(*filter, &error))
            << qPrintable(type.name) << ": " << qPrintable(error.localizedDescription());
        ASSERT_TRUE(mapper->giveRemoteKeyPath(*filter));
        std::optional<KXCatalogueCounts> counts;
        const auto ticket = catalogue.count({ .rule = filter->representedRemotePredicateWithKeyPath() },
            [&](const KXCatalogueCounts &given) { counts = given; });
        ASSERT_TRUE(QTest::qWaitFor([&] { return counts.has_value(); }, 10'000));
        EXPECT_FALSE(counts->error) << qPrintable(type.name) << qPrintable(counts->error.localizedDescription());
    }
}

TEST_F(ShopTest, PreviewsComeFromHostsThatTheCatalogueNames)
{
    const QSet<QString> hosts { u"cdn.shop.example"_s, u"127.0.0.1"_s };
    const std::pair<const char *, bool> rows[] = { { "https://cdn.shop.example/1.mp3", true },
        { "https://CDN.shop.example:8443/1.mp3", true }, { "http://cdn.shop.example/1.mp3", false },
        { "https://evil.example/1.mp3", false }, { "https://cdn.shop.example.evil.example/1.mp3", false },
        { "https://evil@cdn.shop.example/1.mp3", false }, { "https://cdn.shop.example@evil.example/1.mp3", false },
        { "file:///etc/passwd", false }, { "http://127.0.0.1:1/1.wav", true }, { "http://127.0.0.2/1.wav", false },
        { "ftp://127.0.0.1/1.wav", false }, { "", false } };
    for (const auto &[address, isPlayed] : rows)
        EXPECT_EQ(ShopPreview::refusal(QUrl(QString::fromLatin1(address)), hosts).isEmpty(), isPlayed) << address;

    const QString path = folder.filePath(u"preview.wav"_s);
    writePlainWave(makeSound(44100), path);
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const HttpServer web(file.readAll(), HttpServer::Normal);
    const auto output = std::make_shared<KXHandCrankedAudioOutput>();
    // A catalogue that names no hosts has no previews.
    ShopPreview nobody(address, output);
    EXPECT_FALSE(nobody.toggle(web.url()).isEmpty());
    server->run(u"CREATE TABLE catalogue.preview_hosts(id bigint, host text)"_s);
    server->run(u"INSERT INTO catalogue.preview_hosts VALUES(1, '127.0.0.1')"_s);
    ShopPreview preview(address, output);
    ASSERT_TRUE(QTest::qWaitFor([&] { return !preview.hosts().isEmpty(); }, 10'000));
    EXPECT_EQ(preview.toggle(web.url()), QString());
    EXPECT_TRUE(QTest::qWaitFor([&] { return preview.player().state() == KXAudioPlayerStatePlaying; }, 10'000));
    EXPECT_EQ(preview.toggle(web.url()), QString());
    EXPECT_EQ(preview.player().state(), KXAudioPlayerStateStopped);
    EXPECT_GE(web.requests(), 1);
}

TEST_F(ShopTest, ShowsCountsAndMarksAndGoesOnWithoutTheNetwork)
{
    const auto genre = Genre::createInContext(*context);
    genre->setName(u"House"_s);
    const auto owned = add(u"owned"_s);
    owned->addToGenres(genre);
    const QString title = server->run(u"SELECT title FROM catalogue.tracks ORDER BY released DESC, id DESC LIMIT 1"_s);
    owned->setTitle(title);
    owned->setArtistText(
        server->run(u"SELECT artist_text FROM catalogue.tracks ORDER BY released DESC, id DESC LIMIT 1"_s));
    ASSERT_TRUE(Presets::install(*context));
    save();
    BrowserWindow library(coordinator);
    ShopWindow shop(coordinator, address);
    shop.show();
    ASSERT_TRUE(waitForAnswer(shop, u"1,000 tracks"_s)) << qPrintable(shop.stateText());
    ASSERT_TRUE(QTest::qWaitFor([&] { return shop.model()->rowCount() > 0; }, 5000));
    EXPECT_LE(shop.model()->rowCount(), 2 * ShopTableModel::PageRows) << "the whole shop, not what is seen";
    const auto cell = [&](int column) { return shop.model()->index(0, column).data().toString(); };
    EXPECT_EQ(cell(ShopTableModel::Title), title);
    EXPECT_TRUE(QTest::qWaitFor([&] { return !cell(ShopTableModel::Owned).isEmpty(); }, 5000));
    ASSERT_TRUE(QTest::qWaitFor([&] { return !shop.model()->isLoading(); }, 5000));
    const int before = shop.model()->rowCount();
    shop.model()->fetchMore({});
    EXPECT_TRUE(QTest::qWaitFor([&] { return shop.model()->rowCount() > before; }, 5000));
    // Its genres are the shop's own, which the library need not know.
    ASSERT_TRUE(QTest::qWaitFor([&] { return shop.facets()->topLevelItemCount() == 2; }, 5000));
    EXPECT_EQ(shop.facets()->topLevelItem(0)->childCount(),
        server->run(u"SELECT count(DISTINCT genre) FROM catalogue.tracks"_s).toInt());
    EXPECT_EQ(shop.facets()->topLevelItem(0)->child(0)->text(0),
        server->run(u"SELECT genre FROM catalogue.tracks GROUP BY 1 ORDER BY count(*) DESC, 1 LIMIT 1"_s));

    // A facet's value, then words beside it.
    shop.filters()->toggleValue(u"genres.name"_s, u"Genre"_s, { u"House"_s, u"House"_s });
    const qint64 house = inTable(u"genre = 'House'"_s);
    ASSERT_TRUE(waitForAnswer(shop, u"%1 tracks"_s.arg(house))) << qPrintable(shop.stateText());
    shop.search()->setText(u"nigh sig"_s);
    const qint64 found = inTable(u"genre = 'House' AND search @@ '''nigh'':* & ''sig'':*'"_s);
    ASSERT_TRUE(waitForAnswer(shop, u"%1 tracks"_s.arg(found))) << qPrintable(shop.stateText());
    EXPECT_LT(found, house);
    shop.search()->clear();

    // What asks for what the shop does not have cannot be loaded.
    const auto manager = KXFilterSetPresetsManager::sharedManager();
    ASSERT_TRUE(manager);
    const auto fast = Presets::find(*library.context(), u"Tempo/124 to 128"_s);
    const auto minor = Presets::find(*library.context(), u"Keys/Minor"_s);
    ASSERT_TRUE(fast && minor);
    EXPECT_TRUE(manager->isPresetAvailable(fast, shop.filters()->context()));
    EXPECT_FALSE(manager->isPresetAvailable(minor, shop.filters()->context()));
    shop.presets()->loadPreset(fast);
    ASSERT_TRUE(waitForAnswer(shop, u"%1 tracks"_s.arg(inTable(u"bpm >= 124 AND bpm < 128"_s))))
        << qPrintable(shop.stateText());

    server->stop();
    const int rows = shop.model()->rowCount();
    shop.ask();
    ASSERT_TRUE(QTest::qWaitFor([&] { return shop.stateText().contains(u"does not answer"_s); }, 10'000))
        << qPrintable(shop.stateText());
    EXPECT_EQ(shop.model()->rowCount(), rows) << "what is shown stays";
    ASSERT_TRUE(server->start());
    shop.ask();
    EXPECT_TRUE(QTest::qWaitFor([&] { return shop.stateText().endsWith(u" tracks"_s); }, 10'000));
}

}
