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
    const std::weak_ptr<void> life = m_life;
    m_themeStyleName = name;
    applyTheme();
    if (!life.expired())
        setNeedsDisplay();
}

void KXThemeable::applyTheme()
{
    const auto theme = KXThemeManager::sharedManager().theme();
    if (m_themeStyleName.isNull() || !theme)
        return;
    const std::weak_ptr<void> life = m_life;
    const QVariantMap style = theme->valueForKey(m_themeStyleName).toMap();
    m_isThemed = m_isThemed || !style.isEmpty();
    for (auto entry = style.cbegin(); entry != style.cend() && !life.expired(); ++entry)
        setThemeValue(entry.key(), entry.value());
}

void KXThemeable::themeDidChange(const KXNotification &)
{
    const std::weak_ptr<void> life = m_life;
    applyTheme();
    if (!life.expired())
        setNeedsDisplay();
}
