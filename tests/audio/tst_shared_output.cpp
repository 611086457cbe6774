// Several players on one output: one of them has it, and each knows whether that is itself.

#include <kestrixkit/audio/KXBasicAudioPlayer.h>
#include <kestrixkit/audio/KXMultiTrackAudioPlayer.h>

#include "PlayerTest.h"

class SharedOutput : public ::testing::Test
{
protected:
    using Players = std::vector<std::unique_ptr<KXAudioPlayer>>;

    /// One of each kind, or in the other order.
    Players players(bool reversed) const
    {
        Players result;
        result.push_back(std::make_unique<KXBasicAudioPlayer>(output));
        result.push_back(std::make_unique<KXMultiTrackAudioPlayer>(output));
        if (reversed)
            std::reverse(result.begin(), result.end());
        for (const auto &player : result)
            player->setVolume(1);
        return result;
    }
    KXAudioPlayerItemPointer item(int rate) const
    {
        const std::string name = std::to_string(rate);
        return std::make_shared<FileItem>(
            writeSound(makeSound(20'000, 2, rate), { name.c_str(), "wav", "wav", "pcm_f32le" }, m_dir.path()));
    }
    static bool waitFor(const KXAudioPlayer &player, KXAudioPlayerState state)
    {
        return QTest::qWaitFor([&] { return player.state() == state; }, patience);
    }
    /// Whether sound comes, and how far that takes the player.
    double hear(const KXAudioPlayer &player) const
    {
        const double before = player.currentTime();
        float side[256];
        int frames = 0;
        (void)QTest::qWaitFor([&] { return (frames += output->crank(side, side, 256)) >= 256; }, 2000);
        return player.currentTime() - before;
    }

    QTemporaryDir m_dir;
    std::shared_ptr<BrokenOutput> output = std::make_shared<BrokenOutput>();
};

TEST_F(SharedOutput, belongsToWhoeverPlayedLast)
{
    for (const bool reversed : { false, true }) {
        const Players both = players(reversed);
        KXAudioPlayer &one = *both[0], &other = *both[1];
        one.playItem(item(8000));
        ASSERT_TRUE(waitFor(one, KXAudioPlayerStatePlaying));
        EXPECT_GT(hear(one), 0);
        other.stop(); // it has nothing to stop
        EXPECT_TRUE(output->isRunning());
        other.playItem(item(16'000));
        ASSERT_TRUE(waitFor(other, KXAudioPlayerStatePlaying));
        EXPECT_EQ(one.state(), KXAudioPlayerStateStopped);
        EXPECT_EQ(output->sampleRate(), 16'000);
        EXPECT_GT(hear(other), 0);
        one.stop();
        EXPECT_TRUE(output->isRunning());
        EXPECT_TRUE(one.resume()); // in its own rate again
        EXPECT_EQ(other.state(), KXAudioPlayerStateStopped);
        EXPECT_EQ(output->sampleRate(), 8000);
        const double there = other.currentTime();
        EXPECT_GT(hear(one), 0);
        EXPECT_EQ(other.currentTime(), there);
    }
}

TEST_F(SharedOutput, survivesPlayersThatDoNotHaveIt)
{
    for (const bool reversed : { false, true }) {
        Players both = players(reversed);
        both[0]->playItem(item(8000));
        ASSERT_TRUE(waitFor(*both[0], KXAudioPlayerStatePlaying));
        both.push_back(std::make_unique<KXBasicAudioPlayer>(output));
        both.push_back(std::make_unique<KXMultiTrackAudioPlayer>(output));
        both.resize(1); // they have played nothing
        EXPECT_GT(hear(*both[0]), 0);
        both.push_back(std::move(players(!reversed)[1]));
        both[1]->playItem(item(16'000));
        ASSERT_TRUE(waitFor(*both[1], KXAudioPlayerStatePlaying));
        both.erase(both.begin()); // it had it before
        EXPECT_GT(hear(*both[0]), 0);
        both.clear();
        EXPECT_FALSE(output->isOpen());
    }
}

TEST_F(SharedOutput, whenItIsLostStopsTheOneThatHasIt)
{
    for (const bool reversed : { false, true }) {
        const Players both = players(reversed);
        both[0]->playItem(item(8000));
        ASSERT_TRUE(waitFor(*both[0], KXAudioPlayerStatePlaying));
        output->lose();
        EXPECT_EQ(both[0]->state(), KXAudioPlayerStateStopped);
        EXPECT_EQ(both[1]->state(), KXAudioPlayerStateIdle);
    }
}

TEST_F(SharedOutput, mayBeTakenBackOrLeftByWhoHearsOfItsLoss)
{
    for (const bool reversed : { false, true }) {
        for (const bool ends : { false, true }) {
            Players both = players(reversed);
            KXAudioPlayer &one = *both[0];
            one.playItem(item(8000));
            ASSERT_TRUE(waitFor(one, KXAudioPlayerStatePlaying));
            bool heardOfIt = false;
            const auto observer = one.onChangeOf(u"state"_s, [&](const KXKeyValueChange &) {
                if (std::exchange(heardOfIt, true))
                    return;
                if (ends)
                    both.pop_back();
                else
                    one.resume();
            });
            both[1]->playItem(item(16'000));
            ASSERT_TRUE(QTest::qWaitFor([&] { return heardOfIt; }, patience));
            if (!ends) {
                EXPECT_TRUE(waitFor(*both[1], KXAudioPlayerStateStopped));
                EXPECT_EQ(one.state(), KXAudioPlayerStatePlaying);
                EXPECT_GT(hear(one), 0);
            }
            EXPECT_EQ(both.size(), ends ? 1U : 2U);
        }
    }
}

TEST_F(SharedOutput, whoeverHearsOfItsLossMayAskForAnotherItem)
{
    for (const bool reversed : { false, true }) {
        const Players both = players(reversed);
        KXAudioPlayer &one = *both[0], &other = *both[1];
        one.playItem(item(8000));
        ASSERT_TRUE(waitFor(one, KXAudioPlayerStatePlaying));
        const auto second = item(16'000);
        const auto observer = one.onChangeOf(u"state"_s, [&](const KXKeyValueChange &) {
            if (other.currentItem() != second)
                other.playItem(second);
        });
        other.playItem(item(11'025));
        EXPECT_TRUE(waitFor(other, KXAudioPlayerStatePlaying));
        EXPECT_EQ(other.currentItem(), second);
        EXPECT_GT(hear(other), 0);
    }
}

TEST_F(SharedOutput, resumingSaysWhereItWasTakenBack)
{
    for (const bool reversed : { false, true }) {
        const Players both = players(reversed);
        KXAudioPlayer &one = *both[0], &other = *both[1];
        other.playItem(item(16'000));
        ASSERT_TRUE(waitFor(other, KXAudioPlayerStatePlaying));
        one.playItem(item(8000));
        ASSERT_TRUE(waitFor(one, KXAudioPlayerStatePlaying));
        const auto observer = one.onChangeOf(u"state"_s, [&](const KXKeyValueChange &) {
            if (one.state() == KXAudioPlayerStateStopped) {
                EXPECT_TRUE(one.resume());
            }
        });
        EXPECT_FALSE(other.resume());
        EXPECT_EQ(other.state(), KXAudioPlayerStateStopped);
        EXPECT_EQ(one.state(), KXAudioPlayerStatePlaying);
        EXPECT_GT(hear(one), 0);
        one.removeKVOBlockObserver(observer);
    }
}
