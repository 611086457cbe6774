// Undo and redo of stored objects, and saves of other contexts that arrive in between.

#include <QCoreApplication>
#include <gtest/gtest.h>

#include <kestrixkit/foundation/KXNotificationCenter.h>
#include <kestrixkit/foundation/KXObserver.h>
#include <kestrixkit/foundation/KXUndoManager.h>

#include "store/Library.h"
#include "support/KXTestRandom.h"

using namespace Qt::StringLiterals;

namespace {

/// All that the context says about tracks, genres and albums, but for what the other context edits.
QStringList dumpOf(KXManagedObjectContext &context)
{
    const auto names = [](const auto &objects) {
        QStringList list;
        for (const auto &object : objects)
            list.append(QString::number(object->objectID().key()));
        list.sort();
        return list.join(u'+');
    };
    const auto keyOf = [](const auto &object) { return object ? object->objectID().key() : 0; };
    QStringList lines;
    for (const auto &object : context.fetchAllForEntity(u"Track"_s)) {
        const auto track = Track::cast(object);
        lines.append(
            u"track %1 %2 bpm %3 album %4 original %5 remix %6 genres %7 neighbours %8 tags %9"_s.arg(keyOf(track))
                .arg(track->title())
                .arg(track->bpm().value_or(-1))
                .arg(keyOf(track->album()))
                .arg(keyOf(track->original()))
                .arg(keyOf(track->remix()))
                .arg(names(track->genres()), names(track->neighbours()), names(track->tags())));
    }
    for (const auto &object : context.fetchAllForEntity(u"Genre"_s))
        lines.append(u"genre %1 %2 tracks %3"_s.arg(keyOf(object))
                         .arg(Genre::cast(object)->name(), names(Genre::cast(object)->tracks())));
    for (const auto &object : context.fetchAllForEntity(u"Album"_s))
        lines.append(u"album %1 %2 tracks %3"_s.arg(keyOf(object))
                         .arg(Album::cast(object)->title(), names(Album::cast(object)->tracks())));
    lines.sort();
    return lines;
}

/// The lines that only one of both dumps has; empty where they are equal.
std::string difference(const QStringList &is, const QStringList &shouldBe)
{
    std::string text;
    for (const QString &line : is) {
        if (!shouldBe.contains(line))
            text += "\n  is:        " + line.toStdString();
    }
    for (const QString &line : shouldBe) {
        if (!is.contains(line))
            text += "\n  should be: " + line.toStdString();
    }
    return text;
}

/// The library with an undo manager, recording by explicit groups.
class UndoTest : public LibraryTest
{
public:
    UndoTest()
    {
        manager->setGroupsByEvent(false);
        context->setUndoManager(manager);
    }
    QStringList dump() const { return dumpOf(*context); }
    std::shared_ptr<KXUndoManager> manager = std::make_shared<KXUndoManager>();
};

}

TEST(Undo, whatComesBackAfterAnotherContextDeletedItKeepsItsLinks)
{
    LibraryTest library;
    const auto genre = library.genre(u"House"_s);
    ASSERT_TRUE(library.context->save());
    const auto manager = std::make_shared<KXUndoManager>();
    manager->setGroupsByEvent(false);
    library.context->setUndoManager(manager);
    KXRef<Track> track;
    {
        const KXUndoGroup group(manager.get());
        track = library.track(u"a"_s);
        track->addToGenres(genre);
    }
    ASSERT_TRUE(library.context->save());
    const auto other = library.otherContext();
    const auto merging
        = library.coordinator->addChangeObserver([&](const std::shared_ptr<const KXStoreChange> &change) {
              if (change->originatingContext() == other.get())
                  library.context->mergeChangesFromStoreChange(change);
          });
    other->removeManagedObject(other->objectWithID(track->objectID()));
    ASSERT_TRUE(other->save());
    manager->undo(); // of an insertion that is gone already
    manager->redo();
    ASSERT_TRUE(library.context->save());
    const auto fresh = library.otherContext();
    const auto stored = Track::cast(fresh->objectWithID(track->objectID()));
    ASSERT_TRUE(stored && !stored->isMissing());
    EXPECT_EQ(stored->genres().size(), 1);
    EXPECT_EQ(Genre::cast(fresh->objectWithID(genre->objectID()))->tracks().size(), 1);
}

