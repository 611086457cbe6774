// A random walk over presets bar, filter set editor, library and store, while a second context saves: after every step
// the views show what the store has.

#include <QTest>
#include <gtest/gtest.h>

#include <kestrixkit/filter_ui/KXFilterSetPresetEditing.h>
#include <kestrixkit/filter_ui/KXFilterSetPresetSaveViewController.h>
#include <kestrixkit/filter_ui/editors/KXFilterBarFilterView.h>
#include <kestrixkit/filter_ui/editors/KXFilterButton.h>
#include <kestrixkit/filter_ui/editors/KXFilterSetViewController.h>
#include <kestrixkit/filter_ui/editors/KXRangeFilterViewController.h>
#include <kestrixkit/filter_ui/presets_bar/KXFilterSetPresetsBarPresetButton.h>
#include <kestrixkit/filter_ui/presets_bar/KXFilterSetPresetsBarViewController.h>
#include <kestrixkit/filters/KXLivePresetCounts.h>
#include <kestrixkit/foundation/KXUndoManager.h>
#include <kestrixkit/theme/controls/KXThemeableButton.h>
#include <kestrixkit/toolkit/KXAlert.h>
#include <kestrixkit/toolkit/KXAnimationGroup.h>
#include <kestrixkit/toolkit/KXMenu.h>
#include <kestrixkit/toolkit/KXPopoverController.h>

#include "filters/Shelf.h"
#include "support/KXTestPrint.h"
#include "support/KXTestRandom.h"

using namespace Qt::StringLiterals;
using Preset = KXRef<KXFilterSetPreset>;

class WalkMapper : public KXFilterSetMapper
{
public:
    bool canMapFilterSet(const KXRef<KXFilterSet> &set) const override { return set && !set->filters().isEmpty(); }
    KXRef<KXFilterSet> createInstanceByMappingFilterSet(
        const KXRef<KXFilterSet> &set, KXManagedObjectContext &inContext) const override
    {
        return set->isMissing() ? KXRef<KXFilterSet>() : set->duplicateInContext(inContext);
    }
};

class WalkEditor : public KXFilterSetViewController
{
public:
    using KXFilterSetViewController::KXFilterSetViewController;
    std::unique_ptr<KXViewController> filterViewControllerForFilter(const KXRef<KXFilter> &filter) override
    {
        return std::make_unique<KXRangeFilterViewController>(KXRangeFilter::cast(KXRef<KXManagedObject>(filter)));
    }
};

