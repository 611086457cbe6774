#include "filters/PresetLibrary.h"

#include <kestrixkit/theme/controls/KXPlaceholderView.h>

#include "command_line/Report.h"
#include "filters/Presets.h"

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
    : KXFilterSetPresetsBarViewController(std::move(context), parent)
{
    connect(filterSetPresetsManagerViewController(), &KXFilterSetPresetsManagerViewController::selectedPresetChanged,
        this, &PresetLibrary::countValues);
    connect(this, &KXFilterSetPresetsBarViewController::managerShownChanged, this, &PresetLibrary::countValues);
}

PresetLibrary::~PresetLibrary() { disconnect(this); }

bool PresetLibrary::isShown() const
{
    return filterSetPresetsManagerPopover() && filterSetPresetsManagerPopover()->isShown();
}

bool PresetLibrary::isPresetAvailable(KXFilterSetPresetsViewController &library, const Preset &preset)
{
    const bool isAvailable = KXFilterSetPresetsBarViewController::isPresetAvailable(library, preset);
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
    KXFilterSetPresetsViewController &library, const Preset &preset)
{
    auto details = KXFilterSetPresetsBarViewController::detailsViewControllerForPreset(library, preset);
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
    const Preset preset = isShown() ? filterSetPresetsManagerViewController()->selectedPreset() : Preset();
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
    auto *const details = any
        ? filterSetPresetsManagerViewController()->filterSetPresetsViewController()->currentDetailsViewController()
        : nullptr;
    if (details)
        details->reload();
}
