// Trees stay trees, and what the framework writes of relationships passes its own check.

#include <gtest/gtest.h>

#include <kestrixkit/foundation/KXUndoManager.h>

#include "context/Meeting.h"
#include "support/KXTestLog.h"
#include "support/KXTestRandom.h"

using namespace Qt::StringLiterals;

namespace folders_test {

using Context = KXManagedObjectContext;
using Change = Meeting::Change;

/// A tree that must stay one: folders with notes.
namespace Notes {

KXManagedObjectModel::Ref model()
{
    using Property = KXPropertyDescription;
    static const auto model = KXManagedObjectModel::make(
        { KXEntityDescription(u"Folder"_s)
                .add(Property::attribute(u"name"_s, KXAttributeType::String))
                .add(Property::toMany(u"children"_s, u"Folder"_s, u"parent"_s).deleteRule(KXDeleteRule::Cascade))
                .add(Property::toOne(u"parent"_s, u"Folder"_s, u"children"_s).acyclic()) });
    return model;
}

QVariant keyed(const KXRef<KXManagedObject> &object) { return KXVariantFromRef(object); }

KXRef<KXManagedObject> parentOf(const KXRef<KXManagedObject> &folder)
{
    return folder->valueForKey(u"parent"_s).value<KXRef<KXManagedObject>>();
}

/// Whether every folder comes to the top, and both ends of all relationships agree.
::testing::AssertionResult isTree(Context &context)
{
    const KXFetchedList all = context.fetchAllForEntity(u"Folder"_s);
    for (const auto &folder : all) {
        qsizetype steps = 0;
        for (auto above = parentOf(folder); above && !above->isDeleted(); above = parentOf(above)) {
            if (++steps > all.size())
                return ::testing::AssertionFailure() << folder->objectID().key() << " is in a circle";
        }
        for (const auto &other : all) {
            if (folder->objectsForKey(u"children"_s).contains(other) != (parentOf(other) == folder))
                return ::testing::AssertionFailure()
                    << folder->objectID().key() << " and its child " << other->objectID().key() << " disagree";
        }
    }
    return ::testing::AssertionSuccess();
}

}

TEST(Folders, aCircleIsRefusedOnEveryWay)
{
    const QTemporaryDir folder;
    const auto coordinator = KXPersistentStoreCoordinator::persistentStoreCoordinatorWithStoreURL(
        QUrl::fromLocalFile(folder.filePath(u"notes"_s)), Notes::model());
    const auto context = Context::contextWithPersistentStoreCoordinator(coordinator);
    const auto make = [&] { return context->managedObjectForEntity(u"Folder"_s); };
    const auto a = make(), b = make(), c = make();
    EXPECT_TRUE(b->setValueForKey(u"parent"_s, Notes::keyed(a)));
    EXPECT_TRUE(c->setValueForKey(u"parent"_s, Notes::keyed(b)));
    ASSERT_TRUE(context->save());
    const KXTestLog log;
    EXPECT_FALSE(a->setValueForKey(u"parent"_s, Notes::keyed(c)));
    EXPECT_FALSE(a->setValueForKey(u"parent"_s, Notes::keyed(a)));
    EXPECT_FALSE(c->setValueForKey(u"children"_s, QVariantList { Notes::keyed(a) }));
    EXPECT_TRUE(log.contains(u"circle"_s));
    EXPECT_FALSE(context->hasChanges());
    EXPECT_TRUE(Notes::isTree(*context));
    const auto model = KXManagedObjectModel::modelWithJSON(Notes::model()->toJSON());
    EXPECT_TRUE(model->entity(u"Folder"_s)->property(u"parent"_s)->isAcyclic()) << "a model file says so, too";
}

TEST(Folders, aDeepTreeIsDeletedWithItsTop)
{
    constexpr int depth = 60'000;
    const QTemporaryDir folder;
    const QUrl url = QUrl::fromLocalFile(folder.filePath(u"notes"_s));
    const auto open
        = [&] { return KXPersistentStoreCoordinator::persistentStoreCoordinatorWithStoreURL(url, Notes::model()); };
    ASSERT_TRUE(open());
    Library::tamper(url.toLocalFile(),
        "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 60000) "
        "INSERT INTO Folder(kx_id, kx_version, parent) SELECT i, 1, nullif(i - 1, 0) FROM n; "
        "UPDATE kx_sequence SET next = 60001");
    const auto coordinator = open();
    const auto context = Context::contextWithPersistentStoreCoordinator(coordinator);
    const auto all = context->fetchAllForEntity(u"Folder"_s);
    ASSERT_EQ(all.size(), depth);
    context->removeManagedObject(all.at(1).get());
    EXPECT_EQ(context->deletedObjects().size(), depth - 1);
    ASSERT_TRUE(context->save());
    EXPECT_EQ(context->countForEntity(u"Folder"_s), 1);
    EXPECT_EQ(problemsOf(url), std::string());
}

TEST(Folders, theLaterOfTwoMovesIntoEachOtherGivesWay)
{
    const QTemporaryDir folder;
    const QUrl url = QUrl::fromLocalFile(folder.filePath(u"notes"_s));
    const auto coordinator = KXPersistentStoreCoordinator::persistentStoreCoordinatorWithStoreURL(url, Notes::model());
    const auto first = Context::contextWithPersistentStoreCoordinator(coordinator);
    const auto second = Context::contextWithPersistentStoreCoordinator(coordinator);
    const auto a = first->managedObjectForEntity(u"Folder"_s), b = first->managedObjectForEntity(u"Folder"_s);
    ASSERT_TRUE(first->save(nullptr));
    const auto there = second->objectWithID(b->objectID());
    EXPECT_TRUE(a->setValueForKey(u"parent"_s, Notes::keyed(b)));
    EXPECT_TRUE(there->setValueForKey(u"parent"_s, Notes::keyed(second->objectWithID(a->objectID()))));
    ASSERT_TRUE(first->save(nullptr));
    const KXTestLog log;
    ASSERT_TRUE(second->save(nullptr));
    EXPECT_TRUE(log.contains(u"another context has moved"_s));
    EXPECT_EQ(problemsOf(url), std::string());
    EXPECT_FALSE(there->valueForKey(u"parent"_s).isValid()) << "it is where it was";
    EXPECT_TRUE(Notes::isTree(*Context::contextWithPersistentStoreCoordinator(coordinator)));
}

/// Observers of a move that a merge takes back are told when all of the save has been merged.
TEST(Folders, whoSeesAMoveTakenBackSeesAllOfTheSave)
{
    const QTemporaryDir folder;
    const auto coordinator = KXPersistentStoreCoordinator::persistentStoreCoordinatorWithStoreURL(
        QUrl::fromLocalFile(folder.filePath(u"notes"_s)), Notes::model());
    const auto first = Context::contextWithPersistentStoreCoordinator(coordinator);
    const auto second = Context::contextWithPersistentStoreCoordinator(coordinator);
    const auto a = first->managedObjectForEntity(u"Folder"_s), b = first->managedObjectForEntity(u"Folder"_s),
               gone = first->managedObjectForEntity(u"Folder"_s);
    ASSERT_TRUE(first->save(nullptr));
    EXPECT_TRUE(a->setValueForKey(u"parent"_s, Notes::keyed(b)));
    first->processPendingChanges();
    std::shared_ptr<const KXStoreChange> change;
    const auto token = coordinator->addChangeObserver([&](const auto &news) { change = news; });
    EXPECT_TRUE(second->objectWithID(b->objectID())
                    ->setValueForKey(u"parent"_s, Notes::keyed(second->objectWithID(a->objectID()))));
    second->removeManagedObject(second->objectWithID(gone->objectID()));
    ASSERT_TRUE(second->save(nullptr));
    int told = 0;
    const auto observer = a->onChangeOf(u"parent"_s, [&](const KXKeyValueChange &) {
        ++told;
        EXPECT_FALSE(gone->managedObjectContext());
    });
    const KXTestLog log;
    first->mergeChangesFromStoreChange(change);
    EXPECT_TRUE(log.contains(u"another context has moved"_s));
    EXPECT_GE(told, 1);
    EXPECT_TRUE(Notes::isTree(*first));
}

/// A move that gave way has left nothing: who has moved the same folder, and not saved it, keeps that as an edit.
TEST(Folders, ofAMoveThatGaveWayOthersHearNothing)
{
    const QTemporaryDir folder;
    const auto coordinator = KXPersistentStoreCoordinator::persistentStoreCoordinatorWithStoreURL(
        QUrl::fromLocalFile(folder.filePath(u"notes"_s)), Notes::model());
    const auto first = Context::contextWithPersistentStoreCoordinator(coordinator);
    const auto second = Context::contextWithPersistentStoreCoordinator(coordinator);
    QList<KXRef<KXManagedObject>> made, there;
    for (int i = 0; i < 4; ++i)
        made.append(first->managedObjectForEntity(u"Folder"_s));
    const auto &[home, moved, below, elsewhere] = std::tie(made[0], made[1], made[2], made[3]);
    ASSERT_TRUE(moved->setValueForKey(u"parent"_s, Notes::keyed(home)));
    ASSERT_TRUE(first->save(nullptr));
    for (const auto &each : made)
        there.append(second->objectWithID(each->objectID()));
    ASSERT_TRUE(there[1]->setValueForKey(u"parent"_s, Notes::keyed(there[2])));
    ASSERT_TRUE(below->setValueForKey(u"parent"_s, Notes::keyed(moved)));
    ASSERT_TRUE(first->save(nullptr));
    const auto third = Context::contextWithPersistentStoreCoordinator(coordinator);
    const auto movedThere = third->objectWithID(moved->objectID());
    ASSERT_TRUE(movedThere->setValueForKey(u"parent"_s, Notes::keyed(third->objectWithID(elsewhere->objectID()))));
    Change change;
    const auto feed = coordinator->addChangeObserver([&](const Change &one) { change = one; });
    ASSERT_TRUE(second->save(nullptr));
    EXPECT_EQ(Notes::parentOf(there[1]), there[0]) << "it is where it was";
    ASSERT_TRUE(change);
    third->mergeChangesFromStoreChange(change);
    EXPECT_TRUE(Notes::isTree(*third));
}

/// A deletion that is merged when its undo is saved already: the folder is there again, somewhere else by now.
TEST(Folders, whatComesBackStaysWhereItIsMovedTo)
{
    const QTemporaryDir folder;
    const auto coordinator = KXPersistentStoreCoordinator::persistentStoreCoordinatorWithStoreURL(
        QUrl::fromLocalFile(folder.filePath(u"notes"_s)), Notes::model());
    const auto first = Context::contextWithPersistentStoreCoordinator(coordinator);
    const auto second = Context::contextWithPersistentStoreCoordinator(coordinator);
    const auto manager = std::make_shared<KXUndoManager>();
    manager->setGroupsByEvent(false);
    QList<KXRef<KXManagedObject>> made, there;
    for (int i = 0; i < 3; ++i)
        made.append(first->managedObjectForEntity(u"Folder"_s));
    ASSERT_TRUE(first->save(nullptr));
    for (const auto &each : made)
        there.append(second->objectWithID(each->objectID()));
    ASSERT_TRUE(there[0]->setValueForKey(u"parent"_s, Notes::keyed(there[2])));

    std::vector<Change> saves;
    const auto feed = coordinator->addChangeObserver([&](const Change &change) { saves.push_back(change); });
    first->setUndoManager(manager);
    {
        const KXUndoGroup group(manager.get(), u"Delete"_s);
        for (const auto &each : made)
            first->removeManagedObject(each);
    }
    ASSERT_TRUE(first->save(nullptr));
    manager->undo();
    ASSERT_TRUE(first->save(nullptr));
    ASSERT_TRUE(made[0]->setValueForKey(u"parent"_s, Notes::keyed(made[1])));
    ASSERT_TRUE(first->save(nullptr));
    ASSERT_EQ(saves.size(), 3u);
    for (const int late : { 1, 0, 2 })
        second->mergeChangesFromStoreChange(saves[size_t(late)]);
    EXPECT_EQ(Notes::parentOf(there[0]), there[2]) << "the unsaved move";
    EXPECT_TRUE(Notes::isTree(*second));
}

/// Two contexts that move folders into each other, undo, save and merge, at random.
struct TwoMovers
{
    explicit TwoMovers(KXTestRandom &anyRandom)
        : random(anyRandom)
    {
        manager->setGroupsByEvent(false);
        if (random.chance(0.5))
            sides[0]->setUndoManager(manager);
        for (int i = 0; i < 6; ++i)
            (void)sides[0]->managedObjectForEntity(u"Folder"_s);
        EXPECT_TRUE(sides[0]->save(nullptr));
    }
    void merge(int side)
    {
        for (const Change &change : std::exchange(pending[side], {}))
            sides[side]->mergeChangesFromStoreChange(change);
    }
    void step(int step)
    {
        const int side = random.below(2);
        const auto any = [&] {
            const auto list = sides[side]->fetchAllForEntity(u"Folder"_s);
            return list.isEmpty() ? KXRef<KXManagedObject>() : list.at(random.below(int(list.size())));
        };
        const int kind = random.below(12);
        if (kind < 6) {
            const KXUndoGroup group(side == 0 ? manager.get() : nullptr, u"Move"_s);
            if (const auto mover = any())
                (void)mover->setValueForKey(u"parent"_s, random.chance(0.2) ? QVariant() : Notes::keyed(any()));
        } else if (kind == 6 && random.chance(0.3)) {
            const KXUndoGroup group(side == 0 ? manager.get() : nullptr, u"Delete"_s);
            sides[side]->removeManagedObject(any());
        } else if (kind == 7) {
            (void)sides[side]->managedObjectForEntity(u"Folder"_s)->setValueForKey(u"parent"_s, Notes::keyed(any()));
        } else if (kind == 8) {
            random.chance(0.7) ? manager->undo() : manager->redo();
        } else if (kind == 9) {
            merge(side);
            EXPECT_TRUE(Notes::isTree(*sides[side])) << "merged at step " << step;
        } else {
            ASSERT_TRUE(sides[side]->save(nullptr));
            EXPECT_EQ(problemsOf(url), std::string()) << "saved at step " << step;
            EXPECT_TRUE(Notes::isTree(*Context::contextWithPersistentStoreCoordinator(coordinator)))
                << "saved at step " << step;
        }
    }

