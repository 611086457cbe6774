// With a real pointer, on a display of its own: a preset is dragged into a folder, a filter to another place.

#include <QTest>

#include <kestrixkit/filter_ui/editors/KXFilterBarFilterView.h>
#include <kestrixkit/filter_ui/editors/KXFilterButton.h>
#include <kestrixkit/foundation/KXUndoManager.h>
#include <kestrixkit/toolkit/KXPopoverController.h>

#include <filters/FilterStrip.h>
#include <filters/FilterTypes.h>
#include <filters/Presets.h>
#include <places/SourceColumn.h>
#include <window/BrowserWindow.h>

#include "LibraryTest.h"
#include "OwnDisplay.h"

using namespace Qt::StringLiterals;

using PointerTest = LibraryTest;

TEST_F(PointerTest, DISABLED_onThisDisplay)
{
    add(u"a"_s, 120);
    save();
    ASSERT_TRUE(Presets::install(*context));
    BrowserWindow window(coordinator);
    window.move(0, 0);
    window.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&window));
    KXSourceListViewController &list = *window.sources()->presets();
    KXSourceListView &view = *list.sourceListView();
    const auto tempo = KXFilterSetPreset::cast(list.treeController()->rootNodes().first()->representedObject());
    const auto loose = KXFilterSetPreset::cast(list.treeController()->rootNodes().last()->representedObject());
    ASSERT_TRUE(tempo->isFolder() && !loose->isFolder());
    const auto place = [&](const KXRef<KXFilterSetPreset> &preset) {
        const QModelIndex row
            = list.treeController()->indexForNode(list.treeController()->treeNodeForObject(preset.get()));
        return view.viewport()->mapToGlobal(view.visualRect(row).center());
    };
    dragWithPointer(place(loose), place(tempo), [&] { return loose->parent() == tempo; });
    EXPECT_EQ(loose->position(), 0);
    EXPECT_EQ(window.context()->undoManager()->undoActionName(), u"Move Items"_s);
    EXPECT_FALSE(window.context()->hasChanges());
}

TEST_F(PointerTest, DISABLED_filtersOnThisDisplay)
{
    add(u"a"_s, 120);
    save();
    BrowserWindow window(coordinator);
    window.move(0, 0);
    window.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&window));
    TrackFilters &filters = *window.filterStrip()->filters();
    ASSERT_TRUE(QTest::qWaitFor([&] { return bool(filters.filterSet()); }));
    QList<KXRef<KXFilter>> made;
    for (int i = 0; i < 3; ++i) {
        made += FilterTypes::make(*window.context(), FilterTypes::items()[i].tag, {});
        filters.insertFilter(made.last());
    }
    ASSERT_TRUE(window.context()->save());
    ASSERT_TRUE(QTest::qWaitFor([&] { return filters.filterBar()->filterViews().size() == 3; }));
    QTest::qWait(50);
    const auto place = [&](int view, int x) {
        const QWidget *button = filters.filterBar()->filterViews()[view]->button();
        return button->mapToGlobal(QPoint(x < 0 ? button->width() + x : x, button->height() / 2));
    };
    dragWithPointer(place(2, 12), place(0, 2), [&] { return made[2]->position() == 0; });
    EXPECT_EQ(made[0]->position(), 1);
    EXPECT_EQ(made[1]->position(), 2);
    EXPECT_FALSE(window.context()->hasChanges());
    EXPECT_FALSE(filters.filterPopover() && filters.filterPopover()->isShown()); // it was no click
}

TEST(Pointer, dragsAPresetIntoAFolder) { runOnOwnDisplay(u"PointerTest.DISABLED_onThisDisplay"_s); }

TEST(Pointer, dragsAFilterToTheFront) { runOnOwnDisplay(u"PointerTest.DISABLED_filtersOnThisDisplay"_s); }
