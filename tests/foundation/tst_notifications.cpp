#include <atomic>
#include <future>
#include <latch>
#include <thread>

#include <QObject>
#include <gtest/gtest.h>

#include <kestrixkit/foundation/KXNotificationCenter.h>

#include <support/KXTestLog.h>
#include <support/KXTestPrint.h>
#include <support/KXTestRandom.h>

using namespace Qt::StringLiterals;

namespace notification_test {

const QString name = u"KXTestNotification"_s;

struct Base
{
    virtual ~Base() = default;
    int first = 1;
};
struct Sender : Base, QObject
{
};

TEST(Notifications, ReachObserversOfNameAndSenderInOrder)
{
    KXNotificationCenter center;
    Sender sender;
    Sender other;
    QStringList calls;
    const auto note = [&](const QString &who) { return [&calls, who](const KXNotification &) { calls.append(who); }; };
    const auto one = center.addObserver(name, &sender, note(u"one"_s));
    const auto any = center.addObserver(name, KXNotificationCenter::anySender(), note(u"any"_s));
    const auto foreign = center.addObserver(name, &other, note(u"foreign"_s));
    const auto elsewhere = center.addObserver(u"Other"_s, &sender, note(u"elsewhere"_s));
    const auto two = center.addObserver(name, static_cast<QObject *>(&sender), note(u"two"_s)); // the same object
    const auto nobody = center.addObserver(name, static_cast<Sender *>(nullptr), note(u"nobody"_s));
    EXPECT_FALSE(nobody);

    center.post(name, &sender);
    EXPECT_EQ(calls, QStringList({ u"one"_s, u"any"_s, u"two"_s }));
    calls.clear();
    center.post(name); // no sender
    EXPECT_EQ(calls, QStringList({ u"any"_s }));
}

TEST(Notifications, CarryAPayload)
{
    KXNotificationCenter center;
    int seen = 0;
    const auto token
        = center.addObserver(name, KXNotificationCenter::anySender(), [&](const KXNotification &notification) {
              const auto *list = notification.payloadAs<std::vector<int>>();
              seen = list ? list->at(1) : -1;
              EXPECT_EQ(notification.payloadAs<int>(), nullptr);
              EXPECT_EQ(notification.userInfo.value(u"k"_s), u"v"_s);
          });
    center.post(name, nullptr, std::vector<int> { 4, 5 }, { { u"k"_s, u"v"_s } });
    EXPECT_EQ(seen, 5);
}

TEST(Notifications, MayBeChangedWhileTheyAreDelivered)
{
    KXNotificationCenter center;
    QStringList calls;
    KXNotificationToken third;
    KXNotificationToken late;
    KXNotificationToken self;
    self = center.addObserver(name, KXNotificationCenter::anySender(), [&](const KXNotification &) {
        calls.append(u"self"_s);
        self.reset(); // does not wait for itself
        third.reset(); // not called any more
        late = center.addObserver(
            name, KXNotificationCenter::anySender(), [&](const KXNotification &) { calls.append(u"late"_s); });
        center.post(name); // already reaches the new one
    });
    const auto second = center.addObserver(
        name, KXNotificationCenter::anySender(), [&](const KXNotification &) { calls.append(u"second"_s); });
    third = center.addObserver(
        name, KXNotificationCenter::anySender(), [&](const KXNotification &) { calls.append(u"third"_s); });
    center.post(name);
    EXPECT_EQ(calls, QStringList({ u"self"_s, u"second"_s, u"late"_s, u"second"_s }));
}

TEST(Notifications, AnObserverThatThrowsHarmsNobody)
{
    const KXTestLog log;
    KXNotificationCenter center;
    int called = 0;
    const auto bad = center.addObserver(
        name, KXNotificationCenter::anySender(), [](const KXNotification &) { throw std::runtime_error("no good"); });
    const auto good
        = center.addObserver(name, KXNotificationCenter::anySender(), [&](const KXNotification &) { ++called; });
    EXPECT_NO_THROW(center.post(name));
    EXPECT_EQ(called, 1);
    EXPECT_TRUE(log.contains(u"no good"_s));
}

TEST(Notifications, TokensMoveAndOutliveTheirCentre)
{
    int called = 0;
    KXNotificationToken token;
    {
        KXNotificationCenter center;
        token = center.addObserver(name, KXNotificationCenter::anySender(), [&](const KXNotification &) { ++called; });
        KXNotificationToken moved = std::move(token);
        center.post(name);
        token = std::move(moved);
        center.post(name);
        token = center.addObserver(
            name, KXNotificationCenter::anySender(), [&](const KXNotification &) { called += 10; });
        center.post(name); // the former subscription ended with the assignment
    }
    EXPECT_EQ(called, 12);
    token.reset();
}

// Once a token is gone on one thread, its function must not be running on another: it may use what dies next.
TEST(Notifications, UnsubscribingWaitsForOtherThreads)
{
    KXNotificationCenter center;
    std::latch inside(1);
    std::promise<void> goOn;
    std::atomic<bool> returned { false };
    auto token = center.addObserver(name, KXNotificationCenter::anySender(), [&](const KXNotification &) {
        inside.count_down();
        goOn.get_future().wait();
        returned = true;
    });
    std::thread poster([&] { center.post(name); });
    inside.wait();
    std::thread releaser([&] { goOn.set_value(); });
    token.reset();
    EXPECT_TRUE(returned);
    poster.join();
    releaser.join();
}

TEST(Notifications, SurviveManyThreads)
{
    KXTestRandom random;
    KXNotificationCenter center;
    std::atomic<bool> stop { false };
    std::atomic<int> wrong { 0 };
    std::vector<std::thread> posters;
    for (int i = 0; i < 2; ++i)
        posters.emplace_back([&] {
            while (!stop)
                center.post(name, nullptr, 1);
        });
    for (int round = KXTestRandom::scaled(5000); round > 0; --round) {
        auto alive = std::make_unique<std::atomic<int>>(1);
        std::vector<KXNotificationToken> tokens;
        for (int i = random.between(1, 4); i > 0; --i)
            tokens.push_back(center.addObserver(name, KXNotificationCenter::anySender(),
                [&wrong, flag = alive.get()](const KXNotification &) { wrong += *flag != 1; }));
        std::shuffle(tokens.begin(), tokens.end(), random.engine());
        tokens.clear();
        *alive = 0; // and freed: a late call would be seen, the more so by a sanitizer
    }
    stop = true;
    for (auto &poster : posters)
        poster.join();
    EXPECT_EQ(wrong, 0);
}

}
