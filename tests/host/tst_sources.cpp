// The left side of the window, with the keys and the mouse of its user.

#include <QLineEdit>
#include <QMenu>
#include <QMenuBar>
#include <QTest>

#include <kestrixkit/filter_ui/KXFilterSetPresetEditing.h>
#include <kestrixkit/filters/KXFacetFilter.h>
#include <kestrixkit/filters/KXFilterSet.h>
#include <kestrixkit/filters/KXFilterSetPreset.h>
#include <kestrixkit/foundation/KXUndoManager.h>
#include <kestrixkit/foundation/KXUserDefaults.h>
#include <kestrixkit/toolkit/KXAlert.h>

#include <crates/CratesPane.h>
#include <filters/Presets.h>
#include <places/SidebarRoom.h>
#include <places/SourceColumn.h>
#include <support/DragAndDrop.h>
#include <table/TrackTableView.h>
#include <window/BrowserWindow.h>

#include "WindowTest.h"

using namespace Qt::StringLiterals;

class SourcesTest : public WindowTest
{
protected:
    void SetUp() override
    {
        LibraryTest::SetUp();
        for (const QString &name : { u"House"_s, u"Techno"_s }) {
            genres.append(Genre::createInContext(*context));
            genres.last()->setName(name);
        }
        for (int i = 0; i < 7; ++i) {
            const KXRef<Track> track = add(u"t%1"_s.arg(i), 118.0 + i);
            track->addToGenres(genres[i < 5 ? 0 : 1]);
            track->setMissing(i == 0);
        }
        save();
    }
    void open()
    {
        openWindow();
        window->sources()->musicDidChange();
        endOfTurn();
    }
    /// Quits and starts again.
    void openAgain()
    {
        window->close();
        window.reset();
        open();
    }
    KXSourceListViewController &library() const { return *window->sources()->library(); }
    KXSourceListViewController &presets() const { return *window->sources()->presets(); }
    int rows() const { return window->model()->rowCount(); }
    void endOfTurn() const { QCoreApplication::processEvents(); }

    QModelIndex find(KXSourceListViewController &list, const QString &title, int nth = 0) const
    {
        for (const KXTreeNode *node : list.treeController()->flattenedNodes()) {
            const QModelIndex row = list.treeController()->indexForNode(node);
            if (row.data().toString() == title && nth-- == 0)
                return row;
        }
        ADD_FAILURE() << "there is no row " << title.toStdString();
        return {};
    }
    void click(KXSourceListViewController &list, const QModelIndex &row, Qt::KeyboardModifiers modifiers = {}) const
    {
        list.sourceListView()->scrollTo(row);
        QTest::mouseClick(list.sourceListView()->viewport(), Qt::LeftButton, modifiers,
            list.sourceListView()->visualRect(row).center());
        endOfTurn();
    }
    QString undoTitle() const
    {
        return window->menuBar()->actions()[1]->menu()->actions().first()->text().remove(u'&');
    }
    /// "Folder(a:4 b) c": all presets with their badges; what is open has a +.
    QString outline(const QModelIndex &parent = {}) const
    {
        KXSourceListView &view = *presets().sourceListView();
        QStringList parts;
        for (int i = 0; i < view.model()->rowCount(parent); ++i) {
            const QModelIndex row = view.model()->index(i, 0, parent);
            const KXSourceListCell cell = view.cellForRow(row);
            const QString below = outline(row);
            parts += (view.isExpanded(row) ? u"+"_s : QString()) + cell.title
                + (cell.count > 0 ? u':' + QString::number(cell.count) : QString())
                + (below.isEmpty() ? QString() : u'(' + below + u')');
        }
        return parts.join(u' ');
    }
    void removeStartingPresets()
    {
        KXFilterSetPresetEditing::Presets all;
        for (const KXTreeNode *node : presets().treeController()->rootNodes())
            all.append(KXFilterSetPreset::cast(node->representedObject()));
        KXFilterSetPresetEditing::removePresets(*presets().treeController(), all);
        endOfTurn();
    }

