// The player model and its manager, on a player that makes no sound.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <kestrixkit/audio/KXAudioPlayerManager.h>
#include <kestrixkit/foundation/KXNotificationCenter.h>
#include <kestrixkit/foundation/KXObserver.h>

using namespace Qt::StringLiterals;
using ::testing::ElementsAre;

namespace {

struct Item : KXAudioPlayerItem
{
    QUrl audioFileURL() const override { return {}; }
};

struct Playlist : KXAudioPlayerPlaylist
{
    std::vector<KXAudioPlayerItemPointer> items;
    KXAudioPlayerItemPointer at(const KXAudioPlayerItemPointer &item, int step) const
    {
        const auto index = std::find(items.begin(), items.end(), item) - items.begin() + step;
        return index < 0 || index >= qsizetype(items.size()) ? nullptr : items[size_t(index)];
    }
    KXAudioPlayerItemPointer audioPlayerItemAfter(const KXAudioPlayerItemPointer &item) override { return at(item, 1); }
    KXAudioPlayerItemPointer audioPlayerItemBefore(const KXAudioPlayerItemPointer &item) override
    {
        return at(item, -1);
    }
};

/// Refuses when told to, and may go at any time.
struct Delegate : QObject, KXAudioPlayerDelegate
{
    bool answer = false;
    int asked = 0;
    bool shouldPlayNextItem(KXAudioPlayer &, const KXAudioPlayerItemPointer &) override { return ++asked, answer; }
    bool shouldPlayPreviousItem(KXAudioPlayer &, const KXAudioPlayerItemPointer &) override { return ++asked, answer; }
};

struct Player : KXAudioPlayer
{
    using KXAudioPlayer::finish;
    using KXAudioPlayer::setState;
    void playItem(const KXAudioPlayerItemPointer &item) override
    {
        storeCurrentItem(item);
        setState(KXAudioPlayerStatePlaying);
    }
    void stop() override { setState(KXAudioPlayerStateStopped); }
    bool resume() override { return setState(KXAudioPlayerStatePlaying), true; }
    double duration() const override { return m_duration; }
    double currentTime() const override { return m_time; }
    void setTime(double seconds) override { m_times.push_back(seconds); }
    double m_duration = 0, m_time = 0;
    std::vector<double> m_times;
};

struct Manager : KXAudioPlayerManager
{
    using KXAudioPlayerManager::setAudioPlayer;
};

struct PlayerFixture : ::testing::Test
{
    std::shared_ptr<Player> player = std::make_shared<Player>();
    std::shared_ptr<Playlist> playlist = std::make_shared<Playlist>();
    KXAudioPlayerItemPointer first = std::make_shared<Item>(), second = std::make_shared<Item>();
    std::vector<int> states;
    KXNotificationToken token
        = KXNotificationCenter::defaultCenter().addObserver(KXAudioPlayerStateDidChangeNotification, player.get(),
            [this](const KXNotification &) { states.push_back(player->state()); });
    void SetUp() override { playlist->items = { first, second }; }
};

}

TEST_F(PlayerFixture, announcesEveryAssignmentInOrder)
{
    EXPECT_EQ(player->state(), KXAudioPlayerStateIdle);
    EXPECT_EQ(player->volume(), 0);
    std::vector<std::string> order;
    const auto observer = player->onChangeOf(
        u"state"_s, KXObservingOptionOld | KXObservingOptionNew, [&](const KXKeyValueChange &change) {
            order.push_back(std::to_string(change.oldValue.toInt()) + ">" + std::to_string(change.newValue.toInt()));
        });
    const KXNotificationToken other
        = KXNotificationCenter::defaultCenter().addObserver(KXAudioPlayerStateDidChangeNotification, player.get(),
            [&](const KXNotification &) { order.push_back("posted"); });
    player->setState(KXAudioPlayerStateStopped);
    player->setState(KXAudioPlayerStateStopped);
    EXPECT_THAT(order, ElementsAre("0>4", "posted", "4>4", "posted"));
    player->setVolume(0.5F); // the base stores nothing
    EXPECT_EQ(player->volume(), 0);
}

