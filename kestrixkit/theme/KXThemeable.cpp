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
    m_themeStyleName = name;
    applyTheme();
    setNeedsDisplay();
}

void KXThemeable::applyTheme()
{
    const auto theme = KXThemeManager::sharedManager().theme();
    if (m_themeStyleName.isNull() || !theme)
        return;
    const QVariantMap style = theme->valueForKey(m_themeStyleName).toMap();
    for (auto entry = style.cbegin(); entry != style.cend(); ++entry)
        setThemeValue(entry.key(), entry.value());
}

void KXThemeable::themeDidChange(const KXNotification &)
{
    applyTheme();
    setNeedsDisplay();
}
