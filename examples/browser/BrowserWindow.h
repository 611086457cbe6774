#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <string>

#include <QElapsedTimer>
#include <QMainWindow>

#include <kestrixkit/foundation/KXOperationQueue.h>

#include "ImportOperation.h"
#include "LibraryEditor.h"
#include "TrackTableModel.h"

class BulkEdits;
class CrateTable;
class FileCommands;
class FilterStrip;
class KXThemeableSplitView;
class MissingFiles;
class KXWaveformLibrary;
class PlaceNavigator;
class PlayHistory;
class PlayerStrip;
class Preview;
class QLabel;
class QProgressBar;
class QPushButton;
class SearchPopover;
class ShopPlace;
class SourceColumn;
class TrackCommands;
class TrackInspector;
class TrackTableView;
class WaveformMaker;

/// The library's window: its places and presets to the left, the tracks of what is selected there in a sortable table,
/// filters for them above it, a summary at the top and the import's progress below.
///
/// Imports run in the background; the table follows what they save row by row, so that tracks show up as they are
/// found. Ratings, comments and names of genres can be edited and that be undone; closing saves.
class BrowserWindow : public QMainWindow
{
    Q_OBJECT
public:
    explicit BrowserWindow(KXPersistentStoreCoordinator::Ref coordinator);
    ~BrowserWindow() override;

    /// Starts to bring the library up to date with a folder of music. An import that runs is cancelled.
    void importMusic(const ImportOperation::Source &source);
    void cancelImport();
    [[nodiscard]] bool isImporting() const { return bool(m_import); }
    [[nodiscard]] FileCommands *files() const { return m_files; }
    [[nodiscard]] MissingFiles *missing() const { return m_missing; }
    [[nodiscard]] TrackCommands *trackCommands() const { return m_trackCommands; }

    [[nodiscard]] TrackTableModel *model() const { return m_model; }
    [[nodiscard]] TrackTableView *table() const { return m_table; }
    [[nodiscard]] Preview *preview() const { return m_preview; }
    [[nodiscard]] PlayerStrip *strip() const { return m_strip; }
    [[nodiscard]] SourceColumn *sources() const { return m_sources; }
    [[nodiscard]] FilterStrip *filterStrip() const { return m_filterStrip; }
    [[nodiscard]] SearchPopover *search() const { return m_search; }
    [[nodiscard]] PlaceNavigator *places() const { return m_places; }
    [[nodiscard]] ShopPlace *shop() const { return m_shop; }
    [[nodiscard]] TrackInspector *inspector() const { return m_inspector; }
    [[nodiscard]] const KXManagedObjectContext::Ref &context() const { return m_context; }

Q_SIGNALS:
    /// The import ended and the table shows what it did. The error is empty unless it failed or was cancelled.
    void importFinished(const QString &error);

protected:
    void closeEvent(QCloseEvent *event) override;

private:
    void buildMenu();
    void buildHeader();
    void buildTable();
    void buildCrates();
    void buildPlaces(QWidget *tracks, QMenu *view);
    void buildStatus();
    void buildCommands();
    void updateActions();
    void rateSelected(int stars);
    void renameGenre();
    void showPlace(const KXPredicate &predicate, const QString &title, const QString &emptyText, const QUrl &filters);
    void applyFilters();
    void explainTrack();
    [[nodiscard]] KXRef<Track> trackAtHand() const;
    /// Opens the place where it lies, with its row selected.
    void showFound(const KXManagedObjectID &found);
    bool showTrack(const KXManagedObjectID &track);
    void playFound(const KXManagedObjectID &found);
    [[nodiscard]] QList<KXRef<Track>> selectedTracks() const;
    /// Of the current track, in the order of their names.
    [[nodiscard]] QList<KXRef<Genre>> currentGenres() const;
    void showSummary();
    void showProgress(qint64 done, qint64 total);
    void finishImport(const std::weak_ptr<ImportOperation> &operation);

    KXPersistentStoreCoordinator::Ref m_coordinator;
    KXManagedObjectContext::Ref m_context;
    LibraryEditor m_editor { m_context };
    TrackTableModel *m_model;
    TrackTableView *m_table;
    SourceColumn *m_sources;
    FilterStrip *m_filterStrip;
    KXPredicate m_placePredicate; // of what is selected to the left; absent for all tracks
    SearchPopover *m_search;
    PlaceNavigator *m_places;
    ShopPlace *m_shop = nullptr; // tracks, or the shop in their place
    TrackInspector *m_inspector;
    KXThemeableSplitView *m_panes; // places, tracks, inspector
    QString m_emptyReason; // why the table is empty, where it is
    QList<QAction *> m_ratingActions; // by stars
    QList<QAction *> m_undoActions; // undo, redo
    QAction *m_lightAction;
    QAction *m_genreAction;
    QAction *m_reasonsAction;
    QLabel *m_title;
    Preview *m_preview;
    KXWaveformLibrary *m_waveforms;
    PlayerStrip *m_strip;
    CrateTable *m_crateTable;
    FileCommands *m_files;
    MissingFiles *m_missing;
    TrackCommands *m_trackCommands = nullptr;
    std::atomic<BulkEdits *> m_bulkEdits { nullptr }; // asked by whoever saves
    PlayHistory *m_playHistory;
    WaveformMaker *m_waveformMaker;
    QLabel *m_summary;
    QLabel *m_emptyText;
    QLabel *m_status;
    QProgressBar *m_progress;
    QPushButton *m_cancel;
    ImportResult m_lastResult;
    QElapsedTimer m_importClock; // since its first file
    KXOperationQueue m_queue;
    std::shared_ptr<ImportOperation> m_import; // the one that runs, if any
    KXPersistentStoreCoordinator::ChangeToken m_changeToken; // last: its observer uses what stands above
};
