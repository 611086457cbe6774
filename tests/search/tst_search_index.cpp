// The index against a scan by hand: random libraries, edits, merges, undo, restarts and kills.

#include <QCoreApplication>
#include <QSignalSpy>
#include <QTest>
#include <QThread>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <kestrixkit/foundation/KXException.h>
#include <kestrixkit/foundation/KXNotificationCenter.h>

#include "search/SearchedLibrary.h"
#include "support/ChildProcess.h"
#include "support/KXTestPrint.h"

using namespace Qt::StringLiterals;

namespace {

constexpr qsizetype searchLimit = 7;

/// A library with an index, both of which come and go.
class Walk
{
public:
    explicit Walk(KXTestRandom &randomNumbers)
        : random(randomNumbers)
        , world(randomNumbers)
    {
        world.fill(*library.context, random.below(40));
        EXPECT_TRUE(library.context->save());
        begin();
    }

    void begin()
    {
        library.context->setUndoManager(std::make_shared<KXUndoManager>());
        other = library.otherContext();
        index = std::make_unique<KXSearchIndex>(
            library.context, SearchedLibrary::groups(), random.chance(0.8) ? u"main"_s : QString());
        EXPECT_TRUE(index->open());
    }

    void step();
    void compare()
    {
        const QString term = world.term();
        library.context->processPendingChanges();
        const auto found = index->results(term, searchLimit);
        ASSERT_TRUE(found.isCurrent);
        ASSERT_EQ(SearchedLibrary::lines(found).join(u'\n'),
            SearchedLibrary::lines(SearchedLibrary::scan(*library.context, term, searchLimit)).join(u'\n'))
            << "term " << term.toStdString() << " after " << world.log;
    }

    KXTestRandom &random;
    SearchedLibrary world;
    LibraryTest library;
    KXManagedObjectContext::Ref other;
    std::unique_ptr<KXSearchIndex> index;
};

void Walk::step()
{
    KXManagedObjectContext &context = *library.context;
    const int kind = random.below(40);
    world.log += "| " + std::to_string(kind) + ' ';
    if (kind < 18) {
        for (int edits = random.below(4); edits >= 0; --edits)
            other = world.edit(context, true) ? library.otherContext() : other;
    } else if (kind < 24) {
        for (int edits = random.below(4); edits >= 0; --edits)
            world.edit(*other, false);
        const auto token = KXNotificationCenter::defaultCenter().addObserver(
            QString(KXManagedObjectContextDidSaveNotification), other.get(), [&](const KXNotification &saved) {
                context.mergeChangesFromStoreChange(*saved.payloadAs<std::shared_ptr<const KXStoreChange>>());
            });
        // Tags refuse to go while they have tracks, which a rollback settles.
        if (!other->save(nullptr))
            other->rollback();
    } else if (kind < 30) {
        KXError error;
        if (!context.save(&error))
            context.rollback();
        other = library.otherContext();
    } else if (kind < 33) {
        context.undoManager()->undo();
    } else if (kind < 35) {
        context.undoManager()->redo();
    } else if (kind < 36) {
        context.rollback();
    } else if (kind < 37) {
        index->fold();
        if (random.chance(0.5)) {
            QSignalSpy folded(index.get(), &KXSearchIndex::didFold);
            ASSERT_TRUE(folded.wait());
        }
    } else if (kind < 38) {
        index->keep();
    } else if (kind < 39 || random.chance(0.5)) {
        // What is unsaved goes; the file is mapped, or the store read.
        other.reset();
        index.reset();
        library.reopen();
        begin();
    } else {
        index.reset();
        begin();
    }
}

}

