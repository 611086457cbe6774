// The presets manager, its mappers, and the counting of presets in the background.

#include <semaphore>

#include <QTest>
#include <gtest/gtest.h>

#include <kestrixkit/filters/KXFilterSetPresetCountsScheduler.h>
#include <kestrixkit/filters/KXFilterSetPresetLocalCountsProvider.h>
#include <kestrixkit/filters/KXFilterSetPresetsManager.h>
#include <kestrixkit/foundation/KXException.h>

#include "filters/Shelf.h"
#include "support/KXTestLog.h"
#include "support/KXTestPrint.h"

using namespace Qt::StringLiterals;

namespace {

class Mapper : public KXFilterSetMapper
{
public:
    enum Mood { Willing, Refusing, Throwing };
    explicit Mapper(Mood mood)
        : m_mood(mood)
    {
    }
    bool canMapFilterSet(const KXRef<KXFilterSet> &set) const override
    {
        if (m_mood == Throwing)
            throw std::runtime_error("no");
        return m_mood == Willing && set;
    }
    KXRef<KXFilterSet> createInstanceByMappingFilterSet(
        const KXRef<KXFilterSet> &set, KXManagedObjectContext &inContext) const override
    {
        return canMapFilterSet(set) ? set->duplicateInContext(inContext) : KXRef<KXFilterSet>();
    }

private:
    const Mood m_mood;
};

/// Counts things, once it is let go on.
class Counting : public KXFilterSetPresetLocalCountsProvider
{
public:
    Counting(KXRef<KXFilterSetPreset> preset, const QString &contextIdentifier)
        : KXFilterSetPresetLocalCountsProvider(std::move(preset), contextIdentifier, u"Thing"_s)
    {
    }
    enum Mood { Counts, ThrowsOurs, ThrowsOthers };

    std::counting_semaphore<> goOn { 0 };
    Mood mood = Counts;

protected:
    void loadCounts() override
    {
        goOn.acquire();
        if (mood == ThrowsOurs)
            throw KXException(u"Wrong"_s, u"ours"_s);
        if (mood == ThrowsOthers)
            throw std::runtime_error("others'");
        KXFilterSetPresetLocalCountsProvider::loadCounts();
    }
};

/// A place that shows presets, whose operations stop at their gates.
class Place
{
public:
    explicit Place(Shelf &shelf)
    {
        KXFilterSetPresetsManager::setSharedManager(std::make_shared<KXFilterSetPresetsManager>(shelf.context));
        scheduler = std::make_unique<KXFilterSetPresetCountsScheduler>(u"here"_s,
            KXFilterSetPresetCountsScheduler::Callbacks { [this] { return onScreen; },
                [this](const KXRef<KXFilterSetPreset> &preset) { return provide(preset); } });
    }
    ~Place()
    {
        scheduler.reset();
        openGates();
        KXFilterSetPresetCountsScheduler::countsQueue().waitUntilAllOperationsAreFinished();
        KXFilterSetPresetsManager::setSharedManager(nullptr);
    }
    void openGates()
    {
        for (const auto &operation : made)
            operation->goOn.release();
    }
    /// Lets everything queued run, and the main thread see it.
    void settle()
    {
        gated = false;
        openGates();
        EXPECT_TRUE(QTest::qWaitFor([this] { return scheduler->countOperations().isEmpty(); }));
        EXPECT_TRUE(
            QTest::qWaitFor([this] { return KXFilterSetPresetCountsScheduler::countsQueue().operationCount() == 0; }));
        QCoreApplication::processEvents();
    }
    [[nodiscard]] static bool isRunning(const Counting &operation)
    {
        return QTest::qWaitFor([&] { return operation.isExecuting(); });
    }
    [[nodiscard]] QStringList madeFor() const
    {
        QStringList titles;
        for (const auto &operation : made)
            titles.append(operation->filterSetPreset()->title());
        titles.sort();
        return titles;
    }

