// The presets library below its button in the browser's window, by mouse and keys.

#include <QItemSelectionModel>
#include <QLabel>
#include <QTest>

#include <kestrixkit/filter_ui/KXFilterSetPresetDetailsViewController.h>
#include <kestrixkit/filters/KXRangeFilter.h>
#include <kestrixkit/foundation/KXUndoManager.h>
#include <kestrixkit/theme/controls/KXPlaceholderView.h>
#include <kestrixkit/theme/controls/KXThemeableButton.h>
#include <kestrixkit/toolkit/KXAnimationGroup.h>

#include <filters/FilterStrip.h>
#include <filters/PresetLibrary.h>
#include <filters/Presets.h>
#include <places/SourceColumn.h>
#include <window/BrowserWindow.h>

#include "WindowTest.h"

using namespace Qt::StringLiterals;

/// Presets of two genres, one of them included or both left out, and one of an attribute that tracks do not have; the
/// library of presets is open.
class PresetLibraryTest : public WindowTest
{
protected:
    void SetUp() override
    {
        LibraryTest::SetUp();
        KXAnimationGroup::setAnimationsEnabled(false);
        for (int i = 0; i < 12; ++i) {
            const auto track = add(u"t%1"_s.arg(i), 110.0 + 2 * i);
            const auto genre = Genre::findFirstUsingPredicate(
                KXPredicate::predicateWithFormat("name == %@", u"g%1"_s.arg(i % 3)), *context);
            auto own = genre ? Genre::cast(genre) : Genre::createInContext(*context);
            own->setName(u"g%1"_s.arg(i % 3));
            track->addToGenres(own);
        }
        add(u"of no genre"_s, 100.0);
        Presets::install(*context);
        two = Presets::find(*context, u"Genres/g1"_s);
        ASSERT_TRUE(two);
        const auto facet = KXFacetFilter::cast(KXRef<KXManagedObject>(two->filterSet()->sortedFilters().first()));
        const auto more = KXFacetFilterValue::createInContext(*context);
        more->setName(u"g2"_s);
        more->setValue(u"g2"_s);
        more->setOperatorType(KXPredicateOperator::Equal);
        facet->addToValues(more);
        without = two->duplicateInContext(*context);
        without->setTitle(u"Without"_s);
        const auto leftOut = KXFacetFilter::cast(KXRef<KXManagedObject>(without->filterSet()->filters().first()));
        leftOut->setLocalValuePredicateModifier(KXPredicateModifier::All);
        for (const auto &value : leftOut->values())
            value->setOperatorType(KXPredicateOperator::NotEqual);
        unusable = Presets::find(*context, u"Tempo/118 to 124"_s);
        KXRangeFilter::cast(KXRef<KXManagedObject>(unusable->filterSet()->filters().first()))
            ->setLocalValuePredicateKeyPath(u"loudness"_s);
        save();
        openWindow({ 1200, 700 });
        auto *const column = window->sources();
        // As it was left: all tracks.
        ASSERT_TRUE(QTest::qWaitFor([&] { return column->library()->selectedItem(); }));
        QTest::mouseClick(button(), Qt::LeftButton);
        ASSERT_TRUE(presets().isShown());
    }
    void TearDown() override
    {
        WindowTest::TearDown();
        KXAnimationGroup::setAnimationsEnabled(true);
    }
    PresetLibrary &presets() { return *window->filterStrip()->presets(); }
    KXThemeableButton *button() { return presets().filterSetPresetsManagerButton(); }
    KXFilterSetPresetsViewController &library()
    {
        return *presets().filterSetPresetsManagerViewController()->filterSetPresetsViewController();
    }
    KXSourceListView &outline() { return *library().sourceListViewController()->sourceListView(); }
    QPoint select(const KXRef<KXFilterSetPreset> &preset)
    {
        const auto own = window->context()->objectWithID(preset->objectID());
        outline().expandAll();
        library().sourceListTreeController()->setSelectedObjects({ own });
        return outline().visualRect(outline().currentIndex()).center();
    }
    void clickTwice(const QPoint &place)
    {
        QTest::mouseClick(outline().viewport(), Qt::LeftButton, {}, place);
        QTest::mouseDClick(outline().viewport(), Qt::LeftButton, {}, place);
    }
    bool rows(int wanted)
    {
        return QTest::qWaitFor([&] { return window->model()->rowCount() == wanted; }, 60'000);
    }
    QString loaded()
    {
        const auto preset = window->filterStrip()->loadedPreset();
        return (preset ? preset->title() : QString())
            + (window->filterStrip()->isChanged() ? u", changed"_s : QString());
    }

    KXRef<KXFilterSetPreset> two, without, unusable;
};

TEST_F(PresetLibraryTest, aDoubleClickLoadsAllOfAPreset)
{
    clickTwice(select(two));
    EXPECT_FALSE(presets().isShown());
    EXPECT_TRUE(rows(8)) << window->model()->rowCount();
    EXPECT_EQ(loaded(), u"g1"_s);
}

TEST_F(PresetLibraryTest, itsButtonClosesWhatItOpened)
{
    for (const bool shows : { false, true, false, true }) {
        QTest::qWait(0); // no click follows in the same turn
        QTest::mouseClick(button(), Qt::LeftButton);
        EXPECT_EQ(presets().isShown(), shows);
    }
}

TEST_F(PresetLibraryTest, oneOfItsValuesIsLoadedAloneAndCountedAmongAllTracks)
{
    select(two);
    auto *details = library().currentDetailsViewController();
    ASSERT_TRUE(details);
    const QModelIndex values = details->outlineView()->model()->index(0, 0);
    EXPECT_TRUE(QTest::qWaitFor(
        [&] { return details->outlineView()->model()->index(1, 0, values).data(Qt::AccessibleTextRole) == u"g2, 4"_s; },
        60'000));
    details->outlineView()->selectionModel()->select(
        details->outlineView()->model()->index(1, 0, values), QItemSelectionModel::ClearAndSelect);
    QTest::keyClick(details->outlineView(), Qt::Key_Return);
    EXPECT_FALSE(presets().isShown());
    EXPECT_TRUE(rows(4)) << window->model()->rowCount();
    EXPECT_EQ(loaded(), u"g1, changed"_s); // with fewer values
    EXPECT_FALSE(window->context()->hasChanges() || window->context()->undoManager()->canUndo());
}

// Those of no genre do not.
TEST_F(PresetLibraryTest, besideAValueThatIsLeftOutStandsHowManyHaveIt)
{
    select(without);
    const auto *const excluding = library().currentDetailsViewController()->outlineView()->model();
    EXPECT_TRUE(QTest::qWaitFor(
        [&] {
            return excluding->index(0, 0, excluding->index(0, 0))
                .data(Qt::AccessibleTextRole)
                .toString()
                .endsWith(u", 4"_s);
        },
        60'000))
        << qPrintable(excluding->index(0, 0, excluding->index(0, 0)).data(Qt::AccessibleTextRole).toString());
}

TEST_F(PresetLibraryTest, whatIsNotForTracksIsNotLoaded)
{
    clickTwice(select(unusable));
    EXPECT_TRUE(presets().isShown());
    EXPECT_TRUE(library().placeholderView()->isHidden());
    EXPECT_TRUE(library().currentDetailsViewController()->notAvailableLabel()->text().contains(u"loudness"_s));
    EXPECT_EQ(window->model()->rowCount(), 13);
}
