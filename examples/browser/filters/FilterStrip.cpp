#include "filters/FilterStrip.h"

#include <QAction>
#include <QBoxLayout>
#include <QLabel>

#include <kestrixkit/filter_ui/KXFilterSetPresetSaveViewController.h>
#include <kestrixkit/filter_ui/editors/KXDateFilterViewController.h>
#include <kestrixkit/filters/KXFacetFilter.h>
#include <kestrixkit/foundation/KXUndoManager.h>
#include <kestrixkit/theme/KXThemeStyleNames.h>
#include <kestrixkit/theme/controls/KXThemeableButton.h>
#include <kestrixkit/toolkit/KXPopoverController.h>

#include "filters/FilterEditors.h"
#include "filters/FilterTypes.h"
#include "filters/Presets.h"
#include "search/LibrarySearch.h"

using namespace Qt::StringLiterals;

namespace {

KXPredicate both(const KXPredicate &a, const KXPredicate &b)
{
    return !a ? b : !b ? a : KXPredicate::andPredicate({ a, b });
}

} // namespace

TrackFilters::TrackFilters(KXManagedObjectContext::Ref context, QObject *parent)
    : KXFilterSetViewController(std::move(context), parent)
{
    setAutosaveName(u"browser.save"_s);
    filterSetManagerViewController()->setAllowedFilterTypeItems(FilterTypes::items());
    setFilteredEntity(filteredEntity());
}

void TrackFilters::addFilterOfType(const KXFilterTypeItem &type)
{
    KXRef<KXFilter> filter;
    {
        const KXUndoGroup group(context()->undoManager(), tr("Add Filter"));
        filter = FilterTypes::make(*context(), type.tag, m_trackAtHand ? m_trackAtHand() : KXRef<Track>());
        insertFilter(filter);
    }
    context()->save();
    showFilter(filter);
}

std::unique_ptr<KXViewController> TrackFilters::filterViewControllerForFilter(const KXRef<KXFilter> &filter)
{
    const KXRef<KXManagedObject> object(filter);
    const KXRef<Track> track = m_trackAtHand ? m_trackAtHand() : KXRef<Track>();
    const auto counts = [this] { return m_whatIfCounts ? m_whatIfCounts() : nullptr; };
    switch (FilterTypes::editorOf(*filter)) {
    case FilterTypes::Editor::Range:
        if (const auto range = KXRangeFilter::cast(object))
            return std::make_unique<TrackRangeEditor>(range, track, counts());
        break;
    case FilterTypes::Editor::Date:
        if (const auto date = KXDateFilter::cast(object))
            return std::make_unique<KXDateFilterViewController>(date);
        break;
    case FilterTypes::Editor::Choice:
        if (const auto facet = KXFacetFilter::cast(object)) {
            auto editor = std::make_unique<TrackFacetEditor>(facet, track, counts());
            editor->setFilteredEntity(filteredEntity());
            return editor;
        }
        break;
    case FilterTypes::Editor::Text:
        if (const auto facet = KXFacetFilter::cast(object))
            return std::make_unique<TextEditor>(facet);
        break;
    }
    return nullptr;
}

void TrackFilters::whatIfCountsDidChange()
{
    KXViewController *const editor = filterPopover() ? filterPopover()->contentViewController() : nullptr;
    if (auto *const facet = qobject_cast<TrackFacetEditor *>(editor))
        facet->setWhatIfCounts(m_whatIfCounts());
    else if (auto *const range = qobject_cast<TrackRangeEditor *>(editor))
        range->setWhatIfCounts(m_whatIfCounts());
}

const KXEntityDescription *TrackFilters::filteredEntity() const
{
    return context()->persistentStoreCoordinator()->model()->entity(Track::entityName);
}

FilterStrip::FilterStrip(KXManagedObjectContext::Ref context, QWidget *parent)
    : QWidget(parent)
    , m_context(std::move(context))
    , m_places(m_context)
    , m_filters(std::make_unique<TrackFilters>(m_context, nullptr))
    , m_presets(std::make_unique<PresetLibrary>(m_context))
    , m_state(new QLabel)
    , m_revert(new KXThemeableButton(tr("Revert")))
{
    m_presets->setDelegate(this);
    m_presets->setFilterSetViewController(m_filters.get());
    m_presets->setCountsContextIdentifier(QString(Presets::contextIdentifier));
    m_bars = new FilterBars(
        m_presets.get(), m_filters.get(), { tr("&Narrow the List"), tr("Narrow  (/)"), tr("Narrow the list") });
    m_revertAction = m_bars->addCommand(tr("&Revert to Preset"), {}, [this] { revert(); });
    auto *const rows = new QVBoxLayout(this);
    rows->setContentsMargins(0, 0, 0, 0);
    rows->addWidget(m_bars);
    m_state->setTextFormat(Qt::PlainText);
    m_state->setForegroundRole(QPalette::PlaceholderText);
    m_bars->addState(m_state);
    m_revert->setThemeStyleName(KXButtonStyles);
    m_revert->setToolTip(tr("Take the filters of the preset again"));
    m_revert->hide();
    connect(m_revert, &QPushButton::clicked, this, &FilterStrip::revert);
    m_bars->addState(m_revert);
    setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Fixed);
    connect(m_bars, &FilterBars::wordsDidChange, this, &FilterStrip::narrow);
    connect(m_bars, &FilterBars::wordsDidEnd, this, &FilterStrip::narrowingDidEnd);

    m_filters->setWhatIfCounts([this] { return whatIfCounts(); });
    connect(m_filters.get(), &KXFilterSetViewController::filterSetDidChange, this, [this] {
        showState();
        Q_EMIT predicateDidChange();
    });
    connect(m_filters.get(), &KXFilterSetViewController::didSavePreset, this,
        [this](const KXRef<KXFilterSetPreset> &preset) {
            m_places.setPresetOfSet(m_filters->filterSet(), preset);
            showState();
        });
    // The preset may be renamed, changed and deleted.
    m_changes = KXManagedObjectContext::onChange(m_context.get(), [this](const KXObjectsDidChange &did) {
        for (const auto *list : { &did.inserted, &did.updated, &did.deleted, &did.refreshed }) {
            for (const KXRef<KXManagedObject> &object : *list) {
                if (KXFilterSetPreset::cast(object) || KXFilterSet::filterSetOfObject(object)) {
                    showState();
                    return;
                }
            }
        }
    });
}