    std::unique_ptr<KXFilterSetPresetCountsScheduler> scheduler;
    bool onScreen = true;
    bool gated = true;
    QList<std::shared_ptr<Counting>> made;

private:
    std::shared_ptr<Counting> provide(const KXRef<KXFilterSetPreset> &preset)
    {
        if (preset->title() == u"not here")
            return nullptr;
        auto operation = std::make_shared<Counting>(preset, scheduler->countsContextIdentifier());
        if (!gated)
            operation->goOn.release();
        made.append(operation);
        return operation;
    }
};

std::optional<qint64> countHere(const KXRef<KXFilterSetPreset> &preset)
{
    const KXCounts counts = preset->counts().value_or(KXCounts());
    return counts.contains(u"here"_s) ? std::optional(counts[u"here"_s]) : std::nullopt;
}

}

TEST(PresetsManager, knowsPresetsAndMappers)
{
    Shelf shelf;
    const auto old = shelf.preset(u"old"_s, shelf.set({ shelf.range(u"1"_s, {}) }));
    const auto setless = shelf.preset(u"setless"_s);
    shelf.context->save();
    const auto manager = std::make_shared<KXFilterSetPresetsManager>(shelf.context);
    const auto fresh = shelf.folderPreset(u"folder"_s);
    EXPECT_EQ(manager->presetsCache().size(), 2);
    shelf.context->processPendingChanges();
    EXPECT_TRUE(manager->presetsCache().contains(fresh));
    shelf.context->removeManagedObject(fresh);
    shelf.context->processPendingChanges();
    EXPECT_EQ(manager->presetsCache(), (QSet<KXRef<KXFilterSetPreset>> { old, setless }));

    auto other = KXManagedObjectContext::contextWithPersistentStoreCoordinator(shelf.coordinator);
    manager->registerFilterSetMapper(std::make_shared<Mapper>(Mapper::Refusing), other);
    manager->registerFilterSetMapper(std::make_shared<Mapper>(Mapper::Throwing), shelf.context);
    EXPECT_FALSE(manager->isPresetAvailable(old, shelf.context)); // there is no shared one yet
    KXFilterSetPresetsManager::setSharedManager(manager);
    const KXTestLog log;
    EXPECT_FALSE(manager->isPresetAvailable(old, shelf.context)
        || manager->createFilterSetFromFilterSet(old->filterSet(), shelf.context));
    EXPECT_EQ(log.lines().size(), 2);
    EXPECT_FALSE(manager->isPresetAvailable(old, other));

    manager->registerFilterSetMapper(std::make_shared<Mapper>(Mapper::Willing), other);
    EXPECT_EQ(manager->mappers().size(), 2);
    EXPECT_TRUE(manager->isPresetAvailable(old, other));
    EXPECT_FALSE(manager->isPresetAvailable(setless, other));
    const auto mapped = KXFilterSetPresetsManager(other).createFilterSetFromFilterSet(old->filterSet(), other);
    ASSERT_TRUE(mapped);
    EXPECT_EQ(mapped->managedObjectContext(), other.get());
    EXPECT_FALSE(manager->createFilterSetFromFilterSet({}, other));
    EXPECT_EQ(manager->filterSetMapperForApplicationContext(nullptr), nullptr);
    other.reset();
    EXPECT_EQ(manager->mappers().size(), 2);
    KXFilterSetPresetsManager::setSharedManager(nullptr);
}

