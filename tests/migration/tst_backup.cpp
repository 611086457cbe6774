// Archives of stores: made beside those who save, kept to five, and put back.

#include <iostream>

#include <QDir>
#include <QFile>
#include <QRandomGenerator>
#include <gtest/gtest.h>

#include <kestrixkit/foundation/KXClock.h>
#include <kestrixkit/foundation/KXLog.h>
#include <kestrixkit/migration/KXStoreArchiver.h>
#include <kestrixkit/store/KXSQLite_p.h>

#include "store/Library.h"
#include "store/Versions.h"
#include "support/ChildProcess.h"
#include "support/FaultVfs.h"
#include "support/KXTestLog.h"
#include "support/KXTestPrint.h"
#include "support/KXTestRandom.h"

using namespace Qt::StringLiterals;
using Coordinator = KXPersistentStoreCoordinator;

/// A store in a folder of its own, on a day in May; everything is logged.
class Backup : public ::testing::Test
{
protected:
    Backup()
    {
        KXKestrixKitLogLevel = 15;
        KXClock::setTimeZone(QTimeZone::utc());
        setDay(1);
        Versions::make(path, 3);
        coordinator = Versions::open(path);
    }
    ~Backup() override { KXKestrixKitLogLevel = KXLogLevelError | KXLogLevelWarning; }

    static void setDay(int day) { KXClock::setFixed(QDateTime({ 2026, 5, day }, { 12, 0 }, Qt::UTC)); }
    [[nodiscard]] QString file(const QString &name) const { return folder.filePath(name); }
    [[nodiscard]] QStringList archives() const
    {
        QStringList names;
        for (const QUrl &url : coordinator->store()->existingBackupFileURLs())
            names.append(url.fileName());
        return names;
    }
    /// As if it had been made on that day.
    void makeArchive(const QString &name, int day) const
    {
        Library::write(file(name), "not looked at");
        QFile archive(file(name));
        ASSERT_TRUE(archive.open(QIODevice::ReadWrite));
        archive.setFileTime(QDateTime({ 2026, 5, day }, { 12, 0 }, Qt::UTC), QFileDevice::FileModificationTime);
    }

    const QTemporaryDir folder;
    const QString path = file(u"crate.db"_s);
    const QUrl url = QUrl::fromLocalFile(path);
    const KXClockPin pin;
    const KXTestLog log;
    Coordinator::Ref coordinator;
};

namespace {

/// Instead of the real one.
struct TestArchiver : KXStoreArchiver
{
    TestArchiver() { setShared(this); }
    ~TestArchiver() override { setShared(nullptr); }
    int run(const QStringList &given, const QString &folder, const KXStoreProgress &) override
    {
        arguments = given;
        workingFolder = folder;
        staged = QDir(given[2]).entryList(QDir::Files);
        if (!bytes.isNull())
            Library::write(given[3], bytes);
        return status;
    }
    int status = 0;
    QByteArray bytes;
    QStringList arguments, staged;
    QString workingFolder;
};

} // namespace