    /// A folder and presets of a genre, all by keys.
    void makeFriday()
    {
        click(library(), find(library(), u"Genres"_s));
        press(Qt::Key_Right); // it is open: on to the first
        EXPECT_EQ(rows(), 4) << "of House; the file of one is missing";
        press(QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_P));
        type(u"Warm up"_s);
        EXPECT_EQ(undoTitle(), u"Undo Rename"_s);
        press(QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_N));
        type(u"Friday"_s);
        click(presets(), find(presets(), u"Warm up"_s));
        EXPECT_EQ(rows(), 4);
        press(QKeySequence(Qt::CTRL | Qt::Key_D));
        press(Qt::Key_F2);
        type(u"Second hour"_s);
    }

    QList<KXRef<Genre>> genres;
};

TEST_F(SourcesTest, presetsAreMadeByKeysAndDraggedTogether)
{
    open();
    EXPECT_TRUE(outline().startsWith(u"Tempo"_s)); // what a library begins with
    removeStartingPresets();
    openAgain();
    EXPECT_EQ(outline(), QString()); // and not again

    makeFriday();
    EXPECT_EQ(outline(), u"Warm up:4 Second hour:4 Friday"_s);

    // Dragged together into the folder, in front of each other there, and out again.
    KXSourceListView &view = *presets().sourceListView();
    click(presets(), find(presets(), u"Warm up"_s), Qt::ControlModifier);
    EXPECT_EQ(DragAndDrop::rows(view, view.selectionModel()->selectedRows(), find(presets(), u"Friday"_s), 0.5),
        Qt::MoveAction);
    EXPECT_EQ(outline(), u"Friday:4(Warm up:4 Second hour:4)"_s);
    EXPECT_EQ(undoTitle(), u"Undo Move Items"_s);
    click(presets(), find(presets(), u"Friday"_s));
    EXPECT_EQ(rows(), 4) << "each track once";
    press(Qt::Key_Right);
    EXPECT_EQ(DragAndDrop::rows(view, { find(presets(), u"Second hour"_s) }, find(presets(), u"Warm up"_s), 0),
        Qt::MoveAction);
    EXPECT_EQ(outline(), u"+Friday:4(Second hour:4 Warm up:4)"_s);
}

TEST_F(SourcesTest, presetsAreCopiedAndDeletedWithOneQuestionAndAreAsLeftNextTime)
{
    int asked = 0;
    const auto alert = KXAlert::setRunner([&](const KXAlert &) {
        ++asked;
        return KXAlertAnswer { 0, true };
    });
    open();
    removeStartingPresets();
    makeFriday();
    click(presets(), find(presets(), u"Warm up"_s), Qt::ControlModifier);
    KXSourceListView &view = *presets().sourceListView();
    DragAndDrop::rows(view, view.selectionModel()->selectedRows(), find(presets(), u"Friday"_s), 0.5);
    click(presets(), find(presets(), u"Friday"_s));
    press(Qt::Key_Right);
    click(presets(), find(presets(), u"Second hour"_s));
    press(QKeySequence::Copy);
    click(presets(), find(presets(), u"Warm up"_s));
    press(QKeySequence::Paste);
    EXPECT_EQ(outline(), u"+Friday:4(Warm up:4 Second hour:4 Second hour:4)"_s);
    click(presets(), find(presets(), u"Warm up"_s));
    press(Qt::Key_Delete);
    EXPECT_EQ(outline(), u"+Friday:4(Second hour:4 Second hour:4)"_s);
    EXPECT_EQ(undoTitle(), u"Undo Delete Filter Preset"_s);
    EXPECT_EQ(presets().selectedItem()->title(), u"Second hour"_s); // what took its place
    press(Qt::Key_Backspace);
    EXPECT_EQ(asked, 1);
    press(QKeySequence(Qt::CTRL | Qt::Key_Z));
    press(QKeySequence(Qt::CTRL | Qt::Key_Z));
    EXPECT_EQ(outline(), u"+Friday:4(Warm up:4 Second hour:4 Second hour:4)"_s);
    press(QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_Z));
    const QString left = outline();
    EXPECT_EQ(left, u"+Friday:4(Second hour:4 Second hour:4)"_s);
    click(presets(), find(presets(), u"Second hour"_s, 1));
    press(Qt::Key_Return);
    EXPECT_EQ(QApplication::focusWidget(), window->table());

    openAgain();
    EXPECT_EQ(outline(), left);
    EXPECT_EQ(presets().currentSelectedIndexPath(), (KXIndexPath { 0, 1 }));
    EXPECT_TRUE(library().selectedItems().isEmpty());
    EXPECT_EQ(rows(), 4);
    KXUserDefaults::standard().remove(KXRemoveFilterSetPresetAlertSuppressKey);
}

