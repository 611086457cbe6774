// What a context promises about its objects: identity, values, both ends of relationships, delete rules, announcements.

#include <limits>

#include <QCoreApplication>
#include <QTest>
#include <gtest/gtest.h>

#include <kestrixkit/foundation/KXException.h>
#include <kestrixkit/foundation/KXNotificationCenter.h>
#include <kestrixkit/foundation/KXObserver.h>
#include <kestrixkit/foundation/KXUserDefaults.h>

#include "store/Library.h"

using namespace Qt::StringLiterals;

namespace {

QStringList titles(const KXFetchedList &list)
{
    QStringList titles;
    for (qsizetype i = 0; i < list.size(); ++i)
        titles.append(list.as<Track>(i)->title());
    titles.sort();
    return titles;
}

}

TEST(Context, listsAreTyped)
{
    LibraryTest library;
    const auto a = library.track(u"a"_s), b = library.track(u"b"_s);
    const auto house = Genre::createInContext(*library.context), techno = Genre::createInContext(*library.context);
    a->setGenres({ house, techno });
    b->setGenres(a->genres());
    EXPECT_EQ(b->genres().size(), 2);
    QStringList titles;
    for (const KXRef<Track> &track : Track::findAllInContext(*library.context))
        titles.append(track->title());
    titles.sort();
    EXPECT_EQ(titles, (QStringList { u"a"_s, u"b"_s }));
    const KXFetchedListOf<Genre> genres = Genre::findAllInContext(*library.context);
    EXPECT_EQ(genres.toList().size(), 2);
    EXPECT_FALSE(genres.at(2));
    EXPECT_EQ(genres[0]->tracks().size(), 2);
    a->setGenres({});
    EXPECT_TRUE(a->genres().isEmpty());
}

TEST(Context, everyKindOfValueSurvivesSavingAndReopening)
{
    LibraryTest library;
    const QDateTime added = QDateTime::fromMSecsSinceEpoch(-86'400'123, Qt::UTC); // before 1970, with milliseconds
    const QUuid uuid = QUuid::createUuid();
    const QString title = u"Déjà \U0001F3B5 Vu\u0000!"_s; // with a NUL inside
    const QVariant extras[] = { u"5"_s, 5, 5.5, QVariantList { 1, u"1"_s, true },
        QVariantMap { { u"a"_s, QVariant::fromValue(*KXDecimal::fromString(u"1.10"_s)) } } };
    QUrl uri;
    {
        auto track = library.track(title);
        track->setBpm(127.98);
        track->setYear(-32768);
        track->setPlays(std::numeric_limits<qint64>::max());
        track->setLoved(true);
        track->setAdded(added);
        track->setPrice(KXDecimal::fromString(u"0.10"_s));
        track->setFile(QUrl(u"file:///music/a%20b.flac"_s));
        track->setUuid(uuid);
        track->setCover(QByteArray("\0\1\2", 3));
        track->setExtra(QVariantList(std::begin(extras), std::end(extras)));
        track->setComment(u""_s);
        track->setScratch(u"only in memory"_s);
        uri = track->objectID().URIRepresentation();
        ASSERT_TRUE(library.context->save());
    }
    library.reopen();
    const auto found = library.context->objectInstancesFromURIRepresentations(
        { QUrl(u"x-kestrix-store://other/Track/p1"_s), QUrl(u"nonsense"_s), uri });
    ASSERT_EQ(found.size(), 1);
    auto track = Track::cast(found.first());
    EXPECT_TRUE(track->isFault());
    EXPECT_EQ(track->title(), title);
    EXPECT_EQ(track->awakened, 1);
    EXPECT_EQ(track->bpm(), 127.98);
    EXPECT_EQ(track->year(), -32768);
    EXPECT_EQ(track->plays(), std::numeric_limits<qint64>::max());
    EXPECT_TRUE(track->loved());
    EXPECT_EQ(track->added(), added);
    EXPECT_EQ(track->price(), KXDecimal::fromString(u"0.1"_s));
    EXPECT_EQ(track->file(), QUrl(u"file:///music/a%20b.flac"_s));
    EXPECT_EQ(track->uuid(), uuid);
    EXPECT_EQ(track->cover(), QByteArray("\0\1\2", 3));
    EXPECT_EQ(track->extra().toList()[0].typeId(), int(QMetaType::QString));
    EXPECT_EQ(track->extra().toList()[1], QVariant(5));
    EXPECT_EQ(track->extra().toList()[4].toMap()[u"a"_s].value<KXDecimal>(), *KXDecimal::fromString(u"1.1"_s));
    EXPECT_EQ(track->comment(), u""_s); // empty, not absent
    EXPECT_EQ(track->identifier(), std::nullopt);
    EXPECT_EQ(track->scratch(), std::nullopt);
    EXPECT_EQ(track->objectID().URIRepresentation(), uri);
    EXPECT_EQ(library.context->objectWithID(track->objectID()), track);
    // A predicate that names an object means the same after having been text.
    const auto named
        = KXPredicate::predicateWithText(KXPredicate::predicateWithFormat("SELF == %@", track).predicateFormat());
    EXPECT_TRUE(named.evaluateWithObject(track.get()));
    EXPECT_EQ(library.context->countForEntity(u"Track"_s, named), 1);
}

