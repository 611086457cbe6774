#pragma once

#include <string>
#include <vector>

#include <QString>

#include <kestrixkit/catalogue/KXCatalogueServers.h>

class QAction;

/// What the browser remembers of the user's choices. Each is written at once; what is not there or makes no sense is as
/// it was at first.
namespace Settings {

inline constexpr QLatin1StringView musicFolderKey { "musicFolder" };
inline constexpr QLatin1StringView moreMusicFoldersKey { "moreMusicFolders" };
inline constexpr QLatin1StringView darkThemeKey { "darkTheme" };
inline constexpr QLatin1StringView equalLoudnessKey { "equalLoudness" };
inline constexpr QLatin1StringView startsLoudestKey { "startsLoudest" };
inline constexpr QLatin1StringView outputDeviceKey { "outputDevice" };
inline constexpr QLatin1StringView layeredPlacesKey { "layeredPlaces" };
inline constexpr QLatin1StringView showsInspectorKey { "showsInspector" };
inline constexpr QLatin1StringView shopAddressKey { "shopAddress" };
inline constexpr QLatin1StringView hidesDemoHintKey { "hidesDemoHint" };
inline constexpr QLatin1StringView analyticsKey { "analyticsConsent" };

/// In the bytes of the file system; empty: none was chosen, or it is no folder any more.
std::string musicFolder();
void setMusicFolder(const std::string &folder);
/// That one and all that were added, in the order in which they were; those that are no folders any more are left out.
std::vector<std::string> musicFolders();
/// Those that are there already, or lie in one that is, are not added.
void addMusicFolders(const std::vector<std::string> &folders);

/// It is looked through no more; what is known of its files stays.
void removeMusicFolder(const std::string &folder);

/// The theme, dark at first. Setting it changes the looks, too.
bool darkTheme();
void setDarkTheme(bool dark);

/// Whether previews sound equally loud, and whether they begin at the loudest part. No, at first.
bool equalLoudness();
void setEqualLoudness(bool equal);
bool startsLoudest();
void setStartsLoudest(bool loudest);

/// The sound device's identifier; empty at first, for the system's own.
QString outputDevice();
void setOutputDevice(const QString &identifier);

/// Whether places lie on each other as layers, instead of below breadcrumbs. No, at first.
bool layeredPlaces();
void setLayeredPlaces(bool layered);

/// Whether the inspector is shown. No, at first.
bool showsInspector();
void setShowsInspector(bool shows);

/// Where the shop's catalogue is; empty at first, for no shop. What KXCatalogueServers cannot read, or holds a
/// password, is refused with its reason and not written.
QString shopAddress();
bool setShopAddress(const QString &address, KXError *error = nullptr);
std::optional<KXCatalogueServers> shopServers();

/// Whether the hint that there is only demo music was closed. No, at first.
bool hidesDemoHint();
void setHidesDemoHint(bool hides);

/// Where something was chosen the last time for a purpose; empty at first.
QString chosenFolder(const QString &purpose);
void setChosenFolder(const QString &purpose, const QString &folder);

/// Whether the user has agreed to usage statistics. No, at first.
bool analyticsConsent();
void setAnalyticsConsent(bool consent);

/// An action that is on while the theme is light, and switches it.
void followTheme(QAction *action);

} // namespace Settings
