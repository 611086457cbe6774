// Observers of keys that do as they like in the midst of an edit: both ends of every link agree afterwards, and nothing
// that is gone is touched.

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <kestrixkit/foundation/KXException.h>
#include <kestrixkit/foundation/KXObserver.h>
#include <kestrixkit/foundation/KXUndoManager.h>

#include "context/Meeting.h"
#include "support/KXTestLog.h"
#include "support/KXTestRandom.h"

using namespace Qt::StringLiterals;

namespace {

/// Some objects, each of whose links somebody watches who may change any other one then.
class Meddlers : public Meeting
{
public:
    explicit Meddlers(KXTestRandom &random)
        : m_random(random)
    {
        for (int i = 0; i < 4; ++i) {
            m_tracks.append(track(QString::number(i)));
            m_albums.append(Album::createInContext(*context));
            m_albums.last()->setTitle(u"album"_s);
            m_genres.append(genre(QString::number(i)));
        }
        EXPECT_TRUE(context->save());
        context->setUndoManager(std::make_shared<KXUndoManager>());
        for (const auto &each : m_tracks)
            watch(each, { u"album"_s, u"original"_s, u"remix"_s, u"genres"_s, u"neighbours"_s });
        for (const auto &each : m_albums)
            watch(each, { u"tracks"_s });
        for (const auto &each : m_genres)
            watch(each, { u"tracks"_s });
    }
    ~Meddlers()
    {
        m_isMeddling = false;
        m_observers.clear();
    }
    void edit()
    {
        const auto one = any(m_tracks), other = any(m_tracks);
        const auto album = any(m_albums);
        const auto genre = any(m_genres);
        if (!one || !other || !album || !genre)
            return;
        switch (m_random.below(18)) {
        case 0:
            one->setAlbum(m_random.chance(0.3) ? nullptr : album);
            break;
        case 1:
            album->addToTracks(one);
            break;
        case 2:
            album->removeFromTracks(one);
            break;
        case 3:
            one->setOriginal(m_random.chance(0.3) ? nullptr : other);
            break;
        case 4:
            one->setRemix(m_random.chance(0.3) ? nullptr : other);
            break;
        case 5:
            one->addToGenres(genre);
            break;
        case 6:
            one->removeFromGenres(genre);
            break;
        case 7:
            genre->addToTracks(one);
            break;
        case 8:
            genre->removeFromTracks(one);
            break;
        case 9:
            one->addToNeighbours(other);
            break;
        case 10:
            one->removeFromNeighbours(other);
            break;
        case 11:
            (void)album->tracks();
            (void)genre->tracks();
            (void)one->genres();
            break;
        case 12:
            EXPECT_TRUE(context->save());
            break;
        case 13:
            if (m_random.chance(0.2))
                context->removeManagedObject(one);
            break;
        case 14:
            if (!one->isUpdated() && !one->isInserted())
                context->refreshObject(one.get());
            break;
        case 15:
            if (context->undoManager()->canUndo() && m_depth == 0)
                context->undoManager()->undo();
            break;
        case 16:
            if (context->undoManager()->canRedo() && m_depth == 0)
                context->undoManager()->redo();
            break;
        case 17:
            editElsewhere(one, other, album, genre);
            break;
        }
    }
    void expectAgreement()
    {
        for (const auto &track : living(m_tracks)) {
            const QList<KXRef<Album>> homes = track->album() ? QList { track->album() } : QList<KXRef<Album>>();
            for (const auto &album : living(m_albums))
                EXPECT_EQ(album->tracks().contains(track), homes.contains(album));
            for (const auto &genre : living(m_genres))
                EXPECT_EQ(genre->tracks().contains(track), track->genres().contains(genre));
            for (const auto &other : living(m_tracks)) {
                EXPECT_EQ(track->neighbours().contains(other), other->neighbours().contains(track));
                EXPECT_EQ(track->original() == other, other->remix() == track);
            }
            for (const auto &other : { track->original(), track->remix() })
                EXPECT_TRUE(!other || !other->isDeleted());
        }
    }

private:
    /// Another context saves something, which is merged at once.
    void editElsewhere(
        const KXRef<Track> &one, const KXRef<Track> &two, const KXRef<Album> &album, const KXRef<Genre> &genre)
    {
        const auto elsewhere = otherContext();
        const auto track = in(elsewhere, one), remix = in(elsewhere, two);
        const auto home = in(elsewhere, album);
        const auto kind = in(elsewhere, genre);
        if (!track || track->isMissing() || !remix || remix->isMissing())
            return;
        switch (m_random.below(5)) {
        case 0:
            track->setAlbum(home);
            break;
        case 1:
            track->setRemix(remix);
            break;
        case 2:
            m_random.chance(0.5) ? track->addToGenres(kind) : track->removeFromGenres(kind);
            break;
        case 3:
            m_random.chance(0.5) ? track->addToNeighbours(remix) : track->removeFromNeighbours(remix);
            break;
        case 4:
            if (m_random.chance(0.2))
                elsewhere->removeManagedObject(track);
            break;
        }
        const size_t before = saved.size();
        EXPECT_TRUE(elsewhere->save());
        for (size_t i = before; i < saved.size(); ++i)
            context->mergeChangesFromStoreChange(saved[i]);
    }
    template <class T> static QList<KXRef<T>> living(const QList<KXRef<T>> &all)
    {
        QList<KXRef<T>> living;
        for (const auto &each : all) {
            if (each->managedObjectContext() && !each->isDeleted())
                living.append(each);
        }
        return living;
    }
    template <class T> KXRef<T> any(const QList<KXRef<T>> &all)
    {
        const auto there = living(all);
        return there.isEmpty() ? KXRef<T>() : m_random.oneOf(there);
    }
    template <class T> void watch(const KXRef<T> &object, const QStringList &keys)
    {
        for (const QString &key : keys)
            m_observers.push_back(KXObserver::observerFor(object.get(), key, {}, [this](const KXKeyValueChange &) {
                if (!m_isMeddling || m_depth >= 2 || !m_random.chance(0.3))
                    return;
                ++m_depth;
                edit();
                --m_depth;
            }));
    }

