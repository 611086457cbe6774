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

#include <BrowserWindow.h>
#include <FilterStrip.h>
#include <PresetLibrary.h>
#include <Presets.h>
#include <SourceColumn.h>

#include "LibraryTest.h"

using namespace Qt::StringLiterals;

using PresetLibraryTest = LibraryTest;

TEST_F(PresetLibraryTest, filtersTheTable)
{
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
    const auto two = Presets::find(*context, u"Genres/g1"_s);
    ASSERT_TRUE(two);
    const auto facet = KXFacetFilter::cast(KXRef<KXManagedObject>(two->filterSet()->sortedFilters().first()));
    const auto more = KXFacetFilterValue::createInContext(*context);
    more->setName(u"g2"_s);
    more->setValue(u"g2"_s);
    more->setOperatorType(KXPredicateOperator::Equal);
    facet->addToValues(more);
    const auto without = two->duplicateInContext(*context);
    without->setTitle(u"Without"_s);
    const auto leftOut = KXFacetFilter::cast(KXRef<KXManagedObject>(without->filterSet()->filters().first()));
    leftOut->setLocalValuePredicateModifier(KXPredicateModifier::All);
    for (const auto &value : leftOut->values())
        value->setOperatorType(KXPredicateOperator::NotEqual);
    const auto unusable = Presets::find(*context, u"Tempo/118 to 124"_s);
    KXRangeFilter::cast(KXRef<KXManagedObject>(unusable->filterSet()->filters().first()))
        ->setLocalValuePredicateKeyPath(u"loudness"_s);
    save();

    BrowserWindow window(coordinator);
    window.resize(1200, 700);
    window.show();
    auto *const column = window.findChild<SourceColumn *>();
    ASSERT_TRUE(QTest::qWaitFor([&] { return column->library()->selectedItem(); })); // as it was left: all tracks
    PresetLibrary *const presets = window.filterStrip()->presets();
    KXThemeableButton *const button = presets->filterSetPresetsManagerButton();
    QTest::mouseClick(button, Qt::LeftButton);
    ASSERT_TRUE(presets->isShown());
    KXFilterSetPresetsViewController &library
        = *presets->filterSetPresetsManagerViewController()->filterSetPresetsViewController();
    KXSourceListView &outline = *library.sourceListViewController()->sourceListView();
    const auto select = [&](const KXRef<KXFilterSetPreset> &preset) {
        const auto own = window.context()->objectWithID(preset->objectID());
        outline.expandAll();
        library.sourceListTreeController()->setSelectedObjects({ own });
        return outline.visualRect(outline.currentIndex()).center();
    };
    const auto clickTwice = [&](const QPoint &place) {
        QTest::mouseClick(outline.viewport(), Qt::LeftButton, {}, place);
        QTest::mouseDClick(outline.viewport(), Qt::LeftButton, {}, place);
    };
    const auto rows
        = [&](int wanted) { return QTest::qWaitFor([&] { return window.model()->rowCount() == wanted; }, 60'000); };

    // All of it.
    clickTwice(select(two));
    EXPECT_FALSE(presets->isShown());
    EXPECT_TRUE(rows(8)) << window.model()->rowCount();
    const auto loaded = [&] {
        const auto preset = window.filterStrip()->loadedPreset();
        return (preset ? preset->title() : QString())
            + (window.filterStrip()->isChanged() ? u", changed"_s : QString());
    };
    EXPECT_EQ(loaded(), u"g1"_s);

    // The button closes what it opened.
    for (const bool shows : { true, false, true, false, true }) {
        QTest::qWait(0); // no click follows in the same turn
        QTest::mouseClick(button, Qt::LeftButton);
        EXPECT_EQ(presets->isShown(), shows);
    }

    // One of its values, which are counted among all tracks.
    select(two);
    auto *details = library.currentDetailsViewController();
    ASSERT_TRUE(details);
    const QModelIndex values = details->outlineView()->model()->index(0, 0);
    EXPECT_TRUE(QTest::qWaitFor(
        [&] { return details->outlineView()->model()->index(1, 0, values).data(Qt::AccessibleTextRole) == u"g2, 4"_s; },
        60'000));
    details->outlineView()->selectionModel()->select(
        details->outlineView()->model()->index(1, 0, values), QItemSelectionModel::ClearAndSelect);
    QTest::keyClick(details->outlineView(), Qt::Key_Return);
    EXPECT_FALSE(presets->isShown());
    EXPECT_TRUE(rows(4)) << window.model()->rowCount();
    EXPECT_EQ(loaded(), u"g1, changed"_s); // with fewer values
    EXPECT_FALSE(window.context()->hasChanges() || window.context()->undoManager()->canUndo());

    // Beside a value that is left out stands how many have it; those of no genre do not.
    QTest::qWait(0);
    button->click();
    select(without);
    const auto *const excluding = library.currentDetailsViewController()->outlineView()->model();
    EXPECT_TRUE(QTest::qWaitFor(
        [&] {
            return excluding->index(0, 0, excluding->index(0, 0))
                .data(Qt::AccessibleTextRole)
                .toString()
                .endsWith(u", 4"_s);
        },
        60'000))
        << qPrintable(excluding->index(0, 0, excluding->index(0, 0)).data(Qt::AccessibleTextRole).toString());

    // What is not for tracks.
    clickTwice(select(unusable));
    EXPECT_TRUE(presets->isShown());
    EXPECT_TRUE(library.placeholderView()->isHidden());
    EXPECT_TRUE(library.currentDetailsViewController()->notAvailableLabel()->text().contains(u"loudness"_s));
    EXPECT_EQ(window.model()->rowCount(), 4);
    KXAnimationGroup::setAnimationsEnabled(true);
}
