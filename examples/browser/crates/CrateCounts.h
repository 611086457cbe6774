#pragma once

#include <QHash>
#include <QObject>

#include <kestrixkit/counts/KXLiveCounts.h>
#include <kestrixkit/foundation/KXDelayedCall.h>

#include "crates/Crate.h"

/// The badges of crates: how many tracks are in each, and how many different ones in all crates of a folder.
class CrateCounts : public QObject
{
    Q_OBJECT
public:
    explicit CrateCounts(KXManagedObjectContext::Ref context, QObject *parent = nullptr);

    /// Counts at once what is due.
    void update();
    /// Waits for what another thread counts.
    void finish();

private:
    void follow(const KXObjectsDidChange &did);
    void followCrates();
    void deliver(const QStringList &identifiers);
    void countFolders();

    const KXManagedObjectContext::Ref m_context;
    KXLiveCounts m_counts; // of entries
    QHash<QString, KXRef<Crate>> m_crates; // that are counted, by identifier
    QSet<qint64> m_folders; // whose number is due
    KXDelayedCall m_cratesSoon { this }, m_foldersSoon { this };
    KXNotificationToken m_changes;
};
