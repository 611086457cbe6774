#pragma once

#include <functional>
#include <memory>
#include <string>

#include <QMainWindow>
#include <QTimer>

#include <kestrixkit/foundation/KXOperationQueue.h>

#include "Importer.h"
#include "TrackTableModel.h"

class QLabel;
class QProgressBar;
class QPushButton;
class QTableView;

/// The library's window: its tracks in a sortable table, a summary above and the import's progress below.
///
/// Imports run in the background; the table follows what they save, so that tracks show up as they are found.
class BrowserWindow : public QMainWindow
{
    Q_OBJECT
public:
    explicit BrowserWindow(KXPersistentStoreCoordinator::Ref coordinator);
    ~BrowserWindow() override;

    /// Answers the folder to import, in the bytes of the file system; an empty one where there is nothing to do or
    /// where the error is filled. Called in the background.
    using MusicSource = std::function<std::string(QString *error)>;

    /// Starts to bring the library up to date with a folder of music. An import that runs is cancelled.
    void importMusic(const MusicSource &source);
    void cancelImport();

    [[nodiscard]] TrackTableModel *model() const { return m_model; }
    [[nodiscard]] QTableView *table() const { return m_table; }

Q_SIGNALS:
    /// The import ended and the table shows what it did. The error is empty unless it failed or was cancelled.
    void importFinished(const QString &error);

private:
    void buildHeader();
    void buildTable();
    void buildStatus();
    void storeDidChange(const KXStoreChange &change);
    void refresh();
    void showSummary();
    void showProgress(qint64 done, qint64 total);
    void finishImport(const KXAbstractOperation *operation, const ImportResult &result);

    KXPersistentStoreCoordinator::Ref m_coordinator;
    KXManagedObjectContext::Ref m_context;
    TrackTableModel *m_model;
    QTableView *m_table;
    QLabel *m_summary;
    QLabel *m_emptyText;
    QLabel *m_status;
    QProgressBar *m_progress;
    QPushButton *m_cancel;
    QTimer m_refreshTimer; // gathers many saves into one fetch
    ImportResult m_lastResult;
    KXOperationQueue m_queue;
    std::shared_ptr<KXBlockOperation> m_import; // the one that runs, if any
    KXPersistentStoreCoordinator::ChangeToken m_changeToken; // last: its observer uses what stands above
};
