#include <kestrixkit/toolkit/KXTreeNode.h>

#include <algorithm>
#include <iterator>

KXTreeNode::~KXTreeNode()
{
    // Taken apart from the top: a stored tree may be deeper than the stack.
    std::vector<std::unique_ptr<KXTreeNode>> rest = std::move(m_children);
    while (!rest.empty()) {
        const std::unique_ptr<KXTreeNode> node = std::move(rest.back());
        rest.pop_back();
        std::move(node->m_children.begin(), node->m_children.end(), std::back_inserter(rest));
        node->m_children.clear();
    }
}

QList<const KXTreeNode *> KXTreeNode::childNodes() const
{
    QList<const KXTreeNode *> nodes;
    for (const auto &child : m_children)
        nodes.append(child.get());
    return nodes;
}

KXIndexPath KXTreeNode::indexPath() const
{
    KXIndexPath path;
    for (const KXTreeNode *node = this; node->m_parent; node = node->m_parent)
        path.prepend(node->m_row);
    return path;
}

bool KXTreeNode::isDescendantOf(const KXTreeNode *node) const
{
    const KXTreeNode *above = m_parent;
    while (above && above != node)
        above = above->m_parent;
    return node && above;
}

void KXTreeNode::renumberFrom(int row)
{
    for (; row < childCount(); ++row)
        m_children[size_t(row)]->m_row = row;
}
