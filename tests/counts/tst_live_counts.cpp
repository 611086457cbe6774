// Live counts against plain recounting: random predicates, edits, merges and steps of the clock.

#include <atomic>
#include <thread>

#include <QCoreApplication>
#include <QSemaphore>
#include <QSignalSpy>
#include <QThread>
#include <gtest/gtest.h>

#include <kestrixkit/counts/KXLiveCounts.h>
#include <kestrixkit/foundation/KXClock.h>
#include <kestrixkit/foundation/KXMainQueue.h>
#include <kestrixkit/foundation/KXNotificationCenter.h>
#include <kestrixkit/foundation/KXUndoManager.h>
#include <kestrixkit/predicate/KXPredicateCheck_p.h>

#include "Changing.h"
#include "support/KXTestLog.h"

using namespace Qt::StringLiterals;

namespace {

using Context = KXManagedObjectContext;

QString pathPredicate(KXTestRandom &random)
{
    static const QStringList texts {
        u"ANY genres.name == 'House'"_s,
        u"ALL genres.name != 'Techno'"_s,
        u"genres.@count > 1"_s,
        u"NOT ANY genres.name IN {'House', 'a'}"_s,
        u"album.title == 'a1'"_s,
        u"album.artist.name BEGINSWITH 'p'"_s,
        u"album == nil OR bpm > 1"_s,
        u"ANY genres.name == 'House' AND ANY genres.name == 'Techno'"_s,
        u"bpm > year"_s,
        u"album.artist.name == 'p0' AND (loved == TRUE OR plays < 2)"_s,
        u"ANY album.tracks.loved == TRUE"_s,
        u"remix == nil"_s,
        u"price > 1.5 AND price <= 3"_s,
        u"bpm BETWEEN {0, 1.5}"_s,
        u"year IN {1, 2, 5}"_s,
        u"comment CONTAINS[c] 'A'"_s,
        u"loved != TRUE"_s,
    };
    return random.oneOf(texts);
}

} // namespace

/// A library that changes, and counts in it by rules that are kept to count again.
struct LiveCountsWalk
{
    explicit LiveCountsWalk(KXTestRandom &anyRandom)
        : random(anyRandom)
    {
        if (isAside)
            counts.setMostRowsAtOnce(-1);
        for (int i = 0; i < 12; ++i)
            setSome(u"r%1"_s.arg(i));
        rules[u"all"_s] = [] { return KXPredicate::truePredicate(); };
        counts.setRule(u"all"_s, KXPredicate::truePredicate());
        QObject::connect(&counts, &KXLiveCounts::countsDidChange, &counts, [this](const QStringList &names) {
            for (const QString &name : names)
                announced[name] = *counts.count(name);
        });
    }
    void setSome(const QString &name)
    {
        const int kind = random.below(4);
        KXPredicate fixed;
        if (kind == 0) {
            const KXEntityDescription &track = *world.library.coordinator->model()->entity(u"Track"_s);
            do { // of what can be compared
                fixed = world.predicates.predicate(3);
            } while (!KXPredicateCheck::misfit(fixed, track).isEmpty());
        } else if (kind == 1) {
            fixed = KXPredicate::predicateWithText(pathPredicate(random));
        } else if (kind == 2) {
            const double from = random.between(-2, 4) * 0.5;
            fixed = KXPredicate::predicateWithFormat(
                "bpm >= %@ AND bpm < %@ AND loved == %@", from, from + random.below(4) * 0.5, random.chance(0.5));
        } else if (random.chance(0.3)) {
            rules[name] = [] {
                return KXPredicate::predicateWithFormat(
                    "added >= %@", KXClock::today().startOfDay(KXClock::timeZone()));
            };
        } else {
            rules[name] = [days = random.between(1, 9)] {
                const QDateTime now = KXClock::now().toTimeZone(KXClock::timeZone());
                return KXPredicate::predicateWithFormat("added >= %@ AND added <= %@", now.addDays(-days), now);
            };
        }
        if (kind < 3)
            rules[name] = [fixed] { return fixed; };
        kind < 3 ? counts.setRule(name, fixed) : counts.setRule(name, rules[name]);
    }
    void step()
    {
        const int kind = random.below(20);
        if (kind < 1) {
            setSome(u"r%1"_s.arg(random.below(12)));
        } else if (kind < 3) {
            KXClock::advance(random.chance(0.3) ? random.between(0, 100) : random.between(0, 20000));
            counts.advance();
        } else {
            world.step();
        }
    }
    /// Another thread may have the rows, and have missed what happened since.
    void comeToRest()
    {
        while (counts.isCounting())
            QCoreApplication::processEvents();
    }
    void expectARecount()
    {
        const QDateTime boundary = counts.nextBoundary();
        for (const QString &name : counts.identifiers()) {
            // Now, and until something is due.
            for (const QDateTime &moment : { counts.asOf(), boundary.addMSecs(-1) }) {
                if (!moment.isValid() || moment < counts.asOf())
                    continue;
                const KXClockMoment at(moment);
                const KXPredicate predicate = KXPredicate::andPredicate({ base, rules[name]() });
                ASSERT_EQ(counts.count(name), Track::countOfUsingPredicate(predicate, *world.library.context))
                    << predicate.predicateFormat().toStdString() << " at "
                    << moment.toString(Qt::ISODateWithMs).toStdString();
            }
            ASSERT_EQ(announced.value(name, -1), *counts.count(name)) << name.toStdString();
        }
    }

