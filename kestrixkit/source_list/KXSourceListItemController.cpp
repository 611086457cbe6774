#include <kestrixkit/source_list/KXSourceListItemController.h>

KXSourceListItemController::~KXSourceListItemController() = default;

Qt::DropAction KXSourceListItemController::validateDrop(
    KXSourceListView &, const QMimeData &, Qt::DropActions, KXSourceListItem *, int)
{
    return Qt::IgnoreAction;
}

bool KXSourceListItemController::acceptDrop(KXSourceListView &, const QMimeData &, KXSourceListItem *, int)
{
    return false;
}

QMenu *KXSourceListItemController::contextMenuForItem(KXSourceListView &, KXSourceListItem *) { return nullptr; }

bool KXSourceListItemController::didReceiveKeyDownEvent(KXSourceListView &, QKeyEvent &) { return false; }
