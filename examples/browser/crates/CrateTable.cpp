#include "crates/CrateTable.h"

#include <algorithm>

#include <QAction>
#include <QLocale>

#include <kestrixkit/foundation/KXClock.h>
#include <kestrixkit/toolkit/KXMenu.h>

#include "crates/CratesPane.h"
#include "table/TrackTableView.h"

using namespace Qt::StringLiterals;

CrateTable::CrateTable(TrackTableView *table, TrackTableModel *model, CratesPane *crates, QObject *parent)
    : QObject(parent)
    , m_table(table)
    , m_model(model)
    , m_crates(crates)
    , m_addMenu(new KXMenu(tr("&Add to Crate"), table))
    , m_findMenu(new KXMenu(tr("S&how in Crate"), table))
{
    m_new = add(
        tr("New Crate with &Selection"), QKeySequence(Qt::CTRL | Qt::ALT | Qt::Key_N), &CrateTable::makeWithSelected);
    m_prepare = add(tr("&Prepare"), QKeySequence(Qt::Key_P), &CrateTable::prepareSelected);
    m_remove = add(tr("Re&move from Crate"), QKeySequence(Qt::Key_Delete), &CrateTable::removeSelected);
    m_up = add(tr("Move &Up"), QKeySequence(Qt::ALT | Qt::Key_Up), &CrateTable::moveUp);
    m_down = add(tr("Move &Down"), QKeySequence(Qt::ALT | Qt::Key_Down), &CrateTable::moveDown);
    m_order = new QAction(tr("Sort in the &Crate's Order"), this);
    connect(m_order, &QAction::triggered, table, &TrackTableView::sortInPlaceOrder);
    m_addMenu->setAccessibleName(tr("Add to Crate"));
    m_findMenu->setAccessibleName(tr("Show in Crate"));
    m_addMenu->setUpdater([this](KXMenu &menu) { fillAddMenu(menu); });
    m_findMenu->setUpdater([this](KXMenu &menu) { fillFindMenu(menu); });
    table->setDragsRows(true);
    table->setDelegate(this);
}

CrateTable::~CrateTable() { m_table->setDelegate(nullptr); }

QAction *CrateTable::add(const QString &title, const QKeySequence &keys, void (CrateTable::*perform)())
{
    auto *const action = new QAction(title, this);
    action->setShortcut(keys);
    action->setShortcutContext(Qt::WidgetShortcut); // the same keys mean other things elsewhere
    connect(action, &QAction::triggered, this, [this, action, perform] {
        updateActions();
        if (action->isEnabled())
            (this->*perform)();
        updateActions();
    });
    m_table->addAction(action);
    return action;
}

// Menus

QMenu *CrateTable::makeMenu(QWidget *parent)
{
    auto *const menu = new QMenu(tr("&Crate"), parent);
    menu->setAccessibleName(tr("Crate"));
    menu->addActions({ m_crates->newCrate, m_crates->newFolder, m_new });
    menu->addSeparator();
    menu->addMenu(m_addMenu);
    menu->addActions({ m_prepare, m_remove });
    menu->addSeparator();
    menu->addActions({ m_up, m_down, m_order });
    menu->addSeparator();
    menu->addMenu(m_findMenu);
    connect(menu, &QMenu::aboutToShow, this, &CrateTable::updateActions);
    // Closed, the keys work all the same.
    connect(menu, &QMenu::aboutToHide, this, [this] {
        for (QAction *action : { m_new, m_prepare, m_remove, m_up, m_down })
            action->setEnabled(true);
    });
    return menu;
}

void CrateTable::addTo(KXMenu &menu)
{
    updateActions();
    menu.addSeparator();
    menu.addMenu(m_addMenu);
    menu.addActions({ m_prepare, m_remove });
    menu.addMenu(m_findMenu);
}

void CrateTable::updateActions()
{
    const bool any = m_table->selectionModel()->hasSelection();
    const KXRef<Crate> crate = m_crates->ordered();
    const bool moves = any && crate && crate->isFilledByUser() && m_table->isInPlaceOrder();
    m_new->setEnabled(any);
    m_prepare->setEnabled(any);
    m_remove->setEnabled(any && crate);
    m_up->setEnabled(moves);
    m_down->setEnabled(moves);
    m_order->setEnabled(crate && !m_table->isInPlaceOrder());
    m_addMenu->setEnabled(any);
    m_findMenu->setEnabled(m_table->currentIndex().isValid());
}

void CrateTable::fillAddMenu(KXMenu &menu)
{
    menu.addItem(tr("New Crate"), this, [this] { makeWithSelected(); });
    menu.addSeparator();
    for (const KXRef<Crate> &crate : m_crates->filledByUser()) {
        QString title = CratesPane::path(*crate);
        menu.addItem(title.replace(u'&', u"&&"_s), this, [this, crate] { addSelectedTo(crate); });
    }
}

