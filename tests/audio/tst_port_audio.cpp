// The way to a real device, as far as a machine without one can go.

#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <gtest/gtest.h>

#include <kestrixkit/audio/KXMultiTrackAudioPlayer.h>
#include <kestrixkit/audio/KXPortAudioOutput.h>

#include <support/AudioFiles.h>
#include <support/KXTestLog.h>

using namespace Qt::StringLiterals;

namespace {

struct SmokeItem : KXAudioPlayerItem
{
    explicit SmokeItem(const QString &path)
        : url(QUrl::fromLocalFile(path))
    {
    }
    QUrl audioFileURL() const override { return url; }
    QUrl url;
};

constexpr int smokePatience = 60'000; // milliseconds

}

// A sound server without a card stands in for the device, and dies in the middle.
TEST(PortAudio, playsThroughASoundServerAndSurvivesItsEnd)
{
#if KX_SANITIZED
    GTEST_SKIP() << "the sound libraries are not instrumented";
#endif
    const QString server = QStandardPaths::findExecutable(u"jackd"_s);
    if (server.isEmpty())
        GTEST_SKIP() << "no jackd";
    const QTemporaryDir dir;
    // Always the same: a server that is killed leaves its name in the list of servers, which holds eight.
    const QString name = u"kestrixkit-test"_s;
    qputenv("JACK_NO_AUDIO_RESERVATION", "1");
    qputenv("JACK_DEFAULT_SERVER", name.toLatin1());
    QProcess jack;
    jack.setProcessChannelMode(QProcess::MergedChannels);
    jack.start(server, { u"-n"_s, name, u"-r"_s, u"-d"_s, u"dummy"_s, u"-r"_s, u"44100"_s, u"-p"_s, u"512"_s });
    if (!jack.waitForStarted())
        GTEST_SKIP() << "jackd does not start";
    const auto output = std::make_shared<KXPortAudioOutput>();
    const auto hasDevice = [&] { return output->prepare() == 0 || jack.state() == QProcess::NotRunning; };
    if (!QTest::qWaitFor(hasDevice, smokePatience) || jack.state() == QProcess::NotRunning) {
        jack.kill();
        jack.waitForFinished();
        GTEST_SKIP() << "jackd does not run here: " << jack.readAll().toStdString();
    }

    KXTestLog log;
    KXMultiTrackAudioPlayer player(output);
    player.setVolume(0.5F);
    player.playItem(std::make_shared<SmokeItem>(
        writeSound(makeSound(22'050, 4), { "short", "wav", "wav", "pcm_s16le" }, dir.path())));
    ASSERT_EQ(player.state(), KXAudioPlayerStatePlaying);
    EXPECT_TRUE(QTest::qWaitFor([&] { return player.state() == KXAudioPlayerStateFinished; }, smokePatience));
    player.playItem(std::make_shared<SmokeItem>(
        writeSound(makeSound(2'000'000, 2), { "long", "wav", "wav", "pcm_s16le" }, dir.path())));
    ASSERT_TRUE(QTest::qWaitFor([&] { return player.currentTime() > 0.2; }, smokePatience));
    player.stop();
    const double there = player.currentTime();
    EXPECT_TRUE(player.resume());
    ASSERT_TRUE(QTest::qWaitFor([&] { return player.currentTime() > there + 0.1; }, smokePatience));

    jack.kill();
    jack.waitForFinished();
    EXPECT_TRUE(QTest::qWaitFor([&] { return player.state() == KXAudioPlayerStateStopped; }, smokePatience));
    EXPECT_TRUE(log.contains(u"Audio output lost"_s));
    player.playItem(nullptr);
    EXPECT_EQ(player.state(), KXAudioPlayerStateIdle);
}
