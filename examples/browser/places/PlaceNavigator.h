#pragma once

#include <memory>

#include <QPointer>

#include <kestrixkit/navigation/KXLayeredNavigationController.h>
#include <kestrixkit/navigation/KXNavigationController.h>

#include "library/Library.h"
#include "places/PlaceHistory.h"
#include "places/PlaceViewController.h"

class FilterStrip;
class KXMenu;
class QAction;
class SourceColumn;
class TrackTableModel;
class TrackTableView;

/// Leads the table from place to place: by what is selected to the left, by steps from a track, and back and forward
/// among what was visited. The steps are pushed onto a bar of breadcrumbs or, if the user wants that, lie on each other
/// as layers; the tracks themselves are one view, which is in the topmost.
///
/// By back and forward a place comes back as it was left: scrolled, selected, sorted and narrowed as it was; its
/// filters are the place's own. One that is opened anew is scrolled and selected as it was left last. What was visited
/// is remembered for each library.
class PlaceNavigator : public QObject
{
    Q_OBJECT
public:
    /// The tracks are the view of strip and table. All of these are borrowed.
    PlaceNavigator(KXManagedObjectContext::Ref context, SourceColumn *sources, FilterStrip *strip,
        TrackTableView *table, QWidget *tracks);
    ~PlaceNavigator() override;

    [[nodiscard]] QWidget *view() const { return m_holder; }
    [[nodiscard]] Place place() const;
    [[nodiscard]] const PlaceHistory &history() const { return m_history; }
    [[nodiscard]] KXNavigationController *bar() const { return m_bar.get(); }
    [[nodiscard]] KXLayeredNavigationController *layers() const { return m_layers.get(); }

    void visit(const Place &place);
    void visitAllTracks();
    /// From where one is.
    void push(const PlaceStep &step);
    /// To what is selected to the left, without steps.
    void visitRoot();
    void goBack() { go(-1); }
    void goForward() { go(1); }

    [[nodiscard]] bool isLayered() const { return m_isLayered; }
    void setLayered(bool layered);

    [[nodiscard]] QAction *backAction() const { return m_back; }
    [[nodiscard]] QAction *forwardAction() const { return m_forward; }
    [[nodiscard]] QAction *layeredAction() const { return m_layeredAction; }
    /// For the menu bar: back and forward, and steps from the current track.
    [[nodiscard]] QMenu *makeMenu(QWidget *parent);
    /// Entries for the steps that lead on from the current track.
    void addSteps(KXMenu &menu);
    /// Remembers how the current place is left.
    void commit();

Q_SIGNALS:
    /// The tracks of the place (all where the predicate is absent), its title, what to say where there are none, and
    /// whose filters are its own.
    void placeDidChange(
        const KXPredicate &predicate, const QString &title, const QString &emptyText, const QUrl &filters);

protected:
    bool eventFilter(QObject *object, QEvent *event) override;

private:
    struct Source
    {
        KXPredicate predicate;
        QString title;
        QString emptyText;
        std::optional<KXSortDescriptor> order; // its own, where it has one
    };

    void sourceWasPicked(const KXPredicate &predicate, const QString &title, const QString &emptyText);
    void stackDidChange();
    void go(qsizetype steps);
    [[nodiscard]] bool isThere(const Place &place) const;
    void show(bool animated);
    void arrange(const QList<PlaceStep> &trail, bool animated);
    void seat();
    void announce();
    void keep();
    void updateActions();
    [[nodiscard]] KXRef<Track> trackAtHand() const;
    void pushFirst(PlaceStep::Kind kind);
    [[nodiscard]] QList<PlaceStep> trailOfStack() const;
    [[nodiscard]] KXNavigationStack &stack() const;
    [[nodiscard]] KXNavigationStackController &stackController() const;
    [[nodiscard]] QString historyKey() const;

    const KXManagedObjectContext::Ref m_context;
    SourceColumn *const m_sources;
    FilterStrip *const m_strip;
    TrackTableView *const m_table;
    const QPointer<QWidget> m_tracks;
    QWidget *const m_holder; // of bar or layers
    std::unique_ptr<KXNavigationController> m_bar;
    std::unique_ptr<KXLayeredNavigationController> m_layers;
    std::unique_ptr<PlaceViewController> m_root;
    QList<QPointer<PlaceViewController>> m_pushed; // ended with the next change once they are off the stack
    QPointer<PlaceViewController> m_seat; // where the tracks are
    PlaceHistory m_history;
    Source m_source;
    bool m_isLayered = false;
    bool m_isShowing = false;
    bool m_hasShown = false; // something since the start
    QAction *m_back, *m_forward, *m_layeredAction;
    QList<std::pair<PlaceStep::Kind, QAction *>> m_stepActions;
};
