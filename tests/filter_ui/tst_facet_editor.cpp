// The editors that say beforehand what a choice would make of the list: facets and distributions.

#include <numeric>

#include <QAbstractItemModelTester>
#include <QApplication>
#include <QLabel>
#include <QSignalSpy>
#include <QTest>
#include <gtest/gtest.h>

#include <kestrixkit/filter_ui/editors/KXDistributionFilterViewController.h>
#include <kestrixkit/filter_ui/editors/KXFacetFilterValueDelegate_p.h>
#include <kestrixkit/filter_ui/editors/KXFacetFilterViewController.h>
#include <kestrixkit/foundation/KXUndoManager.h>
#include <kestrixkit/theme/controls/KXThemeableTableView.h>
#include <kestrixkit/theme/controls/KXThemeableTextField.h>
#include <kestrixkit/toolkit/KXAnimationGroup.h>
#include <kestrixkit/toolkit/KXPopoverController.h>

#include "filters/Shelf.h"
#include "support/KXTestPrint.h"

using namespace Qt::StringLiterals;
using Model = KXFacetFilterValuesModel;
using State = Model::State;

class FacetEditorTest : public ::testing::Test, public Shelf
{
protected:
    FacetEditorTest()
    {
        KXAnimationGroup::setAnimationsEnabled(false);
        context->setUndoManager(std::make_shared<KXUndoManager>());
        // Three things in C, two in Am, one in Dm; the slow ones are all in C.
        const QStringList keys { u"C"_s, u"C"_s, u"C"_s, u"Am"_s, u"Am"_s, u"Dm"_s };
        for (int i = 0; i < keys.size(); ++i) {
            const auto thing = make<Thing>();
            thing->setKey(keys[i]);
            thing->setBpm(120 + 2 * i);
        }
        filter = facet({});
        filter->setEnabled(true);
        filter->setName(u"Key"_s);
        tempo = range(u"123"_s, u"200"_s);
        edited = set({ filter, tempo });
        context->save();
        context->undoManager()->removeAllActions();
        live = std::make_unique<KXLiveCounts>(context, u"Thing"_s);
        counts = std::make_unique<KXFilterSetWhatIfCounts>(*live);
        counts->setFilterSet(edited);
        editor = std::make_unique<KXFacetFilterViewController>(filter);
        editor->setWhatIfCounts(counts.get());
        editor->setFilteredEntity(coordinator->model()->entity(u"Thing"_s));
        offer({ u"Am"_s, u"C"_s, u"Dm"_s, u"É"_s });
    }
    ~FacetEditorTest() override { KXAnimationGroup::setAnimationsEnabled(true); }

    void offer(const QStringList &names)
    {
        QList<Model::Offer> offers;
        for (const QString &name : names)
            offers.append({ name, name });
        editor->setOffers(offers);
    }
    void open()
    {
        window.resize(600, 400);
        window.show();
        QApplication::setActiveWindow(&window);
        popover = std::make_unique<KXPopoverController>(editor.get());
        popover->setAnimates(false);
        popover->showRelativeTo(&window, Qt::BottomEdge);
        QTest::qWait(0);
    }
    QStringList rows() const
    {
        QTest::qWait(0); // counts follow in the next turn
        QStringList rows;
        for (int i = 0; i < model().rowCount(); ++i) {
            const QModelIndex index = model().index(i);
            rows.append(u"%1%2 %3/%4"_s.arg(QStringList { QString(), u"+"_s, u"-"_s }[int(model().state(i))],
                index.data().toString(), index.data(Model::AddedRole).toString(),
                index.data(Model::ExcludedRole).toString()));
        }
        return rows;
    }
    Model &model() const { return *editor->valuesModel(); }
    QWidget *focus() { return QApplication::focusWidget(); }
    void click(int row, bool atEnd, Qt::KeyboardModifiers modifiers = {})
    {
        const QRect rect = editor->valuesView()->visualRect(model().index(row));
        const QPoint place = atEnd
            ? KXFacetFilterValueDelegate::exclusionRect(rect, editor->valuesView()->layoutDirection()).center()
            : rect.center();
        QTest::mouseClick(editor->valuesView()->viewport(), Qt::LeftButton, modifiers, place);
    }

    KXRef<KXFacetFilter> filter;
    KXRef<KXRangeFilter> tempo;
    KXRef<KXFilterSet> edited;
    std::unique_ptr<KXLiveCounts> live;
    std::unique_ptr<KXFilterSetWhatIfCounts> counts;
    std::unique_ptr<KXFacetFilterViewController> editor;
    QWidget window;
    std::unique_ptr<KXPopoverController> popover;
};

