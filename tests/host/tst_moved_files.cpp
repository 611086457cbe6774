// Files that were moved, renamed, tagged or encoded anew, that are gone, or there twice: what the user knows of their
// tracks stays.

#include <QAbstractItemView>
#include <QClipboard>
#include <QCompleter>
#include <QDialogButtonBox>
#include <QFileDialog>
#include <QLineEdit>
#include <QMimeData>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>

#include <kestrixkit/foundation/KXUndoManager.h>
#include <kestrixkit/foundation/KXUserDefaults.h>
#include <kestrixkit/toolkit/KXAlert.h>

#include <crates/Crate.h>
#include <crates/CrateEditor.h>
#include <files/MissingFiles.h>
#include <files/Sounds.h>
#include <import/FileCommands.h>
#include <import/Importer.h>
#include <places/LibraryPlaces.h>
#include <places/SourceColumn.h>
#include <table/TrackTableView.h>
#include <window/BrowserWindow.h>
#include <window/Settings.h>

#include <support/DragAndDrop.h>

#include "LibraryTest.h"
#include "Tunes.h"

using namespace Qt::StringLiterals;
namespace fs = std::filesystem;

class MovedFilesTest : public LibraryTest
{
protected:
    std::string root() const { return fs::canonical(music.path().toStdString()).native(); }
    std::string file(const std::string &name) const { return root() + '/' + name; }
    KXManagedObjectContext::Ref fresh()
    {
        return KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator);
    }

    ImportResult import(const ImportTask &task)
    {
        const ImportResult result = Importer(fresh(), task).run({});
        EXPECT_FALSE(result.error) << result.error.localizedDescription().toStdString();
        return result;
    }
    ImportResult import() { return import(root()); }
    void readSounds()
    {
        Sounds::readMissing(*fresh(), [] { return false; });
    }
    /// The only track of that title; what the user knows of it is what was().
    KXRef<Track> only(const QString &title)
    {
        readers.append(fresh());
        const auto found
            = Track::findUsingPredicate(KXPredicate::predicateWithFormat("title == %@", title), *readers.last());
        EXPECT_EQ(found.size(), 1) << title.toStdString();
        return found.isEmpty() ? KXRef<Track>() : found.first();
    }
    qint64 count(const char *predicate)
    {
        return fresh()->countForEntity(u"Track"_s, KXPredicate::predicateWithFormat(predicate));
    }
    /// Rates a track, comments on it and puts it into a crate.
    void know(const QString &title)
    {
        const auto mine = fresh();
        const auto track
            = Track::findFirstUsingPredicate(KXPredicate::predicateWithFormat("title == %@", title), *mine);
        ASSERT_TRUE(track);
        track->setRating(4);
        track->setComment(u"mine"_s);
        const qint64 key = track->objectID().key();
        CrateEditor(mine).make(Crate::Kind::Plain, {}, title, std::span(&key, 1));
        ASSERT_TRUE(mine->save());
    }
    static void expectKnown(const KXRef<Track> &track)
    {
        ASSERT_TRUE(track);
        EXPECT_EQ(track->rating(), 4);
        EXPECT_EQ(track->comment(), u"mine"_s);
        EXPECT_EQ(Crates::cratesOf(*track).size(), 1);
        EXPECT_FALSE(track->missing());
    }

    void open()
    {
        for (const auto key : { Settings::musicFolderKey, Settings::moreMusicFoldersKey })
            KXUserDefaults::standard().remove(key);
        window = std::make_unique<BrowserWindow>(coordinator);
        window->show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(window.get()));
        window->activateWindow();
        window->table()->setFocus();
        window->table()->sortByColumn(TrackTableModel::Title, Qt::AscendingOrder);
        QTest::qWait(5);
    }
    void importInWindow(const ImportTask &task)
    {
        QSignalSpy finished(window.get(), &BrowserWindow::importFinished);
        window->files()->enqueue(task);
        ASSERT_TRUE(QTest::qWaitFor([&] { return !finished.isEmpty(); }, 8'000));
        QTest::qWait(20); // what is asked afterwards, and what arrives in a later turn
    }
    QAction *action(const QString &text) const
    {
        for (QAction *each : window->findChildren<QAction *>()) {
            if (each->text().remove(u'&') == text)
                return each;
        }
        return nullptr;
    }
    /// Pastes a path into the dialog that is open.
    void chooseInDialog(const QString &path) const
    {
        const QPointer<QFileDialog> dialog = window->findChild<QFileDialog *>();
        ASSERT_TRUE(dialog);
        auto *const name = dialog->findChild<QLineEdit *>(u"fileNameEdit"_s);
        name->setFocus();
        name->selectAll();
        QGuiApplication::clipboard()->setText(path); // typed, it is completed meanwhile
        QTest::keyClick(name, Qt::Key_V, Qt::ControlModifier);
        if (name->completer() && name->completer()->popup())
            name->completer()->popup()->hide();
        QAbstractButton *const button = dialog->findChild<QDialogButtonBox *>()->button(QDialogButtonBox::Open);
        EXPECT_TRUE(QTest::qWaitFor([&] { return button->isEnabled(); }, 3'000)) << name->text().toStdString();
        QTest::mouseClick(button, Qt::LeftButton);
        QTest::qWait(5);
        delete dialog; // where it did not close
        window->activateWindow();
        window->table()->setFocus();
    }
    int row(const QString &title) const
    {
        for (int i = 0; i < window->model()->rowCount(); ++i) {
            if (window->model()->index(i, 0).data().toString() == title)
                return i;
        }
        return -1;
    }
    KXRef<Track> shown(const QString &title) const { return window->model()->track(row(title)); }

    QTemporaryDir music;
    QList<KXManagedObjectContext::Ref> readers;
    std::unique_ptr<BrowserWindow> window;
};

TEST_F(MovedFilesTest, areFoundAgainByWhatTheyAre)
{
    makeTune(file("in/a.flac"), 1, { { "TITLE", "a" } });
    makeTune(file("in/b.mp3"), 2, { { "TITLE", "b" } }, AudioFormat::Mp3);
    makeTune(file("in/c.flac"), 3, { { "TITLE", "c" } });
    import();
    const qint64 b = only(u"b"_s)->objectID().key(), c = only(u"c"_s)->objectID().key();
    for (const QString &title : { u"a"_s, u"b"_s, u"c"_s })
        know(title);
    // Before anything was heard, the file's size and time say enough.
    fs::create_directory(file("out"));
    fs::rename(file("in/a.flac"), file("out/with another name.flac"));
    ImportResult result = import();
    EXPECT_EQ(result.moved, 1);
    EXPECT_EQ(result.added + result.vanished, 0);
    expectKnown(only(u"a"_s));

    readSounds();
    fs::rename(file("in/b.mp3"), file("out/b.mp3"));
    setTags(file("out/b.mp3"), { { "TITLE", "retagged" }, { "ARTIST", "Somebody with a long name" } });
    fs::rename(file("in/c.flac"), file("out/c.flac"));
    setTags(file("out/c.flac"), { { "TITLE", "c" }, { "COMMENT", "the file's" } });
    result = import();
    EXPECT_EQ(result.moved, 2);
    EXPECT_EQ(result.added + result.vanished, 0);
    expectKnown(only(u"retagged"_s));
    EXPECT_EQ(only(u"retagged"_s)->objectID().key(), b);
    EXPECT_EQ(only(u"c"_s)->objectID().key(), c);
    EXPECT_EQ(only(u"c"_s)->rating(), 4);
    EXPECT_EQ(only(u"c"_s)->comment(), u"the file's"_s) << "it says something new";
    EXPECT_EQ(count("missing == TRUE"), 0);

    // A copy is another file.
    fs::copy_file(file("out/c.flac"), file("copy.flac"));
    EXPECT_EQ(import().added, 1);
    // So is one whose sound is not known yet.
    makeTune(file("new.flac"), 7, { { "TITLE", "c" } });
    fs::remove(file("copy.flac"));
    result = import();
    EXPECT_EQ(result.added, 1);
    EXPECT_EQ(result.vanished, 1);
}

TEST_F(MovedFilesTest, areTakenForThoseThatSoundAlikeOnlyWhereThereIsNoDoubt)
{
    for (uint32_t seed = 1; seed <= 4; ++seed) {
        const std::string name = "tune " + std::to_string(seed);
        makeTune(file(name + ".flac"), seed, { { "TITLE", name.c_str() } });
    }
    import();
    know(u"tune 1"_s);
    know(u"tune 2"_s);
    readSounds();
    // One for one; two for one; one whose old file is there.
    fs::remove(file("tune 1.flac"));
    makeTune(file("new/one.mp3"), 1, { { "TITLE", "tune 1" } }, AudioFormat::Mp3);
    fs::remove(file("tune 2.flac"));
    makeTune(file("new/two.mp3"), 2, { { "TITLE", "two as mp3" } }, AudioFormat::Mp3);
    makeTune(file("new/two.ogg"), 2, { { "TITLE", "two as ogg" } }, AudioFormat::Vorbis);
    makeTune(file("new/three.mp3"), 3, { { "TITLE", "three as mp3" } }, AudioFormat::Mp3);
    ImportResult result = import();
    EXPECT_EQ(result.moved, 1);
    EXPECT_EQ(result.added, 3);
    EXPECT_EQ(result.vanished, 1);
    EXPECT_EQ(result.doubtful.size(), 2U);
    expectKnown(only(u"tune 1"_s));
    EXPECT_EQ(pathOfUrl(only(u"tune 1"_s)->location()), file("new/one.mp3"));
    EXPECT_TRUE(only(u"tune 2"_s)->missing());

    // Asked about, the user says which of the two it is. That was a track, in a crate of its own.
    know(u"two as ogg"_s);
    open();
    QStringList asked;
    const auto runner = KXAlert::setRunner([&](const KXAlert &alert) {
        asked.append(alert.informativeText());
        return KXAlertAnswer { alert.informativeText().contains(u"two.ogg"_s) ? 0 : 1, false };
    });
    ImportTask task(root());
    task.onlyFindsMissing = true;
    importInWindow(task);
    ASSERT_TRUE(QTest::qWaitFor([&] { return row(u"two as ogg"_s) < 0; }, 8'000));
    EXPECT_TRUE(asked.join(u'|').contains(u"two.ogg"_s)) << asked.join(u'|').toStdString();
    EXPECT_LE(asked.size(), 2);
    const KXRef<Track> two = shown(u"tune 2"_s);
    EXPECT_EQ(pathOfUrl(two->location()), file("new/two.ogg"));
    EXPECT_EQ(two->rating(), 4);
    EXPECT_EQ(Crates::cratesOf(*two).size(), 2) << "those of either";
    EXPECT_EQ(window->context()->undoManager()->undoActionName(), u"Locate File"_s);
    window->context()->undoManager()->undo();
    QTest::qWait(5);
    EXPECT_GE(row(u"two as ogg"_s), 0);
    EXPECT_TRUE(shown(u"tune 2"_s)->missing());
}

TEST_F(MovedFilesTest, areLocatedByTheUser)
{
    makeTune(file("a.flac"), 1, { { "TITLE", "a" } });
    import();
    know(u"a"_s);
    readSounds();
    const QTemporaryDir other;
    const QString same = other.filePath(u"same.flac"_s), different = other.filePath(u"different.flac"_s);
    fs::rename(file("a.flac"), same.toStdString());
    makeTune(different.toStdString(), 2);
    import();
    open();
    window->table()->selectRow(0);
    int asked = 0, answer = 1;
    const auto runner = KXAlert::setRunner([&](const KXAlert &) {
        ++asked;
        return KXAlertAnswer { answer, false };
    });
    const auto locate = [&](const QString &path) {
        action(u"Locate File…"_s)->trigger();
        chooseInDialog(path);
    };
    locate(different);
    ASSERT_TRUE(QTest::qWaitFor([&] { return asked == 1; }, 6'000));
    QTest::qWait(5);
    EXPECT_TRUE(shown(u"a"_s)->missing()) << "the user said no";
    locate(same);
    ASSERT_TRUE(QTest::qWaitFor([&] { return !shown(u"a"_s)->missing(); }, 8'000));
    EXPECT_EQ(asked, 1);
    expectKnown(shown(u"a"_s));
    EXPECT_EQ(shown(u"a"_s)->location(), QUrl::fromLocalFile(same));
    answer = 0;
    locate(different);
    ASSERT_TRUE(QTest::qWaitFor([&] { return shown(u"a"_s)->location() == QUrl::fromLocalFile(different); }, 8'000));
    EXPECT_EQ(asked, 2);
    expectKnown(shown(u"a"_s));
    ASSERT_TRUE(QTest::qWaitForWindowActive(window.get())); // the dialog has just gone
    for (int i = 0; i < 2; ++i)
        QTest::keyClick(window.get(), Qt::Key_Z, Qt::ControlModifier);
    EXPECT_TRUE(QTest::qWaitFor([&] { return shown(u"a"_s)->missing(); }, 5'000));
    answer = 5;
    writeBytes(other.filePath(u"text.flac"_s).toStdString(), "no music");
    locate(other.filePath(u"text.flac"_s));
    ASSERT_TRUE(QTest::qWaitFor([&] { return asked == 3; }, 8'000));
    EXPECT_TRUE(shown(u"a"_s)->missing());
}

TEST_F(MovedFilesTest, areTakenOutOfTheLibraryAndStayOnTheDisk)
{
    for (uint32_t seed = 1; seed <= 3; ++seed)
        makeMusic(file(std::to_string(seed) + ".wav"), { { "TITLE", std::string(1, char('a' + seed - 1)).c_str() } },
            AudioFormat::Wav);
    import();
    know(u"b"_s);
    open();
    window->table()->selectRow(row(u"a"_s));
    QTest::keyClick(window->table(), Qt::Key_Down, Qt::ShiftModifier);
    QTest::keyClick(window->table(), Qt::Key_Delete, Qt::ControlModifier);
    QTest::qWait(5);
    EXPECT_EQ(window->model()->rowCount(), 1);
    EXPECT_TRUE(fs::exists(file("1.wav")) && fs::exists(file("2.wav")));
    importInWindow(ImportTask(root()));
    EXPECT_EQ(window->model()->rowCount(), 1) << "the import leaves them alone";
    QTest::keyClick(window.get(), Qt::Key_Z, Qt::ControlModifier);
    QTest::qWait(5);
    EXPECT_EQ(window->model()->rowCount(), 3);
    expectKnown(shown(u"b"_s));
    QTest::keyClick(window.get(), Qt::Key_Z, Qt::ControlModifier | Qt::ShiftModifier);
    QTest::qWait(5);
    ASSERT_EQ(window->model()->rowCount(), 1);
    ASSERT_TRUE(window->context()->save());
    // Asked for by name, one comes back; by being dropped, too.
    action(u"Add Files…"_s)->trigger();
    chooseInDialog(QString::fromStdString(file("1.wav")));
    ASSERT_TRUE(QTest::qWaitFor([&] { return window->model()->rowCount() == 2; }, 8'000));
    QMimeData dropped;
    dropped.setUrls({ urlOfPath(file("2.wav")), urlOfPath(file("3.wav")) });
    EXPECT_EQ(DragAndDrop::drop(*window->table(), dropped, { 60, 60 }, Qt::CopyAction), Qt::CopyAction);
    ASSERT_TRUE(QTest::qWaitFor([&] { return window->model()->rowCount() == 3; }, 8'000));
    EXPECT_TRUE(Settings::musicFolders().empty());
    EXPECT_EQ(import().unchanged, 3);
}

TEST_F(MovedFilesTest, thatAreThereTwiceAreAPlace)
{
    makeTune(file("a.flac"), 1, { { "TITLE", "a" } });
    makeTune(file("b.flac"), 2, { { "TITLE", "b" } });
    fs::copy_file(file("a.flac"), file("a copy.flac"));
    setTags(file("a copy.flac"), { { "TITLE", "a again" } });
    open();
    importInWindow(ImportTask(root()));
    bool isRead = false;
    window->files()->readSounds([&] { isRead = true; });
    ASSERT_TRUE(QTest::qWaitFor([&] { return isRead; }, 8'000));
    KXSourceListViewController &library = *window->sources()->library();
    const auto duplicates = [&] {
        for (const KXTreeNode *node : library.treeController()->flattenedNodes()) {
            const QModelIndex index = library.treeController()->indexForNode(node);
            if (library.sourceListView()->cellForRow(index).title == u"Duplicates"_s)
                return index;
        }
        return QModelIndex();
    };
    ASSERT_TRUE(duplicates().isValid());
    EXPECT_TRUE(QTest::qWaitFor([&] { return library.sourceListView()->cellForRow(duplicates()).count == 2; }, 8'000));
    QTest::mouseClick(library.sourceListView()->viewport(), Qt::LeftButton, {},
        library.sourceListView()->visualRect(duplicates()).center());
    ASSERT_TRUE(QTest::qWaitFor([&] { return window->model()->rowCount() == 2; }, 8'000))
        << window->sources()->placeURL().toString().toStdString() << ' ' << window->model()->rowCount() << " rows";
    EXPECT_GE(row(u"a again"_s), 0);
    window->table()->setFocus();
    window->table()->selectRow(row(u"a again"_s));
    QTest::keyClick(window->table(), Qt::Key_Delete, Qt::ControlModifier);
    EXPECT_TRUE(QTest::qWaitFor([&] { return window->model()->rowCount() == 0; })) << "one alone is no duplicate";
    QTest::keyClick(window.get(), Qt::Key_Z, Qt::ControlModifier);
    EXPECT_TRUE(QTest::qWaitFor([&] { return window->model()->rowCount() == 2; }));
    ASSERT_TRUE(window->context()->save());
    fs::remove(file("a copy.flac"));
    importInWindow(ImportTask(root()));
    EXPECT_TRUE(QTest::qWaitFor([&] { return window->model()->rowCount() == 0; }));
}

TEST_F(MovedFilesTest, sayNothingWhenTheirFolderGoesAwayWhileItIsLookedThrough)
{
    makeMusic(file("0.wav"), { { "TITLE", "x" } }, AudioFormat::Wav);
    import();
    for (int i = 1; i < 400; ++i)
        fs::copy_file(file("0.wav"), file(std::to_string(i) + ".wav"));
    const std::string here = root(), away = here + " away";
    const ImportResult result = Importer(fresh(), ImportTask(here)).run({}, [&](qint64, qint64) {
        if (!fs::exists(away)) {
            fs::rename(here, away);
            fs::create_directory(here); // the place of a drive stays behind, empty
        }
    });
    EXPECT_TRUE(result.error.localizedDescription().contains(u"went away"_s));
    EXPECT_LT(result.added, 399);
    EXPECT_TRUE(result.skipped.empty());
    EXPECT_EQ(count("missing == TRUE"), 0);
    fs::remove(here);
    fs::rename(away, here);
    EXPECT_EQ(import().added, 399 - result.added);
}
