#include "PresetLibrary.h"

#include <QItemSelectionModel>

#include <kestrixkit/foundation/KXMainQueue.h>
#include <kestrixkit/theme/KXThemeStyleNames.h>
#include <kestrixkit/theme/controls/KXPlaceholderView.h>
#include <kestrixkit/theme/controls/KXThemeableButton.h>

#include "Presets.h"
#include "Report.h"

using namespace Qt::StringLiterals;

namespace {

/// What the preset asks for and tracks do not have; empty where they have it all.
QString unknownNameOf(const KXRef<KXFilterSet> &set)
{
    for (const KXRef<KXFilter> &filter : set ? set->sortedFilters() : QList<KXRef<KXFilter>>()) {
        const KXPredicate predicate = filter->representedLocalPredicateWithKeyPath();
        const QString unknown = filter->enabled() && predicate ? Report::unknownName(predicate) : QString();
        if (!unknown.isEmpty())
            return unknown;
    }
    return {};
}

/// What has the value, among others perhaps: asking that all are this one, as excluding does, lets in what has none.
KXPredicate predicateOfValue(const KXFacetFilter &filter, const KXFacetFilterValue &value)
{
    const QString keyPath = filter.localValuePredicateKeyPath().value_or(QString());
    const bool isToOne = filter.localValuePredicateModifier() == KXPredicateModifier::Direct;
    const KXPredicate predicate = KXPredicate::comparison(keyPath, KXPredicateOperator::Equal, value.value(),
        isToOne ? KXPredicateModifier::Direct : KXPredicateModifier::Any);
    return keyPath.isEmpty() || !Report::unknownName(predicate).isEmpty() ? KXPredicate::falsePredicate() : predicate;
}

} // namespace

PresetLibrary::PresetLibrary(KXManagedObjectContext::Ref context, QObject *parent)
    : QObject(parent)
    , m_context(std::move(context))
    , m_button(new KXThemeableButton(tr("Presets")))
{
    m_button->setAccessibleDescription(tr("Opens the presets library"));
    m_button->setThemeStyleName(KXFilterPresetsManagerOffButtonStyles);
    connect(m_button, &QPushButton::pressed, this, [this] { m_closedByPress = m_hasJustClosed; });
    connect(m_button, &QPushButton::clicked, this, [this] {
        if (!std::exchange(m_closedByPress, false))
            isShown() ? m_popover->close() : show();
    });
}

PresetLibrary::~PresetLibrary()
{
    m_popover.reset(); // tells the button that it is closed
    delete m_button;
}

KXThemeableButton *PresetLibrary::button() const { return m_button; }

void PresetLibrary::show()
{
    if (!m_button)
        return;
    if (!m_manager) {
        m_manager = std::make_unique<KXFilterSetPresetsManagerViewController>(m_context);
        m_manager->setDelegate(this);
        KXFilterSetPresetsViewController *const library = m_manager->filterSetPresetsViewController();
        library->setDelegate(this);
        library->setCountsContextIdentifier(Presets::contextIdentifier);
        connect(m_manager.get(), &KXFilterSetPresetsManagerViewController::selectedPresetChanged, this,
            &PresetLibrary::countValues);
        m_popover = std::make_unique<KXPopoverController>(m_manager.get());
        m_popover->setDidShowAction([this] { m_button->setThemeStyleName(KXFilterPresetsManagerOnButtonStyles); });
        m_popover->setCloseAction([this] {
            if (m_button)
                m_button->setThemeStyleName(KXFilterPresetsManagerOffButtonStyles);
            m_hasJustClosed = true;
            KXMainQueue::async(this, [this] { m_hasJustClosed = false; });
        });
    }
    m_popover->showRelativeTo(m_button, Qt::BottomEdge);
    countValues();
}

// Loading

bool PresetLibrary::pick(const KXRef<KXFilterSetPreset> &preset, const KXRef<KXFilterSet> &set, const QString &title)
{
    const KXFilterSetPresetsManager::Ref manager = KXFilterSetPresetsManager::sharedManager();
    const auto mapper = manager ? manager->filterSetMapperForApplicationContext(m_context) : nullptr;
    // The mapped set is only looked at: it lives in a context that is never saved.
    const auto scratch = KXManagedObjectContext::contextWithParentContext(m_context);
    const KXRef<KXFilterSet> mapped
        = mapper && set ? mapper->createInstanceByMappingFilterSet(set, *scratch) : KXRef<KXFilterSet>();
    if (!mapped)
        return false;
    const KXPredicate predicate = Presets::predicate(mapped);
    Q_EMIT picked(preset, predicate, title);
    return true;
}

