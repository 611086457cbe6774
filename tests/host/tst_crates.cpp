// Crates, with the mouse and the keys of who fills them.

#include <QClipboard>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMenuBar>
#include <QMimeData>
#include <QProcess>
#include <QScrollBar>
#include <QSignalSpy>
#include <QStatusBar>
#include <QTest>

#include <kestrixkit/foundation/KXUndoManager.h>
#include <kestrixkit/foundation/KXUserDefaults.h>
#include <kestrixkit/messages/KXMessageCenter.h>

#include <crates/CratesPane.h>
#include <crates/PlayHistory.h>
#include <filters/Presets.h>
#include <import/FileCommands.h>
#include <places/LibraryPlaces.h>
#include <places/SourceColumn.h>
#include <player/Preview.h>
#include <support/DragAndDrop.h>
#include <support/KXTestProcess.h>
#include <support/KXTestRandom.h>
#include <table/TrackDelegate.h>
#include <table/TrackTableView.h>
#include <window/BrowserWindow.h>
#include <window/Settings.h>

#include "MusicFiles.h"
#include "OwnDisplay.h"
#include "WindowTest.h"

using namespace Qt::StringLiterals;

class CratesTest : public WindowTest
{
protected:
    void SetUp() override
    {
        LibraryTest::SetUp();
        for (int i = 0; i < 8; ++i)
            add(QString(QChar(char16_t(u'a' + i))), 120.0 + i);
        save();
    }
    void open()
    {
        openWindow();
        window->sources()->musicDidChange();
        turns();
        table().setSortDescriptors({ TrackTableModel::sortDescriptor(TrackTableModel::Title) });
        turns();
    }
    /// With a folder Night, which has the crates One, "cab", and Two, "b".
    void openNight()
    {
        open();
        CrateEditor &editor = pane().editor();
        const auto folder = editor.make(Crate::Kind::Folder, {}, u"Night"_s);
        const auto keys = [&](const QString &titles) {
            std::vector<qint64> found;
            for (const QChar title : titles)
                found.push_back(Track::findFirstUsingPredicate(
                    KXPredicate::predicateWithFormat("title == %@", QString(title)), *window->context())
                                    ->objectID()
                                    .key());
            return found;
        };
        editor.make(Crate::Kind::Plain, folder, u"One"_s, keys(u"cab"_s));
        editor.make(Crate::Kind::Plain, folder, u"Two"_s, keys(u"b"_s));
        turns();
        pane().list()->expandItem(folder.get());
        turns();
    }
    KXRef<Track> track(const QString &title) const
    {
        return Track::findFirstUsingPredicate(
            KXPredicate::predicateWithFormat("title == %@", title), *window->context());
    }
    void openAgain()
    {
        window->close();
        window.reset();
        open();
    }
    TrackTableView &table() const { return *window->table(); }
    CratesPane &pane() const { return *window->sources()->crates(); }
    KXSourceListView &list() const { return *pane().list()->sourceListView(); }
    KXUndoManager &undo() const { return *window->context()->undoManager(); }
    QModelIndex row(const QString &title) const
    {
        for (const KXTreeNode *node : pane().tree()->flattenedNodes()) {
            const QModelIndex index = pane().tree()->indexForNode(node);
            if (list().cellForRow(index).title == title)
                return index;
        }
        ADD_FAILURE() << "there is no crate " << title.toStdString();
        return {};
    }
    KXRef<Crate> crate(const QString &title) const
    {
        const KXTreeNode *const node = pane().tree()->nodeForIndex(row(title));
        return node ? Crate::cast(node->representedObject()) : KXRef<Crate>();
    }
    void click(const QString &title) const
    {
        list().scrollTo(row(title));
        QTest::mouseClick(list().viewport(), Qt::LeftButton, {}, list().visualRect(row(title)).center());
        turns();
    }
    void showAll() const
    {
        auto &library = *window->sources()->library();
        library.setSelectionIndexPath({ 0 });
        turns();
    }
    /// The titles in the table, from top to bottom.
    QString shown() const
    {
        QString titles;
        for (int i = 0; i < window->model()->rowCount(); ++i)
            titles += window->model()->index(i, 0).data().toString();
        return titles;
    }
    /// By their titles.
    void select(const QString &titles) const
    {
        table().clearSelection();
        for (int i = 0; i < window->model()->rowCount(); ++i) {
            if (titles.contains(window->model()->index(i, 0).data().toString()))
                table().selectionModel()->select(
                    window->model()->index(i, 0), QItemSelectionModel::Select | QItemSelectionModel::Rows);
        }
        for (int i = window->model()->rowCount(); i-- > 0;) {
            if (titles.startsWith(window->model()->index(i, 0).data().toString()))
                table().selectionModel()->setCurrentIndex(window->model()->index(i, 0), QItemSelectionModel::NoUpdate);
        }
        table().setFocus();
    }
    /// What a drag of the selected rows carries.
    std::unique_ptr<QMimeData> dragged() const
    {
        QModelIndexList rows;
        for (const int row : table().selectedRowNumbers())
            rows.append(window->model()->index(row, 0));
        std::unique_ptr<QMimeData> data(window->model()->mimeData(rows));
        if (KXTableViewDelegate *const delegate = table().delegate())
            delegate->willDragRows(&table(), *data);
        return data;
    }
    Qt::DropAction dropOnto(const QString &title, Qt::KeyboardModifiers modifiers = {}) const
    {
        list().scrollTo(row(title));
        const auto action = DragAndDrop::drop(
            list(), *dragged(), list().visualRect(row(title)).center(), Qt::CopyAction | Qt::MoveAction, modifiers);
        turns();
        return action;
    }
    /// Into the table, in front of that row.
    Qt::DropAction dropInTable(int before) const
    {
        const int y = before < window->model()->rowCount()
            ? table().rowViewportPosition(before) + 2
            : table().rowViewportPosition(before - 1) + table().rowHeight(before - 1) - 2;
        const auto action = DragAndDrop::drop(table(), *dragged(), QPoint(60, y), Qt::CopyAction | Qt::MoveAction);
        turns();
        return action;
    }
    qint64 badge(const QString &title) const
    {
        QTest::qWait(150); // folders are counted a moment later
        return list().cellForRow(row(title)).count;
    }
};

