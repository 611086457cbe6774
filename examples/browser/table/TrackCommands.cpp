#include "table/TrackCommands.h"

#include <QLocale>
#include <QMenu>
#include <QScrollBar>
#include <QStatusBar>

#include <kestrixkit/foundation/KXClock.h>
#include <kestrixkit/foundation/KXMainQueue.h>
#include <kestrixkit/theme/KXThemeStyleNames.h>
#include <kestrixkit/theme/controls/KXThemeableButton.h>
#include <kestrixkit/toolkit/KXMenu.h>

#include "analysis/AnalysisCommands.h"
#include "files/MissingFiles.h"
#include "inspector/TrackInspector.h"
#include "library/BulkEdits.h"
#include "library/LibraryEditor.h"
#include "table/TrackTableView.h"
#include "tags/TagWriter.h"
#include "window/BrowserWindow.h"
#include "window/MessageStrip.h"

using namespace Qt::StringLiterals;

TrackCommands::TrackCommands(
    BrowserWindow *window, LibraryEditor *editor, BulkEdits *bulk, MissingFiles *missing, AnalysisCommands *analysis)
    : QObject(window)
    , m_window(window)
    , m_editor(editor)
    , m_bulk(bulk)
    , m_missing(missing)
    , m_analysis(analysis)
    , m_editHere(new QAction(tr("Edit &Cell"), this))
    , m_write(new QAction(tr("&Write Tags"), this))
    , m_remove(new QAction(tr("Remove from Li&brary"), this))
    , m_job(window->context()->persistentStoreCoordinator())
{
    for (const TrackFields::Field field : TrackFields::all()) {
        auto *const action = new QAction(TrackFields::name(field), this);
        connect(action, &QAction::triggered, this, [this, field] { edit(field); });
        m_edit.append(action);
    }
    m_edit[int(TrackFields::Field::Comment)]->setShortcut(QKeySequence(Qt::Key_F2));
    m_editHere->setShortcut(QKeySequence(Qt::SHIFT | Qt::Key_F2));
    connect(m_editHere, &QAction::triggered, this, &TrackCommands::editHere);
    connect(m_write, &QAction::triggered, this, &TrackCommands::writeTags);
    m_remove->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Delete));
    connect(m_remove, &QAction::triggered, this, &TrackCommands::removeSelected);

    auto *const cancel = new KXThemeableButton(tr("&Cancel"));
    cancel->setThemeStyleName(KXButtonStyles);
    cancel->setAccessibleName(tr("Cancel writing tags"));
    connect(cancel, &QPushButton::clicked, &m_job, &LibraryJob::cancel);
    m_cancel = cancel;
    window->statusBar()->addPermanentWidget(cancel);
    cancel->hide();
}

QMenu *TrackCommands::makeMenu(QWidget *parent)
{
    auto *const menu = new QMenu(tr("&Track"), parent);
    menu->setAccessibleName(tr("Track"));
    QMenu *const edit = menu->addMenu(tr("&Edit"));
    edit->setAccessibleName(tr("Edit"));
    edit->addActions(m_edit);
    menu->addActions({ m_editHere, m_write, m_analysis->selected, m_analysis->confirm });
    menu->setToolTipsVisible(true);
    menu->addSeparator();
    menu->addActions({ m_missing->locate, m_remove });
    updateActions();
    return menu;
}

void TrackCommands::addTo(KXMenu &menu, int column)
{
    if (const auto field = TrackTableModel::fieldOf(column)) {
        menu.addItem(tr("Edit %1").arg(TrackFields::name(*field)), this, [this, field] { edit(*field); });
        menu.addSeparator();
    }
    menu.addActions({ m_write, m_analysis->selected, m_analysis->confirm, m_missing->locate, m_remove });
}

void TrackCommands::updateActions()
{
    const bool isCurrent = m_window->table()->currentIndex().isValid(),
               isSelected = m_window->table()->selectionModel()->hasSelection();
    for (QAction *action : std::as_const(m_edit))
        action->setEnabled(isCurrent);
    m_editHere->setEnabled(isCurrent);
    m_write->setEnabled(isSelected);
    m_remove->setEnabled(isSelected);
    m_missing->updateActions();
    m_analysis->updateActions();
}