TEST(Undo, bringsTheSameObjectsBackUnderTheirIdentifiersAlsoAfterTheSave)
{
    UndoTest library;
    auto &context = *library.context;
    auto album = Album::createInContext(context);
    album->setTitle(u"One"_s);
    auto house = library.genre(u"House"_s);
    auto track = library.track(u"a"_s);
    track->setAlbum(album);
    track->addToGenres(house);
    auto tag = Tag::createInContext(context);
    tag->setName(u"t"_s);
    track->addToTags(tag);
    ASSERT_TRUE(context.save());
    library.manager->removeAllActions();
    const QStringList before = library.dump();
    const auto id = track->objectID();
    int counted = 0;
    album->onChangeOf(u"tracks"_s, [&](const KXKeyValueChange &) { ++counted; });

    {
        KXUndoGroup group(library.manager.get(), u"Delete Album"_s);
        context.removeManagedObject(album); // takes its track along
    }
    ASSERT_TRUE(context.save());
    EXPECT_FALSE(track->managedObjectContext());
    EXPECT_EQ(library.manager->undoActionName(), u"Delete Album"_s);
    EXPECT_EQ(library.otherContext()->countForEntity(u"Track"_s), 0);

    library.manager->undo();
    EXPECT_EQ(difference(library.dump(), before), std::string());
    EXPECT_EQ(track->objectID(), id);
    EXPECT_TRUE(track->isInserted());
    EXPECT_EQ(track->prepared, 1);
    EXPECT_TRUE(context.hasChanges()) << "undo saves nothing";
    ASSERT_TRUE(context.save());
    EXPECT_EQ(difference(dumpOf(*library.otherContext()), before), std::string());

    library.manager->redo();
    EXPECT_EQ(track->prepared, 1) << "redo replays, it does not delete again";
    ASSERT_TRUE(context.save());
    EXPECT_EQ(library.otherContext()->countForEntity(u"Album"_s), 0);
    library.manager->undo();
    EXPECT_EQ(difference(library.dump(), before), std::string());
    library.manager->redo();
    library.manager->undo(); // of a deletion that was not saved
    EXPECT_EQ(difference(library.dump(), before), std::string());
    ASSERT_TRUE(context.save());
    EXPECT_EQ(difference(dumpOf(*library.otherContext()), before), std::string());
}

TEST(Undo, recordsByTurnByGroupAndNotWhileSwitchedOff)
{
    UndoTest library;
    library.manager->setGroupsByEvent(true);
    auto track = library.track(u"a"_s);
    QCoreApplication::processEvents();
    ASSERT_TRUE(library.manager->canUndo());
    track->setTitle(u"b"_s);
    track->setBpm(120);
    QCoreApplication::processEvents();
    {
        KXUndoRegistrationOff off(library.manager.get());
        track->setTitle(u"c"_s);
    }
    track->setBpm(130);
    library.manager->undo(); // the turn that is still open
    EXPECT_EQ(track->bpm(), 120);
    EXPECT_EQ(track->title(), u"c"_s);
    library.manager->undo();
    EXPECT_EQ(track->bpm(), std::nullopt);
    EXPECT_EQ(track->title(), u"a"_s);
    library.manager->undo(); // its insertion
    EXPECT_TRUE(track->isDeleted());
    library.manager->redo();
    EXPECT_TRUE(track->isInserted());
    EXPECT_EQ(track->title(), u"a"_s);
    library.manager->redo();
    EXPECT_EQ(track->title(), u"b"_s);
    library.context->rollback();
    EXPECT_FALSE(library.manager->canUndo() || library.manager->canRedo());

    // Facts of a context that is gone do nothing.
    library.track(u"x"_s);
    QCoreApplication::processEvents();
    library.context.reset();
    library.manager->undo();
    SUCCEED();
}

