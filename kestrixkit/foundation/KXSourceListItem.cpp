#include <kestrixkit/foundation/KXSourceListItem.h>

KXSourceListItem::~KXSourceListItem() = default;

QList<KXSourceListItem *> KXSourceListItem::ancestorItems() const
{
    QList<KXSourceListItem *> ancestors;
    for (KXSourceListItem *item = parentItem(); item && item != this && !ancestors.contains(item);
         item = item->parentItem())
        ancestors.append(item);
    return ancestors;
}

bool KXSourceListItem::hasAncestor(const KXSourceListItem *item) const
{
    return ancestorItems().contains(const_cast<KXSourceListItem *>(item));
}
