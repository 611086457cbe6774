#include "places/PlaceNavigator.h"

#include <QApplication>
#include <QMenu>
#include <QMouseEvent>
#include <QScopedValueRollback>
#include <QVBoxLayout>

#include <kestrixkit/foundation/KXUserDefaults.h>
#include <kestrixkit/toolkit/KXMenu.h>

#include "filters/FilterStrip.h"
#include "places/PlaceSteps.h"
#include "places/PlaceTable.h"
#include "places/SourceColumn.h"
#include "table/TrackTableView.h"
#include "window/Settings.h"

using namespace Qt::StringLiterals;

PlaceNavigator::PlaceNavigator(KXManagedObjectContext::Ref context, SourceColumn *sources, FilterStrip *strip,
    TrackTableView *table, QWidget *tracks)
    : m_context(std::move(context))
    , m_sources(sources)
    , m_strip(strip)
    , m_table(table)
    , m_tracks(tracks)
    , m_holder(new QWidget)
    , m_bar(std::make_unique<KXNavigationController>())
    , m_layers(std::make_unique<KXLayeredNavigationController>())
    , m_root(std::make_unique<PlaceViewController>(std::nullopt, nullptr))
    , m_history(PlaceHistory::ofArchive(KXUserDefaults::standard().dataForKey(historyKey()).value_or(QByteArray())))
    , m_isLayered(Settings::layeredPlaces())
    , m_back(new QAction(tr("&Back"), this))
    , m_forward(new QAction(tr("&Forward"), this))
    , m_layeredAction(new QAction(tr("Places as La&yers"), this))
{
    m_root->setTitle(tr("Library"));
    stackController().appearIn(m_holder);
    stack().pushViewController(m_root.get(), false);
    seat();
    m_back->setShortcut(QKeySequence(Qt::ALT | Qt::Key_Left));
    m_forward->setShortcut(QKeySequence(Qt::ALT | Qt::Key_Right));
    m_layeredAction->setCheckable(true);
    m_layeredAction->setChecked(m_isLayered);
    connect(m_back, &QAction::triggered, this, &PlaceNavigator::goBack);
    connect(m_forward, &QAction::triggered, this, &PlaceNavigator::goForward);
    connect(m_layeredAction, &QAction::toggled, this, &PlaceNavigator::setLayered);
    connect(m_sources, &SourceColumn::orderWillBe, this,
        [this](const std::optional<KXSortDescriptor> &order) { m_source.order = order; });
    connect(m_sources, &SourceColumn::picked, this, &PlaceNavigator::sourceWasPicked);
    connect(m_sources, &SourceColumn::opened, this, &PlaceNavigator::visitRoot);
    for (KXNavigationStackController *each :
        std::initializer_list<KXNavigationStackController *> { m_bar.get(), m_layers.get() })
        connect(each, &KXNavigationStackController::viewControllersDidChange, this, &PlaceNavigator::stackDidChange);
    connect(m_table->selectionModel(), &QItemSelectionModel::currentRowChanged, this, &PlaceNavigator::updateActions);
    qApp->installEventFilter(this); // for the mouse's own buttons, wherever it is in the window
    updateActions();
}

PlaceNavigator::~PlaceNavigator()
{
    m_isShowing = true; // what ends now is no change of place
    if (m_tracks)
        m_tracks->setParent(m_holder); // it lies in a view that ends
    qDeleteAll(m_pushed);
}

KXNavigationStackController &PlaceNavigator::stackController() const
{
    return m_isLayered ? static_cast<KXNavigationStackController &>(*m_layers) : *m_bar;
}

KXNavigationStack &PlaceNavigator::stack() const { return stackController(); }

QString PlaceNavigator::historyKey() const { return u"browser.history."_s + m_sources->autosaveSuffix(); }

Place PlaceNavigator::place() const { return m_history.current() ? m_history.current()->place : Place(); }

// Going somewhere

/// The first one after the start finds the place where the last session ended.
void PlaceNavigator::sourceWasPicked(const KXPredicate &predicate, const QString &title, const QString &emptyText)
{
    m_source.predicate = predicate;
    m_source.title = title;
    m_source.emptyText = emptyText;
    m_root->setTitle(title.isEmpty() ? tr("Library") : title);
    if (m_isShowing)
        return;
    const QList<QUrl> source = m_sources->selectedPlaces();
    const bool isSame = m_history.current() && place().source == source;
    if (isSame && m_hasShown) { // its rows may be others
        if (place().trail.isEmpty())
            announce();
        return;
    }
    if (!isSame || !isThere(place()))
        visit({ source, {} });
    else
        show(false);
}

void PlaceNavigator::visit(const Place &place)
{
    if (m_hasShown && m_history.current() && m_history.current()->place == place)
        return;
    commit();
    std::optional<PlaceView> left = m_history.viewOf(place);
    m_history.visit(place);
    if (left) { // it is looked at where it was left, in its own order or the table's, and whole
        left->order.clear();
        left->words.clear();
        left->open.reset();
        m_history.leave(*left);
    }
    show(true);
}

