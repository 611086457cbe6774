// The editor of a filter set, the grid of types, and saving as a preset.

#include <QAction>
#include <QApplication>
#include <QTest>
#include <gtest/gtest.h>

#include <kestrixkit/filter_ui/KXFilterSetPresetSaveViewController.h>
#include <kestrixkit/filter_ui/editors/KXFilterBarFilterView.h>
#include <kestrixkit/filter_ui/editors/KXFilterButton.h>
#include <kestrixkit/filter_ui/editors/KXFilterSetViewController.h>
#include <kestrixkit/filter_ui/editors/KXRangeFilterViewController.h>
#include <kestrixkit/filters/KXFilterSetPresetsManager.h>
#include <kestrixkit/foundation/KXUndoManager.h>
#include <kestrixkit/theme/controls/KXButtonMatrixView.h>
#include <kestrixkit/theme/controls/KXThemeableButton.h>
#include <kestrixkit/theme/controls/KXThemeableTextField.h>
#include <kestrixkit/toolkit/KXAlert.h>
#include <kestrixkit/toolkit/KXAnimationGroup.h>
#include <kestrixkit/toolkit/KXMenu.h>
#include <kestrixkit/toolkit/KXPopoverController.h>

#include "filters/Shelf.h"
#include "support/KXTestPrint.h"

using namespace Qt::StringLiterals;
using Preset = KXRef<KXFilterSetPreset>;
using MenuItem = KXFilterSetViewController::MenuItem;

/// Makes range filters of any type, whose name they get.
class TempoEditor : public KXFilterSetViewController
{
public:
    using KXFilterSetViewController::addFilterOfType;
    using KXFilterSetViewController::KXFilterSetViewController;
    void addFilterOfType(const KXFilterTypeItem &type) override
    {
        wasClosed = !filterSetManagerPopover() || !filterSetManagerPopover()->isShown();
        const auto filter = KXRangeFilter::createInContext(*context());
        filter->setName(type.name);
        filter->setLocalValuePredicateKeyPath(u"bpm"_s);
        insertFilter(filter);
        showFilter(filter);
    }
    std::unique_ptr<KXViewController> filterViewControllerForFilter(const KXRef<KXFilter> &filter) override
    {
        const auto range = KXRangeFilter::cast(KXRef<KXManagedObject>(filter));
        return range ? std::make_unique<KXRangeFilterViewController>(range) : nullptr;
    }
    bool wasClosed = false;
};

class FilterSetEditorTest : public ::testing::Test, public Shelf
{
protected:
    FilterSetEditorTest()
    {
        KXAnimationGroup::setAnimationsEnabled(false);
        context->setUndoManager(std::make_shared<KXUndoManager>());
        KXFilterSetPresetsManager::setSharedManager(std::make_shared<KXFilterSetPresetsManager>(context));
        edited = make<KXFilterSet>();
        editor = std::make_unique<TempoEditor>(context);
        editor->setAutosaveName(u"editor"_s);
        editor->filterSetManagerViewController()->setAllowedFilterTypeItems(
            { { u"A"_s, 1 }, { u"B"_s, 2 }, { u"C"_s, 3 } });
        editor->view()->resize(900, 48);
        editor->view()->show();
        QApplication::setActiveWindow(editor->view());
        editor->setFilterSet(edited);
        for (const QString &name : { u"x"_s, u"y"_s, u"z"_s }) {
            const auto filter = range(u"1"_s, u"2"_s);
            filter->setName(name);
            filter->setLabel(name);
            editor->insertFilter(filter);
        }
        context->save();
        context->undoManager()->removeAllActions();
    }
    ~FilterSetEditorTest() override
    {
        editor.reset();
        KXFilterSetPresetsManager::setSharedManager(nullptr);
        KXAnimationGroup::setAnimationsEnabled(true);
    }
    QString filters()
    {
        context->processPendingChanges();
        QStringList names;
        for (const auto &filter : edited->sortedFilters())
            names += filter->name().value_or(u"?"_s) + QString::number(filter->position())
                + (filter->enabled() ? QString() : u"-"_s);
        EXPECT_EQ(editor->filterBar()->filters(), edited->sortedFilters());
        return names.join(u' ');
    }
    KXRef<KXFilter> filter(int index) { return edited->sortedFilters()[index]; }
    static void turn() { QTest::qWait(0); }
    QWidget *focus() { return QApplication::focusWidget(); }

