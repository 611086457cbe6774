#include <kestrixkit/migration/KXStoreBackup_p.h>

#include <QDir>
#include <QFileInfo>

#include <kestrixkit/foundation/KXClock.h>
#include <kestrixkit/foundation/KXLog.h>
#include <kestrixkit/migration/KXStoreArchiver.h>
#include <kestrixkit/migration/KXStoreCheck_p.h>
#include <kestrixkit/migration/KXStoreMigration_p.h>
#include <kestrixkit/store/KXPersistentStore_p.h>
#include <kestrixkit/store/KXStoreProgress_p.h>
#include <kestrixkit/store/KXStoreSchema_p.h>
#include <kestrixkit/store/KXStoreTables_p.h>

using namespace Qt::StringLiterals;

namespace {

constexpr qsizetype backupsKept = 5;
constexpr QLatin1StringView backupSuffix { "bck.cpgz" };
constexpr qint64 backupBlock = 1 << 20;

KXError backupUnusable(const QString &why)
{
    return KXError(KXKestrixKitErrorDomain, KXStoreErrorCode::NotAStore, why);
}

/// Makes the store among the unpacked files one sound file without log, and names it.
KXError backupFinishUnpacked(const QString &folder, QString &file, const KXStoreProgress &progress)
{
    for (const QString &name : QDir(folder).entryList(QDir::Files | QDir::Hidden)) {
        if (name.endsWith("-wal"_L1) || name.endsWith("-shm"_L1) || name.endsWith("-journal"_L1))
            continue;
        if (!file.isEmpty())
            return backupUnusable(u"The backup holds more than one store"_s);
        file = folder + u'/' + name;
    }
    if (file.isEmpty())
        return backupUnusable(u"The backup holds no store"_s);
    // SQLite makes a log's index anew; this one was written while others used it.
    if (KXError error = KXStoreFiles::remove(file + "-shm"_L1))
        return error;
    KXStoreMetadata metadata;
    bool fresh = false;
    if (KXError error = KXStoreSchema::look(file, {}, fresh, metadata); error || fresh)
        return error ? error : backupUnusable(u"The backup holds an empty store"_s);
    KXSQLiteConnection connection;
    if (KXError error = connection.openAlone(file))
        return error;
    KXError unfit;
    const auto model = KXStoreMigration::modelOf(metadata, &unfit);
    if (model)
        unfit = KXStoreTables::check(connection, *model);
    if (unfit)
        return unfit;
    const QStringList damage = KXStoreCheck::damage(connection, progress);
    return damage.isEmpty() ? KXError() : KXError(KXKestrixKitErrorDomain, KXStoreErrorCode::Damaged, damage.first());
}

/// The store in the file goes on with keys that the one which it replaces has never given out, where that can be read:
/// what others have kept of a row that the backup does not know must never lead to another one.
KXError backupKeepKeys(KXSQLiteConnection &old, const QString &file)
{
    KXStoreMetadata before;
    KXStoreMetadata after;
    if (!old.handle() || KXStoreSchema::readMetadata(old, before))
        return {};
    const qint64 next = KXStoreSchema::nextKey(old);
    KXSQLiteConnection connection;
    if (KXError error = connection.open(file, { .untouched = true, .brief = true }))
        return error;
    if (KXError error = KXStoreSchema::readMetadata(connection, after))
        return error;
    if (before.uuid != after.uuid || next <= KXStoreSchema::nextKey(connection))
        return {};
    return connection.execute(("UPDATE kx_sequence SET next = " + QByteArray::number(next)).constData());
}

KXError backupCopy(const QString &from, const QString &to)
{
    KXPinnedFile source;
    KXNewFile target;
    if (KXError error = source.open(from))
        return error;
    if (KXError error = target.create(to))
        return error;
    QByteArray block(backupBlock, Qt::Uninitialized);
    for (qint64 offset = 0; offset < source.size();) {
        const qint64 size = source.read(offset, block.data(), backupBlock);
        if (size <= 0)
            return KXError(
                KXKestrixKitErrorDomain, KXStoreErrorCode::InputOutput, KXStringWithFormat("%@ cannot be read", from));
        if (KXError error = target.write(QByteArrayView(block.constData(), size)))
            return error;
        offset += size;
    }
    return {};
}

}

QList<QUrl> KXStoreBackup::existing() const
{
    QFileInfoList archives = QDir(m_store.folder()).entryInfoList(QDir::Files | QDir::NoDotAndDotDot);
    archives.removeIf([this](const QFileInfo &file) {
        return !file.fileName().startsWith(m_store.name()) || !file.fileName().endsWith(backupSuffix);
    });
    std::sort(archives.begin(), archives.end(), [](const QFileInfo &a, const QFileInfo &b) {
        return std::pair(a.lastModified(), a.fileName()) < std::pair(b.lastModified(), b.fileName());
    });
    QList<QUrl> urls;
    for (const QFileInfo &file : archives)
        urls.append(QUrl::fromLocalFile(file.absoluteFilePath()));
    return urls;
}

