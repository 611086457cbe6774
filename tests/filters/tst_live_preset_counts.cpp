// Presets whose counts follow the music, the filters and the clock.

#include <QCoreApplication>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <kestrixkit/filters/KXFilterSetPresetCountsScheduler.h>
#include <kestrixkit/filters/KXLivePresetCounts.h>
#include <kestrixkit/foundation/KXClock.h>
#include <kestrixkit/foundation/KXUndoManager.h>

#include "filters/Shelf.h"

using namespace Qt::StringLiterals;

namespace {

/// Lets no range pass, and throws for a set that has a title.
class FacetsOnly : public KXFilterSetMapper
{
public:
    bool canMapFilterSet(const KXRef<KXFilterSet> &) const override { return true; }
    KXRef<KXFilterSet> createInstanceByMappingFilterSet(
        const KXRef<KXFilterSet> &set, KXManagedObjectContext &inContext) const override
    {
        if (!set->title().isEmpty())
            throw std::runtime_error("no");
        const KXRef<KXFilterSet> copy = set->duplicateInContext(inContext);
        for (const KXRef<KXFilter> &filter : copy->filters()) {
            if (KXRangeFilter::cast(KXRef<KXManagedObject>(filter)))
                inContext.removeManagedObject(filter);
        }
        return copy;
    }
};

qint64 shown(const KXRef<KXFilterSetPreset> &preset)
{
    return preset->counts().value_or(KXCounts()).value(u"shelf"_s, -1);
}

} // namespace

/// Ten things from 120 to 129, added one a day; presets of them, and counts of those below 128 and of all.
class LivePresetCountsTest : public ::testing::Test
{
protected:
    using Place = KXLivePresetCounts::Place;

    LivePresetCountsTest()
    {
        shelf.context->setUndoManager(std::make_shared<KXUndoManager>());
        for (int i = 0; i < 10; ++i) {
            const auto thing = shelf.make<Thing>();
            thing->setBpm(120 + i);
            thing->setKey(i % 2 ? u"Am"_s : u"C"_s);
            thing->setAdded(KXClock::now().addDays(-i));
        }
        const auto week = shelf.make<KXDateFilter>();
        week->setLocalValuePredicateKeyPath(u"added"_s);
        week->setRange(KXDateRange(3));
        recent = shelf.preset(u"recent"_s, shelf.set({ week }));
        EXPECT_TRUE(shelf.context->save());
        shelf.context->undoManager()->removeAllActions();
        EXPECT_TRUE(counts.update() && mapped.update());
    }
    void turn()
    {
        shelf.context->processPendingChanges();
        QCoreApplication::processEvents();
    }

    const KXClockPin pin { QDateTime(QDate(2024, 6, 1), QTime(12, 0), Qt::UTC) };
    Shelf shelf;
    const KXRef<KXRangeFilter> range = shelf.range(u"122"_s, u"125"_s);
    const KXRef<KXFilterSetPreset> fast = shelf.preset(u"fast"_s, shelf.set({ range }));
    const KXRef<KXFilterSetPreset> minor
        = shelf.preset(u"minor"_s, shelf.set({ shelf.facet({ u"Am"_s }), shelf.range(u"0"_s, u"1"_s) }));
    const KXRef<KXFilterSetPreset> lost = shelf.preset(u"lost"_s);
    const KXRef<KXFilterSetPreset> folder = shelf.folderPreset(u"all"_s, { fast, minor });
    KXRef<KXFilterSetPreset> recent;
    KXLivePresetCounts counts { shelf.context,
        Place { shelf.context, u"Thing"_s, u"shelf"_s, { KXPredicate::predicateWithFormat("bpm < 128") }, nullptr } };
    KXLivePresetCounts mapped { shelf.context,
        Place { shelf.context, u"Thing"_s, u"mapped"_s, {}, std::make_shared<FacetsOnly>() } };
};

