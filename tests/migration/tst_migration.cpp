// Stores of older models become stores of newer ones: what is carried over, where the files go, and what is refused.

#include <thread>

#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <gtest/gtest.h>

#include <kestrixkit/foundation/KXBundle.h>
#include <kestrixkit/foundation/KXException.h>
#include <kestrixkit/store/KXPersistentStore.h>
#include <kestrixkit/store/KXSQLite_p.h>

#include "store/Library.h"
#include "store/RandomModels.h"
#include "store/Versions.h"
#include "support/FaultVfs.h"
#include "support/KXTestLog.h"
#include "support/KXTestPrint.h"

using namespace Qt::StringLiterals;
using Coordinator = KXPersistentStoreCoordinator;
using Change = KXMigrationChange;

TEST(Migration, doesExactlyWhatThePlanSays)
{
    KXTestRandom random;
    const FaultVfs vfs(FaultVfs::MachineWide); // which does not wait for the disk
    for (int left = KXTestRandom::scaled(2000); left > 0;) {
        SCOPED_TRACE("pairs left: " + std::to_string(left));
        const QTemporaryDir folder;
        const QUrl url = QUrl::fromLocalFile(folder.filePath(u"store.db"_s));
        RandomModels models(random);
        const auto source = models.model();
        models.fill(url.toLocalFile(), source);
        KXManagedObjectModel::Ref destination;
        try {
            destination = models.changedModel();
        } catch (const KXException &) {
            continue; // relationships that no longer fit together
        }
        KXError error;
        const auto plan = KXMigrationPlan::planForStoreURL(url, destination, &error);
        if (!plan)
            continue;
        --left;
        const PlainStore before(url.toLocalFile(), *plan->mapping()->sourceModel());
        const bool done = [&] {
            const KXTestLog log;
            return Coordinator::migrateURL(url, source, destination, &error);
        }();
        ASSERT_EQ(done, plan->isPossible()) << error.localizedDescription().toStdString();
        if (!done)
            continue;
        EXPECT_EQ(Library::damage(url.toLocalFile()), "");
        const PlainStore after(url.toLocalFile(), *destination);
        const auto lines = [](const QList<Change> &changes) {
            QStringList texts;
            for (const Change &change : changes) {
                if (change.kind != Change::PropertyRemoved || change.count > 0)
                    texts.append(change.description() + u" "_s + change.formerEntity + u'.' + change.formerProperty);
            }
            texts.sort();
            return texts.join(u'\n').toStdString();
        };
        EXPECT_EQ(lines(plan->changes()), lines(recount(before, after, *plan->mapping())));
        // And it is a store that works.
        const auto coordinator = Coordinator::persistentStoreCoordinatorWithStoreURL(url, destination, &error);
        ASSERT_TRUE(coordinator) << error.localizedDescription().toStdString();
        if (::testing::Test::HasFailure()) {
            std::cout << source->toJSON().constData() << destination->toJSON().constData() << std::endl;
            return;
        }
    }
}

/// The main bundle's resources are a folder with the three model versions.
class MigrationBundle : public ::testing::Test
{
protected:
    MigrationBundle()
    {
        QDir(folder.path()).mkpath(u"Library.momd"_s);
        for (int version = 1; version <= 3; ++version)
            Library::write(modelPath(version), Versions::model(version)->toJSON());
        KXBundle::mainBundle().setResourceFolders({ folder.path() });
    }
    ~MigrationBundle() override { KXBundle::mainBundle().setResourceFolders(before); }

    [[nodiscard]] QString modelPath(int version) const
    {
        return folder.filePath(u"Library.momd/Library %1.mom"_s.arg(version));
    }
    void addMapping(int from, int to, const QByteArray &entities = "[]", const char *name = "") const
    {
        Library::write(folder.filePath(u"%1%2to%3.cdm"_s.arg(QLatin1StringView(name)).arg(from).arg(to)),
            "{\"source\": \"Library " + QByteArray::number(from) + ".mom\", \"destination\": \"Library "
                + QByteArray::number(to) + ".mom\", \"entities\": " + entities + '}');
    }

    const QTemporaryDir folder;
    const QTemporaryDir stores;
    const QString path = stores.filePath(u"crate.db"_s);
    const QUrl url = QUrl::fromLocalFile(path);
    const QStringList before = KXBundle::mainBundle().resourceFolders();
    const KXTestLog log;
};