    KXRef<KXFilterSet> edited;
    std::unique_ptr<TempoEditor> editor;
};

TEST_F(FilterSetEditorTest, deletesAsOneStepAndSwitchesWithoutOne)
{
    editor->deleteFilter(KXVariantFromRef(filter(1)));
    EXPECT_EQ(filters(), u"x0 z1"_s);
    EXPECT_EQ(context->undoManager()->undoActionName(), u"Delete Filter"_s);
    EXPECT_FALSE(context->hasChanges());
    context->undoManager()->undo();
    EXPECT_EQ(filters(), u"x0 y1 z2"_s);
    EXPECT_FALSE(context->undoManager()->canUndo());
    context->save();
    context->undoManager()->removeAllActions();

    QAction item;
    item.setData(KXVariantFromRef(filter(1)));
    EXPECT_TRUE(editor->validateMenuItem(MenuItem::ToggleFilter, &item));
    EXPECT_EQ(item.text(), u"Disable"_s);
    editor->toggleFilterEnabledState(QVariant::fromValue(&item));
    EXPECT_EQ(filters(), u"x0 y1- z2"_s);
    EXPECT_TRUE(editor->validateMenuItem(MenuItem::ToggleFilter, &item));
    EXPECT_EQ(item.text(), u"Enable"_s);
    editor->disableAllFilters();
    EXPECT_EQ(filters(), u"x0- y1- z2-"_s);
    editor->enableAllFilters();
    EXPECT_EQ(filters(), u"x0 y1 z2"_s);
    EXPECT_FALSE(context->hasChanges() || context->undoManager()->canUndo());

    // A stranger, and one that is gone.
    const auto stranger = range(u"1"_s, u"2"_s);
    editor->removeFilter(stranger);
    editor->toggleFilterEnabledState(KXVariantFromRef(stranger));
    editor->toggleFilterEnabledState({});
    EXPECT_TRUE(stranger->enabled() && !stranger->isDeleted());
    context->removeManagedObject(stranger);
    context->save();
    context->undoManager()->removeAllActions();

    QTest::mouseClick(editor->clearButton(), Qt::LeftButton);
    EXPECT_EQ(filters(), QString());
    EXPECT_EQ(context->undoManager()->undoActionName(), u"Delete Filters"_s);
    EXPECT_FALSE(editor->clearButton()->isEnabled() || editor->validateMenuItem(MenuItem::EnableAll));
    context->undoManager()->undo();
    EXPECT_EQ(filters(), u"x0 y1 z2"_s);
    EXPECT_TRUE(editor->clearButton()->isEnabled());
}

