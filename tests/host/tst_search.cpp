// Finding in the browser's window, by the keyboard alone.

#include <QDir>
#include <QImage>
#include <QLabel>
#include <QLineEdit>
#include <QTableView>
#include <QTest>

#include <kestrixkit/foundation/KXClock.h>
#include <kestrixkit/toolkit/KXAnimationGroup.h>

#include <places/SourceColumn.h>
#include <player/Preview.h>
#include <search/SearchPopover.h>
#include <table/TrackTableView.h>
#include <window/BrowserWindow.h>

#include "WindowTest.h"
#include "support/AudioFiles.h"
#include "support/KXTestRandom.h"

using namespace Qt::StringLiterals;

/// Many songs, three of which are by Björk, and one that can be heard; the search is open.
class SearchTest : public WindowTest
{
protected:
    void open(int songs)
    {
        count = songs;
        KXAnimationGroup::setAnimationsEnabled(false);
        const auto artist = Artist::createInContext(*context);
        artist->setName(u"Björk"_s);
        for (int i = 0; i < count; ++i) {
            const auto track = add(name(i));
            if (i % (count / 3) == 7)
                track->addToArtists(artist);
        }
        const auto heard = add(u"Audible"_s);
        ASSERT_TRUE(QDir(folder.path()).mkdir(u"album"_s));
        heard->setLocation(
            QUrl::fromLocalFile(writePlainWave(makeSound(20'000), folder.filePath(u"album/heard.wav"_s))));
        QImage picture(40, 40, QImage::Format_RGB32);
        picture.fill(Qt::red);
        ASSERT_TRUE(picture.save(folder.filePath(u"album/cover.png"_s)));
        save();
        openWindow({ 1200, 700 });
        ASSERT_TRUE(QTest::qWaitForWindowActive(window.get()));
        QTest::keyClick(window.get(), Qt::Key_F, Qt::ControlModifier);
        ASSERT_TRUE(search().popover() && search().popover()->isShown());
    }
    void TearDown() override
    {
        WindowTest::TearDown();
        KXAnimationGroup::setAnimationsEnabled(true);
    }
    static QString name(int number) { return u"Love Song %1"_s.arg(number, 6, 10, QChar(u'0')); }
    SearchPopover &search() { return *window->search(); }
    LibrarySearchViewController &controller() { return *search().controller(); }
    QLineEdit *field() { return controller().searchField(); }
    QString rows()
    {
        QStringList texts;
        for (int row = 0; row < controller().resultsContent()->rowCount(); ++row)
            texts.append(controller().resultsContent()->index(row).data().toString());
        return texts.join(u'|');
    }
    testing::AssertionResult shows(const QString &expected)
    {
        return QTest::qWaitFor([&] { return rows() == expected; }, 20'000)
            ? testing::AssertionSuccess()
            : testing::AssertionFailure() << rows().toStdString();
    }
    KXRef<Track> currentTrack() { return window->model()->track(window->table()->currentIndex().row()); }

    int count = 0;
};

TEST_F(SearchTest, ofTwoHundredQuickKeystrokesTheLastTermAloneIsShown)
{
    open(std::max(30'000, KXTestRandom::scaled(300'000)));
    for (int i = 0; i < 197; ++i)
        QTest::keyClick(field(), Qt::Key_L);
    field()->setText(u"song 012"_s);
    QTest::keyClick(field(), Qt::Key_3);
    QTest::keyClick(field(), Qt::Key_4);
    QTest::keyClick(field(), Qt::Key_5);
    EXPECT_TRUE(shows(u"Tracks  ·  1|Love Song 012345"_s));
    EXPECT_TRUE(controller().selectedItem().isValid());
    QTest::keyClick(field(), Qt::Key_Return);
    EXPECT_FALSE(search().popover()->isShown());
    const QModelIndex current = window->table()->currentIndex();
    EXPECT_EQ(window->model()->track(current.row())->title(), name(12345));
    EXPECT_TRUE(window->table()->selectionModel()->isRowSelected(current.row(), {}));
    EXPECT_TRUE(window->table()->viewport()->rect().intersects(window->table()->visualRect(current)));
}

TEST_F(SearchTest, showsGroupsAndGoesToAnArtistsTracks)
{
    open(3'000);
    field()->setText(u"bjor"_s);
    EXPECT_TRUE(shows(
        u"Tracks  ·  3|%1|%2|%3|Artists  ·  1|Björk"_s.arg(name(7), name(count / 3 + 7), name(2 * count / 3 + 7))));
    for (int i = 0; i < 3; ++i)
        QTest::keyClick(field(), Qt::Key_Down);
    QTest::keyClick(field(), Qt::Key_Return);
    EXPECT_EQ(window->model()->rowCount(), 3);
    QTest::qWait(50);
    EXPECT_EQ(window->model()->rowCount(), 3);
}

TEST_F(SearchTest, showsAmongAllTracksWhatLiesElsewhere)
{
    open(3'000);
    field()->setText(u"bjor"_s);
    ASSERT_TRUE(QTest::qWaitFor([&] { return rows().endsWith(u"Björk"_s); }, 20'000));
    for (int i = 0; i < 3; ++i)
        QTest::keyClick(field(), Qt::Key_Down);
    QTest::keyClick(field(), Qt::Key_Return);
    ASSERT_EQ(window->model()->rowCount(), 3);
    search().show();
    field()->setText(name(2'999));
    EXPECT_TRUE(shows(u"Tracks  ·  1|"_s + name(2'999)));
    QTest::keyClick(field(), Qt::Key_Return);
    EXPECT_EQ(window->model()->rowCount(), count + 1);
    EXPECT_EQ(currentTrack()->title(), name(2'999));
}

TEST_F(SearchTest, followsWhatChanges)
{
    open(3'000);
    const auto other
        = Track::findFirstUsingPredicate(KXPredicate::predicateWithFormat("title == %@", name(7)), *window->context());
    other->setTitle(u"Changed"_s);
    field()->setText(u"change"_s);
    EXPECT_TRUE(shows(u"Tracks  ·  1|Changed"_s));
    field()->setText(u"  "_s);
    EXPECT_TRUE(shows(QString()));
    EXPECT_TRUE(controller().placeholderView()->isVisible());
    field()->setText(u"love"_s);
    EXPECT_TRUE(QTest::qWaitFor([&] { return controller().resultsContent()->rowCount() > 4; }, 5000));
    // While it is shown it follows.
    window->context()->removeManagedObject(other);
    EXPECT_TRUE(QTest::qWaitFor(
        [&] { return rows().startsWith(u"Tracks  ·  %1|"_s.arg(KXClock::locale().toString(count - 1))); }, 5000));
}

TEST_F(SearchTest, showsThePictureAndPlaysFromTheField)
{
    open(3'000);
    field()->setText(u"audib"_s);
    EXPECT_TRUE(shows(u"Tracks  ·  1|Audible"_s));
    EXPECT_TRUE(QTest::qWaitFor([&] { return !controller().resultCell(controller().selectedItem()).image.isNull(); }));
    // A machine without sound says so, once it is asked to play.
    const auto isAsked = [&] {
        return window->preview()->playingIndex().isValid()
            || window->preview()->label()->text().startsWith(u"No sound card"_s);
    };
    EXPECT_FALSE(isAsked());
    QTest::keyClick(field(), Qt::Key_Return, Qt::ControlModifier);
    EXPECT_EQ(currentTrack()->title(), u"Audible"_s);
    EXPECT_TRUE(isAsked());
}
