#include <kestrixkit/util/views/KXPreferencesViewController.h>

#include <kestrixkit/util/views/KXPreferences.h>

KXPreferencesViewController::KXPreferencesViewController(QObject *parent)
    : KXViewController(parent)
{
}

KXPreferencesViewController::~KXPreferencesViewController() = default;

KXPreferences *KXPreferencesViewController::preferences() const
{
    return static_cast<KXPreferences *>(m_preferences.data());
}

void KXPreferencesViewController::setPreferences(KXPreferences *preferences)
{
    if (m_preferences == preferences)
        return;
    if (KXPreferences *const before = this->preferences())
        before->removeViewController(this);
    m_preferences = preferences;
}