TEST_F(CratesTest, aCrateIsMadeFilledSortedAndEmptied)
{
    open();
    ASSERT_EQ(shown(), u"abcdefgh"_s);
    press(QKeySequence(u"Ctrl+N"_s));
    type(u"Warm-up"_s);
    EXPECT_EQ(pane().title(), u"Warm-up"_s);
    EXPECT_EQ(shown(), u""_s) << "the new crate is shown";
    showAll();
    select(u"dbg"_s);
    EXPECT_EQ(dropOnto(u"Warm-up"_s), Qt::CopyAction);
    EXPECT_EQ(undo().undoActionName(), u"Add to Crate"_s);
    select(u"ab"_s);
    EXPECT_EQ(dropOnto(u"Warm-up"_s), Qt::CopyAction); // b is there
    EXPECT_EQ(badge(u"Warm-up"_s), 4);
    EXPECT_EQ(shown(), u"abcdefgh"_s);

    click(u"Warm-up"_s);
    EXPECT_EQ(shown(), u"bdga"_s);
    select(u"a"_s);
    EXPECT_EQ(dropInTable(0), Qt::MoveAction);
    EXPECT_EQ(shown(), u"abdg"_s);
    select(u"ad"_s);
    EXPECT_EQ(dropInTable(4), Qt::MoveAction);
    EXPECT_EQ(shown(), u"bgad"_s);
    EXPECT_EQ(undo().undoActionName(), u"Move Tracks"_s);
    press(QKeySequence(u"Alt+Up"_s), &table());
    EXPECT_EQ(shown(), u"badg"_s) << "what was dropped is selected, and goes up as a block";
    undo().undo();
    turns();
    EXPECT_EQ(shown(), u"bgad"_s);

    // In another order nothing can be put anywhere.
    QTest::mouseClick(table().horizontalHeader()->viewport(), Qt::LeftButton, {}, { 20, 10 });
    turns();
    EXPECT_EQ(shown(), u"abdg"_s);
    select(u"a"_s);
    EXPECT_EQ(dropInTable(3), Qt::IgnoreAction);
    showAll();
    EXPECT_EQ(shown(), u"abcdefgh"_s) << "the table has its own order again";
    click(u"Warm-up"_s);
    EXPECT_EQ(shown(), u"bgad"_s);

    select(u"ga"_s);
    press(QKeySequence(Qt::Key_Delete), &table());
    EXPECT_EQ(shown(), u"bd"_s);
    EXPECT_EQ(badge(u"Warm-up"_s), 2);
    openAgain();
    click(u"Warm-up"_s);
    EXPECT_EQ(shown(), u"bd"_s);
    undo().undo(); // nothing of before
    click(u"Warm-up"_s);
    press(QKeySequence(Qt::Key_Delete), &list());
    EXPECT_EQ(
        Crate::countOfUsingPredicate(KXPredicate::predicateWithFormat("name == %@", u"Warm-up"_s), *window->context()),
        0);
    undo().undo();
    turns();
    EXPECT_EQ(badge(u"Warm-up"_s), 2);
    click(u"Warm-up"_s);
    EXPECT_EQ(shown(), u"bd"_s) << "with what was in it";
}

