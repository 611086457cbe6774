// What imports do to a library: once, again, and after the music changed.

#include <QJsonArray>
#include <QTemporaryDir>

#include <kestrixkit/context/KXManagedObjectContext.h>
#include <kestrixkit/predicate/KXPredicate.h>

#include <command_line/Report.h>
#include <import/Importer.h>

#include "MusicFiles.h"

using namespace Qt::StringLiterals;
namespace fs = std::filesystem;

class ImporterTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        Library::registerEntities();
        KXError error;
        coordinator = Library::open(stores.filePath(u"library.db"_s), &error);
        ASSERT_TRUE(coordinator) << error.localizedDescription().toStdString();
    }
    void TearDown() override { fs::remove_all(root()); }

    std::string root() const { return music.path().toStdString(); }
    std::string file(const std::string &name) const { return root() + '/' + name; }

    ImportResult import(const Importer::Stop &stop = {})
    {
        ImportResult result
            = Importer(KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator), root()).run(stop);
        EXPECT_FALSE(result.error) << result.error.localizedDescription().toStdString();
        return result;
    }

    // A context of its own each time: what it sees is what the file holds.
    qint64 count(const char *predicate)
    {
        const auto context = KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator);
        return context->countForEntity(u"Track"_s, KXPredicate::predicateWithFormat(predicate));
    }
    QJsonObject report(const ImportResult &result)
    {
        const auto context = KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator);
        return Report::ofLibrary(*context, result, fs::canonical(root()).native(), u"store"_s);
    }
    qint64 countOf(const QString &entity)
    {
        return KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator)->countForEntity(entity);
    }

    // Times of files are coarse on some file systems: a change is made to show.
    void touch(const std::string &name, int seconds)
    {
        fs::last_write_time(file(name), fs::last_write_time(file(name)) + std::chrono::seconds(seconds));
    }

    QTemporaryDir music, stores;
    KXPersistentStoreCoordinator::Ref coordinator;
};

TEST_F(ImporterTest, secondImportAddsNothing)
{
    makeMusic(file("one.flac"),
        { { "TITLE", "One" }, { "ARTIST", "Ann; Bob" }, { "ALBUM", "Debut" }, { "GENRE", "House" },
            { "GENRE", "Disco" }, { "LABEL", "Home" }, { "INITIALKEY", "Am" }, { "BPM", "124.5" },
            { "DATE", "2020" } });
    makeMusic(file("sub/two.ogg"),
        { { "TITLE", "Two" }, { "ARTIST", "ann" }, { "ALBUM", "Debut" }, { "GENRE", "HOUSE" }, { "LABEL", "home" },
            { "INITIALKEY", "8A" } },
        AudioFormat::Vorbis);
    makeMusic(file("three.wav"), {}, AudioFormat::Wav);
    writeBytes(file("broken.mp3"), "nothing");

    const ImportResult first = import();
    EXPECT_EQ(first.added, 3);
    ASSERT_EQ(first.skipped.size(), 1U);
    EXPECT_EQ(first.skipped[0].file, u"broken.mp3"_s);
    EXPECT_EQ(countOf(u"Artist"_s), 2);
    EXPECT_EQ(countOf(u"Album"_s), 1);
    EXPECT_EQ(countOf(u"Genre"_s), 2);
    EXPECT_EQ(countOf(u"Label"_s), 1);
    EXPECT_EQ(countOf(u"Key"_s), 1);
    EXPECT_EQ(count("ANY genres.name == 'House'"), 2);
    EXPECT_EQ(count("ANY artists.name == 'Bob' AND bpm == 124.5 AND year == 2020"), 1);
    EXPECT_EQ(count("key.name == 'Am' AND album.title == 'Debut' AND ANY labels.name == 'Home'"), 2);
    EXPECT_EQ(count("bpm == nil AND rating == nil AND album == nil"), 1);

    const ImportResult second = import();
    EXPECT_EQ(second.added + second.updated + second.vanished, 0);
    EXPECT_EQ(second.unchanged, 3);
    EXPECT_EQ(report(second), report(first));
    EXPECT_EQ(report(first).value(u"tracks"_s).toInt(), 3);
    EXPECT_EQ(report(first).value(u"genres"_s).toObject(), (QJsonObject { { u"House"_s, 2 }, { u"Disco"_s, 1 } }));
    EXPECT_EQ(report(first).value(u"notes"_s).toArray().size(), 1) << "the file without a title";
}

