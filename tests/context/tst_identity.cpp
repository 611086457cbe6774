// One object a key, whatever identifiers are asked for, and what such an object knows of itself.

#include <QCoreApplication>
#include <gtest/gtest.h>

#include "context/Meeting.h"
#include "support/KXTestLog.h"
#include "support/KXTestRandom.h"

using namespace Qt::StringLiterals;

namespace identity_test {

using Context = KXManagedObjectContext;

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
    context.setUndoManager(nullptr); // whose steps hold what they bring back
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
    EXPECT_EQ(log.lines().filter(u"Track"_s).size(), 2 * 2 + 2 * 6);
    ASSERT_TRUE(library.context->save());
    EXPECT_EQ(track->title(), u"a"_s);
    EXPECT_EQ(Library::dump(*library.context), Library::dump(*library.otherContext()));
    EXPECT_EQ(in(library.otherContext(), track)->added(), far);
    EXPECT_EQ(
        library.context->countForEntity(u"Track"_s, KXPredicate::predicateWithFormat("added < %@", far.addYears(9))),
        1);
}

}
