#include <kestrixkit/toolkit/KXMenu.h>

#include <QActionEvent>
#include <QPointer>

KXMenu::KXMenu(QWidget *parent)
    : QMenu(parent)
{
    connect(this, &QMenu::aboutToShow, this, &KXMenu::validate);
}

KXMenu::KXMenu(const QString &title, QWidget *parent)
    : KXMenu(parent)
{
    setTitle(title);
}

QAction *KXMenu::addItem(const QString &title, QObject *target, std::function<void()> perform, Validator validate)
{
    QAction *const action = addAction(title);
    const auto isValid = [target = QPointer<QObject>(target), validate = std::move(validate)] {
        return target && (!validate || validate());
    };
    m_validators.emplace(action, isValid);
    connect(action, &QAction::triggered, this, [isValid, perform = std::move(perform)] {
        // Copies: what it does may fill the menu anew.
        const auto stillValid = isValid;
        const auto work = perform;
        if (stillValid() && work)
            work();
    });
    return action;
}

/// An item that leaves takes its validator with it: the next one may lie at the same address. By then the menu hears no
/// signals of it any more.
void KXMenu::actionEvent(QActionEvent *event)
{
    if (event->type() == QEvent::ActionRemoved)
        m_validators.erase(event->action());
    QMenu::actionEvent(event);
}

void KXMenu::validate()
{
    if (m_update) {
        // Qt deletes the items, but not the menus below them; one of them may be what has led here.
        for (KXMenu *const below : findChildren<KXMenu *>(Qt::FindDirectChildrenOnly))
            below->deleteLater();
        clear();
        m_update(*this);
    }
    for (QAction *action : actions()) {
        if (const auto found = m_validators.find(action); found != m_validators.end())
            action->setEnabled(found->second());
    }
}