TEST(Counting, endsWhateverItThrows)
{
    Shelf shelf;
    const auto preset = shelf.preset(u"p"_s);
    for (const Counting::Mood mood : { Counting::ThrowsOurs, Counting::ThrowsOthers }) {
        const KXTestLog log;
        Counting operation(preset, u"here"_s);
        operation.mood = mood;
        operation.goOn.release();
        operation.cancel(); // runs all the same
        if (mood == Counting::ThrowsOurs)
            EXPECT_NO_THROW(operation.start());
        else
            EXPECT_THROW(operation.start(), std::runtime_error);
        EXPECT_TRUE(operation.isFinished());
        EXPECT_EQ(log.contains(u"Failed to load counts: Wrong: ours"_s), mood == Counting::ThrowsOurs);
    }
    EXPECT_EQ(KXCountBadgeText(-1) + KXCountBadgeText(0) + KXCountBadgeText(1) + KXCountBadgeText(999)
            + KXCountBadgeText(1000),
        u"1999999+"_s);
}

TEST(Counting, countsWhatIsOnScreenAndNothingTwice)
{
    Shelf shelf;
    for (const double bpm : { 100.0, 120.0, 140.0 })
        shelf.make<Thing>()->setBpm(bpm);
    const auto slow = shelf.preset(u"slow"_s, shelf.set({ shelf.range({}, u"120"_s) }));
    const auto counted = shelf.preset(u"counted"_s, shelf.set({}));
    counted->setCount(0, u"here"_s);
    const auto folder = shelf.folderPreset(u"folder"_s, { slow });
    shelf.preset(u"not here"_s);
    shelf.context->save();

    Place place(shelf);
    place.onScreen = false;
    place.scheduler->loadCountsForAllPresets();
    EXPECT_TRUE(place.made.isEmpty());
    EXPECT_EQ(place.scheduler->presetsNeedingCountUpdate().size(), 2);
    place.scheduler->enqueuePresetsNeedingCountUpdate(); // off screen: forgets
    EXPECT_TRUE(place.scheduler->presetsNeedingCountUpdate().isEmpty());
    place.scheduler->setPresetAsNeedingCountUpdate(slow);
    place.onScreen = true;
    place.scheduler->enqueuePresetsNeedingCountUpdate();
    place.scheduler->enqueueCountsOperationForPreset(folder);
    ASSERT_EQ(place.madeFor(), QStringList { u"slow"_s });

    // Running: begun anew. Waiting behind that: left alone.
    ASSERT_TRUE(Place::isRunning(*place.made[0]));
    place.scheduler->enqueueCountsOperationForPreset(slow);
    ASSERT_EQ(place.made.size(), 2);
    EXPECT_TRUE(place.made[0]->isCancelled());
    place.scheduler->enqueueCountsOperationForPreset(slow);
    EXPECT_EQ(place.made.size(), 2);
    EXPECT_EQ(place.scheduler->countOperations().value(slow->objectID()), place.made[1]);
    place.settle();
    EXPECT_EQ(countHere(slow), 2);
    EXPECT_EQ(folder->counts()->value(u"here"_s), 2);
    EXPECT_EQ(countHere(counted), 0);

    // Put aside, it is counted when it is next shown; taken out, it is not.
    place.gated = true;
    place.scheduler->enqueueCountsOperationForPreset(slow);
    place.scheduler->dequeueAllCountsOperations();
    EXPECT_TRUE(place.made.last()->isCancelled());
    EXPECT_EQ(place.scheduler->presetsNeedingCountUpdate(), QSet { slow });
    place.scheduler->enqueuePresetsNeedingCountUpdate();
    EXPECT_EQ(place.made.size(), 4);
    place.scheduler->dequeueCountsOperationForPreset(slow);
    EXPECT_TRUE(place.scheduler->countOperations().isEmpty() && place.scheduler->presetsNeedingCountUpdate().isEmpty());
}