TEST_F(CratesTest, fromCrateToCrateTracksMoveAndWithControlTheyAreCopied)
{
    openNight();
    EXPECT_EQ(badge(u"Night"_s), 3) << "b is in both";
    click(u"Night"_s);
    EXPECT_EQ(shown(), u"abc"_s) << "a folder has no order of its own";
    click(u"One"_s);
    EXPECT_EQ(shown(), u"cab"_s);
    select(u"a"_s);
    EXPECT_EQ(dropOnto(u"One"_s), Qt::IgnoreAction) << "it is there";
    EXPECT_EQ(dropOnto(u"Night"_s), Qt::IgnoreAction);
    EXPECT_EQ(dropOnto(u"History"_s), Qt::IgnoreAction);
    EXPECT_EQ(dropOnto(u"Two"_s, Qt::ControlModifier), Qt::CopyAction);
    EXPECT_EQ(shown(), u"cab"_s);
    select(u"cb"_s);
    EXPECT_EQ(dropOnto(u"Two"_s), Qt::MoveAction);
    EXPECT_EQ(undo().undoActionName(), u"Move Tracks"_s);
    EXPECT_EQ(shown(), u"a"_s);
    click(u"Two"_s);
    EXPECT_EQ(shown(), u"acb"_s);
    EXPECT_EQ(badge(u"Night"_s), 3);
    undo().undo();
    turns();
    EXPECT_EQ(shown(), u"ba"_s);
    EXPECT_EQ(badge(u"One"_s), 3);
}

TEST_F(CratesTest, fromATrackOneGetsToItsCrates)
{
    openNight();
    QStringList found;
    for (const auto &each : Crates::cratesOf(*track(u"b"_s)))
        found += CratesPane::path(*each);
    EXPECT_EQ(found, QStringList({ u"Night/One"_s, u"Night/Two"_s }));
    showAll();
    select(u"b"_s);
    QMenu *find = nullptr;
    for (QAction *action :
        window->menuBar()->findChildren<QMenu *>().isEmpty() ? QList<QAction *>() : window->menuBar()->actions()) {
        for (QAction *item : action->menu() ? action->menu()->actions() : QList<QAction *>()) {
            if (item->menu() && item->text().remove(u'&') == u"Show in Crate"_s)
                find = item->menu();
        }
    }
    ASSERT_TRUE(find);
    Q_EMIT find->aboutToShow();
    ASSERT_EQ(find->actions().size(), 2);
    find->actions().first()->trigger();
    turns();
    EXPECT_EQ(shown(), u"cab"_s);
    EXPECT_EQ(table().currentIndex().row(), 2);
}