TEST_F(PlayerFixture, stepsThroughThePlaylist)
{
    player->playNext();
    EXPECT_THAT(states, ElementsAre());
    player->playPrevious(); // nothing there: Finished
    EXPECT_THAT(states, ElementsAre(6));
    player->playItemFromPlaylist(first, playlist);
    player->playNext();
    EXPECT_EQ(player->currentItem(), second);
    states.clear();
    player->playNext(); // the end of the list changes nothing
    EXPECT_THAT(states, ElementsAre());
    player->playPrevious();
    EXPECT_EQ(player->currentItem(), first);
    player->playPrevious();
    EXPECT_THAT(states, ElementsAre(3, 6));

    states.clear();
    player->finish();
    EXPECT_THAT(states, ElementsAre(6));
    player->setContinuous(true);
    player->finish();
    EXPECT_EQ(player->currentItem(), second);
    player->finish();
    EXPECT_THAT(states, ElementsAre(6, 6, 3, 6));

    // An observer may go on by itself inside the announcement.
    player->playItem(first);
    player->setContinuous(false);
    const KXNotificationToken eager = KXNotificationCenter::defaultCenter().addObserver(
        KXAudioPlayerStateDidChangeNotification, player.get(), [&](const KXNotification &) {
            if (player->state() == KXAudioPlayerStateFinished)
                player->playNext();
        });
    player->finish();
    EXPECT_EQ(player->currentItem(), second);
    EXPECT_EQ(player->state(), KXAudioPlayerStatePlaying);
}

TEST_F(PlayerFixture, asksItsDelegateWhileThereIsOne)
{
    auto delegate = std::make_unique<Delegate>();
    player->setDelegate(delegate.get());
    player->playItemFromPlaylist(first, playlist);
    EXPECT_EQ(player->playlist(), playlist); // kept although nothing plays
    EXPECT_EQ(player->currentItem(), nullptr);
    EXPECT_THAT(states, ElementsAre());
    player->playItem(second);
    player->playNext();
    EXPECT_EQ(delegate->asked, 1); // not without a next item
    player->playPrevious();
    EXPECT_THAT(states, ElementsAre(3, 4));
    delegate->answer = true;
    player->playPrevious();
    EXPECT_EQ(player->currentItem(), first);
    delegate->answer = false;
    player->playNext();
    EXPECT_EQ(player->currentItem(), first);
    delegate.reset();
    player->playNext();
    EXPECT_EQ(player->currentItem(), second);
}

// Whoever is asked may do anything: what it has the player do counts, and nothing goes while it is in use.
TEST_F(PlayerFixture, whoIsAskedMayHaveItDoSomethingElse)
{
    struct Busy : Playlist
    {
        std::function<void()> whenAsked;
        KXAudioPlayerItemPointer audioPlayerItemAfter(const KXAudioPlayerItemPointer &item) override
        {
            whenAsked();
            return Playlist::audioPlayerItemAfter(item);
        }
        KXAudioPlayerItemPointer audioPlayerItemBefore(const KXAudioPlayerItemPointer &item) override
        {
            return audioPlayerItemAfter(item);
        }
    };
    struct BusyDelegate : QObject, KXAudioPlayerDelegate
    {
        std::function<void()> whenAsked;
        bool answer = true;
        bool shouldPlayNextItem(KXAudioPlayer &, const KXAudioPlayerItemPointer &) override
        {
            if (const auto once = std::exchange(whenAsked, {}))
                once();
            return answer;
        }
        bool shouldPlayPreviousItem(KXAudioPlayer &player, const KXAudioPlayerItemPointer &item) override
        {
            return shouldPlayNextItem(player, item);
        }
    };
    const auto third = std::make_shared<Item>();
    for (const auto step : { &KXAudioPlayer::playNext, &KXAudioPlayer::playPrevious }) {
        auto busy = std::make_shared<Busy>();
        busy->items = { first, second };
        busy->whenAsked = [&] { player->playItemFromPlaylist(third, playlist); };
        player->playItemFromPlaylist(first, std::exchange(busy, nullptr));
        ((*player).*step)();
        EXPECT_EQ(player->currentItem(), third);
        EXPECT_EQ(player->playlist(), playlist);
        EXPECT_EQ(player->state(), KXAudioPlayerStatePlaying);
    }

    BusyDelegate delegate;
    player->setDelegate(&delegate);
    for (const bool answer : { true, false }) {
        delegate.answer = true;
        player->playItemFromPlaylist(second, playlist);
        delegate.answer = answer;
        delegate.whenAsked = [&] { player->playItem(third); };
        player->playPrevious();
        EXPECT_EQ(player->currentItem(), third);
        EXPECT_EQ(player->state(), KXAudioPlayerStatePlaying);
    }
    delegate.answer = true;
    delegate.whenAsked = [&] { player.reset(); };
    Player *const ended = player.get();
    ended->playItemFromPlaylist(first, playlist);
    EXPECT_EQ(player, nullptr);
}

TEST_F(PlayerFixture, anObserverThatGoesOnAtTheEndIsNotOvertaken)
{
    const auto third = std::make_shared<Item>();
    playlist->items.push_back(third);
    player->playItemFromPlaylist(first, playlist);
    player->setContinuous(true);
    const KXNotificationToken eager = KXNotificationCenter::defaultCenter().addObserver(
        KXAudioPlayerStateDidChangeNotification, player.get(), [&](const KXNotification &) {
            if (player->state() == KXAudioPlayerStateFinished)
                player->playNext();
        });
    player->finish();
    EXPECT_EQ(player->currentItem(), second);
}

