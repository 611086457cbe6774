#include "BrowserWindow.h"

#include <span>

#include <QBoxLayout>
#include <QCloseEvent>
#include <QHeaderView>
#include <QLabel>
#include <QLocale>
#include <QMenuBar>
#include <QProgressBar>
#include <QPushButton>
#include <QStatusBar>
#include <QToolBar>

#include <kestrixkit/audio/KXWaveformLibrary.h>
#include <kestrixkit/foundation/KXClock.h>
#include <kestrixkit/foundation/KXMainQueue.h>
#include <kestrixkit/foundation/KXUndoManager.h>
#include <kestrixkit/store/KXPersistentStore.h>
#include <kestrixkit/theme/KXThemeStyleNames.h>
#include <kestrixkit/theme/controls/KXThemeableButton.h>
#include <kestrixkit/theme/controls/KXThemeableProgressIndicator.h>
#include <kestrixkit/toolkit/KXAlert.h>
#include <kestrixkit/toolkit/KXMenu.h>

#include "Analytics.h"
#include "BrowserStyle.h"
#include "BulkEdits.h"
#include "CrateTable.h"
#include "CratesPane.h"
#include "FileCommands.h"
#include "FilterStrip.h"
#include "GenreDialog.h"
#include "LibrarySearch.h"
#include "MessageStrip.h"
#include "MissingFiles.h"
#include "PlaceNavigator.h"
#include "PlaceSteps.h"
#include "PlayHistory.h"
#include "PlayerStrip.h"
#include "PreferencePanes.h"
#include "PresetCommands.h"
#include "Preview.h"
#include "SearchPopover.h"
#include "SelectionSummary.h"
#include "Settings.h"
#include "SourceColumn.h"
#include "TrackCommands.h"
#include "TrackInspector.h"
#include "TrackReasons.h"
#include "TrackTableView.h"
#include "WaveformMaker.h"
#include "WindowState.h"
#include "shop/ShopPlace.h"

using namespace Qt::StringLiterals;

namespace {

constexpr int shownReasons = 20; // in the tool tip of the summary

KXManagedObjectContext::Ref contextWithUndo(const KXPersistentStoreCoordinator::Ref &coordinator)
{
    const auto context = KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator);
    context->setUndoManager(std::make_shared<KXUndoManager>());
    return context;
}

/// An icon for a command, in the toolbar.
KXThemeableButton *toolButton(QAction *action, const QString &icon)
{
    auto *button = new KXThemeableButton;
    button->setIcon(QIcon(u":/kestrixkit/icons/%1.svg"_s.arg(icon)));
    button->setIconSize({ 18, 18 });
    button->setThemeStyleName(KXToolbarButtonStyles);
    const auto follow = [button, action] {
        QString name = action->text();
        name.remove(u'&');
        button->setAccessibleName(name);
        button->setToolTip(name);
        button->setEnabled(action->isEnabled());
        button->setCheckable(action->isCheckable());
        button->setChecked(action->isChecked());
    };
    follow();
    QObject::connect(action, &QAction::changed, button, follow);
    QObject::connect(button, &QPushButton::clicked, action, &QAction::trigger);
    return button;
}

} // namespace

BrowserWindow::BrowserWindow(KXPersistentStoreCoordinator::Ref coordinator)
    : m_coordinator(std::move(coordinator))
    , m_context(contextWithUndo(m_coordinator))
{
    setWindowTitle(tr("Music Browser"));
    resize(1440, 860);
    m_queue.setMaxConcurrentOperationCount(1);
    // Before the first fetch: what is saved after it is heard of. The import brings its own saves.
    m_changeToken = m_coordinator->addChangeObserver([this](const std::shared_ptr<const KXStoreChange> &change) {
        if (change->originatingContext() == m_context.get())
            return;
        // At the moment of the save: the next edit has another context.
        BulkEdits *const bulk = m_bulkEdits;
        const bool isEdited = bulk && bulk->editor().merges(change->originatingContext());
        KXMainQueue::async(this, [this, change, isEdited] {
            const bool isImported = m_import && change->originatingContext() == m_import->importingContext();
            if (!isImported && !isEdited)
                m_context->mergeChangesFromStoreChange(change);
        });
    });
    buildMenu();
    buildHeader();
    buildTable();
    buildStatus();
    buildCommands();
    showSummary();
    updateActions();
    m_table->setFocus();
    WindowState::restore(*this, *m_panes, *m_sources);
    // In the turn after that in which the source lists take over what was open and selected.
    KXMainQueue::async(this, [this] { KXMainQueue::async(this, [this] { WindowState::restoreSidebar(*m_sources); }); });
}