TEST_F(Backup, holdsWhatWasSavedAndIsMadeOnceADay)
{
    ASSERT_TRUE(Versions::add(coordinator, u"in the log"_s));
    KXError why;
    EXPECT_TRUE(coordinator->backupPersistentStores(&why)) << why.localizedDescription().toStdString();
    const QString archive = file(u"crate-01052026-bck.cpgz"_s);
    EXPECT_EQ(archives(), QStringList { u"crate-01052026-bck.cpgz"_s });
    EXPECT_EQ(Versions::files(folder.path()), QStringList({ u"crate-01052026-bck.cpgz"_s, u"crate.db"_s }))
        << "nothing else is left";
    QDir(folder.path()).mkdir(u"unpacked"_s);
    ASSERT_FALSE(KXStoreArchiver::unpack(archive, file(u"unpacked"_s)));
    EXPECT_EQ(QDir(file(u"unpacked"_s)).entryList(QDir::Files, QDir::Name),
        QStringList({ u"crate.db"_s, u"crate.db-shm"_s, u"crate.db-wal"_s }));
    QDir(file(u"unpacked"_s)).removeRecursively();

    ASSERT_TRUE(Versions::add(coordinator, u"after the backup"_s));
    EXPECT_FALSE(coordinator->backupPersistentStores(&why));
    EXPECT_EQ(why.code(), KXStoreErrorCode::BackupExists);
    EXPECT_TRUE(log.contains(u"[crate-01052026-bck.cpgz] Existing backup found: %1. Not backing up"_s.arg(archive)));

    KXError error;
    QUrl copy;
    const QUrl other = QUrl::fromLocalFile(file(u"other.db"_s));
    ASSERT_TRUE(KXPersistentStore::restoreBackup(QUrl::fromLocalFile(archive), other, &error, &copy))
        << error.localizedDescription().toStdString();
    EXPECT_TRUE(copy.isEmpty());
    EXPECT_EQ(Versions::tracks(other.toLocalFile()), Versions::tracks(path).first(4));

    // Over the store itself, once nobody has it open; and taken back.
    const QStringList now = Versions::tracks(path);
    coordinator.reset();
    ASSERT_TRUE(KXPersistentStore::restoreBackup(QUrl::fromLocalFile(archive), url, &error, &copy))
        << error.localizedDescription().toStdString();
    EXPECT_EQ(Versions::tracks(path), now.first(4));
    EXPECT_EQ(Versions::tracks(copy.toLocalFile()), now);
    ASSERT_TRUE(KXPersistentStore::restoreBackup(copy, url, &error)) << error.localizedDescription().toStdString();
    EXPECT_EQ(Versions::tracks(path), now);
    Library::write(path, "damaged, as stores are that one restores");
    Library::write(path + "-wal"_L1, "damaged");
    ASSERT_TRUE(KXPersistentStore::restoreBackup(QUrl::fromLocalFile(archive), url, &error))
        << error.localizedDescription().toStdString();
    EXPECT_EQ(Versions::tracks(path), now.first(4));
    EXPECT_TRUE(Versions::open(path));
    EXPECT_EQ(Library::damage(path), "");
}

TEST_F(Backup, keepsFive)
{
    makeArchive(u"crater-09052026-bck.cpgz"_s, 1); // of a store whose name begins like ours
    makeArchive(u"crate-30042026-bck.cpgz"_s, 2);
    makeArchive(u"crate-02052026-bck.cpgz"_s, 3);
    makeArchive(u"crate-01052026-bck.cpgz"_s, 3); // of one time: by name
    Library::write(file(u".crate-09052026-bck.cpgz"_s), {});
    Library::write(file(u"crate-09052026-bck.zip"_s), {});
    const QStringList three { u"crate-30042026-bck.cpgz"_s, u"crate-01052026-bck.cpgz"_s,
        u"crate-02052026-bck.cpgz"_s };
    EXPECT_EQ(archives(), QStringList { u"crater-09052026-bck.cpgz"_s } + three);
    setDay(4);
    coordinator->backupPersistentStores();
    EXPECT_EQ(archives().size(), 5);
    EXPECT_FALSE(log.contains(u"Removing old backups"_s));
    setDay(5);
    coordinator->backupPersistentStores();
    EXPECT_TRUE(log.contains(u"Removing old backups"_s));
    EXPECT_EQ(archives(), three + QStringList({ u"crate-04052026-bck.cpgz"_s, u"crate-05052026-bck.cpgz"_s }));

    // A clock that was set back makes the new one look oldest.
    for (const QString &name : archives()) {
        QFile archive(file(name));
        ASSERT_TRUE(archive.open(QIODevice::ReadWrite));
        archive.setFileTime(QDateTime::currentDateTimeUtc().addDays(2), QFileDevice::FileModificationTime);
    }
    KXClock::setFixed(QDateTime({ 2025, 1, 1 }, { 12, 0 }, Qt::UTC));
    coordinator->backupPersistentStores();
    EXPECT_EQ(archives().size(), 5);
    EXPECT_TRUE(archives().contains(u"crate-01012025-bck.cpgz"_s));
    EXPECT_TRUE(log.contains(u"There is a backup from the future"_s));
}

