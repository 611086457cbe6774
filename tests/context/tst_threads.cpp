// Many threads on one store: what they save comes out whole, in order, and as the change feed says.

#include <latch>
#include <mutex>
#include <semaphore>
#include <thread>

#include <gtest/gtest.h>

#include <kestrixkit/store/KXPersistentStore_p.h>

#include "store/Library.h"
#include "support/FaultVfs.h"
#include "support/KXTestLog.h"
#include "support/KXTestPrint.h"
#include "support/KXTestRandom.h"

using namespace Qt::StringLiterals;

namespace {

/// Follows the store by its change feed alone, and notices whatever does not fit what came before.
class Replay
{
public:
    void take(const KXStoreChange &change)
    {
        const std::lock_guard lock(m_mutex);
        EXPECT_EQ(change.serialNumber(), ++m_serial);
        for (const KXEntityChange &entity : change.entities()) {
            Rows &rows = m_rows[entity.entity->name()];
            for (const qint64 key : entity.inserted) {
                EXPECT_FALSE(rows.contains(key)) << "inserted twice: " << key;
                rows.insert(key, {});
            }
            for (const KXRowChange &row : entity.updated) {
                EXPECT_TRUE(rows.contains(row.key)) << "changed, but not there: " << row.key;
                for (const KXPropertyChange &property : row.properties)
                    follow(rows[row.key], property);
            }
        }
        for (const KXEntityChange &entity : change.entities()) {
            for (const qint64 key : entity.deleted) {
                EXPECT_EQ(m_rows[entity.entity->name()].remove(key), 1) << "deleted, but not there: " << key;
                for (Rows &rows : m_rows) {
                    for (Row &row : rows)
                        row.tracks.remove(key);
                }
            }
        }
    }

    /// Compares with what the context reads.
    void expectSame(KXManagedObjectContext &context) const
    {
        for (auto rows = m_rows.begin(); rows != m_rows.end(); ++rows) {
            const KXFetchedList list = context.fetchAllForEntity(rows.key());
            const QList<qint64> keys = rows->keys();
            EXPECT_EQ(QSet<qint64>(list.keys().begin(), list.keys().end()), QSet<qint64>(keys.begin(), keys.end()));
            for (const auto &object : list) {
                const Row row = rows->value(object->objectID().key());
                for (auto it = row.values.begin(); it != row.values.end(); ++it)
                    EXPECT_EQ(object->valueForKey(it.key()).toString(), it.value().toString())
                        << it.key().toStdString();
                if (const auto genre = Genre::cast(object)) {
                    QSet<qint64> tracks;
                    for (const auto &track : genre->tracks())
                        tracks.insert(track->objectID().key());
                    EXPECT_EQ(tracks, row.tracks);
                }
            }
        }
    }

private:
    struct Row
    {
        QMap<QString, QVariant> values; // of attributes changed since the row was inserted
        QSet<qint64> tracks; // of a genre; they are inserted without
    };
    using Rows = QHash<qint64, Row>;

    static void follow(Row &row, const KXPropertyChange &change)
    {
        const QString name = change.property->name();
        if (change.property->isAttribute()) {
            if (row.values.contains(name)) {
                EXPECT_EQ(row.values[name].toString(), change.oldValue.toString()) << name.toStdString();
            }
            EXPECT_NE(change.oldValue, change.newValue) << name.toStdString();
            row.values[name] = change.newValue;
        } else if (name == "tracks"_L1) {
            for (const qint64 key : change.removed)
                EXPECT_TRUE(row.tracks.remove(key)) << "removed, but not there: " << key;
            for (const qint64 key : change.added) {
                EXPECT_FALSE(row.tracks.contains(key)) << "added twice: " << key;
                row.tracks.insert(key);
            }
        }
    }

    std::mutex m_mutex;
    quint64 m_serial = 0;
    QMap<QString, Rows> m_rows;
};

/// Random work in a context of the calling thread on objects that others work on, too.
void work(const KXPersistentStoreCoordinator::Ref &coordinator, quint64 seed, int saves)
{
    std::mt19937_64 random(seed);
    const auto below
        = [&random](qsizetype end) { return std::uniform_int_distribution<qsizetype>(0, end - 1)(random); };
    const auto context = KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator);
    for (int save = 0; save < saves; ++save) {
        const KXFetchedList tracks = context->fetchAllForEntity(u"Track"_s);
        const KXFetchedList genres = context->fetchAllForEntity(u"Genre"_s);
        for (qsizetype changes = below(6); changes >= 0; --changes) {
            const auto track = tracks.as<Track>(below(tracks.size()));
            const auto genre = genres.as<Genre>(below(genres.size()));
            switch (track && !track->isDeleted() ? below(8) : 0) {
            case 0: {
                const auto added = Track::createInContext(*context);
                added->setTitle(u"new"_s);
                added->addToGenres(genre);
                break;
            }
            case 1:
                context->removeManagedObject(track);
                break;
            case 2:
                context->refreshObject(track.get());
                break;
            case 3:
                track->setBpm(100 + double(below(100)));
                break;
            case 4:
                track->setTitle(QString::number(below(1000)));
                break;
            case 5:
                track->setPlays(track->plays() + 1);
                break;
            case 6:
                track->addToGenres(genre);
                break;
            case 7:
                track->removeFromGenres(genre);
                break;
            }
        }
        EXPECT_GE(context->countForEntity(u"Track"_s, KXPredicate::predicateWithFormat("bpm > 150")), 0);
        KXError error;
        EXPECT_TRUE(context->save(&error)) << error.localizedDescription().toStdString();
    }
}

} // namespace

