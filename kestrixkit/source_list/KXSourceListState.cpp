// What a source list has selected and open, and how that is remembered.

#include <QCborArray>

#include <kestrixkit/foundation/KXArchive.h>
#include <kestrixkit/foundation/KXMainQueue.h>
#include <kestrixkit/foundation/KXSourceListItem.h>
#include <kestrixkit/foundation/KXStringWithFormat.h>
#include <kestrixkit/foundation/KXUndoGuards.h>
#include <kestrixkit/foundation/KXUserDefaults.h>
#include <kestrixkit/source_list/KXSourceListViewController.h>

using namespace Qt::StringLiterals;

using Object = KXManagedObject;

namespace {

constexpr QStringView sourceListPathFormat = u"com.kestrix.kestrixkit.index-path";
constexpr int sourceListPathFormatNumber = 1;

QString sourceListSelectionKey(const QString &autosaveName) { return KXStringWithFormat("%@ Selection", autosaveName); }
QString sourceListExpandedKey(const QString &autosaveName)
{
    return KXStringWithFormat("%@ Expanded Items", autosaveName);
}

QByteArray sourceListArchived(const KXIndexPath &path)
{
    QCborArray rows;
    for (const int row : path)
        rows.append(row);
    return KXArchive::archive(sourceListPathFormat, sourceListPathFormatNumber, rows.toCborValue());
}

std::optional<KXIndexPath> sourceListUnarchived(const QByteArray &bytes)
{
    const auto values = KXArchive::unarchive(bytes, sourceListPathFormat, sourceListPathFormatNumber);
    if (!values || !values->isArray())
        return std::nullopt;
    KXIndexPath path;
    for (const QCborValue row : values->toArray()) {
        if (!row.isInteger() || row.toInteger() < 0 || row.toInteger() > std::numeric_limits<int>::max())
            return std::nullopt;
        path.append(int(row.toInteger()));
    }
    return path;
}

}

// Selection

QList<KXSourceListItem *> KXSourceListViewController::selectedItems() const
{
    QList<KXSourceListItem *> items;
    for (const KXRef<Object> &object : m_tree ? m_tree->selectedObjects() : QList<KXRef<Object>>()) {
        if (KXSourceListItem *const item = itemOf(object))
            items.append(item);
    }
    return items;
}

void KXSourceListViewController::selectItem(const KXSourceListItem *item)
{
    const auto *const object = dynamic_cast<const Object *>(item);
    if (!m_tree || !object)
        return;
    if (const KXManagedObjectContext::Ref context = m_tree->managedObjectContext())
        context->processPendingChanges(); // it may have been made a moment ago
    m_tree->setSelectedObjects({ KXRef<Object>(const_cast<Object *>(object)) });
}

void KXSourceListViewController::selectForEditing(const KXSourceListItem *item)
{
    selectItem(item);
    const QModelIndex row = m_tree ? m_tree->indexForNode(nodeOf(item)) : QModelIndex();
    KXSourceListView *const list = row.isValid() ? sourceListView() : nullptr;
    if (list && list->cellForRow(row).isEditable) {
        list->setFocus();
        list->editTitle(row);
    }
}

void KXSourceListViewController::setSelectionIndexPath(const KXIndexPath &path)
{
    if (!m_tree)
        return;
    KXIndexPath nearest = path;
    while (!nearest.isEmpty()) {
        const KXTreeNode *const parent = m_tree->nodeAtIndexPath(nearest.first(nearest.size() - 1));
        const int row = parent ? std::min(nearest.last(), parent->childCount() - 1) : -1;
        if (row >= 0) {
            nearest.last() = row;
            break;
        }
        nearest.removeLast();
    }
    m_tree->setSelectionIndexPath(nearest);
}

void KXSourceListViewController::selectionDidChange()
{
    const QList<KXRef<Object>> before = m_selected;
    m_selected = m_tree->selectedObjects();
    const bool haveGone = m_selected.isEmpty() && !before.isEmpty()
        && std::none_of(before.begin(), before.end(),
            [this](const KXRef<Object> &object) { return m_tree->treeNodeForObject(object.get()); });
    if (haveGone) {
        updateSelection();
        if (!m_selected.isEmpty())
            return; // which has been told of
    }
    const KXIndexPath path = m_tree->selectionIndexPath();
    if (path != m_currentPath) {
        willChangeValueForKey(u"currentSelectedIndexPath");
        m_currentPath = path;
        didChangeValueForKey(u"currentSelectedIndexPath");
    }
    saveStateLater();
    KXSourceListViewControllerDelegate *const told = m_selected != before ? delegate() : nullptr;
    if (told)
        told->itemWasSelected(*this, selectedItem());
}

void KXSourceListViewController::saveSelection()
{
    if (!m_autosaveName.isEmpty() && m_tree)
        KXUserDefaults::standard().setValue(
            sourceListSelectionKey(m_autosaveName), sourceListArchived(m_tree->selectionIndexPath()));
}