namespace {

const QByteArray lossyTempo = R"([{"destination": "Song", "properties": [{"destination": "tempo", "lossy": true}]}])";

} // namespace

TEST(Migration, keepsTheOldStoreBesideTheNewOne)
{
    const KXTestLog log;
    for (const auto &[name, kept] : { std::pair(u"crate.db"_s, u"crate-%1.db"_s), { u"crate"_s, u"crate-%1."_s },
             { u"my.crate.db"_s, u"my.crate-%1.db"_s }, { u".db"_s, u".db-%1."_s } }) {
        SCOPED_TRACE(name.toStdString());
        const QTemporaryDir folder;
        QDir(folder.path()).mkdir(u"with.points"_s);
        const QString path = folder.filePath(u"with.points/"_s + name);
        const QUrl url = QUrl::fromLocalFile(path);
        Versions::make(path, 5);
        const QStringList tracks = Versions::tracks(path);
        const QString uuid = KXPersistentStore::metadataForStoreURL(url)->uuid;
        ASSERT_TRUE(Coordinator::migrateURL(url, Versions::model(1), Versions::model(2)));
        const QStringList files = Versions::files(folder.filePath(u"with.points"_s));
        ASSERT_EQ(files.size(), 2) << files.join(u' ').toStdString();
        const QString other = files[files[0] == name ? 1 : 0];
        EXPECT_TRUE(QRegularExpression(u'^' + QString(kept).replace(u'.', u"\\."_s).arg(u"[0-9A-F-]{36}"_s) + u'$')
                        .match(other)
                        .hasMatch())
            << other.toStdString();
        const QString otherPath = folder.filePath(u"with.points/"_s + other);
        EXPECT_EQ(Versions::versionOf(otherPath), 1);
        EXPECT_EQ(Versions::tracks(otherPath), tracks);
        EXPECT_EQ(Versions::versionOf(path), 2);
        EXPECT_EQ(Versions::tracks(path), tracks);
        // A URI that somebody kept leads to the same object, and no key is used again.
        const auto coordinator = Versions::open(path);
        const auto context = KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator);
        const auto id = coordinator->managedObjectIDForURIRepresentation(
            QUrl(u"x-kestrix-store://%1/Song/p%2"_s.arg(uuid, tracks[0].section(u' ', 0, 0))));
        EXPECT_EQ(context->objectWithID(id)->valueForKey(u"title"_s), u"title 0"_s);
        EXPECT_EQ(context->objectWithID(id)->valueForKey(u"mood"_s), u"calm"_s);
        EXPECT_GT(context->managedObjectForEntity(u"Song"_s)->objectID().key(), 1000);
    }
}

TEST(Migration, thatFailsLeavesTheStoreUnderItsOtherName)
{
    const KXTestLog log;
    const QTemporaryDir folder;
    const QString path = folder.filePath(u"crate.db"_s);
    const QUrl url = QUrl::fromLocalFile(path);
    KXError error;
    EXPECT_FALSE(Coordinator::migrateURL(url, Versions::model(1), Versions::model(2), &error));
    EXPECT_TRUE(log.contains(u"Failed to migrate store: "_s)
        && log.contains(u"Failed to backup original store %1: "_s.arg(path)));
    Versions::make(path, 3);
    const QStringList tracks = Versions::tracks(path);
    EXPECT_FALSE(Coordinator::migrateURL(url, Versions::model(1), Versions::model(3), &error));
    EXPECT_EQ(error.code(), KXStoreErrorCode::NoMapping);
    EXPECT_EQ(Versions::files(folder.path()), QStringList { u"crate.db"_s })
        << "nothing can be inferred, nothing was tried";

    EXPECT_FALSE(Coordinator::migrateURL(url, Versions::model(2), Versions::model(2), &error)); // is of another model
    EXPECT_EQ(error.code(), KXStoreErrorCode::IncompatibleModel);
    const QStringList files = Versions::files(folder.path());
    ASSERT_EQ(files.size(), 1);
    EXPECT_EQ(Versions::tracks(folder.filePath(files[0])), tracks);
    EXPECT_TRUE(log.contains(u"Failed to move migrated store into place: "_s));
    EXPECT_TRUE(log.contains(u"The old store is "_s + folder.filePath(files[0])));
}

