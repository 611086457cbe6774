/// What the tests of the players have in common: items, playlists, outputs that can be looked at, and hearing.
#pragma once

#include <dirent.h>

#include <QTemporaryDir>
#include <QTest>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <kestrixkit/audio/KXAudioPlayer.h>
#include <kestrixkit/audio/KXClockAudioOutput.h>
#include <kestrixkit/audio/KXHandCrankedAudioOutput.h>
#include <kestrixkit/foundation/KXLog.h>

#include <support/AudioFiles.h>
#include <support/KXTestLog.h>
#include <support/KXTestRandom.h>

using namespace Qt::StringLiterals;

inline constexpr int patience = 60'000; // milliseconds, for what must happen

struct FileItem : KXAudioPlayerItem
{
    explicit FileItem(const QString &path)
        : url(path.isEmpty() ? QUrl() : QUrl::fromLocalFile(path))
    {
    }
    QUrl audioFileURL() const override { return url; }
    QUrl url;
};

struct Endless : KXAudioPlayerPlaylist
{
    std::vector<KXAudioPlayerItemPointer> items;
    KXAudioPlayerItemPointer audioPlayerItemAfter(const KXAudioPlayerItemPointer &item) override
    {
        const auto at = std::find(items.begin(), items.end(), item) + 1;
        return at >= items.end() ? nullptr : *at;
    }
};

struct Stereo
{
    std::vector<float> left, right;
};

/// An output whose device is not there, or goes.
struct BrokenOutput : KXHandCrankedAudioOutput
{
    int prepareStatus = 0, openStatus = 0, startStatus = 0;
    Status prepare() override { return prepareStatus; }
    Status open(double rate) override { return openStatus ? openStatus : KXHandCrankedAudioOutput::open(rate); }
    Status start() override { return startStatus ? startStatus : KXHandCrankedAudioOutput::start(); }
    void lose()
    {
        stop();
        announceLost(u"unplugged"_s);
    }
};

inline void expectNear(const std::vector<float> &heard, const std::vector<double> &expected)
{
    ASSERT_EQ(heard.size(), expected.size());
    for (size_t i = 0; i < heard.size(); ++i)
        ASSERT_NEAR(heard[i], expected[i], 1e-6) << i;
}

/// A player on an output that is cranked by hand.
template <typename Player> class PlayerTest : public ::testing::Test
{
protected:
    KXAudioPlayerItemPointer item(const AudioSamples &sound, const AudioRecipe &recipe = floats)
    {
        return std::make_shared<FileItem>(writeSound(sound, recipe, m_dir.path()));
    }
    /// Cranks passes of odd lengths until so many frames came, or the item is over.
    Stereo hear(size_t frames)
    {
        Stereo heard;
        int pass = 1;
        while (heard.left.size() < frames && !isOver()) {
            pass = (pass * 13 + 7) % 1999 + 1;
            const int wanted = int(std::min<size_t>(size_t(pass), frames - heard.left.size()));
            std::vector<float> left(4096, 9), right(4096, 9);
            const int got = output->crank(left.data(), right.data(), wanted);
            for (int i = got; i < wanted; ++i)
                EXPECT_EQ(left[size_t(i)], 0); // what is not there is silence
            heard.left.insert(heard.left.end(), left.begin(), left.begin() + got);
            heard.right.insert(heard.right.end(), right.begin(), right.begin() + got);
            if (got == 0)
                std::this_thread::yield();
        }
        return heard;
    }
    virtual bool isOver() const { return player->duration() > 0 && player->currentTime() >= player->duration(); }
    bool waitFor(KXAudioPlayerState state)
    {
        return QTest::qWaitFor([&] { return player->state() == state; }, patience);
    }
    QByteArray bytesOf(const KXAudioPlayerItemPointer &item)
    {
        QFile file(item->audioFileURL().toLocalFile());
        EXPECT_TRUE(file.open(QIODevice::ReadOnly));
        return file.readAll();
    }
    void observersDoAsTheyLike(const KXAudioPlayerItemPointer &played);
    void transportAtRandom(const std::vector<KXAudioPlayerItemPointer> &items, const KXAudioPlayerItemPointer &last);

    static inline const AudioRecipe floats { "floats", "wav", "wav", "pcm_f32le" };
    QTemporaryDir m_dir;
    std::shared_ptr<BrokenOutput> output = std::make_shared<BrokenOutput>();
    std::unique_ptr<Player> player = std::make_unique<Player>(output);
};

