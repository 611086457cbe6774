// The presets bar, the bar of filters and their editors, and saving as a preset.

#include <QBoxLayout>
#include <QTemporaryDir>

#include <kestrixkit/filter_ui/KXFilterSetPresetSaveViewController.h>
#include <kestrixkit/filter_ui/editors/KXDateFilterViewController.h>
#include <kestrixkit/filter_ui/editors/KXFilterBarFilterView.h>
#include <kestrixkit/filter_ui/editors/KXFilterButton.h>
#include <kestrixkit/filter_ui/editors/KXFilterSetViewController.h>
#include <kestrixkit/filter_ui/editors/KXRangeFilterViewController.h>
#include <kestrixkit/filter_ui/presets_bar/KXFilterSetPresetsBarPresetButton.h>
#include <kestrixkit/filter_ui/presets_bar/KXFilterSetPresetsBarViewController.h>
#include <kestrixkit/filters/KXDateFilter.h>
#include <kestrixkit/filters/KXFacetFilter.h>
#include <kestrixkit/filters/KXFilters.h>
#include <kestrixkit/filters/KXRangeFilter.h>
#include <kestrixkit/theme/controls/KXButtonMatrixView.h>
#include <kestrixkit/theme/controls/KXThemeableButton.h>
#include <kestrixkit/theme/controls/KXThemeableView.h>

#include "Pages.h"

using namespace Qt::StringLiterals;

namespace gallery {

namespace {

/// Every set will do that has filters.
class FilterPageMapper : public KXFilterSetMapper
{
public:
    bool canMapFilterSet(const KXRef<KXFilterSet> &set) const override { return set && !set->filters().isEmpty(); }
    KXRef<KXFilterSet> createInstanceByMappingFilterSet(
        const KXRef<KXFilterSet> &set, KXManagedObjectContext &inContext) const override
    {
        return set->duplicateInContext(inContext);
    }
};

/// Filters and presets in a store that goes with the page.
class FilterShelf : public QObject
{
public:
    FilterShelf(const Texts &text, QObject *parent)
        : QObject(parent)
        , m_text(text)
    {
        KXFilters::registerEntities();
        m_context = KXManagedObjectContext::contextWithPersistentStoreCoordinator(
            KXPersistentStoreCoordinator::persistentStoreCoordinatorWithStoreURL(
                QUrl::fromLocalFile(m_folder.filePath(u"filters.db"_s)), KXFilters::managedObjectModel()));
        m_manager = std::make_shared<KXFilterSetPresetsManager>(m_context);
        m_manager->registerFilterSetMapper(std::make_shared<FilterPageMapper>(), m_context);
        KXFilterSetPresetsManager::setSharedManager(m_manager);
        tempo = range("Tempo", 118, 124);
        span = filter<KXDateFilter>("Added");
        span->setRange(KXDateRange::Last30Days);
        genres = filter<KXFacetFilter>("Genre");
        for (const char *name : { "Deep house", "Electro" }) {
            const auto value = KXFacetFilterValue::createInContext(*m_context);
            value->setName(text(name));
            value->setOperatorType(name[0] == 'D' ? KXPredicateOperator::Equal : KXPredicateOperator::NotEqual);
            genres->addToValues(value);
        }
        const auto year = range("Year", 1990, 1980);
        const auto rating = range("Rating", 4, {});
        rating->setEnabled(false);
        set = KXFilterSet::createInContext(*m_context);
        qint64 position = 0;
        for (const KXRef<KXFilter> &one : QList<KXRef<KXFilter>> { tempo, genres, span, year, rating }) {
            one->setPosition(position++);
            set->addToFilters(one);
        }
        position = 0;
        for (const char *title : { "Warm up", "Crates", "Peak time", "Empty", "After hours", "Sunday" }) {
            const auto preset = KXFilterSetPreset::createInContext(*m_context);
            preset->setTitle(text(title));
            preset->setPosition(position++);
            preset->setIsFolder(title[0] == 'C');
            preset->setFilterSet(
                title[0] == 'E' ? KXFilterSet::createInContext(*m_context) : set->duplicateInContext(*m_context));
            m_presets.append(preset);
        }
        m_context->save();
    }
    ~FilterShelf() override
    {
        m_controllers.clear();
        KXFilterSetPresetsManager::setSharedManager(nullptr);
    }

