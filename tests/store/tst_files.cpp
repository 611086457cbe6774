// Stores among the files that others make: at the same moment, beforehand, in their place, or inside them.

#include <atomic>
#include <iostream>
#include <thread>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QDir>
#include <QFile>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <zlib.h>

#include <kestrixkit/foundation/KXClock.h>
#include <kestrixkit/migration/KXMigrationPlan.h>
#include <kestrixkit/migration/KXStoreArchiver.h>
#include <kestrixkit/store/KXPersistentStore.h>
#include <kestrixkit/store/KXSQLite_p.h>
#include <kestrixkit/store/KXStoreDisk_p.h>
#include <kestrixkit/store/KXStoreSchema_p.h>

#include "store/Library.h"
#include "store/Versions.h"
#include "support/ChildProcess.h"
#include "support/KXTestLog.h"
#include "support/KXTestPrint.h"
#include "support/KXTestRandom.h"

using namespace Qt::StringLiterals;
using Coordinator = KXPersistentStoreCoordinator;

namespace {

Coordinator::Ref openLibrary(const QString &path, KXError *error = nullptr)
{
    return Coordinator::persistentStoreCoordinatorWithStoreURL(QUrl::fromLocalFile(path), Library::model(), error);
}

QStringList titlesIn(const QString &path)
{
    QStringList titles;
    const auto coordinator = openLibrary(path);
    const auto context = KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator);
    for (const auto &track : context ? context->fetchAllForEntity(u"Track"_s) : KXFetchedList())
        titles.append(track->valueForKey(u"title"_s).toString());
    titles.sort();
    return titles;
}

mode_t modeOf(const QString &path)
{
    struct stat status = {};
    ::stat(QFile::encodeName(path).constData(), &status);
    return status.st_mode & 0777;
}

QStringList everythingIn(const QString &folder)
{
    return QDir(folder).entryList(QDir::AllEntries | QDir::System | QDir::Hidden | QDir::NoDotAndDotDot, QDir::Name);
}

QByteArray bytesOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

} // namespace

/// A store "crate.db" with three tracks in a folder of its own, on the first of May.
class StoreFiles : public ::testing::Test
{
protected:
    StoreFiles()
    {
        KXClock::setTimeZone(QTimeZone::utc());
        KXClock::setFixed(QDateTime({ 2026, 5, 1 }, { 12, 0 }, Qt::UTC));
        Versions::make(path, 3);
    }
    [[nodiscard]] QString file(const QString &name) const { return folder.filePath(name); }
    bool backUp() const { return Versions::open(path)->store()->createBackup(); }
    bool restore(const QString &from, KXError *error = nullptr) const
    {
        return KXPersistentStore::restoreBackup(QUrl::fromLocalFile(from), url, error);
    }
    bool migrate(KXError *error = nullptr) const
    {
        return Coordinator::migrateURL(url, Versions::model(1), Versions::model(2), error);
    }

    const QTemporaryDir folder;
    const QString path = file(u"crate.db"_s);
    const QString archive = file(u"crate-01052026-bck.cpgz"_s);
    const QUrl url = QUrl::fromLocalFile(path);
    const KXClockPin pin;
    const KXTestLog log;
};

// Not a test: what the next one runs three times at once.
TEST(FirstOpeningChild, DISABLED_opensANewStoreAndSavesUntilItIsKilled)
{
    const QString path = qEnvironmentVariable("KX_TEST_STORE");
    const QByteArray name = qgetenv("KX_TEST_NAME");
    const auto model = Library::model();
    std::cout << "ready" << std::endl;
    while (::access(QFile::encodeName(path + ".go"_L1).constData(), F_OK) != 0)
        std::this_thread::yield();
    KXError error;
    const auto coordinator = openLibrary(path, &error);
    ASSERT_TRUE(coordinator) << error.localizedDescription().toStdString();
    const auto context = KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator);
    for (int n = 0;; ++n) {
        const QString title = QString::fromUtf8(name) + QString::number(n);
        const auto track = Track::createInContext(*context);
        if (track)
            track->setTitle(title);
        // Who saves all the time may keep the others from it, which is no loss.
        if (!track || !context->save(&error)) {
            ASSERT_TRUE(!error || error.code() == KXStoreErrorCode::Busy) << error.localizedDescription().toStdString();
            context->rollback();
            continue;
        }
        std::cout << "saved " << title.toStdString() << std::endl;
        std::this_thread::sleep_for(std::chrono::milliseconds(5)); // the others' turn: it is about the first moments
    }
}

