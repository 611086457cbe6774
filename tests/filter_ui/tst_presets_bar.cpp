// The presets bar: its buttons, menus and badges, what loading a preset does, and how presets are counted from there.

#include <QApplication>
#include <QHelpEvent>
#include <QTest>
#include <QToolTip>
#include <gtest/gtest.h>

#include <kestrixkit/filter_ui/editors/KXFilterSetViewController.h>
#include <kestrixkit/filter_ui/presets_bar/KXFilterSetPresetsBarPresetButton.h>
#include <kestrixkit/filter_ui/presets_bar/KXFilterSetPresetsBarViewController.h>
#include <kestrixkit/foundation/KXClock.h>
#include <kestrixkit/foundation/KXUndoManager.h>
#include <kestrixkit/theme/controls/KXThemeableButton.h>
#include <kestrixkit/toolkit/KXAnimationGroup.h>
#include <kestrixkit/toolkit/KXMenu.h>

#include "filters/Shelf.h"
#include "support/KXTestPrint.h"

using namespace Qt::StringLiterals;
using Preset = KXRef<KXFilterSetPreset>;
using Bar = KXFilterSetPresetsBar;
using Button = KXFilterSetPresetsBarPresetButton;
using FolderButton = KXFilterSetPresetsBarPresetFolderButton;

namespace {

/// Maps what has filters, but throws for a set called "bang".
class FussyMapper : public KXFilterSetMapper
{
public:
    bool canMapFilterSet(const KXRef<KXFilterSet> &set) const override { return set && !set->filters().isEmpty(); }
    KXRef<KXFilterSet> createInstanceByMappingFilterSet(
        const KXRef<KXFilterSet> &set, KXManagedObjectContext &inContext) const override
    {
        if (set->title() == "bang"_L1)
            throw std::runtime_error("bang");
        return set->duplicateInContext(inContext);
    }
};

class CountToSeven : public KXFilterSetPresetCountsProvider
{
public:
    using KXFilterSetPresetCountsProvider::KXFilterSetPresetCountsProvider;
    void loadCounts() override { deliverCount(7); }
};

}

class PresetsBarTest : public ::testing::Test, public Shelf, public KXFilterSetPresetsBarViewControllerDelegate
{
protected:
    PresetsBarTest()
    {
        KXAnimationGroup::setAnimationsEnabled(false);
        context->setUndoManager(std::make_shared<KXUndoManager>());
        manager = std::make_shared<KXFilterSetPresetsManager>(context);
        KXFilterSetPresetsManager::setSharedManager(manager);
        manager->registerFilterSetMapper(std::make_shared<FussyMapper>(), context);
        const auto usable = [this](const QString &title) { return preset(title, set({ facet({ u"x"_s }) })); };
        house = usable(u"House"_s);
        folder = folderPreset(
            u"Mood & More"_s, { usable(u"Dark"_s), folderPreset(u"Empty"_s), preset(u"Nothing"_s, set({})) });
        folder->setPosition(1);
        nothing = preset(u"No use"_s, set({}));
        nothing->setPosition(2);
        late = usable(u"Late night music with a long name"_s);
        late->setPosition(3);
        qint64 position = 0;
        for (const Preset &child : { named(u"Dark"_s), named(u"Empty"_s), named(u"Nothing"_s) })
            child->setPosition(position++);
        context->save();
        context->undoManager()->removeAllActions();
        editor = std::make_unique<KXFilterSetViewController>(context);
        controller = std::make_unique<KXFilterSetPresetsBarViewController>(context);
        controller->setDelegate(this);
        controller->setCountsContextIdentifier(u"here"_s);
        controller->setFilterSetViewController(editor.get());
        controller->view()->resize(900, 40);
        controller->view()->show();
        QApplication::setActiveWindow(controller->view());
    }
    ~PresetsBarTest() override
    {
        controller.reset();
        editor.reset();
        KXFilterSetPresetsManager::setSharedManager(nullptr);
        KXAnimationGroup::setAnimationsEnabled(true);
    }
    KXFilterSetPresetCountsScheduler::Provider countsProviderForFilterSetPreset(
        KXFilterSetPresetsBarViewController &, const Preset &preset) override
    {
        return std::make_shared<CountToSeven>(preset, u"here"_s);
    }
    void didLoadFilterSet(KXFilterSetPresetsBarViewController &, const Preset &preset) override
    {
        told += preset ? preset->title() : u"nothing"_s;
    }
    Preset named(const QString &title)
    {
        return KXFilterSetPreset::findFirstUsingPredicate(
            KXPredicate::predicateWithFormat("title == %@", title), *context);
    }
    Bar &bar() { return *controller->filterSetPresetsBar(); }
    QString shown()
    {
        context->processPendingChanges();
        QStringList titles;
        for (const Preset &preset : bar().presets())
            titles += bar().presetButtonForPreset(preset.get())->text(); // there is room for all
        return titles.join(u'|');
    }
    /// "House (12)|Mood & More>|No use-": titles as a menu shows them, folders, and what is disabled.
    static QString items(KXMenu &menu)
    {
        menu.validate();
        QStringList titles;
        for (const QAction *action : menu.actions())
            titles
                += action->text() + (action->menu() ? u">"_s : QString()) + (action->isEnabled() ? QString() : u"-"_s);
        return titles.join(u'|');
    }