TEST_F(ImporterTest, changedFilesAreUpdatedAndTheUsersStarsKept)
{
    makeMusic(file("a.flac"), { { "TITLE", "Old" }, { "GENRE", "House" }, { "ARTIST", "Ann" }, { "RATING", "60" } });
    import();
    EXPECT_EQ(count("title == 'Old' AND rating == 3"), 1);
    {
        const auto context = KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator);
        Track::cast(context->fetchFirstForEntity(u"Track"_s, {}))->setRating(5);
        KXError error;
        ASSERT_TRUE(context->save(&error));
    }
    setTags(file("a.flac"), { { "TITLE", "New" }, { "GENRE", "Techno" }, { "ARTIST", "Ann" }, { "RATING", "60" } });
    touch("a.flac", 5);
    EXPECT_EQ(import().updated, 1);
    EXPECT_EQ(count("title == 'New' AND rating == 5 AND ANY genres.name == 'Techno' AND ANY artists.name == 'Ann'"), 1);
    EXPECT_EQ(count("ANY genres.name == 'House'"), 0);

    setTags(file("a.flac"), { { "TITLE", "New" }, { "RATING", "20" } });
    touch("a.flac", 10);
    EXPECT_EQ(import().updated, 1);
    EXPECT_EQ(count("rating == 1 AND genres.@count == 0"), 1) << "the file says something new";
    EXPECT_EQ(count("TRUEPREDICATE"), 1);
}

TEST_F(ImporterTest, vanishedAndSpoiltFilesAreMarkedUntilTheyAreBack)
{
    makeMusic(file("stays.flac"), { { "TITLE", "Stays" }, { "GENRE", "House" } });
    makeMusic(file("goes.flac"), { { "TITLE", "Goes" }, { "GENRE", "House" } });
    makeMusic(file("spoils.flac"), { { "TITLE", "Spoils" } });
    import();
    const std::string whole = readBytes(file("spoils.flac"));
    fs::rename(file("goes.flac"), stores.filePath(u"elsewhere"_s).toStdString());
    writeBytes(file("spoils.flac"), "");

    ImportResult result = import();
    EXPECT_EQ(result.vanished, 2);
    EXPECT_EQ(result.skipped.size(), 1U);
    EXPECT_EQ(count("missing == TRUE"), 2);
    EXPECT_EQ(report(result).value(u"tracks"_s).toInt(), 1);
    EXPECT_EQ(report(result).value(u"genres"_s).toObject().value(u"House"_s).toInt(), 1);
    EXPECT_EQ(report(import()), report(result));

    fs::rename(stores.filePath(u"elsewhere"_s).toStdString(), file("goes.flac"));
    writeBytes(file("spoils.flac"), whole);
    touch("spoils.flac", 5);
    result = import();
    EXPECT_EQ(result.returned, 1);
    EXPECT_EQ(result.updated, 1);
    EXPECT_EQ(count("missing == FALSE"), 3);
    EXPECT_EQ(count("TRUEPREDICATE"), 3);
}

