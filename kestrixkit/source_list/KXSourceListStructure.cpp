// What moves, copies, inserts and removes items of a source list.

#include <kestrixkit/source_list/KXSourceListViewController.h>

#include <kestrixkit/foundation/KXSourceListItem.h>
#include <kestrixkit/foundation/KXStringWithFormat.h>
#include <kestrixkit/foundation/KXUndoGuards.h>
#include <kestrixkit/foundation/KXUndoManager.h>

using Object = KXManagedObject;

/// One step to undo, named and saved.
bool KXSourceListViewController::perform(const QString &actionName, const std::function<bool()> &act)
{
    const KXManagedObjectContext::Ref context = m_tree ? m_tree->managedObjectContext() : nullptr;
    bool done = false;
    {
        // The host may have the list undone by another manager than its context; that one gathers the facts.
        KXUndoManager *const own = m_view ? m_view->undoManager() : nullptr;
        const KXUndoGroup outer(own, actionName);
        KXUndoManager *const ofContext = context ? context->undoManager() : nullptr;
        const KXUndoGroup group(ofContext == own ? nullptr : ofContext, actionName);
        done = act();
        if (done && context)
            context->processPendingChanges();
    }
    if (done && context)
        context->save();
    return done;
}

namespace {

QList<KXSourceListItem *> sourceListItems(const QList<KXRef<Object>> &objects)
{
    QList<KXSourceListItem *> items;
    for (const KXRef<Object> &object : objects)
        items.append(KXSourceListViewController::itemOf(object));
    return items;
}

}

bool KXSourceListViewController::moveItems(const QList<KXRef<Object>> &items, const KXIndexPath &path)
{
    if (!perform(KXLocalizedString("Move Items"), [&] { return m_tree->moveObjects(items, path); }))
        return false;
    if (KXSourceListViewControllerDelegate *const told = delegate())
        told->didRepositionItems(*this, sourceListItems(items));
    return true;
}

bool KXSourceListViewController::moveSelectedItems(Qt::ArrowType direction)
{
    const QList<KXRef<Object>> items = m_tree ? m_tree->selectedObjects() : QList<KXRef<Object>>();
    const KXTreeNode *const first = items.isEmpty() ? nullptr : m_tree->treeNodeForObject(items.first().get());
    if (!first)
        return false;
    const KXTreeNode *const level = first->parentNode();
    const int end = m_tree->treeNodeForObject(items.last().get())->row() + 1;
    const KXTreeNode *to = level;
    int row = -1;
    if (direction == Qt::UpArrow) {
        row = first->row() - 1;
    } else if (direction == Qt::DownArrow) {
        row = end < level->childCount() ? end + 1 : -1;
    } else if (direction == Qt::LeftArrow) {
        to = level->parentNode();
        row = level->row() + 1;
    } else if (direction == Qt::RightArrow) {
        to = level->childAt(first->row() - 1);
        row = to ? to->childCount() : -1;
    }
    if (!to || row < 0)
        return false;
    const KXSourceListItem *const target = itemOf(to->representedObject());
    for (const KXRef<Object> &object : items) {
        const KXSourceListItem *const item = itemOf(object);
        if (!item || !item->canBeRepositioned() || m_tree->treeNodeForObject(object.get())->parentNode() != level
            || (to != level && (target ? !target->canBeParentForItem(item) : !item->canBeChildForItem(nullptr))))
            return false;
    }
    if (!moveItems(items, to->indexPath() + KXIndexPath { row }))
        return false;
    if (m_view)
        m_view->scrollTo(m_view->currentIndex());
    return true;
}

bool KXSourceListViewController::copyItems(const QList<KXRef<Object>> &items, const KXIndexPath &path)
{
    const KXTreeNode *const parent = m_tree->nodeAtIndexPath(path.first(path.size() - 1));
    const KXTreeNode *const next = parent ? parent->childAt(path.last()) : nullptr;
    const KXRef<Object> above = parent ? parent->representedObject() : KXRef<Object>();
    KXRef<Object> before = next ? next->representedObject() : KXRef<Object>();
    QList<KXRef<Object>> copies;
    const bool done = perform(KXLocalizedString("Copy Items"), [&] {
        for (const KXRef<Object> &object : items) {
            if (auto *const copy = dynamic_cast<Object *>(itemOf(object)->duplicateItem()))
                copies.append(KXRef<Object>(copy));
        }
        // From the last on, each in front of the one after it: new objects may stand anywhere in the tree until then.
        for (qsizetype i = copies.size(); i-- > 0; before = copies[i]) {
            m_tree->managedObjectContext()->processPendingChanges();
            const KXTreeNode *const level = above ? m_tree->treeNodeForObject(above.get()) : m_tree->rootNode();
            const KXTreeNode *const after = m_tree->treeNodeForObject(before.get());
            if (level)
                m_tree->insertObject(
                    copies[i], level->indexPath() + KXIndexPath { after ? after->row() : level->childCount() });
        }
        return !copies.isEmpty();
    });
    if (KXSourceListViewControllerDelegate *const told = done ? delegate() : nullptr)
        told->didRepositionItems(*this, sourceListItems(copies));
    return done;
}

// The changes of objects that the context records undo these.

bool KXSourceListViewController::insertItem(const KXRef<Object> &item, const KXIndexPath &atArrangedObjectIndexPath)
{
    return m_tree && m_tree->insertObject(item, atArrangedObjectIndexPath);
}

bool KXSourceListViewController::removeItemAtArrangedObjectIndexPath(const KXIndexPath &path)
{
    return m_tree && m_tree->removeObjectsAtIndexPaths({ path });
}

bool KXSourceListViewController::removeItem(const KXSourceListItem *item)
{
    const KXTreeNode *const node = nodeOf(item);
    const KXUndoRegistrationOff unrecorded(m_tree ? m_tree->undoManager() : nullptr);
    return node && m_tree->removeObjectsAtIndexPaths({ node->indexPath() });
}
