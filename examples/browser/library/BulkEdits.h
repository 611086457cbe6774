#pragma once

#include <kestrixkit/context/KXBatchEditor.h>

#include "library/TrackFields.h"

class BrowserWindow;
class QLabel;
class QPushButton;
class TrackTableModel;
class TrackTableView;

/// Edits of very many selected tracks, their removal included: in the background, with their progress in the status bar
/// and a button that cancels them.
class BulkEdits : public QObject
{
    Q_OBJECT
public:
    /// From so many rows on.
    static constexpr qsizetype fromRows = 2'000;
    static constexpr qsizetype fromRemovedRows = 500; // a removal has far more to write

    /// All of them outlive this. The line is where the window says what happened.
    BulkEdits(BrowserWindow *window, KXManagedObjectContext::Ref context, QLabel *line);

    /// Sets properties of all selected tracks; what these are is asked where it is needed. False, and nothing is done,
    /// where they are few: these are edited at once, by whoever asks.
    bool edit(const std::function<TrackFields::Properties()> &properties, const QString &actionName);
    /// Takes all selected tracks out of the library, as LibraryEditor::remove() does. False, and nothing is done, where
    /// they are few.
    bool remove();
    [[nodiscard]] KXBatchEditor &editor() { return m_editor; }

private:
    [[nodiscard]] std::vector<qint64> selectedTracks() const;
    void showOutcome(const KXBatchOutcome &outcome);

    BrowserWindow *const m_window;
    const KXManagedObjectContext::Ref m_context;
    QLabel *const m_line;
    QPushButton *m_cancel;
    KXBatchEditor m_editor;
};
