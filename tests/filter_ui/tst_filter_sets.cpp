// The source list of filters: check boxes, adding below what is selected, deleting as one step.

#include <QTest>
#include <gtest/gtest.h>

#include <kestrixkit/filter_ui/editors/KXFilterSetsViewController.h>
#include <kestrixkit/filter_ui/editors/KXRangeFilterViewController.h>
#include <kestrixkit/foundation/KXUndoManager.h>
#include <kestrixkit/source_list/KXSourceListView.h>
#include <kestrixkit/theme/controls/KXThemeableButton.h>
#include <kestrixkit/theme/controls/KXThemeableTextField.h>
#include <kestrixkit/toolkit/KXAnimationGroup.h>
#include <kestrixkit/toolkit/KXMenu.h>

#include "filters/Shelf.h"
#include "support/KXTestPrint.h"

using namespace Qt::StringLiterals;

class RangeSets : public KXFilterSetsViewController
{
public:
    using KXFilterSetsViewController::KXFilterSetsViewController;
    void addFilterMenuItems(KXMenu &menu) override
    {
        menu.addItem(u"Tempo"_s, this, [this] {
            const auto filter = KXRangeFilter::createInContext(*context());
            filter->setName(u"new"_s);
            insertFilter(filter);
        });
    }
    std::unique_ptr<KXViewController> filterViewControllerForFilter(const KXRef<KXFilter> &filter) override
    {
        return std::make_unique<KXRangeFilterViewController>(KXRangeFilter::cast(KXRef<KXManagedObject>(filter)));
    }
};

class FilterSetsTest : public ::testing::Test, public Shelf
{
protected:
    FilterSetsTest()
    {
        KXAnimationGroup::setAnimationsEnabled(false);
        context->setUndoManager(std::make_shared<KXUndoManager>());
        for (const QString &name : { u"a"_s, u"b"_s, u"c"_s }) {
            const auto filter = make<KXRangeFilter>();
            filter->setName(name);
            filter->setPosition(name.at(0).unicode() - u'a');
        }
        context->save();
        context->undoManager()->removeAllActions();
        sets = std::make_unique<RangeSets>(context);
        sets->view()->resize(300, 400);
        sets->view()->show();
        QApplication::setActiveWindow(sets->view());
        list().setFocus();
        QTest::qWait(0);
    }
    ~FilterSetsTest() override
    {
        sets.reset();
        KXAnimationGroup::setAnimationsEnabled(true);
    }
    KXSourceListView &list() { return *sets->sourceListViewController()->sourceListView(); }
    /// "a0 b1(new0) c2-": filters of a level with their positions, and those that are off.
    QString shown(const QModelIndex &above = {})
    {
        context->processPendingChanges();
        QStringList parts;
        for (int i = 0; i < list().model()->rowCount(above); ++i) {
            const QModelIndex row = list().model()->index(i, 0, above);
            const auto filter = filterAt(row);
            const QString below = shown(row);
            parts += filter->name().value_or(u"?"_s) + QString::number(filter->position())
                + (row.data(Qt::CheckStateRole) == Qt::Checked ? QString() : u"-"_s)
                + (below.isEmpty() ? QString() : u'(' + below + u')');
        }
        return parts.join(u' ');
    }
    KXRef<KXFilter> filterAt(const QModelIndex &row)
    {
        return KXFilter::cast(list().treeController()->nodeForIndex(row)->representedObject());
    }
    QModelIndex row(int index) { return list().model()->index(index, 0); }

    std::unique_ptr<RangeSets> sets;
};

TEST_F(FilterSetsTest, addsSwitchesAndDeletes)
{
    // Its check box, by mouse and by Space; neither selects another row nor can be undone.
    const QRect second = list().visualRect(row(1));
    QTest::mouseClick(list().viewport(), Qt::LeftButton, {}, QPoint(second.left() + 8, second.center().y()));
    EXPECT_EQ(shown(), u"a0 b1- c2"_s);
    list().setCurrentIndex(row(1));
    QTest::keyClick(&list(), Qt::Key_Space);
    EXPECT_EQ(shown(), u"a0 b1 c2"_s);
    EXPECT_FALSE(context->hasChanges() || context->undoManager()->canUndo());

    // Added below what is selected, else at the end of the top; its editor opens, and nothing is saved.
    sets->addFilterButton()->menu()->aboutToShow();
    sets->addFilterButton()->menu()->actions()[0]->trigger();
    EXPECT_EQ(shown(), u"a0 b1(new0) c2"_s);
    ASSERT_TRUE(sets->filterPopover());
    EXPECT_EQ(sets->selectedFilter()->name(), u"new"_s);
    EXPECT_TRUE(context->hasChanges() && context->undoManager()->canUndo());
    QTest::qWait(0);
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_Return);
    EXPECT_FALSE(sets->filterPopover());
    sets->sourceListViewController()->treeController()->setSelectedObjects({});
    sets->addFilterButton()->menu()->aboutToShow();
    sets->addFilterButton()->menu()->actions()[0]->trigger();
    EXPECT_EQ(shown(), u"a0 b1(new0) c2 new3"_s);
    context->save();
    context->undoManager()->removeAllActions();

    // A filter above takes those below along; the numbers of the rest stay.
    list().expandAll();
    sets->sourceListViewController()->treeController()->setSelectedObjects(
        { filterAt(row(1)), filterAt(row(1).model()->index(0, 0, row(1))) });
    QTest::keyClick(&list(), Qt::Key_Delete);
    EXPECT_EQ(shown(), u"a0 c2 new3"_s);
    EXPECT_FALSE(sets->filterPopover());
    EXPECT_EQ(context->undoManager()->undoActionName(), u"Delete Filters"_s);
    context->undoManager()->undo();
    EXPECT_EQ(shown(), u"a0 b1(new0) c2 new3"_s);

    QTest::keyClicks(sets->searchField(), u"C"_s);
    EXPECT_EQ(shown(), u"c2"_s);
    sets->searchField()->clear();
    EXPECT_EQ(shown(), u"a0 b1(new0) c2 new3"_s);
    RangeSets nothing(nullptr);
    (void)nothing.view();
    nothing.deleteFilter();
    nothing.doubleClick();
}