BrowserWindow::~BrowserWindow()
{
    m_changeToken.reset();
    delete m_bulkEdits.exchange(nullptr);
    delete std::exchange(m_trackCommands, nullptr);
    delete m_missing;
    delete m_files;
    cancelImport();
    m_queue.waitUntilAllOperationsAreFinished();
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
    QMenu *edit = menuBar()->addMenu(tr("&Edit"));
    edit->setAccessibleName(tr("Edit"));
    QAction *undo = m_context->undoManager()->createUndoAction(this);
    undo->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Z));
    QAction *redo = m_context->undoManager()->createRedoAction(this);
    redo->setShortcut(QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_Z));
    edit->addActions({ undo, redo });
    m_undoActions = { undo, redo };
    edit->addSeparator();
    m_sources = new SourceColumn(m_context);
    const PresetCommands &commands = m_sources->commands();
    edit->addActions({ commands.copy, commands.paste, commands.duplicate, commands.rename, commands.remove });
    edit->addSeparator();
    m_search = new SearchPopover(m_context, this);
    edit->addAction(tr("&Find…"), m_search, &SearchPopover::show)->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_F));
    connect(m_search, &SearchPopover::picked, this, &BrowserWindow::showFound);
    connect(m_search, &SearchPopover::playRequested, this, &BrowserWindow::playFound);
    edit->addSeparator();
    QMenu *rating = edit->addMenu(tr("&Rating"));
    rating->setAccessibleName(tr("Rating"));
    for (int stars = 0; stars <= 5; ++stars) {
        QAction *action = rating->addAction(stars == 0 ? tr("No Stars")
                : stars == 1                           ? tr("1 Star")
                                                       : tr("%1 Stars").arg(stars));
        action->setShortcut(QKeySequence(Qt::Key(Qt::Key_0 + stars)));
        connect(action, &QAction::triggered, this, [this, stars] { rateSelected(stars); });
        m_ratingActions.append(action);
    }
    m_genreAction = edit->addAction(tr("Rename &Genre…"), this, &BrowserWindow::renameGenre);
    m_reasonsAction = edit->addAction(tr("&Why Is This Track in the List?"), this, &BrowserWindow::explainTrack);
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
    m_lightAction = new QAction(tr("&Light Theme"), this);
    Settings::followTheme(m_lightAction);
    QMenu *presets = menuBar()->addMenu(tr("&Presets"));
    presets->setAccessibleName(tr("Presets"));
    presets->addActions({ commands.newFolder, m_sources->saveAsPreset() });
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
    auto *bar = addToolBar(tr("Library"));
    bar->setMovable(false);
    bar->setContextMenuPolicy(Qt::PreventContextMenu);
    // Left of the title, whose length changes.
    bar->addWidget(toolButton(m_undoActions[0], u"undo"_s));
    bar->addWidget(toolButton(m_undoActions[1], u"redo"_s));
    auto *gap = new QWidget;
    gap->setFixedWidth(2 * BrowserStyle::margin);
    bar->addWidget(gap);
    m_title = new QLabel(tr("Library"));
    m_title->setObjectName(u"placeTitle"_s);
    m_title->setTextFormat(Qt::PlainText);
    QFont font = m_title->font();
    font.setPointSizeF(font.pointSizeF() * 1.5);
    font.setBold(true);
    m_title->setFont(font);
    bar->addWidget(m_title);
    auto *space = new QWidget;
    space->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Preferred);
    bar->addWidget(space);
    m_summary = new QLabel;
    m_summary->setAccessibleDescription(tr("Summary of the library"));
    m_summary->setForegroundRole(QPalette::PlaceholderText);
    m_summary->setContentsMargins(0, 0, BrowserStyle::margin, 0);
    bar->addWidget(m_summary);
    bar->addWidget(m_search->field());
    bar->addWidget(toolButton(m_lightAction, u"theme"_s));
    new MessageStrip(this);
}