TEST(Migration, leavesAStoreAloneThatSomebodyHasOpen)
{
    const KXTestLog log;
    const QTemporaryDir folder;
    const QString path = folder.filePath(u"crate.db"_s);
    const QString copy = folder.filePath(u"copy.db"_s);
    Versions::make(path, 3);
    Versions::make(copy, 4);
    const QStringList files = Versions::files(folder.path());
    const auto holder = Versions::open(path);
    KXError migrating;
    KXError restoring;
    std::thread other([&] {
        EXPECT_FALSE(
            KXPersistentStore::restoreBackup(QUrl::fromLocalFile(copy), QUrl::fromLocalFile(path), &restoring));
    });
    EXPECT_FALSE(
        Coordinator::migrateURL(QUrl::fromLocalFile(path), Versions::model(1), Versions::model(2), &migrating));
    other.join();
    EXPECT_EQ(migrating.code(), KXStoreErrorCode::Busy);
    EXPECT_EQ(restoring.code(), KXStoreErrorCode::Busy) << restoring.localizedDescription().toStdString();
    EXPECT_EQ(Versions::files(folder.path()), files);
    EXPECT_TRUE(Versions::add(holder, u"more"_s));
    EXPECT_EQ(Versions::tracks(path).size(), 4);
}

TEST_F(MigrationBundle, openingAStoreByItsAddressMigratesIt)
{
    Versions::make(path, 3);
    const QStringList tracks = Versions::tracks(path);
    KXError error(u"test"_s, 1, u"of an earlier call"_s);
    QFile::remove(modelPath(3)); // the second is the current one
    auto coordinator = Coordinator::persistentStoreCoordinatorWithStoreURL(url, QList<const KXBundle *> {}, {}, &error);
    ASSERT_TRUE(coordinator);
    EXPECT_FALSE(error);
    coordinator.reset();
    EXPECT_EQ(Versions::tracks(path), tracks);
    EXPECT_EQ(Versions::files(stores.path()).size(), 2);

    Library::write(modelPath(3), Versions::model(3)->toJSON());
    EXPECT_FALSE(Coordinator::persistentStoreCoordinatorWithStoreURL(url, QList<const KXBundle *> {}, {}, &error))
        << "cannot be inferred";
    EXPECT_TRUE(log.contains(u"Failed to migrate store - "_s));
    EXPECT_EQ(error.code(), KXStoreErrorCode::NoMapping);
    QFile::remove(modelPath(2));
    EXPECT_FALSE(Coordinator::persistentStoreCoordinatorWithStoreURL(url, QList<const KXBundle *> {}, {}, &error));
    EXPECT_TRUE(log.contains(u"Failed to determine source model for migration - "_s + url.toString()));
    EXPECT_EQ(Versions::versionOf(path), 2);
}