KXError KXStoreBackup::create(const KXStoreProgress &progress) const
{
    if (!KXStoreFiles::exists(m_store.path())) {
        KXLogDebug(
            store, "[%@] Not creating backup as store file does not exists", QFileInfo(m_store.path()).fileName());
        return KXError(KXKestrixKitErrorDomain, KXStoreErrorCode::CannotOpen,
            KXStringWithFormat("There is no store file %@", m_store.path()));
    }
    const QString stem = m_store.name() + KXClock::today().toString(u"-ddMMyyyy-'bck'"_s);
    const QString name = stem + ".cpgz"_L1;
    const QString path = m_store.folder() + u'/' + name;
    const QList<QUrl> before = existing();
    KXLogDebug(store, "[%@] Found backups: %@", name, before);
    if (KXStoreFiles::exists(path)) {
        KXLogInfo(store, "[%@] Existing backup found: %@. Not backing up", name, path);
        return KXError(KXKestrixKitErrorDomain, KXStoreErrorCode::BackupExists,
            KXStringWithFormat("There is a backup of today already: %@", path));
    }
    if (!before.isEmpty() && QFileInfo(before.last().toLocalFile()).lastModified() > KXClock::now().addDays(1))
        KXLogWarning(store, "[%@] There is a backup from the future: the clock may be wrong", name);

    removeAbandoned();
    const QString staging = m_store.folder() + u'/' + stem;
    if (KXError error = archive(name, staging, KXProgressOfPart(progress, 0, 0.6))) {
        KXLogWarning(store, "%@", error.localizedDescription());
        return error;
    }
    KXError damage = KXStoreFiles::exists(path) ? check(path, KXProgressOfPart(progress, 0.6, 1))
                                                : backupUnusable(u"The archiver has written nothing"_s);
    if (damage) {
        KXLogWarning(store, "[%@] Backup cannot be used: %@", name, damage);
        if (KXError left = KXStoreFiles::remove(path))
            KXLogWarning(store, "Cannot remove %@", left);
        return damage;
    }
    KXLogInfo(store, "[%@] Backup created: %@", name, path);
    removeOld(path);
    return {};
}

/// What was unpacked or half written by processes that were killed.
void KXStoreBackup::removeAbandoned() const
{
    static const auto pattern = u"\\A\\.%1-(?:.*-)?[0-9A-F]{8}(?:-[0-9A-F]{4}){3}-[0-9A-F]{12}(?:\\.part)?\\z"_s;
    KXWorkFolder::removeAbandoned(
        m_store.folder(), QRegularExpression(pattern.arg(QRegularExpression::escape(m_store.name()))));
}

/// Stages the store's files and has them archived. The error is the line for the log.
KXError KXStoreBackup::archive(const QString &name, const QString &staging, const KXStoreProgress &progress) const
{
    const auto failure = [](int code, const QString &line) { return KXError(KXKestrixKitErrorDomain, code, line); };
    // From here until the archive is written nobody may change what is in the file: what others save meanwhile stays in
    // the log, from which the file is not brought up to date while somebody reads an earlier state.
    KXSQLiteConnection connection;
    KXError problem = connection.open(m_store.path(), {});
    if (!problem) {
        sqlite3_wal_checkpoint_v2(connection.handle(), nullptr, SQLITE_CHECKPOINT_PASSIVE, nullptr, nullptr);
        problem = connection.execute("BEGIN; SELECT count(*) FROM sqlite_master");
    }
    if (problem)
        return failure(
            problem.code(), KXStringWithFormat("[%@] Backup failed as the store cannot be read: %@", name, problem));

    const QString file = QFileInfo(m_store.path()).fileName();
    QStringList files { file };
    for (const auto suffix : { "-wal"_L1, "-shm"_L1 }) {
        if (KXStoreFiles::exists(m_store.path() + suffix))
            files.append(file + suffix);
    }
    KXWorkFolder folder;
    if (KXError error = folder.open(staging, KXStoreFiles::companions(file)))
        return failure(
            error.code(), KXStringWithFormat("[%@] Failed to create backup folder %@: %@", name, staging, error));
    for (const QString &each : files) {
        if (KXError error = folder.link(m_store.folder() + u'/' + each, each)) {
            folder.leave(); // to be looked at; the next backup empties it
            return failure(
                error.code(), KXStringWithFormat("[%@] Failed to copy backup file %@: %@", name, each, error));
        }
    }
    const QStringList arguments { u"-z"_s, u"-c"_s, staging, m_store.folder() + u'/' + name };
    KXLogDebug(store, "[%@] Backup task args: %@", name, arguments);
    const int status = KXStoreArchiver::shared().run(arguments, m_store.folder(), progress);
    if (status == 0)
        return {};
    KXLogInfo(store, "[%@] Backup failed with exit code %ld", name, status);
    return failure(KXStoreErrorCode::Other, KXStringWithFormat("[%@] There is no backup of today", name));
}

