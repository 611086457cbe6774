// The filter bar, its layout and dragging, and the editors of ranges and dates.

#include <QApplication>
#include <QComboBox>
#include <QDateEdit>
#include <QMimeData>
#include <QSignalSpy>
#include <QTest>
#include <gtest/gtest.h>

#include <kestrixkit/filter_ui/editors/KXDateFilterViewController.h>
#include <kestrixkit/filter_ui/editors/KXFilterBar.h>
#include <kestrixkit/filter_ui/editors/KXFilterBarFilterView.h>
#include <kestrixkit/filter_ui/editors/KXFilterButton.h>
#include <kestrixkit/filter_ui/editors/KXRangeFilterViewController.h>
#include <kestrixkit/foundation/KXClock.h>
#include <kestrixkit/foundation/KXUndoManager.h>
#include <kestrixkit/theme/controls/KXButtonMatrixView.h>
#include <kestrixkit/theme/controls/KXThemeablePopUpButton.h>
#include <kestrixkit/theme/controls/KXThemeableTextField.h>
#include <kestrixkit/toolkit/KXMenu.h>
#include <kestrixkit/toolkit/KXPasteboard.h>
#include <kestrixkit/toolkit/KXPopoverController.h>

#include "filters/Shelf.h"
#include "support/DragAndDrop.h"
#include "support/KXTestPrint.h"

using namespace Qt::StringLiterals;
using DropPosition = KXFilterBarDropPosition;

/// Remembers what it was asked for.
class BarHost : public KXFilterBarDelegate
{
public:
    QStringList heard;
    void showFilter(KXFilterBar &, const KXRef<KXFilter> &filter) override { heard += u"show "_s + filter->label(); }
    void toggleEnabledStateForFilter(KXFilterBar &, const KXRef<KXFilter> &filter) override
    {
        heard += u"toggle "_s + filter->label();
        filter->setEnabled(!filter->enabled());
    }
    std::unique_ptr<KXMenu> contextMenuForFilter(KXFilterBar &, const KXRef<KXFilter> &) override
    {
        return std::make_unique<KXMenu>();
    }
    void deleteFilter(KXFilterBar &, const KXRef<KXFilter> &filter) override
    {
        heard += u"delete "_s + filter->label();
    }
};

namespace {

Qt::DropAction dropOn(QWidget &target, const QMimeData &data, const QPoint &place)
{
    QDragEnterEvent enter(place, Qt::MoveAction, &data, Qt::LeftButton, {});
    QApplication::sendEvent(&target, &enter);
    QDragMoveEvent move(place, Qt::MoveAction, &data, Qt::LeftButton, {});
    QApplication::sendEvent(&target, &move);
    QDropEvent drop(place, Qt::MoveAction, &data, Qt::LeftButton, {});
    if (enter.isAccepted() && move.isAccepted())
        QApplication::sendEvent(&target, &drop);
    return enter.isAccepted() && move.isAccepted() && drop.isAccepted() ? drop.dropAction() : Qt::IgnoreAction;
}

}

class FilterBarTest : public ::testing::Test, public Shelf
{
protected:
    FilterBarTest()
    {
        context->setUndoManager(std::make_shared<KXUndoManager>());
        edited = make<KXFilterSet>();
        for (const QString &name : { u"A"_s, u"B"_s, u"C"_s, u"D"_s })
            add(name);
        context->save();
        context->undoManager()->removeAllActions();
        bar.setDelegate(&host);
        bar.setFilterSet(edited);
        bar.resize(1000, 100);
        bar.show();
        QApplication::setActiveWindow(&bar);
    }
    KXRef<KXFilter> add(const QString &name)
    {
        const auto filter = make<KXRangeFilter>();
        filter->setName(name);
        filter->setLabel(name);
        filter->setPosition(edited->filters().size());
        edited->addToFilters(filter);
        return filter;
    }
    /// "A0 B1": what the bar shows, with the positions that the filters have.
    QString shown()
    {
        context->processPendingChanges();
        QStringList names;
        for (const auto &filter : bar.filters())
            names += filter->label() + QString::number(filter->position());
        return names.join(u' ');
    }
    KXFilterBarFilterView *view(int index) { return bar.filterViews()[index]; }

