// The basic player: fades and positions to the frame, items that load while others are asked for, servers of all kinds.

#include <kestrixkit/audio/KXBasicAudioPlayer.h>
#include <kestrixkit/audio/KXStreamingPlayer_p.h>
#include <kestrixkit/audio/KXWaveformPyramid.h>
#include <kestrixkit/foundation/KXLog.h>

#include <support/HttpServer.h>

#include "PlayerTest.h"

namespace {

struct StreamItem : KXAudioPlayerItem
{
    explicit StreamItem(const QUrl &address)
        : url(address)
    {
    }
    QUrl audioFileURL() const override { return url; }
    QUrl url;
};

}

class BasicPlayer : public PlayerTest<KXBasicAudioPlayer>
{
protected:
    void play(const KXAudioPlayerItemPointer &item)
    {
        player->playItem(item);
        EXPECT_EQ(player->state(), KXAudioPlayerStateLoading);
        ASSERT_TRUE(waitFor(KXAudioPlayerStatePlaying));
    }
    KXAudioPlayerItemPointer shortItem(const char *name, size_t frames = 4000)
    {
        return item(makeSound(frames, 1, 8000), { name, "wav", "wav", "pcm_f32le" });
    }
    /// Cranks until the player is in this state.
    bool crankUntil(KXAudioPlayerState state)
    {
        std::vector<float> side(2048);
        return QTest::qWaitFor(
            [&] {
                while (output->crank(side.data(), side.data(), 2048) > 0) { }
                return player->state() == state;
            },
            patience);
    }
};

namespace {

constexpr int basicRate = 8000;

/// The gain of an item's frame, from its length.
double basicFade(qint64 frame, double duration)
{
    const double second = double(frame) / basicRate;
    const double out = std::max(0.0, std::trunc(duration - 1));
    // It takes the place of the other one where it begins.
    return second >= out ? std::clamp(out + 1 - second, 0.0, 1.0) : std::min(second, 1.0);
}

}

TEST_F(BasicPlayer, fadesFollowTheFrame)
{
    for (const double duration : { 10.7, 3.0, 2.5, 1.5, 0.5 }) {
        for (const int channels : { 1, 2 }) {
            const auto frames = size_t(std::lround(duration * basicRate));
            const AudioSamples sound = makeSound(frames, channels, basicRate);
            player->setVolume(0.8F);
            play(item(sound));
            EXPECT_DOUBLE_EQ(player->duration(), duration);
            const Stereo heard = hear(frames);
            std::vector<double> left(frames), right(frames);
            for (size_t i = 0; i < frames; ++i) {
                const double gain = 0.512 * basicFade(qint64(i), duration);
                left[i] = gain * sound.channels.front()[i];
                right[i] = gain * sound.channels.back()[i]; // mono is heard on both sides
            }
            expectNear(heard.left, left);
            expectNear(heard.right, right);
            EXPECT_TRUE(waitFor(KXAudioPlayerStateFinished));
        }
    }
}