TEST_F(Backup, thatFailsLeavesStoreAndOlderOnes)
{
    for (int day = 1; day <= 6; ++day)
        makeArchive(u"crate-0%1042026-bck.cpgz"_s.arg(day), day);
    const QStringList before = archives();
    const QString staging = file(u"crate-01052026-bck"_s);
    {
        TestArchiver archiver;
        archiver.status = 3;
        coordinator->backupPersistentStores();
        EXPECT_EQ(archiver.arguments, QStringList({ u"-z"_s, u"-c"_s, staging, staging + ".cpgz"_L1 }));
        EXPECT_EQ(archiver.staged, QStringList({ u"crate.db"_s, u"crate.db-shm"_s, u"crate.db-wal"_s }));
        EXPECT_EQ(archiver.workingFolder, folder.path());
        EXPECT_TRUE(log.contains(u"[crate-01052026-bck.cpgz] Backup failed with exit code 3"_s));
        archiver.status = 0; // but nothing, or nothing of use, was written
        for (const QByteArray &bytes : { QByteArray(), QByteArray("no archive"), QByteArray("") }) {
            archiver.bytes = bytes;
            coordinator->backupPersistentStores();
            EXPECT_EQ(archives(), before);
        }
    }
    EXPECT_EQ(log.lines().filter(u"Backup cannot be used"_s).size(), 3);
    EXPECT_FALSE(QFileInfo::exists(staging));
    {
        FaultVfs vfs(FaultVfs::MachineWide);
        coordinator.reset();
        coordinator = Versions::open(path);
        vfs.failAt(2, SQLITE_FULL, true, FaultVfs::FileWrite); // the folder is made, the first link fails
        coordinator->backupPersistentStores();
        EXPECT_TRUE(vfs.hasFailed());
        coordinator.reset();
    }
    coordinator = Versions::open(path);
    EXPECT_TRUE(log.contains(u"[crate-01052026-bck.cpgz] Failed to copy backup file crate.db: "_s));
    EXPECT_TRUE(QFileInfo::exists(staging)) << "is left";
    Library::write(staging + "/notes.txt"_L1, "somebody's");
    coordinator->backupPersistentStores();
    EXPECT_TRUE(log.contains(u"[crate-01052026-bck.cpgz] Failed to create backup folder %1: "_s.arg(staging)));
    EXPECT_EQ(archives(), before);
    EXPECT_TRUE(QFile::remove(staging + "/notes.txt"_L1));
    EXPECT_TRUE(coordinator->store()->createBackup()) << "what was left is no hindrance";
    EXPECT_FALSE(QFileInfo::exists(staging));
    EXPECT_EQ(Versions::tracks(path).size(), 3);
    QFile::remove(path);
    coordinator->backupPersistentStores();
    EXPECT_TRUE(log.contains(u"[crate.db] Not creating backup as store file does not exists"_s));
}

TEST_F(Backup, thatCannotBeUsedIsNotRestored)
{
    coordinator->backupPersistentStores();
    coordinator.reset();
    const QStringList tracks = Versions::tracks(path);
    const QString archive = file(u"crate-01052026-bck.cpgz"_s);
    QFile good(archive);
    ASSERT_TRUE(good.open(QIODevice::ReadOnly));
    const QByteArray bytes = good.readAll();
    QByteArray noise(4096, '\0');
    QRandomGenerator(1).fillRange(reinterpret_cast<quint32 *>(noise.data()), 1024);
    QByteArray flipped = bytes;
    flipped[flipped.size() / 2] = char(~flipped[flipped.size() / 2]);
    const QString bad = file(u"bad.cpgz"_s);
    const QStringList files = Versions::files(folder.path()) + QStringList { u"bad.cpgz"_s };
    for (const QByteArray &content :
        { QByteArray(), noise, bytes.first(bytes.size() / 2), bytes.first(100), flipped, "./.." + bytes }) {
        Library::write(bad, content);
        KXError error;
        EXPECT_FALSE(KXPersistentStore::restoreBackup(QUrl::fromLocalFile(bad), url, &error));
        EXPECT_FALSE(error.localizedDescription().isEmpty());
        EXPECT_EQ(Versions::tracks(path), tracks);
        EXPECT_EQ(Versions::files(folder.path()).size(), files.size());
    }
    KXError error;
    EXPECT_FALSE(KXPersistentStore::restoreBackup(QUrl::fromLocalFile(file(u"missing.cpgz"_s)), url, &error));
    Library::tamper(file(u"foreign.db"_s), "CREATE TABLE t(x)");
    EXPECT_FALSE(KXPersistentStore::restoreBackup(QUrl::fromLocalFile(file(u"foreign.db"_s)), url, &error));
    EXPECT_EQ(Versions::tracks(path), tracks);
}

