#pragma once

#include <functional>
#include <memory>
#include <optional>

#include <QByteArray>
#include <QLatin1StringView>
#include <QMap>
#include <QStringList>
#include <QUrl>

#include <kestrixkit/entity/KXManagedObjectID.h>
#include <kestrixkit/foundation/KXError.h>
#include <kestrixkit/model/KXStoreMetadata.h>

class KXPersistentStorePrivate;

/// The only type of store.
inline constexpr QLatin1StringView KXSQLiteStoreType { "SQLite" };

/// Told the part that is done, from 0 to 1, now and then during long work, on the thread that works. An estimate.
using KXStoreProgress = std::function<void(double done)>;

/// One open store file. Owned by its coordinator; open until that goes. Any thread.
class KX_CORE_EXPORT KXPersistentStore
{
public:
    explicit KXPersistentStore(std::unique_ptr<KXPersistentStorePrivate> p);
    ~KXPersistentStore();
    KXPersistentStore(const KXPersistentStore &) = delete;
    KXPersistentStore &operator=(const KXPersistentStore &) = delete;

    /// Of a store file that need not be open, and is left as it is; but a migration that was interrupted is finished or
    /// taken back first. Nothing and an error where it is no store, damaged or newer.
    [[nodiscard]] static std::optional<KXStoreMetadata> metadataForStoreURL(const QUrl &url, KXError *error = nullptr);

    /// What is wrong in a store file, a line each: damage of the file, rows that do not keep the model's promises.
    /// Empty for a sound one, nothing and an error for one that cannot be read. Reads the whole file.
    [[nodiscard]] static std::optional<QStringList> problemsOfStoreURL(
        const QUrl &url, KXError *error = nullptr, const KXStoreProgress &progress = {});

    /// Where the file lies.
    [[nodiscard]] const QUrl &URL() const;
    /// The UUID that the file got when it was made; part of every object's URI.
    [[nodiscard]] const QString &identifier() const;
    [[nodiscard]] const std::shared_ptr<const KXStoreIdentity> &identity() const;

    /// Makes today's backup, "name-ddMMyyyy-bck.cpgz" beside the store, of all that is saved when it begins; others may
    /// save meanwhile. The archive is unpacked and checked, then of older ones all but the newest four are removed.
    /// False and an error where there is one of today already (code BackupExists) and where it fails, which the log
    /// tells, too; the store is never touched. Takes as long as compressing the file does.
    bool createBackup(const KXStoreProgress &progress = {}, KXError *error = nullptr);
    /// The store's archives, oldest first. Of all stores whose names begin like this one's.
    [[nodiscard]] QList<QUrl> existingBackupFileURLs() const;
    /// Puts what is in a backup in the place of a store that nobody has open, or where there is none. The old store,
    /// sound or damaged, is kept beside it and named in `copy`: restoring that takes it back. False and an error where
    /// the backup is damaged or somebody has the store open, which is then as it was.
    static bool restoreBackup(const QUrl &backup, const QUrl &store, KXError *error = nullptr, QUrl *copy = nullptr,
        const KXStoreProgress &progress = {});

private:
    friend class KXPersistentStorePrivate;
    std::unique_ptr<KXPersistentStorePrivate> m_p;
};