TEST(Context, refusesValuesThatDoNotFitAndKeysThatDoNotExist)
{
    LibraryTest library;
    auto track = library.track(u"a"_s);
    track->setYear(1999);
    track->setYear(40'000); // no 16-bit number
    EXPECT_EQ(track->year(), 1999);
    EXPECT_FALSE(track->setValueForKey(u"year"_s, u"fast"_s));
    EXPECT_FALSE(track->setValueForKey(u"year"_s, 2.5));
    EXPECT_TRUE(track->setValueForKey(u"year"_s, u"2001"_s));
    EXPECT_EQ(track->year(), 2001);
    EXPECT_THROW(track->setValueForKey(u"nothing"_s, 1), KXException);
    EXPECT_THROW((void)track->valueForKey(u"nothing"_s), KXException);
    EXPECT_THROW((void)library.context->managedObjectForEntity(u"Nothing"_s), KXException);
    EXPECT_THROW((void)library.context->countForEntity(u"Track"_s, KXPredicate::predicateWithFormat("nothing == 1")),
        KXException);
    EXPECT_THROW((void)library.context->countUsingTemplate(u"nothing"_s), KXException);

    // What must not be stored keeps the save from happening, and all that is unsaved stays for another try.
    track->setBpm(std::numeric_limits<double>::quiet_NaN());
    KXError error;
    EXPECT_FALSE(library.context->save(&error));
    EXPECT_TRUE(error.localizedDescription().contains(u"bpm"_s)) << error.localizedDescription().toStdString();
    track->setBpm(std::nullopt);
    auto untitled = Track::createInContext(*library.context);
    EXPECT_FALSE(library.context->save(&error));
    EXPECT_TRUE(error.localizedDescription().contains(u"title"_s));
    untitled->setTitle(u"b"_s);
    EXPECT_TRUE(library.context->save(&error));
    EXPECT_EQ(library.otherContext()->countForEntity(u"Track"_s), 2);
    EXPECT_TRUE(library.context->save(&error)) << "without changes";
}

TEST(Context, keepsBothEndsOfRelationshipsRight)
{
    LibraryTest library;
    auto album = Album::createInContext(*library.context);
    album->setTitle(u"One"_s);
    auto other = Album::createInContext(*library.context);
    other->setTitle(u"Two"_s);
    auto a = library.track(u"a"_s);
    auto b = library.track(u"b"_s);
    auto c = library.track(u"c"_s);
    auto house = library.genre(u"House"_s);
    ASSERT_TRUE(library.context->save());

    QList<int> kinds;
    auto observer
        = album->onChangeOf(u"tracks"_s, [&](const KXKeyValueChange &change) { kinds.append(int(change.kind)); });
    a->setAlbum(album);
    album->addToTracks(b);
    b->setAlbum(other); // leaves the first
    album->addToTracks(a); // is there already
    EXPECT_EQ(kinds, (QList<int> { 2, 2, 3 }));
    EXPECT_EQ(album->tracks(), QList { a });
    EXPECT_EQ(other->tracks(), QList { b });
    EXPECT_TRUE(album->isUpdated() && a->isUpdated());
    EXPECT_EQ(album->changedKeys(), QSet<QString> { u"tracks"_s });

    // One to one: a partner that is taken leaves the former one alone.
    a->setRemix(b);
    c->setRemix(b);
    EXPECT_EQ(b->original(), c);
    EXPECT_FALSE(a->remix());

    // Many to many, and a relationship that is its own inverse.
    a->setGenres({ house });
    b->addToGenres(house);
    a->addToNeighbours(b);
    EXPECT_EQ(house->tracks(), (QList { a, b }));
    EXPECT_EQ(b->neighbours(), QList { a });
    ASSERT_TRUE(library.context->save());
    b->removeFromGenres(house);
    ASSERT_TRUE(library.context->save());

    auto context = library.otherContext();
    EXPECT_EQ(Genre::findFirstUsingPredicate({}, *context)->tracks().size(), 1);
    auto again = Track::findFirstUsingPredicate(KXPredicate::predicateWithFormat("title == %@", u"b"_s), *context);
    EXPECT_EQ(again->neighbours().size(), 1);
    EXPECT_EQ(again->neighbours().first()->title(), u"a"_s);
    EXPECT_EQ(again->original()->title(), u"c"_s);
    EXPECT_EQ(again->album()->title(), u"Two"_s);

    // Objects without a context, or of another one, are not connected.
    auto temporary = Track::createTemporaryInstanceInContext(*library.context);
    temporary->setTitle(u"temporary"_s);
    album->addToTracks(temporary);
    temporary->setAlbum(album);
    EXPECT_EQ(album->tracks().size(), 1);
    EXPECT_FALSE(temporary->album() || temporary->isInserted());
    EXPECT_EQ(temporary->title(), u"temporary"_s);
    EXPECT_THROW(album->addToTracks(again), KXException);
    EXPECT_FALSE(library.context->hasChanges());
}

TEST(Context, appliesDeleteRules)
{
    LibraryTest library;
    auto album = Album::createInContext(*library.context);
    album->setTitle(u"One"_s);
    auto artist = Producer::createInContext(*library.context);
    album->setArtist(artist);
    auto house = library.genre(u"House"_s);
    auto tag = Tag::createInContext(*library.context);
    tag->setName(u"keep"_s);
    for (const auto title : { "a"_L1, "b"_L1, "c"_L1 }) {
        auto track = library.track(title);
        track->addToGenres(house);
        if (title != "c"_L1)
            album->addToTracks(track);
        else
            tag->addToMembers(track);
    }
    ASSERT_TRUE(library.context->save());
    library.reopen();

    auto &context = *library.context;
    album = Album::findFirstUsingPredicate({}, context);
    house = Genre::findFirstUsingPredicate({}, context);
    artist = Producer::findFirstUsingPredicate({}, context);
    const auto tracks = album->tracks();
    context.removeManagedObject(album); // cascades to its two tracks, which leave the genre
    context.removeManagedObject(album);
    EXPECT_EQ(tracks[0]->prepared, 1);
    EXPECT_TRUE(tracks[0]->isDeleted() && tracks[1]->isDeleted());
    EXPECT_EQ(tracks[0]->title(), u"a"_s) << "a deleted object keeps its values";
    EXPECT_TRUE(house->isUpdated());
    EXPECT_EQ(house->tracks().size(), 1);
    EXPECT_TRUE(artist->albums().isEmpty());
    EXPECT_EQ(context.countForEntity(u"Track"_s), 1);
    ASSERT_TRUE(context.save());
    EXPECT_FALSE(tracks[0]->isDeleted());
    EXPECT_EQ(tracks[0]->managedObjectContext(), nullptr);
    EXPECT_EQ(tracks[0]->title(), QString());

    // A tag that has members cannot go; with its members it can.
    tag = Tag::findFirstUsingPredicate({}, context);
    context.removeManagedObject(tag);
    KXError error;
    EXPECT_FALSE(context.save(&error));
    EXPECT_TRUE(error.localizedDescription().contains(u"members"_s));
    context.removeManagedObject(tag->members().first());
    EXPECT_TRUE(context.save(&error));
    EXPECT_EQ(library.otherContext()->countForEntity(u"Tag"_s), 0);

    // Keys of what is gone are never given out again, also after the file was closed.
    const QUrl gone = library.genre(u"x"_s)->objectID().URIRepresentation();
    context.rollback();
    library.reopen();
    EXPECT_NE(library.genre(u"y"_s)->objectID().URIRepresentation(), gone);
}

TEST(Context, fetchesSeeUnsavedChanges)
{
    LibraryTest library;
    auto house = library.genre(u"House"_s);
    auto techno = library.genre(u"Techno"_s);
    for (int i = 0; i < 10; ++i) {
        auto track = library.track(QString::number(i));
        track->setBpm(120 + i);
        track->addToGenres(i % 2 ? house : techno);
    }
    ASSERT_TRUE(library.context->save());
    auto &context = *library.context;
    const auto isHouse = KXPredicate::predicateWithFormat("ANY genres.name == %@", u"House"_s);
    const auto sorted = [&](const KXPredicate &predicate) {
        QStringList list;
        for (const auto &object :
            context.fetch(KXFetchRequest(u"Track"_s, predicate).setSortDescriptors({ { u"bpm"_s, false } })))
            list.append(Track::cast(object)->title());
        return list.join(u',');
    };
    EXPECT_EQ(sorted(isHouse), u"9,7,5,3,1"_s);

    // A related object renamed, one moved to another place in the order, one new, one deleted, one that left.
    house->setName(u"Deep House"_s);
    techno->setName(u"House"_s);
    EXPECT_EQ(sorted(isHouse), u"8,6,4,2,0"_s);
    EXPECT_EQ(context.countForEntity(u"Track"_s, isHouse), 5);
    auto newest = library.track(u"new"_s);
    newest->setBpm(125.5);
    newest->addToGenres(techno);
    Track::findFirstUsingPredicate(KXPredicate::predicateWithFormat("title == '0'"), context)->setBpm(200);
    auto eight = Track::findFirstUsingPredicate(KXPredicate::predicateWithFormat("title == '8'"), context);
    eight->setGenres({});
    context.removeManagedObject(
        Track::findFirstUsingPredicate(KXPredicate::predicateWithFormat("title == '6'"), context));
    EXPECT_EQ(sorted(isHouse), u"0,new,4,2"_s);
    EXPECT_EQ(context.countForEntity(u"Track"_s, isHouse), 4);
    EXPECT_EQ(context.count(KXFetchRequest(u"Track"_s, isHouse).setFetchOffset(1).setFetchLimit(2)), 2);
    const auto page = context.fetch(KXFetchRequest(u"Track"_s, isHouse)
                                        .setSortDescriptors({ { u"bpm"_s, false } })
                                        .setFetchOffset(1)
                                        .setFetchLimit(2));
    EXPECT_EQ(titles(page), (QStringList { u"4"_s, u"new"_s }));

    // What SQL cannot say is looked at in memory.
    eight->setScratch(u"x"_s);
    EXPECT_EQ(titles(context.fetchForEntity(u"Track"_s, KXPredicate::predicateWithFormat("scratch == 'x'"))),
        QStringList { u"8"_s });

    context.rollback();
    EXPECT_EQ(sorted(isHouse), u"9,7,5,3,1"_s);
    EXPECT_FALSE(newest->managedObjectContext());
    EXPECT_EQ(eight->genres().size(), 1);
}

TEST(Context, fetchesByTemplateAndIdentifier)
{
    LibraryTest library;
    auto &context = *library.context;
    auto track = library.track(u"a"_s);
    track->setIdentifier(u"i1"_s);
    track->setComment(u"anything"_s);
    track->setLoved(true);
    EXPECT_EQ(Track::findWithIdentifier(u"i1"_s, context), track);
    EXPECT_FALSE(Track::findWithIdentifier(u"i2"_s, context));
    EXPECT_TRUE(Track::existsWithIdentifier(u"i1"_s, context));
    EXPECT_EQ(context.countFor(u"i1"_s, u"commentedBy"_s), 1); // without a user, any comment
    KXUserDefaults::standard().setValue(u"kestrixUsername"_s, u"someone"_s);
    EXPECT_EQ(context.countFor(u"i1"_s, u"commentedBy"_s), 0);
    KXUserDefaults::standard().remove(u"kestrixUsername"_s);
    EXPECT_EQ(context.countUsingTemplate(u"loved"_s), 1);
    EXPECT_EQ(context.fetchFirstFor(u"i1"_s, u"byIdentifier"_s), track);
    EXPECT_EQ(
        context.fetchUsingTemplate(u"byIdentifier"_s, { { u"IDENTIFIER"_s, u"i1"_s } }, u"title"_s, true).size(), 1);
    for (int i = 1; i < 256; ++i)
        library.track(u"copy"_s)->setIdentifier(u"i1"_s);
    EXPECT_FALSE(Track::existsWithIdentifier(u"i1"_s, context)) << "only the low eight bits of the number count";
}

TEST(Context, announcesChangesOnceATurn)
{
    LibraryTest library;
    auto &context = *library.context;
    QList<KXObjectsDidChange> posts;
    bool held = false;
    auto token = KXNotificationCenter::defaultCenter().addObserver(
        QString(KXManagedObjectContextObjectsDidChangeNotification), &context, [&](const KXNotification &notification) {
            posts.append(*notification.payloadAs<KXObjectsDidChange>());
            for (const auto &object : posts.last().inserted)
                held = held || object->isInserted();
            if (posts.size() == 1)
                context.processPendingChanges(); // marks it due, and returns
        });
    auto a = library.track(u"a"_s);
    auto b = library.track(u"b"_s);
    auto gone = library.track(u"c"_s);
    context.removeManagedObject(gone);
    EXPECT_TRUE(posts.isEmpty());
    QCoreApplication::processEvents();
    ASSERT_EQ(posts.size(), 1);
    EXPECT_EQ(posts[0].inserted, (QList<KXRef<KXManagedObject>> { a, b }));
    EXPECT_TRUE(held);
    EXPECT_TRUE(posts[0].updated.isEmpty() && posts[0].deleted.isEmpty());

    a->setBpm(120);
    a->setTitle(u"A"_s);
    EXPECT_EQ(context.countForEntity(u"Track"_s), 2); // completes what it needs, posts nothing
    ASSERT_EQ(posts.size(), 1);
    ASSERT_TRUE(context.save()); // posts before it saves
    ASSERT_EQ(posts.size(), 2);
    EXPECT_EQ(posts[1].changedKeys[a.get()], (QSet<QString> { u"bpm"_s, u"title"_s }));
    context.removeManagedObject(b);
    context.processPendingChanges();
    ASSERT_EQ(posts.size(), 3);
    EXPECT_EQ(posts[2].deleted, QList<KXRef<KXManagedObject>> { b });
    ASSERT_TRUE(context.save());
    QCoreApplication::processEvents();
    EXPECT_EQ(posts.size(), 3);
}

TEST(Context, publishesEachSaveToTheFeed)
{
    LibraryTest library;
    std::vector<std::shared_ptr<const KXStoreChange>> feed;
    auto token = library.coordinator->addChangeObserver([&](const auto &change) { feed.push_back(change); });
    auto house = library.genre(u"House"_s);
    auto track = library.track(u"a"_s);
    ASSERT_TRUE(library.context->save());
    const KXEntityDescription *tracks = library.coordinator->model()->entity(u"Track"_s);
    ASSERT_EQ(feed.size(), 1u);
    EXPECT_EQ(feed[0]->changeOf(tracks)->inserted, QList<qint64> { track->objectID().key() });

    track->setBpm(128);
    track->addToGenres(house);
    ASSERT_TRUE(library.context->save());
    ASSERT_TRUE(library.context->save()); // nothing: not published
    ASSERT_EQ(feed.size(), 2u);
    EXPECT_EQ(feed[1]->serialNumber(), 2u);
    EXPECT_EQ(feed[1]->originatingContext(), library.context.get());
    const auto &properties = feed[1]->changeOf(tracks)->updated.at(0).properties;
    ASSERT_EQ(properties.size(), 2u);
    EXPECT_EQ(properties[0].property->name(), u"bpm"_s);
    EXPECT_EQ(properties[0].newValue, QVariant(128.0));
    EXPECT_FALSE(properties[0].oldValue.isValid());
    EXPECT_EQ(properties[1].added, QList<qint64> { house->objectID().key() });

    library.context->removeManagedObject(track);
    ASSERT_TRUE(library.context->save());
    EXPECT_EQ(feed[2]->changeOf(tracks)->deleted.size(), 1);
    EXPECT_EQ(feed[2]->changeOf(house->entity())->updated.at(0).properties[0].removed.size(), 1);
    token.reset();
    library.track(u"b"_s);
    ASSERT_TRUE(library.context->save());
    EXPECT_EQ(feed.size(), 3u);
}

TEST(Context, settlesConflictsForTheStorePropertyByProperty)
{
    LibraryTest library;
    auto mine = library.track(u"a"_s);
    auto doomed = library.track(u"b"_s);
    ASSERT_TRUE(library.context->save());
    auto context = library.otherContext();
    auto theirs = Track::cast(context->objectWithID(mine->objectID()));
    theirs->setTitle(u"theirs"_s);
    theirs->setBpm(100);
    context->removeManagedObject(context->objectWithID(doomed->objectID()));
    ASSERT_TRUE(context->save());

    mine->setTitle(u"mine"_s);
    mine->setYear(2020);
    doomed->setTitle(u"mine"_s);
    ASSERT_TRUE(library.context->save());
    EXPECT_EQ(mine->title(), u"theirs"_s); // both changed it: the store's value stays
    EXPECT_EQ(mine->year(), 2020);
    EXPECT_EQ(mine->bpm(), 100);
    EXPECT_TRUE(doomed->isMissing());
    mine->setTitle(u"now"_s);
    ASSERT_TRUE(library.context->save()); // on the version that the conflict left
    context = library.otherContext();
    EXPECT_EQ(context->countForEntity(
                  u"Track"_s, KXPredicate::predicateWithFormat("title == 'now' AND year == 2020 AND bpm == 100")),
        1);
    EXPECT_EQ(context->countForEntity(u"Track"_s), 1);
}

/// The stored columns of such an object are kept nowhere but in itself, until one of them is edited.
TEST(Context, whatIsStoredIsKnownOfAnObjectOfWhichMembersAloneChanged)
{
    LibraryTest library;
    const auto album = Album::createInContext(*library.context);
    album->setTitle(u"stored"_s);
    const auto track = library.track(u"member"_s);
    ASSERT_TRUE(library.context->save());
    const auto token = library.coordinator->addChangeObserver([&](const std::shared_ptr<const KXStoreChange> &change) {
        if (change->originatingContext() != library.context.get())
            library.context->mergeChangesFromStoreChange(change);
    });
    const auto committed = [&] { return album->committedValueForKey(u"title"_s).toString(); };
    const auto renameElsewhere = [&](const QString &title) {
        const auto other = library.otherContext();
        Album::cast(other->objectWithID(album->objectID()))->setTitle(title);
        EXPECT_TRUE(other->save());
    };

    track->setAlbum(album);
    EXPECT_TRUE(album->isUpdated());
    EXPECT_EQ(album->changedKeys(), QSet<QString> { u"tracks"_s });
    EXPECT_EQ(committed(), u"stored"_s);
    EXPECT_TRUE(album->committedValueForKey(u"tracks"_s).toList().isEmpty());
    renameElsewhere(u"theirs"_s); // before it is edited here: the edit is one of that
    album->setTitle(u"mine"_s);
    EXPECT_EQ(committed(), u"theirs"_s);
    EXPECT_EQ(album->changedKeys(), QSet<QString>({ u"tracks"_s, u"title"_s }));
    library.context->rollback();
    EXPECT_EQ(album->title(), u"theirs"_s);
    EXPECT_TRUE(album->tracks().isEmpty());
    EXPECT_FALSE(album->hasChanges());

    track->setAlbum(album);
    library.context->removeManagedObject(album); // with its members
    library.context->rollback();
    EXPECT_EQ(album->title(), u"theirs"_s);
    EXPECT_FALSE(track->album());

    track->setAlbum(album);
    ASSERT_TRUE(library.context->save());
    EXPECT_FALSE(album->hasChanges());
    renameElsewhere(u"last"_s);
    EXPECT_EQ(album->title(), u"last"_s) << "the members were saved without the columns";
    EXPECT_EQ(album->tracks().size(), 1);
}

TEST(Context, objectsLiveAsLongAsTheyAreNeeded)
{
    LibraryTest library;
    for (int i = 0; i < 21'000; ++i) {
        auto track = library.track(QString::number(i));
        track->setPlays(i);
    }
    auto artist = Person::createInContext(*library.context);
    const auto artistID = artist->objectID();
    artist.reset();
    ASSERT_TRUE(library.context->save());
    library.reopen();
    auto &context = *library.context;
    const auto list = context.fetch(KXFetchRequest(u"Track"_s).setSortDescriptors({ { u"plays"_s, true } }));
    ASSERT_EQ(list.size(), 21'000);
    EXPECT_FALSE(context.registeredObjectWithID(list.objectID(0))) << "fetching makes no objects";
    const KXRef<Track> held = list.as<Track>(0);
    (void)list.at(300); // with the second batch
    int calls = 0;
    list.as<Track>(1)->onChangeOf(u"title"_s, [&](const KXKeyValueChange &) { ++calls; });
    list.as<Track>(2)->setTitle(u"dirty"_s);
    for (const auto &object : list)
        EXPECT_FALSE(object->isFault());
    EXPECT_EQ(list.at(0), held);
    EXPECT_TRUE(context.registeredObjectWithID(list.objectID(1))) << "observed";
    EXPECT_TRUE(context.registeredObjectWithID(list.objectID(2))) << "dirty";
    EXPECT_FALSE(context.registeredObjectWithID(list.objectID(300))) << "neither";
    list.as<Track>(1)->setTitle(u"seen"_s);
    EXPECT_EQ(calls, 1);
    (void)Person::findFirstUsingPredicate({}, context);
    EXPECT_TRUE(context.registeredObjectWithID(artistID)) << "resident";

    // A row that goes while somebody holds its identifier.
    auto other = library.otherContext();
    other->removeManagedObject(other->objectWithID(list.objectID(500)));
    ASSERT_TRUE(other->save());
    const auto missing = Track::cast(context.objectWithID(list.objectID(500)));
    context.refreshObject(missing.get());
    EXPECT_TRUE(missing->isMissing());
    EXPECT_EQ(missing->title(), QString());
    missing->setTitle(u"x"_s);
    context.removeManagedObject(missing);
    EXPECT_FALSE(missing->hasChanges());

    // Objects outlive their context, with what they have read.
    const auto id = held->objectID();
    library.context.reset();
    EXPECT_EQ(held->title(), u"0"_s);
    EXPECT_EQ(held->objectID(), id);
    EXPECT_FALSE(list.at(0));
}

TEST(Context, familiesShareATable)
{
    LibraryTest library;
    auto person = Person::createInContext(*library.context);
    person->setName(u"P"_s);
    auto producer = Producer::createInContext(*library.context);
    producer->setName(u"Q"_s);
    producer->setStudio(u"S"_s);
    ASSERT_TRUE(library.context->save());
    library.reopen();
    EXPECT_EQ(Person::countOfInContext(*library.context), 2);
    const auto producers = Producer::findAllInContext(*library.context);
    ASSERT_EQ(producers.size(), 1);
    EXPECT_EQ(producers.as<Producer>(0)->studio(), u"S"_s);
    EXPECT_EQ(Producer::cast(
                  Person::findFirstUsingPredicate(KXPredicate::predicateWithFormat("name == 'Q'"), *library.context))
                  ->studio(),
        u"S"_s);
}
