// Editing in the window, with the keys and the mouse of its user.

#include <QClipboard>
#include <QComboBox>
#include <QDialog>
#include <QLineEdit>
#include <QMenu>
#include <QMenuBar>
#include <QScrollBar>
#include <QSignalSpy>
#include <QTest>

#include <kestrixkit/filters/KXFilterSetPreset.h>
#include <kestrixkit/foundation/KXUndoManager.h>

#include <table/TrackDelegate.h>
#include <table/TrackTableView.h>
#include <window/BrowserWindow.h>

#include "WindowTest.h"

using namespace Qt::StringLiterals;

class EditingTest : public WindowTest
{
protected:
    void open()
    {
        openWindow();
        table()->setFocus();
        table()->sortByColumn(TrackTableModel::Title, Qt::AscendingOrder);
    }
    TrackTableView *table() const { return window->table(); }
    QString text(int row, int column) const { return window->model()->index(row, column).data().toString(); }
    /// The menu's entry that starts so.
    QAction *action(const QString &start, const QMenu *menu = nullptr) const
    {
        for (QAction *action : menu ? menu->actions() : window->menuBar()->actions()) {
            if (action->menu()) {
                if (QAction *found = this->action(start, action->menu()))
                    return found;
            } else if (action->text().remove(u'&').startsWith(start)) {
                return action;
            }
        }
        return nullptr;
    }
    void endOfTurn() const { QCoreApplication::processEvents(); }
    /// What another context finds in the file.
    KXRef<Track> stored(const QString &title)
    {
        const auto fresh = KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator);
        readers.append(fresh);
        return Track::cast(
            fresh->fetchFirstForEntity(u"Track"_s, KXPredicate::predicateWithFormat("title == %@", title)));
    }

    QList<KXManagedObjectContext::Ref> readers;
};

TEST_F(EditingTest, ratesWithKeysAndClicksAndUndoesByName)
{
    for (const QString &title : { u"a"_s, u"b"_s, u"c"_s })
        add(title);
    save();
    open();
    EXPECT_FALSE(action(u"Undo"_s)->isEnabled());
    EXPECT_FALSE(action(u"Redo"_s)->isEnabled());
    EXPECT_FALSE(action(u"3 Stars"_s)->isEnabled()) << "nothing is selected";

    table()->selectRow(0);
    QTest::keyClick(table(), Qt::Key_Down, Qt::ShiftModifier);
    press(QKeySequence(Qt::Key_3));
    endOfTurn();
    EXPECT_EQ(text(0, TrackTableModel::Rating), u"★★★"_s);
    EXPECT_EQ(text(1, TrackTableModel::Rating), u"★★★"_s);
    EXPECT_EQ(stored(u"b"_s)->rating(), 3);
    EXPECT_EQ(action(u"Undo"_s)->text().remove(u'&'), u"Undo Change Rating"_s);

    const auto click = [&](int row, int star) {
        const QRect cell = table()->visualRect(window->model()->index(row, TrackTableModel::Rating));
        QTest::mouseClick(table()->viewport(), Qt::LeftButton, Qt::NoModifier,
            TrackDelegate::starBox(cell, star, Qt::LeftToRight).center());
        endOfTurn();
    };
    click(2, 5);
    EXPECT_EQ(stored(u"c"_s)->rating(), 5);
    click(2, 5);
    EXPECT_EQ(stored(u"c"_s)->rating(), std::nullopt) << "the last star takes them away";
    EXPECT_EQ(stored(u"a"_s)->rating(), 3);

    for (int i = 0; i < 3; ++i) {
        press(QKeySequence(Qt::CTRL | Qt::Key_Z));
        endOfTurn();
    }
    EXPECT_EQ(text(0, TrackTableModel::Rating), QString());
    EXPECT_FALSE(action(u"Undo"_s)->isEnabled());
    EXPECT_EQ(stored(u"a"_s)->rating(), 3) << "undoing saves nothing";
    press(QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_Z));
    endOfTurn();
    EXPECT_EQ(text(1, TrackTableModel::Rating), u"★★★"_s);
    EXPECT_EQ(action(u"Redo"_s)->text().remove(u'&'), u"Redo Change Rating"_s);
    press(QKeySequence(Qt::CTRL | Qt::Key_Z));
    endOfTurn();

    window->close();
    EXPECT_EQ(stored(u"a"_s)->rating(), std::nullopt) << "closing does";
}

