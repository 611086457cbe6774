#include "window/BrowserWindow.h"

#include <QBoxLayout>
#include <QCloseEvent>
#include <QHeaderView>
#include <QLabel>
#include <QMenuBar>
#include <QStatusBar>

#include <kestrixkit/audio/KXWaveformLibrary.h>
#include <kestrixkit/foundation/KXMainQueue.h>
#include <kestrixkit/foundation/KXUndoManager.h>
#include <kestrixkit/store/KXPersistentStore.h>
#include <kestrixkit/toolkit/KXMenu.h>

#include "analysis/AnalysisCommands.h"
#include "crates/CrateTable.h"
#include "crates/CratesPane.h"
#include "crates/PlayHistory.h"
#include "demo/DemoHint.h"
#include "files/MissingFiles.h"
#include "filters/FilterStrip.h"
#include "filters/PresetCommands.h"
#include "import/FileCommands.h"
#include "import/MusicImport.h"
#include "inspector/TrackInspector.h"
#include "library/BulkEdits.h"
#include "places/PlaceNavigator.h"
#include "places/SourceColumn.h"
#include "player/PlayerStrip.h"
#include "player/Preview.h"
#include "player/WaveformMaker.h"
#include "search/FoundObjects.h"
#include "search/LibrarySearch.h"
#include "search/SearchPopover.h"
#include "shop/ShopPane.h"
#include "shop/ShopPlace.h"
#include "table/ListCommands.h"
#include "table/ListSummary.h"
#include "table/SelectionSummary.h"
#include "table/TrackCommands.h"
#include "table/TrackTableView.h"
#include "window/Analytics.h"
#include "window/BrowserStyle.h"
#include "window/LibraryBar.h"
#include "window/MessageStrip.h"
#include "window/PreferencePanes.h"
#include "window/Settings.h"
#include "window/Welcome.h"
#include "window/WindowState.h"

using namespace Qt::StringLiterals;

namespace {

KXManagedObjectContext::Ref contextWithUndo(const KXPersistentStoreCoordinator::Ref &coordinator)
{
    const auto context = KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator);
    context->setUndoManager(std::make_shared<KXUndoManager>());
    return context;
}

} // namespace

BrowserWindow::BrowserWindow(KXPersistentStoreCoordinator::Ref coordinator)
    : m_coordinator(std::move(coordinator))
    , m_context(contextWithUndo(m_coordinator))
{
    setWindowTitle(tr("Music Browser"));
    resize(1440, 860);
    m_status = new QLabel(m_coordinator->store()->URL().toLocalFile());
    m_import = new MusicImport(m_context, m_status, this);
    connect(m_import, &MusicImport::ended, this, &BrowserWindow::importDidEnd);
    // Before the first fetch: what is saved after it is heard of. The import brings its own saves.
    m_changeToken = m_coordinator->addChangeObserver([this](const std::shared_ptr<const KXStoreChange> &change) {
        if (change->originatingContext() == m_context.get())
            return;
        // At the moment of the save: the next edit has another context.
        BulkEdits *const bulk = m_bulkEdits;
        const bool isEdited = bulk && bulk->editor().merges(change->originatingContext());
        KXMainQueue::async(this, [this, change, isEdited] {
            if (!m_import->savesWith(change->originatingContext()) && !isEdited)
                m_context->mergeChangesFromStoreChange(change);
        });
    });
    buildMenu();
    buildHeader();
    buildTable();
    buildStatus();
    buildEditMenu();
    buildCommands();
    m_summary->update();
    updateActions();
    m_table->setFocus();
    WindowState::restore(*this, *m_panes, *m_sources);
    // In the turn after that in which the source lists take over what was open and selected.
    KXMainQueue::async(this, [this] { KXMainQueue::async(this, [this] { WindowState::restoreSidebar(*m_sources); }); });
}

BrowserWindow::~BrowserWindow()
{
    m_changeToken.reset();
    delete std::exchange(m_trackCommands, nullptr);
    delete m_analysis;
    delete m_bulkEdits.exchange(nullptr);
    delete m_missing;
    delete m_files;
    m_import->cancelAndWait();
    m_editor.save();
    // These follow the context and go before it.
    delete m_crateTable;
    delete m_playHistory;
    delete m_inspector;
    m_shop->end();
    delete m_places;
    delete m_waveformMaker;
    delete m_strip;
    delete m_preview;
    delete m_filterStrip;
    delete m_search;
    delete m_sources;
    delete m_summary;
    delete m_table;
    delete m_model;
}

