#pragma once

#include <memory>

#include <kestrixkit/theme/KXTheme.h>

/// Posted by the manager whenever a theme is set, the same one included. Sender: the manager; no user info.
inline constexpr QLatin1StringView KXThemeDidChangeNotification { "KXThemeDidChangeNotification" };

/// Keeps the process's theme. Main thread; sharedManager() alone may be called on any.
///
/// A widget follows the theme in one of two ways. One that carries a style name derives from KXThemeable, which does
/// it all. One that asks the theme for named properties reads them when it paints and asks to be painted again:
///
///     // a member, so that it ends with the widget
///     KXNotificationToken m_theme = KXNotificationCenter::defaultCenter().addObserver(KXThemeDidChangeNotification,
///         &KXThemeManager::sharedManager(), [this](const KXNotification &) { update(); });
///
/// Either way there may be no theme at all: then every look-up is invalid and the widget keeps the toolkit's looks.
class KX_CORE_EXPORT KXThemeManager
{
public:
    [[nodiscard]] static KXThemeManager &sharedManager();

    /// Null until a host sets one.
    [[nodiscard]] const std::shared_ptr<KXTheme> &theme() const { return m_theme; }
    void setTheme(std::shared_ptr<KXTheme> theme);

    /// A value of the theme by key ("sourceListRowStyles") or key path ("filterPresetIcons.folder"); invalid without
    /// theme.
    [[nodiscard]] QVariant valueForKeyPath(const QString &keyPath) const;

    Q_DISABLE_COPY_MOVE(KXThemeManager)

private:
    KXThemeManager() = default;
    ~KXThemeManager() = default;
    std::shared_ptr<KXTheme> m_theme;
};