    KXRef<KXFilterSet> edited;
    BarHost host;
    KXFilterBar bar;
};

TEST(FilterBarLayoutTest, rowsAndOrders)
{
    using namespace KXFilterBarLayout;
    const QList<int> widths { 50, 60, 70 };
    EXPECT_EQ(rows(widths, 180), 1);
    EXPECT_EQ(rows(widths, 179), 2);
    EXPECT_EQ(places(widths, 179, 48).last(), QPoint(0, 48));
    EXPECT_EQ(rows({}, 10), 1);
    EXPECT_EQ(rows({ 50 }, 40), 2); // one that does not fit leaves the first row empty
    const auto order = [](qsizetype dragged, DropPosition position) { return orderAfterDrop(4, dragged, position); };
    using Order = QList<qsizetype>;
    EXPECT_EQ(order(0, DropPosition::before(2)), (Order { 1, 0, 2, 3 }));
    EXPECT_EQ(order(1, DropPosition::before(2)), (Order { 0, 1, 2, 3 })); // written all the same
    EXPECT_EQ(order(3, DropPosition::before(0)), (Order { 3, 0, 1, 2 }));
    EXPECT_EQ(order(1, DropPosition::end()), (Order { 0, 2, 3, 1 }));
    for (const Order &refused : { order(1, DropPosition::before(1)), order(1, {}), order(4, DropPosition::end()),
             order(-1, DropPosition::end()), order(0, DropPosition::before(4)) })
        EXPECT_TRUE(refused.isEmpty());
}

TEST_F(FilterBarTest, followsTheSetWhoeverChangesIt)
{
    EXPECT_EQ(shown(), u"A0 B1 C2 D3"_s);
    {
        KXFilterBar other;
        QSignalSpy changed(&other, &KXFilterBar::filterSetChanged);
        other.setFilterSet(bar.filterSet());
        other.setFilterSet(bar.filterSet());
        other.setFilterSet({});
        EXPECT_EQ(changed.size(), 2);
    }
    const QPointer<KXFilterBarFilterView> first(view(0));
    const auto e = add(u"E"_s);
    EXPECT_EQ(bar.filterViews().size(), 5); // at once
    EXPECT_EQ(first, view(0));
    EXPECT_EQ(shown(), u"A0 B1 C2 D3 E4"_s);
    context->save();
    {
        const KXUndoGroup group(context->undoManager(), u"x"_s);
        context->removeManagedObject(bar.filters()[1]);
    }
    EXPECT_EQ(shown(), u"A0 C2 D3 E4"_s);
    context->undoManager()->undo();
    EXPECT_EQ(shown(), u"A0 B1 C2 D3 E4"_s); // where it was

    // Somebody else deletes one, renames one and puts one in front.
    const auto other = KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator);
    const auto theirs
        = [&](int index) { return KXFilter::cast(other->objectWithID(bar.filters()[index]->objectID())); };
    theirs(2)->setLabel(u"c"_s);
    theirs(4)->setPosition(-1);
    other->removeManagedObject(theirs(0));
    other->save();
    std::shared_ptr<const KXStoreChange> change;
    const auto token = coordinator->addChangeObserver([&](const auto &made) { change = made; });
    theirs(2)->setEnabled(false);
    theirs(3)->setLabel(u"d"_s);
    other->save();
    context->mergeChangesFromStoreChange(change);
    EXPECT_EQ(view(2)->button()->isFilterEnabled(), bar.filters()[2]->enabled());

    context->removeManagedObject(edited);
    context->processPendingChanges();
    EXPECT_TRUE(bar.filterViews().isEmpty());
    EXPECT_FALSE(bar.filterSet());
    EXPECT_EQ(bar.intrinsicHeight(), KXFilterBarFilterViewHeight);
}

