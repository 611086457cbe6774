// The window's table: what it shows, in which order, and how it follows the store.

#include <QAbstractItemModelTester>
#include <QHeaderView>
#include <QLabel>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <kestrixkit/foundation/KXClock.h>

#include <table/TrackTableView.h>
#include <window/BrowserStyle.h>
#include <window/BrowserWindow.h>

#include "LibraryTest.h"
#include "MusicFiles.h"

using namespace Qt::StringLiterals;

class TableTest : public LibraryTest
{
protected:
    static QStringList column(const QAbstractItemModel &model, int column)
    {
        QStringList texts;
        for (int row = 0; row < model.rowCount(); ++row)
            texts.append(model.index(row, column).data().toString());
        return texts;
    }
};

TEST_F(TableTest, showsValuesTheWayDjsReadThem)
{
    const KXClockPin pin;
    KXClock::setLocale(QLocale(QLocale::English, QLocale::UnitedKingdom));
    const KXRef<Track> full = add(u"Full"_s, 127.98);
    full->setArtistText(u"Ann"_s);
    full->setKeyOrder(22); // 11A
    full->setRating(4);
    full->setDuration(3725.2);
    full->setYear(1998);
    full->setMissing(true);
    full->setImportNotes(u"BPM “fast” left out"_s);
    add(u"Empty"_s)->setDuration(59.6);
    save();

    TrackTableModel model(context);
    const QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::Fatal);
    model.sort(TrackTableModel::Title, Qt::DescendingOrder);
    const auto text = [&](int row, int column) { return model.index(row, column).data().toString(); };
    EXPECT_EQ(text(0, TrackTableModel::Bpm), u"128.0"_s);
    EXPECT_EQ(text(0, TrackTableModel::KeyName), u"11A · F#m"_s);
    EXPECT_EQ(text(0, TrackTableModel::Rating), u"★★★★"_s);
    EXPECT_EQ(text(0, TrackTableModel::Length), u"1:02:05"_s);
    EXPECT_EQ(text(0, TrackTableModel::Year), u"1998"_s);
    EXPECT_EQ(text(0, TrackTableModel::Added), u"03/05/2024"_s);
    EXPECT_TRUE(model.index(0, 0).data(TrackTableModel::MissingRole).toBool());
    EXPECT_TRUE(model.index(0, 0).data(Qt::ToolTipRole).toString().contains(u"fast"_s));
    EXPECT_TRUE(model.index(0, TrackTableModel::Rating).data(Qt::AccessibleTextRole).toString().contains(u"missing"_s));
    EXPECT_EQ(text(1, TrackTableModel::Length), u"0:59"_s);
    for (const int absent : { TrackTableModel::Artist, TrackTableModel::Bpm, TrackTableModel::KeyName,
             TrackTableModel::Rating, TrackTableModel::Year })
        EXPECT_EQ(text(1, absent), QString()) << absent;
    EXPECT_FALSE(model.index(2, 0).data().isValid());
    EXPECT_FALSE(model.index(0, TrackTableModel::ColumnCount).data().isValid());
}

TEST_F(TableTest, sortsByAnyColumn)
{
    add(u"b"_s, 90);
    add(u"a"_s, 128);
    add(u"C"_s);
    save();
    TrackTableModel model(context);
    model.sort(TrackTableModel::Title, Qt::AscendingOrder);
    EXPECT_EQ(column(model, TrackTableModel::Title), (QStringList { u"a"_s, u"b"_s, u"C"_s }));
    model.sort(TrackTableModel::Bpm, Qt::DescendingOrder);
    EXPECT_EQ(column(model, TrackTableModel::Title), (QStringList { u"a"_s, u"b"_s, u"C"_s }));
    model.sort(TrackTableModel::Bpm, Qt::AscendingOrder);
    EXPECT_EQ(column(model, TrackTableModel::Title), (QStringList { u"b"_s, u"a"_s, u"C"_s })) << "none comes last";
    add(u"d"_s); // unsaved ones are put to their places in memory
    add(u"e"_s, 100);
    context->processPendingChanges();
    EXPECT_EQ(column(model, TrackTableModel::Title), (QStringList { u"b"_s, u"e"_s, u"a"_s, u"C"_s, u"d"_s }));
    for (int any = 0; any < TrackTableModel::ColumnCount; ++any) {
        model.sort(any, Qt::AscendingOrder);
        EXPECT_EQ(model.rowCount(), 5) << any;
    }
}

