#pragma once

#include <atomic>

#include <QMainWindow>

#include "import/ImportOperation.h"
#include "library/LibraryEditor.h"
#include "table/TrackTableModel.h"

class AnalysisCommands;
class BulkEdits;
class CrateTable;
class DemoHint;
class FileCommands;
class FilterStrip;
class FoundObjects;
class KXThemeableSplitView;
class MissingFiles;
class MusicImport;
class KXWaveformLibrary;
class LibraryBar;
class ListCommands;
class ListSummary;
class PlaceNavigator;
class PlayHistory;
class PlayerStrip;
class Preview;
class QLabel;
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
    [[nodiscard]] bool isImporting() const;
    [[nodiscard]] FileCommands *files() const { return m_files; }
    [[nodiscard]] MissingFiles *missing() const { return m_missing; }
    [[nodiscard]] TrackCommands *trackCommands() const { return m_trackCommands; }
    [[nodiscard]] AnalysisCommands *analysis() const { return m_analysis; }

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
    /// Undo and redo, of what is shown: the library, or the shop.
    [[nodiscard]] const QList<QAction *> &undoActions() const { return m_undoActions; }
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
    void buildTrackMenu();
    void buildCrates();
    void buildPlaces(QWidget *tracks, QMenu *view);
    void buildStatus();
    void buildEditMenu();
    void buildCommands();
    void updateActions();
    void showPlace(const KXPredicate &predicate, const QString &title, const QString &emptyText, const QUrl &filters);
    void applyFilters();
    [[nodiscard]] KXRef<Track> trackAtHand() const;
    void importDidEnd(const QString &error);

    KXPersistentStoreCoordinator::Ref m_coordinator;
    KXManagedObjectContext::Ref m_context;
    LibraryEditor m_editor { m_context };
    TrackTableModel *m_model;
    TrackTableView *m_table;
    LibraryBar *m_bar;
    SourceColumn *m_sources;
    FilterStrip *m_filterStrip;
    KXPredicate m_placePredicate; // of what is selected to the left; absent for all tracks
    SearchPopover *m_search;
    FoundObjects *m_found;
    PlaceNavigator *m_places;
    ShopPlace *m_shop = nullptr; // tracks, or the shop in their place
    TrackInspector *m_inspector;
    KXThemeableSplitView *m_panes; // places, tracks, inspector
    QList<QAction *> m_undoActions;
    QAction *m_lightAction;
    ListCommands *m_listCommands;
    Preview *m_preview;
    KXWaveformLibrary *m_waveforms;
    PlayerStrip *m_strip;
    CrateTable *m_crateTable;
    FileCommands *m_files;
    MissingFiles *m_missing;
    AnalysisCommands *m_analysis;
    TrackCommands *m_trackCommands = nullptr;
    std::atomic<BulkEdits *> m_bulkEdits { nullptr }; // asked by whoever saves
    PlayHistory *m_playHistory;
    WaveformMaker *m_waveformMaker;
    ListSummary *m_summary;
    QLabel *m_status; // what happened last
    MusicImport *m_import;
    DemoHint *m_demoHint;
    KXPersistentStoreCoordinator::ChangeToken m_changeToken; // last: its observer uses what stands above
};
