#pragma once

#include <string>
#include <vector>

#include <QObject>

#include <kestrixkit/foundation/KXDelayedCall.h>

#include "import/Importer.h"
#include "library/LibraryJob.h"

class BrowserWindow;
class QAction;
class QMenu;
class QMimeData;

/// The File menu: folders of music, and files, are added and looked through again, one after the other; what is dropped
/// on the window is added as well. When all is imported the sounds of the tracks are read in the background. Closing
/// and quitting.
class FileCommands : public QObject
{
    Q_OBJECT
public:
    /// The window outlives this.
    explicit FileCommands(BrowserWindow *window);

    /// Others put their commands behind the first, which is of what is added.
    [[nodiscard]] QMenu *makeMenu(const QList<QAction *> &others = {});
    /// Remembers the folders and imports them; those that are remembered already, or lie in one that is, are looked
    /// through again.
    void addFolders(const std::vector<std::string> &folders);
    /// The music that the browser makes itself, for a look around.
    void addDemoMusic();
    /// Files alone are not remembered.
    void addFiles(const std::vector<std::string> &files);
    /// Imports them when what is being imported is done.
    void import(const std::vector<std::string> &folders);
    void enqueue(const ImportTask &task);
    /// At once, instead of a while after the last import. What was moved or retagged is known again from then on.
    void readSounds(std::function<void()> done = {});
    /// Asks what to add.
    void chooseFolder();
    void chooseFiles();
    /// All that are remembered.
    void rescan();
    /// Tells what an import could not read, unless all of that was told before, by this browser or an earlier one.
    void report(const ImportResult &result);

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void showUnreadable();
    void goOn();
    void updateActions();
    /// Folders and music files, in this order.
    [[nodiscard]] static std::pair<std::vector<std::string>, std::vector<std::string>> musicIn(const QMimeData *data);

    BrowserWindow *const m_window;
    std::vector<ImportTask> m_queue;
    LibraryJob m_sounds;
    KXDelayedCall m_readSoundsSoon { this };
    std::vector<SkippedFile> m_unreadable; // of all folders, as last looked through
    QAction *m_rescan, *m_cancel, *m_showUnreadable;
};
