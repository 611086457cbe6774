// Presets that are counted in a catalogue.

#include <QTest>

#include <kestrixkit/catalogue/KXPostgreSQLDialect.h>
#include <kestrixkit/catalogue/presets/KXCatalogueFilterSetMapper.h>
#include <kestrixkit/catalogue/presets/KXFilterSetPresetCatalogueCountsProvider.h>
#include <kestrixkit/filters/KXFilterSetPresetCountsScheduler.h>
#include <kestrixkit/filters/KXFilterSetPresetsManager.h>
#include <kestrixkit/foundation/KXClock.h>

#include "CatalogueTest.h"
#include "filters/Shelf.h"

using namespace Qt::StringLiterals;

namespace {

class CataloguePresets : public CatalogueTest
{
protected:
    void SetUp() override
    {
        CatalogueTest::SetUp();
        if (IsSkipped())
            return;
        shelf = std::make_unique<Shelf>();
        KXTestRandom random;
        rows = RemoteRules(random).rows(50);
        rows[0]->values[u"title"_s] = u"a"_s; // something is found
        server = std::make_unique<PostgresServer>();
        std::vector<const RemoteRow *> all;
        for (const auto &row : rows)
            all.push_back(row.get());
        load(*server, all);
        catalogue = std::make_shared<KXPostgreSQLCatalogue>(serversAt(server->address()), RemoteRules::schema());
        mapper
            = std::make_shared<KXCatalogueFilterSetMapper>(std::make_shared<KXPostgreSQLDialect>(RemoteRules::schema()),
                QHash<QString, KXCatalogueFilterSetMapper::KeyPath> {
                    { u"bpm"_s, { u"bpm"_s } }, { u"key"_s, { u"title"_s } }, { u"added"_s, { u"released"_s } } });
        manager = std::make_shared<KXFilterSetPresetsManager>(shelf->context);
        KXFilterSetPresetsManager::setSharedManager(manager);
    }
    void TearDown() override { KXFilterSetPresetsManager::setSharedManager(nullptr); }

    std::unique_ptr<KXFilterSetPresetCountsScheduler> scheduler()
    {
        return std::make_unique<KXFilterSetPresetCountsScheduler>(u"shop"_s,
            KXFilterSetPresetCountsScheduler::Callbacks { .isOnScreen = [] { return true; },
                .countsProviderForFilterSetPreset =
                    [this](const KXRef<KXFilterSetPreset> &preset) {
                        auto provider = std::make_shared<KXFilterSetPresetCatalogueCountsProvider>(
                            preset, u"shop"_s, catalogue, cache);
                        provider->setFilterSetMapper(mapper);
                        last = provider;
                        return provider;
                    } });
    }
    std::optional<qint64> countOf(const KXRef<KXFilterSetPreset> &preset)
    {
        const auto counts = preset->counts();
        return counts && counts->contains(u"shop"_s) ? std::optional(counts->value(u"shop"_s)) : std::nullopt;
    }
    qint64 inMemory(const QString &title)
    {
        return std::count_if(
            rows.begin(), rows.end(), [&](const auto &row) { return row->values[u"title"_s] == QVariant(title); });
    }