/// An operation reads what is saved: its number is an old one where it came before the save, shown or not.
TEST(Counting, whatWasCountedBeforeASaveIsCountedAnewWhenItIsShownAgain)
{
    Shelf shelf;
    const auto range = shelf.range({}, {});
    const auto preset = shelf.preset(u"p"_s, shelf.set({ range }));
    shelf.context->save();
    Place place(shelf);
    place.settle();
    range->setEndValue(KXDecimal::fromInteger(1));
    shelf.context->processPendingChanges();
    place.settle();
    place.made.clear();
    place.scheduler->dequeueAllCountsOperations();
    place.onScreen = false;
    shelf.context->save();
    EXPECT_TRUE(place.made.isEmpty());
    place.onScreen = true;
    place.scheduler->enqueuePresetsNeedingCountUpdate();
    EXPECT_EQ(place.madeFor(), QStringList { u"p"_s });
    place.settle();
}

TEST(Counting, oneThatHasJustEndedIsCountedAgain)
{
    Shelf shelf;
    const auto preset = shelf.preset(u"p"_s, shelf.set({}));
    shelf.context->save();
    Place place(shelf);
    place.scheduler->enqueueCountsOperationForPreset(preset);
    ASSERT_TRUE(Place::isRunning(*place.made[0]));
    place.made[0]->goOn.release();
    KXFilterSetPresetCountsScheduler::countsQueue().waitUntilAllOperationsAreFinished();
    // Its entry still stands, for the main thread has not heard yet.
    ASSERT_EQ(place.scheduler->countOperations().size(), 1);
    place.scheduler->enqueueCountsOperationForPreset(preset);
    ASSERT_EQ(place.made.size(), 2);
    QCoreApplication::processEvents(); // the first one's end must not remove the second one's entry
    EXPECT_EQ(place.scheduler->countOperations().value(preset->objectID()), place.made[1]);
    place.settle();
    EXPECT_EQ(countHere(preset), 0);
}

TEST(Counting, followsExactlyTheChangedFilters)
{
    Shelf shelf;
    shelf.make<Thing>()->setKey(u"Am"_s);
    const auto facet = shelf.facet({ u"Am"_s });
    const auto range = shelf.range({}, {});
    const auto a = shelf.preset(u"a"_s, shelf.set({ facet }));
    const auto b = shelf.preset(u"b"_s, shelf.set({ range }));
    const auto sharesA = shelf.preset(u"a2"_s, a->filterSet());
    const auto loose = shelf.facet({ u"x"_s }); // in no set
    const auto nested = shelf.range({}, {});
    nested->setParent(range);
    shelf.context->save();
    Place place(shelf);
    const auto madeAfter = [&](const std::function<void()> &change) {
        place.settle();
        place.made.clear();
        place.gated = true;
        change();
        shelf.context->processPendingChanges();
        return place.madeFor();
    };
    EXPECT_EQ(madeAfter([&] { facet->values().first()->setEnabled(false); }), (QStringList { u"a"_s, u"a2"_s }));
    EXPECT_EQ(madeAfter([&] { range->setEndValue(KXDecimal::fromInteger(1)); }), QStringList { u"b"_s });
    EXPECT_EQ(
        madeAfter([&] { facet->addToValues(shelf.make<KXFacetFilterValue>()); }), (QStringList { u"a"_s, u"a2"_s }));
    EXPECT_EQ(madeAfter([&] { b->filterSet()->setTitle(u"t"_s); }), QStringList { u"b"_s });
    EXPECT_EQ(madeAfter([&] {
        loose->values().first()->setEnabled(false);
        loose->addToValues(shelf.make<KXFacetFilterValue>());
        nested->setEndValue(KXDecimal::fromInteger(1));
        shelf.make<KXFacetFilterValue>();
        a->setTitle(u"a"_s);
    }),
        QStringList());
    EXPECT_EQ(madeAfter([&] { shelf.preset(u"new"_s, shelf.set({ shelf.range({}, {}) })); }), QStringList { u"new"_s });

    // A deleted preset is counted no more, nor brought back by a number that comes late.
    EXPECT_EQ(madeAfter([&] { sharesA->filterSet()->setTitle(u"u"_s); }).size(), 2);
    a->setFilterSetURI({});
    const auto running = place.made.first();
    shelf.context->removeManagedObject(a);
    shelf.context->removeManagedObject(sharesA);
    shelf.context->save();
    EXPECT_TRUE(running->isCancelled());
    EXPECT_FALSE(place.scheduler->countOperations().contains(a->objectID()));
    place.settle();
}