TEST_F(FilterBarTest, wrapsByTheWidthsOfItsViews)
{
    int width = 0;
    for (const auto *one : bar.filterViews())
        width += one->sizeHint().width();
    bar.resize(width, 48);
    EXPECT_EQ(bar.intrinsicHeight(), 48);
    bar.resize(width - 1, 48);
    EXPECT_EQ(bar.intrinsicHeight(), 96);
    EXPECT_EQ(view(3)->pos(), QPoint(0, 48));
    bar.setLayoutDirection(Qt::RightToLeft);
    EXPECT_EQ(view(0)->geometry().right(), bar.rect().right());
    // A text that grows pushes the others on.
    bar.setLayoutDirection(Qt::LeftToRight);
    bar.resize(2 * width, 48);
    EXPECT_EQ(bar.intrinsicHeight(), 48);
    bar.filters()[0]->setLabel(QString(200, u'x'));
    QTest::qWait(0);
    EXPECT_EQ(view(1)->x(), view(0)->sizeHint().width());
    EXPECT_LE(view(0)->width(), KXFilterButtonCell::longestText + 80); // and is cut somewhere
    // The label is the wider one by itself, else the button with ten points.
    bar.filters()[1]->setName(QString(60, u'x'));
    EXPECT_GT(view(1)->sizeHint().width(), view(1)->button()->sizeHint().width() + 10);
    EXPECT_EQ(view(2)->sizeHint().width(), view(2)->button()->sizeHint().width() + 10);
    // While the bar is hidden, too.
    bar.hide();
    bar.filters()[0]->setLabel(u"y"_s);
    context->processPendingChanges();
    bar.show();
    EXPECT_EQ(view(0)->width(), view(0)->sizeHint().width());
    EXPECT_EQ(view(1)->x(), view(0)->sizeHint().width());
}

TEST_F(FilterBarTest, hundredsOfFiltersAndHugeTexts)
{
    for (int i = 0; i < 300; ++i)
        add(i % 50 ? QString::number(i) : QString(5000, QChar(u'&')) + u'\n');
    bar.resize(900, 48);
    EXPECT_EQ(bar.filterViews().size(), 304);
    EXPECT_GT(bar.intrinsicHeight(), 10 * KXFilterBarFilterViewHeight);
    for (const auto *one : bar.filterViews())
        ASSERT_TRUE(one->width() < 400 && one->geometry().bottom() < bar.intrinsicHeight());
    EXPECT_TRUE(bar.moveFilterView(303, DropPosition::before(0)));
    EXPECT_EQ(edited->sortedFilters(), bar.filters());
}

TEST_F(FilterBarTest, dragsReorderWithoutUndo)
{
    const auto drop = [&](int from, const QPoint &place) {
        const std::unique_ptr<QMimeData> data(bar.mimeDataForFilterView(*view(from)));
        return dropOn(bar, *data, place);
    };
    EXPECT_EQ(drop(0, view(2)->geometry().center()), Qt::MoveAction);
    EXPECT_EQ(shown(), u"B0 A1 C2 D3"_s);
    EXPECT_EQ(drop(1, view(1)->geometry().center()), Qt::IgnoreAction);
    EXPECT_EQ(shown(), u"B0 A1 C2 D3"_s);
    EXPECT_EQ(drop(0, QPoint(bar.width() - 2, 20)), Qt::MoveAction);
    EXPECT_EQ(shown(), u"A0 C1 D2 B3"_s);
    EXPECT_FALSE(context->hasChanges());
    EXPECT_FALSE(context->undoManager()->canUndo());
    EXPECT_TRUE(bar.currentDropIndexPosition().isNone());
    // What is not of this bar, or of nothing that is there.
    for (const QVariantList &items :
        { QVariantList {}, QVariantList { u"a"_s }, QVariantList { 4u }, QVariantList { 1u, 2u } }) {
        const std::unique_ptr<QMimeData> data(
            KXPasteboard::mimeDataWithItems(KXFilterBarFilterViewPasteboardType, items));
        EXPECT_EQ(dropOn(bar, *data, view(2)->geometry().center()), Qt::IgnoreAction);
    }
    QMimeData text;
    text.setText(u"0"_s);
    EXPECT_EQ(dropOn(bar, text, view(2)->geometry().center()), Qt::IgnoreAction);
    EXPECT_EQ(shown(), u"A0 C1 D2 B3"_s);
    // The set goes while something is over the bar.
    const std::unique_ptr<QMimeData> data(bar.mimeDataForFilterView(*view(0)));
    QDragEnterEvent enter(view(1)->geometry().center(), Qt::MoveAction, data.get(), Qt::LeftButton, {});
    QApplication::sendEvent(&bar, &enter);
    EXPECT_EQ(bar.currentDropIndexPosition(), DropPosition::before(1));
    context->removeManagedObject(edited);
    context->processPendingChanges();
    EXPECT_EQ(dropOn(bar, *data, QPoint(5, 5)), Qt::IgnoreAction);
}

