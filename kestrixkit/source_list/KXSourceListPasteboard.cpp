#include <kestrixkit/source_list/KXSourceListPasteboard_p.h>

#include <algorithm>
#include <memory>

#include <QMimeData>

#include <kestrixkit/source_list/KXSourceListViewController.h>
#include <kestrixkit/toolkit/KXPasteboard.h>

QMimeData *KXSourceListPasteboard::mimeDataForRows(const KXTreeController &tree, const QModelIndexList &rows)
{
    std::vector<std::pair<KXIndexPath, const KXTreeNode *>> dragged;
    for (const QModelIndex &row : rows) {
        const KXTreeNode *const node = tree.nodeForIndex(row);
        const KXSourceListItem *const item
            = node ? KXSourceListViewController::itemOf(node->representedObject()) : nullptr;
        if (!item || !item->canBeRepositioned())
            return nullptr;
        dragged.emplace_back(node->indexPath(), node);
    }
    std::sort(dragged.begin(), dragged.end(), [](const auto &a, const auto &b) { return a.first < b.first; });
    QVariantList paths, uris;
    for (const auto &[path, node] : dragged) {
        paths.append(QVariant(QVariantList(path.begin(), path.end())));
        uris.append(node->representedObject()->objectID().URIRepresentation());
    }
    QMimeData *const data = KXPasteboard::mimeDataWithItems(KXSourceListItemPasteboardType, paths);
    const std::unique_ptr<QMimeData> objects(KXPasteboard::mimeDataWithItems(KXSourceListObjectPasteboardType, uris));
    data->setData(KXSourceListObjectPasteboardType, objects->data(KXSourceListObjectPasteboardType));
    return data;
}

QList<KXRef<KXManagedObject>> KXSourceListPasteboard::objectsOfMimeData(
    const KXTreeController &tree, const QMimeData &data)
{
    QList<KXRef<KXManagedObject>> objects;
    const KXManagedObjectContext::Ref context = tree.managedObjectContext();
    const QVariantList paths = KXPasteboard::itemsOfMimeData(&data, KXSourceListItemPasteboardType);
    if (!context || paths.isEmpty())
        return objects;
    if (data.hasFormat(KXSourceListObjectPasteboardType)) {
        QList<QUrl> uris;
        for (const QVariant &uri : KXPasteboard::itemsOfMimeData(&data, KXSourceListObjectPasteboardType))
            uris.append(uri.toUrl());
        objects = context->objectInstancesFromURIRepresentations(uris);
    } else {
        for (const QVariant &value : paths) {
            KXIndexPath path;
            for (const QVariant &row : value.toList())
                path.append(row.canConvert<int>() ? row.toInt() : -1);
            const KXTreeNode *const node = path.isEmpty() ? nullptr : tree.nodeAtIndexPath(path);
            objects.append(node ? node->representedObject() : KXRef<KXManagedObject>());
        }
    }
    objects.removeIf([&tree](const KXRef<KXManagedObject> &object) {
        return !object || !tree.treeNodeForObject(object.get()) || !KXSourceListViewController::itemOf(object);
    });
    return objects;
}