TEST_F(FilterSetEditorTest, typesAreChosenInAGrid)
{
    const std::pair<int, int> columns[] { { 0, 1 }, { 1, 1 }, { 3, 3 }, { 4, 4 }, { 5, 5 }, { 6, 5 }, { 7, 5 },
        { 8, 4 }, { 9, 5 } };
    for (const auto &[types, wanted] : columns)
        EXPECT_EQ(KXFilterSetManagerViewController::columnsForTypes(types), wanted) << types;

    // By keys: the button, the second type, a value, done; then away with it.
    editor->addButton()->setFocus();
    QTest::keyClick(focus(), Qt::Key_Space);
    ASSERT_TRUE(editor->filterSetManagerPopover()->isShown());
    turn();
    QTest::keyClick(focus(), Qt::Key_Right);
    QTest::keyClick(focus(), Qt::Key_Return);
    EXPECT_TRUE(editor->wasClosed);
    EXPECT_EQ(filters(), u"x0 y1 z2 B3"_s);
    EXPECT_EQ(editor->filterSetManagerViewController()->filterTypeSelectionMatrix()->selectedIndex(), -1);
    ASSERT_TRUE(editor->filterPopover());
    turn();
    QTest::keyClicks(focus(), u"125"_s);
    QTest::keyClick(focus(), Qt::Key_Return);
    EXPECT_FALSE(editor->filterPopover());
    turn();
    EXPECT_EQ(KXRangeFilter::cast(KXRef<KXManagedObject>(filter(3)))->startValue()->toString(), u"125"_s);
    EXPECT_EQ(focus(), editor->filterBar()->filterViews()[3]->button());
    QTest::keyClick(focus(), Qt::Key_Delete);
    EXPECT_EQ(filters(), u"x0 y1 z2"_s);
    EXPECT_EQ(focus(), editor->filterBar()->filterViews()[2]->button());

    // Escape adds nothing; a click elsewhere neither.
    editor->showFilterSetManager();
    turn();
    QTest::keyClick(focus(), Qt::Key_Escape);
    EXPECT_FALSE(editor->filterSetManagerPopover()->isShown());
    EXPECT_EQ(filters(), u"x0 y1 z2"_s);
    editor->showFilterSetManager();
    QTest::mouseClick(
        editor->filterSetManagerViewController()->filterTypeSelectionMatrix()->buttons()[0], Qt::LeftButton);
    EXPECT_EQ(filters(), u"x0 y1 z2 A3"_s);
    // No types, no crash.
    editor->filterSetManagerViewController()->setAllowedFilterTypeItems({});
    editor->showFilterSetManager();
    editor->filterSetManagerPopover()->close();
}

TEST_F(FilterSetEditorTest, popoversEndWithWhatTheyShow)
{
    editor->showFilter(filter(1));
    ASSERT_TRUE(editor->filterPopover());
    // Somebody else deletes the filter meanwhile.
    const auto other = KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator);
    std::shared_ptr<const KXStoreChange> change;
    const auto token = coordinator->addChangeObserver([&](const auto &made) { change = made; });
    other->removeManagedObject(other->objectWithID(filter(1)->objectID()));
    other->save();
    context->mergeChangesFromStoreChange(change);
    EXPECT_FALSE(editor->filterPopover());
    EXPECT_EQ(filters(), u"x0 z2"_s);
    // The set itself goes below an open editor.
    editor->showFilter(filter(0));
    context->removeManagedObject(edited);
    context->processPendingChanges();
    EXPECT_FALSE(editor->filterPopover() || editor->filterSet() || editor->addButton()->isEnabled());
    editor->removeAllFilters();
    editor->showFilterSetManager();
    editor->saveAsPreset(editor->saveButton());
    EXPECT_FALSE(editor->filterSetPresetSavePopover());
    // An editor without context.
    TempoEditor nothing(nullptr);
    nothing.setFilterSet({});
    EXPECT_FALSE(nothing.addButton());
    (void)nothing.view();
    nothing.showFilterSetManager();
    nothing.disableAllFilters();
    EXPECT_FALSE(nothing.validateMenuItem(MenuItem::DeleteAll));
}

/// What is pending is told before filters are removed, and whoever hears of it may show another set.
TEST_F(FilterSetEditorTest, removesFromTheSetThatItShowsAlone)
{
    const auto second = set({ range(u"1"_s, u"2"_s), range(u"3"_s, u"4"_s) });
    context->save();
    for (const bool isAll : { true, false }) {
        for (const KXRef<KXFilterSet> &next : { second, KXRef<KXFilterSet>() }) {
            editor->setFilterSet(edited);
            const auto exchange = QObject::connect(
                editor.get(), &KXFilterSetViewController::filterSetDidChange, editor.get(),
                [&] { editor->setFilterSet(next); }, Qt::SingleShotConnection);
            editor->insertFilter(range(u"5"_s, u"6"_s));
            isAll ? editor->removeAllFilters() : editor->removeFilter(filter(0));
            EXPECT_EQ(editor->filterSet(), next);
            EXPECT_EQ(second->filters().size(), 2);
            QObject::disconnect(exchange);
        }
    }
    EXPECT_EQ(edited->filters().size(), 7);
}

