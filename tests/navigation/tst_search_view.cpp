// The search controller: typing, groups, the keyboard in the field, the popover.

#include <QApplication>
#include <QLineEdit>
#include <QTableView>
#include <QTest>
#include <gtest/gtest.h>

#include <kestrixkit/navigation/KXSearchViewController.h>
#include <kestrixkit/theme/controls/KXPlaceholderView.h>
#include <kestrixkit/toolkit/KXPopoverController.h>

#include "support/KXTestPrint.h"

using namespace Qt::StringLiterals;

namespace {

using Grouping = KXSearchResultsGrouping::Ref;

class WordsSearchViewController : public KXSearchViewController
{
    Q_OBJECT
public:
    using KXSearchViewController::KXSearchViewController;
    QStringList searched;
    QStringList shown;

protected:
    void performSearch() override { searched.append(searchTerm()); }
    void showItem(QObject *sender) override
    {
        EXPECT_EQ(sender, searchField());
        shown.append(selectedItem().toString());
    }
};

Grouping groupOf(const QString &name, int items)
{
    auto grouping = std::make_shared<KXSearchResultsGrouping>();
    grouping->name = name;
    for (int i = 1; i <= items; ++i)
        grouping->items.append(name + QString::number(i));
    return grouping;
}

/// The rows with the groups' buttons in brackets.
QString rowsOf(const KXSearchViewController &search)
{
    QStringList rows;
    for (int row = 0; row < search.resultsContent()->rowCount(); ++row) {
        const QString text = search.resultsContent()->index(row).data().toString();
        rows.append(search.isGroupRow(row) ? u"%1[%2]"_s.arg(text, search.buttonTitleForRow(row)) : text);
    }
    return rows.join(u' ');
}

QString show(KXSearchViewController &search, const QList<Grouping> &results)
{
    search.setAllResults(results);
    search.processResults(results);
    return rowsOf(search);
}

}

TEST(SearchView, laysGroupsOut)
{
    WordsSearchViewController search;
    EXPECT_EQ(show(search, { groupOf(u"a"_s, 10) }), u"a[] a1 a2 a3 a4 a5 a6 a7 a8 a9 a10"_s);
    EXPECT_EQ(show(search, { groupOf(u"a"_s, 4), groupOf(u"b"_s, 0) }), u"a[] a1 a2 a3 a4 b[]"_s);
    const QList<Grouping> results { groupOf(u"a"_s, 5), nullptr, groupOf(u"b"_s, 3) };
    EXPECT_EQ(show(search, results), u"a[Show 1 more...] a1 a2 a3 a4 b[] b1 b2 b3"_s);
    // Expanded and back.
    search.pressButtonOfRow(5);
    search.pressButtonOfRow(1);
    EXPECT_EQ(search.currentFocusedSearchResultsGrouping(), nullptr);
    search.pressButtonOfRow(0);
    EXPECT_EQ(rowsOf(search), u"a[All results] a1 a2 a3 a4 a5"_s);
    EXPECT_EQ(search.currentFocusedSearchResultsGrouping(), results[0]);
    // New results show the overview, and the group stays the focused one.
    search.processResults(results);
    EXPECT_EQ(rowsOf(search), u"a[All results] a1 a2 a3 a4 b[] b1 b2 b3"_s);
    search.pressButtonOfRow(0);
    EXPECT_EQ(rowsOf(search), u"a[Show 1 more...] a1 a2 a3 a4 b[] b1 b2 b3"_s);
    EXPECT_EQ(search.heightOfRow(0), 22);
    EXPECT_EQ(search.heightOfRow(1), 44);
    // Without all results there is nothing to go back to.
    search.setAllResults({});
    EXPECT_EQ(rowsOf(search), u"a[] a1 a2 a3 a4 b[] b1 b2 b3"_s);
    search.showAllResultsForGrouping(nullptr);
    search.showResultsForGrouping(nullptr);
    search.showAllResults();
    EXPECT_EQ(rowsOf(search), QString());
}