TEST(Merge, bothEndsOfARelationshipAgreeAboutWhatIsUnsaved)
{
    for (const bool isInMemory : { true, false }) {
        SCOPED_TRACE(isInMemory);
        UndoTest library;
        QList<KXRef<Album>> stored;
        for (int i = 0; i < 3; ++i) {
            stored.append(Album::createInContext(*library.context));
            stored.last()->setTitle(QString::number(i));
        }
        const auto storedTrack = library.track(u"moved"_s), storedDoomed = library.track(u"doomed"_s);
        storedTrack->setAlbum(stored[0]);
        ASSERT_TRUE(library.context->save());
        QCoreApplication::processEvents();
        library.manager->removeAllActions();

        // A context that has seen nothing yet reads the far ends only when all is over.
        const auto mine = isInMemory ? library.context : library.otherContext();
        const auto album = [&](int place) { return Album::cast(mine->objectWithID(stored[place]->objectID())); };
        const auto track = Track::cast(mine->objectWithID(storedTrack->objectID()));
        for (int i = 0; isInMemory && i < 3; ++i)
            (void)stored[i]->tracks();
        track->setAlbum(album(1));
        Track::cast(mine->objectWithID(storedDoomed->objectID()))->setAlbum(album(1));
        const auto other = library.otherContext();
        Track::cast(other->objectWithID(track->objectID()))
            ->setAlbum(Album::cast(other->objectWithID(stored[2]->objectID())));
        other->removeManagedObject(other->objectWithID(storedDoomed->objectID()));
        const auto token = KXNotificationCenter::defaultCenter().addObserver(
            QString(KXManagedObjectContextDidSaveNotification), other.get(), [&](const KXNotification &saved) {
                mine->mergeChangesFromStoreChange(*saved.payloadAs<std::shared_ptr<const KXStoreChange>>());
            });
        ASSERT_TRUE(other->save());
        EXPECT_EQ(track->album(), album(1));
        EXPECT_EQ(album(1)->tracks(), QList<KXRef<Track>> { track }) << "without the one that is gone";
        EXPECT_TRUE(album(0)->tracks().isEmpty() && album(2)->tracks().isEmpty());
        ASSERT_TRUE(mine->save());
        EXPECT_EQ(album(1)->tracks(), QList<KXRef<Track>> { track });
        EXPECT_TRUE(album(2)->tracks().isEmpty() != (track->album() == album(2)));
        EXPECT_EQ(Library::dump(*library.otherContext()), Library::dump(*mine));
    }
}

TEST(Merge, whatOthersLinkToADeletedObjectIsThereWhenItComesBack)
{
    UndoTest library;
    const auto album = Album::createInContext(*library.context);
    album->setTitle(u"One"_s);
    library.track(u"mine"_s)->setAlbum(album);
    ASSERT_TRUE(library.context->save());
    library.manager->removeAllActions();
    {
        KXUndoGroup group(library.manager.get(), u"Delete"_s);
        library.context->removeManagedObject(album);
    }
    const auto other = library.otherContext();
    const auto token = KXNotificationCenter::defaultCenter().addObserver(
        QString(KXManagedObjectContextDidSaveNotification), other.get(), [&](const KXNotification &saved) {
            library.context->mergeChangesFromStoreChange(*saved.payloadAs<std::shared_ptr<const KXStoreChange>>());
        });
    const auto theirs = Track::createInContext(*other);
    theirs->setTitle(u"theirs"_s);
    theirs->setAlbum(Album::cast(other->objectWithID(album->objectID())));
    ASSERT_TRUE(other->save());
    library.manager->undo();
    EXPECT_EQ(album->tracks().size(), 2);
    ASSERT_TRUE(library.context->save());
    EXPECT_EQ(Library::dump(*library.otherContext()), Library::dump(*library.context));
}

