// The library's presets: what they map and how they are counted.

#include <QTest>

#include <kestrixkit/filters/KXFilterSetPresetCountsScheduler.h>
#include <kestrixkit/filters/KXFilterSetPresetsManager.h>
#include <kestrixkit/filters/KXRangeFilter.h>

#include <filters/PresetMapper.h>
#include <filters/Presets.h>

#include "LibraryTest.h"

using namespace Qt::StringLiterals;

using PresetsTest = LibraryTest;

TEST_F(PresetsTest, areCountedInTheBackgroundAsTheReportCountsThem)
{
    for (int i = 0; i < 40; ++i) {
        const auto track = add(u"t%1"_s.arg(i), 80.0 + 3 * i);
        track->setMissing(i % 7 == 0);
        track->setRating(i % 6);
    }
    Presets::install(*context);
    Presets::install(*context); // there are some
    const QJsonArray report = Presets::report(*context);
    const auto unusable = Presets::find(*context, u"Tempo/Below 90"_s);
    KXRangeFilter::cast(KXRef<KXManagedObject>(unusable->filterSet()->filters().first()))
        ->setLocalValuePredicateKeyPath(u"tempo"_s);
    Presets::find(*context, u"Tempo/90 to 110"_s)->setFilterSetURI(QUrl(u"x-kestrix-store://gone/KXFilterSet/p1"_s));
    save();

    const auto mapper = std::make_shared<PresetMapper>();
    const auto manager = std::make_shared<KXFilterSetPresetsManager>(context);
    KXFilterSetPresetsManager::setSharedManager(manager);
    manager->registerFilterSetMapper(mapper, context);
    KXLivePresetCounts counts(context, Presets::place(context, mapper));
    counts.update();
    KXFilterSetPresetCountsScheduler scheduler(QString(Presets::contextIdentifier),
        { [] { return true; },
            [&](const KXRef<KXFilterSetPreset> &preset) { return counts.countsProviderForFilterSetPreset(preset); } });
    EXPECT_FALSE(manager->isPresetAvailable(unusable, context));
    scheduler.loadCountsForAllPresets();
    ASSERT_TRUE(QTest::qWaitFor([&] { return scheduler.countOperations().isEmpty(); }, 60'000));

    int counted = 0;
    for (const QJsonValue &value : report) {
        const QString path = value[u"path"_s].toString();
        const auto preset = Presets::find(*context, path);
        ASSERT_TRUE(preset) << path.toStdString();
        const qint64 count = preset->counts().value_or(KXCounts()).value(Presets::contextIdentifier, -1);
        if (preset == unusable) // what cannot be understood is left out
            EXPECT_EQ(count, 34);
        else if (path == u"Tempo/90 to 110"_s) // its set is still the one that was found before
            EXPECT_EQ(Presets::predicate(preset->filterSet()).type(), KXPredicateType::And);
        else
            EXPECT_EQ(count, value[u"count"_s].toInteger(-2)) << path.toStdString();
        counted += count > 0;
    }
    EXPECT_GT(counted, 8);
    EXPECT_EQ(KXFilter::countOfInContext(*context),
        KXFilter::countOfInContext(*KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator)));
    KXFilterSetPresetsManager::setSharedManager(nullptr);
}