void CrateTable::fillFindMenu(KXMenu &menu)
{
    const KXRef<Track> track = m_model->track(m_table->currentIndex().row());
    const auto crates = track ? Crates::cratesOf(*track) : QList<KXRef<Crate>>();
    if (crates.isEmpty())
        menu.addAction(tr("It Is in No Crate"))->setEnabled(false);
    for (const KXRef<Crate> &crate : crates) {
        QString title = CratesPane::path(*crate);
        menu.addItem(title.replace(u'&', u"&&"_s), this,
            [this, crate, key = track->objectID().key()] { Q_EMIT crateRequested(crate, key); });
    }
}

// Commands

std::vector<qint64> CrateTable::selectedTracks() const
{
    std::vector<qint64> tracks;
    for (const int row : m_table->selectedRowNumbers())
        tracks.push_back(m_model->tracks().key(row));
    return tracks;
}

void CrateTable::select(const std::vector<qint64> &tracks)
{
    QItemSelection selection;
    int current = -1;
    for (const qsizetype row : m_model->tracks().indexesOf(tracks)) {
        if (row < 0)
            continue;
        const QModelIndex index = m_model->index(int(row), 0);
        selection.append(QItemSelectionRange(index, m_model->index(int(row), m_model->columnCount() - 1)));
        current = current < 0 ? int(row) : current;
    }
    if (current < 0)
        return;
    m_table->selectionModel()->setCurrentIndex(m_model->index(current, 0), QItemSelectionModel::NoUpdate);
    m_table->selectionModel()->select(selection, QItemSelectionModel::ClearAndSelect);
    m_table->scrollTo(m_model->index(current, 0));
}

void CrateTable::makeWithSelected()
{
    const std::vector<qint64> tracks = selectedTracks();
    const KXRef<Crate> crate = m_crates->editor().make(Crate::Kind::Plain, m_crates->selected().value(0), {}, tracks);
    if (!crate)
        return;
    m_crates->select(crate);
    m_crates->list()->selectForEditing(crate.get());
}

void CrateTable::addSelectedTo(const KXRef<Crate> &crate)
{
    const std::vector<qint64> tracks = selectedTracks();
    const qsizetype came = m_crates->editor().add(crate, tracks);
    const QLocale locale = KXClock::locale();
    const auto there = qsizetype(tracks.size()) - came;
    QString what = came == 1
        ? tr("1 track added to “%1”").arg(crate->title())
        : tr("%1 tracks added to “%2”", nullptr, int(came)).arg(locale.toString(came), crate->title());
    if (there > 0)
        what += tr(", %1 there already", nullptr, int(there)).arg(locale.toString(there));
    Q_EMIT said(what);
}

void CrateTable::removeSelected()
{
    const QList<int> rows = m_table->selectedRowNumbers();
    if (!m_crates->editor().remove(m_crates->ordered(), selectedTracks()))
        return;
    // What comes after them is at hand next.
    const QModelIndex next = m_model->index(std::min(rows.first(), m_model->rowCount() - 1), 0);
    if (next.isValid())
        m_table->selectionModel()->setCurrentIndex(
            next, QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
}

void CrateTable::prepareSelected() { m_crates->editor().togglePrepared(selectedTracks()); }

/// The selected rows as one block, in front of the row above the first of them or behind the one below the last.
void CrateTable::moveBy(int rows)
{
    const QList<int> selected = m_table->selectedRowNumbers();
    const int to = rows < 0 ? selected.first() - 1 : selected.last() + 2;
    if (to < 0 || to > m_model->rowCount())
        return;
    const std::vector<qint64> tracks = selectedTracks();
    const qint64 before = to < m_model->rowCount() ? m_model->tracks().key(to) : 0;
    const KXRef<Crate> crate = m_crates->ordered();
    if (m_crates->editor().move(crate, tracks, before, crate))
        select(tracks);
}

// Dragging

void CrateTable::willDragRows(KXTableView *, QMimeData &data)
{
    if (const KXRef<Crate> crate = m_crates->ordered())
        CrateDrag::setOrigin(data, *crate);
}

Qt::DropAction CrateTable::validateRowDrop(KXTableView *, const QMimeData &data, Qt::DropActions allowed, int)
{
    const KXRef<Crate> crate = m_crates->ordered();
    return m_table->isInPlaceOrder() && crate
        ? CrateDrag::actionFor(data, allowed, crate, *crate->managedObjectContext())
        : Qt::IgnoreAction;
}

bool CrateTable::acceptRowDrop(KXTableView *, const QMimeData &data, Qt::DropAction action, int row)
{
    const KXRef<Crate> crate = m_crates->ordered();
    KXManagedObjectContext *const context = crate ? crate->managedObjectContext() : nullptr;
    if (!context)
        return false;
    const std::vector<qint64> tracks = CrateDrag::tracks(data, *context);
    const qint64 before = row < m_model->rowCount() ? m_model->tracks().key(row) : 0;
    const KXRef<Crate> from = action == Qt::MoveAction ? CrateDrag::origin(data, *context) : KXRef<Crate>();
    if (!m_crates->editor().move(crate, tracks, before, from))
        return false;
    select(tracks);
    return true;
}
