// What the window asks and says where there is nothing yet: file dialogs, and the greeting of an empty library.

#include <QFileDialog>
#include <QMimeData>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>

#include <kestrixkit/foundation/KXUserDefaults.h>

#include <filters/FilterStrip.h>
#include <import/FileCommands.h>
#include <import/FileDialogs.h>
#include <table/TrackTableView.h>
#include <window/BrowserWindow.h>
#include <window/Settings.h>
#include <window/Welcome.h>

#include <support/DragAndDrop.h>

#include "LibraryTest.h"
#include "MusicFiles.h"

using namespace Qt::StringLiterals;
namespace fs = std::filesystem;

class DialogsTest : public LibraryTest
{
protected:
    void SetUp() override
    {
        LibraryTest::SetUp();
        for (const auto key : { Settings::musicFolderKey, Settings::moreMusicFoldersKey })
            KXUserDefaults::standard().remove(key);
        window = std::make_unique<BrowserWindow>(coordinator);
        window->show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(window.get()));
        welcome = window->findChild<Welcome *>();
        ASSERT_TRUE(welcome);
    }
    void TearDown() override { KXUserDefaults::standard().remove(Settings::musicFolderKey); }
    [[nodiscard]] QPushButton *button(const QString &text) const
    {
        for (QPushButton *each : welcome->findChildren<QPushButton *>()) {
            if (each->text().remove(u'&') == text)
                return each;
        }
        return nullptr;
    }

    std::unique_ptr<BrowserWindow> window;
    Welcome *welcome = nullptr;
};

TEST_F(DialogsTest, askForFilesWhereTheyWereAskedForLast)
{
    const QDir music(folder.filePath(u"music"_s));
    makeMusic(music.filePath(u"in/A.FLAC"_s).toStdString());
    QStringList chosen;
    const FileDialogs::Question question { u"Add Files"_s, u"Add"_s, FileDialogs::Kind::MusicFiles, u"test"_s };
    const auto ask = [&](const FileDialogs::Question &asked) {
        FileDialogs::ask(window->table(), asked, window.get(), [&](const std::vector<std::string> &paths) {
            for (const std::string &path : paths)
                chosen.append(QString::fromStdString(path));
        });
        return window->findChild<QFileDialog *>();
    };
    Settings::setChosenFolder(u"test"_s, folder.filePath(u"not there/at all"_s));
    QPointer<QFileDialog> dialog = ask(question);
    ASSERT_TRUE(dialog);
    EXPECT_EQ(dialog->parentWidget(), window.get());
    EXPECT_TRUE(dialog->isModal());
    EXPECT_EQ(dialog->windowTitle(), u"Add Files"_s);
    EXPECT_EQ(dialog->labelText(QFileDialog::Accept), u"Add"_s);
    EXPECT_EQ(QFileInfo(dialog->directory().path()).canonicalFilePath(), QFileInfo(folder.path()).canonicalFilePath())
        << "the nearest folder that is there";
    EXPECT_TRUE(dialog->nameFilters().value(0).contains(u"*.FLAC"_s)) << dialog->nameFilters().join(u'|').toStdString();
    EXPECT_EQ(dialog->nameFilters().size(), 2);
    dialog->setDirectory(music.filePath(u"in"_s));
    dialog->reject();
    EXPECT_NE(Settings::chosenFolder(u"test"_s), music.filePath(u"in"_s)) << "nothing was chosen";
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    dialog = ask(question);
    dialog->setDirectory(music.filePath(u"in"_s));
    dialog->selectFile(u"A.FLAC"_s);
    QMetaObject::invokeMethod(dialog, "accept");
    EXPECT_EQ(chosen, QStringList { music.filePath(u"in/A.FLAC"_s) });
    EXPECT_EQ(Settings::chosenFolder(u"test"_s), music.filePath(u"in"_s));
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    dialog = ask(question);
    EXPECT_EQ(dialog->directory().path(), music.filePath(u"in"_s));
    delete dialog;
    FileDialogs::Question elsewhere = question;
    elsewhere.startIn = music.path();
    dialog = ask(elsewhere);
    EXPECT_EQ(dialog->directory().path(), music.path());
    delete dialog;
}

TEST_F(DialogsTest, anEmptyLibraryGreets)
{
    EXPECT_TRUE(welcome->isVisible());
    EXPECT_EQ(welcome->size(), window->table()->viewport()->size());
    ASSERT_TRUE(button(u"Add Music Folder…"_s));
    EXPECT_TRUE(button(u"Try Demo Music"_s)->isVisible());
    QTest::mouseClick(button(u"Add Music Folder…"_s), Qt::LeftButton);
    const QPointer<QFileDialog> dialog = window->findChild<QFileDialog *>();
    ASSERT_TRUE(dialog);
    EXPECT_EQ(dialog->fileMode(), QFileDialog::Directory);
    delete dialog;
    // Where there is another reason it says that one instead.
    window->filterStrip()->setNarrowingText(u"nothing is called that"_s);
    ASSERT_TRUE(QTest::qWaitFor([&] { return !button(u"Add Files…"_s)->isVisible(); }, 5'000));
    EXPECT_TRUE(welcome->isVisible());
    window->filterStrip()->setNarrowingText({});
    ASSERT_TRUE(QTest::qWaitFor([&] { return button(u"Add Files…"_s)->isVisible(); }, 5'000));

    makeMusic(folder.filePath(u"music/a.flac"_s).toStdString());
    QMimeData dropped;
    dropped.setUrls({ QUrl::fromLocalFile(folder.filePath(u"music"_s)) });
    QSignalSpy finished(window.get(), &BrowserWindow::importFinished);
    EXPECT_EQ(DragAndDrop::drop(*window->table(), dropped, { 60, 60 }, Qt::CopyAction), Qt::CopyAction);
    EXPECT_FALSE(welcome->isVisible());
    ASSERT_TRUE(QTest::qWaitFor([&] { return !finished.isEmpty(); }, 8'000));
    EXPECT_FALSE(welcome->isVisible());
    EXPECT_EQ(window->model()->rowCount(), 1);
}
