#pragma once

#include <QList>
#include <QMimeData>

#include <kestrixkit/entity/KXManagedObjectID.h>

/// Stored objects on the pasteboard.
inline constexpr QLatin1StringView KXObjectPasteboardType { "com.kestrix.kestrixkit.internal.KXManagedObjects" };

/// Stored objects in drags and on the clipboard, eight bytes each: a whole library of them is carried along as easily
/// as one. They are named by store and key, so they mean something wherever that store is open. Main thread.
namespace KXObjectPasteboard {

/// For the caller to own. Null identifiers and those of other stores than the first one's are left out.
[[nodiscard]] KX_UI_EXPORT QMimeData *mimeDataWithObjects(const QList<KXManagedObjectID> &objects);
/// Those that the data names in that store, of an entity or one below it; whether they exist is not looked up. None
/// where the data carries none, or nothing that can be read (which is logged).
[[nodiscard]] KX_UI_EXPORT QList<KXManagedObjectID> objectsOfMimeData(
    const QMimeData *data, const std::shared_ptr<const KXStoreIdentity> &inStore, const QString &entityName);

}
