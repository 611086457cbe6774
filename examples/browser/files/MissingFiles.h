#pragma once

#include <vector>

#include <QAction>

#include "files/FoundFile.h"
#include "import/Importer.h"
#include "library/LibraryJob.h"

class BrowserWindow;
class LibraryEditor;

/// Tracks whose files are gone: the user names the file of one, or a folder in which all are looked for. What is not
/// sure is asked about. Each track that gets a file is a step to undo.
class MissingFiles : public QObject
{
    Q_OBJECT
public:
    /// All of them outlive this.
    MissingFiles(BrowserWindow *window, LibraryEditor *editor);

    QAction *locate; ///< "Locate…", of the track at hand
    QAction *find; ///< "Find Missing Files…"

    void updateActions();
    /// Reads the file beside the main thread. Where it sounds like another recording the user is asked first.
    void useFile(const KXManagedObjectID &track, const std::string &path);
    void findIn(const std::string &folder);
    /// Asks about what such a search could not decide.
    void settle(const ImportResult &result);

Q_SIGNALS:
    void said(const QString &what);

private:
    void chooseFile();
    void chooseFolder();
    void take(const KXManagedObjectID &track, const FoundFile &file);
    [[nodiscard]] KXRef<Track> living(const KXManagedObjectID &track) const;

    BrowserWindow *const m_window;
    LibraryEditor *const m_editor;
    LibraryJob m_job;
};