TEST_F(TableTest, keysAndStarsAreSeenOnEveryRow)
{
    for (const bool dark : { true, false }) {
        BrowserStyle::setDark(dark);
        for (const QColor &row : { BrowserStyle::row(), BrowserStyle::alternateRow(), BrowserStyle::selection() }) {
            for (int key = 1; key <= 24; ++key) {
                const MusicalKey musical { (key + 1) / 2, key % 2 == 0 };
                const auto [letters, plate] = TrackTableView::plateColours(BrowserStyle::keyColour(musical), row);
                EXPECT_GE(BrowserStyle::contrast(letters, plate), 4.5) << key << ' ' << row.name().toStdString();
            }
            for (const QColor &star : { BrowserStyle::emptyStar(), BrowserStyle::accent() })
                EXPECT_GE(BrowserStyle::contrast(BrowserStyle::legible(star, row, 3), row), 3);
        }
    }
    BrowserStyle::setDark(true);
    EXPECT_NEAR(BrowserStyle::contrast(Qt::white, Qt::black), 21, 0.01);
    EXPECT_EQ(BrowserStyle::legible(Qt::white, Qt::black, 4.5), QColor(Qt::white)) << "what stands out stays";
}

TEST_F(TableTest, windowFollowsAnImportAndKeepsItsPlace)
{
    QTemporaryDir music;
    for (int i = 0; i < 40; ++i)
        makeMusic(music.filePath(u"%1.wav"_s.arg(i)).toStdString(),
            { { "TITLE", qPrintable(u"New %1"_s.arg(i)) }, { "ARTIST", "Zed" } }, AudioFormat::Wav);
    add(u"Mine"_s)->setArtistText(u"Ann"_s);
    save();

    BrowserWindow window(coordinator);
    window.show();
    ASSERT_EQ(window.model()->rowCount(), 1);
    window.table()->setCurrentIndex(window.model()->index(0, 0));
    window.table()->sortByColumn(TrackTableModel::Artist, Qt::DescendingOrder);

    QSignalSpy finished(&window, &BrowserWindow::importFinished);
    window.importMusic([&](QString *) { return music.path().toStdString(); });
    ASSERT_TRUE(finished.wait(60000));
    EXPECT_EQ(finished.at(0).at(0).toString(), QString());
    EXPECT_EQ(window.model()->rowCount(), 41);
    EXPECT_EQ(window.table()->currentIndex().row(), 40) << "the selected track, at its new place";

    // A change that another context saves shows without being asked for.
    const KXRef<Track> track
        = Track::cast(context->fetchFirstForEntity(u"Track"_s, KXPredicate::predicateWithFormat("title == 'Mine'")));
    track->setTitle(u"Yours"_s);
    save();
    EXPECT_TRUE(QTest::qWaitFor([&] { return window.model()->index(40, 0).data().toString() == u"Yours"_s; }, 60000));
}

TEST_F(TableTest, columnsAndOrderAreThereAgain)
{
    add(u"a"_s, 90);
    add(u"b"_s, 128);
    add(u"c"_s);
    save();
    {
        BrowserWindow window(coordinator);
        window.show();
        window.table()->sortByColumn(TrackTableModel::Bpm, Qt::DescendingOrder);
        window.table()->setColumnWidth(TrackTableModel::Artist, 201);
        window.table()->setColumnShown(u"album"_s, false);
        window.table()->horizontalHeader()->moveSection(0, 3);
        EXPECT_EQ(column(*window.model(), TrackTableModel::Title), (QStringList { u"b"_s, u"a"_s, u"c"_s }));
    }
    BrowserStyle::setDark(true);
    BrowserWindow window(coordinator);
    EXPECT_EQ(column(*window.model(), TrackTableModel::Title), (QStringList { u"b"_s, u"a"_s, u"c"_s }));
    EXPECT_EQ(window.table()->columnWidth(TrackTableModel::Artist), 201);
    EXPECT_TRUE(window.table()->isColumnHidden(TrackTableModel::AlbumTitle));
    EXPECT_EQ(window.table()->horizontalHeader()->visualIndex(TrackTableModel::Title), 3);
    window.table()->resetColumns();
    EXPECT_EQ(window.table()->horizontalHeader()->visualIndex(TrackTableModel::Title), 0);

    // Its texts follow the theme, whatever style sheet there is.
    window.show();
    BrowserStyle::setDark(false);
    EXPECT_EQ(window.table()->palette().color(QPalette::Text), BrowserStyle::text());
    BrowserStyle::setDark(true);
    EXPECT_EQ(window.table()->palette().color(QPalette::Text), BrowserStyle::text());
}

