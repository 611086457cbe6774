#include "inspector/TrackInspector.h"

#include <QAction>
#include <QItemSelectionModel>

#include <kestrixkit/filters/KXFilterSet.h>
#include <kestrixkit/filters/KXFilterSetPreset.h>
#include <kestrixkit/foundation/KXUserDefaults.h>
#include <kestrixkit/navigation/KXDetailsManager.h>

#include "crates/Crate.h"
#include "inspector/TrackFactsSection.h"
#include "inspector/TrackFileSection.h"
#include "inspector/TrackTagsSection.h"
#include "inspector/TrackUsesSection.h"
#include "table/TrackTableView.h"
#include "window/Settings.h"

using namespace Qt::StringLiterals;

namespace {

const QString trackDetails = u"track"_s;
const QString inspectorName = u"browser.inspector"_s;
constexpr double inspectorDelay = 0.05; // seconds: a row that is passed with the arrow key held down is not looked at
constexpr qsizetype mostInspected = 1000; // tracks that are added up

} // namespace

TrackInspector::TrackInspector(KXManagedObjectContext::Ref context, TrackTableView *table, LibraryEditor *editor)
    : m_context(std::move(context))
    , m_table(table)
    , m_container(new QWidget)
    , m_action(new QAction(tr("&Inspector"), this))
    , m_inspector(std::make_unique<KXInspectorViewController>())
    , m_uses(new TrackUsesSection(m_inspector.get()))
{
    const auto editAll = [table](int column, const QVariant &value, int role) {
        const QList<int> rows = table->selectedRowNumbers();
        return !rows.isEmpty() && table->model()->setData(table->model()->index(rows.first(), column), value, role);
    };
    m_sections = { new TrackFactsSection(m_inspector.get()),
        new TrackTagsSection(editor, mostInspected, editAll, m_inspector.get()), m_uses,
        new TrackFileSection(m_inspector.get()) };
    connect(m_uses, &TrackUsesSection::picked, this, &TrackInspector::picked);
    for (TrackSection *section : m_sections.sliced(1))
        KXInspectorViewItem::inspectorViewItem(section)->setShowHeader(true);
    const bool isRemembered
        = KXUserDefaults::standard().valueForKey(KXStringWithFormat("%@ Expanded Items", inspectorName)).isValid();
    m_inspector->setViewControllers({ m_sections.cbegin(), m_sections.cend() });
    m_inspector->setAutosaveName(inspectorName);
    if (!isRemembered) {
        for (const TrackSection *section : std::as_const(m_sections))
            m_inspector->setExpanded(section, true);
    }
    m_container->setMinimumWidth(KXDetailsManager::MinimumWidth);
    m_container->hide();
    KXDetailsManager &details = KXDetailsManager::sharedManager();
    details.setContentContainerView(m_container);
    details.addDetailsViewController(m_inspector.get(), trackDetails);
    m_action->setCheckable(true);
    m_action->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_I));
    connect(m_action, &QAction::toggled, this, &TrackInspector::setShown);
    const auto soon = [this] { m_showSoon.start(inspectorDelay, [this] { showSelection(); }); };
    connect(m_table->selectionModel(), &QItemSelectionModel::selectionChanged, this, soon);
    m_changes
        = KXManagedObjectContext::onChange(m_context.get(), [this](const KXObjectsDidChange &did) { follow(did); });
    setShown(Settings::showsInspector());
}

TrackInspector::~TrackInspector()
{
    m_changes = {};
    KXDetailsManager::sharedManager().removeDetailsViewControllerWithIdentifier(trackDetails);
    if (KXDetailsManager::sharedManager().contentContainerView() == m_container)
        KXDetailsManager::sharedManager().setContentContainerView(nullptr);
}

void TrackInspector::setShown(bool shown)
{
    if (shown == m_isShown)
        return;
    m_isShown = shown;
    m_action->setChecked(shown);
    Settings::setShowsInspector(shown);
    if (shown)
        showSelection();
    m_container->setVisible(shown);
    KXDetailsManager::sharedManager().showDetailsViewController(shown ? m_inspector.get() : nullptr);
}

void TrackInspector::showSelection()
{
    m_showSoon.cancel();
    if (!m_isShown)
        return;
    const auto &model = *static_cast<TrackTableModel *>(m_table->model());
    QList<KXRef<Track>> tracks;
    for (const QItemSelectionRange &range : m_table->selectionModel()->selection()) {
        for (int row = range.top(); row <= range.bottom() && tracks.size() < mostInspected; ++row) {
            if (const KXRef<Track> track = model.track(row); track && !tracks.contains(track))
                tracks.append(track);
        }
    }
    for (TrackSection *section : std::as_const(m_sections))
        section->setTracks(tracks);
}

/// A preset or a crate that changes may hold the track from then on.
void TrackInspector::follow(const KXObjectsDidChange &did)
{
    bool concerns = false;
    for (const auto *list : { &did.inserted, &did.updated, &did.deleted, &did.refreshed }) {
        for (const KXRef<KXManagedObject> &object : *list) {
            if (const auto track = Track::cast(object)) {
                concerns = concerns || (m_isShown && m_sections.constFirst()->tracks().contains(track));
            } else if (KXFilterSetPreset::cast(object) || KXFilterSet::filterSetOfObject(object)) {
                m_uses->forgetPresets();
                concerns = true;
            } else if (CrateEntry::cast(object) || Crate::cast(object)) {
                concerns = true;
            }
        }
    }
    if (concerns && m_isShown)
        m_showSoon.start(0, [this] { showSelection(); });
}