TEST_F(LivePresetCountsTest, areThoseOfTheirPlaceAndMapper)
{
    EXPECT_EQ(shown(fast), 4);
    EXPECT_EQ(shown(minor), 0);
    EXPECT_EQ(shown(recent), 8) << "the moment seven days ago included, and 128 and more left out";
    EXPECT_EQ(shown(lost), 0);
    EXPECT_EQ(folder->counts()->value(u"shelf"_s), 4);
    EXPECT_EQ(mapped.count(*minor), 5) << "the mapper leaves ranges out";
    EXPECT_FALSE(shelf.context->hasChanges()) << "what is mapped is never saved";
    minor->filterSet()->setTitle(u"titled"_s);
    shelf.context->processPendingChanges();
    mapped.update();
    EXPECT_EQ(mapped.count(*minor), 0) << "a mapper that throws maps nothing";
}

TEST_F(LivePresetCountsTest, followFiltersByAnEditItsUndoAndAnotherContext)
{
    range->setEndValue(KXDecimal::fromString(u"130"_s));
    turn();
    EXPECT_EQ(shown(fast), 6);
    shelf.context->undoManager()->undo();
    turn();
    EXPECT_EQ(shown(fast), 4);
    const auto other = KXManagedObjectContext::contextWithPersistentStoreCoordinator(shelf.coordinator);
    const auto token = KXNotificationCenter::defaultCenter().addObserver(
        QString(KXManagedObjectContextDidSaveNotification), other.get(), [&](const KXNotification &saved) {
            shelf.context->mergeChangesFromStoreChange(*saved.payloadAs<std::shared_ptr<const KXStoreChange>>());
        });
    KXRangeFilter::cast(other->objectWithID(range->objectID()))->setStartValue(KXDecimal::fromString(u"125"_s));
    const auto copy = KXFilterSetPreset::cast(other->objectWithID(minor->objectID()))->duplicateInContext(*other);
    ASSERT_TRUE(other->save());
    QCoreApplication::processEvents();
    EXPECT_EQ(shown(fast), 1);
    EXPECT_EQ(mapped.count(*copy), 5);
    shelf.context->removeManagedObject(fast);
    shelf.context->processPendingChanges();
    EXPECT_EQ(counts.count(*fast), std::nullopt);
}

TEST_F(LivePresetCountsTest, areTheSumWhileAPresetIsAFolder)
{
    folder->setIsFolder(false);
    folder->setFilterSet(minor->filterSet());
    turn();
    EXPECT_EQ(shown(folder), shown(minor));
    EXPECT_EQ(counts.count(*folder), 0);
    folder->setIsFolder(true);
    shelf.context->processPendingChanges();
    EXPECT_EQ(counts.count(*folder), std::nullopt);
}

/// A number that nobody could have counted is none, on badges as well.
TEST_F(LivePresetCountsTest, areAbsentWhereNobodyCanCount)
{
    range->setLocalValuePredicateKeyPath(u"key"_s); // a text against numbers
    turn();
    EXPECT_EQ(shown(fast), -1);
    range->setLocalValuePredicateKeyPath(u"bpm"_s);
    turn();
    EXPECT_EQ(shown(fast), 4);

    const auto mark = shelf.make<Mark>();
    mark->setName(u"x"_s);
    mark->addToThings(Thing::findAllInContext(*shelf.context).first());
    ASSERT_TRUE(shelf.context->save());
    shelf.context->refreshObject(mark.get());
    sqlite3 *file = nullptr;
    ASSERT_EQ(sqlite3_open(shelf.path().toUtf8().constData(), &file), SQLITE_OK);
    const auto run = [file](const char *sql) { return sqlite3_exec(file, sql, nullptr, nullptr, nullptr); };
    const QString text = u"tags.name == 'x'"_s; // of a column that nobody has read yet
    ASSERT_EQ(run("ALTER TABLE Mark RENAME TO Away"), SQLITE_OK);
    counts.liveCounts().setRule(u"marked"_s, KXPredicate::predicateWithFormat(text));
    KXError error;
    EXPECT_FALSE(counts.update(&error));
    EXPECT_TRUE(error);
    EXPECT_EQ(shown(fast), -1);
    EXPECT_EQ(shown(folder), -1);
    ASSERT_EQ(run("ALTER TABLE Away RENAME TO Mark"), SQLITE_OK);
    sqlite3_close(file);
    EXPECT_TRUE(counts.update());
    EXPECT_EQ(shown(fast), 4);
    EXPECT_EQ(counts.liveCounts().count(u"marked"_s), 1);
}