/// The views over one context, and another context that meddles.
class FiltersWalk : public Shelf
{
public:
    explicit FiltersWalk(KXTestRandom &random)
        : m_random(random)
    {
        context->setUndoManager(std::make_shared<KXUndoManager>());
        for (int i = 0; i < 30; ++i) {
            const auto thing = make<Thing>();
            thing->setBpm(100.0 + i);
        }
        manager = std::make_shared<KXFilterSetPresetsManager>(context);
        KXFilterSetPresetsManager::setSharedManager(manager);
        manager->registerFilterSetMapper(std::make_shared<WalkMapper>(), context);
        edited = make<KXFilterSet>();
        context->save();
        merging = coordinator->addChangeObserver([this](const std::shared_ptr<const KXStoreChange> &change) {
            if (change->originatingContext() != context.get())
                waiting.append(change);
        });
        other = KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator);
        counts = std::make_unique<KXLivePresetCounts>(context,
            KXLivePresetCounts::Place {
                context, QString(Thing::entityName), u"here"_s, {}, std::make_shared<WalkMapper>() });
        editor = std::make_unique<WalkEditor>(context);
        editor->view()->resize(700, 60);
        editor->view()->show();
        editor->setFilterSet(edited);
        bar = std::make_unique<KXFilterSetPresetsBarViewController>(context);
        bar->setFilterSetViewController(editor.get());
        bar->setCountsContextIdentifier(u"here"_s);
        bar->view()->resize(500, 40);
        bar->view()->show();
    }
    ~FiltersWalk()
    {
        bar.reset();
        editor.reset();
        counts.reset();
        merging.reset();
        KXFilterSetPresetsManager::setSharedManager(nullptr);
    }

    void step()
    {
        switch (m_random.below(17)) {
        case 0:
        case 1:
        case 2:
            editor->insertFilter(newFilter());
            break;
        case 3:
            editor->removeFilter(anyFilter());
            break;
        case 4:
            editor->toggleFilterEnabledState(KXVariantFromRef(anyFilter()));
            break;
        case 5:
            editor->filterBar()->moveFilterView(m_random.below(5),
                m_random.chance(0.3) ? KXFilterBarDropPosition::end()
                                     : KXFilterBarDropPosition::before(m_random.below(5)));
            break;
        case 6:
            context->undoManager()->undo();
            break;
        case 7:
            context->undoManager()->redo();
            break;
        case 8:
            save();
            break;
        case 9:
            if (!bar->filterSetPresetsBar()->presets().isEmpty())
                bar->loadPreset(m_random.oneOf(bar->filterSetPresetsBar()->presets()));
            break;
        case 10:
            if (const Preset preset = anyPreset(*context))
                preset->setTitle(u"t%1"_s.arg(m_random.below(100)));
            break;
        case 11:
            movePreset();
            break;
        case 12:
            editor->showFilter(anyFilter());
            break;
        case 13:
            bar->view()->resize(m_random.between(60, 900), 40);
            editor->view()->resize(m_random.between(100, 900), 60);
            break;
        case 14: { // a preset's own set, edited in place; or a new one
            const Preset preset = anyPreset(*context);
            const auto own = preset ? preset->filterSet() : KXRef<KXFilterSet>();
            editor->setFilterSet(own && !own->isMissing() && m_random.chance(0.5) ? own : make<KXFilterSet>());
            break;
        }
        default:
            meddle();
            break;
        }
    }

    void check()
    {
        while (!waiting.isEmpty())
            context->mergeChangesFromStoreChange(waiting.takeFirst());
        context->processPendingChanges();
        counts->update();
        checkFilters();
        checkPresets();
    }

