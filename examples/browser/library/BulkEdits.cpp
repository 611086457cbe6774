#include "library/BulkEdits.h"

#include <QLabel>
#include <QLocale>
#include <QStatusBar>

#include <kestrixkit/foundation/KXClock.h>
#include <kestrixkit/foundation/KXUndoManager.h>
#include <kestrixkit/theme/KXThemeStyleNames.h>
#include <kestrixkit/theme/controls/KXThemeableButton.h>

#include "library/LibraryEditor.h"
#include "table/TrackTableView.h"
#include "window/BrowserWindow.h"

BulkEdits::BulkEdits(BrowserWindow *window, KXManagedObjectContext::Ref context, QLabel *line)
    : QObject(window)
    , m_window(window)
    , m_context(std::move(context))
    , m_line(line)
    , m_editor(m_context)
{
    auto *const cancel = new KXThemeableButton(tr("&Cancel"));
    cancel->setThemeStyleName(KXButtonStyles);
    cancel->setAccessibleName(tr("Cancel the changes"));
    m_cancel = cancel;
    window->statusBar()->addPermanentWidget(cancel);
    cancel->hide();
    connect(cancel, &QPushButton::clicked, &m_editor, &KXBatchEditor::cancel);
    connect(&m_editor, &KXBatchEditor::progressed, this, [this](qint64 done, qint64 total) {
        const QLocale locale = KXClock::locale();
        m_cancel->show();
        m_line->setText(tr("%1 of %2 tracks done").arg(locale.toString(done), locale.toString(total)));
    });
    connect(&m_editor, &KXBatchEditor::finished, this, &BulkEdits::showOutcome);
}

std::vector<qint64> BulkEdits::selectedTracks() const
{
    std::vector<qint64> keys;
    for (const int row : m_window->table()->selectedRowNumbers())
        keys.push_back(m_window->model()->tracks().key(row));
    return keys;
}

bool BulkEdits::remove()
{
    const std::vector<qint64> keys = selectedTracks();
    if (qsizetype(keys.size()) < fromRemovedRows)
        return false;
    if (!m_context->save()) // what is unsaved is older than this
        return true;
    // A selection of very many rows costs more with each batch that goes than all the rest.
    m_window->table()->clearSelection();
    m_editor.change(&LibraryEditor::takeOut, QString(Track::entityName), keys, tr("Remove from Library"));
    return true;
}

bool BulkEdits::edit(const std::function<TrackFields::Properties()> &properties, const QString &actionName)
{
    const std::vector<qint64> keys = selectedTracks();
    if (qsizetype(keys.size()) < fromRows)
        return false;
    TrackFields::Properties values;
    {
        const KXUndoRegistrationOff unrecorded(
            m_context->undoManager()); // names that are made are no step of their own
        values = properties();
    }
    if (m_context->save()) // what is unsaved is older than this; where it cannot be saved, neither can that
        m_editor.setValues(values, QString(Track::entityName), keys, actionName);
    return true;
}

void BulkEdits::showOutcome(const KXBatchOutcome &outcome)
{
    const QLocale locale = KXClock::locale();
    m_cancel->setVisible(m_editor.isBusy());
    const QString changed = locale.toString(outcome.changed), kept = locale.toString(outcome.kept);
    const QString name = outcome.isUndo ? tr("%1 undone").arg(outcome.actionName) : outcome.actionName;
    QString text = outcome.error ? tr("%1: %2").arg(name, outcome.error.localizedDescription())
        : outcome.changed == 1   ? tr("%1: 1 track").arg(name)
                                 : tr("%1: %2 tracks", nullptr, int(outcome.changed)).arg(name, changed);
    if (outcome.kept == 1)
        text += tr(", 1 was changed since and stays as it is");
    else if (outcome.kept > 0)
        text += tr(", %1 were changed since and stay as they are", nullptr, int(outcome.kept)).arg(kept);
    if (outcome.cancelled)
        text += tr(", cancelled");
    m_line->setText(text);
}
