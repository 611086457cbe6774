#pragma once

#include <QPointer>
#include <QString>

#include <kestrixkit/foundation/KXGlobal.h>

class KXUndoManager;

/// A group for a scope: begun here, named and ended on every way out. A null manager is nothing. Thread of the manager.
class KX_CORE_EXPORT KXUndoGroup
{
public:
    explicit KXUndoGroup(KXUndoManager *manager, QString name = {});
    ~KXUndoGroup();
    Q_DISABLE_COPY_MOVE(KXUndoGroup)

private:
    const QPointer<KXUndoManager> m_manager;
    const QString m_name;
};

/// Registration switched off for a scope, and on again on every way out. A null manager is nothing. Thread of the
/// manager.
class KX_CORE_EXPORT KXUndoRegistrationOff
{
public:
    explicit KXUndoRegistrationOff(KXUndoManager *manager);
    ~KXUndoRegistrationOff();
    Q_DISABLE_COPY_MOVE(KXUndoRegistrationOff)

private:
    const QPointer<KXUndoManager> m_manager;
};
