#pragma once

#include <functional>
#include <unordered_map>

#include <QKeySequence>
#include <QMenu>

#include <kestrixkit/foundation/KXGlobal.h>

/// A menu whose items know when they make sense.
///
/// Before it opens it may be filled anew, and each item asks whether it is enabled; before an item does its work it
/// asks once more, since a shortcut works without the menu and the world may have changed since it opened. Main thread.
class KX_UI_EXPORT KXMenu : public QMenu
{
    Q_OBJECT
public:
    using Validator = std::function<bool()>;

    explicit KXMenu(QWidget *parent = nullptr);
    explicit KXMenu(const QString &title, QWidget *parent = nullptr);

    /// An item that does something with `target`; without one that lives it does nothing. One without validator is
    /// enabled. The menu owns it.
    QAction *addItem(const QString &title, QObject *target, std::function<void()> perform, Validator validate = {});

    /// Called before the menu opens, to fill it: the menu is emptied first, and those below it that are its children
    /// go.
    void setUpdater(std::function<void(KXMenu &)> update) { m_update = std::move(update); }

    /// Fills the menu and asks every item, as opening it does.
    void validate();

protected:
    void actionEvent(QActionEvent *event) override;

private:
    std::function<void(KXMenu &)> m_update;
    std::unordered_map<const QAction *, Validator> m_validators;
};