TEST_F(SourcesTest, badgesFollowTheMusicAndTheTableTheSelection)
{
    open();
    const auto badge = [&](KXSourceListViewController &list, const QString &title) {
        return list.sourceListView()->cellForRow(find(list, title)).count;
    };
    EXPECT_EQ(library().selectedItem()->title(), u"All Tracks"_s);
    EXPECT_EQ(rows(), 7);
    EXPECT_EQ(badge(library(), u"All Tracks"_s), 7);
    EXPECT_EQ(badge(library(), u"Genres"_s), 6);
    EXPECT_EQ(badge(library(), u"House"_s), 4);
    EXPECT_EQ(find(library(), u"House"_s).data(Qt::AccessibleTextRole).toString(), u"House, 4"_s);
    click(library(), find(library(), u"Techno"_s));
    EXPECT_EQ(rows(), 2);

    // Somebody else imports, renames and removes.
    const KXRef<Track> more = add(u"t9"_s, 130);
    more->addToGenres(genres[1]);
    genres[1]->setName(u"Acid"_s);
    const auto drone = Genre::createInContext(*context);
    drone->setName(u"Drone"_s);
    context->removeManagedObject(genres[0]);
    save();
    ASSERT_TRUE(QTest::qWaitFor([&] { return rows() == 3; }));
    endOfTurn();
    EXPECT_EQ(badge(library(), u"All Tracks"_s), 8);
    EXPECT_EQ(badge(library(), u"Acid"_s), 3);
    EXPECT_EQ(library().selectedItem()->title(), u"Acid"_s);
    QStringList genreNames;
    const QModelIndex above = find(library(), u"Genres"_s);
    for (int i = 0; i < library().treeController()->rowCount(above); ++i)
        genreNames += library().treeController()->index(i, 0, above).data().toString();
    EXPECT_EQ(genreNames.join(u' '), u"Acid Drone"_s);
    EXPECT_FALSE(window->context()->undoManager()->canUndo());

    // One list says what is shown; several presets show the tracks of any of them.
    const QModelIndex tempo = find(presets(), u"Tempo"_s);
    presets().sourceListView()->expand(tempo);
    click(presets(), find(presets(), u"118 to 124"_s));
    EXPECT_TRUE(library().selectedItems().isEmpty());
    EXPECT_EQ(rows(), 5);
    click(presets(), find(presets(), u"128 to 132"_s), Qt::ControlModifier);
    EXPECT_EQ(rows(), 6);
    QTest::keyClicks(presets().sourceListView(), u"124"_s); // digits look for a preset here, they do not rate
    endOfTurn();
    EXPECT_EQ(presets().selectedItem()->title(), u"124 to 128"_s);
    EXPECT_EQ(rows(), 1);
    click(library(), find(library(), u"All Tracks"_s));
    EXPECT_TRUE(presets().selectedItems().isEmpty());
    EXPECT_EQ(rows(), 8);
    EXPECT_FALSE(window->context()->hasChanges());
}