    KXFilterSetPresetsManager::Ref manager;
    Preset house, folder, nothing, late;
    QStringList told;
    std::unique_ptr<KXFilterSetViewController> editor;
    std::unique_ptr<KXFilterSetPresetsBarViewController> controller;
};

TEST_F(PresetsBarTest, keepsItsButtonsInStepWithTheStore)
{
    EXPECT_EQ(shown(), u"House|Mood && More|No use|Late night music with a long name"_s);
    const QList<Button *> before = bar().presetButtons();
    house->setTitle(u"Deep"_s);
    EXPECT_EQ(shown(), u"Deep|Mood && More|No use|Late night music with a long name"_s);
    EXPECT_EQ(bar().presetButtons(), before);
    late->setPosition(-1);
    named(u"Dark"_s)->setParent({});
    EXPECT_EQ(shown(), u"Late night music with a long name|Deep|Dark|Mood && More|No use"_s);
    EXPECT_EQ(bar().presetButtons()[0], before[3]);
    context->save();
    {
        const KXUndoGroup group(context->undoManager(), u"x"_s);
        context->removeManagedObject(late);
    }
    EXPECT_EQ(shown(), u"Deep|Dark|Mood && More|No use"_s);
    context->undoManager()->undo();
    EXPECT_EQ(shown(), u"Late night music with a long name|Deep|Dark|Mood && More|No use"_s);

    // Another context makes one, and takes one away.
    const auto other = KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator);
    std::shared_ptr<const KXStoreChange> change;
    const auto token = coordinator->addChangeObserver([&](const auto &made) { change = made; });
    const auto theirs = KXFilterSetPreset::createInContext(*other);
    theirs->setTitle(u"Theirs"_s);
    theirs->setPosition(9);
    other->removeManagedObject(other->objectWithID(nothing->objectID()));
    other->save();
    context->mergeChangesFromStoreChange(change);
    EXPECT_EQ(shown(), u"Late night music with a long name|Deep|Dark|Mood && More|Theirs"_s);

    // A set that gets its first filter makes its preset of use.
    const auto useless = preset(u"Useless"_s, set({}));
    context->processPendingChanges();
    EXPECT_FALSE(bar().presetButtonForPreset(useless.get())->isEnabled());
    EXPECT_FALSE(bar().presetButtonForPreset(useless.get())->toolTip().isEmpty());
    useless->filterSet()->addToFilters(facet({ u"a"_s }));
    context->processPendingChanges();
    EXPECT_TRUE(bar().presetButtonForPreset(useless.get())->isEnabled());
}

