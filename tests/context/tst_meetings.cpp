// What two contexts do to the same rows, and observers in the midst of it: nothing is lost, nothing stays stale, and
// the store passes its own check after every step.

#include <QCoreApplication>
#include <gtest/gtest.h>

#include <kestrixkit/foundation/KXObserver.h>
#include <kestrixkit/foundation/KXUndoManager.h>

#include "context/Meeting.h"
#include "support/KXTestRandom.h"

using namespace Qt::StringLiterals;

namespace meetings_test {

using Context = KXManagedObjectContext;
using Change = Meeting::Change;

static void editTrack(
    const KXRef<Track> &track, const KXRef<Album> &album, const KXRef<Genre> &genre, KXTestRandom &random)
{
    switch (random.below(5)) {
    case 0:
        track->setTitle(QString::number(random.below(1000)));
        break;
    case 1:
        track->setBpm(random.below(1000));
        break;
    case 2:
        track->setAlbum(album);
        break;
    case 3:
        track->addToGenres(genre);
        break;
    case 4:
        track->removeFromGenres(genre);
        break;
    }
}

TEST(Merge, inWhateverOrderSavesComeNothingStaysStale)
{
    KXTestRandom random;
    for (int round = KXTestRandom::scaled(300); round > 0; --round) {
        Meeting meeting;
        auto &context = *meeting.context;
        QList<KXRef<Track>> tracks;
        QList<KXRef<Genre>> genres;
        QList<KXRef<Album>> albums;
        for (int i = 0; i < 3; ++i) {
            tracks.append(meeting.track(QString::number(i)));
            genres.append(meeting.genre(QString::number(i)));
            albums.append(Album::createInContext(context));
            albums.last()->setTitle(u"album"_s);
        }
        ASSERT_TRUE(context.save());
        for (int i = 0; i < 3; ++i) {
            (void)genres[i]->tracks();
            (void)albums[i]->tracks();
        }
        meeting.saved.clear();
        for (int save = random.between(2, 5); save > 0; --save) {
            const Context::Ref by = random.chance(0.2) ? meeting.context : meeting.other;
            for (int edit = random.between(1, 4); edit > 0; --edit) {
                const auto track = in(by, random.oneOf(tracks));
                if (!track->managedObjectContext() || track->isMissing() || track->isDeleted())
                    continue;
                editTrack(track, in(by, random.oneOf(albums)), in(by, random.oneOf(genres)), random);
            }
            ASSERT_TRUE(by->save(nullptr));
            if (random.chance(0.5))
                meeting.other = meeting.otherContext(); // sees everything, as a new operation does
        }
        std::shuffle(meeting.saved.begin(), meeting.saved.end(), random.engine());
        for (const Change &change : meeting.saved)
            context.mergeChangesFromStoreChange(change);
        meeting.expectSound("after merging");
        if (HasFailure())
            return;

        // Knowing the newest row, the context's next edit is no conflict, and loses nothing.
        tracks[0]->setComment(u"mine"_s);
        ASSERT_TRUE(context.save());
        EXPECT_EQ(in(meeting.otherContext(), tracks[0])->comment(), u"mine"_s);
        meeting.expectSound("after saving");
    }
}

TEST(Merge, aLateDeletionDoesNotTakeWhatCameBack)
{
    Meeting meeting;
    const auto manager = std::make_shared<KXUndoManager>();
    manager->setGroupsByEvent(false);
    meeting.other->setUndoManager(manager);
    const auto track = meeting.track(u"a"_s);
    ASSERT_TRUE(meeting.context->save());
    const auto theirs = in(meeting.other, track);
    {
        const KXUndoGroup group(manager.get(), u"Delete"_s);
        meeting.other->removeManagedObject(theirs);
    }
    ASSERT_TRUE(meeting.other->save());
    EXPECT_TRUE(meeting.other->objectWithID(track->objectID())->isMissing()); // somebody asks meanwhile
    manager->undo();
    EXPECT_EQ(theirs->managedObjectContext(), meeting.other.get());
    theirs->setTitle(u"b"_s);
    ASSERT_TRUE(meeting.other->save());
    meeting.mergeInto(meeting.context, { 2, 1 });
    EXPECT_EQ(track->managedObjectContext(), meeting.context.get());
    EXPECT_EQ(track->title(), u"b"_s);
    meeting.expectSound("merged");
}

TEST(Merge, whatWasSavedOfAFormerLifeIsNoNews)
{
    Meeting meeting;
    const auto manager = std::make_shared<KXUndoManager>();
    manager->setGroupsByEvent(false);
    meeting.context->setUndoManager(manager);
    const auto track = meeting.track(u"a"_s), next = meeting.track(u"next"_s);
    ASSERT_TRUE(meeting.context->save());
    const auto theirs = in(meeting.other, track);
    theirs->setTitle(u"of the former life"_s);
    theirs->setRemix(in(meeting.other, next));
    ASSERT_TRUE(meeting.other->save());
    const auto third = meeting.otherContext();
    const auto stale = in(third, track);
    EXPECT_EQ(stale->title(), u"of the former life"_s);
    {
        const KXUndoGroup group(manager.get(), u"Delete"_s);
        meeting.context->removeManagedObject(track);
    }
    ASSERT_TRUE(meeting.context->save());
    manager->undo();
    ASSERT_TRUE(meeting.context->save());
    meeting.mergeInto(meeting.context, { 1 });
    EXPECT_EQ(track->title(), u"a"_s);
    EXPECT_FALSE(track->remix() || next->original());
    meeting.expectSound("merged late");

    // Nor does an edit of it go unnoticed over the new one.
    track->setComment(u"new"_s);
    ASSERT_TRUE(meeting.context->save());
    stale->setComment(u"old"_s);
    ASSERT_TRUE(third->save());
    EXPECT_EQ(stale->comment(), u"new"_s);
    EXPECT_EQ(in(meeting.otherContext(), track)->comment(), u"new"_s);
}

TEST(Saving, takesOverTheWholeRowFromWhichItTakesALink)
{
    Meeting meeting;
    const auto track = meeting.track(u"a"_s), remix = meeting.track(u"remix"_s);
    const auto genre = meeting.genre(u"g"_s);
    ASSERT_TRUE(meeting.context->save());
    const auto theirs = in(meeting.other, track);
    EXPECT_EQ(theirs->title(), u"a"_s);
    track->setTitle(u"b"_s);
    track->setRemix(remix);
    ASSERT_TRUE(meeting.context->save());
    theirs->addToGenres(in(meeting.other, genre)); // of its row itself nothing is unsaved
    meeting.other->removeManagedObject(in(meeting.other, remix));
    ASSERT_TRUE(meeting.other->save());
    EXPECT_EQ(theirs->title(), u"b"_s);
    EXPECT_FALSE(theirs->remix());
    meeting.mergeInto(meeting.context, { 2 });
    meeting.expectSound("merged");
}

TEST(Saving, anObserversSaveIsToldAfterTheOneThatItSaw)
{
    Meeting meeting;
    const auto track = meeting.track(u"a"_s);
    ASSERT_TRUE(meeting.context->save());
    QList<quint64> serials;
    const auto told = KXNotificationCenter::defaultCenter().addObserver(
        QString(KXManagedObjectContextDidSaveNotification), KXNotificationCenter::anySender(),
        [&](const KXNotification &saved) { serials.append((*saved.payloadAs<Change>())->serialNumber()); });
    const auto feed = meeting.coordinator->addChangeObserver([&](const Change &change) {
        if (change->originatingContext() != meeting.other.get())
            return;
        in(meeting.context, track)->setComment(u"seen"_s);
        EXPECT_TRUE(meeting.context->save());
        EXPECT_EQ(serials.size(), 2) << "a save has been told when it returns";
    });
    in(meeting.other, track)->setTitle(u"b"_s);
    ASSERT_TRUE(meeting.other->save());
    EXPECT_EQ(serials, (QList<quint64> { 2, 3 }));
}

TEST(Saving, whatObserversDoWhileAConflictIsSettledStays)
{
    Meeting meeting;
    const auto mine = meeting.track(u"a"_s), doomed = meeting.track(u"doomed"_s);
    const auto album = Album::createInContext(*meeting.context), former = Album::createInContext(*meeting.context);
    album->setTitle(u"One"_s);
    former->setTitle(u"Zero"_s);
    mine->setAlbum(former);
    ASSERT_TRUE(meeting.context->save());
    (void)album->tracks();
    (void)former->tracks();
    in(meeting.other, mine)->setTitle(u"theirs"_s);
    in(meeting.other, mine)->setAlbum(in(meeting.other, album));
    ASSERT_TRUE(meeting.other->save());

    Announced announced(meeting.context);
    KXRef<Genre> made;
    const auto observer = mine->onChangeOf(u"title"_s, [&](const KXKeyValueChange &) {
        if (made || mine->title() != u"theirs"_s)
            return;
        EXPECT_EQ(mine->album(), album) << "all is in place";
        EXPECT_EQ(album->tracks(), QList { mine });
        EXPECT_TRUE(former->tracks().isEmpty());
        made = meeting.genre(u"made"_s);
        mine->setBpm(99);
        mine->addToGenres(made);
        meeting.context->removeManagedObject(doomed);
    });
    mine->setTitle(u"mine"_s);
    ASSERT_TRUE(meeting.context->save());
    ASSERT_TRUE(made);
    EXPECT_EQ(announced.changedKeys[mine.get()] & QSet<QString>({ u"title"_s, u"album"_s }),
        QSet<QString>({ u"title"_s, u"album"_s }));
    EXPECT_TRUE(made->isInserted() && mine->isUpdated() && doomed->isDeleted());
    EXPECT_EQ(mine->changedKeys(), (QSet<QString> { u"bpm"_s, u"genres"_s }));
    ASSERT_TRUE(meeting.context->save());
    EXPECT_FALSE(doomed->managedObjectContext());
    meeting.expectSound("saved twice");
    EXPECT_EQ(in(meeting.otherContext(), mine)->genres().size(), 1);
    EXPECT_EQ(announced.deleted.count(doomed), 1);
    EXPECT_EQ(announced.inserted.count(made), 1);
}

TEST(Saving, whatObserversChangeWhileAChildIsSavedIsTheChildsNextChange)
{
    LibraryTest library;
    const auto track = library.track(u"a"_s);
    ASSERT_TRUE(library.context->save());
    const auto child = Context::contextWithParentContext(library.context);
    const auto childs = in(child, track);
    const auto observer = track->onChangeOf(u"title"_s, [&](const KXKeyValueChange &) {
        childs->setTitle(u"later"_s);
        childs->setBpm(99);
        Genre::createInContext(*child)->setName(u"made"_s);
    });
    childs->setTitle(u"b"_s);
    ASSERT_TRUE(child->save());
    track->removeKVOBlockObserver(observer);
    EXPECT_EQ(track->title(), u"b"_s);
    EXPECT_EQ(childs->title(), u"later"_s);
    EXPECT_TRUE(childs->isUpdated());
    EXPECT_EQ(child->insertedObjects().size(), 1);
    ASSERT_TRUE(child->save());
    EXPECT_EQ(track->title(), u"later"_s);
    EXPECT_EQ(track->bpm(), 99);
    EXPECT_EQ(library.context->countForEntity(u"Genre"_s), 1);
}

TEST(Announcing, tellsWhatAnObserverDeletesInsertsOrChangesAndSaves)
{
    LibraryTest library;
    const auto doomed = library.track(u"doomed"_s), changed = library.track(u"changed"_s);
    ASSERT_TRUE(library.context->save());
    KXRef<Genre> made;
    const auto acting
        = KXNotificationCenter::defaultCenter().addObserver(QString(KXManagedObjectContextObjectsDidChangeNotification),
            library.context.get(), [&](const KXNotification &) {
                if (made)
                    return;
                made = library.genre(u"made"_s);
                changed->setBpm(100);
                library.context->removeManagedObject(doomed);
                EXPECT_TRUE(library.context->save());
            });
    bool wasSaved = false;
    const auto late
        = KXNotificationCenter::defaultCenter().addObserver(QString(KXManagedObjectContextObjectsDidChangeNotification),
            library.context.get(), [&](const KXNotification &posted) {
                const auto &did = *posted.payloadAs<KXObjectsDidChange>();
                if (did.inserted.contains(made))
                    wasSaved = !made->isInserted() && !doomed->managedObjectContext() && did.deleted.contains(doomed);
            });
    Announced announced(library.context);
    changed->setTitle(u"b"_s);
    QCoreApplication::processEvents();
    EXPECT_TRUE(wasSaved) << "as an announcement after the save promises";
    EXPECT_EQ(announced.deleted, QList<KXRef<KXManagedObject>> { doomed });
    EXPECT_EQ(announced.inserted, QList<KXRef<KXManagedObject>> { made });
    EXPECT_EQ(announced.changedKeys[changed.get()], (QSet<QString> { u"title"_s, u"bpm"_s }));
}

TEST(Undo, ofAnUnsavedDeletionKeepsWhatWasMerged)
{
    Meeting meeting;
    const auto manager = std::make_shared<KXUndoManager>();
    manager->setGroupsByEvent(false);
    meeting.context->setUndoManager(manager);
    const auto track = meeting.track(u"a"_s);
    const auto house = meeting.genre(u"House"_s), techno = meeting.genre(u"Techno"_s);
    const auto album = Album::createInContext(*meeting.context);
    album->setTitle(u"One"_s);
    track->addToGenres(house);
    ASSERT_TRUE(meeting.context->save());
    manager->removeAllActions();
    {
        const KXUndoGroup group(manager.get(), u"Delete"_s);
        track->setComment(u"edited before"_s);
        meeting.context->removeManagedObject(track);
    }
    const auto theirs = in(meeting.other, track);
    theirs->setTitle(u"theirs"_s);
    theirs->setAlbum(in(meeting.other, album));
    theirs->setGenres({ in(meeting.other, techno) });
    ASSERT_TRUE(meeting.other->save());
    meeting.mergeInto(meeting.context, { 1 });
    manager->undo();
    EXPECT_EQ(track->title(), u"theirs"_s);
    EXPECT_EQ(track->comment(), std::nullopt);
    EXPECT_EQ(track->genres(), QList { techno });
    EXPECT_EQ(album->tracks(), QList { track });
    ASSERT_TRUE(meeting.context->save());
    meeting.expectSound("undone");
    EXPECT_EQ(in(meeting.otherContext(), track)->title(), u"theirs"_s);
}

TEST(Undo, aLateUndoConnectsNothingWithWhatIsGoneOrTaken)
{
    Meeting meeting;
    const auto manager = std::make_shared<KXUndoManager>();
    manager->setGroupsByEvent(false);
    meeting.context->setUndoManager(manager);
    const auto a = meeting.track(u"a"_s), b = meeting.track(u"b"_s), c = meeting.track(u"c"_s);
    const auto album = Album::createInContext(*meeting.context), second = Album::createInContext(*meeting.context);
    album->setTitle(u"One"_s);
    second->setTitle(u"Two"_s);
    a->setRemix(b);
    a->setAlbum(album);
    ASSERT_TRUE(meeting.context->save());
    manager->removeAllActions();
    {
        const KXUndoGroup group(manager.get(), u"Clear"_s);
        a->setRemix({});
        a->setAlbum({});
    }
    ASSERT_TRUE(meeting.context->save());
    in(meeting.other, c)->setRemix(in(meeting.other, b));
    in(meeting.other, a)->setAlbum(in(meeting.other, second));
    meeting.other->removeManagedObject(in(meeting.other, album));
    ASSERT_TRUE(meeting.other->save());
    meeting.mergeInto(meeting.context, { 2 });
    manager->undo();
    EXPECT_FALSE(a->album());
    EXPECT_TRUE(second->tracks().isEmpty());
    EXPECT_EQ(a->remix() == b, b->original() == a);
    EXPECT_EQ(c->remix() == b, b->original() == c);
    ASSERT_TRUE(meeting.context->save());
    meeting.expectSound("undone");
}

TEST(Undo, whatComesBackTwiceIsInsertedOnce)
{
    Meeting meeting;
    const auto manager = std::make_shared<KXUndoManager>();
    manager->setGroupsByEvent(false);
    meeting.context->setUndoManager(manager);
    const auto track = meeting.track(u"a"_s);
    ASSERT_TRUE(meeting.context->save());
    meeting.other->removeManagedObject(in(meeting.other, track));
    ASSERT_TRUE(meeting.other->save());
    manager->undo();
    ASSERT_TRUE(meeting.context->save());
    manager->redo(); // of a row that is gone: inserted again
    manager->undo();
    meeting.mergeInto(meeting.context, { 1 });
    manager->redo();
    KXError error;
    EXPECT_TRUE(meeting.context->save(&error)) << error.localizedDescription().toStdString();
    EXPECT_EQ(in(meeting.otherContext(), track)->title(), u"a"_s);
    meeting.expectSound("back");
}

}
