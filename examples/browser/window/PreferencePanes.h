#pragma once

#include <functional>
#include <string>

#include <kestrixkit/foundation/KXNotificationCenter.h>
#include <kestrixkit/util/views/KXPreferencesViewController.h>

class Preview;
class QLabel;
class QListWidget;
class QPlainTextEdit;
class QPushButton;
class QWidget;

/// The sections of the browser's preferences. Every change is in force, and remembered, at once.
namespace PreferencePanes {

/// The window, in front, with the sections for this browser. A folder that is chosen is handed to `importFolder`; the
/// preview's sound is what the section "Sound" sets.
void show(std::function<void(const std::string &folder)> importFolder, Preview *preview = nullptr);

inline constexpr QMargins margins { 24, 20, 24, 20 };
/// A paragraph that explains.
QLabel *note(const QString &text);

} // namespace PreferencePanes

/// The music folders and the theme.
class GeneralPane : public KXPreferencesViewController
{
    Q_OBJECT
public:
    explicit GeneralPane(QObject *parent = nullptr);
    void setImportFolder(std::function<void(const std::string &folder)> function)
    {
        m_importFolder = std::move(function);
    }
    void chooseFolder();
    /// Adds it, unless it is there, and imports it.
    void setFolder(const std::string &folder);
    void removeFolder();

protected:
    void loadView() override;

private:
    void showFolders();

    std::function<void(const std::string &folder)> m_importFolder;
    QPointer<QListWidget> m_folders;
    QPointer<QPushButton> m_remove;
    KXNotificationToken m_theme;
};

/// The consent to usage statistics, and what they are made of.
class PrivacyPane : public KXPreferencesViewController
{
    Q_OBJECT
public:
    explicit PrivacyPane(QObject *parent = nullptr);

protected:
    void loadView() override;

private:
    QPointer<QPlainTextEdit> m_lines;
};