TEST_F(TableTest, closingTheWindowEndsItsImport)
{
    QTemporaryDir music;
    makeMusic(music.filePath(u"0.wav"_s).toStdString(), {}, AudioFormat::Wav);
    for (int i = 1; i < 3000; ++i)
        std::filesystem::create_hard_link(
            music.filePath(u"0.wav"_s).toStdString(), music.filePath(u"%1.wav"_s.arg(i)).toStdString());
    {
        BrowserWindow window(coordinator);
        window.importMusic([&](QString *) { return music.path().toStdString(); });
    }
    EXPECT_LT(context->countForEntity(u"Track"_s), 3000);
}

TEST_F(TableTest, drawsKeysStarsAndRows)
{
    for (int i = 0; i < 5; ++i) {
        const KXRef<Track> track = add(u"Track %1"_s.arg(i), 120 + i);
        track->setRating(i);
        track->setKeyOrder(2 + i * 4);
    }
    save();
    BrowserStyle::setDark(true);
    BrowserWindow window(coordinator);
    window.show();
    const QImage picture = window.grab().toImage();
    std::set<QRgb> colours;
    for (int y = 0; y < picture.height(); y += 2) {
        for (int x = 0; x < picture.width(); x += 2)
            colours.insert(picture.pixel(x, y));
    }
    EXPECT_TRUE(colours.contains(BrowserStyle::accent().rgb())) << "no star was drawn";
    EXPECT_TRUE(colours.contains(BrowserStyle::alternateRow().rgb()) && colours.contains(BrowserStyle::row().rgb()));
    EXPECT_GT(colours.size(), 50U);
}

TEST_F(TableTest, headsAreReadInFullWithTheSignOfTheOrder)
{
    TrackTableModel model(context);
    TrackTableView table;
    table.setModel(&model);
    const QHeaderView &head = *table.horizontalHeader();
    for (int column = 0; column < TrackTableModel::ColumnCount; ++column) {
        table.sortByColumn(column, Qt::AscendingOrder);
        EXPECT_GE(table.columnWidth(column), head.sectionSizeHint(column))
            << TrackTableModel::title(TrackTableModel::Column(column)).toStdString();
    }
}

TEST_F(TableTest, aFileThatIsCutOffCarriesASign)
{
    add(u"whole"_s);
    add(u"cut"_s)->setImportNotes(cutOffNote());
    save();
    TrackTableModel model(context);
    model.sort(TrackTableModel::Title, Qt::AscendingOrder);
    EXPECT_TRUE(model.index(0, 0).data(Qt::AccessibleTextRole).toString().endsWith(u"cut off"_s));
    EXPECT_EQ(model.index(1, 0).data(Qt::AccessibleTextRole).toString(), u"whole"_s);
    TrackTableView table;
    table.setModel(&model);
    table.resize(500, 200);
    table.sortByColumn(TrackTableModel::Title, Qt::AscendingOrder);
    const QImage picture = table.viewport()->grab().toImage();
    const auto colours = [&](int row) {
        QSet<QRgb> found;
        const QRect cell = table.visualRect(model.index(row, 0));
        for (int x = cell.right() - 24; x < cell.right() - 4; ++x) {
            for (int y = cell.top() + 4; y < cell.bottom() - 4; ++y)
                found.insert(picture.pixel(x, y));
        }
        return found.size();
    };
    EXPECT_GT(colours(0), 2);
    EXPECT_EQ(colours(1), 1);
}

TEST_F(TableTest, theWindowSaysWhereItIsAndEndsByKeys)
{
    add(u"a"_s);
    save();
    for (const char *keys : { "Ctrl+W", "Ctrl+Q" }) { // the second start finds the place before it is seen
        BrowserWindow window(coordinator);
        window.show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(&window));
        window.activateWindow();
        const auto *const title = window.findChild<QLabel *>(u"placeTitle"_s);
        EXPECT_TRUE(QTest::qWaitFor([&] { return title->text() == u"All Tracks"_s; }, 10'000));
        QTest::qWait(20);
        EXPECT_GE(title->width(), title->sizeHint().width());
        window.table()->setFocus();
        QTest::keySequence(window.table(), QKeySequence(QString::fromLatin1(keys)));
        EXPECT_TRUE(QTest::qWaitFor([&] { return !window.isVisible(); }, 10'000)) << keys;
    }
}
