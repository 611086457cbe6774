// The presets library with details of a preset, in the states in which it meets the user.

#include <QBoxLayout>
#include <QItemSelectionModel>
#include <QTemporaryDir>

#include <kestrixkit/filter_ui/KXFilterSetPresetDetailsViewController.h>
#include <kestrixkit/filter_ui/KXFilterSetPresetsManagerViewController.h>
#include <kestrixkit/filters/KXDateFilter.h>
#include <kestrixkit/filters/KXFilterSet.h>
#include <kestrixkit/filters/KXFilters.h>
#include <kestrixkit/filters/KXRangeFilter.h>
#include <kestrixkit/theme/controls/KXThemeableView.h>

#include "Pages.h"

using namespace Qt::StringLiterals;

namespace gallery {

namespace {

constexpr QLatin1StringView shop { "shop" };

class EverythingButRange : public KXFilterSetMapper
{
public:
    bool canMapFilterSet(const KXRef<KXFilterSet> &set) const override
    {
        return set && !set->filters().isEmpty() && !KXRangeFilter::cast(set->sortedFilters().first());
    }
    KXRef<KXFilterSet> createInstanceByMappingFilterSet(
        const KXRef<KXFilterSet> &set, KXManagedObjectContext &inContext) const override
    {
        return set->duplicateInContext(inContext);
    }
};

/// Presets in a store that goes with the page, and libraries of them.
class PresetShelf : public QObject,
                    public KXFilterSetPresetsViewControllerDelegate,
                    public KXFilterSetPresetDetailsViewControllerDelegate
{
public:
    PresetShelf(const Texts &text, QObject *parent)
        : QObject(parent)
        , m_text(text)
    {
        KXFilters::registerEntities();
        m_context = KXManagedObjectContext::contextWithPersistentStoreCoordinator(
            KXPersistentStoreCoordinator::persistentStoreCoordinatorWithStoreURL(
                QUrl::fromLocalFile(m_folder.filePath(u"presets.db"_s)), KXFilters::managedObjectModel()));
        m_manager = std::make_shared<KXFilterSetPresetsManager>(m_context);
        m_manager->registerFilterSetMapper(std::make_shared<EverythingButRange>(), m_context);
        KXFilterSetPresetsManager::setSharedManager(m_manager);
        const auto genres = folder("Genres", 0);
        const auto night = preset("Late night", 0, genres);
        facet(night, "Genre", { "Deep house", "Techno", "Electro", "Breaks" }, 0);
        facet(night, "Key", { "4A", "8A", "9A" }, 1);
        const auto added = KXDateFilter::createInContext(*m_context);
        added->setName(text("Added"));
        added->setRange(KXDateRange::Last30Days);
        added->setPosition(2);
        night->filterSet()->addToFilters(added);
        facet(preset("Sunrise", 1, genres), "Genre", { "Ambient", "Downtempo" }, 0);
        const auto fast = preset("Above 160", 1);
        const auto tempo = KXRangeFilter::createInContext(*m_context);
        tempo->setName(text("Tempo"));
        fast->filterSet()->addToFilters(tempo);
        preset("New preset", 2);
        m_context->save();
    }
    ~PresetShelf() override
    {
        KXFilterSetPresetsManager::setSharedManager(nullptr);
        m_controllers.clear();
    }

    /// With a preset selected, or a folder, by its place.
    QWidget *library(const KXIndexPath &selected, bool focused = false)
    {
        auto &manager
            = m_controllers.emplace_back(std::make_unique<KXFilterSetPresetsManagerViewController>(m_context));
        KXFilterSetPresetsViewController *const library = manager->filterSetPresetsViewController();
        library->setCountsContextIdentifier(shop);
        library->setDelegate(this);
        QWidget *const view = manager->view();
        KXSourceListView *const outline = library->sourceListViewController()->sourceListView();
        outline->expandAll();
        library->sourceListTreeController()->setSelectionIndexPath(selected);
        outline->setProperty(focusProperty, focused);
        if (KXFilterSetPresetDetailsViewController *const details = library->currentDetailsViewController()) {
            KXSourceListView *const contents = details->outlineView();
            contents->selectionModel()->select(
                contents->model()->index(0, 0, contents->model()->index(0, 0)), QItemSelectionModel::Select);
        }
        view->setFixedSize(560, 300);
        return view;
    }

    bool isPresetAvailable(KXFilterSetPresetsViewController &, const KXRef<KXFilterSetPreset> &preset) override
    {
        return m_manager->isPresetAvailable(preset, m_context);
    }
    std::unique_ptr<KXFilterSetPresetDetailsViewController> detailsViewControllerForPreset(
        KXFilterSetPresetsViewController &, const KXRef<KXFilterSetPreset> &preset) override
    {
        auto details = std::make_unique<KXFilterSetPresetDetailsViewController>(preset);
        details->setDelegate(this);
        return details;
    }
    void loadFilterSet(KXFilterSetPresetDetailsViewController &, const KXRef<KXFilterSet> &) override { }
    bool isCountsFilterEnabledForFacetFilter(
        KXFilterSetPresetDetailsViewController &, const KXRef<KXFacetFilter> &) override
    {
        return true;
    }
    void willDisplayFacetFilterValueCell(
        KXFilterSetPresetDetailsViewController &, KXFacetFilterValueCellView &) override
    {
    }

private:
    using Preset = KXRef<KXFilterSetPreset>;

    Preset folder(const char *title, qint64 position)
    {
        const Preset made = preset(title, position);
        made->setIsFolder(true);
        return made;
    }
    Preset preset(const char *title, qint64 position, const Preset &above = {})
    {
        const Preset made = KXFilterSetPreset::createInContext(*m_context);
        made->setTitle(m_text(title));
        made->setPosition(position);
        made->setParent(above);
        made->setFilterSet(KXFilterSet::createInContext(*m_context));
        made->setCount(m_text(title).size() * 97, shop);
        m_presets.append(made);
        return made;
    }
    void facet(const Preset &of, const char *name, const QList<const char *> &values, qint64 position)
    {
        const auto facet = KXFacetFilter::createInContext(*m_context);
        facet->setName(m_text(name));
        facet->setPosition(position);
        of->filterSet()->addToFilters(facet);
        for (const char *title : values) {
            const auto value = KXFacetFilterValue::createInContext(*m_context);
            value->setName(m_text(title));
            value->setValue(m_text(title));
            value->setOperatorType(title == values.last() ? KXPredicateOperator::NotEqual : KXPredicateOperator::Equal);
            value->setEnabled(title != values.first());
            value->setCount(m_text(title).size() * 7, shop);
            facet->addToValues(value);
            m_values.append(value);
        }
    }

    const Texts m_text;
    QTemporaryDir m_folder;
    KXManagedObjectContext::Ref m_context;
    KXFilterSetPresetsManager::Ref m_manager;
    QList<Preset> m_presets; // and values: counts are kept in memory
    QList<KXRef<KXFacetFilterValue>> m_values;
    std::vector<std::unique_ptr<KXFilterSetPresetsManagerViewController>> m_controllers;
};

}

QWidget *presetsPage(const Texts &text)
{
    auto *page = new KXThemeableView;
    auto *shelf = new PresetShelf(text, page);
    auto *rows = new QVBoxLayout(page);
    rows->setContentsMargins(16, 16, 16, 16);
    rows->setSpacing(16);
    rows->addWidget(shelf->library({ 0, 0 }, true)); // with details
    rows->addWidget(shelf->library({ 1 })); // of no use here
    rows->addWidget(shelf->library({ 2 })); // empty
    return page;
}

}
