// The multi-track player on outputs that can be looked at: what is heard, where it stands, and how it ends.

#include <complex>

#include <kestrixkit/audio/KXCoreAudioFileDecoder.h>
#include <kestrixkit/audio/KXMultiTrackAudioPlayer.h>
#include <kestrixkit/audio/KXPlaybackSession_p.h>
#include <kestrixkit/foundation/KXLog.h>

#include "PlayerTest.h"

class MultiTrack : public PlayerTest<KXMultiTrackAudioPlayer>
{
protected:
    bool isOver() const override
    {
        const auto decoder = player->currentFileDecoder();
        return decoder->totalFramesIsFinal() && decoder->renderedFrames() >= decoder->totalFrames();
    }
};

TEST_F(MultiTrack, mixesChannelsLeftAndRightInTurn)
{
    for (const int channels : { 1, 2, 4, 7 }) {
        const AudioSamples sound = makeSound(30'000, channels);
        const float volume = channels == 4 ? 0.7F : 1.0F;
        player->setVolume(volume);
        player->playItem(item(sound));
        ASSERT_EQ(player->state(), KXAudioPlayerStatePlaying);
        EXPECT_EQ(player->numberOfChannels(), channels);
        EXPECT_DOUBLE_EQ(player->duration(), 30'000 / 44'100.0);
        const Stereo heard = hear(30'000);
        std::vector<double> left(30'000), right(30'000);
        for (int c = 0; c < channels; ++c) {
            for (size_t i = 0; i < left.size(); ++i)
                (c % 2 ? right : left)[i] += std::pow(double(volume), 3) * sound.channels[size_t(c)][i];
        }
        expectNear(heard.left, left);
        expectNear(heard.right, right);
        EXPECT_TRUE(waitFor(KXAudioPlayerStateFinished));
        EXPECT_EQ(player->currentTime(), player->duration());
    }
}

TEST_F(MultiTrack, mutesAndVolumeActFromTheNextPassOn)
{
    const AudioSamples sound = makeSound(20'000, 4);
    player->playItem(item(sound)); // volume 0 unless the host sets one
    EXPECT_THAT(hear(1000).left, ::testing::Each(0));
    player->setVolume(0.5F);
    player->muteChannel(2);
    Stereo heard = hear(1000);
    EXPECT_DOUBLE_EQ(player->currentTime(), 2000 / 44'100.0);
    constexpr size_t ramp = 221; // 5 ms
    for (size_t i = 0; i < 1000; ++i) {
        if (i >= ramp) {
            ASSERT_NEAR(heard.left[i], 0.125 * sound.channels[0][1000 + i], 1e-6);
        }
        ASSERT_NEAR(heard.right[i], 0.125 * (sound.channels[1][1000 + i] + sound.channels[3][1000 + i]), 1e-6);
    }
    player->unmuteChannel(2);
    player->muteChannel(0);
    KXTestLog log;
    player->muteChannel(4);
    player->unmuteChannel(-1);
    player->muteChannel(5);
    EXPECT_EQ(log.lines(),
        (QStringList { u"kestrix.audio: Failed to set mute channel 4 (-22)"_s,
            u"kestrix.audio: Failed to set unmute channel -1 (-22)"_s }));
    heard = hear(1000);
    for (size_t i = ramp; i < 1000; ++i)
        ASSERT_NEAR(heard.left[i], 0.125 * sound.channels[2][2000 + i], 1e-6);
    player->playItem(player->currentItem()); // mutes are forgotten
    heard = hear(500);
    for (size_t i = 0; i < 500; ++i)
        ASSERT_NEAR(heard.left[i], 0.125 * (sound.channels[0][i] + sound.channels[2][i]), 1e-6);
}

TEST_F(MultiTrack, stemsAreMixedAsTheyAreSet)
{
    KXTestRandom random;
    const AudioSamples sound = makeSound(400'000, 7);
    player->setStemGain(0, 2); // nothing there yet
    EXPECT_EQ(player->numberOfStems(), 0);
    EXPECT_TRUE(player->audibleStemGains().empty());
    player->setVolume(1);
    player->playItem(item(sound));
    ASSERT_EQ(player->numberOfStems(), 4);
    int changes = 0;
    {
        const QObject listener;
        QObject::connect(player.get(), &KXMultiTrackAudioPlayer::stemsChanged, &listener, [&] { player->stop(); });
        player->playItem(item(sound));
        EXPECT_EQ(player->state(), KXAudioPlayerStateStopped);
        EXPECT_FALSE(output->isRunning());
        EXPECT_TRUE(player->resume());
    }
    QObject::connect(player.get(), &KXMultiTrackAudioPlayer::stemsChanged, [&] { ++changes; });
    // Before anything was heard there is nothing to fade from.
    player->setStemSoloed(3, true);
    EXPECT_EQ(hear(300).left[0], sound.channels[6][0]);
    EXPECT_EQ(player->audibleStemGains(), (std::vector<float> { 0, 0, 0, 1 }));
    player->setStemSoloed(3, false);
    size_t at = 300;
    bool mutes[7] = {}, solos[4] = {};
    float gains[4] = { 1, 1, 1, 1 };
    for (int round = 0; round < 60; ++round) {
        const int stem = random.between(0, 3), channel = random.between(0, 6);
        switch (random.between(0, 3)) {
        case 0:
            player->setStemGain(stem, gains[stem] = random.between(0.0F, 4.0F));
            break;
        case 1:
            player->setStemSoloed(stem, solos[stem] = !solos[stem]);
            break;
        case 2:
            mutes[channel] = !mutes[channel];
            mutes[channel] ? player->muteChannel(channel) : player->unmuteChannel(channel);
            break;
        default: {
            const bool muted = random.chance(0.5);
            player->setStemMuted(stem, muted);
            mutes[2 * stem] = mutes[std::min(6, 2 * stem + 1)] = muted;
        }
        }
        EXPECT_EQ(changes, round + 3);
        at += hear(700).left.size(); // two ramps: one may have been on its way
        const Stereo heard = hear(50);
        const bool any = std::any_of(std::begin(solos), std::end(solos), [](bool solo) { return solo; });
        for (size_t i = 0; i < 50; ++i, ++at) {
            double sides[2] = {};
            for (size_t c = 0; c < 7; ++c) {
                if (!mutes[c] && (!any || solos[c / 2]))
                    sides[c % 2] += double(gains[c / 2]) * double(sound.channels[c][at]);
            }
            ASSERT_NEAR(heard.left[i], sides[0], 3e-6) << round;
            ASSERT_NEAR(heard.right[i], sides[1], 3e-6) << round;
        }
    }
    player->setStemGain(1, 99);
    EXPECT_EQ(player->stemGain(1), KXMultiTrackAudioPlayer::MostStemGain);
    player->setStemGain(1, std::nanf(""));
    player->setStemGain(4, 1);
    player->setStemMuted(-1, true);
    EXPECT_EQ(player->stemGain(1), KXMultiTrackAudioPlayer::MostStemGain);
    player->playItem(player->currentItem()); // all of it is forgotten
    EXPECT_EQ(player->audibleStemGains(), (std::vector<float> { 1, 1, 1, 1 }));
}

// With a constant input all that is heard beside it is what switching does.
TEST_F(MultiTrack, switchingStemsDoesNotClick)
{
    KXTestRandom random;
    constexpr size_t frames = 1 << 16;
    player->setVolume(1);
    player->playItem(item({ 44'100, std::vector<std::vector<float>>(2, std::vector<float>(frames, 1.0F)) }));
    std::vector<float> heard = hear(500).left;
    for (int at = 0; heard.size() < frames; at = (at + 1) % 5) {
        if (at < 2)
            player->setStemMuted(0, at == 0);
        else
            player->setStemGain(0, random.between(0.0F, 1.0F));
        // Also while the ramp before is on its way.
        const Stereo more = hear(std::min<size_t>(random.between<size_t>(1, 900), frames - heard.size()));
        heard.insert(heard.end(), more.left.begin(), more.left.end());
    }
    const double slope = M_PI / 2 / (0.005 * 44'100);
    for (size_t i = 1; i < frames; ++i)
        ASSERT_LE(std::abs(double(heard[i]) - double(heard[i - 1])), slope * 1.01) << i;
    constexpr size_t window = 4096;
    for (size_t start = 0; start + window <= frames; start += window) {
        for (size_t bin = 186; bin < window / 2; bin += 3) { // from 2 kHz on
            std::complex<double> sum = 0, turn = 1;
            const auto step = std::polar(1.0, -2 * M_PI * double(bin) / window);
            for (size_t i = 0; i < window; ++i, turn *= step)
                sum += turn * double(heard[start + i]) * (0.5 - 0.5 * std::cos(2 * M_PI * double(i) / window));
            ASSERT_LT(20 * std::log10(std::abs(sum) * 4 / window + 1e-12), -60) << start << " " << bin;
        }
    }
}

TEST_F(MultiTrack, rampsFollowTheFrameOfTheItem)
{
    const AudioSamples sound = makeSound(80'000, 1);
    const auto session = std::make_shared<KXPlaybackSession>(std::static_pointer_cast<FileItem>(item(sound))->url);
    session->setVolume(0.9F);
    session->setRamp({ 0, 44'100, 0, 1 });
    ASSERT_TRUE(session->start(
        [&](const KXStreamFormat &format) { return session->prepareBuffer(format) && session->setInputPan(0, 0); }));
    const auto expectRamp = [&](qint64 at, const std::function<double(qint64)> &ramp) {
        for (const qint64 end = at + 9000; at < end;) {
            float left[700], right[700];
            const int got = session->render(left, right, 700);
            for (int i = 0; i < got; ++i, ++at) {
                ASSERT_NEAR(left[i], 0.729 * ramp(at) * sound.channels[0][size_t(at)], 1e-6) << at;
                ASSERT_EQ(left[i], right[i]);
            }
        }
    };
    const auto seek = [&](qint64 frame) {
        session->seekToFrame(frame);
        while (session->decoder()->seekToFrame() >= 0)
            std::this_thread::yield();
    };
    const auto fadeIn = [](qint64 frame) { return std::min(1.0, double(frame) / 44'100); };
    expectRamp(0, fadeIn);
    seek(40'000);
    expectRamp(40'000, fadeIn);
    session->setRamp({ 50'000, 44'100, 1, 0 });
    seek(45'000);
    expectRamp(45'000, [](qint64 frame) { return 1 - std::max(0.0, double(frame - 50'000) / 44'100); });
    session->setRamp({ 10'000, 0, 0.25, 0.75 }); // a step
    seek(5'000);
    expectRamp(5'000, [](qint64 frame) { return frame < 10'000 ? 0.25 : 0.75; });
    session->cancel();
    session->decoder()->waitUntilDone();
}

TEST_F(MultiTrack, seeksToTheFrame)
{
    const AudioSamples sound = makeSound(200'000, 2);
    player->setVolume(1);
    player->setTime(1); // nothing to seek in yet
    EXPECT_EQ(player->currentTime(), 0);
    player->playItem(item(sound, { "seek", "flac", "flac", "flac" }));
    const std::pair<double, qint64> targets[] = { { 1.5, 66'150 }, { 0.00005, 2 }, { -3.2, 0 }, { 1e9, 199'999 },
        { 2, 88'200 }, { -std::numeric_limits<double>::infinity(), 0 } };
    for (const auto &[seconds, frame] : targets) {
        hear(3000);
        player->setTime(seconds);
        EXPECT_DOUBLE_EQ(player->currentTime(), double(frame) / 44'100); // at once
        const auto decoder = player->currentFileDecoder();
        ASSERT_TRUE(QTest::qWaitFor([&] { return decoder->seekToFrame() < 0; }, patience));
        const size_t count = std::min<size_t>(5000, 200'000 - size_t(frame));
        const Stereo heard = hear(count);
        ASSERT_EQ(heard.left.size(), count);
        for (size_t i = 0; i < count; ++i)
            ASSERT_NEAR(heard.left[i], sound.channels[0][size_t(frame) + i], 4e-5) << seconds << " + " << i;
        EXPECT_DOUBLE_EQ(player->currentTime(), double(size_t(frame) + count) / 44'100);
    }
    player->seekToFrame(200'000);
    player->seekToFrame(-1);
    player->setTime(std::nan(""));
    EXPECT_EQ(player->currentFileDecoder()->seekToFrame(), -1);
}

TEST_F(MultiTrack, seeksInALoopThatIsReadAtOnce)
{
    const AudioSamples sound = makeSound(5000, 2);
    player->setVolume(1);
    player->playItem(item(sound));
    const auto decoder = player->currentFileDecoder();
    for (const size_t first : { size_t(3000), size_t(0), size_t(4999), size_t(0) }) {
        ASSERT_TRUE(QTest::qWaitFor([&] { return decoder->totalFramesIsFinal(); }, patience));
        player->seekToFrame(qint64(first));
        ASSERT_TRUE(QTest::qWaitFor([&] { return !player->isSeeking(); }, patience));
        const Stereo heard = hear(5000);
        EXPECT_EQ(
            heard.left, std::vector<float>(sound.channels[0].begin() + ptrdiff_t(first), sound.channels[0].end()));
        // Also once it has finished.
        ASSERT_TRUE(waitFor(KXAudioPlayerStateFinished));
        player->seekToFrame(0);
        EXPECT_TRUE(player->resume());
    }
    // A seek overtakes an end that nobody has heard of yet.
    while (player->isSeeking())
        std::this_thread::yield();
    EXPECT_EQ(hear(5000).left.size(), 5000U);
    player->seekToFrame(1000);
    QTest::qWait(60);
    EXPECT_EQ(player->state(), KXAudioPlayerStatePlaying);
}

TEST_F(MultiTrack, observersDoAsTheyLike) { PlayerTest::observersDoAsTheyLike(item(makeSound(5000, 2))); }

TEST_F(MultiTrack, endsOnceAndGoesOnWhenContinuous)
{
    const AudioSamples sound = makeSound(20'000, 2);
    const auto first = item(sound), second = item(sound, { "second", "mp3", "mp3", "libmp3lame", 128000 });
    const auto playlist = std::make_shared<Endless>();
    playlist->items = { first, second };
    std::vector<int> states;
    const auto observer = player->onChangeOf(u"state"_s, KXObservingOptionNew,
        [&](const KXKeyValueChange &change) { states.push_back(change.newValue.toInt()); });
    player->playItemFromPlaylist(first, playlist);
    EXPECT_EQ(hear(30'000).left.size(), 20'000U);
    float side[2048];
    for (int i = 0; i < 5; ++i)
        output->crank(side, side, 2048); // passes after the end
    EXPECT_TRUE(waitFor(KXAudioPlayerStateFinished));
    QTest::qWait(60);
    EXPECT_THAT(states, ::testing::ElementsAre(4, 1, 3, 6));
    EXPECT_FALSE(output->isRunning());

    // resume() plays on from the end, which is over at once.
    states.clear();
    EXPECT_TRUE(player->resume());
    output->crank(side, side, 100);
    EXPECT_TRUE(waitFor(KXAudioPlayerStateFinished));
    EXPECT_THAT(states, ::testing::ElementsAre(3, 6));

    states.clear();
    player->setContinuous(true);
    player->playItem(first);
    hear(30'000);
    for (int i = 0; i < 5; ++i)
        output->crank(side, side, 2048);
    ASSERT_TRUE(QTest::qWaitFor([&] { return player->currentItem() == second; }, patience));
    EXPECT_EQ(player->state(), KXAudioPlayerStatePlaying);
    EXPECT_GT(hear(30'000).left.size(), 19'900U); // the length was a guess, and too long
    EXPECT_TRUE(waitFor(KXAudioPlayerStateFinished));
    EXPECT_EQ(player->currentTime(), player->duration());
    EXPECT_THAT(states, ::testing::ElementsAre(4, 1, 3, 6, 4, 1, 3, 6));
}

TEST_F(MultiTrack, stopsAndResumesWhereItWas)
{
    EXPECT_FALSE(player->resume());
    const AudioSamples sound = makeSound(60'000, 2);
    player->setVolume(1);
    player->playItem(item(sound));
    Stereo heard = hear(7001);
    player->stop();
    float side[512];
    EXPECT_EQ(output->crank(side, side, 512), 0);
    const double there = player->currentTime();
    EXPECT_TRUE(player->resume());
    EXPECT_EQ(player->currentTime(), there);
    heard = hear(60'000);
    EXPECT_EQ(heard.left, std::vector<float>(sound.channels[0].begin() + 7001, sound.channels[0].end()));

    player->playItem(player->currentItem());
    hear(100);
    const std::weak_ptr<KXCoreAudioFileDecoder> decoder = player->currentFileDecoder();
    player->playItem(std::make_shared<FileItem>(QString())); // no address: only the first step is done
    EXPECT_EQ(player->state(), KXAudioPlayerStateStopped);
    EXPECT_FALSE(player->resume()); // nothing of the one before is left
    EXPECT_EQ(output->crank(side, side, 512), 0);
    EXPECT_TRUE(QTest::qWaitFor([&] { return decoder.expired(); }, patience)); // and its file is closed
    player->playItem(nullptr);
    EXPECT_EQ(player->state(), KXAudioPlayerStateIdle);
    EXPECT_EQ(player->duration(), 0);
    EXPECT_FALSE(player->resume());
}

TEST_F(MultiTrack, failuresEndStopped)
{
    KXTestLog log;
    const auto missing = std::make_shared<FileItem>(m_dir.filePath(u"missing.wav"_s));
    player->playItem(missing);
    EXPECT_EQ(player->state(), KXAudioPlayerStateStopped);
    EXPECT_FALSE(player->resume());
    const auto good = item(makeSound(50'000, 2));
    const std::pair<int BrokenOutput::*, const char *> steps[] = { { &BrokenOutput::prepareStatus, "add output node" },
        { &BrokenOutput::openStatus, "get output unit" }, { &BrokenOutput::startStatus, "initialize graph" } };
    for (const auto &[step, text] : steps) {
        *output.*step = -9985;
        player->playItem(good);
        EXPECT_EQ(player->state(), KXAudioPlayerStateStopped);
        EXPECT_TRUE(log.contains(u"Couldn't %1 (-9985)"_s.arg(QLatin1StringView(text))));
        player->currentFileDecoder()->waitUntilDone();
        *output.*step = 0;
    }
    player->playItem(good);
    EXPECT_EQ(player->state(), KXAudioPlayerStatePlaying);
    hear(1000);
    output->lose();
    EXPECT_EQ(player->state(), KXAudioPlayerStateStopped);
    EXPECT_TRUE(log.contains(u"Audio output lost: unplugged"_s));
    player->resume();
    EXPECT_EQ(hear(1000).left.size(), 1000U);

    // An item that cannot be opened after one that could: nothing of the old one is heard again.
    player->playItem(missing);
    EXPECT_EQ(player->state(), KXAudioPlayerStateStopped);
    EXPECT_TRUE(player->resume());
    std::vector<float> side(2048);
    EXPECT_EQ(output->crank(side.data(), side.data(), 2048), 0);
    EXPECT_TRUE(waitFor(KXAudioPlayerStateFinished));
}

TEST_F(MultiTrack, playsWhatIsUnusual)
{
    player->setVolume(1);
    struct Row
    {
        size_t frames;
        int channels, rate;
    };
    for (const Row &row : { Row { 0, 2, 44'100 }, Row { 1, 1, 8000 }, Row { 30'000, 1, 8000 }, Row { 9000, 1, 11'025 },
             Row { 30'000, 32, 8000 }, Row { 3000, 255, 8000 }, Row { 200'000, 2, 192'000 } }) {
        const AudioSamples sound = makeSound(row.frames, row.channels, row.rate);
        player->playItem(std::make_shared<FileItem>(writePlainWave(sound, m_dir.filePath(u"unusual.wav"_s))));
        float side[16];
        output->crank(side, side, 0);
        const Stereo heard = hear(row.frames + 10'000);
        EXPECT_EQ(heard.left.size(), row.frames) << row.rate;
        output->crank(side, side, 16);
        EXPECT_TRUE(waitFor(KXAudioPlayerStateFinished)) << row.rate;
    }
    // A pass longer than what is taken at once: the rest is silent and does not count.
    player->playItem(item(makeSound(20'000, 2)));
    std::vector<float> left(4096, 9), right(4096, 9);
    while (player->currentFileDecoder()->state() != KXCoreAudioFileDecoderStateFinished
        && player->currentFileDecoder()->state() != KXCoreAudioFileDecoderStateWaiting)
        std::this_thread::yield();
    EXPECT_EQ(output->crank(left.data(), right.data(), 4096), 2048);
    EXPECT_EQ(player->framesRenderedLastPass(), 2048);
    EXPECT_NE(left[2047], 0);
    EXPECT_THAT(std::vector<float>(left.begin() + 2048, left.end()), ::testing::Each(0));
    EXPECT_DOUBLE_EQ(player->currentTime(), 2048 / 44'100.0);
    player->teardownCoreAudio();
    EXPECT_EQ(player->framesRenderedLastPass(), 0);
}

TEST_F(MultiTrack, playsAFileThatGrowsAndOneThatVanishes)
{
    const AudioSamples sound = makeSound(60'000, 2);
    player->setVolume(1);
    const auto whole = std::static_pointer_cast<FileItem>(item(sound));
    QFile source(whole->url.toLocalFile());
    ASSERT_TRUE(source.open(QIODevice::ReadOnly));
    const QByteArray bytes = source.readAll();
    QFile growing(m_dir.filePath(u"growing.wav"_s));
    ASSERT_TRUE(growing.open(QIODevice::WriteOnly | QIODevice::Unbuffered));
    growing.write(bytes.left(100'000));
    KXTestLog log;
    player->playItem(std::make_shared<FileItem>(growing.fileName()));
    EXPECT_DOUBLE_EQ(player->duration(), 60'000 / 44'100.0);
    Stereo heard = hear(12'000);
    ASSERT_TRUE(QTest::qWaitFor([&] { return log.contains(u"Read status"_s); }, patience));
    float side[512];
    while (output->crank(side, side, 512) > 0) { }
    EXPECT_EQ(player->state(), KXAudioPlayerStatePlaying);
    const double there = player->currentTime();
    growing.write(bytes.mid(100'000));
    heard = hear(60'000);
    EXPECT_EQ(heard.left.size(), size_t(60'000 - std::llround(there * 44'100)));
    EXPECT_TRUE(std::equal(heard.left.rbegin(), heard.left.rend(), sound.channels[0].rbegin()));

    player->playItem(whole);
    QFile::remove(whole->url.toLocalFile());
    EXPECT_EQ(hear(60'000).left.size(), 60'000U);
    EXPECT_TRUE(waitFor(KXAudioPlayerStateFinished));
}

TEST_F(MultiTrack, observersMayChangeItemsInTheMiddle)
{
    const auto first = item(makeSound(5000, 2)), second = item(makeSound(5000, 4), { "b", "flac", "flac", "flac" });
    for (const int at : { KXAudioPlayerStateStopped, KXAudioPlayerStateLoading, KXAudioPlayerStatePlaying }) {
        bool done = false;
        const auto observer = player->onChangeOf(u"state"_s, [&](const KXKeyValueChange &) {
            if (player->state() == at && !std::exchange(done, true))
                player->playItem(second);
        });
        player->playItem(first);
        player->removeKVOBlockObserver(observer);
        ASSERT_TRUE(done);
        if (at == KXAudioPlayerStateStopped)
            continue; // the outer call goes on, with its own item
        EXPECT_EQ(player->currentItem(), second);
        EXPECT_EQ(player->state(), KXAudioPlayerStatePlaying);
        EXPECT_EQ(player->numberOfChannels(), 4);
        EXPECT_EQ(hear(6000).left.size(), 5000U);
    }
}

TEST_F(MultiTrack, observersMayResumeWhatIsNotThereYet)
{
    const auto first = item(makeSound(5000, 2)), second = item(makeSound(5000, 4), { "b", "flac", "flac", "flac" });
    player = std::make_unique<KXMultiTrackAudioPlayer>(std::make_shared<KXClockAudioOutput>());
    player->playItem(first);
    const auto observer = player->onChangeOf(u"state"_s, [&](const KXKeyValueChange &) {
        if (player->state() == KXAudioPlayerStateLoading)
            player->resume();
    });
    for (int round = 0; round < 20; ++round) {
        player->playItem(round % 2 ? first : second);
        EXPECT_EQ(player->state(), KXAudioPlayerStatePlaying);
    }
    EXPECT_TRUE(waitFor(KXAudioPlayerStateFinished));
    EXPECT_EQ(player->currentTime(), player->duration());
}

TEST_F(MultiTrack, keepsTimeOnTheClock)
{
    const auto clock = std::make_shared<KXClockAudioOutput>();
    player = std::make_unique<KXMultiTrackAudioPlayer>(clock);
    const auto started = std::chrono::steady_clock::now();
    player->playItem(item(makeSound(22'050, 2)));
    EXPECT_TRUE(waitFor(KXAudioPlayerStateFinished));
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - started;
    EXPECT_GE(took.count(), 22'050 / 44'100.0 - 0.02); // never faster than the clock
    EXPECT_EQ(player->currentTime(), player->duration());
}

TEST_F(MultiTrack, randomTransportLeavesNothingBehind)
{
    const auto last = item(makeSound(30'000, 2), { "r", "flac", "flac", "flac" });
    transportAtRandom(
        { item(makeSound(60'000, 4)), last, item(makeSound(5'000, 1, 8000), { "s", "wav", "wav", "pcm_s16le" }),
            item(makeSound(40'000, 2), { "r", "mp3", "mp3", "libmp3lame", 128000 }),
            std::make_shared<FileItem>(u"/nowhere.wav"_s), std::make_shared<FileItem>(QString()), nullptr },
        last);
}
