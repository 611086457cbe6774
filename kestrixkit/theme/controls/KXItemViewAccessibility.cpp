#include <kestrixkit/theme/controls/KXItemViewAccessibility_p.h>

#include <QAbstractItemView>
#include <QAccessible>
#include <QPointer>
#include <QScopedValueRollback>

namespace {

/// Everything but the child for what is edited is answered by Qt's own description.
class AccessibleItemView : public QAccessibleInterface
{
public:
    AccessibleItemView(QAbstractItemView *view, QAccessibleInterface *rows)
        : m_view(view)
        , m_rows(rows)
    {
    }

    bool isValid() const override { return m_view && m_rows->isValid(); }
    QObject *object() const override { return m_view; }
    QAccessibleInterface *childAt(int x, int y) const override
    {
        QAccessibleInterface *const editors = viewport();
        QAccessibleInterface *const editor = editors ? editors->childAt(x, y) : nullptr;
        return editor ? editor : m_rows->childAt(x, y);
    }
    QAccessibleInterface *focusChild() const override
    {
        QAccessibleInterface *const editors = viewport();
        QAccessibleInterface *const editor = editors ? editors->focusChild() : nullptr;
        return editor ? editor : m_rows->focusChild();
    }
    QAccessibleInterface *parent() const override { return m_rows->parent(); }
    QAccessibleInterface *child(int index) const override
    {
        const int cells = m_rows->childCount();
        return index == cells ? viewport() : index < cells ? m_rows->child(index) : nullptr;
    }
    int childCount() const override { return m_rows->childCount() + (viewport() ? 1 : 0); }
    int indexOfChild(const QAccessibleInterface *child) const override
    {
        return child && child == viewport() ? m_rows->childCount() : m_rows->indexOfChild(child);
    }
    QString text(QAccessible::Text kind) const override { return m_rows->text(kind); }
    void setText(QAccessible::Text kind, const QString &text) override { m_rows->setText(kind, text); }
    QRect rect() const override { return m_rows->rect(); }
    QAccessible::Role role() const override { return m_rows->role(); }
    QAccessible::State state() const override { return m_rows->state(); }
    QColor foregroundColor() const override { return m_rows->foregroundColor(); }
    QColor backgroundColor() const override { return m_rows->backgroundColor(); }
    QWindow *window() const override { return m_rows->window(); }
    QList<QPair<QAccessibleInterface *, QAccessible::Relation>> relations(QAccessible::Relation match) const override
    {
        return m_rows->relations(match);
    }
    void *interface_cast(QAccessible::InterfaceType type) override { return m_rows->interface_cast(type); }
    void virtual_hook(int id, void *data) override { m_rows->virtual_hook(id, data); }

private:
    /// What editors lie in; null while there are none.
    QAccessibleInterface *viewport() const
    {
        QWidget *const viewport = m_view ? m_view->viewport() : nullptr;
        const QList<QWidget *> editors
            = viewport ? viewport->findChildren<QWidget *>(Qt::FindDirectChildrenOnly) : QList<QWidget *>();
        const bool anyIsShown = std::any_of(
            editors.begin(), editors.end(), [](const QWidget *editor) { return editor->isVisibleTo(nullptr); });
        return anyIsShown ? QAccessible::queryAccessibleInterface(viewport) : nullptr;
    }

    const QPointer<QAbstractItemView> m_view;
    QAccessibleInterface *const m_rows; // the registry's, as this is; both end with the view
};

}

QAccessibleInterface *KXDescribeItemView(QAbstractItemView *view)
{
    static QAbstractItemView *asked = nullptr;
    if (!view || view == asked)
        return nullptr;
    const QScopedValueRollback guard(asked, view);
    QAccessibleInterface *const rows = QAccessible::queryAccessibleInterface(view);
    return rows ? new AccessibleItemView(view, rows) : nullptr;
}