void BrowserWindow::buildTable()
{
    m_model = new TrackTableModel(m_context, &m_editor, this);
    m_table = new TrackTableView;
    m_table->setModel(m_model);
    m_model->setRowsEditedTogether([table = m_table] { return table->selectedRowNumbers(); });
    for (const auto signal : { &QAbstractItemModel::rowsInserted, &QAbstractItemModel::rowsRemoved })
        connect(m_model, signal, this, &BrowserWindow::showSummary);
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
    auto *menu = new KXMenu(this);
    menu->setAccessibleName(tr("Track"));
    menu->setUpdater([this](KXMenu &filled) {
        if (m_table->clickedCell().column() == TrackTableModel::GenreNames)
            filled.addAction(m_genreAction);
        filled.addAction(m_reasonsAction);
        m_trackCommands->addTo(filled, m_table->clickedCell().column());
        m_places->addSteps(filled);
        m_crateTable->addTo(filled);
    });
    m_table->setMenu(menu);

    m_emptyText = new QLabel(tr("No music in the library yet"), m_table->viewport());
    m_emptyText->setAlignment(Qt::AlignCenter);
    auto *centre = new QVBoxLayout(m_table->viewport());
    centre->addWidget(m_emptyText);
    m_emptyText->hide();
    auto *all = new QWidget;
    auto *column = new QVBoxLayout(all);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(0);
    auto *tracks = new QWidget;
    auto *rows = new QVBoxLayout(tracks);
    rows->setContentsMargins(0, 0, 0, 0);
    rows->setSpacing(0);
    rows->addWidget(m_filterStrip);
    rows->addWidget(m_table, 1);
    tracks->setFocusProxy(m_table);
    m_shop = new ShopPlace(tracks, m_filterStrip, m_sources, m_preview, m_coordinator);
    m_shop->setFilterMenu(qobject_cast<QMenu *>(m_filterStrip->actions().constFirst()->associatedObjects().value(0)));
    connect(m_shop, &ShopPlace::countDidChange, this, &BrowserWindow::showSummary);
    buildPlaces(m_shop, view);
    m_panes = m_sources->beside(m_places->view(), m_inspector->container());
    column->addWidget(m_panes, 1);
    m_strip = new PlayerStrip(m_preview, m_waveforms);
    column->addWidget(m_strip);
    setCentralWidget(all);
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
            showTrack(KXManagedObjectID(
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
    connect(m_inspector, &TrackInspector::picked, this, &BrowserWindow::showFound);
    view->addActions({ m_places->layeredAction(), m_inspector->action() });
    menuBar()->addMenu(m_places->makeMenu(this));
    auto *const bar = findChild<QToolBar *>();
    QAction *const first = bar->actions().constFirst();
    bar->insertWidget(first, toolButton(m_places->backAction(), u"back"_s));
    bar->insertWidget(first, toolButton(m_places->forwardAction(), u"forward"_s));
}

void BrowserWindow::buildStatus()
{
    statusBar()->setSizeGripEnabled(false);
    m_status = new QLabel(m_coordinator->store()->URL().toLocalFile());
    m_status->setContentsMargins(BrowserStyle::margin, 0, 0, 0);
    auto *progress = new KXThemeableProgressIndicator;
    progress->setThemeStyleName(KXProgressIndicatorStyles);
    m_progress = progress;
    m_progress->setAccessibleName(tr("Progress of the import"));
    m_progress->setTextVisible(false);
    m_progress->setFixedWidth(260);
    auto *cancel = new KXThemeableButton(tr("&Cancel"));
    cancel->setThemeStyleName(KXButtonStyles);
    m_cancel = cancel;
    m_cancel->setAccessibleName(tr("Cancel the import"));
    connect(m_cancel, &QPushButton::clicked, this, &BrowserWindow::cancelImport);
    auto *const selected = new QLabel;
    selected->setAccessibleDescription(tr("Summary of the selected tracks"));
    new SelectionSummary(m_table, m_model, selected, m_table);
    statusBar()->addWidget(m_status, 1);
    statusBar()->addPermanentWidget(selected);
    statusBar()->addPermanentWidget(m_preview->label());
    statusBar()->addPermanentWidget(m_progress);
    statusBar()->addPermanentWidget(m_cancel);
    m_progress->hide();
    m_cancel->hide();
}

void BrowserWindow::buildCommands()
{
    m_files = new FileCommands(this);
    m_missing = new MissingFiles(this, &m_editor);
    m_trackCommands = new TrackCommands(this, &m_editor, m_missing);
    const auto say = [this](const QString &what) { m_status->setText(what); };
    connect(m_missing, &MissingFiles::said, this, say);
    connect(m_trackCommands, &TrackCommands::said, this, say);
    auto *const bulk = new BulkEdits(this, m_context, m_status);
    m_bulkEdits = bulk;
    m_model->setBulkEdit([bulk](const auto &properties, const QString &name) { return bulk->edit(properties, name); });
    const QList<QAction *> menus = menuBar()->actions();
    menuBar()->insertMenu(menus[0], m_files->makeMenu({ m_missing->find }));
    menuBar()->insertMenu(menus[1], m_trackCommands->makeMenu(this));
}

// Editing

QList<KXRef<Track>> BrowserWindow::selectedTracks() const
{
    QList<KXRef<Track>> tracks;
    for (const QModelIndex &index : m_table->selectionModel()->selectedRows()) {
        if (const KXRef<Track> track = m_model->track(index.row()))
            tracks.append(track);
    }
    return tracks;
}

QList<KXRef<Genre>> BrowserWindow::currentGenres() const
{
    const KXRef<Track> track = m_model->track(m_table->currentIndex().row());
    QList<KXRef<Genre>> genres = track ? track->genres() : QList<KXRef<Genre>>();
    std::sort(genres.begin(), genres.end(), [](const auto &a, const auto &b) { return a->name() < b->name(); });
    return genres;
}

void BrowserWindow::updateActions()
{
    const bool selected = m_table->selectionModel()->hasSelection();
    for (QAction *action : std::as_const(m_ratingActions))
        action->setEnabled(selected);
    m_reasonsAction->setEnabled(m_table->currentIndex().isValid());
    m_genreAction->setEnabled(!currentGenres().isEmpty());
    if (m_trackCommands)
        m_trackCommands->updateActions();
}

void BrowserWindow::rateSelected(int stars)
{
    const QVariant rating = stars > 0 ? QVariant(stars) : QVariant();
    const auto properties = [&] { return TrackFields::Properties { { u"rating"_s, rating } }; };
    if (!m_bulkEdits.load()->edit(properties, LibraryEditor::tr("Change Rating")))
        m_editor.rate(selectedTracks(), stars);
}

void BrowserWindow::renameGenre()
{
    if (const QList<KXRef<Genre>> genres = currentGenres(); !genres.isEmpty())
        (new GenreDialog(&m_editor, genres, this))->open();
}

void BrowserWindow::showPlace(
    const KXPredicate &predicate, const QString &title, const QString &emptyText, const QUrl &filters)
{
    m_emptyReason = emptyText;
    m_placePredicate = predicate;
    m_title->setText(title.isEmpty() ? tr("Library") : title);
    if (QLayout *const bar = m_title->parentWidget()->layout())
        bar->invalidate(); // nobody tells it while the window is hidden
    const bool isShop = m_shop->showPageOf(filters);
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
    showSummary();
}

/// The one that plays, else the current one of the table.
KXRef<Track> BrowserWindow::trackAtHand() const
{
    const QModelIndex playing = m_preview->playingIndex();
    return m_model->track(playing.isValid() ? playing.row() : m_table->currentIndex().row());
}

void BrowserWindow::explainTrack()
{
    const KXRef<Track> track = m_model->track(m_table->currentIndex().row());
    if (!track)
        return;
    KXAlert alert(tr("Why “%1” is in the list").arg(track->title()));
    alert.setInformativeText(TrackReasons::text(m_filterStrip->filters()->filterSet(), *track));
    (void)alert.run(this);
}

// Finding

bool BrowserWindow::showTrack(const KXManagedObjectID &track)
{
    const qint64 key = track.key();
    qsizetype row = m_model->tracks().indexesOf(std::span(&key, 1)).front();
    if (row < 0) { // it lies elsewhere
        m_places->visitAllTracks();
        m_filterStrip->setNarrowingText({});
        row = m_model->tracks().indexesOf(std::span(&key, 1)).front();
    }
    const QModelIndex index = m_model->index(int(row), 0);
    if (!index.isValid())
        return false;
    m_table->setCurrentIndex(index);
    m_table->selectRow(index.row());
    m_table->scrollTo(index, QAbstractItemView::PositionAtCenter);
    m_table->setFocus();
    return true;
}

void BrowserWindow::showFound(const KXManagedObjectID &found)
{
    const KXRef<KXManagedObject> object = m_context->objectWithID(found);
    if (!object || object->isDeleted() || object->isMissing())
        return;
    if (m_sources->selectPlaces({ found.URIRepresentation() }))
        return;
    if (KXDynamicRefCast<Track>(object)) {
        showTrack(found);
        return;
    }
    if (const auto step = PlaceSteps::to(*object))
        m_places->visit({ { m_sources->allTracksURL() }, { *step } });
    m_table->setCurrentIndex(m_model->index(0, 0));
    m_table->setFocus();
}

void BrowserWindow::playFound(const KXManagedObjectID &found)
{
    showFound(found);
    if (m_table->currentIndex().isValid())
        m_preview->playRow(m_table->currentIndex().row());
}

// Importing

void BrowserWindow::importMusic(const ImportOperation::Source &source)
{
    cancelImport();
    m_import = std::make_shared<ImportOperation>(m_context, source, [this](qint64 done, qint64 total) {
        KXMainQueue::async(this, [this, done, total] { showProgress(done, total); });
    });
    // Queued behind the merges of its saves.
    m_import->setCompletionBlock([this, operation = std::weak_ptr(m_import)] {
        KXMainQueue::async(this, [this, operation] { finishImport(operation); });
    });
    m_queue.addOperation(m_import);
    showProgress(0, 0);
    m_cancel->setEnabled(true);
    m_cancel->show();
    m_progress->show();
    m_emptyText->hide();
}

void BrowserWindow::cancelImport()
{
    if (!m_import)
        return;
    m_import->cancel();
    m_cancel->setEnabled(false);
    m_status->setText(tr("Cancelling the import…"));
}

void BrowserWindow::showSummary()
{
    if (m_shop && m_shop->isShown()) {
        m_summary->setText(m_shop->countText());
        m_summary->setToolTip({});
        return;
    }
    const QLocale locale = KXClock::locale();
    const int tracks = m_model->rowCount();
    QStringList parts { tr("%1 tracks").arg(locale.toString(tracks)) };
    if (tracks == 1)
        parts[0] = tr("1 track");
    if (const qsizetype skipped = qsizetype(m_lastResult.skipped.size()))
        parts.append(tr("%1 skipped").arg(locale.toString(skipped)));
    m_summary->setText(parts.join(u"  ·  "_s));

    QStringList reasons;
    for (const SkippedFile &file : m_lastResult.skipped) {
        if (reasons.size() == shownReasons) {
            reasons.append(u"…"_s);
            break;
        }
        reasons.append(u"%1: %2"_s.arg(file.file, file.reason));
    }
    m_summary->setToolTip(reasons.join(u'\n'));
    m_emptyText->setText(m_filterStrip->predicate()             ? tr("No track fits this")
            : m_model->isFiltered() && !m_emptyReason.isEmpty() ? m_emptyReason
                                                                : tr("No music in the library yet"));
    m_emptyText->setVisible(tracks == 0 && !m_import);
}

void BrowserWindow::showProgress(qint64 done, qint64 total)
{
    if (m_import && m_import->isCancelled())
        return;
    const QLocale locale = KXClock::locale();
    m_progress->setRange(0, int(total));
    m_progress->setValue(int(done));
    if (done == 0 || !m_importClock.isValid())
        m_importClock.start();
    QString text = total == 0 ? tr("Looking for music…")
                              : tr("Importing %1 of %2").arg(locale.toString(done), locale.toString(total));
    // From the pace so far, once there is one.
    const double seconds = double(m_importClock.elapsed()) / 1000;
    const double left = done > 0 ? seconds / double(done) * double(total - done) : 0;
    if (seconds > 3 && left > 5)
        text += u"  ·  "_s
            + (left < 90 ? tr("about %1 s left").arg(locale.toString(qint64(left / 5 + 1) * 5))
                         : tr("about %1 min left").arg(locale.toString(qint64(left / 60 + 1))));
    m_status->setText(text);
}

void BrowserWindow::finishImport(const std::weak_ptr<ImportOperation> &operation)
{
    if (!m_import || operation.lock() != m_import)
        return; // another one took its place
    m_lastResult = m_import->result();
    const ImportResult &result = m_lastResult;
    m_import.reset();
    m_progress->hide();
    m_cancel->hide();
    const QLocale locale = KXClock::locale();
    QString error;
    if (result.error) {
        error = tr("Import failed: %1").arg(result.error.localizedDescription());
    } else if (result.cancelled) {
        error = tr("Import cancelled");
    } else {
        QStringList parts;
        const auto count = [&](qint64 number, const QString &what) {
            if (number > 0)
                parts.append(what.arg(locale.toString(number)));
        };
        count(result.added, tr("%1 added"));
        count(result.updated, tr("%1 updated"));
        count(result.vanished, tr("%1 missing"));
        count(result.returned, tr("%1 back"));
        count(result.moved, tr("%1 found again"));
        m_status->setText(parts.isEmpty() ? tr("Up to date") : parts.join(u"  ·  "_s));
    }
    if (!error.isEmpty())
        m_status->setText(error);
    m_files->report(result);
    Analytics::importFinished(result.added);
    showSummary();
    m_sources->musicDidChange();
    // What asks lets everything else go on, so it comes last.
    if (!result.doubtful.empty())
        KXMainQueue::async(this, [this, found = result] { m_missing->settle(found); });
    Q_EMIT importFinished(error);
}
