#pragma once

#include <memory>

#include <QHash>
#include <QLatin1StringView>
#include <QList>
#include <QSet>

#include <kestrixkit/context/KXManagedObject.h>

class KXStoreChange;

/// Posted by a context when its pending changes are processed: before a save, at an explicit call and at the end of
/// the main thread's turn. Sender: the context; payload: KXObjectsDidChange.
inline constexpr QLatin1StringView KXManagedObjectContextObjectsDidChangeNotification {
    "KXManagedObjectContextObjectsDidChangeNotification"
};

/// The objects that changed since the last such notification. At that moment isInserted() and isDeleted() still hold,
/// unless what changed was saved meanwhile: what an observer changes and saves while it is told is announced when all
/// have been told of what came before. Then an inserted object is a stored one, and a deleted one has no context any
/// more, but keeps its identifier. Which list an object is in holds in both cases.
struct KX_CORE_EXPORT KXObjectsDidChange
{
    QList<KXRef<KXManagedObject>> inserted;
    QList<KXRef<KXManagedObject>> updated;
    QList<KXRef<KXManagedObject>> deleted;
    QList<KXRef<KXManagedObject>> refreshed; ///< by a merge: they took over what another context saved; by a rollback
    QList<qint64> insertedKeys; ///< by a merge: rows that another context inserted, as keys alone
    /// Of each updated or refreshed object the keys that changed.
    QHash<const KXManagedObject *, QSet<QString>> changedKeys;
    /// The save that a merge took over; what it says of rows that the context does not hold stands only there.
    std::shared_ptr<const KXStoreChange> merged;

    /// Keys of the objects of the entity's family that came, went, or of which this property changed, those that the
    /// context does not hold included.
    [[nodiscard]] QSet<qint64> touched(const KXEntityDescription &entity, const QString &property) const;
};
