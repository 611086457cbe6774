// Which files a scan finds.

#include <set>

#include <sys/stat.h>
#include <unistd.h>

#include <QTemporaryDir>

#include <import/Scanner.h>

#include "MusicFiles.h"

using namespace Qt::StringLiterals;
namespace fs = std::filesystem;

namespace {

std::vector<std::string> found(const Scan &scan)
{
    std::vector<std::string> names;
    for (const ScannedFile &file : scan.files)
        names.push_back(file.path.substr(scan.root.size() + 1));
    return names;
}

} // namespace

TEST(Scanner, findsMusicInOrderWhateverItIsCalled)
{
    const QTemporaryDir folder;
    const std::string root = folder.path().toStdString() + '/';
    const std::vector<std::string> music { "B.MP3", "a.wav", "line\nbreak.opus", "no text \xff\xfe.flac",
        "deep/er/x.AiFf", "z/\xe9.m4a" };
    for (const std::string &name : music)
        writeBytes(root + name, "x");
    for (const char *name : { "cover.jpg", "notes.txt", ".hidden.mp3", "._x.mp3", ".trash/x.mp3", "mp3", "x.mp3.part" })
        writeBytes(root + name, "x");

    const Scan scan = scanFolder(root);
    EXPECT_EQ(found(scan), music);
    EXPECT_TRUE(scan.complete && scan.skipped.empty());
    for (const ScannedFile &file : scan.files) {
        EXPECT_EQ(file.size, 1);
        EXPECT_EQ(pathOfUrl(urlOfPath(file.path)), file.path);
        EXPECT_EQ(pathOfUrl(QUrl(urlOfPath(file.path).toString())), file.path)
            << "lost when the store keeps it as text";
    }
    // However the folder is spelt, its files are called the same.
    EXPECT_EQ(scanFolder(root + "deep/../").files.front().path, scan.files.front().path);
    fs::remove_all(root); // the folder's own clean-up cannot name all of them
}

TEST(Scanner, linksAreFollowedOnceAndCirclesEnd)
{
    const QTemporaryDir folder, elsewhere;
    const std::string root = folder.path().toStdString() + '/', outside = elsewhere.path().toStdString() + '/';
    writeBytes(root + "m/real.mp3", "x");
    writeBytes(outside + "far.mp3", "x");
    fs::create_directory_symlink(root, root + "a-circle");
    fs::create_directory_symlink(root + "m", root + "m/self");
    fs::create_directory_symlink(outside, root + "linked");
    fs::create_symlink(root + "m/real.mp3", root + "a-link.mp3");
    fs::create_hard_link(root + "m/real.mp3", root + "z-hard.mp3");
    fs::create_symlink(root + "nowhere", root + "broken.mp3");
    fs::create_symlink(root + "nowhere", root + "broken.txt");
    ASSERT_EQ(mkfifo((root + "pipe.wav").c_str(), 0600), 0);

    const Scan scan = scanFolder(root);
    EXPECT_EQ(found(scan), (std::vector<std::string> { "z-hard.mp3", "m/real.mp3", "linked/far.mp3" }));
    std::set<QString> skipped;
    for (const SkippedFile &file : scan.skipped) {
        skipped.insert(file.file);
        EXPECT_FALSE(file.reason.isEmpty());
    }
    EXPECT_EQ(skipped, (std::set<QString> { u"broken.mp3"_s, u"pipe.wav"_s }));
}

TEST(Scanner, aFolderThatCannotBeReadIsSaidSo)
{
    if (geteuid() == 0)
        GTEST_SKIP() << "everything can be read by root";
    const QTemporaryDir folder;
    const std::string root = folder.path().toStdString() + '/';
    writeBytes(root + "closed/x.mp3", "x");
    writeBytes(root + "y.mp3", "x");
    fs::permissions(root + "closed", fs::perms::none);
    const Scan scan = scanFolder(root);
    fs::permissions(root + "closed", fs::perms::owner_all);
    EXPECT_EQ(found(scan), std::vector<std::string> { "y.mp3" });
    ASSERT_EQ(scan.skipped.size(), 1U);
    EXPECT_EQ(scan.unreadableFolders.size(), 1U);
}

TEST(Scanner, pathsAreShownFromTheirFolder)
{
    EXPECT_EQ(shownPath("/music/a/b.mp3", "/music"), u"a/b.mp3"_s);
    EXPECT_EQ(shownPath("/music 2/b.mp3", "/music"), u"/music 2/b.mp3"_s);
    EXPECT_EQ(shownPath("/b.mp3", "/"), u"b.mp3"_s);
    EXPECT_EQ(shownPath("/b.mp3", ""), u"/b.mp3"_s);
}

TEST(Scanner, stopsWhenAsked)
{
    const QTemporaryDir folder;
    const std::string root = folder.path().toStdString() + '/';
    for (int i = 0; i < 20; ++i)
        writeBytes(root + std::to_string(i) + "/x.mp3", "x");
    int asked = 0;
    const Scan scan = scanFolder(root, [&] { return ++asked > 5; });
    EXPECT_FALSE(scan.complete);
    EXPECT_LT(scan.files.size(), 20U);
}