    KXTestRandom &m_random;
    QList<KXRef<Track>> m_tracks;
    QList<KXRef<Album>> m_albums;
    QList<KXRef<Genre>> m_genres;
    std::vector<std::shared_ptr<KXObserver>> m_observers;
    bool m_isMeddling = true;
    int m_depth = 0;
};

}

TEST(Meddling, bothEndsOfEveryLinkAgreeWhateverObserversDo)
{
    KXTestRandom random;
    for (int round = KXTestRandom::scaled(300); round > 0 && !::testing::Test::HasFailure(); --round) {
        Meddlers library(random);
        for (int step = 0; step < 60 && !::testing::Test::HasFailure(); ++step) {
            library.edit();
            library.context->processPendingChanges(); // ends a step of undo
            library.expectAgreement();
        }
        ASSERT_TRUE(library.context->save());
        library.expectSound("at the end");
    }
}

TEST(Meddling, aMemberIsTakenOutWhoseValuesAreNotInMemory)
{
    LibraryTest library;
    const auto track = library.track(u"a"_s);
    const auto album = Album::createInContext(*library.context);
    album->setTitle(u"One"_s);
    track->setAlbum(album);
    ASSERT_TRUE(library.context->save());
    EXPECT_EQ(album->tracks().size(), 1);
    library.context->refreshObject(track.get());
    album->removeFromTracks(track);
    EXPECT_FALSE(track->album());
    EXPECT_TRUE(album->tracks().isEmpty());
    ASSERT_TRUE(library.context->save());
    EXPECT_TRUE(in(library.otherContext(), album)->tracks().isEmpty());
}