TEST_F(PresetsBarTest, whatDoesNotFitIsInAMenu)
{
    int total = 0;
    for (const Button *button : bar().presetButtons())
        total += button->sizeHint().width() + Bar::spacing;
    const auto visible = [&] {
        int count = 0;
        for (const Button *button : bar().presetButtons())
            count += button->isVisible();
        return count;
    };
    EXPECT_EQ(bar().sizeHint().width(), total);
    bar().resize(total, 30);
    EXPECT_EQ(visible(), 4);
    EXPECT_FALSE(bar().overflowButton()->isVisible());
    bar().resize(total - 1, 30);
    EXPECT_EQ(visible(), 3);
    EXPECT_TRUE(bar().overflowButton()->isVisible());
    EXPECT_EQ(items(*bar().overflowMenu()), u"Late night music with a long name"_s);
    bar().setLayoutDirection(Qt::RightToLeft);
    EXPECT_EQ(bar().presetButtons()[0]->geometry().right(), bar().rect().right());
    EXPECT_EQ(bar().overflowButton()->x(), 0);
    // Once one is hidden, all after it are, however small.
    late->setPosition(0);
    house->setPosition(3);
    context->processPendingChanges();
    const int first = bar().presetButtons()[0]->sizeHint().width();
    bar().resize(first + Bar::overflowSpacing + bar().overflowButton()->sizeHint().width() - 1, 30);
    EXPECT_EQ(visible(), 0);
    EXPECT_EQ(items(*bar().overflowMenu()), u"Late night music with a long name|Mood && More>|No use-|House"_s);
    bar().resize(10, 30);
    EXPECT_TRUE(bar().overflowButton()->isVisible());
    // A shorter title finds room, and a badge that came while the bar was hidden its own.
    bar().resize(total - 1, 30);
    EXPECT_EQ(visible(), 3);
    late->setTitle(u"x"_s);
    context->processPendingChanges();
    QTest::qWait(0);
    EXPECT_EQ(visible(), 4);
    EXPECT_FALSE(bar().overflowButton()->isVisible());
    EXPECT_LT(bar().sizeHint().width(), total);
    bar().hide();
    house->setCount(1500, u"here"_s);
    bar().show();
    const Button *const counted = bar().presetButtonForPreset(house.get());
    EXPECT_EQ(counted->width(), counted->sizeHint().width());
    // The badge of one that is not seen goes, and with it the need to hide it.
    named(u"x"_s)->setCount(1500, u"here"_s);
    QTest::qWait(0);
    bar().resize(bar().sizeHint().width() - 1, 30);
    EXPECT_EQ(visible(), 3);
    const int withBadge = bar().sizeHint().width();
    bar().presets().constLast()->setCount(0, u"here"_s);
    QTest::qWait(0);
    EXPECT_LT(bar().sizeHint().width(), withBadge);
    EXPECT_EQ(visible(), 4);
}

TEST_F(PresetsBarTest, buttonsSlideToTheirPlaces)
{
    KXAnimationGroup::setAnimationsEnabled(true);
    const Button *const button = bar().presetButtons()[0];
    EXPECT_EQ(button->x(), 0);
    preset(u"First"_s, set({ facet({ u"x"_s }) }))->setPosition(-1);
    context->processPendingChanges();
    QTest::qWait(30);
    const int place = bar().presetButtons()[0]->sizeHint().width() + Bar::spacing;
    EXPECT_LT(button->x(), place);
    EXPECT_TRUE(QTest::qWaitFor([&] { return button->x() == place; }));
}

