// What two contexts do to the same rows, and observers in the midst of it: nothing is lost, nothing stays stale, and
// the store passes its own check after every step.

#include <thread>

#include <QCoreApplication>
#include <gtest/gtest.h>

#include <kestrixkit/foundation/KXNotificationCenter.h>
#include <kestrixkit/foundation/KXObserver.h>
#include <kestrixkit/foundation/KXUndoManager.h>
#include <kestrixkit/store/KXPersistentStore.h>

#include "store/Library.h"
#include "support/KXTestLog.h"
#include "support/KXTestRandom.h"

using namespace Qt::StringLiterals;

namespace store_meetings_test {

using Context = KXManagedObjectContext;
using Change = std::shared_ptr<const KXStoreChange>;

template <class T> KXRef<T> in(const Context::Ref &context, const KXRef<T> &object)
{
    return T::cast(context->objectWithID(object->objectID()));
}

std::string problems(const QUrl &url)
{
    KXError error;
    const auto lines = KXPersistentStore::problemsOfStoreURL(url, &error);
    return (lines ? lines->join(u'\n') : error.localizedDescription()).toStdString();
}

/// The library with a second context; what each of them saves is kept, to be merged when the test wants it.
class Meeting : public LibraryTest
{
public:
    Meeting()
    {
        m_token = coordinator->addChangeObserver([this](const auto &change) { saved.push_back(change); });
    }
    void mergeInto(const Context::Ref &into, std::initializer_list<size_t> places)
    {
        for (const size_t place : places)
            into->mergeChangesFromStoreChange(saved.at(place));
    }
    void expectSound(const char *when)
    {
        EXPECT_EQ(problems(url()), std::string()) << when;
        EXPECT_EQ(Library::dump(*context), Library::dump(*otherContext())) << when;
    }
    Context::Ref other = otherContext();
    std::vector<Change> saved;

private:
    KXPersistentStoreCoordinator::ChangeToken m_token;
};

KXObjectsDidChange &operator+=(KXObjectsDidChange &all, const KXObjectsDidChange &did)
{
    all.inserted += did.inserted;
    all.updated += did.updated;
    all.deleted += did.deleted;
    all.refreshed += did.refreshed;
    for (auto it = did.changedKeys.begin(); it != did.changedKeys.end(); ++it)
        all.changedKeys[it.key()] += it.value();
    return all;
}

/// All that a context announces.
class Announced : public KXObjectsDidChange
{
public:
    explicit Announced(const Context::Ref &context)
        : m_token(KXNotificationCenter::defaultCenter().addObserver(
            QString(KXManagedObjectContextObjectsDidChangeNotification), context.get(),
            [this](const KXNotification &posted) { *this += *posted.payloadAs<KXObjectsDidChange>(); }))
    {
    }

private:
    KXNotificationToken m_token;
};

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

/// A class of which no variant was ever made before.
class Unused : public KXManagedObjectOf<Unused>
{
public:
    static constexpr QLatin1StringView entityName { "Unused" };
    KX_TO_ONE(Unused, next, setNext)
};

TEST(Identity, anIdentifierThatIsWrongTwiceOrTooEarlySpoilsNothing)
{
    LibraryTest library;
    const auto track = library.track(u"a"_s);
    const auto producer = Producer::createInContext(*library.context);
    producer->setStudio(u"S"_s);
    ASSERT_TRUE(library.context->save());
    library.reopen();
    auto &context = *library.context;
    const auto named = [&](const KXManagedObjectID &id, const QString &entity) {
        QUrl uri = id.URIRepresentation();
        uri.setPath(u"/%1/p%2"_s.arg(entity).arg(id.key()));
        return library.coordinator->managedObjectIDForURIRepresentation(uri);
    };
    const auto id = track->objectID(), personID = producer->objectID();

    const auto twice = context.existingObjectsWithIDs({ id, id, personID, id });
    ASSERT_EQ(twice.size(), 4);
    EXPECT_EQ(twice[0], twice[3]);
    EXPECT_EQ(Track::cast(twice[0])->title(), u"a"_s);

    for (const QString &wrong : { u"Genre"_s, u"Person"_s, u"Producer"_s, u"Album"_s }) {
        const auto fresh = library.otherContext();
        const auto impostor = fresh->objectWithID(named(id, wrong));
        EXPECT_TRUE(fresh->existingObjectsWithIDs({ named(id, wrong) }).isEmpty()) << wrong.toStdString();
        const auto found = Track::findFirstUsingPredicate({}, *fresh);
        ASSERT_TRUE(found) << wrong.toStdString();
        EXPECT_EQ(found->title(), u"a"_s);
        EXPECT_EQ(fresh->objectWithID(id), found);
        EXPECT_TRUE(!impostor || impostor->isMissing());
    }
    for (const QString &relative : { u"Person"_s, u"Producer"_s }) { // the parent entity names the same row
        const auto fresh = library.otherContext();
        const auto person = Producer::cast(fresh->objectWithID(named(personID, relative)));
        ASSERT_TRUE(person) << relative.toStdString();
        EXPECT_EQ(person->studio(), u"S"_s);
        EXPECT_EQ(Producer::findFirstUsingPredicate({}, *fresh), person);
    }

    // A key that is given out only later.
    const qint64 next = library.genre(u"now"_s)->objectID().key() + 1;
    const KXManagedObjectID early(id.store(), library.coordinator->model()->entity(u"Genre"_s), next);
    const KXManagedObjectID wrongEarly(id.store(), library.coordinator->model()->entity(u"Track"_s), next + 1);
    auto asked = context.objectWithID(early);
    auto wrong = context.objectWithID(wrongEarly);
    EXPECT_TRUE(asked->isMissing() && wrong->isMissing());
    const auto other = library.otherContext();
    const auto elsewhere = other->objectWithID(early);
    EXPECT_TRUE(elsewhere->isMissing());
    const auto genre = library.genre(u"later"_s), after = library.genre(u"after"_s);
    ASSERT_EQ(genre->objectID(), early);
    EXPECT_EQ(asked, genre);
    asked.reset();
    wrong.reset(); // takes nobody else's place along
    EXPECT_EQ(context.registeredObjectWithID(early), genre);
    EXPECT_EQ(context.registeredObjectWithID(wrongEarly), after);
    ASSERT_TRUE(context.save());
    EXPECT_EQ(Genre::findFirstUsingPredicate(KXPredicate::predicateWithFormat("name == 'later'"), *other), elsewhere);
    EXPECT_EQ(elsewhere->valueForKey(u"name"_s), u"later"_s);
}

TEST(Identity, aHandleInAVariantIsReadAsTheObject)
{
    Unused::registerEntity();
    const QTemporaryDir folder;
    const auto coordinator = KXPersistentStoreCoordinator::persistentStoreCoordinatorWithStoreURL(
        QUrl::fromLocalFile(folder.filePath(u"s"_s)),
        KXManagedObjectModel::make(
            { KXEntityDescription(u"Unused"_s).add(KXPropertyDescription::toOne(u"next"_s, u"Unused"_s)) }));
    const auto context = Context::contextWithPersistentStoreCoordinator(coordinator);
    const auto a = Unused::createInContext(*context), b = Unused::createInContext(*context);
    EXPECT_TRUE(a->setValueForKey(u"next"_s, QVariant::fromValue(b)));
    EXPECT_EQ(a->next(), b);
    EXPECT_TRUE(a->setValueForKey(u"next"_s, QVariant::fromValue(KXRef<Unused>())));
    EXPECT_FALSE(a->next());
    EXPECT_TRUE(a->setValueForKey(u"next"_s, QVariant::fromValue(KXRef<KXManagedObject>(a))));
    EXPECT_EQ(a->next(), a);
    EXPECT_FALSE(a->setValueForKey(u"next"_s, 5));
}

TEST(Identity, whatWasDeletedLeavesMemory)
{
    LibraryTest library;
    auto &context = *library.context;
    KXWeakRef<Person> weak[3];
    for (auto &each : weak) {
        const auto person = Person::createInContext(context); // resident
        person->onChangeOf(u"name"_s, [](const KXKeyValueChange &) {});
        each = person;
    }
    context.rollback();
    EXPECT_FALSE(weak[0].lock());
    for (auto &each : weak)
        each = Person::createInContext(context);
    ASSERT_TRUE(context.save());
    EXPECT_TRUE(weak[0].lock() && weak[1].lock());
    weak[1].lock()->onChangeOf(u"name"_s, [](const KXKeyValueChange &) {});
    context.deleteObjects({ weak[0].lock(), weak[1].lock() });
    ASSERT_TRUE(context.save());
    QCoreApplication::processEvents();
    EXPECT_FALSE(weak[0].lock() || weak[1].lock());
    EXPECT_TRUE(weak[2].lock());
    library.context.reset();
    EXPECT_FALSE(weak[2].lock());
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
                switch (random.below(5)) {
                case 0:
                    track->setTitle(QString::number(random.below(1000)));
                    break;
                case 1:
                    track->setBpm(random.below(1000));
                    break;
                case 2:
                    track->setAlbum(in(by, random.oneOf(albums)));
                    break;
                case 3:
                    track->addToGenres(in(by, random.oneOf(genres)));
                    break;
                case 4:
                    track->removeFromGenres(in(by, random.oneOf(genres)));
                    break;
                }
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

TEST(Context, aDeletedObjectKeepsItsValuesAndRollingBackFindsThem)
{
    LibraryTest library;
    const auto album = Album::createInContext(*library.context);
    album->setTitle(u"One"_s);
    const auto track = library.track(u"a"_s);
    const auto genre = library.genre(u"g"_s);
    track->setBpm(100);
    ASSERT_TRUE(library.context->save());
    const KXTestLog log;
    library.context->removeManagedObject(track);
    track->setTitle(u"b"_s);
    track->setBpm(std::nullopt);
    track->setAlbum(album);
    track->addToGenres(genre);
    EXPECT_FALSE(track->setValueForKey(u"title"_s, u"c"_s));
    EXPECT_FALSE(track->setValueForKey(u"album"_s, KXVariantFromRef(album)));
    EXPECT_TRUE(log.contains(u"deleted"_s));
    EXPECT_TRUE(album->tracks().isEmpty() && genre->tracks().isEmpty());
    library.context->rollback();
    EXPECT_EQ(Library::dump(*library.context), Library::dump(*library.otherContext()));
    EXPECT_FALSE(library.context->hasChanges());
}

TEST(Context, knowsWhatDiffersFromTheStore)
{
    LibraryTest library;
    const auto one = Album::createInContext(*library.context), two = Album::createInContext(*library.context);
    one->setTitle(u"One"_s);
    two->setTitle(u"Two"_s);
    const auto track = library.track(u"a"_s);
    track->setAlbum(one);
    ASSERT_TRUE(library.context->save());
    track->setAlbum(two);
    track->setBpm(100);
    EXPECT_EQ(track->changedKeys(), (QSet<QString> { u"album"_s, u"bpm"_s }));
    EXPECT_EQ(track->committedValueForKey(u"album"_s).value<KXRef<KXManagedObject>>(), one);
    EXPECT_EQ(one->committedValueForKey(u"tracks"_s).toList().size(), 1);
    EXPECT_TRUE(two->committedValueForKey(u"tracks"_s).toList().isEmpty());
    track->setAlbum(one);
    track->setBpm(std::nullopt);
    EXPECT_TRUE(track->changedKeys().isEmpty());
    EXPECT_TRUE(one->changedKeys().isEmpty() && two->changedKeys().isEmpty());
}

TEST(Context, refusesWhatAFileCannotHold)
{
    LibraryTest library;
    const auto track = library.track(u"a"_s);
    const QDateTime far(QDate(294'246, 1, 1), QTime(), Qt::UTC);
    track->setAdded(far);
    track->setComment(u"\U0001F3B5"_s);
    track->setExtra(qint64(1));
    const KXTestLog log;
    const QString half(QChar(0xd83c)), turned = u"\U0001F3B5"_s.last(1) + half;
    for (const QDateTime &beyond : { far.addYears(5), QDateTime(QDate(-300'000, 1, 1), QTime(), Qt::UTC) }) {
        track->setAdded(beyond);
        EXPECT_FALSE(track->setValueForKey(u"added"_s, beyond));
    }
    for (const QString &bad : { half, turned }) {
        track->setTitle(bad);
        track->setComment(u"x"_s + bad);
        track->setExtra(QVariantMap { { u"key"_s, QVariantList { 1, bad } } });
        track->setExtra(QVariantMap { { bad, 1 } });
        EXPECT_FALSE(track->setValueForKey(u"title"_s, bad));
        EXPECT_FALSE(track->setValueForKey(u"extra"_s, QStringList { bad }));
    }
    EXPECT_EQ(log.lines().filter(u"Track"_s).size(), 2 + 2 * 4);
    ASSERT_TRUE(library.context->save());
    EXPECT_EQ(track->title(), u"a"_s);
    EXPECT_EQ(Library::dump(*library.context), Library::dump(*library.otherContext()));
    EXPECT_EQ(in(library.otherContext(), track)->added(), far);
    EXPECT_EQ(
        library.context->countForEntity(u"Track"_s, KXPredicate::predicateWithFormat("added < %@", far.addYears(9))),
        1);
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
    EXPECT_EQ(problems(url), std::string());
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
    EXPECT_EQ(problems(url), std::string());
    EXPECT_FALSE(there->valueForKey(u"parent"_s).isValid()) << "it is where it was";
    EXPECT_TRUE(Notes::isTree(*Context::contextWithPersistentStoreCoordinator(coordinator)));
}

TEST(Folders, ofMovesThatMakeACircleTogetherOneGivesWay)
{
    KXTestRandom random;
    for (int round = KXTestRandom::scaled(100); round > 0 && !testing::Test::HasFailure(); --round) {
        const QTemporaryDir folder;
        const QUrl url = QUrl::fromLocalFile(folder.filePath(u"notes"_s));
        const auto coordinator
            = KXPersistentStoreCoordinator::persistentStoreCoordinatorWithStoreURL(url, Notes::model());
        Context::Ref sides[2] = { Context::contextWithPersistentStoreCoordinator(coordinator),
            Context::contextWithPersistentStoreCoordinator(coordinator) };
        const auto manager = std::make_shared<KXUndoManager>();
        manager->setGroupsByEvent(false);
        if (random.chance(0.5))
            sides[0]->setUndoManager(manager);
        std::vector<Change> pending[2];
        const auto feed = coordinator->addChangeObserver([&](const Change &change) {
            for (int side = 0; side < 2; ++side) {
                if (sides[side].get() != change->originatingContext())
                    pending[side].push_back(change);
            }
        });
        const auto merge = [&](int side) {
            for (const Change &change : std::exchange(pending[side], {}))
                sides[side]->mergeChangesFromStoreChange(change);
        };
        for (int i = 0; i < 6; ++i)
            (void)sides[0]->managedObjectForEntity(u"Folder"_s);
        ASSERT_TRUE(sides[0]->save(nullptr));
        for (int step = 0; step < 60; ++step) {
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
                (void)sides[side]
                    ->managedObjectForEntity(u"Folder"_s)
                    ->setValueForKey(u"parent"_s, Notes::keyed(any()));
            } else if (kind == 8) {
                random.chance(0.7) ? manager->undo() : manager->redo();
            } else if (kind == 9) {
                merge(side);
                EXPECT_TRUE(Notes::isTree(*sides[side])) << "merged at step " << step;
            } else {
                ASSERT_TRUE(sides[side]->save(nullptr));
                EXPECT_EQ(problems(url), std::string()) << "saved at step " << step;
                EXPECT_TRUE(Notes::isTree(*Context::contextWithPersistentStoreCoordinator(coordinator)))
                    << "saved at step " << step;
            }
            if (testing::Test::HasFailure())
                return;
        }
        for (int turn = 0; turn < 2; ++turn) { // with what the first saves the second
            merge(0);
            ASSERT_TRUE(sides[0]->save(nullptr));
            merge(1);
            ASSERT_TRUE(sides[1]->save(nullptr));
        }
        merge(0);
        EXPECT_EQ(problems(url), std::string());
        for (const auto &side : sides) {
            EXPECT_TRUE(Notes::isTree(*side));
            EXPECT_EQ(
                Library::dump(*side), Library::dump(*Context::contextWithPersistentStoreCoordinator(coordinator)));
        }
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
            const auto any = [&](const QString &entity) {
                const auto list = by->fetchAllForEntity(entity);
                return list.isEmpty() ? KXRef<KXManagedObject>() : list.at(random.below(int(list.size())));
            };
            const int kind = random.below(14);
            const auto track = Track::cast(any(u"Track"_s));
            if (kind < 9) {
                const KXUndoGroup group(side == 0 ? manager.get() : nullptr, u"Edit"_s);
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
                    track->setTitle(QString::number(step));
                else
                    Album::createInContext(*by)->setTitle(u"new"_s);
            } else if (kind == 9) {
                random.chance(0.7) ? manager->undo() : manager->redo();
            } else if (kind == 10 && merges) {
                merge(side);
            } else {
                KXError error;
                ASSERT_TRUE(by->save(&error)) << error.localizedDescription().toStdString();
                EXPECT_EQ(problems(meeting.url()), std::string()) << "saved at step " << step;
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
        EXPECT_EQ(problems(meeting.url()), std::string());
        const QStringList stored = Library::dump(*meeting.otherContext());
        EXPECT_EQ(Library::dump(*meeting.context), stored);
        EXPECT_EQ(Library::dump(*meeting.other), stored);
    }
}

}