TEST_F(FilterBarTest, mouseAndKeysReachTheDelegate)
{
    QTest::mouseClick(view(0)->button(), Qt::LeftButton);
    QTest::mouseClick(view(1)->button()->enabledSwitch(), Qt::LeftButton);
    EXPECT_FALSE(view(1)->button()->isFilterEnabled());
    view(2)->button()->setFocus();
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_Return);
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
    EXPECT_EQ(QApplication::focusWidget(), view(2)->button()->enabledSwitch());
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_Space);
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_Left);
    EXPECT_EQ(QApplication::focusWidget(), view(1)->button());
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_Delete);
    EXPECT_EQ(host.heard, (QStringList { u"show A"_s, u"toggle B"_s, u"show C"_s, u"toggle C"_s, u"delete B"_s }));
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_Left, Qt::AltModifier);
    EXPECT_EQ(shown(), u"B0 A1 C2 D3"_s);
    for (int i = 0; i < 5; ++i)
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Right, Qt::AltModifier);
    EXPECT_EQ(shown(), u"A0 C1 D2 B3"_s);
    EXPECT_EQ(QApplication::focusWidget(), view(3)->button());
    context->removeManagedObject(bar.filters()[3]);
    context->processPendingChanges();
    EXPECT_EQ(QApplication::focusWidget(), view(2)->button());
}

// Editors

class RangeEditorTest : public ::testing::Test, public Shelf
{
protected:
    RangeEditorTest()
        : popover(nullptr)
    {
        context->setUndoManager(std::make_shared<KXUndoManager>());
        window.resize(600, 400);
        window.show();
        QApplication::setActiveWindow(&window);
    }
    template <class Editor, class Filter> Editor *open(const KXRef<Filter> &filter)
    {
        context->save();
        context->undoManager()->removeAllActions();
        popover.reset();
        auto *const editor = new Editor(filter);
        popover = std::make_unique<KXPopoverController>(editor);
        editor->setParent(popover.get());
        popover->setAnimates(false);
        popover->showRelativeTo(&window, Qt::BottomEdge);
        QTest::qWait(0);
        return editor;
    }

    QWidget window;
    std::unique_ptr<KXPopoverController> popover;
};

TEST_F(RangeEditorTest, numbersInTheLocaleOfTheUser)
{
    const KXClockPin pin;
    const auto number = [](const QString &text) {
        const auto value = KXRangeFilterViewController::numberOfText(text);
        return value ? value->toString() : u"-"_s;
    };
    KXClock::setLocale(QLocale(QLocale::German));
    const std::pair<QString, QString> german[] { { u"127,5"_s, u"127.5"_s }, { u"127.5"_s, u"127.5"_s },
        { u"1.500"_s, u"1500"_s }, { u" 12 "_s, u"12"_s }, { u",5"_s, u"0.5"_s }, { u"-,5"_s, u"-0.5"_s },
        { u"5,"_s, u"5"_s }, { u""_s, u"-"_s }, { u"fast"_s, u"-"_s }, { u"12,3,4"_s, u"-"_s }, { u"∞"_s, u"-"_s },
        { u"0,1234567890123456789012345"_s, u"0.1234567890123456789012345"_s } };
    for (const auto &[text, wanted] : german)
        EXPECT_EQ(number(text), wanted) << qPrintable(text);
    EXPECT_EQ(KXRangeFilterViewController::textOfNumber(KXDecimal::fromString(u"127.5"_s)), u"127,5"_s);
    KXClock::setLocale(QLocale::c());
    EXPECT_EQ(number(u"127.5"_s), u"127.5"_s);
    EXPECT_EQ(number(u"nan"_s), u"-"_s);
}