TEST(FirstOpening, byThreeProcessesAtOnceLosesNothingThatWasSaved)
{
    KXTestRandom random;
    for (int round = 0; round < KXTestRandom::scaled(1000) && !::testing::Test::HasFailure(); ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        const QTemporaryDir folder;
        const QString path = folder.filePath(u"library.db"_s);
        std::vector<std::unique_ptr<ChildProcess>> children;
        std::vector<QByteArray> outputs(3);
        const auto readUntil = [&](size_t child, int lines) {
            while (outputs[child].count('\n') < lines) {
                const QByteArray more = children[child]->read();
                if (more.isEmpty())
                    break;
                outputs[child] += more;
            }
        };
        for (size_t child = 0; child < outputs.size(); ++child) {
            QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
            environment.insert(u"KX_TEST_STORE"_s, path);
            environment.insert(u"KX_TEST_NAME"_s, QString(QChar(u'a' + int(child))));
            children.push_back(std::make_unique<ChildProcess>("FirstOpeningChild.*", environment));
        }
        const auto started = [&](size_t child) { return int(outputs[child].count('\n')); };
        for (size_t child = 0; child < children.size(); ++child) {
            while (!outputs[child].contains("ready\n"))
                readUntil(child, started(child) + 1);
        }
        Library::write(path + ".go"_L1, {});
        // One is killed somewhere in its first moments, the others save on beside what it left.
        for (int i = random.between(0, 3000); i > 0; --i)
            std::this_thread::yield();
        EXPECT_TRUE(children[0]->kill());
        for (size_t child = 1; child < children.size(); ++child)
            readUntil(child, started(child) + random.between(1, 2));
        for (size_t child = 1; child < children.size(); ++child)
            EXPECT_TRUE(children[child]->kill()) << outputs[child].toStdString();
        QStringList saved;
        for (size_t child = 0; child < children.size(); ++child) {
            for (QByteArray more; !(more = children[child]->read()).isEmpty();)
                outputs[child] += more;
            for (const QByteArray &line : outputs[child].left(outputs[child].lastIndexOf('\n') + 1).split('\n')) {
                if (line.startsWith("saved "))
                    saved.append(QString::fromUtf8(line.mid(6)));
            }
        }
        const QStringList found = titlesIn(path);
        for (const QString &title : saved)
            EXPECT_TRUE(found.contains(title)) << title.toStdString() << " of " << saved.join(u' ').toStdString();
        EXPECT_EQ(QSet<QString>(found.begin(), found.end()).size(), found.size());
        EXPECT_EQ(Library::damage(path), "");
        EXPECT_EQ(everythingIn(folder.path()), QStringList({ u"library.db"_s, u"library.db.go"_s }));
    }
}

TEST(FirstOpening, byManyThreadsMakesOneStore)
{
    for (int round = 0; round < 20; ++round) {
        const QTemporaryDir folder;
        const QString path = folder.filePath(u"library.db"_s);
        if (round % 2)
            Library::write(path, {}); // as a creation leaves it that a crash cut short
        const auto model = Library::model();
        std::atomic<int> waiting { 6 };
        std::vector<std::thread> threads;
        std::mutex mutex;
        std::vector<Coordinator::Ref> opened;
        for (int i = 0; i < 6; ++i) {
            threads.emplace_back([&] {
                --waiting;
                while (waiting > 0)
                    std::this_thread::yield();
                KXError error;
                auto coordinator = openLibrary(path, &error);
                const std::lock_guard lock(mutex);
                EXPECT_TRUE(coordinator) << error.localizedDescription().toStdString();
                opened.push_back(std::move(coordinator));
            });
        }
        for (std::thread &thread : threads)
            thread.join();
        for (const auto &coordinator : opened) {
            ASSERT_TRUE(coordinator);
            EXPECT_EQ(coordinator->store()->identifier(), opened[0]->store()->identifier());
            EXPECT_TRUE(KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator)
                            ->managedObjectForEntity(u"Genre"_s));
        }
    }
}