    QWidget *presetsBar(int width)
    {
        auto *const controller = add(new KXFilterSetPresetsBarViewController(m_context));
        controller->view()->setFixedWidth(width);
        return controller->view();
    }
    QWidget *filterBar(int width, bool withFilters)
    {
        auto *const editor = add(new KXFilterSetViewController(m_context));
        QWidget *const view = editor->view();
        view->setFixedWidth(width);
        editor->setFilterSet(withFilters ? set : KXFilterSet::createInContext(*m_context));
        const auto &filters = editor->filterBar()->filterViews();
        if (withFilters) {
            filters[3]->setProblem(m_text("Nothing can fit this filter."));
            filters[1]->button()->setProperty(focusProperty, true);
            filters[2]->button()->enabledSwitch()->setProperty(focusProperty, true);
        }
        return view;
    }
    QWidget *types()
    {
        auto *const grid = add(new KXFilterSetManagerViewController);
        QList<KXFilterTypeItem> items;
        for (const char *name : { "Tempo", "Key", "Genre", "Artist", "Label", "Year", "Rating" })
            items.append({ m_text(name), items.size() });
        grid->setAllowedFilterTypeItems(items);
        QWidget *const view = grid->view();
        grid->filterTypeSelectionMatrix()->setSelectedIndex(2);
        return view;
    }
    QWidget *rangeEditor()
    {
        auto *const editor = add(new KXRangeFilterViewController(tempo));
        editor->setUnitText(m_text("bpm"));
        return editor->view();
    }
    QWidget *dateEditor() { return add(new KXDateFilterViewController(span))->view(); }
    QWidget *savePopover()
    {
        auto *const controller = add(new KXFilterSetPresetSaveViewController(m_context));
        controller->setFilterSet(set);
        controller->setFilterSetName(m_text("Peak time"));
        controller->view()->setFixedSize(560, 260);
        return controller->view();
    }

private:
    template <class Controller> Controller *add(Controller *controller)
    {
        m_controllers.emplace_back(controller);
        return controller;
    }
    template <class Filter> KXRef<Filter> filter(const char *name)
    {
        const auto made = Filter::createInContext(*m_context);
        made->setName(m_text(name));
        return made;
    }
    KXRef<KXRangeFilter> range(const char *name, int start, std::optional<int> end)
    {
        const auto made = filter<KXRangeFilter>(name);
        made->setStartValue(KXDecimal::fromInteger(start));
        made->setStartValueOperatorType(KXPredicateOperator::GreaterThanOrEqual);
        made->setEndValueOperatorType(KXPredicateOperator::LessThanOrEqual);
        if (end)
            made->setEndValue(KXDecimal::fromInteger(*end));
        return made;
    }

    const Texts m_text;
    QTemporaryDir m_folder;
    KXManagedObjectContext::Ref m_context;
    KXFilterSetPresetsManager::Ref m_manager;
    KXRef<KXFilterSet> set;
    KXRef<KXRangeFilter> tempo;
    KXRef<KXDateFilter> span;
    KXRef<KXFacetFilter> genres;
    QList<KXRef<KXFilterSetPreset>> m_presets;
    std::vector<std::unique_ptr<KXViewController>> m_controllers;
};

}

QWidget *filtersPage(const Texts &text)
{
    auto *page = new KXThemeableView;
    auto *shelf = new FilterShelf(text, page);
    auto *rows = new QVBoxLayout(page);
    rows->setContentsMargins(16, 16, 16, 16);
    rows->setSpacing(12);
    rows->addWidget(shelf->presetsBar(900));
    rows->addWidget(shelf->presetsBar(360)); // with what does not fit in a menu
    rows->addWidget(shelf->filterBar(900, true));
    rows->addWidget(shelf->filterBar(420, true)); // wrapped
    rows->addWidget(shelf->filterBar(420, false));
    rows->addWidget(shelf->rangeEditor(), 0, Qt::AlignLeft);
    rows->addWidget(shelf->types());
    rows->addWidget(shelf->savePopover());
    return page;
}

QWidget *filterDatesPage(const Texts &text)
{
    auto *page = new KXThemeableView;
    auto *shelf = new FilterShelf(text, page);
    auto *rows = new QVBoxLayout(page);
    rows->addWidget(shelf->dateEditor());
    return page;
}

}