void BrowserWindow::closeEvent(QCloseEvent *event)
{
    m_table->commitOpenEditor();
    m_sources->commit();
    m_places->commit();
    WindowState::save(*this, *m_panes, *m_sources);
    if (m_editor.save())
        QMainWindow::closeEvent(event);
    else
        event->ignore(); // the user has been told why
}

void BrowserWindow::buildMenu()
{
    QAction *undo = m_context->undoManager()->createUndoAction(this);
    undo->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Z));
    QAction *redo = m_context->undoManager()->createRedoAction(this);
    redo->setShortcut(QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_Z));
    m_undoActions = { undo, redo };
    m_sources = new SourceColumn(m_context);
    m_search = new SearchPopover(m_context, this);
    m_lightAction = new QAction(tr("&Light Theme"), this);
    Settings::followTheme(m_lightAction);
    QMenu *presets = menuBar()->addMenu(tr("&Presets"));
    presets->setAccessibleName(tr("Presets"));
    presets->addActions({ m_sources->commands().newFolder, m_sources->saveAsPreset() });
    m_filterStrip = new FilterStrip(m_context);
    m_filterStrip->filters()->setTrackAtHand([this] { return trackAtHand(); });
    connect(m_filterStrip, &FilterStrip::predicateDidChange, this, &BrowserWindow::applyFilters);
    connect(m_filterStrip, &FilterStrip::narrowingDidEnd, this, [this] { m_table->setFocus(); });
    connect(m_sources, &SourceColumn::countingDidBegin, m_filterStrip->presets(), &PresetLibrary::countWith);
    presets->addAction(tr("Presets &Library"), this, [this] { m_shop->presets()->showFilterSetPresetsManager(); })
        ->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_L));
    QMenu *filter = menuBar()->addMenu(tr("&Filter"));
    filter->setAccessibleName(tr("Filter"));
    filter->addActions(m_filterStrip->actions());
}

void BrowserWindow::buildHeader()
{
    m_bar = new LibraryBar(m_undoActions[0], m_undoActions[1], m_lightAction, m_search->field());
    addToolBar(m_bar);
    new MessageStrip(this);
}

void BrowserWindow::buildTable()
{
    m_model = new TrackTableModel(m_context, &m_editor, this);
    m_table = new TrackTableView;
    m_table->setModel(m_model);
    m_model->setRowsEditedTogether([table = m_table] { return table->selectedRowNumbers(); });
    m_summary = new ListSummary(m_table, m_model, m_filterStrip, m_import, m_bar->summary(), this);
    m_listCommands = new ListCommands(m_table, m_model, &m_editor, m_filterStrip, this);
    connect(m_table->selectionModel(), &QItemSelectionModel::selectionChanged, this, &BrowserWindow::updateActions);
    connect(m_table->selectionModel(), &QItemSelectionModel::currentRowChanged, this, &BrowserWindow::updateActions);
    connect(m_model, &QAbstractItemModel::dataChanged, this, &BrowserWindow::updateActions);
    buildCrates();
    m_preview = new Preview(m_model, m_table, {}, this);
    m_playHistory = new PlayHistory(m_preview, m_model, &m_sources->crates()->editor(), this);
    menuBar()->addMenu(m_preview->makeMenu(this));
    m_waveforms = new KXWaveformLibrary(m_coordinator->store()->URL().toLocalFile() + u".waves"_s, this);
    m_preview->setWaveforms(m_waveforms);
    m_table->setWaveforms(m_waveforms);
    connect(m_preview, &Preview::changed, m_table, [this] {
        const KXAudioPlayerState state = m_preview->player().state();
        const bool isPlayed = state == KXAudioPlayerStatePlaying || state == KXAudioPlayerStateLoading;
        m_table->setPlayingIndex(isPlayed ? m_preview->playingIndex() : QModelIndex());
    });
    QMenu *view = menuBar()->addMenu(tr("&View"));
    view->setAccessibleName(tr("View"));
    view->addAction(m_lightAction);
    view->addAction(findChild<MessageStrip *>()->action());
    view->addMenu(m_table->columnsMenu());
    m_waveformMaker = new WaveformMaker(m_model, m_waveforms, this);
    view->addAction(m_waveformMaker->action());
    m_table->setColumnPresetsName(u"TrackTableColumns"_s);
    m_table->setSortOptionsAutoSaveName(u"TrackTableSortOptions"_s);
    m_table->loadSortOptions();
    buildTrackMenu();
    m_demoHint = new DemoHint;
    m_summary->setDemoHint(m_demoHint);
    auto *all = new QWidget;
    auto *column = new QVBoxLayout(all);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(0);
    auto *tracks = new QWidget;
    auto *rows = new QVBoxLayout(tracks);
    rows->setContentsMargins(0, 0, 0, 0);
    rows->setSpacing(0);
    rows->addWidget(m_demoHint);
    rows->addWidget(m_filterStrip);
    rows->addWidget(m_table, 1);
    tracks->setFocusProxy(m_table);
    m_shop = new ShopPlace(tracks, m_filterStrip, m_sources, m_preview, m_coordinator);
    m_shop->setFilterMenu(qobject_cast<QMenu *>(m_filterStrip->actions().constFirst()->associatedObjects().value(0)));
    connect(m_shop, &ShopPlace::shown, this,
        [this] { m_shop->pane()->undoManager()->driveActions(m_undoActions[0], m_undoActions[1]); });
    m_summary->setShop(m_shop);
    buildPlaces(m_shop, view);
    m_panes = m_sources->beside(m_places->view(), m_inspector->container());
    column->addWidget(m_panes, 1);
    m_strip = new PlayerStrip(m_preview, m_waveforms);
    column->addWidget(m_strip);
    setCentralWidget(all);
}