TEST_F(MigrationBundle, mappingModelsLeadFromVersionToVersion)
{
    const QString type(KXSQLiteStoreType);
    KXError error(u"test"_s, 1, u"of an earlier call"_s);
    EXPECT_TRUE(Coordinator::progressivelyMigrateURL(url, type, Versions::model(3), &error)) << "nothing to migrate";
    EXPECT_TRUE(Versions::files(stores.path()).isEmpty());
    Versions::make(path, 4);
    const QStringList tracks = Versions::tracks(path);
    EXPECT_TRUE(Coordinator::progressivelyMigrateURL(url, type, Versions::model(1), &error));
    EXPECT_FALSE(error);

    // What cannot be reached leaves the store as it was.
    const auto refused = [&](int code, const QString &text) {
        EXPECT_FALSE(Coordinator::progressivelyMigrateURL(url, type, Versions::model(3), &error));
        EXPECT_EQ(error.code(), code);
        EXPECT_TRUE(error.localizedDescription().contains(text)) << error.localizedDescription().toStdString();
        EXPECT_EQ(Versions::versionOf(path), 1);
        EXPECT_EQ(Versions::files(stores.path()), QStringList { u"crate.db"_s });
    };
    refused(8001, u"No mapping models found in bundle"_s);
    addMapping(1, 2);
    addMapping(2, 1); // in a circle
    addMapping(2, 2);
    refused(8001, u"No mapping models found in bundle"_s);
    addMapping(2, 3);
    refused(KXStoreErrorCode::NoMapping, u"2to3.cdm"_s);
    addMapping(2, 3, "[{\"destination\": \"Nobody\"}]");
    refused(KXStoreErrorCode::NoMapping, u"Nobody"_s);
    addMapping(2, 3, "[{");
    refused(KXStoreErrorCode::NoMapping, u"2to3.cdm"_s);
    addMapping(2, 3, lossyTempo);
    Library::write(stores.filePath(u"crate.Library 2.db"_s), "somebody's");
    EXPECT_FALSE(Coordinator::progressivelyMigrateURL(url, u"XML"_s, Versions::model(3), &error));
    EXPECT_EQ(Versions::versionOf(path), 1);

    ASSERT_TRUE(Coordinator::progressivelyMigrateURL(url, type, Versions::model(3), &error))
        << error.localizedDescription().toStdString();
    EXPECT_EQ(Versions::versionOf(path), 3);
    EXPECT_EQ(Versions::tracks(path), tracks);
    const QStringList files = Versions::files(stores.path());
    ASSERT_EQ(files.size(), 4);
    EXPECT_TRUE(files.contains(u"crate.Library 2.db"_s)) << "which looks like one of ours, but is somebody's";
    EXPECT_EQ(files.filter(QRegularExpression(u"^[0-9A-F-]{36}\\.Library [23]\\.db$"_s)).size(), 2);
    const auto context = KXManagedObjectContext::contextWithPersistentStoreCoordinator(Versions::open(path));
    EXPECT_EQ(context->countForEntity(u"Song"_s, KXPredicate::predicateWithFormat("tempo IN {120, 121}")), 2);
    EXPECT_EQ(context->countForEntity(u"Song"_s, KXPredicate::predicateWithFormat("tempo == nil")), 2)
        << "were no whole numbers";

    QDir(folder.filePath(u"Library.momd"_s)).removeRecursively();
    EXPECT_THROW((void)Coordinator::progressivelyMigrateURL(url, type, Versions::model(1), &error), KXException);
    Library::write(path, "damaged");
    EXPECT_FALSE(Coordinator::progressivelyMigrateURL(url, type, Versions::model(1), &error));
}

TEST(Migration, followsMappingModelsAndSaysWhatIsWrongWithThem)
{
    struct Row
    {
        const char *json;
        const char *problem; ///< part of the message; nullptr for none
        const char *change; ///< a line of the plan
    };
    const Row rows[] = {
        { "[]", "Not a mapping model", nullptr },
        { R"({"entities": [{"destination": "Song", "source": "Nobody"}]})", "Nobody", nullptr },
        { R"({"entities": [{"destination": "Song", "source": "Album"}, {"destination": "Album", "source": "Album"}]})",
            "Two entities", nullptr },
        { R"({"entities": [{"destination": "Song", "properties": [{"destination": "nothing"}]}]})", "nothing",
            nullptr },
        { R"({"entities": [{"destination": "Song", "properties": [{"destination": "title", "source": "album"}]}]})",
            "Song.title", nullptr },
        { R"({"entities": [{"destination": "Song", "properties": [{"destination": "plays", "value": "many"}]}]})",
            "Song.plays", nullptr },
        { R"({"entities": [{"destination": "Song", "properties": [{"destination": "plays", "source": "bpm"}]}]})",
            "may lose values", nullptr },
        { R"({"entities": [{"destination": "Song", "properties": [{"destination": "plays", "source": "bpm", "lossy": true}]}]})",
            nullptr, "Song.plays changes its type (5 values, of which 2 are lost)" },
        { R"({"entities": [{"destination": "Song", "source": null}]})", nullptr, "Track goes with its 5 rows" },
        { R"({"entities": [{"destination": "Song", "properties": [{"destination": "album", "source": null}]}]})",
            "both ends", nullptr },
        { R"({"entities": [{"destination": "Song", "properties": [{"destination": "mood", "value": "wild"}, {"destination": "album", "source": null}]},
                           {"destination": "Album", "properties": [{"destination": "tracks", "source": null}]}]})",
            nullptr, "Track.album goes with its 5 values" },
    };
    const QTemporaryDir folder;
    const QString path = folder.filePath(u"crate.db"_s);
    Versions::make(path, 5);
    for (const Row &row : rows) {
        SCOPED_TRACE(row.json);
        KXError error;
        const auto mapping
            = KXMappingModel::mappingModelWithJSON(row.json, Versions::model(1), Versions::model(2), &error);
        EXPECT_EQ(bool(mapping), !row.problem) << error.localizedDescription().toStdString();
        if (!mapping) {
            EXPECT_TRUE(error.localizedDescription().contains(QLatin1StringView(row.problem)))
                << error.localizedDescription().toStdString();
            continue;
        }
        const auto plan = KXMigrationPlan::planForStoreURL(QUrl::fromLocalFile(path), mapping, &error);
        ASSERT_TRUE(plan) << error.localizedDescription().toStdString();
        EXPECT_TRUE(plan->losesData());
        EXPECT_TRUE(std::any_of(plan->changes().begin(), plan->changes().end(),
            [&](const Change &change) { return change.description() == QLatin1StringView(row.change); }));
    }
}

