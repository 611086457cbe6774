#include <kestrixkit/theme/KXThemeable.h>

#include <kestrixkit/theme/KXThemeManager.h>

KXThemeable::KXThemeable()
    : m_themeChanges(KXNotificationCenter::defaultCenter().addObserver(KXThemeDidChangeNotification,
        &KXThemeManager::sharedManager(), [this](const KXNotification &notification) { themeDidChange(notification); }))
{
}

KXThemeable::~KXThemeable() = default;

void KXThemeable::setThemeStyleName(const QString &name)
{
    const KXAlive::Watch alive = m_alive.watch();
    m_themeStyleName = name;
    applyTheme();
    if (alive)
        setNeedsDisplay();
}

void KXThemeable::applyTheme()
{
    const auto theme = KXThemeManager::sharedManager().theme();
    if (m_themeStyleName.isNull() || !theme)
        return;
    const KXAlive::Watch alive = m_alive.watch();
    const QVariantMap style = theme->valueForKey(m_themeStyleName).toMap();
    m_isThemed = m_isThemed || !style.isEmpty();
    for (auto entry = style.cbegin(); entry != style.cend() && alive; ++entry)
        setThemeValue(entry.key(), entry.value());
}

void KXThemeable::themeDidChange(const KXNotification &)
{
    const KXAlive::Watch alive = m_alive.watch();
    applyTheme();
    if (alive)
        setNeedsDisplay();
}