std::vector<qint64> TrackCommands::selectedTracks() const
{
    std::vector<qint64> tracks;
    for (const int row : m_window->table()->selectedRowNumbers())
        tracks.push_back(m_window->model()->tracks().key(row));
    return tracks;
}

// Editing

void TrackCommands::edit(TrackFields::Field field)
{
    TrackTableView *const table = m_window->table();
    const int column = TrackTableModel::columnOf(field);
    const QModelIndex cell = table->currentIndex().siblingAtColumn(column);
    if (!cell.isValid())
        return;
    if (table->isColumnHidden(column)) {
        m_window->inspector()->setShown(true); // where it can be edited as well
        return;
    }
    const int before = table->horizontalScrollBar()->value();
    table->selectionModel()->setCurrentIndex(cell, QItemSelectionModel::NoUpdate);
    table->scrollTo(cell);
    table->edit(cell);
    // The title is in sight again when it is written.
    if (QWidget *const editor = table->indexWidget(cell))
        connect(editor, &QObject::destroyed, table->horizontalScrollBar(),
            [bar = table->horizontalScrollBar(), before] { bar->setValue(before); });
}

void TrackCommands::editHere()
{
    if (const auto field = TrackTableModel::fieldOf(m_window->table()->currentIndex().column()))
        edit(*field);
}

void TrackCommands::removeSelected()
{
    TrackTableView *const table = m_window->table();
    table->commitOpenEditor();
    if (m_bulk->remove())
        return;
    const QList<int> rows = table->selectedRowNumbers();
    QList<KXRef<Track>> tracks;
    for (const int row : rows)
        tracks.append(m_window->model()->track(row));
    if (rows.isEmpty() || !m_editor->remove(tracks))
        return;
    const QModelIndex next = m_window->model()->index(std::min(rows.first(), m_window->model()->rowCount() - 1), 0);
    if (next.isValid())
        table->selectionModel()->setCurrentIndex(next, QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
    Q_EMIT said(rows.size() == 1 ? tr("1 track removed; its file stays where it is")
                                 : tr("%1 tracks removed; their files stay where they are", nullptr, int(rows.size()))
                                       .arg(KXClock::locale().toString(rows.size())));
}

// Writing

void TrackCommands::writeTags()
{
    const std::vector<qint64> tracks = selectedTracks();
    m_window->table()->commitOpenEditor();
    if (tracks.empty() || m_job.isBusy() || !m_editor->save())
        return;
    const auto result = std::make_shared<TagWriterResult>();
    m_cancel->show();
    m_job.start(
        [this, tracks, result](const KXManagedObjectContext::Ref &context, const LibraryJob::Stop &stop) {
            *result = TagWriter(context).run(tracks, stop, [this](qint64 done, qint64 total) {
                KXMainQueue::async(this, [this, done, total] { showWriting(done, total); });
            });
        },
        [this, result] {
            m_cancel->hide();
            const QLocale locale = KXClock::locale();
            QString text = result->written == 1 ? tr("The tags of 1 file were written")
                                                : tr("The tags of %1 files were written", nullptr, int(result->written))
                                                      .arg(locale.toString(result->written));
            if (!result->failed.empty())
                text += tr(", %1 could not be", nullptr, int(result->failed.size()))
                            .arg(locale.toString(qulonglong(result->failed.size())));
            if (result->cancelled)
                text += tr(", cancelled");
            if (result->error)
                text = result->error.localizedDescription();
            MessageStrip::postUnwritten(result->failed);
            Q_EMIT said(text);
        });
}

void TrackCommands::showWriting(qint64 done, qint64 total)
{
    const QLocale locale = KXClock::locale();
    if (m_job.isBusy())
        Q_EMIT said(tr("Writing tags: %1 of %2").arg(locale.toString(done), locale.toString(total)));
}