TEST_F(RangeEditorTest, writesThroughAndTakesBackByEscape)
{
    const auto filter = range(u"120"_s, u"128"_s);
    auto *editor = open<KXRangeFilterViewController>(filter);
    EXPECT_EQ(QApplication::focusWidget(), editor->startValueField());
    EXPECT_EQ(editor->startValueOperatorTypeButton()->currentData().toInt(), 3);
    editor->startValueField()->selectAll();
    QTest::keyClicks(editor->startValueField(), u"12x"_s);
    EXPECT_EQ(filter->startValue()->toString(), u"120"_s); // while it is typed
    EXPECT_TRUE(QTest::qWaitFor([&] { return !filter->startValue(); }));
    QTest::keyClick(editor->startValueField(), Qt::Key_Backspace);
    QTest::keyClick(editor->startValueField(), Qt::Key_Return);
    EXPECT_FALSE(popover->isShown());
    EXPECT_EQ(filter->startValue()->toString(), u"12"_s);
    EXPECT_FALSE(context->hasChanges() || context->undoManager()->canUndo());

    editor = open<KXRangeFilterViewController>(filter);
    editor->endValueField()->setFocus();
    editor->endValueField()->selectAll();
    QTest::keyClicks(editor->endValueField(), u"9"_s); // below the start: the user's affair
    editor->endValueOperatorTypeButton()->setCurrentIndex(
        editor->endValueOperatorTypeButton()->findData(int(KXPredicateOperator::LessThan)));
    editor->rangeValuesChanged();
    EXPECT_EQ(filter->endValue()->toString(), u"9"_s);
    EXPECT_EQ(filter->endValueOperatorType(), KXPredicateOperator::LessThan);
    QTest::keyClick(editor->endValueField(), Qt::Key_Escape);
    EXPECT_FALSE(popover->isShown());
    EXPECT_EQ(filter->endValue()->toString(), u"128"_s);
    EXPECT_EQ(filter->endValueOperatorType(), KXPredicateOperator::LessThanOrEqual);
    EXPECT_FALSE(context->hasChanges() || context->undoManager()->canUndo());

    // As assistive technology does it.
    editor = open<KXRangeFilterViewController>(filter);
    editor->startValueField()->setText(u"99"_s);
    QTest::keyClick(editor->startValueField(), Qt::Key_Return);
    EXPECT_EQ(filter->startValue()->toString(), u"99"_s);
    KXDateFilterViewController nothing({});
    EXPECT_TRUE(nothing.view());
    nothing.startDatePicker()->setDate(QDate(2000, 1, 1));

    // A comparison that is not offered stays.
    filter->setStartValueOperatorType(KXPredicateOperator::BeginsWith);
    editor = open<KXRangeFilterViewController>(filter);
    EXPECT_EQ(editor->startValueOperatorTypeButton()->currentIndex(), -1);
    editor->rangeValuesChanged();
    EXPECT_EQ(filter->startValueOperatorType(), KXPredicateOperator::BeginsWith);
    // Whoever is told while the editor saves sets it right, and that stays.
    {
        const auto observer = filter->onChangeOf(u"startValue"_s, [&](const KXKeyValueChange &) {
            if (filter->startValue() && filter->startValue()->toDouble() > 200)
                filter->setStartValue(KXDecimal::fromInteger(200));
        });
        editor->startValueField()->setText(u"999"_s);
        editor->commitTyping();
        EXPECT_EQ(editor->startValueField()->text(), u"200"_s);
        editor->commitTyping();
        EXPECT_EQ(filter->startValue()->toString(), u"200"_s);
        filter->removeKVOBlockObserver(observer);
    }
    // Others change the filter, and delete it.
    filter->setEndValue(KXDecimal::fromString(u"99.5"_s));
    EXPECT_EQ(editor->endValueField()->text(), u"99.5"_s);
    QTest::keyClicks(editor->startValueField(), u"7"_s);
    context->removeManagedObject(filter);
    context->save();
    EXPECT_FALSE(popover->isShown());
    editor->rangeValuesChanged();
    EXPECT_FALSE(context->hasChanges());
}