bool PresetLibrary::loadFilterSet(KXFilterSetPresetsManagerViewController &manager, const KXRef<KXFilterSet> &set)
{
    const KXRef<KXFilterSetPreset> preset = manager.selectedPreset();
    return preset && pick(preset, set, Presets::path(*preset));
}

void PresetLibrary::loadFilterSet(KXFilterSetPresetDetailsViewController &details, const KXRef<KXFilterSet> &set)
{
    const KXRef<KXFilterSetPreset> preset = details.filterSetPreset();
    QStringList names;
    for (const QModelIndex &row : details.outlineView()->selectionModel()->selectedIndexes())
        names.append(row.data().toString());
    const QString title = names.isEmpty() ? QString() : u": "_s + names.join(u", "_s);
    if (pick(preset, set, Presets::path(*preset) + title) && m_popover)
        m_popover->close();
}

bool PresetLibrary::isPresetAvailable(KXFilterSetPresetsViewController &library, const KXRef<KXFilterSetPreset> &preset)
{
    const KXFilterSetPresetsManager::Ref manager = KXFilterSetPresetsManager::sharedManager();
    const bool isAvailable = manager && manager->isPresetAvailable(preset, m_context);
    const auto *const details = isAvailable ? nullptr : library.detailsViewControllers().value(preset->objectID());
    if (KXPlaceholderView *const message = details ? details->notAvailableMessageView() : nullptr) {
        const QString unknown = unknownNameOf(preset->filterSet());
        if (!unknown.isEmpty())
            message->setText(
                tr("This preset is not available here: it asks for “%1”, which tracks do not have.").arg(unknown));
    }
    return isAvailable;
}

std::unique_ptr<KXFilterSetPresetDetailsViewController> PresetLibrary::detailsViewControllerForPreset(
    KXFilterSetPresetsViewController &, const KXRef<KXFilterSetPreset> &preset)
{
    auto details = std::make_unique<KXFilterSetPresetDetailsViewController>(preset);
    details->setDelegate(this);
    (void)details->view(); // whose message is told the reason
    return details;
}

// Counts of values

bool PresetLibrary::isCountsFilterEnabledForFacetFilter(
    KXFilterSetPresetDetailsViewController &, const KXRef<KXFacetFilter> &filter)
{
    // Where they are not counted yet, nothing would be left.
    const QList<KXRef<KXFacetFilterValue>> values = filter->values();
    return std::any_of(values.begin(), values.end(), [](const auto &value) { return value->counts().has_value(); });
}

void PresetLibrary::countWith(KXLiveCounts &counts)
{
    m_counts = &counts;
    connect(&counts, &KXLiveCounts::countsDidChange, this, &PresetLibrary::deliver);
    countValues();
}

/// Those of the selected preset alone: counting them costs nothing that way.
void PresetLibrary::countValues()
{
    const KXRef<KXFilterSetPreset> preset = m_manager && isShown() ? m_manager->selectedPreset() : nullptr;
    const KXRef<KXFilterSet> set = preset && !preset->isFolder() ? preset->filterSet() : KXRef<KXFilterSet>();
    QHash<QString, KXRef<KXFacetFilterValue>> wanted;
    for (const KXRef<KXFilter> &filter : m_counts &&set ? set->filters() : QList<KXRef<KXFilter>>()) {
        const auto facet = KXFacetFilter::cast(filter);
        for (const auto &value : facet ? facet->values() : QList<KXRef<KXFacetFilterValue>>()) {
            const QString identifier = u"value "_s + QString::number(value->objectID().key());
            wanted.insert(identifier, value);
            if (!m_counted.contains(identifier))
                m_counts->setRule(identifier, predicateOfValue(*facet, *value));
        }
    }
    for (auto entry = m_counted.cbegin(); m_counts && entry != m_counted.cend(); ++entry) {
        if (!wanted.contains(entry.key()))
            m_counts->removeRule(entry.key());
    }
    m_counted = wanted;
}

void PresetLibrary::deliver(const QStringList &identifiers)
{
    bool any = false;
    for (const QString &identifier : identifiers) {
        const KXRef<KXFacetFilterValue> value = m_counted.value(identifier);
        if (const auto count = value && m_counts ? m_counts->count(identifier) : std::nullopt) {
            value->setCount(*count, QString(Presets::contextIdentifier));
            any = true;
        }
    }
    auto *const details = any ? m_manager->filterSetPresetsViewController()->currentDetailsViewController() : nullptr;
    if (details)
        details->reload();
}
