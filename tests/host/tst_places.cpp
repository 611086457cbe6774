// From place to place in the browser's window: steps, breadcrumbs and layers, back and forward, after a restart too.

#include <QAction>
#include <QLabel>
#include <QScrollBar>
#include <QStandardPaths>
#include <QTest>

#include <kestrixkit/foundation/KXBundle.h>
#include <kestrixkit/foundation/KXUserDefaults.h>
#include <kestrixkit/source_list/KXSourceListView.h>
#include <kestrixkit/toolkit/KXAnimationGroup.h>

#include <crates/CrateEditor.h>
#include <crates/CratesPane.h>
#include <filters/FilterStrip.h>
#include <places/LibraryPlaces.h>
#include <places/PlaceNavigator.h>
#include <places/PlaceSteps.h>
#include <places/SourceColumn.h>
#include <table/TrackTableView.h>
#include <window/BrowserWindow.h>

#include <support/KXTestPrint.h>
#include <support/KXTestRandom.h>

#include "LibraryTest.h"

using namespace Qt::StringLiterals;

class PlacesTest : public LibraryTest
{
protected:
    void SetUp() override
    {
        LibraryTest::SetUp();
        KXAnimationGroup::setAnimationsEnabled(false);
        const auto named = [this]<typename Entity>(QList<KXRef<Entity>> &all, const QString &name) {
            const auto made = Entity::createInContext(*context);
            made->setName(name);
            all.append(made);
        };
        for (int i = 0; i < 5; ++i) {
            named(artists, u"Artist %1"_s.arg(i));
            named(genres, u"Genre %1"_s.arg(i));
            named(labels, u"Label %1"_s.arg(i));
        }
        const auto album = Album::createInContext(*context);
        album->setTitle(u"Album & More"_s);
        for (int i = 0; i < 400; ++i) {
            const auto track = add(u"Track %1"_s.arg(i, 3, 10, QChar(u'0')), 100 + i % 40);
            track->setKeyOrder(2 + i % 24);
            track->addToArtists(artists[i % 5]);
            track->addToGenres(genres[i % 3]);
            track->addToLabels(labels[i % 4]);
            if (i % 20 == 0)
                track->setAlbum(album);
        }
        save();
        open();
        // The genres open a moment after the window, once in a library.
        ASSERT_TRUE(QTest::qWaitFor([this] { return !window->sources()->openRows().isEmpty(); }, 30'000));
    }
    void TearDown() override
    {
        window.reset();
        KXAnimationGroup::setAnimationsEnabled(true);
        LibraryTest::TearDown();
    }
    void open()
    {
        window.reset();
        window = std::make_unique<BrowserWindow>(coordinator);
        window->resize(1300, 620);
        window->show();
        ASSERT_TRUE(QTest::qWaitFor([this] { return !crumbs().starts_with("Library"); }));
    }
    PlaceNavigator &places() { return *window->places(); }
    TrackTableView &table() { return *window->table(); }
    QString title() { return window->findChild<QLabel *>(u"placeTitle"_s)->text(); }
    std::string crumbs()
    {
        const KXNavigationStack &stack
            = places().isLayered() ? static_cast<KXNavigationStack &>(*places().layers()) : *places().bar();
        QStringList titles;
        for (const KXViewController *controller : stack.viewControllers())
            titles += controller->title();
        return titles.join(u" > "_s).toStdString();
    }
    void pickGenre(int i)
    {
        for (const KXTreeNode *node : window->sources()->library()->treeController()->flattenedNodes()) {
            const auto place = KXViewState::cast(node->representedObject());
            if (place && place->title() == u"Genre %1"_s.arg(i))
                window->sources()->selectPlaces({ place->objectID().URIRepresentation() });
        }
    }
    void selectRow(int row)
    {
        table().setCurrentIndex(window->model()->index(row, 2));
        table().selectRow(row);
    }
    void go(PlaceStep::Kind kind)
    {
        const KXRef<Track> track = window->model()->track(table().currentIndex().row());
        for (const PlaceStep &step : track ? PlaceSteps::of(*track) : QList<PlaceStep>()) {
            if (step.kind == kind)
                places().push(step);
        }
    }
    /// All that the user sees of the place, in words.
    std::string picture()
    {
        QCoreApplication::processEvents(); // rows find their places
        QStringList selected;
        for (const QModelIndex &row : table().selectionModel()->selectedRows())
            selected += row.data().toString();
        selected.sort();
        QStringList order;
        for (const KXSortDescriptor &by : table().sortDescriptors())
            order += by.key + (by.ascending ? u'+' : u'-');
        const int current = table().currentIndex().row();
        return QStringList { QString::fromStdString(crumbs()), title(), window->filterStrip()->narrowingText(),
            QString::number(window->model()->rowCount()), QString::number(table().verticalScrollBar()->value()),
            QString::number(table().horizontalScrollBar()->value()), selected.join(u','), order.join(u' '),
            current < 0 || selected.isEmpty() ? QString() : window->model()->track(current)->title(),
            window->sources()->placeURL().toString(), QUrl::toStringList(window->sources()->openRows()).join(u' ') }
            .join(u" | "_s)
            .toStdString();
    }

    QList<KXRef<Artist>> artists;
    QList<KXRef<Genre>> genres;
    QList<KXRef<Label>> labels;
    std::unique_ptr<BrowserWindow> window;
};

TEST_F(PlacesTest, stepsLeadOnAndBack)
{
    EXPECT_EQ(crumbs(), "All Tracks");
    EXPECT_FALSE(places().backAction()->isEnabled());
    table().setSortDescriptors({ TrackTableModel::sortDescriptor(TrackTableModel::Title) });
    selectRow(200);
    table().scrollTo(table().currentIndex());
    const std::string all = picture();
    go(PlaceStep::ToArtist);
    EXPECT_EQ(crumbs(), "All Tracks > Artist 0");
    EXPECT_EQ(window->model()->rowCount(), 80);
    EXPECT_EQ(table().verticalScrollBar()->value(), 0); // a new place opens at its top
    EXPECT_FALSE(table().currentIndex().isValid());
    EXPECT_TRUE(places().bar()->navigationBar()->isVisible());
    selectRow(30);
    table().verticalScrollBar()->setValue(333);
    go(PlaceStep::ToAlike);
    EXPECT_TRUE(title().startsWith(u"Sounds Like “Track 150”"_s)) << title().toStdString();
    // Within four per cent of the tempo (half and double lie outside), in a key that fits.
    EXPECT_GT(window->model()->rowCount(), 1);
    for (int row = 0; row < window->model()->rowCount(); ++row) {
        const KXRef<Track> track = window->model()->track(row);
        EXPECT_LE(std::abs(*track->bpm() - 130), 130 * 0.04);
    }
    const std::string alike = picture();
    QTest::keyClick(window.get(), Qt::Key_Left, Qt::AltModifier);
    EXPECT_EQ(table().verticalScrollBar()->value(), 333);
    places().backAction()->trigger();
    EXPECT_EQ(picture(), all);
    EXPECT_FALSE(places().backAction()->isEnabled());
    places().forwardAction()->trigger();
    QTest::mouseClick(table().viewport(), Qt::ForwardButton);
    EXPECT_EQ(picture(), alike);
    // By a breadcrumb: another visit, as it was left.
    QTest::mouseClick(places().bar()->navigationBar()->allButtons().at(1), Qt::LeftButton);
    EXPECT_EQ(crumbs(), "All Tracks > Artist 0");
    EXPECT_EQ(table().verticalScrollBar()->value(), 333);
    EXPECT_TRUE(table().isVisible());
    EXPECT_TRUE(places().backAction()->isEnabled());
    EXPECT_FALSE(places().forwardAction()->isEnabled());
    // What is narrowed and sorted elsewhere stays there.
    pickGenre(1);
    window->filterStrip()->setNarrowingText(u"track 00"_s);
    EXPECT_EQ(window->model()->rowCount(), 3);
    QTest::mouseClick(table().viewport(), Qt::BackButton);
    EXPECT_EQ(crumbs(), "All Tracks > Artist 0");
    EXPECT_EQ(window->filterStrip()->narrowingText(), QString());
    places().goForward();
    EXPECT_EQ(window->filterStrip()->narrowingText(), u"track 00"_s);
    EXPECT_EQ(window->model()->rowCount(), 3);
}

TEST_F(PlacesTest, survivesARestartAndWhatIsGone)
{
    table().setSortDescriptors({ TrackTableModel::sortDescriptor(TrackTableModel::Title) });
    pickGenre(2);
    selectRow(50);
    go(PlaceStep::ToLabel);
    const std::string label = crumbs();
    selectRow(40);
    table().verticalScrollBar()->setValue(200);
    go(PlaceStep::ToArtist);
    table().verticalScrollBar()->setValue(77);
    const std::string artist = picture();
    window->close();
    open();
    EXPECT_EQ(picture(), artist);
    places().goBack();
    EXPECT_EQ(crumbs(), label);
    EXPECT_EQ(table().verticalScrollBar()->value(), 200);
    // In layers it is the same place.
    places().setLayered(true);
    EXPECT_EQ(crumbs(), label);
    EXPECT_EQ(table().verticalScrollBar()->value(), 200);
    EXPECT_TRUE(table().isVisible());
    go(PlaceStep::ToArtist);
    const auto controllers = places().layers()->layeredViewControllers();
    QTest::mouseClick(KXLayeredView::layeredView(controllers.at(1))->layeredHeaderView(), Qt::LeftButton, {}, { 9, 9 });
    EXPECT_EQ(crumbs(), label);
    places().layers()->dropViewController(controllers.at(0), false);
    EXPECT_EQ(crumbs(), label); // the root is there whatever is closed
    places().setLayered(false);
    // An artist that is no more is passed over, and a source that is gone.
    const std::string before = crumbs();
    places().goForward();
    pickGenre(1);
    for (const auto &each : artists)
        window->context()->removeManagedObject(window->context()->objectWithID(each->objectID()));
    window->context()->save();
    while (places().history().peek(-1))
        places().goBack();
    for (qsizetype i = 0; places().history().peek(i); ++i)
        EXPECT_TRUE(places().history().peek(i)->place.trail.isEmpty()
            || places().history().peek(i)->place.trail.constLast().kind != PlaceStep::ToArtist);
    // Rubbish in the settings is no history.
    window->close();
    for (const QByteArray &rubbish : { QByteArray("x"), QByteArray(100, '\xff') }) {
        KXUserDefaults::standard().setValue(u"browser.history."_s + window->sources()->autosaveSuffix(), rubbish);
        open();
        EXPECT_FALSE(places().backAction()->isEnabled());
        window->close();
    }
}

/// Nobody should wait for a disk before the window stands.
TEST_F(PlacesTest, aStartThatEndsWhereTheLastOneDidWritesNothing)
{
    const auto sets = [this] { return KXFilterSet::countOfUsingPredicate({}, *window->context()); };
    ASSERT_TRUE(window->context()->save());
    const qint64 before = sets();
    pickGenre(2);
    ASSERT_TRUE(QTest::qWaitFor([&] { return crumbs() == "Genre 2"; }));
    EXPECT_EQ(sets(), before + 1) << "the filters of the place";
    ASSERT_FALSE(window->context()->hasChanges());
    window->close();
    window.reset();
    KXUserDefaults::standard().synchronize();
    int saves = 0;
    const auto token = KXNotificationCenter::defaultCenter().addObserver(
        QString(KXManagedObjectContextDidSaveNotification), nullptr, [&](const KXNotification &) { ++saves; });
    QFile settings(QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) + u'/'
        + KXBundle::mainBundle().identifier() + u"/defaults.cbor"_s);
    ASSERT_TRUE(settings.open(QIODevice::ReadWrite | QIODevice::ExistingOnly));
    ASSERT_TRUE(settings.setFileTime(QDateTime::fromSecsSinceEpoch(1000), QFileDevice::FileModificationTime));
    settings.close();
    open();
    QTest::qWait(20);
    EXPECT_EQ(crumbs(), "Genre 2");
    EXPECT_EQ(saves, 0);
    EXPECT_EQ(sets(), before + 1);
    EXPECT_EQ(QFileInfo(settings).lastModified().toSecsSinceEpoch(), 1000);
}

TEST_F(PlacesTest, bringTheOpenRowsBack)
{
    SourceColumn &sources = *window->sources();
    const QList<QUrl> open = sources.openRows();
    ASSERT_FALSE(open.isEmpty());
    selectRow(3);
    go(PlaceStep::ToArtist);
    sources.setOpenRows({});
    places().goBack();
    EXPECT_EQ(sources.openRows(), open);
    places().goForward();
    EXPECT_EQ(sources.openRows(), QList<QUrl>());
    sources.setOpenRows(open);
    places().visitRoot(); // another visit opens and closes nothing
    EXPECT_EQ(sources.openRows(), open);
    sources.setOpenRows({});
    window->close();
    this->open();
    places().goBack();
    EXPECT_EQ(window->sources()->openRows(), open);
}

// A crate has an order of its own, which is there again after a step out of it.
TEST_F(PlacesTest, leadOutOfCratesAndBack)
{
    table().setSortDescriptors({ TrackTableModel::sortDescriptor(TrackTableModel::Title) });
    const std::vector<qint64> tracks { window->model()->tracks().key(7), window->model()->tracks().key(3),
        window->model()->tracks().key(11) };
    const auto crate = window->sources()->crates()->editor().make(Crate::Kind::Plain, {}, u"Set"_s, tracks);
    ASSERT_TRUE(crate);
    window->sources()->selectPlaces({ crate->objectID().URIRepresentation() });
    const auto titles = [this] {
        QStringList all;
        for (int row = 0; row < std::min(3, window->model()->rowCount()); ++row)
            all += window->model()->track(row)->title();
        return all.join(u", "_s).toStdString();
    };
    EXPECT_EQ(titles(), "Track 007, Track 003, Track 011");
    selectRow(1);
    go(PlaceStep::ToArtist);
    EXPECT_EQ(crumbs(), "Set > Artist 3");
    EXPECT_EQ(titles(), "Track 003, Track 008, Track 013");
    places().goBack();
    EXPECT_EQ(titles(), "Track 007, Track 003, Track 011");
    EXPECT_TRUE(table().isInPlaceOrder());
    table().setSortDescriptors({ TrackTableModel::sortDescriptor(TrackTableModel::Title) });
    places().visitAllTracks();
    places().goBack();
    EXPECT_EQ(titles(), "Track 003, Track 007, Track 011"); // as it was left
    window->context()->removeManagedObject(crate);
    window->context()->save();
    QCoreApplication::processEvents();
    places().visitAllTracks();
    places().goBack();
    EXPECT_NE(crumbs(), "Set");
}

// Wherever one goes, back and forward again end in an identical picture.
TEST_F(PlacesTest, walks)
{
    KXTestRandom random;
    for (int step = 0; step < KXTestRandom::scaled(1000); ++step) {
        switch (random.below(10)) {
        case 0:
            pickGenre(random.below(3));
            break;
        case 1:
            places().visitAllTracks();
            break;
        case 2:
            table().verticalScrollBar()->setValue(random.below(3000));
            break;
        case 3:
            table().setSortDescriptors({ TrackTableModel::sortDescriptor(TrackTableModel::Column(random.below(10))) });
            break;
        case 4:
            window->filterStrip()->setNarrowingText(random.chance(0.5) ? QString() : u"track 1"_s);
            break;
        case 5:
            if (random.chance(0.2))
                places().setLayered(!places().isLayered());
            break;
        case 6:
            window->sources()->setOpenRows(
                random.chance(0.5) ? QList<QUrl>() : places().history().current()->place.source);
            break;
        case 7:
            if (random.chance(0.05)) {
                window->close();
                open();
            }
            break;
        default:
            if (const int rows = window->model()->rowCount()) {
                selectRow(random.below(rows));
                go(PlaceStep::Kind(random.between(1, 5)));
            }
        }
        const std::string before = picture();
        const QImage image = random.chance(0.1) ? table().viewport()->grab().toImage() : QImage();
        const int steps = random.between(1, 6);
        int back = 0;
        while (back < steps && places().history().peek(-1)) {
            places().goBack();
            ++back;
        }
        if (random.chance(0.3))
            continue; // goes on from here
        for (int i = 0; i < back; ++i)
            places().goForward();
        ASSERT_EQ(picture(), before) << "after step " << step;
        const auto isAsItWas = [&] { return image.isNull() || table().viewport()->grab().toImage() == image; };
        ASSERT_TRUE(QTest::qWaitFor(isAsItWas)) << "after step " << step;
    }
}

TEST(PlaceHistory, isAValueThatIsReadWithCare)
{
    const auto place = [](int i) { return Place { { QUrl(u"x:%1"_s.arg(i)) }, {} }; };
    PlaceHistory history;
    EXPECT_EQ(history.current(), nullptr);
    history.leave({});
    for (int i = 0; i < 150; ++i) {
        history.visit(place(i));
        PlaceView view;
        view.top = i;
        view.words = QString(i, u'w');
        view.order = { { .key = u"title"_s, .ascending = i % 2 == 0 } };
        view.selected = QList<qint64>(1000, 7); // more than are kept
        history.leave(view);
    }
    EXPECT_EQ(history.peek(-100), nullptr);
    history.go(-3);
    const PlaceHistory again = PlaceHistory::ofArchive(history.archived());
    ASSERT_TRUE(again.current());
    EXPECT_EQ(again.current()->place, place(146));
    EXPECT_EQ(again.peek(3)->view->words.size(), 149);
    EXPECT_FALSE(again.peek(3)->view->order.constFirst().ascending);
    EXPECT_EQ(again.peek(-90)->place, place(56));
    EXPECT_TRUE(again.viewOf(place(3)));
    history.visit(place(146));
    EXPECT_TRUE(history.peek(3)); // the same again is no step
    history.visit(place(1));
    EXPECT_EQ(history.peek(1), nullptr);
    history.forget(-1);
    EXPECT_EQ(history.peek(-1)->place, place(145));
    // Damaged anywhere it is read as far as it makes sense.
    const QByteArray whole = history.archived();
    KXTestRandom random;
    for (int i = 0; i < KXTestRandom::scaled(2000); ++i) {
        QByteArray bytes = whole;
        if (random.chance(0.3))
            bytes.truncate(random.below(int(bytes.size())));
        else
            bytes[random.below(int(bytes.size()))] = char(random.below(256));
        const PlaceHistory read = PlaceHistory::ofArchive(bytes);
        EXPECT_EQ(PlaceHistory::ofArchive(read.archived()).archived(), read.archived());
    }
}