void BrowserWindow::buildTrackMenu()
{
    auto *menu = new KXMenu(this);
    menu->setAccessibleName(tr("Track"));
    menu->setUpdater([this](KXMenu &filled) {
        if (m_table->clickedCell().column() == TrackTableModel::GenreNames)
            filled.addAction(m_listCommands->renameGenreAction());
        filled.addAction(m_listCommands->explainAction());
        m_trackCommands->addTo(filled, m_table->clickedCell().column());
        m_places->addSteps(filled);
        m_crateTable->addTo(filled);
    });
    m_table->setMenu(menu);
}

void BrowserWindow::buildCrates()
{
    m_crateTable = new CrateTable(m_table, m_model, m_sources->crates(), this);
    menuBar()->addMenu(m_crateTable->makeMenu(this));
    connect(m_crateTable, &CrateTable::said, this, [this](const QString &what) { m_status->setText(what); });
    connect(m_crateTable, &CrateTable::crateRequested, this, [this](const KXRef<Crate> &crate, qint64 track) {
        m_sources->crates()->select(crate);
        // It is shown in a later turn.
        KXMainQueue::async(this, [this, track] {
            m_sources->pick();
            m_found->showTrack(KXManagedObjectID(
                m_coordinator->store()->identity(), m_coordinator->model()->entity(QString(Track::entityName)), track));
        });
    });
}

void BrowserWindow::buildPlaces(QWidget *tracks, QMenu *view)
{
    m_places = new PlaceNavigator(m_context, m_sources, m_filterStrip, m_table, tracks);
    connect(m_places, &PlaceNavigator::placeDidChange, this, &BrowserWindow::showPlace);
    connect(m_sources, &SourceColumn::opened, this, [this] { m_shop->currentWidget()->setFocus(); });
    m_inspector = new TrackInspector(m_context, m_table, &m_editor);
    m_found = new FoundObjects({ m_context, m_sources, m_places, m_filterStrip, m_table, m_model, m_preview }, this);
    connect(m_inspector, &TrackInspector::picked, m_found, &FoundObjects::show);
    connect(m_search, &SearchPopover::picked, m_found, &FoundObjects::show);
    connect(m_search, &SearchPopover::playRequested, m_found, &FoundObjects::play);
    view->addActions({ m_places->layeredAction(), m_inspector->action() });
    menuBar()->addMenu(m_places->makeMenu(this));
    m_bar->addNavigation(m_places->backAction(), m_places->forwardAction());
}

void BrowserWindow::buildStatus()
{
    statusBar()->setSizeGripEnabled(false);
    statusBar()->setMinimumHeight(BrowserStyle::rowHeight);
    m_status->setContentsMargins(BrowserStyle::margin, 0, 0, 0);
    auto *const selected = new QLabel;
    selected->setAccessibleDescription(tr("Summary of the selected tracks"));
    new SelectionSummary(m_table, m_model, selected, m_table);
    statusBar()->addWidget(m_status, 1);
    statusBar()->addPermanentWidget(selected);
    statusBar()->addPermanentWidget(m_preview->label());
    m_import->addTo(*statusBar());
}