TEST_F(ImporterTest, filesThatEndTheirReaderAreLeftOut)
{
    for (int i = 0; i < 20; ++i)
        makeMusic(file("good" + std::to_string(i) + ".flac"), { { "TITLE", "Good" } });
    writeBytes(file("a.mp3"), nestedChapters(300'000));
    writeBytes(file("z.mp3"), nestedChapters(300'000));
    for (const int added : { 20, 0 }) { // at every import
        const ImportResult result = import();
        EXPECT_EQ(result.added, added);
        ASSERT_EQ(result.skipped.size(), 2U);
        EXPECT_EQ(result.skipped[0].file, u"a.mp3"_s);
        EXPECT_TRUE(result.skipped[1].reason.startsWith(u"cannot be read: "_s));
    }
}

TEST_F(ImporterTest, aFolderThatCannotBeSeenSaysNothingAboutItsTracks)
{
    makeMusic(file("a.flac"), { { "TITLE", "A" } });
    import();
    fs::remove_all(root());
    EXPECT_EQ(import().vanished, 0);
    EXPECT_EQ(count("missing == FALSE"), 1);
    fs::create_directory(root()); // there, and empty
    EXPECT_EQ(import().vanished, 1);
}

TEST_F(ImporterTest, otherFoldersOfTheLibraryAreLeftAlone)
{
    makeMusic(file("crate/a.flac"), { { "TITLE", "A" } });
    makeMusic(file("crate 2/b.flac"), { { "TITLE", "B" } });
    import();
    EXPECT_EQ(Importer(KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator), file("crate"))
                  .run({})
                  .unchanged,
        1);
    fs::remove(file("crate/a.flac"));
    fs::remove(file("crate 2/b.flac"));
    EXPECT_EQ(Importer(KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator), file("crate"))
                  .run({})
                  .vanished,
        1);
    EXPECT_EQ(count("missing == FALSE AND title == 'B'"), 1);
}

TEST_F(ImporterTest, namesThatAreNoTextAreTracksLikeOthers)
{
    makeMusic(file("first.flac"));
    for (const char *name : { "line\nbreak.flac", "bytes \xff\xfe.flac", "100%25.flac", "a?b#c.flac", "\xc3\xa9.flac" })
        fs::copy_file(file("first.flac"), file(name));
    // As long as file systems take them, and longer than a path is elsewhere.
    const std::string longest(255, 'x'), deep = longest + '/' + longest + '/' + std::string(250, 'y') + ".flac";
    fs::create_directories(file(longest + '/' + longest));
    fs::copy_file(file("first.flac"), file(deep));
    fs::create_directory_symlink(root(), file(longest + "/back")); // round in a circle
    EXPECT_EQ(import().added, 7);
    const ImportResult again = import();
    EXPECT_EQ(again.unchanged, 7);
    EXPECT_EQ(again.vanished, 0);
}

TEST_F(ImporterTest, manyFilesAreSavedInSmallStepsAndCancellingKeepsWhatIsDone)
{
    makeMusic(file("0.wav"), { { "TITLE", "Copy" }, { "ARTIST", "Ann" } }, AudioFormat::Wav);
    constexpr int files = 2500;
    for (int i = 1; i < files; ++i)
        fs::create_hard_link(file("0.wav"), file(std::to_string(i) + ".wav"));
    qint64 largest = 0, inserted = 0;
    const auto token = coordinator->addChangeObserver([&](const std::shared_ptr<const KXStoreChange> &change) {
        qint64 size = 0;
        for (const KXEntityChange &entity : change->entities()) {
            size += entity.inserted.size() + qint64(entity.updated.size());
            inserted += entity.inserted.size();
        }
        largest = std::max(largest, size);
    });

    int asked = 0;
    const ImportResult cancelled = import([&] { return ++asked > 30; });
    EXPECT_TRUE(cancelled.cancelled);
    EXPECT_GT(cancelled.added, 0);
    EXPECT_LT(cancelled.added, files);
    EXPECT_EQ(count("TRUEPREDICATE"), cancelled.added);

    qint64 last = 0;
    const ImportResult rest
        = Importer(KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator), root())
              .run({}, [&](qint64 done, qint64 total) {
                  EXPECT_GE(done, last);
                  EXPECT_EQ(total, files);
                  last = done;
              });
    EXPECT_EQ(rest.unchanged, cancelled.added);
    EXPECT_EQ(rest.added, files - cancelled.added);
    EXPECT_EQ(rest.vanished, 0);
    EXPECT_LE(largest, 2000);
    EXPECT_EQ(inserted, files + 1) << "the tracks and one artist";
    EXPECT_EQ(countOf(u"Artist"_s), 1);
}

/// Whoever works on the library meanwhile makes what the files would have brought.
TEST_F(ImporterTest, whatOthersMakeMeanwhileIsNotMadeAgain)
{
    for (int i = 0; i < 70; ++i)
        makeMusic(file("m" + std::to_string(100 + i) + ".wav"), {}, AudioFormat::Wav);
    makeMusic(file("z.flac"), { { "TITLE", "Z" }, { "ARTIST", "Ann" }, { "GENRE", "disco" } });
    int called = 0;
    const auto meanwhile = [&](qint64 done, qint64 total) {
        if (done == total || called++ > 0)
            return;
        const auto other = KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator);
        Genre::createInContext(*other)->setName(u"Disco"_s);
        const auto track = Track::createInContext(*other);
        track->setLocation(QUrl::fromLocalFile(QString::fromStdString(fs::canonical(root()).native() + "/z.flac")));
        track->setTitle(u"Z"_s);
        track->setAdded(QDateTime::currentDateTimeUtc());
        track->setFileSize(0);
        track->setFileModified(0);
        KXError error;
        ASSERT_TRUE(other->save(&error)) << error.localizedDescription().toStdString();
    };
    const ImportResult result
        = Importer(KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator), root())
              .run({}, meanwhile);
    EXPECT_FALSE(result.error);
    EXPECT_GE(called, 1);
    EXPECT_EQ(result.added, 70);
    EXPECT_EQ(result.updated, 1);
    EXPECT_EQ(countOf(u"Track"_s), 71);
    EXPECT_EQ(countOf(u"Genre"_s), 1);
    EXPECT_EQ(count("ANY genres.name == 'Disco'"), 1);
}
