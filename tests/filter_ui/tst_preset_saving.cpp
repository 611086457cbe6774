// Saving a preset where the store takes nothing: the user is told, nothing is lost and nothing has changed.

#include <gtest/gtest.h>

#include <kestrixkit/filter_ui/KXFilterSetPresetSaveViewController.h>
#include <kestrixkit/foundation/KXUndoManager.h>
#include <kestrixkit/toolkit/KXAlert.h>

#include "filters/Shelf.h"
#include "support/FaultVfs.h"
#include "support/KXTestPrint.h"

using namespace Qt::StringLiterals;

TEST(PresetSavingTest, aStoreThatTakesNothingLosesNothing)
{
    constexpr unsigned writing = FaultVfs::Write | FaultVfs::OpenForWriting | FaultVfs::FileWrite;
    FaultVfs vfs(FaultVfs::MachineWide);
    Shelf shelf;
    KXManagedObjectContext &context = *shelf.context;
    context.setUndoManager(std::make_shared<KXUndoManager>());
    const auto old = shelf.preset(u"Old"_s, shelf.set({ shelf.facet({ u"a"_s }) }));
    const auto edited = shelf.set({ shelf.range(u"1"_s, u"2"_s), shelf.facet({ u"b"_s, u"c"_s }) });
    ASSERT_TRUE(context.save());
    context.undoManager()->removeAllActions();
    const auto runner = KXAlert::setRunner([](const KXAlert &) { return KXAlertAnswer { 0 }; });
    int presented = 0;
    const auto handler = KXApplication::setPresentErrorHandler([&](const KXError &) { ++presented; });
    KXFilterSetPresetSaveViewController popover(shelf.context);
    popover.setFilterSet(edited);
    const auto presets = [&] {
        QStringList titles;
        for (const auto &object : KXFilterSetPreset::findAllInContext(context)) {
            const auto preset = KXFilterSetPreset::cast(object);
            titles += preset->title() + QString::number(preset->filterSet()->filters().size());
        }
        titles.sort();
        return titles.join(u' ');
    };
    for (const bool overwrites : { false, true }) {
        // Fails from its first write on, from its second, and so on, until it is through before anything fails.
        for (qint64 nth = 1;; ++nth) {
            ASSERT_LT(nth, 100);
            popover.filterSetPresetsViewController()->sourceListTreeController()->setSelectedObjects({ old });
            popover.setFilterSetName(overwrites ? u"Old"_s : u"New"_s);
            const QString before = presets();
            presented = 0;
            vfs.failAt(nth, SQLITE_FULL, true, writing);
            const bool saved = popover.saveFilterSetAsPreset();
            const bool failed = vfs.hasFailed();
            vfs.heal();
            EXPECT_TRUE(context.undoManager()->isUndoRegistrationEnabled() && !context.undoManager()->canUndo());
            EXPECT_EQ(presented, failed ? 1 : 0);
            if (saved) {
                EXPECT_TRUE(context.save(nullptr)); // the old one may not have been able to go yet
                break;
            }
            ASSERT_EQ(presets(), before) << nth;
            // What was made and taken back is named as deleted till the next save, which writes nothing of it.
            EXPECT_TRUE(context.insertedObjects().isEmpty() && context.updatedObjects().isEmpty());
        }
    }
    EXPECT_EQ(presets(), u"New2 Old2"_s);
}