// Not a test: what the next one runs beside itself.
TEST(BackupChild, DISABLED_savesUntilItIsKilled)
{
    const auto coordinator = Versions::open(qEnvironmentVariable("KX_TEST_STORE"));
    ASSERT_TRUE(coordinator);
    const auto context = KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator);
    const auto churn = context->managedObjectForEntity(u"Album"_s);
    for (int n = 1;; ++n) {
        context->managedObjectForEntity(u"Track"_s)->setValueForKey(u"title"_s, QString::number(n));
        churn->setValueForKey(u"title"_s, QString(n * 997 % 20'000, QChar(u'a' + n % 26))); // pages come and go
        KXError error;
        ASSERT_TRUE(context->save(&error)) << error.localizedDescription().toStdString();
        std::cout << "saved " << n << std::endl;
    }
}

TEST_F(Backup, isMadeBesideAProcessThatWritesAllTheTime)
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(u"KX_TEST_STORE"_s, path);
    ChildProcess child("BackupChild.*", environment);
    KXKestrixKitLogLevel = KXLogLevelError | KXLogLevelWarning;
    int saved = 0;
    QByteArray output;
    std::thread reader;
    std::atomic<int> newest { 0 };
    reader = std::thread([&] {
        for (QByteArray more; !(more = child.read()).isEmpty();) {
            output += more;
            const qsizetype end = output.lastIndexOf('\n');
            const qsizetype start = output.lastIndexOf("saved ", end);
            if (end > 0 && start >= 0)
                newest = output.mid(start + 6, end - start - 6).split('\n').first().toInt();
        }
    });
    const int rounds = KXTestRandom::scaled(100);
    for (int round = 0; round < rounds && !HasFailure(); ++round) {
        KXClock::setFixed(QDateTime({ 2026, 5, 2 }, { 12, 0 }, Qt::UTC).addDays(round));
        while (newest == saved)
            std::this_thread::yield();
        saved = newest;
        EXPECT_TRUE(coordinator->store()->createBackup()) << log.lines().join(u'\n').toStdString();
        const QUrl archive = coordinator->store()->existingBackupFileURLs().last();
        const QString other = file(u"other.db"_s);
        KXError error;
        EXPECT_TRUE(KXPersistentStore::restoreBackup(archive, QUrl::fromLocalFile(other), &error))
            << error.localizedDescription().toStdString();
        EXPECT_EQ(Library::damage(other), "");
        // Every row that was saved before the backup began, and none of a later one before an earlier.
        const QStringList tracks = Versions::tracks(other);
        EXPECT_GE(tracks.size(), 3 + saved);
        for (qsizetype i = 3; i < tracks.size(); ++i)
            EXPECT_EQ(tracks[i].section(u' ', 1, 1).toInt(), i - 2);
        for (const QString &name : QDir(folder.path()).entryList({ u"other*"_s }))
            QFile::remove(file(name));
        if (round % 3 == 0) // a log that is begun anew, and not too large for this test
            Library::tamper(path, "PRAGMA busy_timeout=2000; PRAGMA wal_checkpoint(TRUNCATE)");
    }
    EXPECT_TRUE(child.kill());
    reader.join();
    coordinator.reset();
    EXPECT_EQ(Library::damage(path), "");
}