TEST_F(FilterSetEditorTest, saysWhatCannotBe)
{
    const auto slow = range(QString(), u"100"_s), fast = range(u"140"_s, QString());
    slow->setName(u"Slow"_s);
    fast->setName(u"Fast"_s);
    editor->removeAllFilters();
    editor->insertFilter(slow);
    editor->insertFilter(fast);
    editor->setFilteredEntity(coordinator->model()->entity(Thing::entityName));
    context->processPendingChanges();
    const auto problem = [&](int index) { return editor->filterBar()->filterViews()[index]->problem(); };
    EXPECT_TRUE(problem(0).contains(u"Fast"_s) && problem(1).contains(u"Slow"_s));
    slow->setEnabled(false);
    context->processPendingChanges();
    EXPECT_EQ(problem(0) + problem(1), QString());
    fast->setEndValue(KXDecimal::fromInteger(130)); // the wrong way round by itself
    context->processPendingChanges();
    EXPECT_FALSE(problem(1).isEmpty());
}

// Saving as a preset

class PresetSaveTest : public FilterSetEditorTest
{
protected:
    PresetSaveTest()
    {
        folder1 = folderPreset(u"F"_s, { preset(u"in F"_s, set({ facet({ u"a"_s }) })) });
        old = preset(u"Old"_s, set({ facet({ u"b"_s }) }));
        old->setPosition(1);
        old->setLastLoaded(QDateTime(QDate(2024, 1, 2), QTime(3, 4), Qt::UTC));
        locked = preset(u"Locked"_s, set({ facet({ u"c"_s }) }));
        locked->setPosition(2);
        locked->setIsOverwritable(false);
        context->save();
        context->undoManager()->removeAllActions();
        editor->saveAsPreset(editor->saveButton());
        turn();
    }
    KXFilterSetPresetSaveViewController &popover() { return *editor->filterSetPresetSaveViewController(); }
    void select(const Preset &preset)
    {
        popover().filterSetPresetsViewController()->sourceListTreeController()->setSelectedObjects({ preset });
    }
    Preset named(const QString &title)
    {
        return KXFilterSetPreset::findFirstUsingPredicate(
            KXPredicate::predicateWithFormat("title == %@", title), *context);
    }
    /// Titles of a level by position, with positions that are not theirs.
    QString level(const Preset &parent = {})
    {
        KXFetchRequest request(QString(KXFilterSetPreset::entityName),
            KXPredicate::predicateWithFormat("parent == %@", KXVariantFromRef(parent)));
        QStringList titles;
        for (const auto &object : context->fetch(request.setSortDescriptors({ { u"position"_s } }))) {
            const auto one = KXFilterSetPreset::cast(object);
            titles += one->title() + (one->position() == titles.size() ? QString() : QString::number(one->position()));
        }
        return titles.join(u' ');
    }
    Preset folder1, old, locked;
};

TEST_F(PresetSaveTest, placesByWhatIsSelected)
{
    ASSERT_TRUE(editor->filterSetPresetSavePopover()->isShown());
    EXPECT_EQ(focus(), popover().nameTextField());
    QTest::keyClicks(focus(), u"New"_s);
    QTest::keyClick(focus(), Qt::Key_Return);
    EXPECT_FALSE(editor->filterSetPresetSavePopover()->isShown());
    EXPECT_EQ(level(), u"F Old Locked New"_s);
    const Preset made = named(u"New"_s);
    EXPECT_EQ(made->filterSet()->filters().size(), 3);
    EXPECT_NE(made->filterSet(), edited);
    EXPECT_FALSE(made->lastLoaded().isValid());
    EXPECT_FALSE(context->hasChanges() || context->undoManager()->canUndo());

    editor->saveAsPreset(editor->saveButton());
    select(old);
    EXPECT_EQ(popover().filterSetName(), u"Old"_s);
    select(folder1);
    EXPECT_EQ(popover().filterSetName(), u"Old"_s);
    popover().nameTextField()->setText(u"F"_s); // the folder's title: it goes into it
    QTest::mouseClick(popover().saveButton(), Qt::LeftButton);
    EXPECT_EQ(level(folder1), u"in F F"_s);
    // With another preset selected it goes to the end of the top level.
    select(old);
    popover().setFilterSetName(QString());
    EXPECT_TRUE(popover().saveFilterSetAsPreset());
    EXPECT_EQ(level(), u"F Old Locked New "_s);
    // What must not be overwritten.
    select(locked);
    EXPECT_FALSE(popover().isSaveEnabled() || popover().saveButton()->isEnabled());
    popover().setFilterSetName(u"Locked too"_s);
    EXPECT_TRUE(popover().isSaveEnabled() && popover().saveButton()->isEnabled());
    popover().cancel(); // what was typed is there the next time
    editor->saveAsPreset(editor->saveButton());
    EXPECT_EQ(popover().filterSetName(), u"Locked too"_s);
}

