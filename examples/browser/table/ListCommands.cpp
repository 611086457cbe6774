#include "table/ListCommands.h"

#include <algorithm>

#include <QMenu>

#include <kestrixkit/toolkit/KXAlert.h>

#include "filters/FilterStrip.h"
#include "filters/GenreDialog.h"
#include "filters/TrackReasons.h"
#include "table/TrackTableView.h"

ListCommands::ListCommands(
    TrackTableView *table, TrackTableModel *model, LibraryEditor *editor, const FilterStrip *strip, QWidget *window)
    : QObject(window)
    , m_table(table)
    , m_model(model)
    , m_editor(editor)
    , m_strip(strip)
    , m_window(window)
    , m_renameGenre(new QAction(tr("Rename &Genre…"), this))
    , m_explain(new QAction(tr("&Why Is This Track in the List?"), this))
{
    for (int stars = 0; stars <= 5; ++stars) {
        auto *const action = new QAction(stars == 0 ? tr("No Stars")
                : stars == 1                        ? tr("1 Star")
                                                    : tr("%1 Stars", nullptr, stars).arg(stars),
            this);
        action->setShortcut(QKeySequence(Qt::Key(Qt::Key_0 + stars)));
        connect(action, &QAction::triggered, this, [this, stars] { rateSelected(stars); });
        m_rate.append(action);
    }
    connect(m_renameGenre, &QAction::triggered, this, &ListCommands::renameGenre);
    connect(m_explain, &QAction::triggered, this, &ListCommands::explainTrack);
}

void ListCommands::addTo(QMenu &menu)
{
    QMenu *const rating = menu.addMenu(tr("&Rating"));
    rating->setAccessibleName(tr("Rating"));
    rating->addActions(m_rate);
    menu.addActions({ m_renameGenre, m_explain });
}

void ListCommands::updateActions()
{
    const bool selected = m_table->selectionModel()->hasSelection();
    for (QAction *action : std::as_const(m_rate))
        action->setEnabled(selected);
    m_explain->setEnabled(m_table->currentIndex().isValid());
    m_renameGenre->setEnabled(!currentGenres().isEmpty());
}

KXRef<Track> ListCommands::currentTrack() const { return m_model->track(m_table->currentIndex().row()); }

QList<KXRef<Genre>> ListCommands::currentGenres() const
{
    const KXRef<Track> track = currentTrack();
    QList<KXRef<Genre>> genres = track ? track->genres() : QList<KXRef<Genre>>();
    std::sort(genres.begin(), genres.end(), [](const auto &a, const auto &b) { return a->name() < b->name(); });
    return genres;
}

void ListCommands::rateSelected(int stars)
{
    if (const QList<int> rows = m_table->selectedRowNumbers(); !rows.isEmpty()) // all of them are set together
        m_model->setData(m_model->index(rows.constFirst(), TrackTableModel::Rating), stars, TrackTableModel::StarsRole);
}

void ListCommands::renameGenre()
{
    if (const QList<KXRef<Genre>> genres = currentGenres(); !genres.isEmpty())
        (new GenreDialog(m_editor, genres, m_window))->open();
}

void ListCommands::explainTrack()
{
    const KXRef<Track> track = currentTrack();
    if (!track)
        return;
    KXAlert alert(tr("Why “%1” is in the list").arg(track->title()));
    alert.setInformativeText(TrackReasons::text(m_strip->filters()->filterSet(), *track));
    (void)alert.run(m_window);
}
