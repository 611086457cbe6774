#pragma once

#include <QObject>

#include "library/Library.h"

class FilterStrip;
class LibraryEditor;
class QAction;
class QMenu;
class TrackTableModel;
class TrackTableView;

/// Commands of the Edit menu for the list: stars for the selected tracks, other names for the genres of the current
/// one, and why that is in the list.
class ListCommands : public QObject
{
    Q_OBJECT
public:
    /// All of them outlive this; the window is what dialogs lie on.
    ListCommands(TrackTableView *table, TrackTableModel *model, LibraryEditor *editor, const FilterStrip *strip,
        QWidget *window);

    void addTo(QMenu &menu);
    void updateActions();

    [[nodiscard]] QAction *renameGenreAction() const { return m_renameGenre; }
    [[nodiscard]] QAction *explainAction() const { return m_explain; }

private:
    void rateSelected(int stars);
    void renameGenre();
    void explainTrack();
    [[nodiscard]] KXRef<Track> currentTrack() const;
    /// Of the current track, in the order of their names.
    [[nodiscard]] QList<KXRef<Genre>> currentGenres() const;

    TrackTableView *const m_table;
    TrackTableModel *const m_model;
    LibraryEditor *const m_editor;
    const FilterStrip *const m_strip;
    QWidget *const m_window;
    QList<QAction *> m_rate; // by stars
    QAction *m_renameGenre;
    QAction *m_explain;
};