// A preset that looks for what is not here says so. While one is renamed, or while the window asks whether two may go,
// somebody else deletes them: the list shows what there is.
TEST_F(SourcesTest, unavailableAndDeletedPresets)
{
    open();
    const auto foreign = Presets::makeOfPlace(*window->context(), genres[0], u"Foreign"_s);
    foreign->filterSet()->filters().first()->setLocalValuePredicateKeyPath(u"colour"_s);
    window->context()->save();
    endOfTurn();
    const QModelIndex row = find(presets(), u"Foreign"_s);
    EXPECT_FALSE(presets().sourceListView()->cellForRow(row).isEnabled);
    EXPECT_TRUE(row.data(Qt::ToolTipRole).toString().contains(u"not available"_s));
    click(presets(), row);
    EXPECT_EQ(rows(), 0);

    const auto there = KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator);
    const auto deleteThere = [&](const KXRef<KXFilterSetPreset> &preset) {
        there->removeManagedObject(there->objectWithID(preset->objectID()));
        ASSERT_TRUE(there->save(nullptr));
        ASSERT_TRUE(QTest::qWaitFor([&] { return !presets().treeController()->treeNodeForObject(preset.get()); }));
        endOfTurn();
    };
    press(Qt::Key_F2);
    ASSERT_TRUE(presets().sourceListView()->isEditing());
    deleteThere(foreign);
    EXPECT_FALSE(presets().sourceListView()->isEditing());
    ASSERT_TRUE(presets().selectedItem());
    EXPECT_EQ(presets().selectedItem()->title(), u"Four Stars and More"_s);

    const auto one = Presets::makeOfPlace(*window->context(), genres[0], u"One"_s);
    const auto two = Presets::makeOfPlace(*window->context(), genres[0], u"Two"_s);
    endOfTurn();
    // Sets of places have titles, those of presets none.
    const auto countSets = [&] {
        return KXFilterSet::countOfUsingPredicate(KXPredicate::predicateWithFormat("title == nil"), *window->context());
    };
    const qint64 sets = countSets();
    const auto alert = KXAlert::setRunner([&](const KXAlert &asked) {
        EXPECT_EQ(asked.text(), u"Are you sure you want to delete the selected presets?"_s);
        deleteThere(one);
        return KXAlertAnswer { 0, false };
    });
    click(presets(), find(presets(), u"One"_s));
    click(presets(), find(presets(), u"Two"_s), Qt::ControlModifier);
    press(Qt::Key_Delete);
    EXPECT_TRUE(two->managedObjectContext() == nullptr || two->isDeleted());
    EXPECT_EQ(countSets(), sets - 2) << "each goes with its filters";
    press(QKeySequence(Qt::CTRL | Qt::Key_Z));
    find(presets(), u"Two"_s);
}

TEST_F(SourcesTest, roomGoesToTheListsThatUseIt)
{
    for (int i = 0; i < 12; ++i)
        add(u"g%1"_s.arg(i), 100)->addToGenres([&] {
            const auto genre = Genre::createInContext(*context);
            genre->setName(u"Genre %1"_s.arg(i));
            return genre;
        }());
    save();
    openWindow();
    window->resize(1000, 1100);
    window->sources()->musicDidChange();
    const KXSourceListView &places = *library().sourceListView();
    const auto hidden = [](const KXSourceListView &list) { return list.contentHeight() - list.viewport()->height(); };
    EXPECT_TRUE(QTest::qWaitFor([&] { return places.contentHeight() > 14 * 20 && hidden(places) <= 0; }));
    for (KXSourceListViewController *list : window->sources()->lists())
        EXPECT_LE(hidden(*list->sourceListView()), 0);

    // Where not all fits, the long ones share what the short one leaves; a row that is opened moves nothing.
    window->resize(1000, 520);
    const KXSourceListView &crates = *window->sources()->crates()->list()->sourceListView();
    QTest::qWait(20);
    EXPECT_GT(hidden(places), 0);
    EXPECT_LE(hidden(crates), 0);
    const QList<int> heights = window->sources()->sizes();
    for (int row = 0; row < presets().sourceListView()->model()->rowCount(); ++row)
        presets().sourceListView()->expand(presets().sourceListView()->model()->index(row, 0));
    QTest::qWait(20);
    EXPECT_EQ(window->sources()->sizes(), heights);
    presets().sourceListView()->collapseAll();
    library().sourceListView()->collapseAll();
    window->resize(1000, 650);
    QTest::qWait(20);
    const int closed = window->sources()->sizes().first();
    library().sourceListView()->expand(library().sourceListView()->model()->index(3, 0)); // the genres
    EXPECT_TRUE(QTest::qWaitFor([&] { return window->sources()->sizes().first() > closed; }));
    window->resize(1000, 520);
    QTest::qWait(20);

    // What the user drags stays.
    EXPECT_FALSE(window->sources()->room().chosen());
    QSplitterHandle *const handle = window->sources()->handle(1);
    const QPoint at = handle->rect().center();
    QTest::mousePress(handle, Qt::LeftButton, {}, at);
    QTest::mouseMove(handle, at + QPoint(0, -60));
    QTest::mouseRelease(handle, Qt::LeftButton, {}, at + QPoint(0, -60));
    const QList<int> chosen = window->sources()->sizes();
    EXPECT_NE(chosen, heights);
    window->resize(1000, 900);
    window->resize(1000, 520);
    QTest::qWait(20);
    EXPECT_TRUE(window->sources()->room().chosen());
    openAgain();
    EXPECT_EQ(window->sources()->room().chosen(), chosen);
}
