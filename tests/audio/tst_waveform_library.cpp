// Waveforms that are kept: found again, noticed when they are another sound's, made anew when they are damaged.

#include <sqlite3.h>

#include <QFile>
#include <QTemporaryDir>
#include <QTest>
#include <gtest/gtest.h>

#include <kestrixkit/audio/KXAudioFile.h>
#include <kestrixkit/audio/KXWaveformLibrary.h>
#include <kestrixkit/audio/KXWaveformStore_p.h>

#include <support/AudioFiles.h>
#include <support/ChildProcess.h>
#include <support/KXTestLog.h>
#include <support/SmallDisk.h>

using namespace Qt::StringLiterals;

class WaveformLibrary : public ::testing::Test
{
protected:
    QUrl write(const char *name, size_t frames)
    {
        return QUrl::fromLocalFile(writeSound(makeSound(frames, 2), { name, "wav", "wav", "pcm_s16le" }, m_dir.path()));
    }
    static constexpr int patience = 60'000;
    std::shared_ptr<const KXWaveformPyramid> wait(KXWaveformLibrary &library, const QUrl &file)
    {
        bool isReady = library.pyramid(file) != nullptr;
        const auto connection
            = QObject::connect(&library, &KXWaveformLibrary::ready, [&](const QUrl &url) { isReady |= url == file; });
        EXPECT_TRUE(QTest::qWaitFor([&] { return isReady; }, patience));
        QObject::disconnect(connection);
        return library.pyramid(file);
    }
    QTemporaryDir m_dir;
    const QString m_path = m_dir.filePath(u"library.waves"_s);
};

TEST_F(WaveformLibrary, keepsWhatItMadeAndNoticesOtherSound)
{
    const QUrl file = write("a", 5000);
    KXAudioFingerprint fingerprint;
    {
        KXWaveformLibrary library(m_path);
        EXPECT_EQ(library.overview(file), nullptr);
        const auto pyramid = wait(library, file);
        ASSERT_TRUE(pyramid);
        EXPECT_EQ(pyramid->frames(), 5000);
        EXPECT_EQ(library.overview(file)->size(), size_t(KXWaveformLibrary::OverviewColumns));
        fingerprint = pyramid->fingerprint();
        EXPECT_FALSE(wait(library, QUrl::fromLocalFile(m_dir.filePath(u"late.wav"_s))));
        EXPECT_TRUE(wait(library, write("late", 3000))) << "its disk was not there yet";
        EXPECT_FALSE(library.pyramid(QUrl(u"http://example.com/a.wav"_s)));
    }
    // Moved and then replaced, in other processes. What is kept is what comes: a mark in it shows.
    {
        KXWaveformStore store(m_path);
        auto marked = KXWaveformPyramid::read(write("b", 777));
        marked->setFingerprint(fingerprint);
        store.setPyramid(*marked);
    }
    const QUrl moved = QUrl::fromLocalFile(m_dir.filePath(u"moved.wav"_s));
    ASSERT_TRUE(QFile::rename(file.toLocalFile(), moved.toLocalFile()));
    KXWaveformLibrary library(m_path);
    EXPECT_EQ(wait(library, moved)->frames(), 777);
    write("a", 6000);
    EXPECT_EQ(wait(library, file)->frames(), 6000);
    write("a", 9000); // while it is in memory
    EXPECT_EQ(wait(library, file)->frames(), 9000);
}

TEST_F(WaveformLibrary, preparesBehindWhatIsAskedFor)
{
    std::vector<QUrl> files;
    for (const char *name : { "a", "b", "c", "d" })
        files.push_back(write(name, 3000));
    KXWaveformLibrary library(m_path);
    library.setPaused(true);
    for (size_t i = 0; i < 3; ++i)
        library.prepare(files[i]);
    EXPECT_TRUE(wait(library, files[3]));
    EXPECT_EQ(library.pendingCount(), 3);
    library.setPaused(false);
    EXPECT_TRUE(QTest::qWaitFor([&] { return library.pendingCount() == 0; }, patience));
    for (int i = 0; i < 5000; ++i) // more than it takes: the oldest are forgotten
        (void)library.overview(QUrl::fromLocalFile(m_dir.filePath(QString::number(i))));
    EXPECT_TRUE(wait(library, files[0]));
}

