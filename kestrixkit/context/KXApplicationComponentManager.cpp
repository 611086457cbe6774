#include <kestrixkit/context/KXApplicationComponentManager.h>

KXApplicationComponentManager::KXApplicationComponentManager(const QUrl &storeURL)
    : m_storeURL(storeURL)
{
}
KXApplicationComponentManager::~KXApplicationComponentManager() = default;
void KXApplicationComponentManager::finaliseSetup() { }