private:
    KXRef<KXFilter> newFilter()
    {
        const auto filter
            = range(QString::number(m_random.between(95, 120)), QString::number(m_random.between(110, 135)));
        filter->setName(u"f%1"_s.arg(m_random.below(10)));
        return filter;
    }
    KXRef<KXFilter> anyFilter()
    {
        const auto filters = editor->filterBar()->filters();
        return filters.isEmpty() ? KXRef<KXFilter>() : m_random.oneOf(filters);
    }
    Preset anyPreset(KXManagedObjectContext &in)
    {
        const auto all = KXFilterSetPreset::findAllInContext(in);
        return all.isEmpty() ? Preset() : KXFilterSetPreset::cast(all.at(m_random.below(int(all.size()))));
    }

    void save()
    {
        const Preset selected = m_random.chance(0.5) ? anyPreset(*context) : Preset();
        KXFilterSetPresetSaveViewController popover(context);
        popover.setFilterSet(editor->filterSet());
        popover.filterSetPresetsViewController()->sourceListTreeController()->setSelectedObjects({ selected });
        if (m_random.chance(0.5))
            popover.setFilterSetName(u"s%1"_s.arg(m_random.below(20)));
        // While the question stands, somebody else saves.
        qsizetype theirs = 0; // presets that they have removed meanwhile, those in a folder with it
        const auto runner = KXAlert::setRunner([&](const KXAlert &) {
            theirs += KXFilterSetPreset::countOfInContext(*other);
            meddle();
            theirs -= KXFilterSetPreset::countOfInContext(*other);
            while (!waiting.isEmpty())
                context->mergeChangesFromStoreChange(waiting.takeFirst());
            return KXAlertAnswer { m_random.below(2) };
        });
        const qsizetype before = KXFilterSetPreset::countOfInContext(*context);
        const bool wasOn = context->undoManager()->isUndoRegistrationEnabled();
        if (popover.saveFilterSetAsPreset()) {
            EXPECT_GE(KXFilterSetPreset::countOfInContext(*context),
                std::max<qsizetype>(1, before - 1 - std::max<qsizetype>(theirs, 0)));
        }
        EXPECT_EQ(context->undoManager()->isUndoRegistrationEnabled(), wasOn);
    }

    void movePreset()
    {
        const Preset preset = anyPreset(*context), under = anyPreset(*context);
        if (!preset)
            return;
        if (m_random.chance(0.3))
            preset->setPosition(m_random.below(5));
        else if (under && under->isFolder() && !under->isDescendantOfItem(preset.get()))
            preset->setParent(under);
        else if (m_random.chance(0.3))
            preset->setParent({});
        else if (m_random.chance(0.3))
            context->removeManagedObject(preset);
        else
            folderPreset(u"F%1"_s.arg(m_random.below(10)));
    }

    /// The other context changes something and saves.
    void meddle()
    {
        const Preset preset = anyPreset(*other);
        const auto filters = KXFilter::findAllInContext(*other);
        const auto filter
            = filters.isEmpty() ? KXRef<KXFilter>() : KXFilter::cast(filters.at(m_random.below(int(filters.size()))));
        switch (m_random.below(8)) {
        case 0:
            if (preset)
                preset->setTitle(u"their %1"_s.arg(m_random.below(100)));
            break;
        case 1:
            if (preset)
                other->removeManagedObject(preset);
            break;
        case 2: {
            const auto made = KXFilterSetPreset::createInContext(*other);
            made->setTitle(u"new %1"_s.arg(m_random.below(100)));
            made->setPosition(m_random.below(6));
            made->setIsFolder(m_random.chance(0.3));
            break;
        }
        case 3:
            if (filter)
                filter->setEnabled(!filter->enabled());
            break;
        case 4:
            if (filter)
                other->removeManagedObject(filter);
            break;
        case 5:
            if (filter)
                filter->setPosition(m_random.below(5));
            break;
        case 6:
            if (const auto range = KXRangeFilter::cast(KXRef<KXManagedObject>(filter)))
                range->setStartValue(KXDecimal::fromInteger(m_random.between(95, 130)));
            break;
        default:
            if (filter && filter->filterSet()) {
                const auto copy = filter->duplicateInContext(*other);
                copy->setFilterSet(filter->filterSet());
            }
            break;
        }
        KXError error;
        other->save(&error);
    }

    void checkFilters()
    {
        const KXFilterBar &filterBar = *editor->filterBar();
        const auto set = editor->filterSet();
        EXPECT_EQ(filterBar.filterSet(), set);
        const auto filters = set ? set->sortedFilters() : QList<KXRef<KXFilter>>();
        ASSERT_EQ(filterBar.filters(), filters);
        for (const KXFilterBarFilterView *view : filterBar.filterViews()) {
            EXPECT_EQ(view->button()->filterText(), KXFilterBarFilterView::textOfFilter(*view->filter()));
            EXPECT_EQ(view->button()->isFilterEnabled(), view->filter()->enabled());
        }
        EXPECT_EQ(editor->clearButton()->isEnabled(), !filters.isEmpty());
        const KXPopoverController *const popover = editor->filterPopover();
        EXPECT_FALSE(popover && filters.isEmpty());
    }

    void checkPresets()
    {
        const KXFilterSetPresetsBar &presetsBar = *bar->filterSetPresetsBar();
        KXFetchRequest top(QString(KXFilterSetPreset::entityName), KXPredicate::predicateWithFormat("parent == nil"));
        QList<Preset> wanted;
        for (const auto &object : context->fetch(top.setSortDescriptors({ { u"position"_s } })))
            wanted.append(KXFilterSetPreset::cast(object));
        ASSERT_EQ(presetsBar.presets(), wanted);
        QStringList hidden;
        for (qsizetype i = 0; i < wanted.size(); ++i) {
            const auto *const button = presetsBar.presetButtonForPreset(wanted[i].get());
            ASSERT_TRUE(button ? button->isVisible() == (i < presetsBar.shownCount()) : i >= presetsBar.shownCount());
            if (i >= presetsBar.shownCount())
                hidden += itemOf(wanted[i]);
            if (!button)
                continue;
            EXPECT_EQ(button->text(), wanted[i]->title());
            EXPECT_EQ(button->count(), countOf(wanted[i]));
            EXPECT_EQ(button->badgeImage().isNull(), countOf(wanted[i]) < 1);
            EXPECT_EQ(button->isEnabled(), wanted[i]->isFolder() || manager->isPresetAvailable(wanted[i], context));
            if (const auto *const folder = qobject_cast<const KXFilterSetPresetsBarPresetFolderButton *>(button))
                checkMenu(*folder->presetsMenu(), wanted[i]);
        }
        presetsBar.overflowMenu()->validate();
        QStringList shown;
        for (const QAction *action : presetsBar.overflowMenu()->actions())
            shown += action->text();
        EXPECT_EQ(shown, hidden);
    }

    void checkMenu(KXMenu &menu, const Preset &folder)
    {
        KXFetchRequest request(QString(KXFilterSetPreset::entityName),
            KXPredicate::predicateWithFormat("parent == %@", KXVariantFromRef(folder)));
        QStringList wanted, shown;
        for (const auto &object : context->fetch(request.setSortDescriptors({ { u"position"_s } })))
            wanted += itemOf(KXFilterSetPreset::cast(object));
        menu.validate();
        for (const QAction *action : menu.actions())
            shown += action->text();
        EXPECT_EQ(shown, wanted.isEmpty() ? QStringList { u"No Presets"_s } : wanted);
    }

    /// By counting in the store.
    qint64 countOf(const Preset &preset)
    {
        if (preset->isFolder()) {
            qint64 sum = 0;
            for (const Preset &child : preset->children())
                sum += countOf(child);
            return sum;
        }
        const auto set = preset->filterSet();
        if (!set || set->isMissing() || set->isDeleted())
            return 0; // of a set without filters everything counts
        return context->countForEntity(QString(Thing::entityName), set->representedLocalPredicateWithKeyPath());
    }
    QString itemOf(const Preset &preset)
    {
        const qint64 count = preset->isFolder() ? 0 : countOf(preset);
        return count > 0 ? u"%1 (%2)"_s.arg(preset->title()).arg(count) : preset->title();
    }

    KXTestRandom &m_random;
    KXFilterSetPresetsManager::Ref manager;
    KXRef<KXFilterSet> edited;
    KXManagedObjectContext::Ref other;
    QList<std::shared_ptr<const KXStoreChange>> waiting;
    std::unique_ptr<KXLivePresetCounts> counts;
    std::unique_ptr<WalkEditor> editor;
    std::unique_ptr<KXFilterSetPresetsBarViewController> bar;
    KXPersistentStoreCoordinator::ChangeToken merging;
};

TEST(FiltersWalkTest, viewsEqualTheStoreAfterEveryStep)
{
    KXAnimationGroup::setAnimationsEnabled(false);
    KXTestRandom random;
    for (int round = 0; round < KXTestRandom::scaled(1000); ++round) {
        FiltersWalk walk(random);
        for (int step = 0; step < 100; ++step) {
            walk.step();
            walk.check();
            if (::testing::Test::HasFailure())
                FAIL() << "round " << round << ", step " << step;
        }
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }
    KXAnimationGroup::setAnimationsEnabled(true);
}