    KXTestRandom &random;
    const bool isAside = random.chance(0.3);
    Changing world { random };
    const KXPredicate base
        = random.chance(0.3) ? KXPredicate::predicateWithFormat("plays >= 0") : KXPredicate::truePredicate();
    KXLiveCounts counts { world.library.context, u"Track"_s, { base } };
    QHash<QString, KXLiveCounts::Rule> rules {};
    QHash<QString, qint64> announced {};
};

TEST(LiveCounts, equalARecountAfterEveryChange)
{
    KXTestRandom random;
    const KXClockPin pin(QDateTime(QDate(2024, 3, 30), QTime(22, 0), Qt::UTC));
    KXClock::setTimeZone(QTimeZone("Europe/Berlin")); // the clock goes forward in the night
    for (int walk = 0; walk < std::max(1, KXTestRandom::scaled(1000)); ++walk) {
        LiveCountsWalk at(random);
        for (int step = 0; step < 100; ++step) {
            SCOPED_TRACE("step " + std::to_string(step));
            at.step();
            if (at.isAside && random.chance(0.5))
                continue; // whatever is counted meanwhile
            if (at.isAside && random.chance(0.7))
                at.comeToRest();
            else
                ASSERT_TRUE(at.counts.update());
            at.expectARecount();
            ASSERT_FALSE(HasFatalFailure());
        }
    }
}

/// Between a save and its merge anybody may count for the first time: the badge of a first import.
TEST(LiveCounts, whatIsReadBeforeItsMergeComesIsCountedOnce)
{
    LibraryTest library;
    std::shared_ptr<const KXStoreChange> saved;
    const auto token = library.coordinator->addChangeObserver([&](const auto &change) { saved = change; });
    const auto other = library.otherContext();
    for (const double bpm : { 1.0, 2.0, 3.0 }) {
        const auto track = Track::createInContext(*other);
        track->setTitle(u"a"_s);
        track->setBpm(bpm);
    }
    KXLiveCounts counts(library.context, u"Track"_s);
    counts.setRule(u"all"_s, KXPredicate::truePredicate());
    counts.setRule(u"fast"_s, KXPredicate::predicateWithFormat("bpm > 1"));
    ASSERT_TRUE(other->save());
    for (const char *when : { "before", "after", "again" }) {
        EXPECT_TRUE(counts.update());
        EXPECT_EQ(counts.count(u"all"_s), 3) << when;
        EXPECT_EQ(counts.count(u"fast"_s), 2) << when;
        library.context->mergeChangesFromStoreChange(saved);
    }
    other->removeManagedObject(Track::findFirstUsingPredicate(KXPredicate::predicateWithFormat("bpm > 2"), *other));
    ASSERT_TRUE(other->save());
    library.context->mergeChangesFromStoreChange(saved);
    EXPECT_EQ(counts.count(u"all"_s), 2);
    EXPECT_EQ(counts.count(u"fast"_s), 1);
}