TEST(Meddling, aSaveInTheMidstOfADeletionCompletesIt)
{
    Meeting library;
    const auto track = library.track(u"a"_s), remix = library.track(u"b"_s);
    const auto album = Album::createInContext(*library.context);
    album->setTitle(u"One"_s);
    track->setAlbum(album);
    track->setRemix(remix);
    track->addToGenres(library.genre(u"g"_s));
    ASSERT_TRUE(library.context->save());
    const auto observer
        = album->onChangeOf(u"tracks"_s, [&](const KXKeyValueChange &) { EXPECT_TRUE(library.context->save()); });
    library.context->removeManagedObject(track);
    EXPECT_TRUE(library.context->save());
    EXPECT_FALSE(track->managedObjectContext());
    EXPECT_FALSE(remix->original());
    EXPECT_TRUE(album->tracks().isEmpty());
    library.expectSound("deleted");

    // And one in which the new partner goes.
    const auto one = library.track(u"c"_s), other = library.track(u"d"_s);
    ASSERT_TRUE(library.context->save());
    const auto deletes = one->onChangeOf(u"remix"_s, [&](const KXKeyValueChange &) {
        if (!other->managedObjectContext())
            return;
        library.context->removeManagedObject(other);
        EXPECT_TRUE(library.context->save());
    });
    one->setRemix(other);
    EXPECT_FALSE(one->remix());
    EXPECT_TRUE(library.context->save());
    library.expectSound("the partner is gone");
}

TEST(Meddling, anObserverOfSavesThatThrowsStopsNobody)
{
    LibraryTest library;
    int heard = 0;
    const auto throwing = library.coordinator->addChangeObserver([](const auto &) { throw 1; });
    const auto counting = library.coordinator->addChangeObserver([&](const auto &) { ++heard; });
    for (int saves = 1; saves <= 2; ++saves) {
        library.track(u"a"_s);
        EXPECT_TRUE(library.context->save());
        EXPECT_EQ(heard, saves);
    }
}

/// Whoever is told may hold the last of the context.
TEST(Meddling, anObserverMayLetGoOfTheContextThatTells)
{
    const auto letGo = [](const char *when,
                           const std::function<void(KXManagedObjectContext &, const KXRef<Track> &)> &act) {
        Meeting library;
        const auto saved = library.track(u"a"_s);
        const auto album = Album::createInContext(*library.context);
        album->setTitle(u"One"_s);
        saved->setAlbum(album);
        ASSERT_TRUE(library.context->save());
        KXManagedObjectContext::Ref context = library.otherContext();
        context->setUndoManager(nullptr);
        const auto track = in(context, saved);
        const std::weak_ptr<KXManagedObjectContext> alive = context;
        auto *const raw = context.get();
        const auto all = KXManagedObjectContext::onChange(raw, [&](const KXObjectsDidChange &) { context.reset(); });
        const auto one
            = in(context, album)->onChangeOf(u"tracks"_s, [&](const KXKeyValueChange &) { context.reset(); });
        const auto other = track->onChangeOf(u"title"_s, [&](const KXKeyValueChange &) { context.reset(); });
        act(*raw, track);
        EXPECT_TRUE(alive.expired()) << when;
    };
    letGo("saving", [&](KXManagedObjectContext &context, const KXRef<Track> &track) {
        track->setBpm(99);
        KXError error;
        EXPECT_TRUE(context.save(&error)) << error.localizedDescription().toStdString();
    });
    letGo("deleting", [](KXManagedObjectContext &context, const KXRef<Track> &track) {
        context.deleteObjects({ track, in(context.shared_from_this(), track) });
    });
    letGo("giving up", [&](KXManagedObjectContext &context, const KXRef<Track> &track) {
        track->setBpm(99);
        context.rollback();
    });
    letGo("merging", [&](KXManagedObjectContext &context, const KXRef<Track> &track) {
        std::shared_ptr<const KXStoreChange> change;
        const auto token
            = context.persistentStoreCoordinator()->addChangeObserver([&](const auto &news) { change = news; });
        const auto writer
            = KXManagedObjectContext::contextWithPersistentStoreCoordinator(context.persistentStoreCoordinator());
        in(writer, track)->setTitle(u"c"_s);
        ASSERT_TRUE(writer->save());
        track->setBpm(99);
        context.mergeChangesFromStoreChange(change);
    });
}

