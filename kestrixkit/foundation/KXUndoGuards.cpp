#include <kestrixkit/foundation/KXUndoGuards.h>

#include <kestrixkit/foundation/KXUndoManager.h>

KXUndoGroup::KXUndoGroup(KXUndoManager *manager, QString name)
    : m_manager(manager)
    , m_name(std::move(name))
{
    if (m_manager)
        m_manager->beginUndoGrouping();
}

KXUndoGroup::~KXUndoGroup()
{
    if (!m_manager)
        return;
    if (!m_name.isEmpty())
        m_manager->setActionName(m_name);
    m_manager->endUndoGrouping();
}

KXUndoRegistrationOff::KXUndoRegistrationOff(KXUndoManager *manager)
    : m_manager(manager)
{
    if (m_manager)
        m_manager->disableUndoRegistration();
}

KXUndoRegistrationOff::~KXUndoRegistrationOff()
{
    if (m_manager)
        m_manager->enableUndoRegistration();
}