/// Unpacks an archive and looks whether a store could be had from it.
KXError KXStoreBackup::check(const QString &archive, const KXStoreProgress &progress) const
{
    KXWorkFolder folder;
    if (KXError error = folder.open(m_store.hidden()))
        return error;
    if (KXError error = KXStoreArchiver::unpack(archive, folder.path(), KXProgressOfPart(progress, 0, 0.5)))
        return error;
    QString file;
    return backupFinishUnpacked(folder.path(), file, KXProgressOfPart(progress, 0.5, 1));
}

void KXStoreBackup::removeOld(const QString &made) const
{
    const QString name = QFileInfo(made).fileName();
    QList<QUrl> old = existing();
    // The new one counts as the newest, whatever the clock said when the others were made.
    old.removeAll(QUrl::fromLocalFile(made));
    old = old.first(std::max<qsizetype>(0, old.size() - (backupsKept - 1)));
    if (old.isEmpty())
        return;
    KXLogInfo(store, "[%@] Removing old backups: %@", name, old);
    for (const QUrl &url : old) {
        if (KXError error = KXStoreFiles::remove(url.toLocalFile())) {
            KXLogWarning(store, "[%@] Failed to remove old backup %@: %@", name, url.toLocalFile(), error);
            return;
        }
    }
}

KXError KXStoreBackup::restore(const QString &backup, QString *copy, const KXStoreProgress &progress) const
{
    if (KXError error = KXStoreReplacement::recover(m_store.path()))
        return error;
    removeAbandoned();
    KXWorkFolder folder;
    if (KXError error = folder.open(m_store.hidden()))
        return error;
    bool fresh = false;
    const bool isStore = !KXStoreSchema::inspectFile(backup, {}, fresh) && !fresh;
    KXError error;
    if (isStore) {
        KXSQLiteConnection alone; // so that the file is whole, and stays as it is while it is copied
        error = alone.openAlone(backup);
        if (!error)
            error = backupCopy(KXStoreFiles::realPath(backup), folder.path() + u'/' + QFileInfo(backup).fileName());
    } else {
        error = KXStoreArchiver::unpack(backup, folder.path(), KXProgressOfPart(progress, 0, 0.5));
    }
    QString file;
    if (!error)
        error = backupFinishUnpacked(folder.path(), file, KXProgressOfPart(progress, 0.5, 1));
    return error ? error : takeOver(file, copy);
}

/// Moves a sound store from the folder beside to the store's place.
KXError KXStoreBackup::takeOver(const QString &file, QString *copy) const
{
    const bool isThere = KXStoreFiles::exists(m_store.path());
    KXSQLiteConnection old;
    if (isThere) {
        // A damaged store may be replaced, one that somebody works on may not.
        KXError error = old.openAlone(m_store.path());
        if (error && error.code() != KXStoreErrorCode::NotAStore && error.code() != KXStoreErrorCode::Damaged)
            return error;
    } else {
        for (const QString &path : KXStoreFiles::companions(m_store.path())) { // of a store that somebody removed
            if (KXError error = KXStoreFiles::remove(path))
                return error;
        }
    }
    if (KXError error = backupKeepKeys(old, file))
        return error;
    KXStoreFiles::shareModeOf(m_store.path(), file);
    const QString fresh = m_store.unique();
    const QString kept = isThere ? m_store.unique() : QString();
    KXStoreReplacement replacement(m_store.path(), fresh, kept);
    if (KXError error = replacement.begin())
        return error;
    KXError error = KXStoreFiles::move(file, fresh);
    if (!error)
        error = replacement.freshIsWhole();
    if (!error && isThere)
        error = replacement.moveOldAside();
    if (!error)
        error = KXStoreFiles::move(fresh, m_store.path());
    replacement.end(bool(error));
    if (!error && copy)
        *copy = kept;
    return error;
}

// What stores and coordinators offer of it.

bool KXPersistentStore::createBackup(const KXStoreProgress &progress, KXError *error)
{
    const KXError problem = KXStoreBackup(URL().toLocalFile()).create(progress);
    return !problem || KXSetError(error, problem);
}

QList<QUrl> KXPersistentStore::existingBackupFileURLs() const { return KXStoreBackup(URL().toLocalFile()).existing(); }

bool KXPersistentStore::restoreBackup(
    const QUrl &backup, const QUrl &store, KXError *error, QUrl *copy, const KXStoreProgress &progress)
{
    QString kept;
    if (KXError problem = KXStoreBackup(store.toLocalFile()).restore(backup.toLocalFile(), &kept, progress)) {
        KXLogError(store, "Failed to restore store %@: %@", store, problem);
        return KXSetError(error, problem);
    }
    KXLogInfo(store, "Restored store %@ from %@, the old one is %@", store, backup, kept);
    if (copy)
        *copy = kept.isEmpty() ? QUrl() : QUrl::fromLocalFile(kept);
    return true;
}