TEST_F(CratesTest, whatLeavesTheLibraryLeavesItsCratesAndAFolderTakesThemAlong)
{
    openNight();
    click(u"One"_s);
    window->context()->removeManagedObject(track(u"a"_s));
    turns();
    EXPECT_EQ(shown(), u"cb"_s);
    EXPECT_EQ(badge(u"Night"_s), 2);
    click(u"Night"_s);
    press(QKeySequence(Qt::Key_Delete), &list());
    EXPECT_EQ(Crate::countOfUsingPredicate(KXPredicate::predicateWithFormat("kind < 2"), *window->context()), 0);
    undo().undo();
    turns();
    EXPECT_EQ(badge(u"Night"_s), 2);
}

TEST_F(CratesTest, tracksArePreparedByAKeyAndWhatWasPlayedIsKeptByDay)
{
    open();
    select(u"bd"_s);
    press(QKeySequence(Qt::Key_P), &table());
    EXPECT_EQ(badge(u"Prepare"_s), 2);
    select(u"bc"_s);
    press(QKeySequence(Qt::Key_P), &table());
    EXPECT_EQ(badge(u"Prepare"_s), 3);
    press(QKeySequence(Qt::Key_P), &table());
    EXPECT_EQ(badge(u"Prepare"_s), 1) << "all of them were there";
    press(QKeySequence(u"Ctrl+Z"_s));
    EXPECT_EQ(badge(u"Prepare"_s), 3);
    click(u"Prepare"_s);
    EXPECT_EQ(shown(), u"bdc"_s);
    press(QKeySequence(Qt::Key_F2), &list());
    EXPECT_FALSE(qobject_cast<QLineEdit *>(QApplication::focusWidget())) << "it is not the user's to rename";
    press(QKeySequence(Qt::Key_Delete), &list());
    EXPECT_EQ(badge(u"Prepare"_s), 3);

    CrateEditor &editor = pane().editor();
    const auto play
        = [&](int number, int day) { editor.notePlayed(window->model()->tracks().key(number), QDate(2026, 3, day)); };
    play(0, 1), play(1, 1), play(0, 1), play(2, 2);
    turns();
    const auto history = crate(u"History"_s);
    pane().list()->expandItem(history.get());
    turns();
    EXPECT_EQ(badge(u"History"_s), 3);
    const auto days = pane().tree()->treeNodeForObject(history.get())->childNodes();
    ASSERT_EQ(days.size(), 2);
    const auto newest = Crate::cast(days.first()->representedObject());
    EXPECT_EQ(newest->day(), u"2026-03-02"_s) << "the newest day stands first";
    pane().select(Crate::cast(days.last()->representedObject()));
    turns();
    EXPECT_EQ(shown(), u"db"_s) << "once each, in the order in which they were played last";
    select(u"d"_s);
    EXPECT_EQ(dropOnto(u"Prepare"_s), Qt::IgnoreAction) << "it is there";
    EXPECT_EQ(undo().undoActionName(), u"Prepare"_s) << "what was played is no step";
    openAgain();
    EXPECT_EQ(badge(u"Prepare"_s), 3);
    EXPECT_EQ(Crate::countOfInContext(*window->context()), 4) << "the fixed ones are made once";
}

TEST_F(CratesTest, rowsAreCopiedAsText)
{
    open();
    select(u"bd"_s);
    press(QKeySequence(QKeySequence::Copy), &table());
    const QStringList lines = QGuiApplication::clipboard()->text().split(u'\n', Qt::SkipEmptyParts);
    ASSERT_EQ(lines.size(), 2);
    EXPECT_TRUE(lines[0].startsWith(u"b\t"_s) && lines[0].contains(u"\t121.0\t"_s)) << lines[0].toStdString();
    EXPECT_TRUE(lines[1].startsWith(u"d\t"_s));
}