TEST(SearchIndex, equalsAScanByHandAfterEveryChange)
{
    KXTestRandom random;
    constexpr int stepsOfWalk = 100;
    for (int walk = 0; walk < std::max(1, KXTestRandom::scaled(100'000) / stepsOfWalk); ++walk) {
        Walk world(random);
        for (int step = 0; step < stepsOfWalk; ++step) {
            SCOPED_TRACE("walk " + std::to_string(walk) + " step " + std::to_string(step));
            world.step();
            world.compare();
            if (testing::Test::HasFatalFailure())
                return;
        }
    }
}

TEST(SearchIndex, aTermAsAConditionFitsByTheBeginningsOfWords)
{
    KXTestRandom random;
    SearchedLibrary world(random);
    LibraryTest library;
    world.fill(*library.context, 60);
    for (int edits = 60; edits > 0; --edits)
        world.edit(*library.context, true);
    ASSERT_TRUE(library.context->save());
    EXPECT_TRUE(SearchedLibrary::groups()[0].predicate(u" - "_s).isNull());
    for (int round = 0; round < 300; ++round) {
        const QString term = world.term();
        const auto scan = SearchedLibrary::scan(*library.context, term, 1000, false);
        for (int i = 0; i < scan.groups.size(); ++i) {
            const KXSearchGroup group = SearchedLibrary::groups()[i];
            const KXPredicate predicate = group.predicate(term);
            if (predicate.isNull())
                continue;
            const auto found
                = library.context->fetch(KXFetchRequest(group.entityName, predicate).setSortDescriptors(group.rank));
            QList<KXManagedObjectID> ids;
            for (const auto &object : found) {
                ids.append(object->objectID());
                EXPECT_TRUE(predicate.evaluateWithObject(object.get()));
            }
            ASSERT_EQ(ids, scan.groups[i].first) << group.name.toStdString() << ": " << term.toStdString();
            EXPECT_EQ(KXPredicate::predicateWithText(predicate.predicateFormat()), predicate);
        }
    }
}

// Not a test: what the next one runs and kills.
TEST(SearchIndexChild, DISABLED_changesUntilItIsKilled)
{
    KXTestRandom random;
    KXError error;
    const auto coordinator = KXPersistentStoreCoordinator::persistentStoreCoordinatorWithStoreURL(
        QUrl::fromLocalFile(qEnvironmentVariable("KX_TEST_STORE")), Library::model(), &error);
    ASSERT_TRUE(coordinator);
    const auto context = KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator);
    SearchedLibrary world(random);
    if (context->countForEntity(u"Track"_s) == 0)
        world.fill(*context, 20);
    ASSERT_TRUE(context->save());
    KXSearchIndex index(context, SearchedLibrary::groups(), u"main"_s);
    ASSERT_TRUE(index.open());
    std::cout << "open" << std::endl;
    for (;;) {
        world.edit(*context, true);
        if (random.chance(0.3) && !context->save(nullptr))
            context->rollback();
        if (random.chance(0.3))
            index.keep();
        if (random.chance(0.1))
            index.fold();
        QCoreApplication::processEvents();
    }
}

TEST(SearchIndex, processesAreKilled)
{
    KXTestRandom random;
    LibraryTest library;
    int mapped = 0;
    const int rounds = std::max(5, KXTestRandom::scaled(200));
    for (int round = 0; round < rounds; ++round) {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(u"KX_TEST_STORE"_s, library.path());
        environment.insert(u"KX_TEST_SEED"_s, QString::number(random.between(1, 1'000'000)));
        ChildProcess child("SearchIndexChild.*", environment);
        QByteArray said;
        while (!said.contains("open")) {
            const QByteArray more = child.read();
            ASSERT_FALSE(more.isEmpty()) << said.toStdString();
            said += more;
        }
        QThread::usleep(ulong(random.between(0, 60'000)));
        ASSERT_TRUE(child.kill());
        library.reopen();
        KXSearchIndex index(library.context, SearchedLibrary::groups(), u"main"_s);
        ASSERT_TRUE(index.open());
        mapped += index.figures().isMapped ? 1 : 0;
        SearchedLibrary world(random);
        for (int i = 0; i < 10; ++i) {
            const QString term = world.term();
            ASSERT_EQ(SearchedLibrary::lines(index.results(term, searchLimit)),
                SearchedLibrary::lines(SearchedLibrary::scan(*library.context, term, searchLimit)))
                << term.toStdString();
        }
    }
    std::cout << mapped << " of " << rounds << " mapped\n";
    EXPECT_GT(mapped, 0);
}

TEST(SearchIndex, deliversTheLastTermAlone)
{
    KXTestRandom random;
    LibraryTest library;
    SearchedLibrary(random).fill(*library.context, 200);
    ASSERT_TRUE(library.context->save());
    KXSearchIndex index(library.context, SearchedLibrary::groups());
    QStringList delivered;
    const auto receive = [&](const KXSearchResults &results) { delivered.append(results.term); };
    const auto settle = [&] {
        for (int i = 0; i < 500 && delivered.isEmpty(); ++i)
            QTest::qWait(10);
        QTest::qWait(20);
        return std::exchange(delivered, {});
    };
    // While it is being read for the first time, and afterwards.
    for (int round = 0; round < 2; ++round) {
        for (int i = 0; i < 200; ++i)
            index.search(QString(1 + i % 5, u'l'), 4, receive);
        index.search(u"love"_s, 4, receive);
        EXPECT_EQ(settle(), QStringList { u"love"_s });
    }
    // Neither a stopped one nor one of an index that goes.
    index.search(u"love"_s, 4, receive);
    index.stop();
    QTest::qWait(50);
    {
        KXSearchIndex shortLived(library.context, SearchedLibrary::groups());
        shortLived.search(u"love"_s, 4, receive);
    }
    QTest::qWait(50);
    EXPECT_TRUE(delivered.isEmpty());
    // What has changed since, and whoever searches again when it is told.
    library.track(u"lovesome"_s);
    library.context->processPendingChanges();
    qint64 count = -1;
    index.search(u"lovesome"_s, 4, [&](const KXSearchResults &results) {
        count = results.groups[0].count;
        index.search(u"nothingofthekind"_s, 4, [&](const KXSearchResults &more) { count += more.groups[0].count; });
    });
    QTest::qWait(100);
    EXPECT_EQ(count, 1);
}

TEST(SearchIndex, anotherProcessIsNoticed)
{
    KXTestRandom random;
    LibraryTest library;
    library.track(u"one"_s);
    ASSERT_TRUE(library.context->save());
    KXSearchIndex index(library.context, SearchedLibrary::groups(), u"main"_s);
    ASSERT_TRUE(index.open());
    EXPECT_FALSE(index.update());
    const auto elsewhere = [&](const QString &title) { // a coordinator of its own is as good as a process
        const auto coordinator
            = KXPersistentStoreCoordinator::persistentStoreCoordinatorWithStoreURL(library.url(), Library::model());
        const auto context = KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator);
        Track::createInContext(*context)->setTitle(title);
        ASSERT_TRUE(context->save());
    };
    QSignalSpy folded(&index, &KXSearchIndex::didFold);
    elsewhere(u"two"_s);
    EXPECT_EQ(index.results(u"two"_s, 4).groups[0].count, 0);
    EXPECT_TRUE(index.update());
    ASSERT_TRUE(folded.wait());
    EXPECT_EQ(index.results(u"two"_s, 4).groups[0].count, 1);
    EXPECT_FALSE(index.update());
    // And by the next save here.
    elsewhere(u"three"_s);
    library.track(u"four"_s);
    ASSERT_TRUE(library.context->save());
    ASSERT_TRUE(folded.wait());
    EXPECT_EQ(index.results(u"three"_s, 4).groups[0].count, 1);
    EXPECT_EQ(index.results(u"four"_s, 4).groups[0].count, 1);
}

/// Whoever searched is told that nothing was found out, and may search again.
TEST(SearchIndex, answersWhileItsStoreDoesNot)
{
    LibraryTest library;
    library.track(u"love"_s);
    ASSERT_TRUE(library.context->save());
    KXSearchIndex index(library.context, SearchedLibrary::groups());
    std::optional<KXSearchResults> found;
    const auto search = [&] {
        found.reset();
        index.search(u"love"_s, 4, [&](const KXSearchResults &results) { found = results; });
        for (int i = 0; i < 500 && !found; ++i)
            QTest::qWait(10);
    };
    sqlite3 *file = nullptr;
    ASSERT_EQ(sqlite3_open(library.path().toUtf8().constData(), &file), SQLITE_OK);
    const auto run = [file](const char *sql) { return sqlite3_exec(file, sql, nullptr, nullptr, nullptr); };
    const auto compare = [](void *, int, const void *, int, const void *) { return 0; };
    ASSERT_EQ(sqlite3_create_collation(file, "KX_DECIMAL", SQLITE_UTF8, nullptr, compare), SQLITE_OK);
    ASSERT_EQ(run("ALTER TABLE Person RENAME TO Away"), SQLITE_OK) << sqlite3_errmsg(file);
    search();
    ASSERT_TRUE(found);
    EXPECT_TRUE(found->groups.isEmpty());
    EXPECT_FALSE(found->isCurrent);
    ASSERT_EQ(run("ALTER TABLE Away RENAME TO Person"), SQLITE_OK) << sqlite3_errmsg(file);
    sqlite3_close(file);
    search();
    ASSERT_TRUE(found);
    ASSERT_EQ(found->groups.size(), SearchedLibrary::groups().size());
    EXPECT_EQ(found->groups[0].count, 1);
}

TEST(SearchIndex, manyChangesAreReadWithoutObjects)
{
    KXTestRandom random;
    LibraryTest library;
    SearchedLibrary world(random);
    KXSearchIndex index(library.context, SearchedLibrary::groups());
    ASSERT_TRUE(index.open());
    const auto other = library.otherContext();
    const auto token = KXNotificationCenter::defaultCenter().addObserver(
        QString(KXManagedObjectContextDidSaveNotification), other.get(), [&](const KXNotification &saved) {
            library.context->mergeChangesFromStoreChange(*saved.payloadAs<std::shared_ptr<const KXStoreChange>>());
        });
    world.fill(*other, 3000);
    ASSERT_TRUE(other->save());
    for (const auto &[term, limit] : { std::pair(u"love"_s, 5), std::pair(u"l"_s, 10'000), std::pair(u"8a b"_s, 50) }) {
        EXPECT_EQ(SearchedLibrary::lines(index.results(term, limit)),
            SearchedLibrary::lines(SearchedLibrary::scan(*library.context, term, limit)));
    }
}

TEST(SearchIndex, refusesWhatCannotBeSearched)
{
    LibraryTest library;
    const auto make = [&](const KXSearchGroup &group, const QString &name = {}) {
        KXSearchIndex index(library.context, { group }, name);
    };
    const QList<KXSearchGroup> wrong {
        { u"x"_s, u"Nothing"_s, {}, {} },
        { u"x"_s, u"Track"_s, { u"nothing"_s }, {} },
        { u"x"_s, u"Track"_s, { u"album"_s }, {} },
        { u"x"_s, u"Track"_s, { u"title.name"_s }, {} },
        { u"x"_s, u"Track"_s, { u"cover"_s }, {} },
        { u"x"_s, u"Track"_s, { u"scratch"_s }, {} },
        { u"x"_s, u"Track"_s, {}, { { u"genres.name"_s } } },
        { u"x"_s, u"Track"_s, {}, { { u"extra"_s } } },
    };
    for (const KXSearchGroup &group : wrong)
        EXPECT_THROW(make(group), KXException) << group.texts.join(u' ').toStdString();
    EXPECT_THROW(make(SearchedLibrary::groups()[2], u"../elsewhere"_s), KXException);
}