/// A host may take the popover away when it hears that something was saved.
TEST_F(RangeEditorTest, mayEndWhileTheySave)
{
    const auto token = KXManagedObjectContext::onChange(context.get(), [&](const KXObjectsDidChange &) {
        if (popover && popover->isShown())
            popover.reset();
    });
    auto *const dates = open<KXDateFilterViewController>(make<KXDateFilter>());
    dates->dateRangeControl()->buttons()[2]->click();
    EXPECT_FALSE(popover);
    const auto filter = range(u"120"_s, u"128"_s);
    auto *const numbers = open<KXRangeFilterViewController>(filter);
    numbers->startValueField()->setText(u"99"_s);
    numbers->commitTyping();
    EXPECT_FALSE(popover);
    EXPECT_EQ(filter->startValue()->toString(), u"99"_s);
    auto *const more = open<KXRangeFilterViewController>(filter);
    filter->setStartValue(KXDecimal::fromInteger(1));
    more->revert();
    EXPECT_FALSE(popover);
}

TEST_F(RangeEditorTest, spansOfDatesAndDaysOfTheUsers)
{
    const KXClockPin pin(QDateTime(QDate(2024, 5, 3), QTime(22, 30), Qt::UTC));
    KXClock::setTimeZone(QTimeZone("Europe/Berlin")); // it is the fourth there
    const auto filter = make<KXDateFilter>();
    auto *const editor = open<KXDateFilterViewController>(filter);
    const auto pickers = [&] {
        return editor->startDatePicker()->date().toString(Qt::ISODate) + u' '
            + editor->endDatePicker()->date().toString(Qt::ISODate);
    };
    const std::pair<KXDateRange, QString> spans[] { { KXDateRange::All, u"1970-01-01 2024-05-04"_s },
        { KXDateRange::Today, u"2024-05-04 2024-05-04"_s }, { KXDateRange::Yesterday, u"2024-05-03 2024-05-03"_s },
        { KXDateRange::Last7Days, u"2024-04-27 2024-05-04"_s }, { KXDateRange::Last30Days, u"2024-04-04 2024-05-04"_s },
        { KXDateRange::ThisYear, u"2024-01-01 2024-05-04"_s } };
    for (const auto &[span, days] : spans) {
        QTest::mouseClick(editor->dateRangeControl()->buttons()[int(span)], Qt::LeftButton);
        EXPECT_EQ(filter->range(), span);
        EXPECT_EQ(pickers(), days) << int(span);
        EXPECT_EQ(editor->dateRangeControl()->selectedIndex(), int(span));
    }
    // Showing a span is no choice of days.
    EXPECT_FALSE(filter->startDate().isValid());
    editor->startDatePicker()->setDate(QDate(1962, 2, 3));
    EXPECT_EQ(filter->range(), KXDateRange::Custom);
    EXPECT_EQ(editor->dateRangeControl()->selectedIndex(), -1);
    EXPECT_EQ(filter->startDate(), QDateTime(QDate(1962, 2, 3), QTime(0, 0), QTimeZone("Europe/Berlin")));
    EXPECT_EQ(filter->endDate(), QDateTime(QDate(2024, 5, 4), QTime(23, 59, 59, 999), QTimeZone("Europe/Berlin")));
    // The same days again are no change, whatever the time of day that is stored.
    filter->setEndDate(QDateTime(QDate(2024, 5, 4), QTime(10, 0), Qt::UTC));
    const QDateTime stored = filter->endDate();
    editor->datesChanged();
    EXPECT_EQ(filter->endDate(), stored);
    // A code that nobody knows leaves the days as they are.
    filter->setRange(KXDateRange(9));
    EXPECT_EQ(pickers(), u"1962-02-03 2024-05-04"_s);
    context->save();
    context->undoManager()->removeAllActions(); // of what the test did itself
    QTest::keyClick(editor->view(), Qt::Key_Escape);
    EXPECT_EQ(filter->range(), KXDateRange::All);
    EXPECT_FALSE(filter->startDate().isValid());
    EXPECT_FALSE(context->undoManager()->canUndo());
}
