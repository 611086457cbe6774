#include <kestrixkit/theme/controls/KXItemViewAccessibility_p.h>

#include <algorithm>

#include <QAbstractItemView>

#include <kestrixkit/theme/controls/KXAccessibleWrapping_p.h>

namespace {

/// Everything but the child for what is edited is answered by Qt's own description.
class AccessibleItemView : public KXAccessibleWrapping
{
public:
    using KXAccessibleWrapping::KXAccessibleWrapping;

    QAccessibleInterface *childAt(int x, int y) const override
    {
        QAccessibleInterface *const editors = viewport();
        QAccessibleInterface *const editor = editors ? editors->childAt(x, y) : nullptr;
        return editor ? editor : m_own->childAt(x, y);
    }
    QAccessibleInterface *focusChild() const override
    {
        QAccessibleInterface *const editors = viewport();
        QAccessibleInterface *const editor = editors ? editors->focusChild() : nullptr;
        return editor ? editor : m_own->focusChild();
    }
    QAccessibleInterface *child(int index) const override
    {
        const int cells = m_own->childCount();
        return index == cells ? viewport() : index < cells ? m_own->child(index) : nullptr;
    }
    int childCount() const override { return m_own->childCount() + (viewport() ? 1 : 0); }
    int indexOfChild(const QAccessibleInterface *child) const override
    {
        return child && child == viewport() ? m_own->childCount() : m_own->indexOfChild(child);
    }

private:
    /// What editors lie in; null while there are none.
    QAccessibleInterface *viewport() const
    {
        const auto *const view = static_cast<QAbstractItemView *>(m_widget.data());
        QWidget *const viewport = view ? view->viewport() : nullptr;
        const QList<QWidget *> editors
            = viewport ? viewport->findChildren<QWidget *>(Qt::FindDirectChildrenOnly) : QList<QWidget *>();
        const bool anyIsShown = std::any_of(
            editors.begin(), editors.end(), [](const QWidget *editor) { return editor->isVisibleTo(nullptr); });
        return anyIsShown ? QAccessible::queryAccessibleInterface(viewport) : nullptr;
    }
};

}

QAccessibleInterface *KXDescribeItemView(QAbstractItemView *view)
{
    return KXAccessibleWrapping::describe<AccessibleItemView>(view);
}