TEST_F(CratesTest, whatIsEditedInOneOfTheSelectedRowsIsEditedInAllAndTheyAreAddedUp)
{
    open();
    for (int i = 0; i < 3; ++i) {
        window->model()->track(i)->setDuration(3600);
        window->model()->track(i)->setFileSize(1'000'000);
    }
    const auto said = [&](const QString &text) {
        const auto labels = window->statusBar()->findChildren<QLabel *>();
        return std::any_of(labels.begin(), labels.end(),
            [&](const QLabel *label) { return label->isVisible() && label->text().contains(text); });
    };
    EXPECT_FALSE(said(u"selected"_s));
    select(u"abc"_s);
    EXPECT_TRUE(QTest::qWaitFor([&] { return said(u"3 selected  ·  3:00:00  ·  3.0 MB"_s); })) << "tracks, time, size";

    // A click on a star, and a comment by a key, in a window that is too narrow for all columns.
    window->resize(700, 500);
    turns();
    const QModelIndex rating = window->model()->index(1, TrackTableModel::Rating);
    table().scrollTo(rating);
    const QRect star = TrackDelegate::starBox(table().visualRect(rating), 4, Qt::LeftToRight);
    QTest::mouseClick(table().viewport(), Qt::LeftButton, {}, star.center());
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(window->model()->track(i)->rating(), i < 3 ? std::optional(4) : std::nullopt) << i;
    EXPECT_EQ(undo().undoActionName(), u"Change Rating"_s);
    select(u"bd"_s);
    table().horizontalScrollBar()->setValue(0);
    press(QKeySequence(Qt::Key_F2));
    type(u"both"_s);
    EXPECT_EQ(window->model()->track(1)->comment(), u"both"_s);
    EXPECT_EQ(window->model()->track(3)->comment(), u"both"_s);
    EXPECT_FALSE(window->model()->track(2)->comment());
    EXPECT_TRUE(QTest::qWaitFor([&] { return table().horizontalScrollBar()->value() == 0; }))
        << "the title is in sight";
    press(QKeySequence(u"Ctrl+Z"_s));
    EXPECT_FALSE(window->model()->track(1)->comment() || window->model()->track(3)->comment());
}