TEST(SearchView, saysThatThereIsNothing)
{
    WordsSearchViewController search;
    search.view()->show();
    EXPECT_TRUE(search.placeholderView()->isVisible());
    EXPECT_EQ(qobject_cast<KXPlaceholderView *>(search.placeholderView())->text(), u"No Results"_s);
    EXPECT_FALSE(search.scrollView()->isVisible());
    show(search, { groupOf(u"a"_s, 5), groupOf(u"b"_s, 1) });
    EXPECT_FALSE(search.placeholderView()->isVisible());
    EXPECT_TRUE(search.scrollView()->isVisible());
    // The table has the rows' heights, and paints them.
    QTest::qWait(1);
    EXPECT_EQ(search.tableView()->rowHeight(0), 22);
    EXPECT_EQ(search.tableView()->rowHeight(1), 44);
    EXPECT_FALSE(search.view()->grab().isNull());
    // Its button is pressed with the mouse.
    const QRect row = search.tableView()->visualRect(search.resultsContent()->index(0));
    QTest::mouseClick(search.tableView()->viewport(), Qt::LeftButton, {}, { row.right() - 12, row.center().y() });
    EXPECT_EQ(rowsOf(search), u"a[All results] a1 a2 a3 a4 a5"_s);
    // Whatever comes, goes and changes places.
    const auto areRight = [&] {
        const int rows = search.resultsContent()->rowCount();
        for (int each = 0; each < rows; ++each) {
            if (search.tableView()->rowHeight(each) != search.heightOfRow(each))
                return false;
        }
        return rows > 0;
    };
    EXPECT_TRUE(areRight());
    show(search, { groupOf(u"b"_s, 1), groupOf(u"a"_s, 2), groupOf(u"c"_s, 7) });
    EXPECT_TRUE(areRight());
    EXPECT_TRUE(search.resultsContent()->moveObject(2, 4));
    EXPECT_TRUE(areRight());
    show(search, { groupOf(u"a"_s, 300) });
    EXPECT_TRUE(areRight());
}

TEST(SearchView, searchesOnceTypingPauses)
{
    auto search = std::make_unique<WordsSearchViewController>();
    search->setSearchDelay(0.05);
    search->setSearchTerm(u"before"_s);
    EXPECT_EQ(WordsSearchViewController().searchDelay(), 0.3);
    (void)search->view();
    QTest::qWait(100);
    EXPECT_EQ(search->searched, QStringList());
    EXPECT_EQ(search->searchField()->text(), u"before"_s);
    search->setSearchTerm(u"before"_s);
    QTest::qWait(100);
    EXPECT_EQ(search->searched, QStringList());
    for (int i = 0; i < 200; ++i)
        QTest::keyClick(search->searchField(), Qt::Key_A);
    QTest::qWait(150);
    EXPECT_EQ(search->searched, QStringList { u"before"_s + QString(200, u'a') });
    // Without delay in the next turn, and never after the controller has gone.
    search->setSearchDelay(0);
    search->searched.clear();
    search->setSearchTerm(u"x"_s);
    search->setSearchTerm(u"y"_s);
    EXPECT_EQ(search->searched, QStringList());
    QTest::qWait(20);
    EXPECT_EQ(search->searched, QStringList { u"y"_s });
    search->setSearchTerm(u"z"_s);
    search.reset();
    QTest::qWait(20);
}