void KXSourceListViewController::restoreSelection()
{
    if (m_autosaveName.isEmpty() || !m_tree)
        return;
    const KXUserDefaults &defaults = KXUserDefaults::standard();
    const QString key = sourceListSelectionKey(m_autosaveName);
    if (defaults.valueForKey(key).isValid())
        setSelectionIndexPath(
            sourceListUnarchived(defaults.dataForKey(key).value_or(QByteArray())).value_or(KXIndexPath { 0, 1 }));
    else if (m_rootItem)
        selectItem(itemOf(m_rootItem));
}

// What is open

void KXSourceListViewController::expandItem(const KXSourceListItem *item, bool expandChildren)
{
    const KXTreeNode *const node = nodeOf(item);
    KXSourceListView *const list = node ? sourceListView() : nullptr;
    if (!list)
        return;
    const QModelIndex row = m_tree->indexForNode(node);
    expandChildren ? list->expandRecursively(row) : list->expand(row);
}

void KXSourceListViewController::rowDidExpand(const QModelIndex &row, bool expanded)
{
    if (KXSourceListItem *const item = itemForRow(row)) {
        const KXUndoRegistrationOff unrecorded(m_tree->undoManager());
        item->setExpanded(expanded);
    }
    saveContextLater();
    rowsDidChange();
}

/// What is open is remembered by where it stands.
void KXSourceListViewController::rowsDidChange()
{
    m_rowsAreDue = true;
    saveStateLater();
}

void KXSourceListViewController::restoreExpandedState()
{
    if (!m_tree || !m_view)
        return;
    {
        const KXUndoRegistrationOff unrecorded(m_tree->undoManager());
        for (const KXTreeNode *node : m_tree->flattenedNodes()) {
            if (KXSourceListItem *const item = itemOf(node->representedObject()))
                item->setExpanded(m_view->isExpanded(m_tree->indexForNode(node)));
        }
    }
    if (const KXManagedObjectContext::Ref context = m_tree->managedObjectContext())
        context->save();
}

void KXSourceListViewController::saveExpandedRows()
{
    if (m_autosaveName.isEmpty() || !m_tree || !m_view)
        return;
    QVariantList rows;
    for (const KXTreeNode *node : m_tree->flattenedNodes()) {
        if (!node->isLeaf() && m_view->isExpanded(m_tree->indexForNode(node)))
            rows.append(sourceListArchived(node->indexPath()));
    }
    KXUserDefaults::standard().setValue(sourceListExpandedKey(m_autosaveName), rows);
}

void KXSourceListViewController::restoreExpandedRows()
{
    if (!m_tree || !m_view)
        return;
    const auto rows = KXUserDefaults::standard().arrayForKey(sourceListExpandedKey(m_autosaveName));
    QModelIndexList open;
    for (const QVariant &row : rows.value_or(QVariantList())) {
        const auto path = sourceListUnarchived(row.toByteArray());
        const KXTreeNode *const node = path ? m_tree->nodeAtIndexPath(*path) : nullptr;
        if (node && !node->isLeaf())
            open.append(m_tree->indexForNode(node));
    }
    m_view->expandRows(open);
}

// When

void KXSourceListViewController::setAutosaveName(const QString &name)
{
    saveState(); // what is due belongs to the name that it was done under
    m_autosaveName = name;
    m_isRestored = false;
    restoreStateLater();
}

void KXSourceListViewController::restoreStateLater()
{
    if (m_autosaveName.isEmpty() || !m_view || !m_tree || std::exchange(m_restoreIsDue, true))
        return;
    KXMainQueue::async(this, [this] {
        m_restoreIsDue = false;
        restoreState();
    });
}

void KXSourceListViewController::restoreState()
{
    if (m_autosaveName.isEmpty() || !m_view || !m_tree)
        return;
    restoreExpandedRows();
    restoreExpandedState();
    restoreSelection();
    m_isRestored = true;
}

void KXSourceListViewController::saveStateLater()
{
    if (!m_isRestored || std::exchange(m_stateIsDue, true))
        return;
    // In the next turn; but the defaults are a file, so not at every step while an arrow key is held down.
    constexpr double leastPause = 0.3;
    const bool isLately = m_sinceSaved.isValid() && m_sinceSaved.elapsed() < leastPause * 1000;
    m_saveSoon.start(isLately ? leastPause : 0, [this] { saveState(); });
}

void KXSourceListViewController::saveState()
{
    m_saveSoon.cancel();
    if (!std::exchange(m_stateIsDue, false))
        return;
    saveSelection();
    if (std::exchange(m_rowsAreDue, false))
        saveExpandedRows();
    m_sinceSaved.start();
}

void KXSourceListViewController::saveContextLater()
{
    if (std::exchange(m_contextIsDue, true))
        return;
    KXMainQueue::async(this, [this] {
        m_contextIsDue = false;
        if (const KXManagedObjectContext::Ref context = m_tree ? m_tree->managedObjectContext() : nullptr)
            context->save();
    });
}
