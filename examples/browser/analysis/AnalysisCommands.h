#pragma once

#include <QAction>

#include "analysis/TrackAnalysis.h"
#include "library/LibraryJob.h"

class BrowserWindow;
class BulkEdits;
class LibraryEditor;
class QPushButton;

/// Tempo and key for tracks that have none: found in the background, with progress and a button that cancels it, as one
/// step to undo; and confirmed. Where the program that listens is not installed the commands say so.
class AnalysisCommands : public QObject
{
    Q_OBJECT
public:
    /// All of them outlive this.
    AnalysisCommands(BrowserWindow *window, LibraryEditor *editor, BulkEdits *bulk);
    ~AnalysisCommands() override;

    QAction *const all; ///< of the library
    QAction *const selected;
    QAction *const confirm;
    void updateActions();

    /// Another program than the one that is installed beside this one.
    void setAnalyser(const Analyser &analyser);
    [[nodiscard]] bool isBusy() const { return m_job.isBusy() || m_steps.isBusy(); }

Q_SIGNALS:
    void said(const QString &what);

private:
    void analyseAll();
    void analyseSelected();
    void confirmSelected();
    /// Which tracks is asked in the background.
    void analyse(const std::function<std::vector<qint64>(TrackAnalysis &)> &tracks);
    void show(const TrackAnalysisResult &result);
    void showProgress(qint64 done, qint64 total);
    void registerStep(const std::shared_ptr<const std::vector<AnalysedValues>> &found, bool isUndo);

    BrowserWindow *const m_window;
    LibraryEditor *const m_editor;
    BulkEdits *const m_bulk;
    Analyser m_analyser;
    QPushButton *m_cancel;
    LibraryJob m_steps; // undo and redo: neither cancelled nor left out when the window closes
    LibraryJob m_job; // last: they are waited for
};