// More than are edited at once: the window stays alive, and the step can be undone.
TEST_F(CratesTest, veryManyTracksAreEditedInTheBackground)
{
    for (int i = 0; i < 3'000; ++i)
        add(u"m%1"_s.arg(i))->setRating(i % 2 ? std::optional(2) : std::nullopt);
    save();
    open();
    const auto rated = [&](const char *format) {
        return Track::countOfUsingPredicate(KXPredicate::predicateWithFormat(format), *window->context());
    };
    table().setFocus();
    table().selectAll();
    press(QKeySequence(Qt::Key_4), &table());
    EXPECT_EQ(undo().undoActionName(), u"Change Rating"_s);
    ASSERT_TRUE(QTest::qWaitFor([&] { return rated("rating == 4") == 3'008; }, 60'000)) << rated("rating == 4");
    press(QKeySequence(u"Ctrl+Z"_s));
    ASSERT_TRUE(QTest::qWaitFor([&] { return rated("rating == 4") == 0; }, 60'000)) << rated("rating == 4");
    EXPECT_EQ(rated("rating == 2"), 1'500);
    EXPECT_EQ(rated("rating == nil"), 1'508);
    table().selectAll();
    press(QKeySequence(Qt::Key_1), &table());
    window->close(); // in the middle
    window.reset();
}

// First starts: an import ends before the window has begun to count.
TEST_F(CratesTest, everyBadgeIsThereWhenTheFirstImportEnds)
{
    for (int round = KXTestRandom::scaled(100); round > 0; --round) {
        const QTemporaryDir fresh;
        const auto empty = Library::open(fresh.filePath(u"library.db"_s), nullptr);
        ASSERT_TRUE(empty);
        const auto musicComes = [&](KXManagedObjectContext &to) {
            const auto genre = Genre::createInContext(to);
            genre->setName(u"House"_s);
            for (int i = 0; i < 3; ++i)
                add(to, QString::number(i), 124)->addToGenres(genre);
            ASSERT_TRUE(to.save());
        };
        window = std::make_unique<BrowserWindow>(empty);
        window->show();
        if (round % 2)
            QTest::qWait(round);
        musicComes(*KXManagedObjectContext::contextWithPersistentStoreCoordinator(empty));
        KXManagedObjectContext &context = *window->context();
        ASSERT_TRUE(
            QTest::qWaitFor([&] { return Track::countOfInContext(context) == 3 && window->model()->rowCount() == 3; }));
        window->sources()->musicDidChange(); // as the end of an import says it
        auto &library = *window->sources()->library();
        for (const KXTreeNode *node : library.treeController()->flattenedNodes()) {
            const QModelIndex row = library.treeController()->indexForNode(node);
            const KXSourceListCell cell = library.sourceListView()->cellForRow(row);
            const bool isEmpty = cell.title == u"Recently Added"_s || cell.title == u"Duplicates"_s;
            ASSERT_EQ(cell.count, isEmpty ? 0 : 3) << cell.title.toStdString() << ", round " << round;
        }
        window.reset();
    }
}

TEST_F(CratesTest, foldersAreAddedByTheMenuAndByDroppingThem)
{
    const QTemporaryDir music;
    const std::string one = music.filePath(u"one"_s).toStdString(), two = music.filePath(u"two"_s).toStdString();
    makeMusic(one + "/x.wav", { { "TITLE", "x" } }, AudioFormat::Wav);
    makeMusic(one + "/in/y.wav", { { "TITLE", "y" } }, AudioFormat::Wav);
    makeMusic(two + "/z.wav", { { "TITLE", "z" } }, AudioFormat::Wav);
    for (const auto key : { Settings::musicFolderKey, Settings::moreMusicFoldersKey })
        KXUserDefaults::standard().remove(key);
    open();
    QMimeData dropped;
    dropped.setUrls(
        { QUrl::fromLocalFile(QString::fromStdString(one)), QUrl::fromLocalFile(QString::fromStdString(two)),
            QUrl::fromLocalFile(QString::fromStdString(one + "/in")), QUrl(u"http://example.com/"_s) });
    EXPECT_EQ(DragAndDrop::drop(table(), dropped, { 60, 60 }, Qt::CopyAction), Qt::CopyAction);
    EXPECT_EQ(Settings::musicFolders(), (std::vector { one, two })) << "what lies in one of them is not another";
    EXPECT_TRUE(QTest::qWaitFor([&] { return shown() == u"abcdefghxyz"_s; }, 60'000)) << shown().toStdString();
    makeMusic(two + "/zz.wav", { { "TITLE", "zz" } }, AudioFormat::Wav);
    press(QKeySequence(Qt::Key_F5));
    EXPECT_TRUE(QTest::qWaitFor([&] { return shown() == u"abcdefghxyzzz"_s; }, 60'000)) << shown().toStdString();
    QMimeData files;
    files.setUrls({ QUrl(u"http://example.com/"_s) });
    EXPECT_EQ(DragAndDrop::drop(table(), files, { 60, 60 }, Qt::CopyAction), Qt::IgnoreAction);

    // A file that cannot be read is told of once, and again only when one asks.
    ASSERT_TRUE(QTest::qWaitFor([&] { return !window->isImporting(); }, 60'000));
    writeBytes(two + "/bad.mp3", "no music");
    KXMessageCenter &center = KXMessageCenter::sharedInstance();
    for (const int told : { 1, 0 }) {
        center.clearMessages(center.messages());
        QSignalSpy finished(window.get(), &BrowserWindow::importFinished);
        window->files()->rescan();
        ASSERT_TRUE(QTest::qWaitFor([&] { return finished.size() == 2; }, 60'000));
        EXPECT_EQ(center.messageCount(), told);
    }
    for (QAction *action : window->findChildren<QAction *>()) {
        if (action->text().remove(u'&') == u"Files That Could Not Be Read"_s)
            action->trigger();
    }
    EXPECT_EQ(center.messageCount(), 1);
    center.clearMessages(center.messages());

    // The preferences know both folders, and take one of them away.
    Settings::removeMusicFolder(one);
    EXPECT_EQ(Settings::musicFolders(), std::vector { two });
    // One whose drive is unplugged is out of sight, whatever is added and taken away meanwhile.
    const std::string away = music.filePath(u"away"_s).toStdString(), other = music.filePath(u"other"_s).toStdString();
    std::filesystem::create_directory(other);
    Settings::addMusicFolders({ one });
    std::filesystem::rename(two, away);
    Settings::addMusicFolders({ other });
    EXPECT_EQ(Settings::musicFolders(), (std::vector { one, other }));
    EXPECT_EQ(Settings::musicFolder(), one);
    Settings::removeMusicFolder(other);
    std::filesystem::rename(away, two);
    EXPECT_EQ(Settings::musicFolders(), (std::vector { one, two }));
    std::filesystem::rename(one, away);
    Settings::removeMusicFolder(two);
    EXPECT_TRUE(Settings::musicFolders().empty());
    std::filesystem::rename(away, one);
    EXPECT_EQ(Settings::musicFolders(), std::vector { one });
    for (const auto key : { Settings::musicFolderKey, Settings::moreMusicFoldersKey })
        KXUserDefaults::standard().remove(key);
    press(QKeySequence(u"Ctrl+W"_s));
    EXPECT_FALSE(window->isVisible());
}

// Dragged by a real pointer, at the pace of a hand.

TEST_F(CratesTest, DISABLED_onThisDisplay)
{
    open();
    window->move(0, 0);
    const auto made = pane().editor().make(Crate::Kind::Plain, {}, u"Real"_s);
    turns();
    const auto hand = [&](const QPoint &from, const QPoint &to, const QString &key = {}) {
        QStringList steps { u"mousemove"_s, QString::number(from.x()), QString::number(from.y()) };
        steps << u"mousedown"_s << u"1"_s;
        if (!key.isEmpty())
            steps << u"keydown"_s << key;
        for (int i = 1; i <= 20; ++i) {
            const QPoint at = from + (to - from) * i / 20;
            steps << u"mousemove"_s << QString::number(at.x()) << QString::number(at.y()) << u"sleep"_s << u"0.02"_s;
        }
        steps << u"sleep"_s << u"0.2"_s << u"mouseup"_s << u"1"_s;
        if (!key.isEmpty())
            steps << u"keyup"_s << key;
        QProcess process;
        startWithFork(process);
        process.start(u"xdotool"_s, steps);
        EXPECT_TRUE(QTest::qWaitFor([&] { return process.state() == QProcess::NotRunning; }, 60'000));
        turns();
    };
    const auto ofRow = [&](int row) {
        return table().viewport()->mapToGlobal(
            QPoint(80, table().rowViewportPosition(row) + table().rowHeight(row) / 2));
    };
    const auto ofCrate
        = [&](const QString &title) { return list().viewport()->mapToGlobal(list().visualRect(row(title)).center()); };
    for (const int number : { 4, 1, 2 })
        hand(ofRow(number), ofCrate(u"Real"_s));
    EXPECT_EQ(table().selectedRowNumbers(), QList<int> { 2 }) << "a drag selects its row, and no others";
    click(u"Real"_s);
    EXPECT_EQ(shown(), u"ebc"_s);
    hand(ofRow(2), ofRow(0) - QPoint(0, 8));
    EXPECT_EQ(shown(), u"ceb"_s);
    hand(ofRow(0), ofCrate(u"Prepare"_s));
    EXPECT_EQ(shown(), u"eb"_s);
    EXPECT_EQ(badge(u"Prepare"_s), 1);
    EXPECT_FALSE(window->context()->hasChanges());
}

TEST(Crates, aRealPointerDragsTracksIntoThemAndOrdersThem) { runOnOwnDisplay(u"CratesTest.DISABLED_onThisDisplay"_s); }