TEST_F(PresetSaveTest, overwritesAfterAQuestion)
{
    int answer = 1, asked = 0;
    std::function<void()> meanwhile;
    const auto runner = KXAlert::setRunner([&](const KXAlert &alert) {
        ++asked;
        EXPECT_EQ(alert.text(), u"Are you sure you want to overwrite the selected filter preset?"_s);
        EXPECT_EQ(alert.buttons(), (QStringList { u"Yes"_s, u"No"_s }));
        if (meanwhile)
            meanwhile();
        return KXAlertAnswer { answer };
    });
    select(old);
    const QUrl before = old->filterSetURI();
    QTest::mouseClick(popover().saveButton(), Qt::LeftButton);
    EXPECT_TRUE(editor->filterSetPresetSavePopover()->isShown());
    EXPECT_EQ(named(u"Old"_s)->filterSetURI(), before);
    EXPECT_TRUE(context->undoManager()->isUndoRegistrationEnabled());

    answer = 0;
    const auto oldSet = old->filterSet();
    const QDateTime loaded = old->lastLoaded();
    QTest::mouseClick(popover().saveButton(), Qt::LeftButton);
    EXPECT_FALSE(editor->filterSetPresetSavePopover()->isShown());
    EXPECT_EQ(level(), u"F Old Locked"_s);
    const Preset now = named(u"Old"_s);
    EXPECT_NE(now, old);
    EXPECT_EQ(now->lastLoaded(), loaded);
    EXPECT_FALSE(oldSet->managedObjectContext());
    EXPECT_FALSE(context->hasChanges() || context->undoManager()->canUndo());

    // The preset goes, or the set, while the question stands.
    editor->saveAsPreset(editor->saveButton());
    select(now);
    meanwhile = [&] {
        context->removeManagedObject(now);
        context->save();
    };
    EXPECT_TRUE(popover().saveFilterSetAsPreset());
    EXPECT_EQ(level(), u"F Locked2 Old3"_s);
    meanwhile = [&] {
        context->removeManagedObject(edited);
        context->save();
    };
    select(named(u"Old"_s));
    EXPECT_FALSE(popover().saveFilterSetAsPreset());
    EXPECT_EQ(level(), u"F Locked2 Old3"_s);
    EXPECT_EQ(asked, 4);
}

TEST_F(PresetSaveTest, aSetEditedInPlaceIsSavedOverItself)
{
    const auto runner = KXAlert::setRunner([](const KXAlert &) { return KXAlertAnswer { 0 }; });
    editor->setFilterSet(old->filterSet());
    context->processPendingChanges();
    const auto more = range(u"1"_s, u"2"_s);
    editor->insertFilter(more);
    editor->saveAsPreset(editor->saveButton());
    select(old);
    popover().save();
    const Preset now = named(u"Old"_s);
    EXPECT_EQ(now->filterSet()->filters().size(), 2);
    EXPECT_EQ(editor->filterSet(), now->filterSet());
    EXPECT_EQ(editor->filterBar()->filterViews().size(), 2);
}