/// What was saved is told of, whatever a key's observer throws.
TEST(Meddling, anObserverOfAKeyThatThrowsKeepsNobodyFromAMerge)
{
    Meeting library;
    const auto a = library.track(u"a"_s), b = library.track(u"b"_s);
    ASSERT_TRUE(library.context->save());
    in(library.other, a)->setTitle(u"A"_s);
    in(library.other, b)->setTitle(u"B"_s);
    ASSERT_TRUE(library.other->save());
    int heard = 0;
    const auto throwing = a->onChangeOf(u"title"_s, [](const KXKeyValueChange &) { throw std::runtime_error("no"); });
    const auto alsoThrowing = b->onChangeOf(u"title"_s, [&](const KXKeyValueChange &) {
        ++heard;
        throw 1;
    });
    Announced announced(library.context);
    const KXTestLog log;
    library.mergeInto(library.context, { 1 });
    EXPECT_EQ(heard, 1);
    EXPECT_EQ(announced.refreshed.size(), 2);
    EXPECT_TRUE(log.contains(u"observers of a merge"_s));
    EXPECT_EQ(a->title(), u"A"_s);
}

/// A fetch or a count that could not read what it has to look at has no answer, rather than a small one.
TEST(Meddling, rowsThatCannotBeReadAreNoAnswer)
{
    Meeting library;
    library.track(u"a"_s)->setExtra(5);
    ASSERT_TRUE(library.context->save());
    const auto fresh = library.otherContext();
    sqlite3 *file = nullptr;
    ASSERT_EQ(sqlite3_open(library.path().toUtf8().constData(), &file), SQLITE_OK);
    const auto rename = [file](const char *from, const char *to, const char *version) {
        const QByteArray sql = QByteArray("PRAGMA writable_schema=ON; UPDATE sqlite_master SET sql = replace(sql, '")
            + from + "', '" + to
            + "') WHERE name = 'Track'; PRAGMA writable_schema=RESET; PRAGMA schema_version=" + version;
        return sqlite3_exec(file, sql.constData(), nullptr, nullptr, nullptr);
    };
    ASSERT_EQ(rename("\"extra\"", "\"away\"", "1001"), SQLITE_OK);
    const KXTestLog log;
    KXError error;
    const KXFetchRequest inMemory(u"Track"_s, KXPredicate::predicateWithFormat("extra == 5"));
    EXPECT_EQ(fresh->count(inMemory, &error), -1);
    EXPECT_TRUE(error);
    EXPECT_TRUE(log.contains(u"no such column"_s));
    ASSERT_EQ(rename("\"away\"", "\"extra\"", "1002"), SQLITE_OK);
    sqlite3_close(file);
    EXPECT_EQ(fresh->count(inMemory, &error), 1);
}

/// Lists of members that a path leads through have been something before.
TEST(Meddling, anObserverOfAPathThroughMembersIsGivenWhatItLedTo)
{
    LibraryTest library;
    const auto album = Album::createInContext(*library.context);
    album->setTitle(u"One"_s);
    library.track(u"a"_s)->setAlbum(album);
    QVariant before, after;
    const auto observer = KXObserver::observerFor(album.get(), u"tracks.title"_s,
        KXObservingOptionOld | KXObservingOptionNew, [&](const KXKeyValueChange &change) {
            EXPECT_EQ(change.kind, KXChangeKind::Setting);
            before = change.oldValue;
            after = change.newValue;
        });
    const auto added = library.track(u"b"_s);
    album->addToTracks(added);
    EXPECT_EQ(before.toStringList(), QStringList { u"a"_s });
    EXPECT_EQ(after.toStringList().size(), 2);
}