/// So many rows are read from both ends at once, while another thread saves: what the two find fits together, and
/// equals what the store counts.
TEST(LiveCounts, twoReadersFindWhatOneWould)
{
    constexpr int many = 60'000;
    LibraryTest library;
    KXTestRandom random;
    {
        const auto filling = library.otherContext();
        const auto album = Album::createInContext(*filling);
        album->setTitle(u"a1"_s);
        for (int i = 0; i < many; ++i) {
            const auto track = Track::createInContext(*filling);
            track->setTitle(u"t%1"_s.arg(random.below(i < many / 2 ? 3 : 2000))); // the second half knows other texts
            track->setComment(random.chance(0.3) ? std::nullopt : std::optional(track->title()));
            track->setBpm(random.below(8) * 0.5);
            track->setYear(random.between(-3, 3));
            track->setPrice(random.chance(0.3) ? std::nullopt : KXDecimal::fromString(u"%1.50"_s.arg(random.below(4))));
            track->setAlbum(random.chance(0.3) ? album : KXRef<Album>());
        }
        ASSERT_TRUE(filling->save());
        const auto gone = Track::findUsingPredicate(KXPredicate::predicateWithFormat("title == 't1'"), *filling);
        QList<KXRef<KXManagedObject>> all;
        for (const auto &track : gone)
            all.append(track);
        filling->deleteObjects(all);
        ASSERT_TRUE(filling->save());
    }
    const auto merging = library.coordinator->addChangeObserver([&](const auto &change) {
        KXMainQueue::async([&library, change] { library.context->mergeChangesFromStoreChange(change); });
    });
    std::atomic<bool> isDone = false;
    std::thread saving([&] {
        const auto other = library.otherContext();
        while (!isDone) {
            const auto track = Track::createInContext(*other);
            track->setTitle(u"t2"_s);
            track->setBpm(1);
            EXPECT_TRUE(other->save());
        }
    });
    const QStringList rules { u"title == 't2'"_s, u"comment != nil"_s, u"bpm > 1"_s, u"year < 0"_s, u"price == 1.5"_s,
        u"album.title == 'a1'"_s, u"bpm < 1 OR year == 2"_s, u"title BEGINSWITH 't19'"_s };
    KXLiveCounts counts(library.context, u"Track"_s);
    counts.setMostRowsAtOnce(0);
    for (qsizetype i = 0; i < rules.size(); ++i) {
        counts.setRule(rules[i], KXPredicate::predicateWithText(rules[i])); // some columns come to rows that are there
        if (i % 3 == 2) {
            counts.updateSoon();
            while (counts.isCounting())
                QCoreApplication::processEvents();
        }
    }
    isDone = true;
    saving.join();
    while (counts.isCounting())
        QCoreApplication::processEvents();
    QCoreApplication::processEvents();
    for (const QString &rule : rules)
        EXPECT_EQ(
            counts.count(rule), Track::countOfUsingPredicate(KXPredicate::predicateWithText(rule), *library.context))
            << rule.toStdString();
}

/// Counts that another thread makes, of three tracks.
struct AsideTest : testing::Test
{
    AsideTest()
    {
        for (const double bpm : { 1.0, 2.0, 3.0 })
            addTrack(bpm);
        EXPECT_TRUE(library.context->save());
        counts->setMostRowsAtOnce(0);
        counts->setRule(u"fast"_s, KXPredicate::predicateWithFormat("bpm > 1"));
        counts->setRule(u"all"_s, KXPredicate::truePredicate());
    }
    void addTrack(double bpm)
    {
        const auto track = Track::createInContext(*library.context);
        track->setTitle(u"a"_s);
        track->setBpm(bpm);
    }
    void comeToRest()
    {
        while (counts && counts->isCounting())
            QCoreApplication::processEvents();
    }

    LibraryTest library;
    std::unique_ptr<KXLiveCounts> counts = std::make_unique<KXLiveCounts>(library.context, u"Track"_s);
};

TEST_F(AsideTest, countsStayUntilTheNewOnesAreThere)
{
    counts->updateSoon();
    EXPECT_TRUE(counts->isCounting());
    EXPECT_FALSE(counts->count(u"all"_s)) << "nobody can know yet";
    comeToRest();
    EXPECT_EQ(counts->count(u"fast"_s), 2);
    QSet<QString> told;
    QObject::connect(counts.get(), &KXLiveCounts::countsDidChange,
        [&](const QStringList &names) { told.unite(QSet<QString>(names.begin(), names.end())); });

    counts->setRule(u"slow"_s, KXPredicate::predicateWithFormat("bpm < 3"));
    counts->setRule(u"fast"_s, KXPredicate::predicateWithFormat("bpm > 2"));
    counts->updateSoon();
    ASSERT_TRUE(counts->isCounting());
    counts->removeRule(u"all"_s);
    counts->removeRule(u"slow"_s);
    counts->setRule(u"slow"_s, KXPredicate::predicateWithFormat("bpm < 2"));
    addTrack(0.5);
    library.context->processPendingChanges();
    EXPECT_EQ(counts->count(u"fast"_s), 2) << "as it was";
    EXPECT_FALSE(counts->count(u"all"_s));
    EXPECT_EQ(counts->identifiers().size(), 2);
    comeToRest();
    EXPECT_EQ(counts->count(u"fast"_s), 1);
    EXPECT_EQ(counts->count(u"slow"_s), 2);
    EXPECT_EQ(told, QSet<QString>({ u"fast"_s, u"slow"_s }));

    counts->setRule(u"all"_s, KXPredicate::truePredicate());
    counts->updateSoon();
    ASSERT_TRUE(counts->isCounting());
    EXPECT_TRUE(counts->update());
    EXPECT_EQ(counts->count(u"all"_s), 4) << "who cannot wait need not";
}