TEST(Merge, whatOthersLinkToADeletedObjectIsGoneWithTheSaveAndAlsoAfterItsUndo)
{
    UndoTest library;
    const auto genre = Genre::createInContext(*library.context);
    genre->setName(u"House"_s);
    library.track(u"mine"_s)->addToGenres(genre);
    ASSERT_TRUE(library.context->save());
    library.manager->removeAllActions();
    {
        KXUndoGroup group(library.manager.get(), u"Delete"_s);
        library.context->removeManagedObject(genre);
    }
    const auto other = library.otherContext();
    const auto token = KXNotificationCenter::defaultCenter().addObserver(
        QString(KXManagedObjectContextDidSaveNotification), other.get(), [&](const KXNotification &saved) {
            library.context->mergeChangesFromStoreChange(*saved.payloadAs<std::shared_ptr<const KXStoreChange>>());
        });
    const auto made = Track::createInContext(*other);
    made->setTitle(u"theirs"_s);
    made->addToGenres(Genre::cast(other->objectWithID(genre->objectID())));
    ASSERT_TRUE(other->save());
    const auto theirs = Track::cast(library.context->objectWithID(made->objectID()));
    (void)theirs->genres(); // read while the genre is deleted here, and still stored
    ASSERT_TRUE(library.context->save());
    EXPECT_EQ(theirs->genres().size(), 0);
    library.manager->undo();
    EXPECT_EQ(theirs->genres().size(), 0);
    EXPECT_EQ(genre->tracks().size(), 1);
    ASSERT_TRUE(library.context->save());
    EXPECT_EQ(Library::dump(*library.otherContext()), Library::dump(*library.context));
}

TEST(Undo, aRollbackAfterItLeavesWhatIsStored)
{
    UndoTest library;
    const auto person = Person::createInContext(*library.context);
    person->setName(u"One"_s);
    const auto kept = Album::createInContext(*library.context);
    kept->setTitle(u"kept"_s);
    kept->setArtist(person);
    const auto given = Album::createInContext(*library.context);
    given->setTitle(u"given"_s);
    ASSERT_TRUE(library.context->save());
    library.manager->removeAllActions();
    {
        KXUndoGroup group(library.manager.get(), u"Edit"_s);
        given->setArtist(person);
        library.context->processPendingChanges();
        library.context->removeManagedObject(person);
    }
    library.manager->undo();
    EXPECT_EQ(person->albums().size(), 1);
    library.context->rollback();
    EXPECT_EQ(person->albums().size(), 1);
    EXPECT_EQ(Library::dump(*library.otherContext()), Library::dump(*library.context));
}