TEST_F(EditingTest, theFirstPresetsComeWithoutSavingWhatWasUndone)
{
    add(u"a"_s);
    save();
    open();
    table()->selectRow(0);
    press(QKeySequence(Qt::Key_3));
    press(QKeySequence(Qt::CTRL | Qt::Key_Z));
    ASSERT_EQ(KXFilterSetPreset::countOfInContext(*window->context()), 0) << "they come a moment after the window";
    ASSERT_TRUE(QTest::qWaitFor([&] { return KXFilterSetPreset::countOfInContext(*window->context()) > 0; }, 30'000));
    EXPECT_EQ(stored(u"a"_s)->rating(), 3);
}

TEST_F(EditingTest, commentsAreEditedInPlaceAndSavedWhenTheWindowCloses)
{
    add(u"a"_s)->setComment(u"old"_s);
    add(u"b"_s);
    save();
    open();
    table()->selectRow(0);
    press(QKeySequence(Qt::Key_F2));
    auto *editor = qobject_cast<QLineEdit *>(QApplication::focusWidget());
    ASSERT_TRUE(editor);
    EXPECT_EQ(editor->text(), u"old"_s);
    QTest::keyClicks(editor, u"5 new"_s); // digits are text here
    QTest::keyClick(editor, Qt::Key_Return);
    endOfTurn();
    EXPECT_EQ(text(0, TrackTableModel::Comment), u"5 new"_s);
    EXPECT_EQ(stored(u"a"_s)->comment(), u"5 new"_s);
    EXPECT_EQ(stored(u"a"_s)->rating(), std::nullopt);
    EXPECT_EQ(action(u"Undo"_s)->text().remove(u'&'), u"Undo Change Comment"_s);

    // Rows come and go while an editor is open: it stays with its track, and closing keeps what it holds.
    press(QKeySequence(Qt::Key_F2));
    editor = qobject_cast<QLineEdit *>(QApplication::focusWidget());
    ASSERT_TRUE(editor);
    QTest::keyClicks(editor, u"third"_s);
    add(u"A first"_s);
    add(u"0"_s);
    save();
    ASSERT_TRUE(QTest::qWaitFor([&] { return window->model()->rowCount() == 4; }, 60000));
    EXPECT_EQ(editor->text(), u"third"_s);
    window->close();
    EXPECT_EQ(stored(u"a"_s)->comment(), u"third"_s);
    EXPECT_EQ(stored(u"0"_s)->comment(), std::nullopt);
}

TEST_F(EditingTest, renamesAGenreAndWhatItsTracksShow)
{
    const auto genre = [&](const QString &name) {
        const KXRef<Genre> made = Genre::createInContext(*context);
        made->setName(name);
        return made;
    };
    const KXRef<Genre> house = genre(u"House"_s), deep = genre(u"Deep House"_s);
    const KXRef<Track> both = add(u"a"_s), one = add(u"b"_s);
    both->addToGenres(house);
    both->addToGenres(deep);
    both->setGenreText(u"Deep House, house"_s);
    one->addToGenres(house);
    one->setGenreText(u"House"_s);
    add(u"c"_s);
    save();
    open();
    table()->selectRow(2);
    EXPECT_FALSE(action(u"Rename Genre"_s)->isEnabled());
    table()->selectRow(0);
    ASSERT_TRUE(action(u"Rename Genre"_s)->isEnabled());
    action(u"Rename Genre"_s)->trigger();
    auto *dialog = window->findChild<QDialog *>();
    ASSERT_TRUE(dialog);
    dialog->findChild<QComboBox *>()->setCurrentText(u"House"_s);
    auto *name = dialog->findChild<QLineEdit *>();
    EXPECT_EQ(name->text(), u"House"_s);
    name->setFocus();
    name->selectAll();
    QTest::keyClicks(name, u"deep house"_s);
    QTest::keyClick(name, Qt::Key_Return);
    EXPECT_TRUE(dialog->isVisible()) << "there is one of that name";
    name->selectAll();
    QTest::keyClicks(name, u" Garage  "_s);
    QTest::keyClick(name, Qt::Key_Return);
    endOfTurn();
    EXPECT_EQ(text(0, TrackTableModel::GenreNames), u"Deep House, Garage"_s);
    EXPECT_EQ(text(1, TrackTableModel::GenreNames), u"Garage"_s);
    EXPECT_EQ(action(u"Undo"_s)->text().remove(u'&'), u"Undo Rename Genre"_s);
    EXPECT_EQ(stored(u"b"_s)->genreText(), u"Garage"_s);
    EXPECT_EQ(stored(u"b"_s)->genres().value(0)->name(), u"Garage"_s);

    action(u"Undo"_s)->trigger();
    endOfTurn();
    EXPECT_EQ(text(0, TrackTableModel::GenreNames), u"Deep House, house"_s);
    action(u"Redo"_s)->trigger();
    window.reset();
    open();
    EXPECT_EQ(text(0, TrackTableModel::GenreNames), u"Deep House, Garage"_s) << "as it was left";
    EXPECT_FALSE(action(u"Undo"_s)->isEnabled());
}

TEST_F(EditingTest, everyEntryOfTheMenuHasANameAndKeysAreUsedOnce)
{
    QGuiApplication::clipboard()->clear(); // of what another test has copied
    open();
    QSet<QKeySequence> keys;
    int entries = 0;
    bool needsTracks = true;
    const std::function<void(const QList<QAction *> &)> visit = [&](const QList<QAction *> &actions) {
        for (const QAction *action : actions) {
            if (action->isSeparator())
                continue;
            EXPECT_FALSE(action->text().isEmpty());
            if (action->menu()) {
                EXPECT_FALSE(action->menu()->accessibleName().isEmpty());
                visit(action->menu()->actions());
                continue;
            }
            ++entries;
            const bool isOfWindow
                = action->menuRole() == QAction::PreferencesRole || action->shortcut() == QKeySequence(u"Ctrl+F"_s);
            EXPECT_FALSE(needsTracks && action->isEnabled() && !isOfWindow)
                << "in an empty library: " << action->text().toStdString();
            // Those of a list alone may mean something else in the window.
            if (!action->shortcut().isEmpty() && action->shortcutContext() != Qt::WidgetShortcut) {
                EXPECT_FALSE(keys.contains(action->shortcut()));
                keys.insert(action->shortcut());
            }
        }
    };
    visit(window->menuBar()->actions().mid(1, 1)); // Edit
    needsTracks = false;
    visit(window->menuBar()->actions().mid(0, 1));
    visit(window->menuBar()->actions().mid(2));
    EXPECT_GE(entries, 10);
    EXPECT_GE(keys.size(), 9);
}

TEST_F(EditingTest, theTopRowStaysWhereItIsWhileRowsArrive)
{
    for (int i = 0; i < 300; ++i)
        add(u"%1"_s.arg(i + 1000));
    save();
    open();
    table()->verticalScrollBar()->setValue(3017);
    const auto topTitle
        = [&] { return table()->indexAt(QPoint(5, 0)).siblingAtColumn(TrackTableModel::Title).data().toString(); };
    const int offset = table()->rowViewportPosition(table()->rowAt(0));
    const QString title = topTitle();
    for (const int batch : { 3, 200 }) { // in steps, and at once
        const int before = window->model()->rowCount();
        for (int i = 0; i < batch; ++i)
            add(u"0%1"_s.arg(i * 7 % batch)); // before all others
        for (int i = 0; i < batch; ++i)
            add(u"%1 b"_s.arg(i + 1000)); // between them
        save();
        ASSERT_TRUE(QTest::qWaitFor([&] { return window->model()->rowCount() == before + 2 * batch; }, 60000));
        endOfTurn();
        EXPECT_EQ(topTitle(), title);
        EXPECT_EQ(table()->rowViewportPosition(table()->rowAt(0)), offset);
    }
    table()->verticalScrollBar()->setValue(0);
    add(u"00"_s);
    const int before = window->model()->rowCount();
    save();
    ASSERT_TRUE(QTest::qWaitFor([&] { return window->model()->rowCount() == before + 1; }, 60000));
    endOfTurn();
    EXPECT_EQ(table()->verticalScrollBar()->value(), 0) << "the beginning goes on being shown";
}
