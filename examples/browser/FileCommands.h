#pragma once

#include <string>
#include <vector>

#include <QObject>

#include "Importer.h"

class BrowserWindow;
class QAction;
class QMenu;
class QMimeData;

/// The File menu: folders of music are added and looked through again, one after the other; folders that are dropped
/// on the window are added as well. Closing and quitting.
class FileCommands : public QObject
{
    Q_OBJECT
public:
    /// The window outlives this.
    explicit FileCommands(BrowserWindow *window);

    [[nodiscard]] QMenu *makeMenu();
    /// Remembers the folders and imports them; those that are remembered already, or lie in one that is, are looked
    /// through again.
    void addFolders(const std::vector<std::string> &folders);
    /// Imports them when what is being imported is done.
    void import(const std::vector<std::string> &folders);
    /// All that are remembered.
    void rescan();
    /// Tells what an import could not read, unless all of that was told before, by this browser or an earlier one.
    void report(const ImportResult &result);

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void chooseFolder();
    void showUnreadable();
    void goOn();
    void updateActions();
    [[nodiscard]] static std::vector<std::string> foldersIn(const QMimeData *data);

    BrowserWindow *const m_window;
    std::vector<std::string> m_queue;
    std::vector<SkippedFile> m_unreadable; // of all folders, as last looked through
    QAction *m_rescan, *m_cancel, *m_showUnreadable;
};