TEST_F(PresetsBarTest, menusAndBadgesCount)
{
    const auto menu = [&] { return static_cast<FolderButton *>(bar().presetButtons()[1])->presetsMenu(); };
    EXPECT_EQ(items(*menu()), u"Dark|Empty>|Nothing-"_s);
    EXPECT_EQ(items(*static_cast<KXMenu *>(menu()->actions()[1]->menu())), u"No Presets-"_s);
    EXPECT_FALSE(menu()->actions()[2]->toolTip() == menu()->actions()[2]->text());
    Button *const button = bar().presetButtons()[1];
    EXPECT_TRUE(button->badgeImage().isNull());
    named(u"Dark"_s)->setCount(1500, u"here"_s);
    named(u"Nothing"_s)->setCount(12, u"elsewhere"_s);
    EXPECT_EQ(items(*menu()), u"Dark (1500)|Empty>|Nothing-"_s);
    EXPECT_EQ(button->count(), 1500);
    EXPECT_FALSE(button->badgeImage().isNull());
    EXPECT_EQ(button->badgeImage().deviceIndependentSize().height(), 14);
    const KXClockPin pin;
    KXClock::setLocale(QLocale(QLocale::English, QLocale::UnitedKingdom));
    QHelpEvent asked(QEvent::ToolTip, { 2, 2 }, button->mapToGlobal(QPoint(2, 2)));
    QCoreApplication::sendEvent(button, &asked);
    EXPECT_EQ(QToolTip::text(), u"Mood & More: 1,500"_s);
    QToolTip::hideText();
    EXPECT_EQ(button->accessibleName(), u"Mood & More, 1500"_s);
    house->setCount(0, u"here"_s);
    EXPECT_TRUE(bar().presetButtons()[0]->badgeImage().isNull());
    // The menu stays open while its preset goes.
    menu()->validate();
    QAction *const item = menu()->actions()[0];
    context->removeManagedObject(named(u"Dark"_s));
    context->save();
    item->trigger();
    EXPECT_FALSE(editor->filterSet());
    // Or is of no use any more.
    late->setParent(folder);
    context->processPendingChanges();
    menu()->validate();
    QAction *const last = menu()->actions().constLast();
    EXPECT_EQ(last->text(), late->title());
    for (const auto &filter : late->filterSet()->filters())
        context->removeManagedObject(filter);
    context->processPendingChanges();
    last->trigger();
    EXPECT_FALSE(editor->filterSet());
    EXPECT_FALSE(late->lastLoaded().isValid());
    // However often it is filled, there is one menu for each folder below.
    for (int i = 0; i < 5; ++i)
        menu()->validate();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    EXPECT_EQ(menu()->findChildren<KXMenu *>(Qt::FindDirectChildrenOnly).size(), 1);
}

TEST_F(PresetsBarTest, countsThatGrowOldSaySoWhenTheyAreLookedAt)
{
    Button *const button = bar().presetButtons()[0];
    const QString title = button->accessibleName();
    const QDateTime counted(QDate(2024, 5, 3), QTime(12, 0), Qt::UTC);
    {
        const KXClockPin pin(counted);
        house->setCount(1234, u"here"_s, counted);
        EXPECT_EQ(button->accessibleName(), title + u", 1234, counted just now"_s);
    }
    const KXClockPin pin(counted.addSecs(300));
    KXClock::setLocale(QLocale(QLocale::English, QLocale::UnitedKingdom));
    QHelpEvent asked(QEvent::ToolTip, { 2, 2 }, button->mapToGlobal(QPoint(2, 2)));
    QCoreApplication::sendEvent(button, &asked);
    EXPECT_EQ(QToolTip::text(), title + u": 1,234, counted 5 minutes ago"_s);
    QToolTip::hideText();
    QFocusEvent focused(QEvent::FocusIn);
    QCoreApplication::sendEvent(button, &focused);
    EXPECT_EQ(button->accessibleName(), title + u", 1234, counted 5 minutes ago"_s);
    house->setCount(1234, u"here"_s, KXClock::now());
    EXPECT_EQ(button->accessibleName(), title + u", 1234, counted just now"_s) << "the same number, counted anew";
    named(u"Dark"_s)->setCount(3, u"here"_s, counted);
    KXMenu *const menu = static_cast<FolderButton *>(bar().presetButtons()[1])->presetsMenu();
    menu->validate();
    EXPECT_EQ(menu->actions()[0]->toolTip(), u"counted 5 minutes ago"_s);
}