TEST(OpenStore, thatIsGoneFromItsPlaceSavesNothing)
{
    using Deed = std::function<void(const QString &folder, const QString &path)>;
    const auto rename = [](const QString &from, const QString &to) { ASSERT_TRUE(QDir().rename(from, to)); };
    const std::tuple<const char *, Deed, Deed> rows[] = {
        { "the file was removed", [](auto &, auto &path) { QFile::remove(path); }, nullptr },
        { "another file took its place",
            [&](auto &folder, auto &path) {
                { // a copy of the store itself, which looks the same in everything but its place on the disk
                    const QByteArray bytes = bytesOf(path);
                    Library::write(folder + "/copy.db"_L1, bytes);
                }
                ASSERT_EQ(::rename(QFile::encodeName(folder + "/copy.db"_L1).constData(),
                              QFile::encodeName(path).constData()),
                    0);
            },
            nullptr },
        { "its folder was moved", [&](auto &folder, auto &) { rename(folder, folder + "-moved"_L1); },
            [&](auto &folder, auto &) { rename(folder + "-moved"_L1, folder); } },
    };
    for (const auto &[what, deed, takeBack] : rows) {
        SCOPED_TRACE(what);
        const QTemporaryDir parent;
        const QString folder = parent.filePath(u"Crates"_s);
        QDir().mkdir(folder);
        const QString path = folder + "/library.db"_L1;
        const auto coordinator = openLibrary(path);
        const auto context = KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator);
        const auto track = Track::createInContext(*context);
        track->setTitle(u"saved"_s);
        ASSERT_TRUE(context->save());
        deed(folder, path);
        track->setTitle(u"pending"_s);
        KXError error;
        EXPECT_FALSE(context->save(&error));
        EXPECT_EQ(error.code(), KXStoreErrorCode::Gone) << error.localizedDescription().toStdString();
        EXPECT_TRUE(track->isUpdated());
        // What is read goes on being that of the file which was opened, or is not read.
        std::thread([&] { // which has a connection of its own made
            const auto other = KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator);
            EXPECT_EQ(other->count(KXFetchRequest(u"Track"_s)), -1);
        })
            .join();
        if (takeBack) {
            takeBack(folder, path);
            EXPECT_TRUE(context->save(&error)) << error.localizedDescription().toStdString();
            EXPECT_EQ(titlesIn(path), QStringList { u"pending"_s });
        }
    }
}

TEST(OpenStore, thatSomebodyCutsOffIsReadWithAnErrorAndEndsNobody)
{
    LibraryTest library;
    for (int i = 0; i < 8000; ++i)
        library.track(QString(1000, u'x') + QString::number(i));
    ASSERT_TRUE(library.context->save()); // so much is folded into the file
    KXFetchRequest request(u"Track"_s);
    request.setPredicate(KXPredicate::predicateWithFormat("title ENDSWITH %@", u"x7"_s));
    const auto context = library.otherContext();
    EXPECT_EQ(context->count(request), 1);
    const qint64 size = QFileInfo(library.path()).size();
    ASSERT_GT(size, 4'000'000);
    for (const qint64 left : { size / 2 / 4096 * 4096, qint64(5000), qint64(0) }) {
        SCOPED_TRACE(left);
        ASSERT_TRUE(QFile::resize(library.path(), left));
        KXError error;
        EXPECT_EQ(context->count(request, &error), -1);
        EXPECT_EQ(error.code(), KXStoreErrorCode::Damaged) << error.localizedDescription().toStdString();
        EXPECT_EQ(context->fetch(KXFetchRequest(u"Track"_s), &error).size(), 0);
    }
}