TEST(Merge, takesOverSavesAroundUnsavedEdits)
{
    UndoTest library;
    auto &context = *library.context;
    auto house = library.genre(u"House"_s);
    auto mine = library.track(u"a"_s);
    auto doomed = library.track(u"b"_s);
    auto quiet = library.track(u"quiet"_s);
    mine->addToGenres(house);
    ASSERT_TRUE(context.save());
    library.manager->removeAllActions();

    std::shared_ptr<const KXStoreChange> change;
    auto feed = library.coordinator->addChangeObserver([&](const auto &saved) { change = saved; });
    auto other = library.otherContext();
    auto theirs = Track::cast(other->objectWithID(mine->objectID()));
    theirs->setTitle(u"theirs"_s);
    theirs->setBpm(100);
    theirs->setGenres({});
    auto fresh = Track::createInContext(*other);
    fresh->setTitle(u"fresh"_s);
    fresh->addToGenres(other->objectWithID(house->objectID()));
    other->removeManagedObject(other->objectWithID(doomed->objectID()));
    ASSERT_TRUE(other->save());

    QList<KXObjectsDidChange> posts;
    QList<int> kinds;
    auto token = KXNotificationCenter::defaultCenter().addObserver(
        QString(KXManagedObjectContextObjectsDidChangeNotification), &context,
        [&](const KXNotification &notification) { posts.append(*notification.payloadAs<KXObjectsDidChange>()); });
    auto observer = house->onChangeOf(u"tracks"_s, [&](const KXKeyValueChange &seen) { kinds.append(int(seen.kind)); });
    mine->setTitle(u"mine"_s);
    context.processPendingChanges();
    posts.clear();
    context.mergeChangesFromStoreChange(change);
    context.mergeChangesFromStoreChange(change); // twice does no harm
    EXPECT_EQ(mine->title(), u"mine"_s);
    EXPECT_EQ(mine->bpm(), 100);
    EXPECT_TRUE(mine->genres().isEmpty());
    EXPECT_EQ(house->tracks().size(), 1);
    EXPECT_EQ(house->tracks().first()->title(), u"fresh"_s);
    EXPECT_FALSE(doomed->managedObjectContext());
    EXPECT_EQ(doomed->title(), QString());
    ASSERT_GE(posts.size(), 1);
    EXPECT_EQ(posts[0].refreshed.size(), 2);
    EXPECT_EQ(posts[0].changedKeys[mine.get()], (QSet<QString> { u"bpm"_s, u"genres"_s }));
    EXPECT_EQ(posts[0].deleted, QList<KXRef<KXManagedObject>> { doomed });
    EXPECT_EQ(posts[0].insertedKeys, QList<qint64> { fresh->objectID().key() });
    EXPECT_TRUE(posts[0].inserted.isEmpty() && posts[0].updated.isEmpty());
    EXPECT_TRUE(kinds.contains(2) && kinds.contains(3));

    // A kept edit is an edit of what was merged: the save is no conflict any more. And undo knows nothing of the merge.
    ASSERT_TRUE(context.save());
    EXPECT_EQ(mine->title(), u"mine"_s);
    library.manager->undo();
    EXPECT_EQ(mine->title(), u"a"_s);
    EXPECT_EQ(mine->bpm(), 100);
    EXPECT_FALSE(library.manager->canUndo());
    ASSERT_TRUE(context.save());
    EXPECT_EQ(difference(dumpOf(*library.otherContext()), library.dump()), std::string());
}

TEST(Undo, whoComesBackTakesNoPartnerFromOneThatHasAnother)
{
    for (const bool isSaved : { false, true }) {
        UndoTest library;
        const auto a = library.track(u"a"_s), b = library.track(u"b"_s), c = library.track(u"c"_s);
        const auto d = library.track(u"d"_s);
        b->setRemix(a);
        c->setRemix(b);
        d->setRemix(c);
        ASSERT_TRUE(library.context->save());
        library.manager->removeAllActions();
        const QStringList before = library.dump();
        {
            const KXUndoGroup group(library.manager.get());
            b->setRemix(c); // which leaves d for it, and a alone
            library.context->removeManagedObject(c);
        }
        const QStringList after = library.dump();
        for (int round = 0; round < 2; ++round) {
            EXPECT_TRUE(!isSaved || library.context->save());
            library.manager->undo();
            EXPECT_EQ(difference(library.dump(), before), std::string()) << isSaved << round;
            EXPECT_TRUE(!isSaved || library.context->save());
            library.manager->redo();
            EXPECT_EQ(difference(library.dump(), after), std::string()) << isSaved << round;
        }
    }
}

