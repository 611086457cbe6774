#pragma once

#include <QDateTime>
#include <QList>
#include <QUrl>

#include <kestrixkit/store/KXPersistentStore.h>
#include <kestrixkit/store/KXStoreReplacement_p.h>

/// Backups of one store file, whether it is open or not. docs/formats/backup.md describes archives and names.
class KXStoreBackup
{
public:
    explicit KXStoreBackup(const QString &path)
        : m_store(path)
    {
    }

    /// Oldest first.
    [[nodiscard]] QList<QUrl> existing() const;
    /// Makes today's archive. An error where there is one already (code BackupExists), or where it fails, which the log
    /// tells.
    [[nodiscard]] KXError create(const KXStoreProgress &progress = {}) const;
    /// Puts what an archive or a copy of a store holds in the store's place. `copy` gets the path that the old store is
    /// kept under; empty where there was none.
    [[nodiscard]] KXError restore(const QString &backup, QString *copy, const KXStoreProgress &progress = {}) const;

private:
    [[nodiscard]] KXError archive(
        const QString &archive, const QString &staging, const KXStoreProgress &progress) const;
    [[nodiscard]] KXError check(const QString &archive, const KXStoreProgress &progress) const;
    void removeAbandoned() const;
    void removeOld(const QString &made) const;
    [[nodiscard]] KXError takeOver(const QString &file, QString *copy) const;

    const KXStorePath m_store;
};
