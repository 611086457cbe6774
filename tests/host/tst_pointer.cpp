// Once with a real pointer, on a display of its own: a preset is dragged into a folder.

#include <QProcess>
#include <QTest>

#include <kestrixkit/foundation/KXUndoManager.h>

#include <BrowserWindow.h>
#include <Presets.h>
#include <SourceColumn.h>
#include <support/KXTestProcess.h>

#include "LibraryTest.h"
#include "OwnDisplay.h"

using namespace Qt::StringLiterals;

using PointerTest = LibraryTest;

TEST_F(PointerTest, DISABLED_onThisDisplay)
{
    add(u"a"_s, 120);
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
        const QPoint centre = view.viewport()->mapToGlobal(view.visualRect(row).center());
        return QStringList { QString::number(centre.x()), QString::number(centre.y()) };
    };
    // At the pace of a hand; the pointer rests on the folder before it lets go.
    const QStringList start = place(loose), end = place(tempo);
    QStringList steps { u"mousemove"_s, start[0], start[1], u"mousedown"_s, u"1"_s };
    for (int i = 1; i <= 20; ++i) {
        const auto between = [&](int axis) {
            return QString::number(start[axis].toInt() + (end[axis].toInt() - start[axis].toInt()) * i / 20);
        };
        steps << u"mousemove"_s << between(0) << between(1) << u"sleep"_s << u"0.02"_s;
    }
    steps << u"sleep"_s << u"0.2"_s << u"mouseup"_s << u"1"_s;
    QProcess hand;
    startWithFork(hand);
    hand.start(u"xdotool"_s, steps);
    ASSERT_TRUE(QTest::qWaitFor([&] { return loose->parent() == tempo; }, 60'000)) << "nothing was dropped";
    EXPECT_EQ(loose->position(), 0);
    EXPECT_EQ(window.context()->undoManager()->undoActionName(), u"Move Items"_s);
    EXPECT_FALSE(window.context()->hasChanges());
    ASSERT_TRUE(QTest::qWaitFor([&] { return hand.state() == QProcess::NotRunning; }, 60'000));
}

TEST(Pointer, dragsAPresetIntoAFolder) { runOnOwnDisplay(u"PointerTest.DISABLED_onThisDisplay"_s); }