void PlaceNavigator::visitAllTracks() { visit({ { m_sources->allTracksURL() }, {} }); }

void PlaceNavigator::visitRoot() { visit({ place().source, {} }); }

void PlaceNavigator::push(const PlaceStep &step)
{
    Place next = place();
    if (!next.trail.isEmpty() && next.trail.constLast() == step)
        return;
    next.trail.append(step);
    visit(next);
    m_table->setFocus();
}

bool PlaceNavigator::isThere(const Place &place) const
{
    if (!place.source.isEmpty() && !m_sources->hasPlaces(place.source))
        return false;
    return std::none_of(place.trail.begin(), place.trail.end(),
        [this](const PlaceStep &step) { return PlaceSteps::title(step, *m_context).isEmpty(); });
}

void PlaceNavigator::go(qsizetype steps)
{
    while (m_history.peek(steps) && !isThere(m_history.peek(steps)->place))
        m_history.forget(steps);
    if (!m_history.peek(steps)) {
        updateActions();
        return;
    }
    commit();
    m_history.go(steps);
    show(false);
}

/// The user went back by a breadcrumb, or closed a layer.
void PlaceNavigator::stackDidChange()
{
    if (m_isShowing || !m_history.current())
        return;
    const QList<PlaceStep> trail = trailOfStack();
    if (trail != place().trail) {
        visit({ place().source, trail });
    } else if (stack().viewControllers().value(0) != m_root.get()) { // which was closed: it comes back
        commit();
        show(false);
    }
    m_table->setFocus();
}

// Showing

/// Brings everything into line with the current entry of the history.
void PlaceNavigator::show(bool animated)
{
    const PlaceHistory::Entry entry = *m_history.current();
    const QPointer<QWidget> focus = QApplication::focusWidget();
    const bool hadFocus = focus && m_tracks && m_tracks->isAncestorOf(focus);
    if (m_isLayered && m_seat && m_tracks->isVisible())
        m_seat->setPicture(m_tracks->grab());
    {
        const QScopedValueRollback guard(m_isShowing, true);
        if (m_sources->selectedPlaces() != entry.place.source)
            m_sources->selectPlaces(entry.place.source);
        if (entry.view && entry.view->open)
            m_sources->setOpenRows(*entry.view->open); // after what selecting has opened
        arrange(entry.place.trail, animated && m_hasShown);
        seat();
    }
    const bool isFirst = !std::exchange(m_hasShown, true);
    announce();
    if (entry.view)
        PlaceTable::show(*entry.view, *m_table, *m_strip);
    else if (!isFirst) // until then all tracks were shown, and perhaps looked at
        PlaceTable::showTop(*m_table);
    if (hadFocus && focus && m_tracks->isAncestorOf(focus))
        focus->setFocus();
    updateActions();
    keep();
}

QList<PlaceStep> PlaceNavigator::trailOfStack() const
{
    QList<PlaceStep> trail;
    for (const KXViewController *controller : stack().viewControllers()) {
        if (const auto *const place = qobject_cast<const PlaceViewController *>(controller); place && place->step())
            trail.append(*place->step());
    }
    return trail;
}

void PlaceNavigator::arrange(const QList<PlaceStep> &trail, bool animated)
{
    for (const QPointer<PlaceViewController> &old : std::as_const(m_pushed)) {
        if (old && !old->navigationStack() && old != m_seat)
            delete old;
    }
    m_pushed.removeAll(nullptr);
    const QList<PlaceStep> before = trailOfStack();
    if (stack().viewControllers().value(0) != m_root.get()) { // its layer was closed
        stack().removeAllViewControllers();
        stack().pushViewController(m_root.get(), false);
        return arrange(trail, false);
    }
    const auto parted = std::mismatch(before.begin(), before.end(), trail.begin(), trail.end());
    const qsizetype common = parted.first - before.begin();
    if (common < before.size())
        stack().popToViewController(stack().viewControllers().at(common), animated && common == trail.size());
    for (qsizetype i = common; i < trail.size(); ++i) {
        auto *const place = new PlaceViewController(trail.at(i), nullptr);
        m_pushed.append(place);
        place->setTitle(PlaceSteps::title(trail.at(i), *m_context));
        stack().pushViewController(place, animated && i + 1 == trail.size());
    }
}

void PlaceNavigator::seat()
{
    auto *const visible = qobject_cast<PlaceViewController *>(stack().visibleViewController());
    if (!visible || visible == m_seat || !m_tracks)
        return;
    m_seat = visible;
    visible->setTracks(m_tracks);
}

