#pragma once

#include <QModelIndex>

#include <kestrixkit/context/KXManagedObject.h>

class KXTreeController;
class QMimeData;

/// Items of a source list on the pasteboard, as they are dragged. Main thread.
namespace KXSourceListPasteboard {

/// From top to bottom. nullptr where one of the rows is to stay where it is; the caller owns the data.
[[nodiscard]] QMimeData *mimeDataForRows(const KXTreeController &tree, const QModelIndexList &rows);
/// The objects of the tree that the data is of; none where it carries none, or nothing that can be read.
[[nodiscard]] QList<KXRef<KXManagedObject>> objectsOfMimeData(const KXTreeController &tree, const QMimeData &data);

}