TEST(Threads, saveSideBySide)
{
    KXTestRandom random;
    LibraryTest library;
    Replay replay;
    const auto token = library.coordinator->addChangeObserver([&](const auto &change) { replay.take(*change); });
    for (int i = 0; i < 4; ++i)
        library.genre(QString::number(i));
    for (int i = 0; i < 40; ++i)
        library.track(QString::number(i));
    ASSERT_TRUE(library.context->save());

    const int saves = KXTestRandom::scaled(400);
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back(work, library.coordinator, random.engine()(), saves);
    work(library.coordinator, random.engine()(), saves); // the main thread, in between
    for (std::thread &thread : threads)
        thread.join();
    replay.expectSame(*library.otherContext());
    EXPECT_EQ(Library::damage(library.path()), "");
}

TEST(Threads, keysAreGivenOutOnce)
{
    LibraryTest library;
    std::mutex mutex;
    QSet<qint64> keys;
    const auto insert = [&] {
        const auto context = library.otherContext();
        QList<qint64> mine;
        for (int i = 0; i < 2500; ++i) // several blocks, some of them reserved in the background
            mine.append(Genre::createInContext(*context)->objectID().key());
        EXPECT_TRUE(std::is_sorted(mine.begin(), mine.end()));
        const std::lock_guard lock(mutex);
        keys.unite(QSet<qint64>(mine.begin(), mine.end()));
    };
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i)
        threads.emplace_back(insert);
    insert();
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(keys.size(), 10'000);
}

TEST(Threads, theMainThreadSavesBeforeThoseWhoWait)
{
    const QTemporaryDir folder;
    FaultVfs vfs;
    const auto coordinator = KXPersistentStoreCoordinator::persistentStoreCoordinatorWithStoreURL(
        QUrl::fromLocalFile(folder.filePath(u"library.db"_s)), Library::model(), nullptr, vfs.name());
    ASSERT_TRUE(coordinator);
    QList<const void *> order; // in which the contexts saved
    const auto token
        = coordinator->addChangeObserver([&](const auto &change) { order.append(change->originatingContext()); });

    constexpr int savers = 4; // the first holds the writer, the others queue up behind it
    std::vector<std::thread> threads;
    std::vector<const void *> contexts(savers);
    std::latch ready(savers);
    std::counting_semaphore<> go[savers] { std::counting_semaphore<>(0), std::counting_semaphore<>(0),
        std::counting_semaphore<>(0), std::counting_semaphore<>(0) };
    for (int i = 0; i < savers; ++i) {
        threads.emplace_back([&, i] {
            const auto context = KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator);
            Track::createInContext(*context)->setTitle(QString::number(i));
            contexts[size_t(i)] = context.get();
            ready.count_down();
            go[i].acquire();
            EXPECT_TRUE(context->save(nullptr));
        });
    }
    ready.wait();
    const auto context = KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator);
    Track::createInContext(*context)->setTitle(u"main"_s);

    std::binary_semaphore holding(0);
    std::binary_semaphore release(0);
    std::atomic<bool> held = false;
    vfs.setHook([&, first = threads[0].get_id()](qint64) {
        if (std::this_thread::get_id() == first && !held.exchange(true)) {
            holding.release();
            release.acquire();
        }
    });
    go[0].release();
    holding.acquire();
    const KXStoreConnections &connections = KXPersistentStorePrivate::of(*coordinator->store()).connections;
    const auto waitFor = [&connections](int number) {
        while (connections.waiting() < number)
            std::this_thread::yield();
    };
    for (int i = 1; i < savers; ++i) {
        go[i].release();
        waitFor(i);
    }
    std::thread releaser([&] {
        waitFor(savers);
        release.release();
    });
    EXPECT_TRUE(context->save(nullptr));
    for (std::thread &thread : threads)
        thread.join();
    releaser.join();
    EXPECT_EQ(order, (QList<const void *> { contexts[0], context.get(), contexts[1], contexts[2], contexts[3] }));
}

TEST(Threads, anObserverMaySaveAndIsNotCalledOnceItsTokenIsGone)
{
    LibraryTest library;
    QList<quint64> serials;
    KXPersistentStoreCoordinator::ChangeToken token;
    token = library.coordinator->addChangeObserver([&](const auto &change) {
        serials.append(change->serialNumber());
        if (change->serialNumber() == 1) {
            library.track(u"from the observer"_s);
            EXPECT_TRUE(library.context->save());
        } else if (change->serialNumber() == 3) {
            token.reset();
        }
    });
    for (int i = 0; i < 3; ++i) {
        std::thread([&] {
            const auto context = library.otherContext();
            Genre::createInContext(*context)->setName(u"x"_s);
            if (i > 0) {
                EXPECT_TRUE(context->save(nullptr));
            }
        }).join();
        if (i == 0) {
            library.track(u"first"_s);
            EXPECT_TRUE(library.context->save());
        }
    }
    EXPECT_EQ(serials, (QList<quint64> { 1, 2, 3 }));
}

#if defined(KX_CHECKS)
TEST(ThreadsDeathTest, aContextIsUsedOnItsOwnThread)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    LibraryTest library;
    const auto track = library.track(u"a"_s);
    const auto elsewhere = [](auto use) { std::thread(use).join(); };
    const char *const message = "used on thread [0-9]+ but belongs to thread [0-9]+";
    EXPECT_DEATH(elsewhere([&] { (void)library.context->countForEntity(u"Track"_s); }), message);
    EXPECT_DEATH(elsewhere([&] { track->setTitle(u"b"_s); }), message);
    EXPECT_DEATH(elsewhere([&] { (void)library.context->save(nullptr); }), message);
    EXPECT_DEATH(elsewhere([&] { library.context.reset(); }), message);
}
#endif
