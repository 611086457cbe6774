// The guide's pages about views.

#include <QApplication>
#include <QHeaderView>
#include <QMenu>
#include <QStandardItemModel>

#include <kestrixkit/filters/KXFilterSetPreset.h>
#include <kestrixkit/filters/KXFilters.h>
#include <kestrixkit/filters/KXLivePresetCounts.h>
#include <kestrixkit/filters/KXRangeFilter.h>
#include <kestrixkit/source_list/KXSourceListViewController.h>
#include <kestrixkit/theme/KXDarkTheme.h>
#include <kestrixkit/theme/KXLightTheme.h>
#include <kestrixkit/theme/KXThemeManager.h>
#include <kestrixkit/toolkit/KXLiveListModel.h>
#include <kestrixkit/util/views/KXTableView.h>

#include "GuideLibrary.h"

using namespace Guide;

namespace {

//! [own-theme]
class NightTheme : public KXDarkTheme
{
public:
    QColor tableGridColour() const override { return u"#303030"_s; }
};
//! [own-theme]

/// What a list tells.
struct Selection : KXSourceListViewControllerDelegate
{
    QString title;
    //! [selection]
    void itemWasSelected(KXSourceListViewController &, KXSourceListItem *item) override
    {
        title = item ? item->title() : QString(); // null: nothing is selected any more
    }
    //! [selection]
};

}

class GuideViews : public Guide::LibraryTest
{
protected:
    GuideViews()
        : LibraryTest({ KXFilters::managedObjectModel() })
    {
        KXFilters::registerEntities();
    }
};

TEST_F(GuideViews, showATable)
{
    //! [table]
    KXLiveListModel tracks(context, u"Track"_s,
        { { .keyPath = Track::titleKey, .title = u"Title"_s, .isEditable = true },
            { .keyPath = Track::bpmKey, .title = u"BPM"_s, .alignment = Qt::AlignRight } },
        { { Track::titleKey } });
    KXTableView table;
    table.setModel(&tracks);
    //! [table]
    ASSERT_EQ(tracks.rowCount(), 2);
    EXPECT_EQ(tracks.index(0, 0).data(), u"Night Signal"_s);
    //! [table-columns]
    table.setTableColumns({
        { .identifier = u"title"_s, .width = 240, .sortDescriptorPrototype = { Track::titleKey } },
        { .identifier = u"bpm"_s, .width = 60, .sortDescriptorPrototype = { Track::bpmKey, false } },
    });
    table.setColumnPresetsName(u"tracks"_s); // widths and order are kept, and tables of that name in step
    //! [table-columns]
    EXPECT_EQ(table.horizontalHeader()->count(), 2);
    //! [table-predicate]
    tracks.setPredicate(KXPredicate::predicateWithFormat("bpm >= 120"));
    const auto track = Track::cast(tracks.object(0));
    //! [table-predicate]
    ASSERT_TRUE(track);
    track->setBpm(90);
    context->processPendingChanges();
    EXPECT_EQ(tracks.rowCount(), 0) << "the list follows";
}

TEST_F(GuideViews, showASourceList)
{
    const auto crate = Crate::createInContext(*context);
    crate->setTitle(u"Friday"_s);
    //! [source-list]
    KXTreeController crates(context, { .entityName = u"Crate"_s, .sortDescriptors = { { Crate::positionKey } } });
    KXSourceListViewController list;
    list.setTreeController(&crates);
    QWidget *const view = list.view(); // for a splitter or a layout
    //! [source-list]
    ASSERT_TRUE(view);
    Selection selection;
    list.setDelegate(&selection);
    list.selectItem(crate.get());
    EXPECT_EQ(selection.title, u"Friday"_s);
}

TEST_F(GuideViews, keepAPresetWithItsCount)
{
    //! [preset]
    const auto set = KXFilterSet::createInContext(*context);
    set->addToFilters(KXRangeFilter::createWithKeyPath(Track::bpmKey, 120, 128, *context));
    const auto preset = KXFilterSetPreset::createInContext(*context);
    preset->setTitle(u"Peak time"_s);
    preset->setFilterSet(set);
    context->save();
    //! [preset]
    //! [preset-counts]
    KXLivePresetCounts counts(
        context, { .context = context, .entityName = u"Track"_s, .countsContextIdentifier = u"library"_s });
    counts.update(); // else in the next turn
    const std::optional<qint64> badge = preset->countForContextIdentifier(u"library"_s);
    //! [preset-counts]
    EXPECT_EQ(badge, 1);
    //! [preset-list]
    KXTreeController presets(
        context, { .entityName = u"KXFilterSetPreset"_s, .sortDescriptors = { { KXFilterSetPreset::positionKey } } });
    KXSourceListViewController list;
    list.setTreeController(&presets);
    list.setCountsContextIdentifier(u"library"_s); // whose numbers its badges show
    //! [preset-list]
    EXPECT_EQ(list.sourceListView()->cellForRow(presets.index(0, 0)).count, 1);
    KXLiveListModel tracks(context, u"Track"_s, { { .keyPath = Track::titleKey } });
    //! [preset-load]
    tracks.setPredicate(preset->filterSet()->representedLocalPredicateWithKeyPath());
    //! [preset-load]
    EXPECT_EQ(tracks.rowCount(), 1);
}

TEST_F(GuideViews, wearATheme)
{
    const QPalette before = QApplication::palette();
    QApplication &application = *qApp;
    const bool isDark = true;
    //! [theme]
    std::shared_ptr<KXTheme> theme;
    if (isDark)
        theme = std::make_shared<KXDarkTheme>();
    else
        theme = std::make_shared<KXLightTheme>();
    KXTheme::apply(application, theme);
    //! [theme]
    EXPECT_EQ(KXThemeManager::sharedManager().theme(), theme);
    KXTheme::apply(application, std::make_shared<NightTheme>());
    EXPECT_EQ(KXThemeManager::sharedManager().theme()->tableGridColour().name(), u"#303030"_s);
    KXTheme::apply(application, nullptr);
    QApplication::setPalette(before);
}

TEST_F(GuideViews, standWhereItemModelsStood)
{
    KXLiveListModel tracks(context, u"Track"_s, { { .keyPath = Track::titleKey, .isEditable = true } });
    //! [item-views]
    tracks.setData(tracks.index(0, 0), u"Renamed"_s); // one step to undo, and saved
    context->undoManager()->undo();
    //! [item-views]
    EXPECT_EQ(Track::countOfUsingPredicate(KXPredicate::predicateWithFormat("title == 'Renamed'"), *context), 0);
}
