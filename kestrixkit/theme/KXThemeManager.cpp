#include <kestrixkit/theme/KXThemeManager.h>

#include <kestrixkit/foundation/KXNotificationCenter.h>

KXThemeManager &KXThemeManager::sharedManager()
{
    static auto *const manager = new KXThemeManager; // never destroyed: widgets may go later than anything static
    return *manager;
}

void KXThemeManager::setTheme(std::shared_ptr<KXTheme> theme)
{
    m_theme.swap(theme); // the old one outlives the notification: observers may hold values of it
    KXNotificationCenter::defaultCenter().post(KXThemeDidChangeNotification, this);
}

QVariant KXThemeManager::valueForKeyPath(const QString &keyPath) const
{
    return m_theme ? m_theme->valueForKeyPath(keyPath) : QVariant();
}