TEST(SearchView, isDrivenFromTheField)
{
    QWidget window;
    auto *elsewhere = new QLineEdit(&window);
    window.resize(400, 100);
    window.show();
    window.activateWindow();
    WordsSearchViewController search;
    KXPopoverController popover(&search);
    popover.setAnimates(false);
    popover.showRelativeTo(&window, Qt::BottomEdge);
    ASSERT_TRUE(popover.isShown());
    ASSERT_TRUE(QTest::qWaitForWindowActive(search.view()->window()));
    QLineEdit *field = search.searchField();
    EXPECT_TRUE(field->hasFocus());
    const auto press = [&](Qt::Key key) {
        QTest::keyClick(field, key);
        return search.selectedItem().toString();
    };
    press(Qt::Key_Return);
    EXPECT_EQ(search.shown, QStringList()); // there are no rows
    show(search, { groupOf(u"a"_s, 2), groupOf(u"b"_s, 5), groupOf(u"c"_s, 0) });
    press(Qt::Key_Return);
    EXPECT_EQ(search.shown, QStringList { QString() }); // even without selection
    EXPECT_EQ(press(Qt::Key_Up), QString());
    EXPECT_EQ(press(Qt::Key_Down), u"a1"_s);
    EXPECT_EQ(press(Qt::Key_Up), u"a1"_s);
    EXPECT_EQ(press(Qt::Key_Down), u"a2"_s);
    EXPECT_EQ(press(Qt::Key_Down), u"b1"_s);
    EXPECT_EQ(press(Qt::Key_Up), u"a2"_s);
    for (int i = 0; i < 10; ++i)
        press(Qt::Key_Down);
    EXPECT_EQ(press(Qt::Key_Down), u"b4"_s);
    search.selectRow(0);
    EXPECT_EQ(search.selectedItem().toString(), u"b4"_s);
    press(Qt::Key_Enter);
    EXPECT_EQ(search.shown.constLast(), u"b4"_s);
    QTest::qWait(1);
    EXPECT_TRUE(popover.isShown()); // Return ends nothing
    // The keys of the text are the field's.
    QTest::keyClicks(field, u"ab"_s);
    press(Qt::Key_Left);
    EXPECT_EQ(field->cursorPosition(), 1);
    // A group's button is pressed with the mouse, at leisure, or by keys.
    const QPoint button = [&] {
        const QRect row = search.tableView()->visualRect(search.resultsContent()->index(3));
        return QPoint(row.right() - 12, row.center().y());
    }();
    QTest::mousePress(search.tableView()->viewport(), Qt::LeftButton, {}, button);
    QTest::qWait(20);
    EXPECT_TRUE(field->hasFocus());
    QTest::mouseRelease(search.tableView()->viewport(), Qt::LeftButton, {}, button);
    EXPECT_EQ(rowsOf(search), u"b[All results] b1 b2 b3 b4 b5"_s);
    QTest::keyClick(field, Qt::Key_Up, Qt::AltModifier);
    EXPECT_EQ(search.resultsContent()->rowCount(), 9);
    EXPECT_EQ(search.selectedItem().toString(), u"b1"_s);
    // What is selected stays, wherever it lies then.
    const auto toggle = [&] {
        QTest::keyClick(field, Qt::Key_Down, Qt::AltModifier);
        return u"%1 of %2"_s.arg(search.selectedRow()).arg(search.resultsContent()->rowCount());
    };
    EXPECT_EQ(press(Qt::Key_Up), u"a2"_s);
    EXPECT_EQ(toggle(), u"2 of 9"_s); // "a" has no more
    press(Qt::Key_Down);
    EXPECT_EQ(press(Qt::Key_Down), u"b2"_s);
    EXPECT_EQ(toggle(), u"2 of 6"_s);
    EXPECT_EQ(toggle(), u"5 of 9"_s);
    toggle();
    for (int i = 0; i < 5; ++i)
        press(Qt::Key_Down);
    EXPECT_EQ(search.selectedItem().toString(), u"b5"_s);
    EXPECT_EQ(toggle(), u"4 of 9"_s); // it has gone
    search.shown.clear();
    QTest::keyClick(field, Qt::Key_Return, Qt::ShiftModifier);
    EXPECT_EQ(search.shown, QStringList { u"b1"_s });
    EXPECT_TRUE(popover.isShown());
    // Whoever leaves the field closes the popover.
    field->clearFocus();
    QTest::qWait(20);
    EXPECT_FALSE(popover.isShown());
    Q_UNUSED(elsewhere);
}

#include "tst_search_view.moc"
