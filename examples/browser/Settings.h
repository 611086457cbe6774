#pragma once

#include <string>

#include <QString>

class QAction;

/// What the browser remembers of the user's choices. Each is written at once; what is not there or makes no sense is as
/// it was at first.
namespace Settings {

inline constexpr QLatin1StringView musicFolderKey { "musicFolder" };
inline constexpr QLatin1StringView darkThemeKey { "darkTheme" };
inline constexpr QLatin1StringView analyticsKey { "analyticsConsent" };

/// In the bytes of the file system; empty: none was chosen, or it is no folder any more.
std::string musicFolder();
void setMusicFolder(const std::string &folder);

/// The theme, dark at first. Setting it changes the looks, too.
bool darkTheme();
void setDarkTheme(bool dark);

/// Whether the user has agreed to usage statistics. No, at first.
bool analyticsConsent();
void setAnalyticsConsent(bool consent);

/// An action that is on while the theme is light, and switches it.
void followTheme(QAction *action);

} // namespace Settings
