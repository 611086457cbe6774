// The files of an index: damaged in every way, of another store, on disks that fail.

#include <QFile>
#include <QFileInfo>
#include <QTest>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <kestrixkit/store/KXStoreFiles_p.h>

#include "search/SearchedLibrary.h"

using namespace Qt::StringLiterals;

class SearchFiles : public testing::Test
{
protected:
    SearchFiles()
        : world(random)
    {
        world.fill(*library.context, 60);
        EXPECT_TRUE(library.context->save());
    }

    [[nodiscard]] QString path() const { return library.path() + u"-search-main"_s; }
    [[nodiscard]] QString changesPath() const { return path() + u"-changes"_s; }
    /// Opens the index, compares some searches, and has it kept. Answers whether the file was of use.
    bool check(const std::function<void()> &meanwhile = {})
    {
        KXSearchIndex index(library.context, SearchedLibrary::groups(), u"main"_s);
        EXPECT_TRUE(index.open());
        const bool mapped = index.figures().isMapped;
        if (meanwhile)
            meanwhile();
        for (int i = 0; i < 10; ++i) {
            const QString term = world.term();
            EXPECT_EQ(SearchedLibrary::lines(index.results(term, 5)),
                SearchedLibrary::lines(SearchedLibrary::scan(*library.context, term, 5)))
                << term.toStdString();
        }
        return mapped && index.figures().isMapped;
    }
    [[nodiscard]] static QByteArray read(const QString &path)
    {
        QFile file(path);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }

    KXTestRandom random;
    LibraryTest library;
    SearchedLibrary world;
};

namespace {

/// Fails every step that has to do with an index.
class FailingDisk : public KXStoreFiles::Probe
{
public:
    explicit FailingDisk(int number)
        : m_number(number)
    {
        KXStoreFiles::setProbe(this);
    }
    ~FailingDisk() override { KXStoreFiles::setProbe(nullptr); }
    int begin(const KXStoreFiles::Step &step) override
    {
        const bool isIndex = step.path.contains("-search-");
        asked += isIndex;
        return isIndex ? m_number : 0;
    }
    void done(const KXStoreFiles::Step &) override { }

    std::atomic<int> asked { 0 };

private:
    int m_number;
};

}