TEST(StoreDisk, isFixedWhereNothingOfItCanBeTakenAway)
{
    const QTemporaryDir system;
    const auto make = [&](const QString &name, const QString &place, const QStringList &slaves = {}) {
        const QString folder = system.filePath(u"devices/"_s + place);
        QDir().mkpath(folder + "/slaves"_L1);
        QDir().mkpath(system.filePath(u"class/block"_s));
        QFile::link(folder, system.filePath(u"class/block/"_s + name));
        for (const QString &slave : slaves)
            QDir().mkpath(folder + "/slaves/"_L1 + slave);
    };
    const auto mark = [&](const QString &place, const QByteArray &text) {
        Library::write(system.filePath(u"devices/"_s + place + "/removable"_L1), text);
    };
    make(u"nvme0n1p2"_s, u"pci0/nvme/nvme0/nvme0n1/nvme0n1p2"_s);
    mark(u"pci0/nvme/nvme0/nvme0n1"_s, "0\n");
    make(u"nvme1n1"_s, u"pci1/nvme/nvme1/nvme1n1"_s); // on a port outside
    mark(u"pci1/nvme/nvme1/nvme1n1"_s, "0\n");
    mark(u"pci1"_s, "removable\n");
    make(u"sda1"_s, u"pci0/usb2/2-1/host4/sda/sda1"_s); // a stick that takes itself for a disk
    mark(u"pci0/usb2/2-1/host4/sda"_s, "0\n");
    make(u"sdb1"_s, u"pci0/ata2/sdb/sdb1"_s);
    mark(u"pci0/ata2/sdb"_s, "1\n");
    make(u"mmcblk0p1"_s, u"pci0/mmc_host/mmc0/mmcblk0/mmcblk0p1"_s);
    make(u"dm-0"_s, u"virtual/block/dm-0"_s, { u"nvme0n1p2"_s });
    make(u"dm-1"_s, u"virtual/block/dm-1"_s, { u"nvme0n1p2"_s, u"sda1"_s });
    for (const auto &[name, fixed] :
        { std::pair("nvme0n1p2", true), { "nvme1n1", false }, { "sda1", false }, { "sdb1", false },
            { "mmcblk0p1", false }, { "dm-0", true }, { "dm-1", false }, { "sdz", false }, { "", false } })
        EXPECT_EQ(KXStoreDisk::isFixedDevice(QString::fromLatin1(name), system.path()), fixed) << name;
    EXPECT_FALSE(KXStoreDisk::isFixed(u"/proc/self/maps"_s));
    EXPECT_FALSE(KXStoreDisk::isFixed(u"/no/such/place"_s)) << "and no more is known of what is not there";
}

TEST(OpenStore, thatIsYoungHoldsSchemaAndFirstImportInItsFile)
{
    LibraryTest library;
    const QString copy = library.folder.filePath(u"copy.db"_s);
    ASSERT_TRUE(QFile::copy(library.path(), copy)); // without the log
    EXPECT_EQ(titlesIn(copy), QStringList());
    EXPECT_EQ(Library::damage(copy), "");
    for (int save = 0; save < 8; ++save) {
        for (int i = 0; i < 1000; ++i)
            library.track(QString(1000, u'x') + QString::number(save * 1000 + i));
        ASSERT_TRUE(library.context->save());
    }
    QFile::remove(copy);
    ASSERT_TRUE(QFile::copy(library.path(), copy));
    EXPECT_GE(titlesIn(copy).size(), 3000) << "of 8,000, which are an eighth of what a log may hold in the end";
}

