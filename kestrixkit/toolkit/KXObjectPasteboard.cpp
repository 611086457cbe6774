#include <kestrixkit/toolkit/KXObjectPasteboard.h>

#include <QtEndian>

#include <kestrixkit/foundation/KXLog.h>
#include <kestrixkit/toolkit/KXPasteboard.h>

using namespace Qt::StringLiterals;

// Items: the store's UUID, then for each run of objects of one entity its name and their keys, little-endian.

QMimeData *KXObjectPasteboard::mimeDataWithObjects(const QList<KXManagedObjectID> &objects)
{
    QVariantList items;
    const KXEntityDescription *entity = nullptr;
    QByteArray keys;
    const auto endRun = [&] {
        if (!keys.isEmpty())
            items << entity->name() << keys;
        keys.clear();
    };
    QString store;
    for (const KXManagedObjectID &object : objects) {
        if (object.isNull() || !object.store() || (!store.isEmpty() && object.store()->uuid != store))
            continue;
        if (store.isEmpty())
            items << (store = object.store()->uuid);
        if (object.entity() != entity)
            endRun();
        entity = object.entity();
        const quint64 key = qToLittleEndian(quint64(object.key()));
        keys.append(reinterpret_cast<const char *>(&key), sizeof key);
    }
    endRun();
    return KXPasteboard::mimeDataWithItems(KXObjectPasteboardType, items);
}

QList<KXManagedObjectID> KXObjectPasteboard::objectsOfMimeData(
    const QMimeData *data, const std::shared_ptr<const KXStoreIdentity> &inStore, const QString &entityName)
{
    QList<KXManagedObjectID> objects;
    const QVariantList items = KXPasteboard::itemsOfMimeData(data, KXObjectPasteboardType);
    const KXEntityDescription *const wanted = inStore ? inStore->model->entity(entityName) : nullptr;
    if (!wanted || items.isEmpty() || items.first().toString() != inStore->uuid)
        return objects;
    for (qsizetype i = 1; i + 1 < items.size(); i += 2) {
        const KXEntityDescription *const entity = inStore->model->entity(items[i].toString());
        const QByteArray keys = items[i + 1].toByteArray();
        if (!entity || !entity->isKindOf(wanted))
            continue;
        for (qsizetype at = 0; at + qsizetype(sizeof(quint64)) <= keys.size(); at += sizeof(quint64)) {
            const auto key = qint64(qFromLittleEndian<quint64>(keys.constData() + at));
            if (key > 0)
                objects.append(KXManagedObjectID(inStore, entity, key));
        }
    }
    return objects;
}
