// The way to a real device, as far as a machine without one can go.

#include <QCoreApplication>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <gmock/gmock.h>
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
constexpr const char *sameRate = "KX_TEST_SAME_RATE"; // set in a process of its own

}

// A sound server without a card stands in for the device, and dies in the middle.
/// By name, and through one that is not there and back.
static void expectToGoOnByAnotherDevice(KXAudioPlayer &player, KXPortAudioOutput &output, const QString &device)
{
    EXPECT_EQ(output.setDevice(device), 0);
    const double chosen = player.currentTime();
    ASSERT_TRUE(QTest::qWaitFor([&] { return player.currentTime() > chosen + 0.1; }, smokePatience));
    EXPECT_NE(output.setDevice(u"no such device"_s), 0);
    EXPECT_EQ(player.state(), KXAudioPlayerStateStopped);
    EXPECT_EQ(output.setDevice({}), 0);
    const double back = player.currentTime();
    EXPECT_TRUE(player.resume());
    ASSERT_TRUE(QTest::qWaitFor([&] { return player.currentTime() > back + 0.1; }, smokePatience));
}

TEST(PortAudio, playsThroughASoundServerAndSurvivesItsEnd)
{
#if KX_SANITIZED
    GTEST_SKIP() << "the sound libraries are not instrumented";
#endif
    // Other than that of the files, unless a process for the same one is asked for.
    const int rate = qEnvironmentVariableIsSet(sameRate) ? 44'100 : 48'000;
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
    jack.start(
        server, { u"-n"_s, name, u"-r"_s, u"-d"_s, u"dummy"_s, u"-r"_s, QString::number(rate), u"-p"_s, u"512"_s });
    if (!jack.waitForStarted())
        GTEST_SKIP() << "jackd does not start";
    const auto output = std::make_shared<KXPortAudioOutput>();
    const auto hasDevice = [&] { return output->prepare() == 0 || jack.state() == QProcess::NotRunning; };
    if (!QTest::qWaitFor(hasDevice, smokePatience) || jack.state() == QProcess::NotRunning) {
        jack.kill();
        jack.waitForFinished();
        GTEST_SKIP() << "jackd does not run here: " << jack.readAll().toStdString();
    }

    const QList<KXAudioDevice> devices = KXPortAudioOutput::devices();
    ASSERT_FALSE(devices.isEmpty());
    const auto usual
        = std::find_if(devices.begin(), devices.end(), [](const KXAudioDevice &each) { return each.isDefault; });
    ASSERT_NE(usual, devices.end());
    EXPECT_EQ(usual->sampleRate, rate);

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
    expectToGoOnByAnotherDevice(player, *output, usual->identifier);

    // One that stands still hears nothing of the end.
    const bool standsStill = qEnvironmentVariableIsSet(sameRate);
    if (standsStill)
        player.stop();
    jack.kill();
    jack.waitForFinished();
    EXPECT_TRUE(QTest::qWaitFor([&] { return player.state() == KXAudioPlayerStateStopped; }, smokePatience));
    EXPECT_TRUE(log.contains(u"Audio output lost"_s) || standsStill);
    if (standsStill)
        EXPECT_NE(output->start(), 0);
    player.playItem(nullptr);
    EXPECT_EQ(player.state(), KXAudioPlayerStateIdle);
}

// The sound libraries know the server that was there first: another one needs another process. Meanwhile this one has
// the time to show that the end of its server is not its own.
TEST(PortAudio, playsAtTheServersRateToo)
{
#if KX_SANITIZED
    GTEST_SKIP() << "the sound libraries are not instrumented";
#endif
    if (qEnvironmentVariableIsSet(sameRate))
        GTEST_SKIP() << "this is that process";
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QString::fromLatin1(sameRate), u"1"_s);
    process.setProcessEnvironment(environment);
    process.start(QCoreApplication::applicationFilePath(), { u"--gtest_filter=PortAudio.playsThrough*"_s });
    ASSERT_TRUE(process.waitForFinished(-1));
    EXPECT_EQ(process.exitCode(), 0) << process.readAll().toStdString();
}

// What sound libraries have to say about a machine without sound is no business of who reads standard error.
TEST(PortAudioDeathTest, looksForDevicesInSilence)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            KXPortAudioOutput output;
            (void)output.prepare();
            std::exit(0);
        },
        testing::ExitedWithCode(0),
        testing::Not(testing::AnyOf(testing::HasSubstr("ALSA"), testing::HasSubstr("jack"))));
}
