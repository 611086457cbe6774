#pragma once

#include <memory>
#include <vector>

#include <QList>

#include <kestrixkit/context/KXManagedObject.h>
#include <kestrixkit/foundation/KXGlobal.h>

/// A place in a tree: row numbers from the top level down, each from 0. Empty for the (invisible) root itself.
using KXIndexPath = QList<int>;

/// One object in a KXTreeController, which makes, moves and ends its nodes. Borrow it for one call: what is to last
/// names the object. A node stays the same while its object is in the tree, wherever that moves. Main thread.
class KX_UI_EXPORT KXTreeNode
{
public:
    ~KXTreeNode();
    Q_DISABLE_COPY_MOVE(KXTreeNode)

    /// Empty for the root.
    [[nodiscard]] const KXRef<KXManagedObject> &representedObject() const { return m_object; }
    /// The root above top-level nodes; nullptr above the root.
    [[nodiscard]] const KXTreeNode *parentNode() const { return m_parent; }
    [[nodiscard]] int childCount() const { return int(m_children.size()); }
    /// nullptr outside the range.
    [[nodiscard]] const KXTreeNode *childAt(int row) const
    {
        return row >= 0 && row < childCount() ? m_children[size_t(row)].get() : nullptr;
    }
    [[nodiscard]] QList<const KXTreeNode *> childNodes() const;
    [[nodiscard]] bool isLeaf() const { return m_children.empty(); }
    /// Among its siblings.
    [[nodiscard]] int row() const { return m_row; }
    [[nodiscard]] KXIndexPath indexPath() const;
    /// Whether that node stands above this one, itself not counted.
    [[nodiscard]] bool isDescendantOf(const KXTreeNode *node) const;

private:
    friend class KXTreeController;
    KXTreeNode() = default;
    void renumberFrom(int row);

    KXRef<KXManagedObject> m_object;
    qint64 m_key = 0;
    KXTreeNode *m_parent = nullptr;
    int m_row = 0;
    std::vector<std::unique_ptr<KXTreeNode>> m_children;
};