TEST_F(StoreFiles, linksThatOthersPlantedLeadNowhere)
{
    ASSERT_TRUE(backUp());
    const QString good = file(u"good.cpgz"_s);
    ASSERT_TRUE(QFile::rename(archive, good));
    const QTemporaryDir victims;
    Library::write(victims.filePath(u"thesis.txt"_s), "years of work");
    const QString names[] = { u".crate-restore"_s, u"crate-01052026-bck"_s, u".crate-01052026-bck.cpgz-check"_s,
        u"crate-01052026-bck.cpgz.part"_s, u"crate.db-replacing"_s };
    for (const QString &name : names) {
        for (const QString &target : { victims.path(), victims.filePath(u"thesis.txt"_s) }) {
            SCOPED_TRACE((name + u' ' + target).toStdString());
            ASSERT_TRUE(QFile::link(target, file(name)));
            (void)backUp();
            EXPECT_TRUE(Versions::open(path));
            (void)restore(good);
            (void)migrate();
            EXPECT_EQ(everythingIn(victims.path()), QStringList { u"thesis.txt"_s });
            EXPECT_EQ(bytesOf(victims.filePath(u"thesis.txt"_s)), "years of work");
            EXPECT_TRUE(QFileInfo(file(name)).isSymLink()) << "what others have made is theirs";
            QFile::remove(file(name));
            QFile::remove(archive);
            EXPECT_TRUE(restore(good));
        }
    }
    // A pipe in the note's place is none either, and nobody waits for it.
    ASSERT_EQ(::mkfifo(QFile::encodeName(path + "-replacing"_L1).constData(), 0600), 0);
    EXPECT_TRUE(Versions::open(path));
    KXError error;
    EXPECT_FALSE(restore(good, &error));
    EXPECT_TRUE(error.localizedDescription().contains(u"-replacing"_s)) << error.localizedDescription().toStdString();
}

TEST_F(StoreFiles, belongToTheirOwnersAlone)
{
    const mode_t before = ::umask(0);
    const QString fresh = file(u"fresh.db"_s);
    EXPECT_TRUE(openLibrary(fresh));
    EXPECT_EQ(modeOf(fresh), 0600U);
    for (const mode_t mode : { 0600U, 0660U }) {
        ASSERT_EQ(::chmod(QFile::encodeName(path).constData(), mode), 0);
        QFile::remove(archive);
        EXPECT_TRUE(backUp());
        EXPECT_EQ(modeOf(archive), 0600U);
        EXPECT_TRUE(restore(archive));
        EXPECT_EQ(modeOf(path), mode);
        EXPECT_TRUE(migrate());
        EXPECT_EQ(modeOf(path), mode);
        EXPECT_TRUE(restore(archive));
    }
    EXPECT_TRUE(
        KXPersistentStore::restoreBackup(QUrl::fromLocalFile(archive), QUrl::fromLocalFile(file(u"other.db"_s))));
    EXPECT_EQ(modeOf(file(u"other.db"_s)), 0600U) << "where there was none";
    ::umask(before);
}

TEST_F(StoreFiles, thatAKilledBackupLeftDoNotStopTheNext)
{
    const QString staging = file(u"crate-01052026-bck"_s);
    const QString hidden = file(u".crate-6F9619FF-8B86-D011-B42D-00C04FC964F1"_s);
    const QString part = file(u".crate-30042026-bck.cpgz-6F9619FF-8B86-D011-B42D-00C04FC964F1.part"_s);
    const auto leave = [&] {
        QDir().mkdir(staging);
        ASSERT_EQ(
            ::link(QFile::encodeName(path).constData(), QFile::encodeName(staging + "/crate.db"_L1).constData()), 0);
        QDir().mkdir(hidden);
        Library::write(hidden + "/crate.db"_L1, "half unpacked");
        Library::write(part, "half packed");
    };
    leave();
    EXPECT_TRUE(backUp()) << log.lines().join(u'\n').toStdString();
    EXPECT_EQ(everythingIn(folder.path()), QStringList({ u"crate-01052026-bck.cpgz"_s, u"crate.db"_s }));

    // But whoever is at work is left in peace.
    QFile::remove(archive);
    leave();
    const int busy[] = { ::open(QFile::encodeName(staging).constData(), O_RDONLY | O_DIRECTORY),
        ::open(QFile::encodeName(hidden).constData(), O_RDONLY | O_DIRECTORY),
        ::open(QFile::encodeName(part).constData(), O_RDONLY) };
    for (const int descriptor : busy)
        ASSERT_EQ(::flock(descriptor, LOCK_EX | LOCK_NB), 0);
    EXPECT_FALSE(backUp());
    EXPECT_TRUE(log.contains(u"Failed to create backup folder"_s));
    EXPECT_TRUE(QFileInfo::exists(staging + "/crate.db"_L1) && QFileInfo::exists(hidden + "/crate.db"_L1)
        && QFileInfo::exists(part));
    for (const int descriptor : busy)
        ::close(descriptor);
}

