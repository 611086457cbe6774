// What users and hosts do to the tree.

#include <kestrixkit/foundation/KXUndoManager.h>
#include <kestrixkit/toolkit/KXTreeController.h>

using Object = KXManagedObject;

KXUndoManager *KXTreeController::undoManager() const
{
    const KXManagedObjectContext::Ref context = m_context.lock();
    return context ? context->undoManager() : nullptr;
}

bool KXTreeController::insertObject(const KXRef<Object> &object, const KXIndexPath &atIndexPath)
{
    return place({ object }, atIndexPath);
}

bool KXTreeController::moveObjects(const QList<KXRef<Object>> &objects, const KXIndexPath &toIndexPath)
{
    for (const KXRef<Object> &object : objects) {
        if (!node(object.get()))
            return false;
    }
    return place(objects, toIndexPath);
}

bool KXTreeController::place(const QList<KXRef<Object>> &given, const KXIndexPath &path)
{
    const KXManagedObjectContext::Ref context = m_context.lock();
    if (!context || m_rearranging || path.isEmpty())
        return false;
    const KXTreeNode *parent = nodeAtIndexPath(path.first(path.size() - 1));
    int row = path.last();
    if (!parent || row < 0 || row > parent->childCount() || (m_parentKey.isEmpty() && parent != m_root.get()))
        return false;
    // The path is one of the tree as it is seen. What the objects have come to meanwhile, a new one being among them
    // for instance, may shift the rows.
    const KXRef<Object> above = parent->m_object;
    const KXRef<Object> next = row < parent->childCount() ? parent->childAt(row)->m_object : KXRef<Object>();
    context->processPendingChanges();
    parent = above ? node(above.get()) : m_root.get();
    if (!parent)
        return false;
    const KXTreeNode *nextNode = node(next.get());
    row = nextNode && nextNode->m_parent == parent ? nextNode->m_row : parent->childCount();

    QList<const KXTreeNode *> nodes;
    QList<KXRef<Object>> objects;
    for (const KXRef<Object> &object : given) {
        if (!object || object->managedObjectContext() != context.get() || object->isDeleted()
            || !object->entity()->isKindOf(m_entity))
            return false;
        if (const KXTreeNode *present = node(object.get()))
            nodes.append(present);
        else if (!objects.contains(object))
            objects.append(object);
    }
    nodes = topmost(nodes);
    for (const KXTreeNode *present : nodes)
        objects.append(present->m_object);
    // Also above the tree's top level: the circle would be there all the same.
    QList<const Object *> ancestors;
    for (KXRef<Object> object = above; object && !ancestors.contains(object.get()); object = parentOf(object.get())) {
        if (objects.contains(object))
            return false;
        ancestors.append(object.get());
    }

    QList<KXRef<Object>> level;
    for (int i = 0; i <= parent->childCount(); ++i) {
        if (i == row)
            level.append(objects);
        if (i < parent->childCount() && !objects.contains(parent->childAt(i)->m_object))
            level.append(parent->childAt(i)->m_object);
    }
    QSet<const KXTreeNode *> left;
    for (const KXTreeNode *present : nodes) {
        if (present->m_parent != parent)
            left.insert(present->m_parent);
    }
    const KXUndoGroup group(context->undoManager());
    bool accepted = true;
    for (const KXRef<Object> &object : objects) {
        if (parentOf(object.get()) != above)
            accepted &= object->setValueForKey(m_parentKey, KXVariantFromRef(above));
    }
    if (accepted) {
        renumber(level);
        renumberWithout(left, objects);
    }
    context->processPendingChanges();
    return accepted;
}

bool KXTreeController::removeObjectsAtIndexPaths(const QList<KXIndexPath> &paths)
{
    const KXManagedObjectContext::Ref context = m_context.lock();
    if (!context || m_rearranging || paths.isEmpty())
        return false;
    QList<KXRef<Object>> given; // the paths are of the tree as it is seen, before what is pending
    for (const KXIndexPath &path : paths) {
        const KXTreeNode *const present = nodeAtIndexPath(path);
        if (!present || present == m_root.get())
            return false;
        given.append(present->m_object);
    }
    context->processPendingChanges();
    QList<const KXTreeNode *> nodes;
    for (const KXRef<Object> &object : given) {
        if (const KXTreeNode *const present = node(object.get()); present && !object->isDeleted())
            nodes.append(present);
    }
    if (nodes.isEmpty())
        return false;
    QList<KXRef<Object>> objects;
    QSet<const KXTreeNode *> left;
    for (const KXTreeNode *present : topmost(nodes)) {
        objects.append(present->m_object);
        left.insert(present->m_parent);
    }
    const KXUndoGroup group(context->undoManager());
    context->deleteObjects(objects);
    renumberWithout(left, objects);
    context->processPendingChanges();
    return true;
}

/// Those, each once, that do not stand below another of them.
QList<const KXTreeNode *> KXTreeController::topmost(const QList<const KXTreeNode *> &nodes) const
{
    QList<const KXTreeNode *> top;
    const QSet<const KXTreeNode *> all(nodes.begin(), nodes.end());
    for (const KXTreeNode *node : nodes) {
        const KXTreeNode *above = node->m_parent;
        while (above && !all.contains(above))
            above = above->m_parent;
        if (!above && !top.contains(node))
            top.append(node);
    }
    return top;
}

void KXTreeController::renumber(const QList<KXRef<Object>> &level) const
{
    for (qsizetype i = 0; i < level.size() && !m_positionKey.isEmpty(); ++i) {
        // Nothing to be undone or saved where it has its number already.
        const QVariant place = level[i]->valueForKey(m_positionKey);
        if (!place.isValid() || place.toLongLong() != i)
            level[i]->setValueForKey(m_positionKey, qint64(i));
    }
}

void KXTreeController::renumberWithout(const QSet<const KXTreeNode *> &levels, const QList<KXRef<Object>> &gone) const
{
    for (const KXTreeNode *parent : levels) {
        QList<KXRef<Object>> level;
        for (const auto &child : parent->m_children) {
            if (!gone.contains(child->m_object) && !child->m_object->isDeleted())
                level.append(child->m_object);
        }
        renumber(level);
    }
}