TEST(Counting, asThePlaceIsConfigured)
{
    Shelf shelf;
    for (const int bpm : { 90, 100, 110 })
        shelf.make<Thing>()->setBpm(bpm);
    const auto preset = shelf.preset(u"p"_s, shelf.set({ shelf.range({}, u"105"_s) }));
    const auto setless = shelf.preset(u"setless"_s);
    shelf.context->save();
    const auto count = [](const KXRef<KXFilterSetPreset> &counted, const QList<KXPredicate> &base,
                           const std::shared_ptr<const KXFilterSetMapper> &mapper, const QString &entity) {
        const auto operation = std::make_shared<KXFilterSetPresetLocalCountsProvider>(counted, u"here"_s, entity);
        operation->setBasePredicates(base);
        operation->setFilterSetMapper(mapper);
        counted->setCount(-1, u"here"_s);
        KXFilterSetPresetCountsScheduler::countsQueue().addOperation(operation);
        KXFilterSetPresetCountsScheduler::countsQueue().waitUntilAllOperationsAreFinished();
        QCoreApplication::processEvents();
        return countHere(counted).value_or(-2);
    };
    const auto mapper = [](Mapper::Mood mood) { return std::make_shared<Mapper>(mood); };
    const KXPredicate fast = KXPredicate::comparison(u"bpm"_s, KXPredicateOperator::GreaterThan, 95);
    const QString things = u"Thing"_s;
    EXPECT_EQ(count(preset, {}, nullptr, things), 2);
    EXPECT_EQ(count(preset, { fast }, nullptr, things), 1);
    EXPECT_EQ(count(preset, { fast }, mapper(Mapper::Willing), things), 1);
    EXPECT_EQ(count(preset, {}, mapper(Mapper::Refusing), things), 0);
    EXPECT_EQ(count(setless, {}, nullptr, things), 0);
    KXTestLog log;
    EXPECT_EQ(count(preset, {}, mapper(Mapper::Throwing), things), 0);
    EXPECT_EQ(count(preset, {}, nullptr, u"Nothing"_s), -1) << "nothing is delivered";
}

TEST(Counting, seesWhatWasSavedAfterItBegan)
{
    Shelf shelf;
    shelf.make<Thing>()->setBpm(100);
    const auto range = shelf.range({}, u"90"_s);
    const auto preset = shelf.preset(u"p"_s, shelf.set({ range }));
    shelf.context->save();
    Place place(shelf);
    range->setEndValue(KXDecimal::fromInteger(110));
    shelf.context->processPendingChanges();
    ASSERT_EQ(place.made.size(), 1);
    ASSERT_TRUE(Place::isRunning(*place.made[0]));
    place.made[0]->goOn.release(); // counts by the filter that the store still has
    KXFilterSetPresetCountsScheduler::countsQueue().waitUntilAllOperationsAreFinished();
    shelf.context->save();
    place.settle();
    EXPECT_EQ(countHere(preset), 1);
}