/// What was read is older than that, and the context has nothing unsaved any more when it is looked at.
TEST_F(AsideTest, whatIsSavedWhileRowsAreReadIsCounted)
{
    const auto with = [this](double bpm) {
        return Track::findFirstUsingPredicate(KXPredicate::predicateWithFormat("bpm == %@", bpm), *library.context);
    };
    ASSERT_TRUE(counts->update());
    with(1)->setYear(5);
    addTrack(7);
    with(7)->setYear(5);
    library.context->processPendingChanges();
    comeToRest();
    EXPECT_EQ(counts->count(u"all"_s), 4);
    counts->setRule(u"year"_s, KXPredicate::predicateWithFormat("year == 5")); // of a column that is to be read
    counts->updateSoon();
    ASSERT_TRUE(counts->isCounting());
    QThread::msleep(50);
    ASSERT_TRUE(library.context->save());
    comeToRest();
    EXPECT_EQ(counts->count(u"year"_s), 2);
}

/// Very many rules share turns of the loop with whatever else is to be done.
TEST_F(AsideTest, manyRulesAreAskedInSeveralTurns)
{
    constexpr int many = 120;
    ASSERT_TRUE(counts->update());
    int asked = 0;
    for (int i = 0; i < many; ++i) {
        counts->setRule(QString::number(i), [&asked, i] {
            ++asked;
            QThread::msleep(1);
            return KXPredicate::predicateWithFormat("bpm > %@", i % 5);
        });
    }
    EXPECT_EQ(asked, 0) << "who sets rules does not wait for them";
    EXPECT_EQ(counts->predicate(u"4"_s).predicateFormat(), u"bpm > 4"_s);
    EXPECT_EQ(asked, 1);
    counts->updateSoon();
    EXPECT_GT(asked, 1);
    EXPECT_LT(asked, many);
    EXPECT_TRUE(counts->isCounting());
    addTrack(9); // is counted by the rules that are there; the others will see it
    library.context->processPendingChanges();
    counts->removeRule(QString::number(many - 1));
    comeToRest();
    EXPECT_EQ(counts->count(u"all"_s), 4);
    for (int i = 0; i < many - 1; ++i)
        EXPECT_EQ(counts->count(QString::number(i)), i % 5 < 4 ? 4 - i % 5 : 1) << i;
    int before = asked;
    for (const QString &name : { u"0"_s, u"0"_s, u"1"_s })
        counts->ruleDidChange(name);
    EXPECT_TRUE(counts->update());
    EXPECT_EQ(asked, before + 2) << "each one time";
    before = asked;
    for (int i = 0; i < many / 2; ++i)
        counts->ruleDidChange(QString::number(i));
    counts->updateSoon();
    EXPECT_EQ(asked, before + many / 2) << "not so many are asked at once";
}

TEST_F(AsideTest, itMayEndMeanwhileAndWhenItIsTold)
{
    counts->updateSoon();
    ASSERT_TRUE(counts->isCounting());
    counts = std::make_unique<KXLiveCounts>(library.context, u"Track"_s);
    counts->setMostRowsAtOnce(0);
    counts->setRule(u"all"_s, KXPredicate::truePredicate());
    QObject::connect(counts.get(), &KXLiveCounts::countsDidChange, [this] { counts.reset(); });
    comeToRest();
    EXPECT_FALSE(counts);
}

TEST(LiveCounts, aRuleThatBecomesOneThatIsRefusedHasNoCount)
{
    LibraryTest library;
    for (int i = 0; i < 10; ++i)
        Track::createInContext(*library.context)->setBpm(120 + i);
    KXLiveCounts counts(library.context, u"Track"_s);
    const KXTestLog log;
    for (const char *before : { "bpm > 121", "bpm > 127" }) { // more than a quarter is counted anew, fewer are not
        counts.setRule(u"r"_s, KXPredicate::predicateWithFormat(before));
        EXPECT_TRUE(counts.update());
        EXPECT_TRUE(counts.count(u"r"_s));
        counts.setRule(u"r"_s, KXPredicate::predicateWithFormat("bpm == 'x'"));
        EXPECT_TRUE(counts.update());
        EXPECT_FALSE(counts.count(u"r"_s)) << before;
        EXPECT_TRUE(counts.unsupported().contains(u"r"_s)) << before;
    }
}