TEST_F(PlayerFixture, allItsKeysCanBeReadAndObserved)
{
    std::vector<bool> continuous;
    std::vector<KXAudioPlayerItemPointer> items;
    player->onChangeOf(u"continuous"_s, KXObservingOptionNew,
        [&](const KXKeyValueChange &change) { continuous.push_back(change.newValue.toBool()); });
    player->onChangeOf(
        u"currentItem"_s, KXObservingOptionOld | KXObservingOptionNew, [&](const KXKeyValueChange &change) {
            items.push_back(change.oldValue.value<KXAudioPlayerItemPointer>());
            items.push_back(change.newValue.value<KXAudioPlayerItemPointer>());
        });
    EXPECT_TRUE(player->setValueForKey(u"continuous"_s, true));
    player->setContinuous(false);
    player->playItem(first);
    player->playItem(second);
    EXPECT_THAT(continuous, ElementsAre(true, false));
    EXPECT_THAT(items, ElementsAre(nullptr, first, first, second));
    EXPECT_EQ(player->valueForKey(u"currentItem"_s).value<KXAudioPlayerItemPointer>(), second);
}

TEST_F(PlayerFixture, scansWithinTheItem)
{
    player->scanForward(5);
    player->scanBackward(5);
    EXPECT_THAT(player->m_times, ElementsAre());
    player->m_duration = 60;
    player->m_time = 50;
    player->scanForward(10); // the very end is allowed
    player->scanForward(10.5);
    player->scanBackward(51);
    player->m_duration = 0.05;
    player->scanForward(1);
    EXPECT_THAT(player->m_times, ElementsAre(60, 60 - 0.1, -1, 0.05 - 0.1));
}

TEST_F(PlayerFixture, managerForwardsToItsPlayer)
{
    const auto manager = std::make_shared<Manager>();
    manager->togglePlayback(); // without a player nothing happens
    manager->playNext(true);
    manager->playPrevious(true);
    manager->scanForward(1);
    EXPECT_TRUE(manager->isUserInitiatedPlayerChange());
    manager->setAudioPlayer(player);
    const std::pair<KXAudioPlayerState, KXAudioPlayerState> toggles[] = {
        { KXAudioPlayerStateIdle, KXAudioPlayerStateStopped },
        { KXAudioPlayerStateLoading, KXAudioPlayerStateStopped },
        { KXAudioPlayerStatePlaying, KXAudioPlayerStateStopped },
        { KXAudioPlayerStateStopped, KXAudioPlayerStatePlaying },
        { KXAudioPlayerStateFinished, KXAudioPlayerStatePlaying },
    };
    for (const auto &[before, after] : toggles) {
        player->setState(before);
        manager->togglePlayback();
        EXPECT_EQ(player->state(), after) << before;
    }
    player->playItemFromPlaylist(second, playlist);
    player->m_time = 0.51;
    manager->playPrevious(false);
    EXPECT_EQ(player->currentItem(), second);
    EXPECT_FALSE(manager->isUserInitiatedPlayerChange());
    player->m_time = 0.5;
    manager->playPrevious(false);
    EXPECT_EQ(player->currentItem(), first);

    KXAudioPlayerManager::setSharedInstance(manager);
    EXPECT_EQ(player->state(), KXAudioPlayerStatePlaying);
    KXAudioPlayerManager::setSharedInstance(manager); // stops even when it stays
    EXPECT_EQ(player->state(), KXAudioPlayerStateStopped);
    player->resume();
    KXAudioPlayerManager::setSharedInstance(nullptr);
    EXPECT_EQ(player->state(), KXAudioPlayerStateStopped);
    EXPECT_EQ(KXAudioPlayerManager::sharedInstance(), nullptr);

    struct Queue : KXAudioPlayerQueue
    {
        KXAudioPlayerManager *manager = nullptr;
        void setAudioPlayerManager(KXAudioPlayerManager *m) override { manager = m; }
    };
    const auto queue = std::make_shared<Queue>();
    manager->setQueue(queue);
    manager->setQueue(nullptr);
    EXPECT_EQ(queue->manager, manager.get()); // the one before hears nothing

    struct Delegate : QObject, KXAudioPlayerManagerDelegate
    {
    };
    auto delegate = std::make_unique<Delegate>();
    manager->setDelegate(delegate.get());
    EXPECT_EQ(manager->delegate(), delegate.get());
    delegate.reset();
    EXPECT_EQ(manager->delegate(), nullptr);
}
