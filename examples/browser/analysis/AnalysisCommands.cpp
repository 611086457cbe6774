#include "analysis/AnalysisCommands.h"

#include <QLocale>
#include <QStatusBar>

#include <kestrixkit/foundation/KXClock.h>
#include <kestrixkit/foundation/KXMainQueue.h>
#include <kestrixkit/foundation/KXUndoManager.h>
#include <kestrixkit/theme/KXThemeStyleNames.h>
#include <kestrixkit/theme/controls/KXThemeableButton.h>

#include "library/BulkEdits.h"
#include "library/LibraryEditor.h"
#include "table/TrackTableView.h"
#include "window/BrowserWindow.h"
#include "window/MessageStrip.h"

using namespace Qt::StringLiterals;

AnalysisCommands::AnalysisCommands(BrowserWindow *window, LibraryEditor *editor, BulkEdits *bulk)
    : QObject(window)
    , all(new QAction(tr("Anal&yse Tempo and Key"), this))
    , selected(new QAction(tr("Anal&yse Tempo and Key of Selection"), this))
    , confirm(new QAction(tr("Con&firm Tempo and Key"), this))
    , m_window(window)
    , m_editor(editor)
    , m_bulk(bulk)
    , m_steps(window->context()->persistentStoreCoordinator())
    , m_job(window->context()->persistentStoreCoordinator())
{
    m_steps.setFinishes(true);
    connect(all, &QAction::triggered, this, &AnalysisCommands::analyseAll);
    connect(selected, &QAction::triggered, this, &AnalysisCommands::analyseSelected);
    connect(confirm, &QAction::triggered, this, &AnalysisCommands::confirmSelected);

    auto *const cancel = new KXThemeableButton(tr("&Cancel"));
    cancel->setThemeStyleName(KXButtonStyles);
    cancel->setAccessibleName(tr("Cancel the analysis"));
    connect(cancel, &QPushButton::clicked, &m_job, &LibraryJob::cancel);
    m_cancel = cancel;
    window->statusBar()->addPermanentWidget(cancel);
    cancel->hide();
    updateActions();
}

AnalysisCommands::~AnalysisCommands()
{
    if (KXUndoManager *const undo = m_window->context()->undoManager())
        undo->removeAllActionsWithTarget(this);
}

void AnalysisCommands::setAnalyser(const Analyser &analyser)
{
    m_analyser = analyser;
    updateActions();
}

void AnalysisCommands::updateActions()
{
    const bool isInstalled = m_analyser.isInstalled(), isSelected = m_window->table()->selectionModel()->hasSelection();
    all->setEnabled(isInstalled);
    selected->setEnabled(isInstalled && isSelected);
    confirm->setEnabled(isSelected);
    const QString tip = isInstalled ? tr("For tracks without tempo or key")
                                    : tr("The program browser_analysis, which does it, is not installed");
    for (QAction *action : { all, selected }) {
        action->setToolTip(tip);
        action->setStatusTip(tip);
    }
}

// Analysing

void AnalysisCommands::analyseAll()
{
    analyse([](TrackAnalysis &analysis) { return analysis.unknown(); });
}

void AnalysisCommands::analyseSelected()
{
    std::vector<qint64> tracks;
    for (const int row : m_window->table()->selectedRowNumbers())
        tracks.push_back(m_window->model()->tracks().key(row));
    if (!tracks.empty())
        analyse([tracks](TrackAnalysis &) { return tracks; });
}

void AnalysisCommands::analyse(const std::function<std::vector<qint64>(TrackAnalysis &)> &tracks)
{
    m_window->table()->commitOpenEditor();
    if (isBusy() || !m_analyser.isInstalled() || !m_editor->save())
        return;
    const auto result = std::make_shared<TrackAnalysisResult>();
    m_cancel->show();
    showProgress(0, 0);
    m_job.start(
        [this, tracks, result, analyser = m_analyser](
            const KXManagedObjectContext::Ref &context, const LibraryJob::Stop &stop) {
            TrackAnalysis analysis(context, analyser);
            *result = analysis.run(tracks(analysis), stop, [this](qint64 done, qint64 total) {
                KXMainQueue::async(this, [this, done, total] { showProgress(done, total); });
            });
        },
        [this, result] {
            m_cancel->hide();
            // Queued behind the merges of what it saved.
            if (!result->found.empty())
                registerStep(std::make_shared<std::vector<AnalysedValues>>(result->found), true);
            show(*result);
        });
}

void AnalysisCommands::show(const TrackAnalysisResult &result)
{
    const QLocale locale = KXClock::locale();
    const size_t found = result.found.size();
    QString text = found == 0 && result.failed.empty() && result.silent == 0 && !result.cancelled
        ? tr("Tempo and key are known already")
        : found == 1 ? tr("1 track was analysed")
                     : tr("%1 tracks were analysed", nullptr, int(found)).arg(locale.toString(qulonglong(found)));
    if (result.silent > 0)
        text += tr(", nothing was heard in %1", nullptr, int(result.silent)).arg(locale.toString(result.silent));
    if (!result.failed.empty())
        text += tr(", %1 could not be", nullptr, int(result.failed.size()))
                    .arg(locale.toString(qulonglong(result.failed.size())));
    if (result.cancelled)
        text += tr(", cancelled");
    if (result.error)
        text = result.error.localizedDescription();
    MessageStrip::postUnanalysed(result.failed);
    Q_EMIT said(text);
}

void AnalysisCommands::showProgress(qint64 done, qint64 total)
{
    const QLocale locale = KXClock::locale();
    if (total == 0)
        Q_EMIT said(tr("Analysing tempo and key…"));
    else if (m_job.isBusy())
        Q_EMIT said(tr("Analysing tempo and key: %1 of %2").arg(locale.toString(done), locale.toString(total)));
}

/// Undoing takes away what nobody has confirmed or changed since, redoing sets it again where there is nothing: both in
/// the background, by identifiers.
void AnalysisCommands::registerStep(const std::shared_ptr<const std::vector<AnalysedValues>> &found, bool isUndo)
{
    KXUndoManager *const undo = m_window->context()->undoManager();
    if (!undo)
        return;
    const KXUndoGroup group(undo, tr("Analyse Tempo and Key"));
    undo->registerUndo(this, [this, found, isUndo] {
        registerStep(found, !isUndo);
        if (!m_editor->save())
            return;
        m_steps.start([found, isUndo](const KXManagedObjectContext::Ref &context, const LibraryJob::Stop &) {
            TrackAnalysis analysis(context);
            (void)(isUndo ? analysis.takeBack(*found) : analysis.putBack(*found)); // a store that fails has said so
        });
    });
}

// Confirming

void AnalysisCommands::confirmSelected()
{
    const auto none = [] {
        return TrackFields::Properties { { u"analysedBpm"_s, QVariant() }, { u"analysedKey"_s, QVariant() } };
    };
    m_window->table()->commitOpenEditor();
    if (m_bulk->edit(none, confirm->text().remove(u'&')))
        return;
    QList<KXRef<Track>> tracks;
    for (const int row : m_window->table()->selectedRowNumbers())
        tracks.append(m_window->model()->track(row));
    m_editor->confirmAnalysed(tracks);
}