TEST(LiveCounts, whoGaveATagIsToldByItFirst)
{
    LibraryTest library;
    const auto track = Track::createInContext(*library.context);
    track->setBpm(120);
    KXLiveCounts counts(library.context, u"Track"_s);
    counts.setRule(u"fast"_s, KXPredicate::predicateWithFormat("bpm > 100"));
    counts.setRule(u"slow"_s, KXPredicate::predicateWithFormat("bpm <= 100"));
    counts.setTag(u"fast"_s, 7);
    counts.setTag(u"nobody"_s, 8);
    QList<KXTaggedCount> told;
    QObject::connect(
        &counts, &KXLiveCounts::taggedCountsDidChange, &counts, [&](const QList<KXTaggedCount> &now) { told = now; });
    EXPECT_TRUE(counts.update());
    ASSERT_EQ(told.size(), 1);
    EXPECT_EQ(told[0].tag, 7);
    EXPECT_EQ(told[0].count, 1);
    QStringList named;
    QObject::connect(&counts, &KXLiveCounts::countsDidChange, &counts, [&](const QStringList &identifiers) {
        EXPECT_EQ(told[0].count, counts.count(u"fast"_s));
        named = identifiers;
        named.sort();
    });
    track->setBpm(90);
    library.context->processPendingChanges();
    EXPECT_EQ(named, QStringList({ u"fast"_s, u"slow"_s }));
    counts.setRule(u"fast"_s, KXPredicate::predicateWithFormat("bpm == 'x'")); // the tag stays
    const KXTestLog log;
    EXPECT_TRUE(counts.update());
    EXPECT_EQ(told[0].count, std::nullopt);
}

/// A context of another thread: nobody else looks at what belongs to that.
TEST(LiveCounts, rulesAreAskedOnTheThreadOfTheirContext)
{
    LibraryTest library;
    std::atomic<bool> isMainAsked = false;
    QSemaphore isSet, isSeen;
    std::thread worker([&] {
        const auto context = library.otherContext();
        KXLiveCounts counts(context, u"Track"_s);
        counts.setRule(u"r"_s, [&] {
            isMainAsked = isMainAsked || KXMainQueue::isMainThread();
            return KXPredicate::truePredicate();
        });
        isSet.release();
        isSeen.acquire();
    });
    isSet.acquire();
    for (int i = 0; i < 5; ++i)
        QCoreApplication::processEvents();
    EXPECT_FALSE(isMainAsked);
    isSeen.release();
    worker.join();
}

TEST(LiveCounts, siblingsThatShareANameAreCountedEachByItsOwn)
{
    using Property = KXPropertyDescription;
    const auto code = Property::attribute(u"code"_s, KXAttributeType::Integer32);
    const auto model = KXManagedObjectModel::make(
        { KXEntityDescription(u"Item"_s).add(Property::attribute(u"n"_s, KXAttributeType::Integer32)),
            KXEntityDescription(u"Clip"_s, u"Item"_s).add(code), KXEntityDescription(u"Song"_s, u"Item"_s).add(code) });
    const QTemporaryDir folder;
    const auto context = Context::contextWithPersistentStoreCoordinator(
        KXPersistentStoreCoordinator::persistentStoreCoordinatorWithStoreURL(
            QUrl::fromLocalFile(folder.filePath(u"items"_s)), model));
    const auto make = [&](const QString &entity, int number) {
        const auto object = context->managedObjectForEntity(entity);
        EXPECT_TRUE(object->setValueForKey(u"code"_s, number));
        return object;
    };
    for (const int number : { 1, 1, 2 })
        make(u"Clip"_s, number);
    const auto song = make(u"Song"_s, 1);
    ASSERT_TRUE(context->save());
    KXLiveCounts counts(context, u"Item"_s);
    const KXPredicate ones = KXPredicate::predicateWithFormat("code == 1");
    counts.setRule(u"ones"_s, ones);
    EXPECT_EQ(context->countForEntity(u"Item"_s, ones), 3);
    EXPECT_TRUE(counts.update());
    EXPECT_EQ(counts.count(u"ones"_s), 3);
    EXPECT_TRUE(song->setValueForKey(u"code"_s, 2));
    context->processPendingChanges();
    EXPECT_TRUE(counts.update());
    EXPECT_EQ(counts.count(u"ones"_s), 2);
}
