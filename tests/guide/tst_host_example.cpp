// The host that the guide is about, on a list of 5,000 tracks.

#include <QTemporaryDir>
#include <QTest>
#include <gtest/gtest.h>

#define main hostMain
#include "../../examples/host/main.cpp"
#undef main

TEST(HostExample, importsShowsCountsEditsAndPreviews)
{
    const QTemporaryDir folder;
    const QString list = folder.filePath(u"tracks.csv"_s);
    QFile file(list);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    for (int i = 0; i < 5000; ++i)
        file.write(
            u"Track %1;Artist %2;%3;/none/%1.wav\n"_s.arg(i, 4, 10, QChar(u'0')).arg(i % 70).arg(90 + i % 60).toUtf8());
    file.close();

    KXFilters::registerEntities();
    Track::registerEntity();
    Crate::registerEntity();
    const auto coordinator = KXPersistentStoreCoordinator::persistentStoreCoordinatorByMigratingStoreURL(
        QUrl::fromLocalFile(folder.filePath(u"host.db"_s)), makeModel());
    const auto context = KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator);
    KXManagedObjectContext::setMainContext(context);
    const auto preset = KXFilterSetPreset::createInContext(*context);
    preset->setFilterSet(KXFilterSet::createInContext(*context));
    preset->filterSet()->addToFilters(KXRangeFilter::createWithKeyPath(Track::bpmKey, 124, 132, *context));
    ASSERT_TRUE(context->save());
    HostWindow window(context);
    window.resize(900, 500);
    window.show();
    KXOperationQueue imports;
    imports.addBlock([&] { importTracks(coordinator, list); });
    // 124 to 132 of 90 to 149, and the preset's badge says so as the tracks come.
    ASSERT_TRUE(QTest::qWaitFor(
        [&] { return window.tracks.rowCount() == 5000 && preset->countForContextIdentifier(u"library"_s) == 747; },
        60'000))
        << window.tracks.rowCount() << " tracks, " << preset->countForContextIdentifier(u"library"_s).value_or(-1);
    EXPECT_EQ(window.presets.sourceListView()->cellForRow(window.presetTree.index(0, 0)).count, 747);

    window.presets.selectItem(preset.get());
    EXPECT_EQ(window.tracks.rowCount(), 747);
    EXPECT_TRUE(window.tracks.setData(window.tracks.index(0, 0), u"Renamed"_s));
    const QList<QAction *> actions = window.findChildren<QToolBar *>().first()->actions();
    EXPECT_EQ(actions[0]->shortcuts(), QKeySequence::keyBindings(QKeySequence::Undo));
    actions[0]->trigger();
    EXPECT_EQ(window.tracks.index(0, 0).data(), u"Track 0034"_s);
    actions[2]->trigger();
    EXPECT_EQ(window.crateTree.rowCount(), 1);
    const auto crate = Crate::findFirstUsingPredicate({}, *context);
    Track::cast(window.tracks.object(0))->setCrate(crate);
    window.crates.selectItem(crate.get());
    EXPECT_EQ(window.tracks.rowCount(), 1);

    Q_EMIT window.table.activated(window.tracks.index(0, 0));
    EXPECT_EQ(window.player.currentItem()->audioFileURL(), QUrl::fromLocalFile(u"/none/0034.wav"_s));
    KXManagedObjectContext::setMainContext(nullptr);
}

TEST(HostExample, isShort)
{
    QFile file(QStringLiteral(KX_SOURCE_DIR) + u"/examples/host/main.cpp"_s);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    EXPECT_LE(file.readAll().count('\n'), 150);
}