TEST_F(WaveformLibrary, measuresLoudnessOfWhatWasMadeWithoutIt)
{
    const QUrl file = write("a", 50'000), other = write("b", 60'000);
    KXWaveformLibrary library(m_path);
    EXPECT_FALSE(wait(library, file)->loudness());
    library.prepare(other);
    library.setMeasuresLoudness(true); // perhaps while the other one is being made
    EXPECT_TRUE(wait(library, file)->loudness());
    EXPECT_TRUE(wait(library, other)->loudness());
    KXWaveformLibrary later(m_path);
    EXPECT_TRUE(wait(later, file)->loudness()) << "it is kept";
    // Of a rate that nothing can be heard at there is none.
    QFile silent(write("c", 5000).toLocalFile());
    ASSERT_TRUE(silent.open(QIODevice::ReadWrite) && silent.seek(24));
    silent.write("\x00\x09\x3d\x00", 4); // 4,000,000
    silent.close();
    const auto pyramid = wait(library, QUrl::fromLocalFile(silent.fileName()));
    ASSERT_TRUE(pyramid);
    EXPECT_FALSE(pyramid->loudness());
}

TEST_F(WaveformLibrary, livesWithADamagedFileAndWithNone)
{
    KXTestLog log;
    const QUrl file = write("a", 4000);
    QFile damaged(m_path);
    ASSERT_TRUE(damaged.open(QIODevice::WriteOnly));
    damaged.write(QByteArray(100'000, 'x'));
    damaged.close();
    {
        KXWaveformLibrary library(m_path);
        EXPECT_TRUE(wait(library, file));
    }
    const KXAudioFingerprint fingerprint = KXAudioFingerprint::ofFile(file);
    EXPECT_TRUE(KXWaveformStore(m_path).pyramid(fingerprint)); // it was begun anew
    // A damaged waveform in a sound file is made again.
    sqlite3 *database = nullptr;
    ASSERT_EQ(sqlite3_open(qPrintable(m_path), &database), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(database, "UPDATE waveforms SET pyramid=x'0102'", nullptr, nullptr, nullptr), SQLITE_OK);
    sqlite3_close(database);
    {
        KXWaveformLibrary library(m_path);
        EXPECT_TRUE(wait(library, file));
    }
    EXPECT_TRUE(KXWaveformStore(m_path).pyramid(fingerprint));
    // Nowhere to keep anything.
    KXWaveformLibrary library(m_dir.filePath(u"no/such/folder/library.waves"_s));
    EXPECT_TRUE(wait(library, file));
    EXPECT_TRUE(log.contains(u"Waveforms cannot be kept"_s));
    KXWaveformLibrary ends(m_path); // at once, with work to do
    for (int i = 0; i < 50; ++i)
        ends.prepare(file);
}

// Not a test: a process with a disk of its own, for the next one.
TEST_F(WaveformLibrary, DISABLED_onADiskThatIsFull)
{
    const SmallDisk disk;
    if (!disk) {
        puts("no disk");
        return;
    }
    const QUrl first = write("a", 4000), second = write("b", 5000), third = write("c", 6000);
    const QString path = disk.filePath(u"library.waves"_s);
    {
        KXWaveformLibrary library(path);
        EXPECT_TRUE(wait(library, first));
        disk.fill();
        EXPECT_TRUE(wait(library, second)) << "made, and not kept";
    }
    {
        KXWaveformLibrary library(path); // opened on the full disk
        EXPECT_TRUE(wait(library, first));
        EXPECT_TRUE(wait(library, third));
    }
    EXPECT_TRUE(disk.makeRoom());
    {
        KXWaveformLibrary library(path);
        EXPECT_TRUE(wait(library, third));
    }
    EXPECT_TRUE(KXWaveformStore(path).pyramid(KXAudioFingerprint::ofFile(third))) << "kept again";
    puts(HasFailure() ? "failed" : "all well");
}

TEST_F(WaveformLibrary, livesWithAFullDisk)
{
    ChildProcess child("WaveformLibrary.DISABLED_onADiskThatIsFull", QProcessEnvironment::systemEnvironment());
    const QByteArray output = child.readAll();
    child.kill();
    if (output.contains("no disk"))
        GTEST_SKIP() << "no disk of its own can be had here";
    EXPECT_TRUE(output.contains("all well")) << output.toStdString();
}