TEST_F(BasicPlayer, seeksToWholeSecondsAndFadesOnce)
{
    const AudioSamples sound = makeSound(20 * basicRate, 1, basicRate);
    player->setVolume(1);
    play(item(sound));
    struct Row
    {
        double seconds;
        qint64 frame;
        bool fadesIn;
    };
    // Once it has come to the fade at the end, there is no other.
    for (const Row &row : { Row { 12.9, 96'000, true }, Row { 0.99, 0, true }, Row { -3.2, 0, true },
             Row { 19.5, 152'000, false }, Row { 0.5, 0, false }, Row { NAN, 2000, false } }) {
        player->setTime(row.seconds);
        EXPECT_DOUBLE_EQ(player->currentTime(), double(row.frame) / basicRate);
        ASSERT_TRUE(QTest::qWaitFor([&] { return !player->isSeeking(); }, patience));
        const auto at = size_t(row.frame);
        const Stereo heard = hear(2000);
        for (size_t i = 0; i < heard.left.size(); ++i) {
            const double gain = row.fadesIn ? std::min(1.0, double(at + i) / basicRate)
                                            : std::clamp(20 - double(at + i) / basicRate, 0.0, 1.0);
            ASSERT_NEAR(heard.left[i], gain * sound.channels[0][at + i], 1e-6) << row.seconds << " + " << i;
        }
    }
    player->applyFadeIn();
    player->setTime(1e9); // its end
    EXPECT_EQ(player->currentTime(), 20);
    EXPECT_TRUE(crankUntil(KXAudioPlayerStateFinished));
}

namespace {

/// An item that is played as loud as all others.
struct LevelledItem : FileItem
{
    explicit LevelledItem(const QString &path)
        : FileItem(path)
    {
        reading.measuresLoudness = true;
        waveform = KXWaveformPyramid::read(url, reading);
    }
    float gain() const override { return isLevelled ? waveform->gainForLoudness() : 1; }
    KXWaveformReading reading;
    std::optional<KXWaveformPyramid> waveform;
    bool isLevelled = true;
};

}

TEST_F(BasicPlayer, itemsSoundEquallyLoudWithTheirGain)
{
    const auto loudness = [this](const Stereo &heard) {
        const LevelledItem again(writeSound({ 44'100, { heard.left, heard.right } }, floats, m_dir.path()));
        return *again.waveform->loudness();
    };
    player->setVolume(1);
    std::shared_ptr<LevelledItem> last;
    for (const double level : { 0.03, 0.1, 0.9 }) {
        AudioSamples sound = makeSound(6 * 44'100, 2);
        for (std::vector<float> &channel : sound.channels) {
            for (float &sample : channel)
                sample = float(sample * level);
        }
        last = std::make_shared<LevelledItem>(writeSound(sound, { "level", "wav", "wav", "pcm_f32le" }, m_dir.path()));
        play(last);
        hear(44'100); // while it fades in
        EXPECT_NEAR(loudness(hear(3 * 44'100)), KXWaveformPyramid::ReferenceLoudness, 1) << level;
    }
    const double levelled = loudness(hear(30'000));
    last->isLevelled = false;
    player->currentItemGainDidChange();
    EXPECT_GT(loudness(hear(30'000)), levelled + 3);
    // What is quiet but for a beat is not led beyond full scale.
    AudioSamples beat = makeSound(44'100, 1);
    for (float &sample : beat.channels[0])
        sample *= 0.001F;
    beat.channels[0][20'000] = 0.5F;
    const LevelledItem quiet(writeSound(beat, floats, m_dir.path()));
    EXPECT_NEAR(quiet.gain(), 2, 0.05);
    const LevelledItem silent(writeSound({ 44'100, { std::vector<float>(44'100) } }, floats, m_dir.path()));
    EXPECT_EQ(silent.gain(), 1);
}

TEST_F(BasicPlayer, endsAtItsStartAndGoesOnWhenContinuous)
{
    const auto first = shortItem("a"), second = shortItem("b"), third = shortItem("c");
    const auto playlist = std::make_shared<Endless>();
    playlist->items = { first, second, third };
    player->playItemFromPlaylist(first, playlist);
    ASSERT_TRUE(waitFor(KXAudioPlayerStatePlaying));
    std::vector<int> states;
    const auto observer = player->onChangeOf(u"state"_s, KXObservingOptionNew,
        [&](const KXKeyValueChange &change) { states.push_back(change.newValue.toInt()); });
    ASSERT_TRUE(crankUntil(KXAudioPlayerStateFinished));
    EXPECT_EQ(player->currentTime(), 0);
    EXPECT_FALSE(output->isRunning());
    QTest::qWait(60);
    EXPECT_TRUE(player->resume()); // from the start
    EXPECT_EQ(hear(5000).left.size(), 4000U);
    ASSERT_TRUE(waitFor(KXAudioPlayerStateFinished));
    EXPECT_THAT(states, ::testing::ElementsAre(6, 3, 6));

    states.clear();
    player->setContinuous(true);
    player->resume();
    ASSERT_TRUE(crankUntil(KXAudioPlayerStateLoading));
    EXPECT_EQ(player->currentItem(), second);
    ASSERT_TRUE(waitFor(KXAudioPlayerStatePlaying));
    EXPECT_THAT(states, ::testing::ElementsAre(3, 6, 4, 1, 3));
    // The end of anybody's item leads on to the next one, but this one has not finished.
    states.clear();
    KXNotificationCenter::defaultCenter().post(KXStreamingPlayerDidPlayToEndNotification, this);
    EXPECT_EQ(player->currentItem(), third);
    EXPECT_THAT(states, ::testing::ElementsAre(4, 1));
}

TEST_F(BasicPlayer, whatIsAskedForWhileItLoadsCounts)
{
    EXPECT_FALSE(player->resume());
    player->setVolume(1);
    const auto first = shortItem("a"), second = shortItem("b", 6000);
    player->playItem(first);
    EXPECT_FALSE(player->resume()); // dropped, and nothing there yet
    player->playItem(second);
    ASSERT_TRUE(waitFor(KXAudioPlayerStatePlaying));
    EXPECT_DOUBLE_EQ(player->duration(), 0.75);

    player->playItem(first);
    player->stop();
    ASSERT_TRUE(QTest::qWaitFor([&] { return player->duration() > 0; }, patience));
    EXPECT_EQ(player->state(), KXAudioPlayerStateStopped);
    EXPECT_TRUE(player->resume());
    EXPECT_EQ(hear(9000).left.size(), 4000U);

    // Nothing to play: the one before stays.
    play(second);
    player->playItem(std::make_shared<FileItem>(QString()));
    EXPECT_EQ(player->state(), KXAudioPlayerStateStopped);
    player->playItem(nullptr);
    EXPECT_EQ(player->state(), KXAudioPlayerStateIdle);
    EXPECT_EQ(player->currentItem(), nullptr);
    EXPECT_TRUE(player->resume());
    EXPECT_EQ(hear(9000).left.size(), 6000U);

    // An observer that changes its mind in the middle.
    for (const int at : { KXAudioPlayerStateLoading, KXAudioPlayerStatePlaying }) {
        bool done = false;
        const auto observer = player->onChangeOf(u"state"_s, [&](const KXKeyValueChange &) {
            if (player->state() == at && !std::exchange(done, true))
                player->playItem(second);
        });
        player->playItem(first);
        ASSERT_TRUE(QTest::qWaitFor([&] { return done; }, patience));
        player->removeKVOBlockObserver(observer);
        ASSERT_TRUE(waitFor(KXAudioPlayerStatePlaying));
        EXPECT_DOUBLE_EQ(player->duration(), 0.75);
    }
}

TEST_F(BasicPlayer, fadesOutAlsoWhenItWasStoppedWhileItLoaded)
{
    const AudioSamples sound = makeSound(20'000, 1, basicRate); // 2.5 seconds
    player->setVolume(1);
    player->playItem(item(sound));
    player->stop();
    ASSERT_TRUE(QTest::qWaitFor([&] { return player->duration() > 0; }, patience));
    ASSERT_TRUE(player->resume());
    const Stereo heard = hear(20'000);
    std::vector<double> expected(20'000);
    for (size_t i = 0; i < expected.size(); ++i)
        expected[i] = sound.channels[0][i] * std::clamp(2 - double(i) / basicRate, 0.0, 1.0);
    expectNear(heard.left, expected);
}

TEST_F(BasicPlayer, observersDoAsTheyLike) { PlayerTest::observersDoAsTheyLike(shortItem("a")); }

TEST_F(BasicPlayer, failuresEndStopped)
{
    KXTestLog log;
    std::thread::id thread;
    const auto token = KXNotificationCenter::defaultCenter().addObserver(
        QString(KXAudioPlayerStateDidChangeNotification), player.get(), [&](const KXNotification &) {
            if (player->state() == KXAudioPlayerStateStopped)
                thread = std::this_thread::get_id();
        });
    int changes = 0;
    const auto observer = player->onChangeOf(u"state"_s, [&](const KXKeyValueChange &) { ++changes; });
    player->playItem(std::make_shared<FileItem>(m_dir.filePath(u"missing.wav"_s)));
    ASSERT_TRUE(QTest::qWaitFor([&] { return changes == 3; }, patience));
    EXPECT_EQ(player->state(), KXAudioPlayerStateStopped);
    EXPECT_NE(thread, std::this_thread::get_id());
    EXPECT_FALSE(player->resume());
    EXPECT_EQ(player->duration(), 0);

    output->startStatus = -9985;
    player->playItem(shortItem("a"));
    EXPECT_TRUE(waitFor(KXAudioPlayerStateStopped));
    EXPECT_TRUE(QTest::qWaitFor([&] { return log.contains(u"Couldn't start output (-9985)"_s); }, patience));
    EXPECT_FALSE(player->resume());
    output->startStatus = 0;
    EXPECT_TRUE(player->resume());
    output->lose();
    EXPECT_EQ(player->state(), KXAudioPlayerStateStopped);

    for (int i = 0; i < 50; ++i) { // gone while it loads
        player->playItem(i % 2 ? shortItem("a") : std::make_shared<FileItem>(m_dir.filePath(u"missing.wav"_s)));
        player = std::make_unique<KXBasicAudioPlayer>(output);
    }
}

TEST_F(BasicPlayer, playsFromServersOfAllKinds)
{
    const AudioSamples sound = makeSound(100'000, 2);
    const QByteArray bytes = bytesOf(item(sound));
    player->setSecondsPerCall(0.5);
    player->setVolume(1);
    struct Row
    {
        HttpServer::Mode mode;
        size_t least, most; // frames
        KXAudioPlayerState state;
    };
    for (const Row &row : { Row { HttpServer::Normal, 100'000, 100'000, KXAudioPlayerStateFinished },
             Row { HttpServer::NoRanges, 100'000, 100'000, KXAudioPlayerStateFinished },
             Row { HttpServer::CutOnce, 100'000, 100'000, KXAudioPlayerStateFinished },
             Row { HttpServer::NotFound, 0, 0, KXAudioPlayerStateStopped },
             Row { HttpServer::Stall, 0, 0, KXAudioPlayerStateStopped },
             Row { HttpServer::StallInBody, 40'000, 60'000, KXAudioPlayerStateStopped },
             Row { HttpServer::Cut, 40'000, 60'000, KXAudioPlayerStateStopped },
             Row { HttpServer::Lie, 100'000, 100'000, KXAudioPlayerStateFinished } }) {
        KXTestLog log;
        HttpServer server(bytes, row.mode);
        player->playItem(std::make_shared<StreamItem>(server.url()));
        ASSERT_EQ(player->state(), KXAudioPlayerStateLoading) << row.mode;
        size_t heard = 0;
        ASSERT_TRUE(QTest::qWaitFor(
            [&] {
                std::vector<float> left(2048), right(2048);
                for (int got = 1; got > 0; heard += size_t(got)) {
                    got = output->crank(left.data(), right.data(), 2048);
                    for (int i = 0; i < got; i += 100) {
                        const size_t at = heard + size_t(i);
                        const double gain
                            = at < 44'100 ? double(at) / 44'100 : std::clamp(2 - double(at) / 44'100, 0.0, 1.0);
                        EXPECT_NEAR(right[size_t(i)], gain * sound.channels[1][at], 1e-6) << row.mode << " at " << at;
                    }
                }
                return player->state() == row.state;
            },
            patience))
            << row.mode;
        EXPECT_GE(heard, row.least) << row.mode;
        EXPECT_LE(heard, row.most) << row.mode;
        const bool isReported = log.contains(row.least > 0 ? u"Failed to read"_s : u"Failed to open"_s);
        EXPECT_EQ(isReported, row.state == KXAudioPlayerStateStopped) << row.mode;
        if (row.mode == HttpServer::NoRanges) { // it has to come from the start once more
            player->setTime(1);
            EXPECT_TRUE(player->resume());
            ASSERT_TRUE(
                QTest::qWaitFor([&] { return player->currentTime() > 1 || hear(1).left.size() > 1; }, patience));
            EXPECT_TRUE(crankUntil(KXAudioPlayerStateFinished));
        }
    }
    // Neither another item nor the player's end waits for a server that says nothing.
    player->setSecondsPerCall(3600);
    HttpServer server(bytes, HttpServer::Stall);
    player->playItem(std::make_shared<StreamItem>(server.url()));
    ASSERT_TRUE(QTest::qWaitFor([&] { return server.requests() > 0; }, patience));
    play(shortItem("a"));
    player->playItem(std::make_shared<StreamItem>(server.url()));
    player.reset();
}

/// A connection that breaks off is not where the item ends: nothing fades there, and what comes then is heard.
TEST_F(BasicPlayer, goesOnWhereAConnectionBrokeOff)
{
    constexpr size_t seconds = 20, all = seconds * basicRate;
    const AudioSamples sound = makeSound(all, 1, basicRate);
    HttpServer server(bytesOf(item(sound)), HttpServer::StallInBodyOnce);
    player->setSecondsPerCall(0.5);
    player->setVolume(1);
    play(std::make_shared<StreamItem>(server.url()));
    size_t at = 0;
    const auto expectSound = [&](const Stereo &heard) {
        for (const float sample : heard.left) {
            const double gain = std::min({ 1.0, double(at) / basicRate, double(all - at) / basicRate });
            ASSERT_NEAR(sample, gain * sound.channels[0][at], 1e-6) << at;
            ++at;
        }
    };
    while (player->state() == KXAudioPlayerStatePlaying) {
        expectSound(hear(1000));
        QTest::qWait(1);
    }
    EXPECT_EQ(player->state(), KXAudioPlayerStateStopped);
    EXPECT_NEAR(double(at), double(all) / 2, 1000);
    EXPECT_TRUE(player->resume());
    ASSERT_TRUE(QTest::qWaitFor([&] { return player->duration() == double(seconds); }, patience));
    expectSound(hear(all - at));
    EXPECT_EQ(at, all);
    EXPECT_TRUE(waitFor(KXAudioPlayerStateFinished));
}

TEST_F(BasicPlayer, whatEndsNobodyKnowsWhereDoesNotFadeBefore)
{
    const AudioSamples sound = makeSound(60 * basicRate, 1, basicRate);
    HttpServer server(bytesOf(item(sound, { "endless", "aac", "adts", "aac", 64'000 })), HttpServer::NoLength);
    player->setVolume(1);
    play(std::make_shared<StreamItem>(server.url()));
    EXPECT_EQ(player->duration(), 0);
    const Stereo heard = hear(4 * basicRate);
    double late = 0;
    for (size_t i = 3 * basicRate; i < heard.left.size(); ++i)
        late = std::max(late, std::abs(double(heard.left[i])));
    EXPECT_GT(late, 0.1);
    EXPECT_TRUE(crankUntil(KXAudioPlayerStateFinished));
}

TEST_F(BasicPlayer, fadesInAgainAndStillOutAtItsEnd)
{
    const AudioSamples sound = makeSound(4 * basicRate, 1, basicRate);
    player->setVolume(1);
    play(item(sound));
    (void)hear(12'000);
    player->applyFadeIn();
    const Stereo heard = hear(4 * basicRate - 12'000);
    for (size_t i = 0; i < heard.left.size(); ++i) {
        const size_t at = 12'000 + i;
        ASSERT_NEAR(heard.left[i], std::min(1.0, 4 - double(at) / basicRate) * sound.channels[0][at], 1e-6) << at;
    }
}

TEST_F(BasicPlayer, playsAFileThatGrowsAndOneThatVanishes)
{
    player->setVolume(1);
    const auto whole = shortItem("whole", 20'000);
    const QByteArray bytes = bytesOf(whole);
    QFile growing(m_dir.filePath(u"growing.wav"_s));
    ASSERT_TRUE(growing.open(QIODevice::WriteOnly | QIODevice::Unbuffered));
    growing.write(bytes.left(20'000));
    KXTestLog log;
    play(std::make_shared<FileItem>(growing.fileName()));
    EXPECT_GT(hear(4000).left.size(), 3999U);
    ASSERT_TRUE(QTest::qWaitFor([&] { return log.contains(u"Read status"_s); }, patience));
    growing.write(bytes.mid(20'000));
    EXPECT_EQ(hear(20'000).left.size(), 16'000U);
    ASSERT_TRUE(waitFor(KXAudioPlayerStateFinished));

    play(whole);
    QFile::remove(whole->audioFileURL().toLocalFile());
    EXPECT_EQ(hear(30'000).left.size(), 20'000U);
    EXPECT_TRUE(waitFor(KXAudioPlayerStateFinished));
}

TEST_F(BasicPlayer, randomTransportLeavesNothingBehind)
{
    const auto last = item(makeSound(20'000, 2), { "r", "flac", "flac", "flac" });
    const QByteArray bytes = bytesOf(last);
    HttpServer good(bytes, HttpServer::Normal), bad(bytes, HttpServer::StallInBody);
    transportAtRandom(
        { item(makeSound(60'000, 4)), last, shortItem("s"),
            item(makeSound(40'000, 2), { "r", "mp3", "mp3", "libmp3lame", 128000 }),
            std::make_shared<StreamItem>(good.url()), std::make_shared<StreamItem>(bad.url()),
            std::make_shared<FileItem>(u"/nowhere.wav"_s), std::make_shared<FileItem>(QString()), nullptr },
        last);
}

TEST_F(BasicPlayer, saysOnceThatNobodyWillHearIt)
{
    const KXTestLog log;
    const auto heard = [&] { return log.lines().filter(u"at the volume 0"_s).size(); };
    KXBasicAudioPlayer loud(std::make_shared<KXHandCrankedAudioOutput>()),
        silent(std::make_shared<KXHandCrankedAudioOutput>());
    loud.setVolume(0); // somebody wants it so
    loud.playItem(shortItem("a"));
    EXPECT_EQ(heard(), 0);
    silent.playItem(shortItem("a"));
    silent.playItem(shortItem("b"));
    EXPECT_EQ(heard(), 1);
}