TEST(Migration, thatWasInterruptedIsFinishedOrTakenBack)
{
    struct Row
    {
        const char *what;
        const char *note;
        QList<std::pair<const char *, const char *>> files; ///< names and what they hold
        const char *holds; ///< the store, afterwards
        QStringList left;
        bool isSaid; ///< in the log
    };
#define NEW "crate-6F9619FF-8B86-D011-B42D-00C04FC964F1.db"
#define OLD "crate-6F9619FF-8B86-D011-B42D-00C04FC964F2.db"
    const char *const begun = "{\"fresh\":\"" NEW "\",\"kept\":\"" OLD "\"}\n";
    const char *const whole = "{\"fresh\":\"" NEW "\",\"kept\":\"" OLD "\"}\nwhole\n";
    const Row rows[] = {
        { "the new store was being written", begun, { { "crate.db", "old" }, { NEW, "" }, { NEW "-journal", "" } },
            "old", { u"crate.db"_s }, true },
        { "it was written, nothing was moved", whole, { { "crate.db", "old" }, { NEW, "new" } }, "old",
            { u"crate.db"_s }, true },
        { "the old store was moved", whole, { { OLD, "old" }, { NEW, "new" }, { "crate.db-wal", "of the old one" } },
            "new", { QString(QLatin1StringView(OLD)), u"crate.db"_s }, true },
        { "the old store was moved after a failure", begun, { { OLD, "old" }, { NEW, "" } }, "old", { u"crate.db"_s },
            true },
        { "all was moved", whole, { { OLD, "old" }, { "crate.db", "new" } }, "new",
            { QString(QLatin1StringView(OLD)), u"crate.db"_s }, false },
        { "replaced in one step", "{\"fresh\":\"" NEW "\"}\nwhole\n", { { "crate.db", "new" } }, "new",
            { u"crate.db"_s }, false },
        { "not replaced yet", "{\"fresh\":\"" NEW "\"}\nwhole\n", { { "crate.db", "old" }, { NEW, "new" } }, "old",
            { u"crate.db"_s }, true },
        { "the note was not on the disk yet", "{\"fres", { { "crate.db", "old" } }, "old", { u"crate.db"_s }, false },
        { "the note leads out of the folder", "{\"fresh\":\"../" NEW "\"}\n", { { "crate.db", "old" } }, "old",
            { u"crate.db"_s }, false },
        { "the note names what is none of ours", "{\"fresh\":\"thesis.txt\",\"kept\":\"crate-2024.db\"}\nwhole\n",
            { { "crate.db", "old" }, { "thesis.txt", "" }, { "crate-2024.db", "mine" } }, "old",
            { u"crate-2024.db"_s, u"crate.db"_s, u"thesis.txt"_s }, false },
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.what);
        const KXTestLog log;
        const QTemporaryDir folder;
        for (const auto &[name, content] : row.files) {
            const QString path = folder.filePath(QLatin1StringView(name));
            if (QByteArrayView(name).endsWith(".db") && *content)
                Versions::make(path, 1, 1, QLatin1StringView(content));
            else
                Library::write(path, content);
        }
        const QString path = folder.filePath(u"crate.db"_s);
        Library::write(path + "-replacing"_L1, row.note);
        EXPECT_TRUE(Versions::open(path));
        EXPECT_EQ(Versions::tracks(path).value(0).section(u' ', 1, 1), QLatin1StringView(row.holds));
        EXPECT_EQ(Versions::files(folder.path()), row.left);
        EXPECT_EQ(log.contains(u"interrupted"_s), row.isSaid);
    }
#undef NEW
#undef OLD
}
