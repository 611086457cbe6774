#include <latch>
#include <thread>

#include <QEventLoop>
#include <QSignalSpy>
#include <QTest>
#include <QTimer>
#include <gtest/gtest.h>

#include <kestrixkit/foundation/KXClock.h>
#include <kestrixkit/foundation/KXDelayedCall.h>
#include <kestrixkit/foundation/KXMainQueue.h>
#include <kestrixkit/foundation/KXObservable.h>

#include <support/KXTestLog.h>
#include <support/KXTestPrint.h>

using namespace Qt::StringLiterals;

namespace main_queue_test {

// Runs an event loop until a task says that it was the last.
class Loop
{
public:
    void run() { m_loop.exec(); }
    void quit() { m_loop.quit(); }

private:
    QEventLoop m_loop;
};

TEST(MainQueue, RunsTasksInOrderOnTheMainThread)
{
    EXPECT_TRUE(KXMainQueue::isMainThread());
    Loop loop;
    QList<int> ran;
    KXMainQueue::async([&] { ran.append(1); });
    std::thread([&] {
        EXPECT_FALSE(KXMainQueue::isMainThread());
        KXMainQueue::async([&] {
            EXPECT_TRUE(KXMainQueue::isMainThread());
            ran.append(2);
        });
    }).join();
    KXMainQueue::async([&] {
        ran.append(3);
        KXMainQueue::async([&] {
            ran.append(5);
            loop.quit();
        });
    });
    KXMainQueue::async([&] { ran.append(4); });
    EXPECT_TRUE(ran.isEmpty()); // never at once
    loop.run();
    EXPECT_EQ(ran, QList<int>({ 1, 2, 3, 4, 5 }));
}

// A task that queues itself again and again must not keep the loop from anything else.
TEST(MainQueue, LetsTheLoopTurn)
{
    Loop loop;
    bool stop = false;
    int runs = 0;
    std::function<void()> again = [&] {
        ++runs;
        if (!stop)
            KXMainQueue::async(again);
        else
            loop.quit();
    };
    KXMainQueue::async(again);
    QTimer timer;
    timer.callOnTimeout([&] { stop = true; });
    timer.start(1);
    loop.run();
    EXPECT_GT(runs, 1);
}

TEST(MainQueue, GoesOnInsideANestedLoop)
{
    Loop outer;
    QList<int> ran;
    KXMainQueue::async([&] {
        Loop nested;
        KXMainQueue::async([&] {
            ran.append(2);
            nested.quit();
        });
        nested.run(); // a modal alert
        ran.append(3);
    });
    KXMainQueue::async([&] { ran.append(1); });
    KXMainQueue::async([&] { outer.quit(); });
    outer.run();
    EXPECT_EQ(ran, QList<int>({ 1, 2, 3 }));
}

TEST(MainQueue, LogsWhatTasksThrow)
{
    const KXTestLog log;
    Loop loop;
    KXMainQueue::async([] { throw std::runtime_error("task failed"); });
    KXMainQueue::async([] { throw 1; });
    KXMainQueue::async([&] { loop.quit(); });
    loop.run();
    EXPECT_EQ(log.lines().size(), 2);
    EXPECT_TRUE(log.contains(u"task failed"_s));
}

class Counted : public KXObservable, public KXRefCounted
{
};

TEST(MainQueue, SparesTargetsThatHaveGone)
{
    Loop loop;
    int ran = 0;
    auto guard = std::make_unique<QObject>();
    const QObject lasting;
    auto counted = KXMakeRef<Counted>();
    auto lastingCounted = KXMakeRef<Counted>();
    const KXWeakRef<Counted> weak(lastingCounted);
    KXMainQueue::async(guard.get(), [&] { ran += 1; });
    KXMainQueue::async(&lasting, [&] { ran += 10; });
    KXMainQueue::async(KXWeakRef<Counted>(counted), [&] { ran += 100; });
    KXMainQueue::async(KXWeakRef<Counted>(lastingCounted), [&] {
        ran += 1000;
        lastingCounted.reset();
        EXPECT_TRUE(weak.lock()); // until the task has returned
    });
    KXMainQueue::async([&] { loop.quit(); });
    guard.reset();
    counted.reset();
    loop.run();
    EXPECT_EQ(ran, 1010);
    EXPECT_FALSE(weak.lock());
}

TEST(MainQueue, KeepsEachThreadsOrder)
{
    constexpr int threadCount = 4;
    constexpr int each = 300;
    Loop loop;
    std::vector<std::vector<int>> ran(threadCount);
    int total = 0;
    std::vector<std::thread> threads;
    for (int number = 0; number < threadCount; ++number)
        threads.emplace_back([&, number] {
            for (int i = 0; i < each; ++i)
                KXMainQueue::async([&, number, i] {
                    ran[size_t(number)].push_back(i);
                    if (++total == threadCount * each)
                        loop.quit();
                });
        });
    loop.run();
    for (auto &thread : threads)
        thread.join();
    for (const auto &list : ran)
        EXPECT_TRUE(std::is_sorted(list.begin(), list.end()));
}

TEST(DelayedCall, RunsOnceUnlessCancelledOrRestarted)
{
    Loop loop;
    QStringList ran;
    KXDelayedCall cancelled;
    KXDelayedCall restarted;
    KXDelayedCall last;
    cancelled.start(0.001, [&] { ran.append(u"cancelled"_s); });
    restarted.start(0.001, [&] { ran.append(u"first"_s); });
    restarted.start(0.002, [&] { ran.append(u"second"_s); });
    {
        KXDelayedCall destroyed;
        destroyed.start(0, [&] { ran.append(u"destroyed"_s); });
    }
    EXPECT_TRUE(cancelled.isPending());
    cancelled.cancel();
    cancelled.cancel();
    EXPECT_FALSE(cancelled.isPending());
    last.start(0.02, [&] {
        EXPECT_FALSE(last.isPending());
        ran.append(u"last"_s);
        last.start(0.0, [&] { loop.quit(); }); // from inside
        EXPECT_TRUE(last.isPending());
    });
    loop.run();
    EXPECT_EQ(ran, QStringList({ u"second"_s, u"last"_s }));
}

TEST(DelayedCall, MindsItsGuardAndSurvivesItsOwnEnd)
{
    const KXTestLog log;
    Loop loop;
    int ran = 0;
    auto guard = std::make_unique<QObject>();
    auto counted = KXMakeRef<Counted>();
    KXDelayedCall guarded(guard.get());
    KXDelayedCall weak { KXWeakRef<Counted>(counted) };
    guarded.start(0, [&] { ++ran; });
    weak.start(0, [&] { ++ran; });
    guard.reset();
    counted.reset();
    auto self = std::make_unique<KXDelayedCall>();
    self->start(0, [&] {
        self.reset();
        throw std::runtime_error("late");
    });
    KXDelayedCall end;
    end.start(0.01, [&] { loop.quit(); });
    loop.run();
    EXPECT_EQ(ran, 0);
    EXPECT_TRUE(log.contains(u"late"_s));
}

TEST(Clock, CanBePinned)
{
    const qint64 before = KXClock::nowMicroseconds();
    {
        const KXClockPin pin(QDateTime(QDate(2024, 2, 29), QTime(23, 30), Qt::UTC));
        KXClock::setTimeZone(QTimeZone("Europe/Berlin"));
        KXClock::setLocale(QLocale(QLocale::German));
        EXPECT_EQ(KXClock::now().toString(Qt::ISODate), u"2024-02-29T23:30:00Z"_s);
        EXPECT_EQ(KXClock::today(), QDate(2024, 3, 1));
        EXPECT_EQ(KXClock::locale().dayName(1), u"Montag"_s);
        KXClock::advance(1.5);
        EXPECT_EQ(KXClock::nowMicroseconds() % 60'000'000, 1'500'000);
        {
            const KXClockPin inner(QDateTime::fromMSecsSinceEpoch(-1, Qt::UTC));
            KXClock::setFixedMicroseconds(-1);
            EXPECT_EQ(KXClock::now().toMSecsSinceEpoch(), -1); // rounded down, as always
        }
        EXPECT_EQ(KXClock::today(), QDate(2024, 3, 1));
    }
    EXPECT_GE(KXClock::nowMicroseconds(), before);
    EXPECT_EQ(KXClock::now().timeSpec(), Qt::UTC);
}

}
