#include "FilterStrip.h"

#include <QAction>
#include <QBoxLayout>
#include <QKeyEvent>
#include <QLabel>

#include <kestrixkit/filter_ui/KXFilterSetPresetSaveViewController.h>
#include <kestrixkit/filter_ui/editors/KXDateFilterViewController.h>
#include <kestrixkit/filter_ui/editors/KXFilterBarFilterView.h>
#include <kestrixkit/filter_ui/editors/KXFilterButton.h>
#include <kestrixkit/filters/KXFacetFilter.h>
#include <kestrixkit/foundation/KXUndoManager.h>
#include <kestrixkit/theme/KXThemeStyleNames.h>
#include <kestrixkit/theme/controls/KXThemeableButton.h>
#include <kestrixkit/theme/controls/KXThemeableTextField.h>
#include <kestrixkit/theme/controls/KXThemeableView.h>
#include <kestrixkit/toolkit/KXPopoverController.h>

#include "FilterEditors.h"
#include "FilterTypes.h"
#include "LibrarySearch.h"
#include "Presets.h"

using namespace Qt::StringLiterals;

namespace {

constexpr int narrowingWidth = 180;
// A quick typist's next key comes within that; every list that nobody sees would delay the one that counts.
constexpr double narrowingPause = 0.12;

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
    , m_narrowing(new KXThemeableTextField)
    , m_narrowingCall(this)
    , m_state(new QLabel)
    , m_revert(new KXThemeableButton(tr("Revert")))
{
    auto *const rows = new QVBoxLayout(this);
    rows->setContentsMargins(0, 0, 0, 0);
    rows->setSpacing(0);
    auto *const top = new KXThemeableView;
    top->setThemeStyleName(KXToolbarStyles);
    auto *const line = new QHBoxLayout(top);
    line->setContentsMargins(0, 0, 6, 0);
    m_presets->setDelegate(this);
    m_presets->setFilterSetViewController(m_filters.get());
    m_presets->setCountsContextIdentifier(QString(Presets::contextIdentifier));
    line->addWidget(m_presets->view(), 1);
    m_state->setTextFormat(Qt::PlainText);
    m_state->setForegroundRole(QPalette::PlaceholderText);
    line->addWidget(m_state);
    m_revert->setThemeStyleName(KXButtonStyles);
    m_revert->setToolTip(tr("Take the filters of the preset again"));
    m_revert->hide();
    connect(m_revert, &QPushButton::clicked, this, &FilterStrip::revert);
    line->addWidget(m_revert);
    m_narrowing->setThemeStyleName(KXTextFieldStyles);
    m_narrowing->setPlaceholderText(tr("Narrow  (/)"));
    m_narrowing->setAccessibleName(tr("Narrow the list"));
    m_narrowing->setClearButtonEnabled(true);
    m_narrowing->setFixedWidth(narrowingWidth);
    m_narrowing->installEventFilter(this);
    connect(m_narrowing, &QLineEdit::textChanged, this,
        [this] { m_narrowingCall.start(narrowingPause, [this] { narrow(); }); });
    line->addWidget(m_narrowing);
    rows->addWidget(top);
    auto *const bottom = new KXThemeableView;
    bottom->setThemeStyleName(KXToolbarStyles);
    auto *const filters = new QHBoxLayout(bottom);
    filters->setContentsMargins(4, 0, 0, 0);
    filters->addWidget(m_filters->view());
    rows->addWidget(bottom);
    setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Fixed);

    m_filters->setWhatIfCounts([this] { return whatIfCounts(); });
    makeActions();
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

void FilterStrip::makeActions()
{
    const auto add = [this](const QString &title, const QKeySequence &keys, auto perform) {
        auto *const action = new QAction(title, this);
        action->setShortcut(keys);
        connect(action, &QAction::triggered, this, perform);
        m_actions.append(action);
        return action;
    };
    // "/" is a letter where text is edited: there it does not get this far.
    add(tr("&Narrow the List"), {}, [this] {
        m_narrowing->setFocus(Qt::ShortcutFocusReason);
        m_narrowing->selectAll();
    })->setShortcuts({ QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_F), QKeySequence(Qt::Key_Slash) });
    add(tr("&Add Filter…"), QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_A),
        [this] { m_filters->showFilterSetManager(); });
    add(tr("&Edit Filters"), QKeySequence(Qt::CTRL | Qt::Key_E), [this] { focusFilters(); });
    add(tr("&Save Filters as Preset…"), QKeySequence(Qt::CTRL | Qt::Key_S),
        [this] { m_filters->saveAsPreset(m_filters->saveButton()); });
    m_revertAction = add(tr("&Revert to Preset"), {}, [this] { revert(); });
    add(tr("Enable All &Filters"), {}, [this] { m_filters->enableAllFilters(); });
    add(tr("&Disable All Filters"), {}, [this] { m_filters->disableAllFilters(); });
    add(tr("&Delete All Filters"), QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_Backspace),
        [this] { m_filters->removeAllFilters(); });
}

void FilterStrip::focusFilters()
{
    const QList<KXFilterBarFilterView *> &views = m_filters->filterBar()->filterViews();
    if (views.isEmpty())
        m_filters->addButton()->setFocus(Qt::ShortcutFocusReason);
    else
        views.first()->button()->setFocus(Qt::ShortcutFocusReason);
}

void FilterStrip::setPlace(const QUrl &place, const KXPredicate &predicate)
{
    const bool isSameSet = place == m_place && m_filters->filterSet();
    const bool isSame = isSameSet && predicate == m_placePredicate;
    const bool hadCounts = bool(m_whatIfCounts);
    if (!isSame) {
        m_placePredicate = predicate;
        m_narrowingText.clear();
        showNarrowingText();
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

QString FilterStrip::narrowingText() const { return m_narrowing->text(); }

void FilterStrip::setNarrowingText(const QString &text)
{
    m_narrowing->setText(text);
    narrow();
}

void FilterStrip::showNarrowingText()
{
    m_narrowing->setText(m_narrowingText);
    m_narrowingCall.cancel();
}

/// The list fits what is typed.
void FilterStrip::narrow()
{
    m_narrowingCall.cancel();
    const KXPredicate before = narrowingPredicate();
    m_narrowingText = m_narrowing->text();
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

bool FilterStrip::eventFilter(QObject *object, QEvent *event)
{
    if (object == m_narrowing && event->type() == QEvent::KeyPress) {
        const int key = static_cast<QKeyEvent *>(event)->key();
        if (key == Qt::Key_Escape)
            m_narrowing->clear();
        if (key == Qt::Key_Escape || key == Qt::Key_Return || key == Qt::Key_Enter || key == Qt::Key_Down) {
            narrow();
            Q_EMIT narrowingDidEnd();
            return true;
        }
    }
    return QWidget::eventFilter(object, event);
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