void BrowserWindow::buildEditMenu()
{
    auto *const edit = new QMenu(tr("&Edit"), this);
    edit->setAccessibleName(tr("Edit"));
    edit->addActions(m_undoActions);
    edit->addSeparator();
    const PresetCommands &commands = m_sources->commands();
    edit->addActions({ commands.copy, commands.paste, commands.duplicate, commands.rename, commands.remove });
    edit->addSeparator();
    edit->addAction(tr("&Find…"), m_search, &SearchPopover::show)->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_F));
    edit->addSeparator();
    m_listCommands->addTo(*edit);
    edit->addSeparator();
    QAction *preferences = edit->addAction(tr("&Preferences…"), this, [this] {
        PreferencePanes::show(
            [alive = QPointer(this)](const std::string &folder) {
                if (alive)
                    alive->files()->import({ folder });
            },
            m_preview);
    });
    preferences->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Comma));
    preferences->setMenuRole(QAction::PreferencesRole);
    menuBar()->insertMenu(menuBar()->actions().constFirst(), edit);
}

void BrowserWindow::buildCommands()
{
    m_files = new FileCommands(this);
    connect(m_demoHint, &DemoHint::folderRequested, m_files, &FileCommands::chooseFolder);
    connect(m_summary->welcome(), &Welcome::folderRequested, m_files, &FileCommands::chooseFolder);
    connect(m_summary->welcome(), &Welcome::filesRequested, m_files, &FileCommands::chooseFiles);
    connect(m_summary->welcome(), &Welcome::demoRequested, m_files, &FileCommands::addDemoMusic);
    m_missing = new MissingFiles(this, &m_editor);
    auto *const bulk = new BulkEdits(this, m_context, m_status);
    m_bulkEdits = bulk;
    m_analysis = new AnalysisCommands(this, &m_editor, bulk);
    m_trackCommands = new TrackCommands(this, &m_editor, bulk, m_missing, m_analysis);
    const auto say = [this](const QString &what) { m_status->setText(what); };
    connect(m_missing, &MissingFiles::said, this, say);
    connect(m_analysis, &AnalysisCommands::said, this, say);
    connect(m_trackCommands, &TrackCommands::said, this, say);
    m_model->setBulkEdit([bulk](const auto &properties, const QString &name) { return bulk->edit(properties, name); });
    const QList<QAction *> menus = menuBar()->actions();
    menuBar()->insertMenu(menus[0], m_files->makeMenu({ m_missing->find, m_analysis->all }));
    menuBar()->insertMenu(menus[1], m_trackCommands->makeMenu(this));
}

// What is shown

void BrowserWindow::updateActions()
{
    m_listCommands->updateActions();
    if (m_trackCommands)
        m_trackCommands->updateActions();
}

void BrowserWindow::showPlace(
    const KXPredicate &predicate, const QString &title, const QString &emptyText, const QUrl &filters)
{
    m_summary->setEmptyReason(emptyText);
    m_placePredicate = predicate;
    m_bar->setTitle(title);
    const bool isShop = m_shop->showPageOf(filters);
    if (!isShop)
        m_context->undoManager()->driveActions(m_undoActions[0], m_undoActions[1]);
    m_filterStrip->setPlace(isShop ? QUrl() : filters, predicate);
    applyFilters();
}

/// The tracks of the place that fit its filters.
void BrowserWindow::applyFilters()
{
    const KXPredicate filters = m_filterStrip->predicate();
    const KXPredicate all = !filters ? m_placePredicate
        : !m_placePredicate          ? filters
                                     : KXPredicate::andPredicate({ m_placePredicate, filters });
    m_model->setFilter(all);
    m_summary->update();
}

/// The one that plays, else the current one of the table.
KXRef<Track> BrowserWindow::trackAtHand() const
{
    const QModelIndex playing = m_preview->playingIndex();
    return m_model->track(playing.isValid() ? playing.row() : m_table->currentIndex().row());
}

// Importing

void BrowserWindow::importMusic(const ImportOperation::Source &source) { m_import->begin(source); }

void BrowserWindow::cancelImport() { m_import->cancel(); }

bool BrowserWindow::isImporting() const { return m_import->isRunning(); }

void BrowserWindow::importDidEnd(const QString &error)
{
    const ImportResult &result = m_import->result();
    m_files->report(result);
    Analytics::importFinished(result.added);
    m_summary->update();
    m_sources->musicDidChange();
    // What asks lets everything else go on, so it comes last.
    if (!result.doubtful.empty())
        KXMainQueue::async(this, [this, found = result] { m_missing->settle(found); });
    Q_EMIT importFinished(error);
}