/// What announcements come upon: a queue that has let its item go, and a player that ends in the middle of one.
template <typename Player> void PlayerTest<Player>::observersDoAsTheyLike(const KXAudioPlayerItemPointer &played)
{
    std::vector<KXAudioPlayerItemPointer> queue { played };
    const auto observer = player->onChangeOf(u"state"_s, [&](const KXKeyValueChange &) { queue[0].reset(); });
    player->playItem(queue[0]);
    player->removeKVOBlockObserver(observer);
    EXPECT_EQ(player->currentItem(), played);
    EXPECT_TRUE(waitFor(KXAudioPlayerStatePlaying));

    for (const auto &[key, announcements] : { std::pair(u"state"_s, 5), std::pair(u"volume"_s, 1),
             std::pair(u"currentItem"_s, 1), std::pair(u"continuous"_s, 1) }) {
        for (int last = 1; last <= announcements; ++last) {
            auto ended = std::make_unique<Player>(output);
            int announced = 0;
            ended->onChangeOf(key, [&](const KXKeyValueChange &) {
                if (++announced == last)
                    ended.reset();
            });
            const std::function<void()> steps[]
                = { [&] { ended->setContinuous(true); }, [&] { ended->setVolume(1); }, [&] { ended->playItem(played); },
                      [&] {
                          const auto isWaiting = [&] { return ended && ended->state() == KXAudioPlayerStateLoading; };
                          EXPECT_TRUE(QTest::qWaitFor([&] { return !isWaiting(); }, patience));
                      },
                      [&] { ended->stop(); }, [&] { ended->resume(); } };
            for (const auto &step : steps) {
                if (ended)
                    step();
            }
            EXPECT_EQ(ended, nullptr) << key.toStdString() << last;
        }
    }
}

inline int entriesOf(const char *path)
{
    int count = 0;
    DIR *dir = opendir(path);
    while (dir && readdir(dir))
        ++count;
    closedir(dir);
    return count;
}

/// Transport in any order at full speed, on both outputs that need no device: it never gets stuck, and nothing is left
/// behind.
template <typename Player>
void PlayerTest<Player>::transportAtRandom(
    const std::vector<KXAudioPlayerItemPointer> &items, const KXAudioPlayerItemPointer &last)
{
    KXTestRandom random;
    KXKestrixKitLogLevel = 0;
    player->playItem(last);
    ASSERT_TRUE(waitFor(KXAudioPlayerStatePlaying));
    const int threads = entriesOf("/proc/self/task"), descriptors = entriesOf("/proc/self/fd");
    player->stop();
    for (const bool onClock : { false, true }) {
        const std::shared_ptr<KXAudioOutput> used
            = onClock ? std::static_pointer_cast<KXAudioOutput>(std::make_shared<KXClockAudioOutput>()) : output;
        player = std::make_unique<Player>(used);
        player->setContinuous(true);
        std::atomic<bool> cranking = !onClock;
        std::thread render([&] {
            float left[2048], right[2048];
            while (cranking)
                output->crank(left, right, 512);
        });
        for (int step = KXTestRandom::scaled(onClock ? 300 : 1000); step > 0; --step) {
            switch (random.between(0, 9)) {
            case 0:
            case 1:
                player->playItem(items[random.between<size_t>(0, items.size() - 1)]);
                break;
            case 2:
                player->stop();
                break;
            case 3:
                player->resume();
                break;
            case 4:
                if constexpr (requires { player->muteChannel(0); })
                    player->muteChannel(random.between(-1, 5));
                break;
            case 5:
                player->setVolume(random.between(0.0F, 1.0F));
                break;
            case 6:
                QTest::qWait(random.between(0, 10));
                break;
            default:
                player->setTime(random.between(-0.5, 2.0));
            }
            ASSERT_GE(player->currentTime(), 0);
            ASSERT_LE(player->currentTime(), std::max(player->duration(), 3.0));
        }
        // Somebody holds the key for the next one.
        for (int skip = KXTestRandom::scaled(2500); skip > 0; --skip)
            player->playItem(items[size_t(skip) % items.size()]);
        // Whatever came before, an item plays to its end.
        player->setContinuous(false);
        player->playItem(last);
        EXPECT_TRUE(waitFor(KXAudioPlayerStateFinished));
        cranking = false;
        render.join();
    }
    player.reset();
    output->setSource({});
    KXKestrixKitLogLevel = KXLogLevelError | KXLogLevelWarning;
    EXPECT_TRUE(QTest::qWaitFor([&] { return entriesOf("/proc/self/task") < threads; }, patience));
    EXPECT_TRUE(QTest::qWaitFor([&] { return entriesOf("/proc/self/fd") < descriptors; }, patience));
}