    std::unique_ptr<Shelf> shelf;
    std::vector<std::unique_ptr<RemoteRow>> rows;
    std::unique_ptr<PostgresServer> server;
    std::shared_ptr<KXPostgreSQLCatalogue> catalogue;
    std::shared_ptr<const KXCatalogueFilterSetMapper> mapper;
    std::shared_ptr<KXCatalogueCountsCache> cache = std::make_shared<KXCatalogueCountsCache>();
    std::shared_ptr<KXFilterSetPresetsManager> manager;
    std::shared_ptr<KXFilterSetPresetCountsProvider> last;
};

TEST_F(CataloguePresets, AreCountedWithTheCataloguesKeyPathsOnceInAWhile)
{
    const auto titled = shelf->preset(u"a"_s, shelf->set({ shelf->facet({ u"a"_s }) }));
    const auto elsewhere = shelf->preset(u"tagged"_s, shelf->set({ shelf->facet({ u"a"_s }, {}, Shelf::ToMany) }));
    const auto recent = shelf->make<KXDateFilter>();
    recent->setLocalValuePredicateKeyPath(u"added"_s);
    recent->setRange(KXDateRange::Last30Days);
    recent->setEnabled(true);
    const auto dated = shelf->preset(u"recent"_s, shelf->set({ recent }));
    ASSERT_TRUE(shelf->context->save());

    EXPECT_TRUE(mapper->canMapFilterSet(titled->filterSet()));
    EXPECT_FALSE(mapper->canMapFilterSet(elsewhere->filterSet())) << "the catalogue has no tags";
    const auto mapped = mapper->createInstanceByMappingFilterSet(titled->filterSet(), *shelf->context);
    ASSERT_TRUE(mapped);
    EXPECT_EQ(mapped->representedRemotePredicateWithKeyPath().keyPaths(), QStringList { u"title"_s });

    const auto counting = scheduler();
    counting->loadCountsForAllPresets();
    ASSERT_TRUE(QTest::qWaitFor([&] { return countOf(titled) && countOf(dated); }, 10'000));
    EXPECT_EQ(countOf(titled), inMemory(u"a"_s));
    EXPECT_GT(countOf(titled).value_or(0), 0);
    ASSERT_TRUE(QTest::qWaitFor([&] { return counting->countOperations().isEmpty(); }, 10'000));
    EXPECT_FALSE(countOf(elsewhere));
    counting->enqueueCountsOperationForPreset(elsewhere);
    ASSERT_TRUE(QTest::qWaitFor([&] { return counting->countOperations().isEmpty(); }, 10'000));
    EXPECT_EQ(last->error().code(), KXCatalogueError::Refused);

    // What is known is not asked for again, also when its dates have moved on; after a while it is.
    server->stop();
    titled->setCount(-7, u"shop"_s);
    dated->setCount(-7, u"shop"_s);
    counting->enqueueCountsOperationForPreset(titled);
    counting->enqueueCountsOperationForPreset(dated);
    ASSERT_TRUE(QTest::qWaitFor([&] { return countOf(titled) != -7 && countOf(dated) != -7; }, 10'000));
    EXPECT_EQ(countOf(titled), inMemory(u"a"_s));
    const KXClockPin later(KXClock::now().addSecs(3600));
    counting->enqueueCountsOperationForPreset(titled);
    ASSERT_TRUE(QTest::qWaitFor([&] { return counting->countOperations().isEmpty(); }, 20'000));
    EXPECT_EQ(last->error().code(), KXCatalogueError::Unreachable);
    EXPECT_EQ(countOf(titled), inMemory(u"a"_s)) << "offline the number stays";
    EXPECT_EQ(titled->countNoteForContextIdentifier(u"shop"_s), u"counted an hour ago"_s);
}

TEST_F(CataloguePresets, WhatIsKnownOfOneSpanOfTimeIsNotGivenForAnother)
{
    const KXClockPin pin;
    KXClock::setTimeZone(QTimeZone::utc()); // where the spans without end begin with a year
    QList<KXRef<KXFilterSetPreset>> presets;
    for (const auto range : { KXDateRange::All, KXDateRange::ThisYear, KXDateRange::Last7Days }) {
        const auto filter = shelf->make<KXDateFilter>();
        filter->setLocalValuePredicateKeyPath(u"added"_s);
        filter->setRange(range);
        filter->setEnabled(true);
        presets.append(shelf->preset(QString::number(int(range)), shelf->set({ filter })));
    }
    // One that the table of key paths does not name, since the catalogue calls it the same.
    const auto titled = shelf->facet({ u"a"_s });
    titled->setLocalValuePredicateKeyPath(u"title"_s);
    const auto sameName = shelf->set({ titled });
    ASSERT_TRUE(mapper->canMapFilterSet(sameName));
    EXPECT_EQ(mapper->createInstanceByMappingFilterSet(sameName, *shelf->context)
                  ->representedRemotePredicateWithKeyPath()
                  .keyPaths(),
        QStringList { u"title"_s });
    ASSERT_TRUE(shelf->context->save());
    const auto counted = [&] {
        const auto counting = scheduler();
        QList<qint64> numbers;
        for (const auto &preset : presets) {
            preset->setCount(-1, u"shop"_s);
            counting->enqueueCountsOperationForPreset(preset);
            EXPECT_TRUE(QTest::qWaitFor([&] { return countOf(preset) != -1; }, 10'000));
            numbers.append(countOf(preset).value_or(-1));
        }
        return numbers;
    };
    const QList<qint64> together = counted();
    QList<qint64> apart;
    for (const auto &preset : QList(presets)) {
        cache = std::make_shared<KXCatalogueCountsCache>();
        presets = { preset };
        apart += counted();
    }
    EXPECT_EQ(together, apart);
    EXPECT_GT(together[0], together[1]);
    KXClock::setTimeZone({});
}

TEST_F(CataloguePresets, CancellingWakesWhatWaits)
{
    const auto preset = shelf->preset(u"a"_s, shelf->set({ shelf->facet({ u"a"_s }) }));
    ASSERT_TRUE(shelf->context->save());
    PGconn *const lock = PQconnectdb(server->address().toUtf8().constData());
    PQclear(PQexec(lock, "BEGIN; LOCK TABLE \"kx test\".\"tracks \"\"all\"\"\" IN ACCESS EXCLUSIVE MODE"));
    {
        const auto counting = scheduler();
        counting->loadCountsForAllPresets();
        ASSERT_TRUE(QTest::qWaitFor([&] { return last && last->hasStarted(); }, 5000));
    }
    EXPECT_TRUE(QTest::qWaitFor([&] { return last->isDone(); }, 2000));
    EXPECT_FALSE(countOf(preset));

    // So does a catalogue that goes while it is asked: it answers nobody any more.
    const auto counting = scheduler();
    counting->loadCountsForAllPresets();
    ASSERT_TRUE(QTest::qWaitFor([&] { return last->hasStarted(); }, 5000));
    QTest::qWait(200); // the request is under way
    ASSERT_FALSE(last->isDone());
    catalogue.reset();
    EXPECT_TRUE(QTest::qWaitFor([&] { return last->isDone(); }, 5000));
    PQfinish(lock);
}

}