TEST_F(StoreFiles, whatElseAStoreHoldsIsRefused)
{
    const char *const rows[] = {
        "CREATE TRIGGER evil AFTER UPDATE ON Track BEGIN DELETE FROM Album; END",
        "CREATE VIEW evil AS SELECT 1",
        "CREATE TABLE evil(x)",
        "CREATE VIRTUAL TABLE evil USING fts5(x)",
        "CREATE INDEX evil ON Track(plays)",
        "CREATE INDEX kx_i_Track_evil ON Track(abs(plays))",
        "ALTER TABLE Track ADD COLUMN evil GENERATED ALWAYS AS (abs(plays))",
        "ALTER TABLE Track RENAME TO t; CREATE VIEW Track AS SELECT * FROM t",
        "ALTER TABLE kx_metadata RENAME TO m; CREATE VIEW kx_metadata AS SELECT * FROM m",
        "DROP TABLE Album",
    };
    ASSERT_TRUE(backUp());
    for (const char *sql : rows) {
        SCOPED_TRACE(sql);
        ASSERT_TRUE(restore(archive));
        Library::tamper(path, sql);
        const QByteArray before = bytesOf(path);
        KXError error;
        EXPECT_FALSE(Coordinator::persistentStoreCoordinatorWithStoreURL(url, Versions::model(1), &error));
        EXPECT_EQ(error.code(), KXStoreErrorCode::Damaged) << error.localizedDescription().toStdString();
        EXPECT_FALSE(KXMigrationPlan::planForStoreURL(url, Versions::model(2)));
        const auto problems = KXPersistentStore::problemsOfStoreURL(url);
        EXPECT_TRUE(!problems || !problems->isEmpty());
        EXPECT_FALSE(KXPersistentStore::restoreBackup(url, QUrl::fromLocalFile(file(u"other.db"_s)), &error));
        EXPECT_FALSE(QFileInfo::exists(file(u"other.db"_s)));
        Library::tamper(path, "PRAGMA journal_mode=WAL");
        EXPECT_FALSE(migrate());
        const QStringList kept = QDir(folder.path()).entryList({ u"crate-*-*-*-*.db"_s });
        for (const QString &name : kept)
            QFile::remove(file(name));
    }
    // What tools may do without harm.
    ASSERT_TRUE(restore(archive));
    Library::tamper(path,
        "ANALYZE; VACUUM; DROP INDEX kx_i_Track_title; CREATE INDEX \"kx_i_Track_plays\" ON \"Track\"(\"plays\")");
    EXPECT_EQ(KXPersistentStore::problemsOfStoreURL(url), QStringList());
    EXPECT_TRUE(migrate());
}

namespace {

/// Runs the statements where texts are folded by rules of one's own: to how long they are. Answers the last row.
QByteArray tamperFolding(const QString &path, const QByteArray &sql)
{
    sqlite3 *database = nullptr;
    sqlite3_open(QFile::encodeName(path).constData(), &database);
    sqlite3_create_function(
        database, "kx_fold", 2, SQLITE_UTF8 | SQLITE_DETERMINISTIC, nullptr,
        [](sqlite3_context *context, int, sqlite3_value **arguments) {
            sqlite3_result_int(context, sqlite3_value_bytes(arguments[0]));
        },
        nullptr, nullptr);
    QByteArray answer;
    const auto take = [](void *bytes, int, char **values, char **) {
        *static_cast<QByteArray *>(bytes) = values[0];
        return 0;
    };
    EXPECT_EQ(sqlite3_exec(database, sql.constData(), take, &answer, nullptr), SQLITE_OK) << sqlite3_errmsg(database);
    sqlite3_close(database);
    return answer;
}

} // namespace

