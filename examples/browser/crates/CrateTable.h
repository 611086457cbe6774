#pragma once

#include <QObject>

#include <kestrixkit/util/views/KXTableViewDelegate.h>

#include "crates/Crate.h"

class CratesPane;
class KXMenu;
class QAction;
class QMenu;
class TrackTableModel;
class TrackTableView;

/// What the user does with crates in the table of tracks: drags rows out of it and, in a crate that is shown in its
/// order, to another place; by commands, adds to crates, takes out, moves up and down, and finds the crates of a track.
class CrateTable : public QObject, private KXTableViewDelegate
{
    Q_OBJECT
public:
    /// All of them outlive this.
    CrateTable(TrackTableView *table, TrackTableModel *model, CratesPane *crates, QObject *parent = nullptr);
    ~CrateTable() override;

    /// "Crate" for the menu bar.
    [[nodiscard]] QMenu *makeMenu(QWidget *parent);
    /// For the context menu of the rows.
    void addTo(KXMenu &menu);

Q_SIGNALS:
    /// A track's crate was picked: the window opens it, and shows the track there.
    void crateRequested(const KXRef<Crate> &crate, qint64 track);
    /// What a command did, in a line.
    void said(const QString &what);

private:
    void willDragRows(KXTableView *table, QMimeData &data) override;
    [[nodiscard]] Qt::DropAction validateRowDrop(
        KXTableView *table, const QMimeData &data, Qt::DropActions allowed, int row) override;
    bool acceptRowDrop(KXTableView *table, const QMimeData &data, Qt::DropAction action, int row) override;

    QAction *add(const QString &title, const QKeySequence &keys, void (CrateTable::*perform)());
    void makeWithSelected();
    void removeSelected();
    void prepareSelected();
    void moveUp() { moveBy(-1); }
    void moveDown() { moveBy(1); }
    void moveBy(int rows);
    void addSelectedTo(const KXRef<Crate> &crate);
    void fillAddMenu(KXMenu &menu);
    void fillFindMenu(KXMenu &menu);
    void updateActions();
    [[nodiscard]] std::vector<qint64> selectedTracks() const;
    void select(const std::vector<qint64> &tracks);

    TrackTableView *const m_table;
    TrackTableModel *const m_model;
    CratesPane *const m_crates;
    QAction *m_new, *m_remove, *m_prepare, *m_up, *m_down, *m_order;
    KXMenu *m_addMenu, *m_findMenu; // one each, for all menus that show them
};
