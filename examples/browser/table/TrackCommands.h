#pragma once

#include <vector>

#include <QAction>

#include "library/LibraryJob.h"
#include "library/TrackFields.h"

class AnalysisCommands;
class BrowserWindow;
class BulkEdits;
class KXMenu;
class LibraryEditor;
class MissingFiles;
class QMenu;
class QPushButton;

/// What is done to the selected tracks, beside rating them: their fields are edited in place and written into their
/// files, a file is located, tracks are taken out of the library.
class TrackCommands : public QObject
{
    Q_OBJECT
public:
    /// All of them outlive this.
    TrackCommands(BrowserWindow *window, LibraryEditor *editor, BulkEdits *bulk, MissingFiles *missing,
        AnalysisCommands *analysis);

    /// "Track" for the menu bar.
    [[nodiscard]] QMenu *makeMenu(QWidget *parent);
    /// For the context menu of the rows; the first is to edit the column that was clicked.
    void addTo(KXMenu &menu, int column);
    void updateActions();

    /// In the current row and for all selected ones.
    void edit(TrackFields::Field field);
    void writeTags();
    [[nodiscard]] bool isWriting() const { return m_job.isBusy(); }
    void removeSelected();

Q_SIGNALS:
    void said(const QString &what);

private:
    [[nodiscard]] std::vector<qint64> selectedTracks() const;
    void editHere();
    void showWriting(qint64 done, qint64 total);

    BrowserWindow *const m_window;
    LibraryEditor *const m_editor;
    BulkEdits *const m_bulk;
    MissingFiles *const m_missing;
    AnalysisCommands *const m_analysis;
    QList<QAction *> m_edit; // by field
    QAction *m_editHere, *m_write, *m_remove;
    QPushButton *m_cancel;
    LibraryJob m_job; // last: it is waited for
};