TEST(Counting, seesWhatIsEditedWhileItWaitsAndSavedAfterItCounted)
{
    Shelf shelf;
    shelf.make<Thing>()->setBpm(100);
    const auto blocker = shelf.preset(u"first"_s, shelf.set({ shelf.range({}, {}) }));
    const auto range = shelf.range({}, u"90"_s);
    const auto preset = shelf.preset(u"p"_s, shelf.set({ range }));
    shelf.context->save();
    Place place(shelf);
    place.scheduler->enqueueCountsOperationForPreset(blocker);
    place.scheduler->enqueueCountsOperationForPreset(preset); // with nothing unsaved; it waits behind the first
    range->setEndValue(KXDecimal::fromInteger(110));
    shelf.context->processPendingChanges();
    ASSERT_EQ(place.made.size(), 2);
    place.made[0]->goOn.release();
    place.made[1]->goOn.release();
    place.settle();
    EXPECT_EQ(countHere(preset), 0) << "the store does not know better yet";
    shelf.context->save();
    place.settle();
    EXPECT_EQ(countHere(preset), 1);

    // What another context saves is no change of this one, but one of its presets all the same.
    const auto other = KXManagedObjectContext::contextWithPersistentStoreCoordinator(shelf.coordinator);
    const auto merging = shelf.coordinator->addChangeObserver([&](const std::shared_ptr<const KXStoreChange> &change) {
        if (change->originatingContext() == other.get())
            shelf.context->mergeChangesFromStoreChange(change);
    });
    KXRangeFilter::cast(other->objectWithID(range->objectID()))->setEndValue(KXDecimal::fromInteger(95));
    const auto copy = KXFilterSetPreset::cast(other->objectWithID(preset->objectID()))->duplicateInContext(*other);
    copy->setTitle(u"copy"_s);
    place.made.clear();
    ASSERT_TRUE(other->save());
    place.settle();
    EXPECT_EQ(place.madeFor(), (QStringList { u"copy"_s, u"p"_s }));
    EXPECT_EQ(countHere(preset), 0);
}

TEST(Counting, whoeverProvidesOperationsMayEndIt)
{
    Shelf shelf;
    (void)shelf.preset(u"a"_s, shelf.set({ shelf.facet({ u"x"_s }) }));
    (void)shelf.preset(u"b"_s, shelf.set({ shelf.facet({ u"x"_s }) }));
    KXFilterSetPresetsManager::setSharedManager(std::make_shared<KXFilterSetPresetsManager>(shelf.context));
    KXFilterSetPresetsManager::sharedManager()->updatePresetCache({}); // no preset at all
    std::unique_ptr<KXFilterSetPresetCountsScheduler> scheduler;
    int asked = 0;
    scheduler = std::make_unique<KXFilterSetPresetCountsScheduler>(u"here"_s,
        KXFilterSetPresetCountsScheduler::Callbacks { [] { return true; },
            [&](const KXRef<KXFilterSetPreset> &) {
                ++asked;
                scheduler.reset();
                return nullptr;
            } });
    scheduler->loadCountsForAllPresets();
    EXPECT_EQ(asked, 1);
    KXFilterSetPresetsManager::setSharedManager(nullptr);
}

TEST(Counting, followsWhatOthersChangeOfFiltersThatAreNotInMemory)
{
    Shelf shelf;
    QUrl filter;
    {
        const auto range = shelf.range(u"1"_s, u"2"_s);
        (void)shelf.preset(u"p"_s, shelf.set({ range }));
        (void)shelf.preset(u"q"_s, shelf.set({ shelf.facet({ u"x"_s }) }));
        ASSERT_TRUE(shelf.context->save());
        filter = range->objectID().URIRepresentation();
    }
    shelf.reopen();
    Place place(shelf);
    place.scheduler->loadCountsForAllPresets();
    place.settle();
    place.made.clear();
    std::shared_ptr<const KXStoreChange> saved;
    const auto token = shelf.coordinator->addChangeObserver([&](const auto &change) { saved = change; });
    const auto other = KXManagedObjectContext::contextWithPersistentStoreCoordinator(shelf.coordinator);
    const auto id = shelf.coordinator->managedObjectIDForURIRepresentation(filter);
    KXRangeFilter::cast(other->objectWithID(id))->setEndValue(KXDecimal::fromInteger(9));
    ASSERT_TRUE(other->save());
    shelf.context->mergeChangesFromStoreChange(saved);
    shelf.context->processPendingChanges();
    EXPECT_EQ(place.madeFor(), QStringList { u"p"_s });
    place.settle();
}