TEST_F(FacetEditorTest, offersWhatBringsMostFirstAndChoosesByMouse)
{
    const QAbstractItemModelTester tester(&model(), QAbstractItemModelTester::FailureReportingMode::Fatal);
    EXPECT_EQ(rows(), (QStringList { u"Am 2/2"_s, u"C 1/3"_s, u"Dm 1/3"_s, u"É 0/4"_s }));
    EXPECT_TRUE(model().index(3).data(Model::EmptiesRole).toBool());
    EXPECT_FALSE(model().index(3).data(Model::CellRole).value<KXSourceListCell>().isEnabled);
    EXPECT_TRUE(model().index(2).data(Model::CellRole).value<KXSourceListCell>().isEnabled);
    open();
    click(2, false);
    EXPECT_EQ(rows(), (QStringList { u"Am 3/1"_s, u"C 2/1"_s, u"+Dm 1/3"_s, u"É 1/1"_s })) << "and no row moved";
    click(0, true);
    EXPECT_EQ(model().state(0), State::Excluded);
    EXPECT_EQ(counts->count(), 1);
    click(3, false, Qt::AltModifier);
    EXPECT_EQ(model().state(3), State::Excluded) << "pale, but it can be chosen";
    click(3, true);
    click(2, false);
    EXPECT_EQ(model().state(2), State::NotChosen);
    EXPECT_EQ(filter->values().size(), 1);
    EXPECT_FALSE(context->hasChanges());
    EXPECT_FALSE(context->undoManager()->canUndo());
    EXPECT_TRUE(model().index(0).data(Qt::AccessibleTextRole).toString().contains(u"excluded"_s));
    popover->close();
    EXPECT_EQ(model().state(0), State::Excluded);
}

TEST_F(FacetEditorTest, isUsedFromTheKeyboardAlone)
{
    open();
    EXPECT_EQ(focus(), editor->searchField());
    QTest::keyClicks(focus(), u"e"_s);
    EXPECT_EQ(rows(), (QStringList { u"É 0/4"_s }));
    QTest::keyClick(focus(), Qt::Key_Backspace);
    QTest::keyClick(focus(), Qt::Key_Down);
    EXPECT_EQ(focus(), editor->valuesView());
    QTest::keyClick(focus(), Qt::Key_Space);
    QTest::keyClick(focus(), Qt::Key_Down);
    QTest::keyClick(focus(), Qt::Key_Minus);
    EXPECT_EQ(model().state(0), State::Included);
    EXPECT_EQ(model().state(1), State::Excluded);
    QTest::keyClick(focus(), Qt::Key_Delete);
    EXPECT_EQ(model().state(1), State::NotChosen);
    QTest::keyClicks(focus(), u"d"_s);
    EXPECT_EQ(focus(), editor->searchField());
    EXPECT_EQ(model().rowCount(), 1);
    QTest::keyClick(focus(), Qt::Key_Return);
    EXPECT_FALSE(popover->isShown());
    EXPECT_EQ(filter->values().size(), 1);
}

TEST_F(FacetEditorTest, escapeTakesBackAndNothingIsLostWhenTheFilterGoes)
{
    editor->setState(u"C"_s, State::Included);
    filter->values().first()->setEnabled(false);
    context->save();
    open();
    EXPECT_EQ(model().state(model().rowOfValue(u"C"_s)), State::NotChosen);
    editor->setState(u"C"_s, State::Excluded);
    editor->setState(u"Am"_s, State::Included);
    QTest::keyClick(editor->searchField(), Qt::Key_Escape);
    QTest::qWait(0);
    ASSERT_EQ(filter->values().size(), 1);
    EXPECT_EQ(filter->values().first()->operatorType(), KXPredicateOperator::Equal);
    EXPECT_FALSE(filter->values().first()->enabled());
    context->removeManagedObject(filter);
    context->save();
    editor->setState(u"Am"_s, State::Included);
    editor->toggleExcluded(0);
    editor->revert();
    EXPECT_FALSE(context->hasChanges());
}

TEST_F(FacetEditorTest, saysWhenAnExclusionHasNoEffect)
{
    open();
    editor->setState(u"Am"_s, State::Excluded);
    EXPECT_EQ(editor->noteText(), QString());
    EXPECT_FALSE(editor->noteLabel()->isVisible());
    editor->setState(u"C"_s, State::Excluded);
    EXPECT_NE(editor->noteText(), QString());
    EXPECT_TRUE(editor->noteLabel()->isVisible());
    EXPECT_EQ(rows()[0], u"-Am 2/4"_s) << "and the counts say so, too: excluding it once more keeps nothing out";
}