TEST_F(PresetsBarTest, loadsWithoutAStepToUndo)
{
    const auto stored = house->filterSet();
    QTest::mouseClick(bar().presetButtons()[0], Qt::LeftButton);
    ASSERT_TRUE(editor->filterSet());
    EXPECT_NE(editor->filterSet(), stored);
    EXPECT_EQ(editor->filterSet()->filters().size(), 1);
    EXPECT_TRUE(house->lastLoaded().isValid());
    EXPECT_FALSE(context->hasChanges() || context->undoManager()->canUndo());
    const auto loaded = editor->filterSet();

    // By a menu, and by keys.
    static_cast<FolderButton *>(bar().presetButtons()[1])->presetsMenu()->validate();
    static_cast<FolderButton *>(bar().presetButtons()[1])->presetsMenu()->actions()[0]->trigger();
    EXPECT_NE(editor->filterSet(), loaded);
    EXPECT_TRUE(named(u"Dark"_s)->lastLoaded().isValid());
    bar().presetButtons()[1]->setFocus();
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_Right);
    EXPECT_EQ(QApplication::focusWidget(), bar().presetButtons()[3]); // past the one that is of no use
    const auto dark = editor->filterSet();
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_Space);
    EXPECT_NE(editor->filterSet(), dark);

    // The library says which one it was, selected or not.
    told.clear();
    for (QObject *child : controller->children()) {
        if (auto *const library = qobject_cast<KXFilterSetPresetsManagerViewController *>(child))
            library->loadPreset(house);
    }
    EXPECT_EQ(told, QStringList { u"House"_s });

    // A mapper that throws, no manager, no preset.
    const auto last = editor->filterSet();
    house->filterSet()->setTitle(u"bang"_s);
    context->save();
    context->undoManager()->removeAllActions();
    house->setLastLoaded({});
    controller->loadPreset(house);
    EXPECT_FALSE(house->lastLoaded().isValid());
    EXPECT_TRUE(context->undoManager()->isUndoRegistrationEnabled());
    controller->loadPreset(Preset());
    KXFilterSetPresetsManager::setSharedManager(nullptr);
    controller->loadPreset(late);
    EXPECT_EQ(editor->filterSet(), last);
    KXFilterSetPresetsManager::setSharedManager(manager);
}

TEST_F(PresetsBarTest, countsWhileTheLibraryIsShown)
{
    EXPECT_TRUE(controller->countOperations().isEmpty());
    EXPECT_TRUE(controller->presetsNeedingCountUpdate().contains(house));
    QTest::mouseClick(controller->filterSetPresetsManagerButton(), Qt::LeftButton);
    ASSERT_TRUE(controller->filterSetPresetsManagerPopover()->isShown());
    EXPECT_TRUE(controller->presetsNeedingCountUpdate().isEmpty());
    EXPECT_TRUE(QTest::qWaitFor([&] { return bar().presetButtons()[1]->count() == 14; }));
    EXPECT_EQ(controller->filterSetPresetsManagerButton()->themeStyleName(), u"filterPresetsManagerOnButtonStyles"_s);
    // Loading from the library closes it; the button closes it, too.
    KXFilterSetPresetsManagerViewController &library = *controller->filterSetPresetsManagerViewController();
    library.filterSetPresetsViewController()->sourceListTreeController()->setSelectedObjects({ house });
    library.load();
    EXPECT_FALSE(controller->filterSetPresetsManagerPopover()->isShown());
    EXPECT_TRUE(editor->filterSet());
    EXPECT_EQ(controller->filterSetPresetsManagerButton()->themeStyleName(), u"filterPresetsManagerOffButtonStyles"_s);
    for (const bool shows : { true, false, true, false }) {
        QTest::qWait(0);
        QTest::mouseClick(controller->filterSetPresetsManagerButton(), Qt::LeftButton);
        EXPECT_EQ(controller->filterSetPresetsManagerPopover()->isShown(), shows);
    }
}