TEST_F(SearchFiles, aStartMapsWhatTheLastOneMade)
{
    EXPECT_FALSE(check());
    EXPECT_TRUE(check());
    struct stat status;
    ASSERT_EQ(::stat(QFile::encodeName(path()).constData(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600u);
    // What was saved while it was open is kept beside it.
    EXPECT_TRUE(check([this] {
        world.edit(*library.context, false);
        library.track(u"kept beside"_s);
        EXPECT_TRUE(library.context->save());
    }));
    library.reopen();
    EXPECT_TRUE(check());
    // What was saved without an index is not.
    library.track(u"behind its back"_s);
    ASSERT_TRUE(library.context->save());
    EXPECT_FALSE(check());
    EXPECT_TRUE(check());
}

TEST_F(SearchFiles, damageIsFoundAndTheIndexMadeAnew)
{
    check();
    check([this] {
        library.track(u"kept beside"_s);
        EXPECT_TRUE(library.context->save());
    });
    const QByteArray sound = read(path());
    const QByteArray soundChanges = read(changesPath());
    ASSERT_FALSE(sound.isEmpty());
    ASSERT_FALSE(soundChanges.isEmpty());
    const int rounds = std::max(20, KXTestRandom::scaled(1000));
    for (int round = 0; round < rounds; ++round) {
        const bool isIndex = random.chance(0.8);
        QByteArray bytes = isIndex ? sound : soundChanges;
        switch (random.below(3)) {
        case 0:
            bytes.truncate(random.below(int(bytes.size())));
            break;
        case 1:
            for (int i = random.below(20); i >= 0; --i)
                bytes[random.below(int(bytes.size()))] = char(random.below(256));
            break;
        default:
            bytes[random.below(int(bytes.size()))] ^= char(1 << random.below(8));
        }
        Library::write(path(), isIndex ? bytes : sound);
        Library::write(changesPath(), isIndex ? soundChanges : bytes);
        check();
        if (HasFailure())
            return;
    }
}

TEST_F(SearchFiles, ofAnotherStoreOrPlaceIsNotTaken)
{
    check();
    const QByteArray sound = read(path());
    // Of a store that was taken back to what it was: the numbers of the two histories differ.
    const QByteArray store = [&] {
        library.context.reset();
        library.coordinator.reset();
        return read(library.path());
    }();
    const auto history = [&](const QString &title) {
        library.open();
        EXPECT_TRUE(library.context);
        library.track(title);
        EXPECT_TRUE(library.context->save());
        check();
        library.context.reset();
        library.coordinator.reset();
    };
    history(u"one"_s);
    Library::write(library.path(), store);
    library.open();
    library.track(u"another"_s);
    ASSERT_TRUE(library.context->save());
    EXPECT_FALSE(check());
    // Of another store.
    LibraryTest foreign;
    SearchedLibrary(random).fill(*foreign.context, 5);
    ASSERT_TRUE(foreign.context->save());
    Library::write(foreign.path() + u"-search-main"_s, read(path()));
    {
        KXSearchIndex index(foreign.context, SearchedLibrary::groups(), u"main"_s);
        ASSERT_TRUE(index.open());
        EXPECT_FALSE(index.figures().isMapped);
    }
    // Other texts or another order.
    QList<KXSearchGroup> groups = SearchedLibrary::groups();
    groups[0].rank.removeLast();
    EXPECT_TRUE(check());
    {
        KXSearchIndex index(library.context, groups, u"main"_s);
        ASSERT_TRUE(index.open());
        EXPECT_FALSE(index.figures().isMapped);
    }
    // A link is not followed, a folder is no file.
    ASSERT_TRUE(QFile::rename(path(), library.path() + u"-elsewhere"_s));
    ASSERT_TRUE(QFile::link(library.path() + u"-elsewhere"_s, path()));
    EXPECT_FALSE(check());
    EXPECT_FALSE(QFileInfo(path()).isSymLink());
    ASSERT_TRUE(QFile::remove(path()));
    ASSERT_TRUE(QDir().mkdir(path()));
    EXPECT_FALSE(check());
}

TEST_F(SearchFiles, aDiskThatFailsCostsTheFileAlone)
{
    for (const int number : { ENOSPC, EROFS, EIO }) {
        const FailingDisk disk(number);
        EXPECT_FALSE(check());
        EXPECT_FALSE(check([this] {
            library.track(u"not kept"_s);
            EXPECT_TRUE(library.context->save());
        }));
        EXPECT_FALSE(QFileInfo::exists(path()));
    }
    // What a killed process has left goes with the next one that writes.
    const QString left = path() + u"-01234567-89ab-cdef-0123-456789abcdef"_s;
    Library::write(left, "rest");
    check();
    EXPECT_FALSE(QFileInfo::exists(left));
    EXPECT_TRUE(check());
    // What could not be kept in the background is not taken for kept.
    KXSearchIndex index(library.context, SearchedLibrary::groups(), u"main"_s);
    ASSERT_TRUE(index.open());
    library.track(u"to be kept"_s);
    ASSERT_TRUE(library.context->save());
    const QByteArray before = read(changesPath());
    {
        const FailingDisk disk(ENOSPC);
        for (int i = 0; i < 1000 && disk.asked == 0; ++i)
            QTest::qWait(10);
        EXPECT_GT(disk.asked, 0);
        QTest::qWait(20);
    }
    ASSERT_TRUE(index.keep());
    EXPECT_NE(read(changesPath()), before);
}

TEST_F(SearchFiles, aStoreOfBeforeTheChangeNumberGetsOne)
{
    check();
    library.context.reset();
    library.coordinator.reset();
    for (const char *sql :
        { "DELETE FROM kx_metadata WHERE key = 'change'", "UPDATE kx_metadata SET value = 'x' WHERE key = 'change'",
            "UPDATE kx_metadata SET value = NULL WHERE key = 'change'" }) {
        Library::tamper(library.path(), sql);
        library.open();
        EXPECT_FALSE(check()) << sql;
        library.track(u"more"_s);
        EXPECT_TRUE(library.context->save());
        EXPECT_FALSE(check()) << sql;
        EXPECT_TRUE(check()) << sql;
        library.context.reset();
        library.coordinator.reset();
    }
}