    KXTestRandom &random;
    const QTemporaryDir folder {};
    const QUrl url = QUrl::fromLocalFile(folder.filePath(u"notes"_s));
    const KXPersistentStoreCoordinator::Ref coordinator
        = KXPersistentStoreCoordinator::persistentStoreCoordinatorWithStoreURL(url, Notes::model());
    const Context::Ref sides[2] { Context::contextWithPersistentStoreCoordinator(coordinator),
        Context::contextWithPersistentStoreCoordinator(coordinator) };
    const std::shared_ptr<KXUndoManager> manager = std::make_shared<KXUndoManager>();
    std::vector<Change> pending[2] {};
    const KXPersistentStoreCoordinator::ChangeToken feed = coordinator->addChangeObserver([this](const Change &change) {
        for (int side = 0; side < 2; ++side) {
            if (sides[side].get() != change->originatingContext())
                pending[side].push_back(change);
        }
    });
};

TEST(Folders, ofMovesThatMakeACircleTogetherOneGivesWay)
{
    KXTestRandom random;
    for (int round = KXTestRandom::scaled(100); round > 0 && !testing::Test::HasFailure(); --round) {
        TwoMovers two(random);
        for (int step = 0; step < 60 && !testing::Test::HasFailure(); ++step)
            two.step(step);
        if (testing::Test::HasFailure())
            return;
        for (int turn = 0; turn < 2; ++turn) { // with what the first saves the second
            for (const int side : { 0, 1 }) {
                two.merge(side);
                ASSERT_TRUE(two.sides[side]->save(nullptr));
            }
        }
        two.merge(0);
        EXPECT_EQ(problemsOf(two.url), std::string());
        for (const auto &side : two.sides) {
            EXPECT_TRUE(Notes::isTree(*side));
            EXPECT_EQ(
                Library::dump(*side), Library::dump(*Context::contextWithPersistentStoreCoordinator(two.coordinator)));
        }
    }
}

/// One of nine edits, 0 to 8, of any object that the context has.
static void editAnything(const Context::Ref &by, int kind, KXTestRandom &random)
{
    const auto any = [&](const QString &entity) {
        const auto list = by->fetchAllForEntity(entity);
        return list.isEmpty() ? KXRef<KXManagedObject>() : list.at(random.below(int(list.size())));
    };
    const auto track = Track::cast(any(u"Track"_s));
    if (kind == 0 || !track)
        Track::createInContext(*by)->setTitle(u"new"_s);
    else if (kind == 1)
        track->setAlbum(Album::cast(any(u"Album"_s)));
    else if (kind < 4)
        track->setRemix(random.chance(0.8) ? Track::cast(any(u"Track"_s)) : KXRef<Track>());
    else if (kind == 4)
        track->addToNeighbours(any(u"Track"_s));
    else if (kind == 5)
        track->addToGenres(any(u"Genre"_s));
    else if (kind == 6)
        by->removeManagedObject(any(random.chance(0.5) ? u"Track"_s : u"Album"_s));
    else if (kind == 7)
        track->setTitle(QString::number(random.below(100)));
    else
        Album::createInContext(*by)->setTitle(u"new"_s);
}

/// Somebody else led the track there as well, long ago, and away again, which the edit has seen.
TEST(Relationships, anEditOutlivesOldNewsOfTheSame)
{
    Meeting meeting;
    const auto track = meeting.track(u"a"_s);
    const auto album = Album::createInContext(*meeting.context);
    album->setTitle(u"b"_s);
    ASSERT_TRUE(meeting.context->save());
    for (const auto &to : { album, KXRef<Album>() }) {
        track->setAlbum(to);
        ASSERT_TRUE(meeting.context->save());
    }
    const auto edited = in(meeting.other, track);
    edited->setAlbum(in(meeting.other, album));
    meeting.mergeInto(meeting.other, { 0, 1, 2 });
    EXPECT_EQ(edited->album(), in(meeting.other, album));
    EXPECT_TRUE(in(meeting.other, album)->objectsForKey(u"tracks"_s).contains(edited));
    ASSERT_TRUE(meeting.other->save());
    meeting.mergeInto(meeting.context, { 3 });
    EXPECT_EQ(Library::dump(*meeting.other), Library::dump(*meeting.context));
}

/// Two contexts lead a track away from its album, each to another one, and one of them gives up.
TEST(Relationships, anEditThatIsGivenUpLeavesWhatSomebodyElseDid)
{
    Meeting meeting;
    const auto track = meeting.track(u"a"_s);
    QList<KXRef<Album>> albums;
    for (int i = 0; i < 3; ++i) {
        albums.append(Album::createInContext(*meeting.context));
        albums.last()->setTitle(QString::number(i));
    }
    track->setAlbum(albums[0]);
    ASSERT_TRUE(meeting.context->save());
    EXPECT_EQ(albums[0]->objectsForKey(u"tracks"_s).size(), 1);
    track->setAlbum(albums[1]);
    in(meeting.other, track)->setAlbum(in(meeting.other, albums[2]));
    ASSERT_TRUE(meeting.other->save());
    meeting.mergeInto(meeting.context, { 1 });
    EXPECT_EQ(albums[0]->objectsForKey(u"tracks"_s).size(), 0);
    EXPECT_EQ(albums[1]->objectsForKey(u"tracks"_s).size(), 1);
    meeting.context->rollback();
    EXPECT_EQ(Library::dump(*meeting.context), Library::dump(*meeting.other));
}

/// A save takes a partner from an object that it has in its hands for another edit.
TEST(Relationships, othersAreToldOfAPartnerThatASaveTakes)
{
    Meeting meeting;
    const auto track = meeting.track(u"a"_s);
    ASSERT_TRUE(meeting.context->save());
    const auto remix = Track::createInContext(*meeting.other);
    remix->setTitle(u"b"_s);
    in(meeting.other, track)->setRemix(remix);
    ASSERT_TRUE(meeting.other->save());
    const auto edited = in(meeting.context, remix);
    edited->setTitle(u"c"_s);
    edited->setTitle(u"b"_s); // of which nothing is written
    track->setRemix(track);
    meeting.mergeInto(meeting.context, { 1 });
    ASSERT_TRUE(meeting.context->save());
    meeting.mergeInto(meeting.other, { 2 });
    EXPECT_EQ(Library::dump(*meeting.other), Library::dump(*meeting.otherContext()));
}

/// One end was read before somebody else's save, which is not merged yet, and the other end after it.
TEST(Relationships, linksWhoseEndsWereReadAtDifferentTimesAreChangedAtBoth)
{
    for (const bool adds : { false, true }) {
        Meeting meeting;
        const auto a = meeting.track(u"a"_s), b = meeting.track(u"b"_s);
        if (adds)
            a->addToNeighbours(b);
        ASSERT_TRUE(meeting.context->save());
        const auto ours = meeting.otherContext();
        ASSERT_EQ(in(ours, a)->neighbours().size(), adds);
        if (adds)
            in(meeting.other, a)->removeFromNeighbours(in(meeting.other, b));
        else
            in(meeting.other, a)->addToNeighbours(in(meeting.other, b));
        ASSERT_TRUE(meeting.other->save());
        ASSERT_EQ(in(ours, b)->neighbours().size(), !adds);
        if (adds)
            in(ours, b)->addToNeighbours(in(ours, a));
        else
            in(ours, b)->removeFromNeighbours(in(ours, a));
        ASSERT_TRUE(ours->save());
        EXPECT_EQ(problemsOf(meeting.url()), std::string());
        meeting.mergeInto(ours, { 1 });
        meeting.mergeInto(meeting.other, { 2 });
        meeting.mergeInto(meeting.context, { 1, 2 });
        meeting.expectSound(adds ? "added" : "removed");
        EXPECT_EQ(a->neighbours().size(), adds);
        for (const auto &each : { ours, meeting.other })
            EXPECT_EQ(Library::dump(*each), Library::dump(*meeting.context));
    }
}

/// Two deletions that are taken back, between which somebody else has linked the two.
TEST(Relationships, aLinkThatCameBetweenTwoDeletionsOutlivesTheirUndo)
{
    Meeting meeting;
    const auto a = meeting.track(u"a"_s), b = meeting.track(u"b"_s);
    ASSERT_TRUE(meeting.context->save());
    const auto manager = std::make_shared<KXUndoManager>();
    manager->setGroupsByEvent(false);
    meeting.context->setUndoManager(manager);
    const auto remove = [&](const KXRef<Track> &track) {
        const KXUndoGroup group(manager.get(), u"Delete"_s);
        meeting.context->removeManagedObject(track);
    };
    remove(a);
    in(meeting.other, a)->addToNeighbours(in(meeting.other, b));
    ASSERT_TRUE(meeting.other->save());
    remove(b);
    manager->undo();
    manager->undo();
    meeting.mergeInto(meeting.context, { 1 });
    EXPECT_EQ(a->neighbours().size(), 1);
    EXPECT_EQ(b->neighbours().size(), 1);
    ASSERT_TRUE(meeting.context->save());
    meeting.expectSound("both are back");
}

/// Somebody else has made the link again that an undo would make: there is nothing to do, but something to redo.
TEST(Relationships, aLinkThatIsThereWhenItIsUndoneIsRedoneAtBothEnds)
{
    for (const bool readsGenre : { false, true }) {
        Meeting meeting;
        const auto track = meeting.track(u"a"_s);
        const auto genre = meeting.genre(u"g"_s);
        track->addToGenres(genre);
        ASSERT_TRUE(meeting.context->save());
        const auto ours = meeting.otherContext();
        const auto manager = std::make_shared<KXUndoManager>();
        manager->setGroupsByEvent(false);
        ours->setUndoManager(manager);
        if (readsGenre)
            ASSERT_EQ(in(ours, genre)->objectsForKey(u"tracks"_s).size(), 1);
        else
            ASSERT_EQ(in(ours, track)->genres().size(), 1);
        {
            const KXUndoGroup group(manager.get(), u"Remove"_s);
            in(ours, track)->removeFromGenres(in(ours, genre));
        }
        ASSERT_TRUE(ours->save());
        meeting.mergeInto(meeting.other, { 1 });
        in(meeting.other, track)->addToGenres(in(meeting.other, genre));
        ASSERT_TRUE(meeting.other->save());
        meeting.mergeInto(ours, { 2 });
        manager->undo();
        EXPECT_EQ(in(ours, track)->genres().size(), 1);
        manager->redo();
        ASSERT_TRUE(ours->save());
        meeting.mergeInto(meeting.context, { 1, 2, 3 });
        meeting.expectSound("done again");
        EXPECT_EQ(track->genres().size(), 0);
        EXPECT_EQ(Library::dump(*ours), Library::dump(*meeting.context));
    }
}

/// Whoever deleted a row and brought it back knew nothing of a link: nobody is told that it went.
TEST(Relationships, aLinkThatWentWithADeletedRowIsForgottenAtItsOtherEnd)
{
    for (const bool inOrder : { true, false }) {
        Meeting meeting;
        const auto a = meeting.track(u"a"_s), b = meeting.track(u"b"_s);
        ASSERT_TRUE(meeting.context->save());
        ASSERT_EQ(b->neighbours().size(), 0);
        meeting.context->setUndoManager(std::make_shared<KXUndoManager>());
        in(meeting.other, a)->addToNeighbours(in(meeting.other, b));
        ASSERT_TRUE(meeting.other->save());
        ASSERT_EQ(in(meeting.other, a)->neighbours().size(), 1);
        meeting.context->removeManagedObject(b);
        ASSERT_TRUE(meeting.context->save());
        meeting.context->undoManager()->undo();
        ASSERT_TRUE(meeting.context->save());
        ASSERT_EQ(meeting.saved.size(), 4U);
        meeting.mergeInto(meeting.other, { size_t(inOrder ? 2 : 3), size_t(inOrder ? 3 : 2) });
        EXPECT_EQ(in(meeting.other, a)->neighbours().size(), 0);
        meeting.mergeInto(meeting.context, { 1 });
        meeting.expectSound("deleted and back");
    }
}

TEST(Relationships, whatTheFrameworkWritesPassesItsOwnCheck)
{
    KXTestRandom random;
    for (int round = KXTestRandom::scaled(200); round > 0 && !testing::Test::HasFailure(); --round) {
        Meeting meeting;
        const auto manager = std::make_shared<KXUndoManager>();
        manager->setGroupsByEvent(false);
        if (random.chance(0.5))
            meeting.context->setUndoManager(manager);
        std::vector<Change> pending[2];
        const auto feed = meeting.coordinator->addChangeObserver([&](const Change &change) {
            pending[change->originatingContext() == meeting.context.get()].push_back(change);
        });
        const bool merges = random.chance(0.7);
        const bool inOrder = random.chance(0.5);
        const auto merge = [&](int side) {
            std::vector<Change> changes = std::exchange(pending[side], {});
            if (!inOrder)
                std::shuffle(changes.begin(), changes.end(), random.engine());
            for (const Change &change : changes)
                (side ? meeting.other : meeting.context)->mergeChangesFromStoreChange(change);
        };
        for (int i = 0; i < 4; ++i) {
            meeting.track(QString::number(i));
            meeting.genre(QString::number(i));
            Album::createInContext(*meeting.context)->setTitle(QString::number(i));
        }
        ASSERT_TRUE(meeting.context->save());
        for (int step = 0; step < 80 && !testing::Test::HasFailure(); ++step) {
            const int side = random.below(2);
            const Context::Ref &by = side ? meeting.other : meeting.context;
            const int kind = random.below(14);
            if (kind < 9) {
                const KXUndoGroup group(side == 0 ? manager.get() : nullptr, u"Edit"_s);
                editAnything(by, kind, random);
            } else if (kind == 9) {
                random.chance(0.7) ? manager->undo() : manager->redo();
            } else if (kind == 10 && merges) {
                merge(side);
            } else {
                KXError error;
                ASSERT_TRUE(by->save(&error)) << error.localizedDescription().toStdString();
                EXPECT_EQ(problemsOf(meeting.url()), std::string()) << "saved at step " << step;
            }
        }
        if (!merges)
            continue;
        for (int turn = 0; turn < 3; ++turn) {
            merge(0);
            ASSERT_TRUE(meeting.context->save(nullptr));
            merge(1);
            ASSERT_TRUE(meeting.other->save(nullptr));
        }
        merge(0);
        EXPECT_EQ(problemsOf(meeting.url()), std::string());
        const QStringList stored = Library::dump(*meeting.otherContext());
        EXPECT_EQ(Library::dump(*meeting.context), stored);
        EXPECT_EQ(Library::dump(*meeting.other), stored);
    }
}

}