void PlaceNavigator::announce()
{
    const Place shown = place();
    m_table->setPlaceOrder(shown.trail.isEmpty() ? m_source.order : std::nullopt);
    if (shown.trail.isEmpty()) {
        Q_EMIT placeDidChange(m_source.predicate, m_source.title, m_source.emptyText, m_sources->placeURL());
        return;
    }
    const PlaceStep step = shown.trail.constLast();
    Q_EMIT placeDidChange(PlaceSteps::predicate(step, *m_context), PlaceSteps::title(step, *m_context),
        tr("No music here"), PlaceSteps::filtersURL(step));
}

void PlaceNavigator::setLayered(bool layered)
{
    if (layered == m_isLayered)
        return;
    commit();
    m_layeredAction->setChecked(layered);
    Settings::setLayeredPlaces(layered);
    {
        const QScopedValueRollback guard(m_isShowing, true);
        m_tracks->setParent(m_holder);
        m_seat = nullptr;
        stack().removeAllViewControllers();
        stackController().disappear();
        m_isLayered = layered;
        stackController().appearIn(m_holder);
        stack().pushViewController(m_root.get(), false);
    }
    if (m_history.current())
        show(false);
    else
        seat();
    m_table->setFocus();
}

// What is remembered

void PlaceNavigator::commit()
{
    if (!m_hasShown)
        return;
    PlaceView view = PlaceTable::viewOf(*m_table, *m_strip);
    view.open = m_sources->openRows();
    m_history.leave(view);
    keep();
}

/// A start that ends where the last one did writes nothing.
void PlaceNavigator::keep()
{
    KXUserDefaults &defaults = KXUserDefaults::standard();
    if (const QVariant now = m_history.archived(); defaults.valueForKey(historyKey()) != now)
        defaults.setValue(historyKey(), now);
}

// Commands

KXRef<Track> PlaceNavigator::trackAtHand() const
{
    return static_cast<TrackTableModel *>(m_table->model())->track(m_table->currentIndex().row());
}

void PlaceNavigator::updateActions()
{
    m_back->setEnabled(m_history.peek(-1));
    m_forward->setEnabled(m_history.peek(1));
    const KXRef<Track> track = m_stepActions.isEmpty() ? KXRef<Track>() : trackAtHand();
    const QList<PlaceStep> steps = track ? PlaceSteps::of(*track) : QList<PlaceStep>();
    for (const auto &[kind, action] : std::as_const(m_stepActions)) {
        action->setEnabled(std::any_of(
            steps.begin(), steps.end(), [kind = kind](const PlaceStep &step) { return step.kind == kind; }));
    }
}

void PlaceNavigator::pushFirst(PlaceStep::Kind kind)
{
    const KXRef<Track> track = trackAtHand();
    for (const PlaceStep &step : track ? PlaceSteps::of(*track) : QList<PlaceStep>()) {
        if (step.kind == kind) {
            push(step);
            return;
        }
    }
}

QMenu *PlaceNavigator::makeMenu(QWidget *parent)
{
    auto *const menu = new QMenu(tr("&Go"), parent);
    menu->setAccessibleName(tr("Go"));
    menu->addActions({ m_back, m_forward });
    menu->addSeparator();
    const std::tuple<PlaceStep::Kind, QString, Qt::Key> steps[] { { PlaceStep::ToArtist, tr("&Artist"), Qt::Key_1 },
        { PlaceStep::ToAlbum, tr("A&lbum"), Qt::Key_2 }, { PlaceStep::ToLabel, tr("Lab&el"), Qt::Key_3 },
        { PlaceStep::ToAlike, tr("What &Sounds Like This"), Qt::Key_4 } };
    for (const auto &[kind, title, key] : steps) {
        QAction *const action = menu->addAction(title, this, [this, kind = kind] { pushFirst(kind); });
        action->setShortcut(QKeySequence(Qt::CTRL | key));
        m_stepActions.append({ kind, action });
    }
    updateActions();
    return menu;
}

void PlaceNavigator::addSteps(KXMenu &menu)
{
    const KXRef<Track> track = trackAtHand();
    if (!track)
        return;
    menu.addSeparator();
    for (const PlaceStep &step : PlaceSteps::of(*track)) {
        QString title = PlaceSteps::commandTitle(step, *m_context);
        menu.addItem(title.replace(u'&', u"&&"_s), this, [this, step] { push(step); });
    }
}

bool PlaceNavigator::eventFilter(QObject *object, QEvent *event)
{
    if (event->type() != QEvent::MouseButtonPress && event->type() != QEvent::MouseButtonDblClick)
        return QObject::eventFilter(object, event);
    const Qt::MouseButton button = static_cast<QMouseEvent *>(event)->button();
    const auto *const widget = qobject_cast<const QWidget *>(object);
    if ((button != Qt::BackButton && button != Qt::ForwardButton) || !widget || widget->window() != m_holder->window())
        return QObject::eventFilter(object, event);
    button == Qt::BackButton ? goBack() : goForward();
    return true;
}