TEST(SortedTexts, whoseIndexFollowsOtherRulesGetANewOne)
{
    LibraryTest library;
    for (const auto &title : { u"b-longest"_s, u"\u00C1-long"_s, u"c"_s })
        library.track(title)->setTitle(title);
    ASSERT_TRUE(library.context->save());
    const QString path = library.path();
    const QByteArray own = tamperFolding(path, "SELECT name FROM sqlite_schema WHERE name GLOB 'kx_i_Track_title~3.*'");
    ASSERT_FALSE(own.isEmpty());
    const auto make = [](const QByteArray &name, const QByteArray &column) {
        return "; CREATE INDEX \"" + name + "\" ON \"Track\"(kx_fold(\"" + column + "\", 3))";
    };
    tamperFolding(path, "DROP INDEX \"" + own + '"' + make("kx_i_Track_title~3.7", "title"));
    EXPECT_EQ(KXPersistentStore::problemsOfStoreURL(library.url()), QStringList()) << "it is not damaged";

    library.open();
    constexpr int plain = KXCaseInsensitive | KXDiacriticInsensitive;
    const auto titles = [&](bool ascending) {
        QStringList found;
        for (const auto &track :
            library.context->fetch(KXFetchRequest(u"Track"_s).setSortDescriptors({ { u"title"_s, ascending, plain } })))
            found.append(track->valueForKey(u"title"_s).toString());
        return found;
    };
    EXPECT_EQ(titles(true), QStringList({ u"\u00C1-long"_s, u"b-longest"_s, u"c"_s }));
    EXPECT_EQ(titles(false), QStringList({ u"c"_s, u"b-longest"_s, u"\u00C1-long"_s }));
    library.context->removeManagedObject(
        Track::findFirstUsingPredicate(KXPredicate::predicateWithFormat("title == 'b-longest'"), *library.context));
    EXPECT_TRUE(library.context->save());
    EXPECT_EQ(titles(true), QStringList({ u"\u00C1-long"_s, u"c"_s }));
    EXPECT_EQ(KXPersistentStore::problemsOfStoreURL(library.url()), QStringList());

    // What only looks like one is none of the model's.
    for (const QByteArray &evil : { make("kx_i_Track_title~3.x", "title"), make("kx_i_Track_title~3.8", "comment"),
             make("kx_i_Track_title~4.8", "title"), make("kx_i_Track_title~3", "title") }) {
        SCOPED_TRACE(evil.constData());
        tamperFolding(path, evil.mid(2));
        KXError error;
        EXPECT_FALSE(openLibrary(path, &error));
        EXPECT_EQ(error.code(), KXStoreErrorCode::Damaged);
        tamperFolding(path, "DROP INDEX " + evil.mid(evil.indexOf('"'), evil.indexOf(" ON ") - evil.indexOf('"')));
    }
    EXPECT_TRUE(openLibrary(path));
}

TEST_F(StoreFiles, pipesAndBombsAreRefusedWithAReason)
{
    ASSERT_TRUE(backUp());
    const QStringList tracks = Versions::tracks(path);
    const QString pipe = file(u"pipe"_s);
    ASSERT_EQ(::mkfifo(QFile::encodeName(pipe).constData(), 0600), 0);
    ASSERT_TRUE(QFile::link(pipe, file(u"link"_s)));
    for (const QString &each : { pipe, file(u"link"_s), u"/dev/zero"_s, folder.path() }) {
        SCOPED_TRACE(each.toStdString());
        KXError error;
        EXPECT_FALSE(restore(each, &error));
        EXPECT_TRUE(error.localizedDescription().contains(each)) << error.localizedDescription().toStdString();
        EXPECT_FALSE(KXManagedObjectModel::modelWithContentsOfFile(each, &error));
        EXPECT_TRUE(error.localizedDescription().contains(each)) << error.localizedDescription().toStdString();
        EXPECT_FALSE(KXPersistentStore::metadataForStoreURL(QUrl::fromLocalFile(each), &error));
        EXPECT_FALSE(
            Coordinator::persistentStoreCoordinatorWithStoreURL(QUrl::fromLocalFile(each), Versions::model(1)));
    }
    // Not what a store packs into: the size stands before the content.
    const QString bomb = file(u"bomb.cpgz"_s);
    gzFile packed = gzopen(QFile::encodeName(bomb).constData(), "wb");
    const QByteArray entry = "070707"
                             "000001"
                             "000001"
                             "100600"
                             "000000"
                             "000000"
                             "000001"
                             "000000"
                             "00000000000"
                             "000013"
                             "77777777777"
                             "./crate.db";
    gzwrite(packed, entry.constData(), unsigned(entry.size() + 1));
    gzclose(packed);
    KXError error;
    EXPECT_FALSE(restore(bomb, &error));
    EXPECT_TRUE(error.localizedDescription().contains(u"would unpack to more than"_s))
        << error.localizedDescription().toStdString();
    EXPECT_EQ(Versions::tracks(path), tracks);
}