FilterStrip::~FilterStrip()
{
    m_changes = {};
    m_filters->disconnect(this);
    m_presets.reset();
    m_filters.reset();
    m_whatIfCounts.reset(); // before the counts that it uses
}

void FilterStrip::setPlace(const QUrl &place, const KXPredicate &predicate)
{
    const bool isSameSet = place == m_place && m_filters->filterSet();
    const bool isSame = isSameSet && predicate == m_placePredicate;
    const bool hadCounts = bool(m_whatIfCounts);
    if (!isSame) {
        m_placePredicate = predicate;
        m_narrowingText.clear();
        m_bars->setWords({});
        forgetCounts();
    }
    if (isSameSet) {
        if (hadCounts && !m_whatIfCounts)
            m_filters->whatIfCountsDidChange();
        return;
    }
    m_place = place;
    m_filters->setFilterSet(m_places.setOfPlace(place));
}

// Narrowing

QString FilterStrip::narrowingText() const { return m_bars->words(); }

void FilterStrip::setNarrowingText(const QString &text)
{
    m_bars->setWords(text);
    narrow();
}

/// The list fits what is typed.
void FilterStrip::narrow()
{
    const KXPredicate before = narrowingPredicate();
    m_narrowingText = m_bars->words();
    if (narrowingPredicate() == before)
        return;
    const bool hadCounts = bool(m_whatIfCounts);
    forgetCounts();
    if (hadCounts)
        m_filters->whatIfCountsDidChange();
    Q_EMIT predicateDidChange();
}

KXPredicate FilterStrip::narrowingPredicate() const
{
    return LibrarySearch::groups()[LibrarySearch::Tracks].predicate(m_narrowingText);
}

// Counts

/// They are of another list.
void FilterStrip::forgetCounts()
{
    m_whatIfCounts.reset();
    m_liveCounts.reset();
}

KXFilterSetWhatIfCounts *FilterStrip::whatIfCounts()
{
    if (!m_whatIfCounts) {
        const KXPredicate list = both(m_placePredicate, narrowingPredicate());
        const auto base = list ? QList<KXPredicate> { list } : QList<KXPredicate>();
        m_liveCounts = std::make_unique<KXLiveCounts>(m_context, QString(Track::entityName), base);
        m_whatIfCounts = std::make_unique<KXFilterSetWhatIfCounts>(*m_liveCounts);
    }
    if (m_whatIfCounts->filterSet() != m_filters->filterSet())
        m_whatIfCounts->setFilterSet(m_filters->filterSet());
    return m_whatIfCounts.get();
}

KXPredicate FilterStrip::predicate() const
{
    const KXRef<KXFilterSet> set = m_filters->filterSet();
    for (const KXRef<KXFilter> &filter : set ? set->filters() : QList<KXRef<KXFilter>>()) {
        if (filter->enabled() && filter->representedLocalPredicateWithKeyPath())
            return both(set->representedLocalPredicateWithKeyPath(), narrowingPredicate());
    }
    return narrowingPredicate();
}

KXRef<KXFilterSetPreset> FilterStrip::loadedPreset() const
{
    return m_filters->filterSet() ? m_places.presetOfSet(*m_filters->filterSet()) : KXRef<KXFilterSetPreset>();
}

void FilterStrip::showState()
{
    const KXRef<KXFilterSetPreset> preset = loadedPreset();
    m_isChanged = preset && m_places.isChangedSince(*m_filters->filterSet(), *preset);
    const QString title = preset ? Presets::path(*preset) : QString();
    m_state->setText(m_isChanged ? tr("%1, changed").arg(title) : title);
    m_revert->setVisible(m_isChanged);
    m_revertAction->setEnabled(m_isChanged);
}

void FilterStrip::revert()
{
    if (const KXRef<KXFilterSetPreset> preset = loadedPreset())
        m_presets->loadPreset(preset);
}

void FilterStrip::didLoadFilterSet(KXFilterSetPresetsBarViewController &, const KXRef<KXFilterSetPreset> &preset)
{
    m_places.adopt(m_place, m_filters->filterSet(), preset);
    showState();
}
