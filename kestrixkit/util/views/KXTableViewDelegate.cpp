#include <kestrixkit/util/views/KXTableViewDelegate.h>

KXTableViewDelegate::~KXTableViewDelegate() = default;

QVariantList KXTableViewDelegate::willSaveColumnPresets(KXTableView *, const QVariantList &presets) { return presets; }
QVariantList KXTableViewDelegate::willLoadColumnPresets(KXTableView *, const QVariantList &presets) { return presets; }
bool KXTableViewDelegate::isGroupRow(KXTableView *, int) { return false; }
bool KXTableViewDelegate::shouldSelectRow(KXTableView *, int) { return true; }
void KXTableViewDelegate::willDragRows(KXTableView *, QMimeData &) { }
Qt::DropAction KXTableViewDelegate::validateRowDrop(KXTableView *, const QMimeData &, Qt::DropActions, int)
{
    return Qt::IgnoreAction;
}
bool KXTableViewDelegate::acceptRowDrop(KXTableView *, const QMimeData &, Qt::DropAction, int) { return false; }