TEST_F(FacetEditorTest, followsTheSetAndItsObjects)
{
    tempo->setEnabled(false);
    context->processPendingChanges();
    QTest::qWait(0);
    EXPECT_EQ(rows()[model().rowOfValue(u"C"_s)], u"C 3/3"_s);
    const auto thing = make<Thing>();
    thing->setKey(u"É"_s);
    context->processPendingChanges();
    EXPECT_EQ(rows()[model().rowOfValue(u"É"_s)], u"É 1/6"_s);

    // Another filter for the same key path comes first; the counts are those of the edited one.
    const auto first = facet({ u"C"_s, u"É"_s });
    first->setEnabled(true);
    first->setPosition(-1);
    edited->addToFilters(first);
    context->processPendingChanges();
    EXPECT_EQ(rows()[model().rowOfValue(u"Am"_s)], u"Am 0/4"_s);
    context->removeManagedObject(first);
    context->save();

    // Many values, and one that the filter holds though nobody offers it.
    editor->setState(u"Dm"_s, State::Excluded);
    QStringList names;
    for (int i = 0; i < 5000; ++i)
        names.append(u"value %1"_s.arg(i));
    offer(names);
    EXPECT_EQ(model().rowCount(), 5001);
    EXPECT_EQ(model().state(model().rowOfValue(u"Dm"_s)), State::Excluded);
    open();
    QSignalSpy resets(&model(), &QAbstractItemModel::modelReset);
    editor->setState(u"value 4999"_s, State::Included);
    EXPECT_EQ(resets.size(), 0);
    editor->setWhatIfCounts(nullptr);
    EXPECT_FALSE(model().index(0).data(Model::AddedRole).isValid());
}

// Distributions

TEST_F(FacetEditorTest, boundsAreDraggedOnTheDistributionOfWhatFitsTheRest)
{
    editor->setState(u"C"_s, State::Included);
    KXDistributionFilterViewController range(tempo);
    range.setWhatIfCounts(counts.get());
    range.view()->resize(300, 200);
    range.view()->show();
    KXDistributionView *const bars = range.distributionView();
    ASSERT_TRUE(bars);
    EXPECT_TRUE(bars->isVisible());
    const auto objects = [bars] { return std::accumulate(bars->bars().begin(), bars->bars().end(), qint64(0)); };
    EXPECT_EQ(objects(), 3) << "those in C, whatever their tempo";
    EXPECT_EQ(bars->countWithin(), 1);
    editor->setState(u"C"_s, State::NotChosen);
    QTest::qWait(0);
    EXPECT_EQ(objects(), 6);
    EXPECT_EQ(bars->bounds(), (KXDistributionView::Bounds { 123, 200 }));

    // From the second bar to the end; a bound is dragged from near it.
    const int height = bars->height() / 2, width = bars->width();
    QTest::mousePress(bars, Qt::LeftButton, {}, QPoint(width / 4, height));
    QTest::mouseMove(bars, QPoint(width / 2, height));
    QTest::mouseMove(bars, QPoint(width - 1, height));
    EXPECT_EQ(tempo->startValue()->toDouble(), 123) << "not before it is let go";
    QTest::mouseRelease(bars, Qt::LeftButton, {}, QPoint(width - 1, height));
    const double lower = tempo->startValue()->toDouble(), end = bars->edge(bars->bars().size());
    EXPECT_GT(lower, 121);
    EXPECT_LT(lower, 124);
    EXPECT_EQ(tempo->endValue()->toDouble(), end);
    EXPECT_EQ(range.startValueField()->text(), KXRangeFilterViewController::textOfNumber(tempo->startValue()));
    EXPECT_FALSE(context->hasChanges());
    EXPECT_FALSE(context->undoManager()->canUndo());
    EXPECT_EQ(counts->count(), bars->countWithin());

    // From the keyboard, and taken back.
    bars->setFocus();
    QTest::keyClick(bars, Qt::Key_Left);
    EXPECT_LT(tempo->startValue()->toDouble(), lower);
    QTest::keyClick(bars, Qt::Key_Left, Qt::ShiftModifier);
    EXPECT_LT(tempo->endValue()->toDouble(), end);
    QTest::keyClick(bars, Qt::Key_Home);
    QTest::keyClick(bars, Qt::Key_End);
    EXPECT_FALSE(tempo->startValue() || tempo->endValue());
    QTest::mousePress(bars, Qt::LeftButton, {}, QPoint(width / 4, height));
    QTest::mouseMove(bars, QPoint(width / 2, height));
    QTest::keyClick(bars, Qt::Key_Escape);
    QTest::mouseRelease(bars, Qt::LeftButton, {}, QPoint(width / 2, height));
    EXPECT_FALSE(tempo->startValue() || tempo->endValue());

    // No numbers, and no filter any more.
    for (const KXRef<KXManagedObject> &thing : Thing::findAllInContext(*context))
        Thing::cast(thing)->setBpm(std::nullopt);
    context->processPendingChanges();
    QTest::qWait(0);
    EXPECT_FALSE(bars->isVisible());
    context->removeManagedObject(tempo);
    context->save();
    QTest::qWait(0);
    QTest::keyClick(bars, Qt::Key_Left);
    EXPECT_FALSE(context->hasChanges());
}
