// How an undo manager's steps show in menus.

#include <kestrixkit/foundation/KXUndoManager.h>

#include <QAction>
#include <QKeySequence>
#include <QPointer>

#include <kestrixkit/foundation/KXStringWithFormat.h>

using namespace Qt::StringLiterals;

namespace {

QString undoTitle(const char *plain, const char *format, const QString &name)
{
    return name.isEmpty() ? KXLocalizedString(plain) : KXStringWithFormat(KXLocalizedString(format), name);
}

}

QString KXUndoManager::undoActionName() const
{
    if (m_isOpen && m_ofTurn && !m_step.facts.empty())
        return m_step.name;
    return m_undo.empty() || m_announced ? QString() : m_undo.back().name;
}

QString KXUndoManager::redoActionName() const { return m_redo.empty() ? QString() : m_redo.back().name; }
QString KXUndoManager::undoMenuItemTitle() const
{
    return undoTitle(
        QT_TRANSLATE_NOOP("KestrixKit", "Undo"), QT_TRANSLATE_NOOP("KestrixKit", "Undo %@"), undoActionName());
}
QString KXUndoManager::redoMenuItemTitle() const
{
    return undoTitle(
        QT_TRANSLATE_NOOP("KestrixKit", "Redo"), QT_TRANSLATE_NOOP("KestrixKit", "Redo %@"), redoActionName());
}
QAction *KXUndoManager::createUndoAction(QObject *parent)
{
    auto *const action = new QAction(parent);
    action->setShortcuts(QKeySequence::Undo);
    drive(action, false);
    return action;
}

QAction *KXUndoManager::createRedoAction(QObject *parent)
{
    auto *const action = new QAction(parent);
    action->setShortcuts(QKeySequence::Redo);
    drive(action, true);
    return action;
}

void KXUndoManager::driveActions(QAction *undo, QAction *redo)
{
    drive(undo, false);
    drive(redo, true);
}

void KXUndoManager::drive(QAction *action, bool redoes)
{
    // Holds the connections; without it the action is nobody's.
    const auto linkName = u"KXUndoManager"_s;
    delete action->findChild<QObject *>(linkName, Qt::FindDirectChildrenOnly);
    auto *const link = new QObject(action);
    link->setObjectName(linkName);
    const auto update = [this, action, redoes] {
        QString title = redoes ? redoMenuItemTitle() : undoMenuItemTitle();
        action->setText(title.replace(u'&', u"&&"_s)); // a name's own, no shortcut
        action->setEnabled(redoes ? canRedo() : canUndo());
    };
    update();
    connect(this, &KXUndoManager::changed, link, update);
    connect(this, &QObject::destroyed, link, [action] { action->setEnabled(false); });
    connect(action, &QAction::triggered, link, [manager = QPointer(this), redoes] {
        if (manager)
            redoes ? manager->redo() : manager->undo();
    });
}