namespace {

/// Edits, undoes, redoes, saves and merges at random, and knows what the library has to look like at every mark.
struct UndoWalk
{
    KXRef<KXManagedObject> any(const QString &entity)
    {
        const KXFetchedList list = context.fetchAllForEntity(entity);
        return list.isEmpty() ? KXRef<KXManagedObject>() : list.at(random.below(int(list.size())));
    }
    void edit()
    {
        const auto track = Track::cast(any(u"Track"_s));
        switch (track ? random.below(12) : 0) {
        case 0:
        case 1:
            library.track(QString::number(random.below(1000)));
            break;
        case 2:
            library.genre(QString::number(random.below(1000)));
            break;
        case 3:
            Album::createInContext(context)->setTitle(QString::number(random.below(1000)));
            break;
        case 4:
            track->setTitle(QString::number(random.below(1000)));
            break;
        case 5:
            track->setBpm(random.below(200));
            break;
        case 6:
            track->setAlbum(Album::cast(any(u"Album"_s)));
            break;
        case 7:
            track->setRemix(Track::cast(any(u"Track"_s)));
            break;
        case 8:
            if (const auto genre = any(u"Genre"_s))
                random.chance(0.6) ? track->addToGenres(genre) : track->removeFromGenres(genre);
            break;
        case 9:
            track->addToNeighbours(any(u"Track"_s));
            break;
        case 10:
            context.removeManagedObject(any(random.chance(0.5) ? u"Track"_s : u"Genre"_s));
            break;
        default:
            if (random.chance(0.3))
                context.removeManagedObject(any(u"Album"_s));
            else if (const auto other = Track::cast(any(u"Track"_s)))
                other->removeFromNeighbours(track);
        }
    }
    QStringList dump()
    {
        if (isLookedAt)
            return library.dump();
        EXPECT_TRUE(context.save());
        return dumpOf(*library.otherContext());
    }
    void editInAGroup(int step)
    {
        {
            KXUndoGroup group(library.manager.get(), QString::number(step));
            for (int edits = random.between(1, 4); edits > 0; --edits)
                edit();
        }
        if (library.manager->canUndo() && random.chance(0.3)) {
            library.manager->undo();
            library.manager->redo();
        }
        const QStringList now = dump();
        if (now != marks[at]) {
            marks.resize(at + 1);
            marks.push_back(now);
            ++at;
        } else {
            // A group that changed nothing to be seen may still be a step: start afresh.
            library.manager->removeAllActions();
            marks = { now };
            at = 0;
        }
    }
    /// What the dump does not show, so that the marks hold.
    void editElsewhere()
    {
        const KXFetchedList list = background->fetchAllForEntity(u"Track"_s);
        for (qsizetype i = 0; i < list.size(); ++i) {
            if (random.chance(0.3))
                list.as<Track>(i)->setPlays(random.below(1000));
        }
        EXPECT_TRUE(background->save());
    }
    void step(int step)
    {
        const int choice = random.below(100);
        if (choice < 45) {
            editInAGroup(step);
        } else if (choice < 65 && at > 0) {
            library.manager->undo();
            EXPECT_EQ(difference(dump(), marks[--at]), std::string()) << "undo at step " << step;
        } else if (choice < 80 && at + 1 < marks.size()) {
            library.manager->redo();
            EXPECT_EQ(difference(dump(), marks[++at]), std::string()) << "redo at step " << step;
        } else if (choice < 92) {
            EXPECT_TRUE(context.save());
            if (random.chance(0.2)) {
                EXPECT_EQ(difference(dumpOf(*library.otherContext()), marks[at]), std::string())
                    << "save at step " << step;
            }
        } else {
            editElsewhere();
            EXPECT_EQ(difference(dump(), marks[at]), std::string()) << "merge at step " << step;
        }
    }

    KXTestRandom &random;
    UndoTest library {};
    KXManagedObjectContext &context = *library.context;
    const std::shared_ptr<KXManagedObjectContext> background = library.otherContext();
    const KXPersistentStoreCoordinator::ChangeToken feed
        = library.coordinator->addChangeObserver([this](const auto &change) {
              context.mergeChangesFromStoreChange(change);
              background->mergeChangesFromStoreChange(change);
          });
    /// A dump brings all relationships into memory. Where none is made, what reaches the store is looked at.
    const bool isLookedAt = random.chance(0.6);
    std::vector<QStringList> marks { dump() };
    size_t at = 0;
};

}

TEST(Undo, randomWalksReturnToEqualDumps)
{
    KXTestRandom random;
    const int walks = KXTestRandom::scaled(1000);
    for (int walk = 0; walk < walks && !testing::Test::HasFailure(); ++walk) {
        UndoWalk on { random };
        for (int step = 0; step < 200 && !testing::Test::HasFailure(); ++step)
            on.step(step);
        EXPECT_TRUE(on.context.save());
        EXPECT_EQ(difference(dumpOf(*on.library.otherContext()), on.marks[on.at]), std::string()) << "walk " << walk;
    }
}
