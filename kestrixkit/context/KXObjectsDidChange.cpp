#include <kestrixkit/context/KXObjectsDidChange.h>

#include <algorithm>

#include <kestrixkit/entity/KXEntityDescription.h>
#include <kestrixkit/store/KXStoreChange.h>

QSet<qint64> KXObjectsDidChange::touched(const KXEntityDescription &entity, const QString &property) const
{
    QSet<qint64> keys;
    for (const auto *list : { &inserted, &deleted }) {
        for (const KXRef<KXManagedObject> &object : *list) {
            if (object->entity()->root() == entity.root())
                keys.insert(object->objectID().key());
        }
    }
    for (const auto *list : { &updated, &refreshed }) {
        for (const KXRef<KXManagedObject> &object : *list) {
            if (object->entity()->root() == entity.root() && changedKeys.value(object.get()).contains(property))
                keys.insert(object->objectID().key());
        }
    }
    static const std::vector<KXEntityChange> none;
    for (const KXEntityChange &change : merged ? merged->entities() : none) {
        if (change.entity->root() != entity.root())
            continue;
        keys.unite(QSet<qint64>(change.deleted.begin(), change.deleted.end()));
        keys.unite(QSet<qint64>(change.inserted.begin(), change.inserted.end()));
        for (const KXRowChange &row : change.updated) {
            if (std::any_of(row.properties.begin(), row.properties.end(),
                    [&](const KXPropertyChange &news) { return news.property->name() == property; }))
                keys.insert(row.key);
        }
    }
    return keys;
}
