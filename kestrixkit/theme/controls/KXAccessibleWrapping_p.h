#pragma once

#include <QAccessible>
#include <QPointer>
#include <QScopedValueRollback>
#include <QWidget>

/// Qt's own description of a widget, with what a subclass describes otherwise. Main thread.
class KXAccessibleWrapping : public QAccessibleInterface
{
public:
    /// Both descriptions are the registry's and end with the widget.
    KXAccessibleWrapping(QWidget *widget, QAccessibleInterface *own)
        : m_widget(widget)
        , m_own(own)
    {
    }

    /// For a factory: null for the widget whose own description is being asked for.
    template <class Wrapping, class Widget> static QAccessibleInterface *describe(Widget *widget)
    {
        static QWidget *asked = nullptr;
        if (!widget || widget == asked)
            return nullptr;
        const QScopedValueRollback<QWidget *> guard(asked, widget);
        QAccessibleInterface *const own = QAccessible::queryAccessibleInterface(widget);
        return own ? new Wrapping(widget, own) : nullptr;
    }

    bool isValid() const override { return m_widget && m_own->isValid(); }
    QObject *object() const override { return m_widget; }
    QAccessibleInterface *childAt(int x, int y) const override { return m_own->childAt(x, y); }
    QAccessibleInterface *focusChild() const override { return m_own->focusChild(); }
    QAccessibleInterface *parent() const override { return m_own->parent(); }
    QAccessibleInterface *child(int index) const override { return m_own->child(index); }
    int childCount() const override { return m_own->childCount(); }
    int indexOfChild(const QAccessibleInterface *child) const override { return m_own->indexOfChild(child); }
    QString text(QAccessible::Text kind) const override { return m_own->text(kind); }
    void setText(QAccessible::Text kind, const QString &text) override { m_own->setText(kind, text); }
    QRect rect() const override { return m_own->rect(); }
    QAccessible::Role role() const override { return m_own->role(); }
    QAccessible::State state() const override { return m_own->state(); }
    QColor foregroundColor() const override { return m_own->foregroundColor(); }
    QColor backgroundColor() const override { return m_own->backgroundColor(); }
    QWindow *window() const override { return m_own->window(); }
    QList<QPair<QAccessibleInterface *, QAccessible::Relation>> relations(QAccessible::Relation match) const override
    {
        return m_own->relations(match);
    }
    void *interface_cast(QAccessible::InterfaceType type) override { return m_own->interface_cast(type); }
    void virtual_hook(int id, void *data) override { m_own->virtual_hook(id, data); }

protected:
    const QPointer<QWidget> m_widget;
    QAccessibleInterface *const m_own;
};
