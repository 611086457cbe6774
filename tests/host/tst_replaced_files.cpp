// Files that hold another sound than before, and files that were left out of the library and have moved.

#include <kestrixkit/foundation/KXUndoManager.h>

#include <files/Sounds.h>
#include <import/Importer.h>
#include <library/LibraryEditor.h>

#include "LibraryTest.h"
#include "Tunes.h"

using namespace Qt::StringLiterals;
namespace fs = std::filesystem;

class ReplacedFilesTest : public LibraryTest
{
protected:
    [[nodiscard]] std::string file(const std::string &name) const
    {
        return fs::canonical(music.path().toStdString()).native() + '/' + name;
    }
    KXManagedObjectContext::Ref fresh()
    {
        contexts.append(KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator));
        return contexts.last();
    }
    ImportResult import(const ImportTask &task)
    {
        const ImportResult result = Importer(fresh(), task).run({});
        EXPECT_FALSE(result.error) << result.error.localizedDescription().toStdString();
        return result;
    }
    ImportResult import() { return import(ImportTask(file("."))); }
    void readSounds()
    {
        Sounds::readMissing(*fresh(), [] { return false; });
    }
    KXRef<Track> stored(const QString &title)
    {
        const auto those = KXPredicate::predicateWithFormat("title == %@", title);
        const KXRef<Track> found = Track::findFirstUsingPredicate(those, *fresh());
        EXPECT_TRUE(found) << title.toStdString();
        return found;
    }
    void removeFromLibrary(const QString &title)
    {
        const auto mine = fresh();
        const auto those = KXPredicate::predicateWithFormat("title == %@", title);
        EXPECT_TRUE(LibraryEditor(mine).remove({ Track::findFirstUsingPredicate(those, *mine) }));
    }
    qint64 tracks() { return Track::countOfInContext(*fresh()); }

    QTemporaryDir music;
    QList<KXManagedObjectContext::Ref> contexts;
};

TEST_F(ReplacedFilesTest, areHeardAnewWhereTheirSoundIsAnotherOne)
{
    for (const auto &[name, format] : { std::pair("a.flac", AudioFormat::Flac), { "b.mp3", AudioFormat::Mp3 },
             { "c.wav", AudioFormat::Wav }, { "d.m4a", AudioFormat::M4a } })
        makeTune(file(name), 1, { { "TITLE", name } }, format);
    fs::copy_file(file("a.flac"), file("twin.flac"));
    setTags(file("twin.flac"), { { "TITLE", "twin" } });
    import();
    readSounds();
    const auto hashes = [&] {
        std::map<QString, qint64> all;
        for (const KXRef<Track> &track : Track::findAllInContext(*fresh()))
            all[track->title()] = track->soundHash().value_or(-1);
        return all;
    };
    const std::map<QString, qint64> before = hashes();
    EXPECT_EQ(stored(u"twin"_s)->copies(), 2);
    {
        const auto mine = fresh();
        for (const KXRef<Track> &track : Track::findAllInContext(*mine)) {
            track->setRating(4);
            track->setBpm(119);
            track->setAnalysedBpm(119);
        }
        ASSERT_TRUE(mine->save());
    }
    // Tags alone say nothing of the sound.
    for (const char *name : { "a.flac", "b.mp3", "c.wav", "d.m4a" })
        setTags(file(name), { { "TITLE", name }, { "ARTIST", "Somebody with quite a long name" } });
    EXPECT_EQ(import().updated, 4);
    EXPECT_EQ(hashes(), before);
    EXPECT_EQ(stored(u"c.wav"_s)->bpm(), 119);
    // Another sound of the same length.
    for (const auto &[name, format] : { std::pair("a.flac", AudioFormat::Flac), { "b.mp3", AudioFormat::Mp3 },
             { "c.wav", AudioFormat::Wav }, { "d.m4a", AudioFormat::M4a } })
        makeTune(file(name), 4, { { "TITLE", name } }, format);
    EXPECT_EQ(import().updated, 4);
    EXPECT_EQ(stored(u"a.flac"_s)->soundHash(), std::nullopt);
    EXPECT_EQ(stored(u"twin"_s)->copies(), std::nullopt) << "it is alone by now";
    readSounds();
    for (const auto &[title, hash] : hashes())
        EXPECT_EQ(hash == before.at(title), title == u"twin"_s) << title.toStdString();
    for (const char *name : { "a.flac", "b.mp3", "c.wav", "d.m4a" }) {
        EXPECT_EQ(stored(QString::fromLatin1(name))->rating(), 4);
        EXPECT_EQ(stored(QString::fromLatin1(name))->bpm(), std::nullopt) << "heard in the sound before";
    }
    EXPECT_EQ(stored(u"twin"_s)->bpm(), 119);
}

TEST_F(ReplacedFilesTest, leftOutStayOutWhereverTheyGo)
{
    for (uint32_t seed = 1; seed <= 4; ++seed) {
        const std::string name = std::to_string(seed);
        makeTune(file(name + ".flac"), seed, { { "TITLE", name.c_str() } });
    }
    import();
    removeFromLibrary(u"1"_s); // before its sound was read: size and time are known
    readSounds();
    removeFromLibrary(u"2"_s);
    removeFromLibrary(u"3"_s);
    fs::create_directory(file("else"));
    fs::rename(file("1.flac"), file("else/one.flac"));
    fs::rename(file("2.flac"), file("else/two.flac"));
    setTags(file("else/two.flac"), { { "TITLE", "retagged" }, { "COMMENT", "and longer than before" } });
    EXPECT_EQ(import().added, 0);
    EXPECT_EQ(tracks(), 1);
    // Again and again.
    fs::rename(file("else/two.flac"), file("two again.flac"));
    EXPECT_EQ(import().added, 0);
    EXPECT_EQ(import().added, 0);
    // A copy is another file, and so is the second of two.
    fs::copy_file(file("3.flac"), file("copy.flac"));
    fs::copy_file(file("two again.flac"), file("two copy.flac"));
    EXPECT_EQ(import().added, 2);
    // Asked for by name it comes in, and stays when it moves.
    ImportTask task;
    task.files = { file("two again.flac") };
    EXPECT_EQ(import(task).added, 1);
    EXPECT_EQ(import().added, 0);
    readSounds();
    fs::rename(file("two again.flac"), file("else/two.flac"));
    const ImportResult moved = import();
    EXPECT_EQ(moved.moved, 1);
    EXPECT_EQ(moved.added, 0);
}