TEST_F(StoreFiles, restoringGivesNoKeyTwice)
{
    ASSERT_TRUE(backUp());
    const auto newKey = [this] {
        const auto context = KXManagedObjectContext::contextWithPersistentStoreCoordinator(Versions::open(path));
        const auto track = context->managedObjectForEntity(u"Track"_s);
        track->setValueForKey(u"title"_s, u"new"_s);
        EXPECT_TRUE(context->save());
        return track->objectID().key();
    };
    qint64 last = 0;
    for (int i = 0; i < 3; ++i) {
        const qint64 key = newKey();
        EXPECT_GT(key, last) << "a URI that somebody kept would lead to another track";
        last = key;
        ASSERT_TRUE(restore(archive));
    }
    EXPECT_EQ(KXPersistentStore::problemsOfStoreURL(url), QStringList());

    // Broken sequences are told of, and give out nothing.
    for (const char *sql : { "DELETE FROM kx_sequence", "UPDATE kx_sequence SET next = 'many'",
             "UPDATE kx_sequence SET next = -5", "UPDATE kx_sequence SET next = 9223372036854775807",
             "INSERT INTO kx_sequence VALUES(7)", "UPDATE kx_sequence SET next = 1.5" }) {
        SCOPED_TRACE(sql);
        Library::tamper(path, sql);
        EXPECT_TRUE(KXPersistentStore::problemsOfStoreURL(url)->contains(u"The sequence of keys is broken"_s));
        {
            const auto context = KXManagedObjectContext::contextWithPersistentStoreCoordinator(Versions::open(path));
            ASSERT_TRUE(context);
            EXPECT_EQ(context->countForEntity(u"Track"_s), 3) << "the library can be looked at";
            KXError error;
            EXPECT_FALSE(context->managedObjectForEntity(u"Track"_s, &error));
            EXPECT_EQ(error.code(), KXStoreErrorCode::Damaged);
        }
        ASSERT_TRUE(restore(archive)) << "a broken sequence is taken over from nobody";
        EXPECT_EQ(KXPersistentStore::problemsOfStoreURL(url), QStringList());
    }
}

TEST_F(StoreFiles, behindALinkAreWorkedOnInTheirRealPlace)
{
    const QTemporaryDir elsewhere;
    const QString link = elsewhere.filePath(u"favourites.db"_s);
    ASSERT_TRUE(QFile::link(path, link));
    const QUrl linkURL = QUrl::fromLocalFile(link);
    const QStringList tracks = Versions::tracks(path);
    {
        const auto coordinator = Versions::open(link);
        ASSERT_TRUE(coordinator);
        EXPECT_TRUE(coordinator->store()->createBackup());
        EXPECT_EQ(coordinator->store()->existingBackupFileURLs(), QList<QUrl> { QUrl::fromLocalFile(archive) });
        EXPECT_TRUE(Versions::add(coordinator, u"through the link"_s));
        EXPECT_TRUE(Versions::open(path)) << "the same file by both names";
    }
    EXPECT_EQ(Versions::tracks(path).size(), 4);
    EXPECT_TRUE(Coordinator::migrateURL(linkURL, Versions::model(1), Versions::model(2)));
    EXPECT_EQ(Versions::versionOf(path), 2);
    QUrl copy;
    EXPECT_TRUE(KXPersistentStore::restoreBackup(QUrl::fromLocalFile(archive), linkURL, nullptr, &copy));
    EXPECT_EQ(QFileInfo(copy.toLocalFile()).path(), folder.path());
    EXPECT_EQ(Versions::tracks(path), tracks);
    EXPECT_EQ(everythingIn(elsewhere.path()), QStringList { u"favourites.db"_s });
    EXPECT_EQ(QFileInfo(link).symLinkTarget(), path);
}
