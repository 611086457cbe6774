#pragma once

#include <Qt>

#include <kestrixkit/foundation/KXGlobal.h>

class KXSourceListItem;
class KXSourceListView;
class QKeyEvent;
class QMenu;
class QMimeData;

/// What an item of a source list does beside being shown: the drops, keys and menus that the list leaves to it. Items
/// answer theirs by KXSourceListItem::controller(). Items given are borrowed for the call; null stands for none. Main
/// thread.
class KX_UI_EXPORT KXSourceListItemController
{
public:
    virtual ~KXSourceListItemController();

    [[nodiscard]] virtual KXSourceListItem *sourceItem() const = 0;
    /// Borrowed; null when the item goes.
    virtual void setSourceItem(KXSourceListItem *item) = 0;

    /// What would come of dropping something that is no item of the list onto the item, or between its children
    /// (proposedChildIndex; -1 onto it).
    [[nodiscard]] virtual Qt::DropAction validateDrop(KXSourceListView &view, const QMimeData &data,
        Qt::DropActions allowed, KXSourceListItem *proposedItem, int proposedChildIndex);
    /// Carries it out; false where nothing was done.
    virtual bool acceptDrop(KXSourceListView &view, const QMimeData &data, KXSourceListItem *item, int childIndex);
    /// nullptr: the list's own one. The controller owns it.
    [[nodiscard]] virtual QMenu *contextMenuForItem(KXSourceListView &view, KXSourceListItem *item);
    /// True for a key that is dealt with.
    virtual bool didReceiveKeyDownEvent(KXSourceListView &view, QKeyEvent &event);
};
