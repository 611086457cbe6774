#include "window/Settings.h"

#include <algorithm>
#include <filesystem>

#include <QAction>

#include <kestrixkit/foundation/KXUserDefaults.h>
#include <kestrixkit/theme/KXThemeManager.h>

#include "window/BrowserStyle.h"

using namespace Qt::StringLiterals;

namespace {

void settingsWrite(QLatin1StringView key, const QVariant &value)
{
    KXUserDefaults &defaults = KXUserDefaults::standard();
    const QVariant before = defaults.valueForKey(key);
    if (before.metaType() == value.metaType() && before == value) // the text "false" equals false
        return;
    defaults.setValue(key, value);
    defaults.synchronize(); // a choice outlives whatever happens next
}

bool settingsIsFolder(const std::string &path)
{
    std::error_code error;
    return std::filesystem::is_directory(path, error);
}

std::string settingsFirstFolder()
{
    return KXUserDefaults::standard().dataForKey(Settings::musicFolderKey).value_or(QByteArray()).toStdString();
}

/// There or not: a drive comes back.
std::vector<std::string> settingsNamedFolders()
{
    std::vector<std::string> folders;
    const auto take = [&](const std::string &folder) {
        if (!folder.empty() && std::find(folders.begin(), folders.end(), folder) == folders.end())
            folders.push_back(folder);
    };
    take(settingsFirstFolder());
    const auto more = KXUserDefaults::standard().arrayForKey(Settings::moreMusicFoldersKey);
    for (const QVariant &value : more.value_or(QVariantList()))
        take(value.toByteArray().toStdString());
    return folders;
}

/// The first one that is there comes first.
void settingsNameFolders(std::vector<std::string> folders)
{
    const auto first = std::find_if(folders.begin(), folders.end(), settingsIsFolder);
    if (first != folders.end())
        std::rotate(folders.begin(), first, first + 1);
    Settings::setMusicFolder(folders.empty() ? std::string() : folders.front());
    QVariantList more;
    for (size_t i = 1; i < folders.size(); ++i)
        more.append(QByteArray::fromStdString(folders[i]));
    settingsWrite(Settings::moreMusicFoldersKey, more);
}

} // namespace

std::string Settings::musicFolder()
{
    const std::string folder = settingsFirstFolder();
    return settingsIsFolder(folder) ? folder : std::string();
}

void Settings::setMusicFolder(const std::string &folder)
{
    settingsWrite(musicFolderKey, QByteArray::fromStdString(folder)); // the bytes of a path need not be text
}

std::vector<std::string> Settings::musicFolders()
{
    std::vector<std::string> folders = settingsNamedFolders();
    std::erase_if(folders, [](const std::string &folder) { return !settingsIsFolder(folder); });
    return folders;
}

void Settings::addMusicFolders(const std::vector<std::string> &folders)
{
    for (const std::string &folder : folders) {
        const std::vector<std::string> known = musicFolders();
        const auto holds = [&](const std::string &other) {
            const auto path = (std::filesystem::path(folder) / "").lexically_normal(),
                       of = (std::filesystem::path(other) / "").lexically_normal();
            return path.native().starts_with(of.native());
        };
        if (std::any_of(known.begin(), known.end(), holds))
            continue;
        std::vector<std::string> named = settingsNamedFolders();
        std::erase(named, folder);
        named.push_back(folder);
        settingsNameFolders(std::move(named));
    }
}

void Settings::removeMusicFolder(const std::string &folder)
{
    std::vector<std::string> kept = settingsNamedFolders();
    std::erase(kept, folder);
    settingsNameFolders(std::move(kept));
}

bool Settings::darkTheme() { return KXUserDefaults::standard().boolForKey(darkThemeKey).value_or(true); }

void Settings::setDarkTheme(bool dark)
{
    settingsWrite(darkThemeKey, dark);
    if (BrowserStyle::isDark() != dark)
        BrowserStyle::setDark(dark);
}

bool Settings::equalLoudness() { return KXUserDefaults::standard().boolForKey(equalLoudnessKey).value_or(false); }

void Settings::setEqualLoudness(bool equal) { settingsWrite(equalLoudnessKey, equal); }

bool Settings::startsLoudest() { return KXUserDefaults::standard().boolForKey(startsLoudestKey).value_or(false); }

void Settings::setStartsLoudest(bool loudest) { settingsWrite(startsLoudestKey, loudest); }

QString Settings::outputDevice()
{
    return KXUserDefaults::standard().stringForKey(outputDeviceKey).value_or(QString());
}

void Settings::setOutputDevice(const QString &identifier) { settingsWrite(outputDeviceKey, identifier); }

bool Settings::layeredPlaces() { return KXUserDefaults::standard().boolForKey(layeredPlacesKey).value_or(false); }

void Settings::setLayeredPlaces(bool layered) { settingsWrite(layeredPlacesKey, layered); }

bool Settings::showsInspector() { return KXUserDefaults::standard().boolForKey(showsInspectorKey).value_or(false); }

void Settings::setShowsInspector(bool shows) { settingsWrite(showsInspectorKey, shows); }

QString Settings::shopAddress() { return KXUserDefaults::standard().stringForKey(shopAddressKey).value_or(QString()); }

bool Settings::setShopAddress(const QString &address, KXError *error)
{
    const QString trimmed = address.trimmed();
    if (!trimmed.isEmpty() && !KXCatalogueServers::fromText(trimmed, error))
        return false;
    settingsWrite(shopAddressKey, trimmed);
    return true;
}

std::optional<KXCatalogueServers> Settings::shopServers()
{
    const QString address = shopAddress();
    return address.isEmpty() ? std::nullopt : KXCatalogueServers::fromText(address);
}

bool Settings::hidesDemoHint() { return KXUserDefaults::standard().boolForKey(hidesDemoHintKey).value_or(false); }

void Settings::setHidesDemoHint(bool hides) { settingsWrite(hidesDemoHintKey, hides); }

QString Settings::chosenFolder(const QString &purpose)
{
    return KXUserDefaults::standard().stringForKey(u"chosenFolder."_s + purpose).value_or(QString());
}

void Settings::setChosenFolder(const QString &purpose, const QString &folder)
{
    KXUserDefaults::standard().setValue(u"chosenFolder."_s + purpose, folder);
}

bool Settings::analyticsConsent() { return KXUserDefaults::standard().boolForKey(analyticsKey).value_or(false); }

void Settings::setAnalyticsConsent(bool consent) { settingsWrite(analyticsKey, consent); }

void Settings::followTheme(QAction *action)
{
    action->setCheckable(true);
    const auto follow = [action](const KXNotification &) { action->setChecked(!BrowserStyle::isDark()); };
    follow({});
    QObject::connect(action, &QAction::toggled, action, [](bool light) { setDarkTheme(!light); });
    auto token = std::make_shared<KXNotificationToken>(KXNotificationCenter::defaultCenter().addObserver(
        KXThemeDidChangeNotification, &KXThemeManager::sharedManager(), follow));
    QObject::connect(action, &QObject::destroyed, [token] { token->reset(); });
}
