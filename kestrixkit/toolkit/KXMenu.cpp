#include <kestrixkit/toolkit/KXMenu.h>

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
    connect(action, &QObject::destroyed, this, [this, action] { m_validators.erase(action); });
    connect(action, &QAction::triggered, this, [isValid, perform = std::move(perform)] {
        // Copies: what it does may fill the menu anew.
        const auto stillValid = isValid;
        const auto work = perform;
        if (stillValid() && work)
            work();
    });
    return action;
}

void KXMenu::validate()
{
    if (m_update) {
        clear();
        m_update(*this);
    }
    for (QAction *action : actions()) {
        if (const auto found = m_validators.find(action); found != m_validators.end())
            action->setEnabled(found->second());
    }
}