TEST_F(LivePresetCountsTest, followTimeAlone)
{
    EXPECT_EQ(counts.liveCounts().nextBoundary(), KXClock::now().addMSecs(1));
    KXClock::advance(86'400);
    counts.liveCounts().advance();
    EXPECT_EQ(shown(recent), 7);
    EXPECT_EQ(counts.liveCounts().asOf(), KXClock::now());
}

TEST_F(LivePresetCountsTest, areDeliveredByAnOperation)
{
    bool onScreen = true;
    KXFilterSetPresetCountsScheduler scheduler(u"mapped"_s,
        { [&] { return onScreen; },
            [&](const KXRef<KXFilterSetPreset> &preset) { return mapped.countsProviderForFilterSetPreset(preset); } });
    scheduler.enqueueCountsOperationForPreset(recent);
    KXFilterSetPresetCountsScheduler::countsQueue().waitUntilAllOperationsAreFinished();
    QCoreApplication::processEvents();
    EXPECT_EQ(recent->counts()->value(u"mapped"_s), *mapped.count(*recent));

    // What it delivers is what is right by then.
    const auto operation = counts.countsProviderForFilterSetPreset(fast);
    const qint64 before = shown(fast);
    range->setEndValue(130);
    turn();
    EXPECT_GT(shown(fast), before);
    KXFilterSetPresetCountsScheduler::countsQueue().addOperation(operation);
    KXFilterSetPresetCountsScheduler::countsQueue().waitUntilAllOperationsAreFinished();
    QCoreApplication::processEvents();
    EXPECT_EQ(shown(fast), *counts.count(*fast));
}

TEST_F(LivePresetCountsTest, mayEndWhileACountIsTold)
{
    auto live = std::make_unique<KXLivePresetCounts>(
        shelf.context, Place { shelf.context, u"Thing"_s, u"brief"_s, {}, nullptr });
    int told = 0;
    std::vector<std::shared_ptr<KXObserver>> observers;
    for (const auto &preset : { fast, minor, recent })
        observers.push_back(preset->onChangeOf(u"counts"_s, [&](const KXKeyValueChange &) {
            ++told;
            live.reset();
        }));
    EXPECT_TRUE(QTest::qWaitFor([&] { return !live; }, 60'000));
    QTest::qWait(1);
    EXPECT_EQ(told, 1);
    for (size_t i = 0; i < observers.size(); ++i)
        (i == 0 ? fast : i == 1 ? minor : recent)->removeKVOBlockObserver(observers[i]);
}

TEST(LivePresetCounts, oneChangeEvaluatesOnlyTheRulesThatUseItAndAsksNoStore)
{
    Shelf shelf;
    const auto thing = shelf.make<Thing>();
    thing->setBpm(100);
    thing->setKey(u"Am"_s);
    KXLiveCounts counts(shelf.context, u"Thing"_s);
    for (int i = 0; i < 30; ++i)
        counts.setRule(u"tempo%1"_s.arg(i), KXPredicate::predicateWithFormat("bpm > %@", 90 + i));
    for (int i = 0; i < 20; ++i)
        counts.setRule(u"key%1"_s.arg(i), KXPredicate::predicateWithFormat("key == %@", u"k%1"_s.arg(i)));
    counts.setRule(u"both"_s, KXPredicate::predicateWithFormat("key == 'Am' AND bpm < 110"));
    counts.setRule(u"compared"_s, KXPredicate::predicateWithFormat("bpm > bpm"));
    ASSERT_TRUE(counts.update());
    EXPECT_EQ(counts.unsupported().keys(), QStringList { u"compared"_s });
    counts.removeRule(u"compared"_s);
    ASSERT_TRUE(shelf.context->save());

    const quint64 before = counts.evaluations();
    thing->setBpm(105.5);
    shelf.context->processPendingChanges();
    EXPECT_EQ(counts.evaluations() - before, 31u);
    EXPECT_EQ(counts.count(u"tempo15"_s), 1);
    EXPECT_EQ(counts.count(u"tempo16"_s), 0);
    EXPECT_EQ(counts.count(u"both"_s), 1);
    EXPECT_LT(counts.bytesPerObject(), 60);
}
