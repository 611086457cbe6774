#include <future>
#include <latch>
#include <set>
#include <thread>

#include <gtest/gtest.h>

#include <kestrixkit/foundation/KXException.h>
#include <kestrixkit/foundation/KXObserver.h>
#include <kestrixkit/foundation/KXOperationQueue.h>

#include <support/KXTestLog.h>
#include <support/KXTestPrint.h>
#include <support/KXTestRandom.h>

using namespace Qt::StringLiterals;

namespace operation_test {

// Manages its own execution behind one flag: it calls itself finished whenever it does not execute.
class OwnOperation : public KXAbstractOperation
{
public:
    bool isExecuting() const override { return m_executing; }
    bool isFinished() const override { return !m_executing; }
    void setExecuting(bool executing)
    {
        const auto self = weak_from_this().lock();
        willChangeValueForKey(u"isExecuting");
        willChangeValueForKey(u"isFinished");
        m_executing = executing;
        didChangeValueForKey(u"isExecuting");
        didChangeValueForKey(u"isFinished");
    }
    void start() override
    {
        setExecuting(true);
        ++starts;
        if (work)
            work(*this);
    }

    std::function<void(OwnOperation &)> work;
    std::atomic<int> starts { 0 };

private:
    std::atomic<bool> m_executing { false };
};

TEST(Operations, RunInOrderAtMostSoManyAtATime)
{
    KXOperationQueue queue;
    queue.setMaxConcurrentOperationCount(1);
    QList<int> ran; // unguarded on purpose: one at a time
    for (int i = 0; i < 100; ++i)
        queue.addBlock([&ran, i] { ran.append(i); });
    queue.waitUntilAllOperationsAreFinished();
    EXPECT_EQ(ran.size(), 100);
    EXPECT_TRUE(std::is_sorted(ran.begin(), ran.end()));
    EXPECT_EQ(queue.operationCount(), 0);

    queue.setMaxConcurrentOperationCount(3);
    std::latch allThree(3); // ends only if three run together
    std::atomic<int> now { 0 };
    std::atomic<int> most { 0 };
    for (int i = 0; i < 12; ++i)
        queue.addBlock([&, i] {
            const int running = ++now;
            for (int seen = most; running > seen && !most.compare_exchange_weak(seen, running);) { }
            if (i < 3)
                allThree.arrive_and_wait();
            --now;
        });
    queue.waitUntilAllOperationsAreFinished();
    EXPECT_EQ(most, 3);
}

TEST(Operations, NothingEscapesAWorker)
{
    const KXTestLog log;
    KXOperationQueue queue;
    std::atomic<int> completed { 0 };
    const auto bad = std::make_shared<KXBlockOperation>([] { throw KXException(u"KXTest"_s, u"thrown in main"_s); });
    bad->setCompletionBlock([&] {
        ++completed;
        throw std::runtime_error("thrown in completion");
    });
    const auto own = std::make_shared<OwnOperation>();
    own->work = [](OwnOperation &) { throw 1; }; // and executing stays set
    queue.addOperations({ bad, own });
    bad->waitUntilFinished();
    own->waitUntilFinished();
    queue.waitUntilAllOperationsAreFinished();
    EXPECT_EQ(completed, 1);
    EXPECT_TRUE(bad->isFinished());
    EXPECT_TRUE(log.contains(u"thrown in main"_s));
    EXPECT_TRUE(log.contains(u"thrown in completion"_s));
    EXPECT_EQ(log.lines().size(), 3);
}

// "Finished" before the start is how such operations look: they are run all the same, and nothing that depends on
// them starts before.
TEST(Operations, OnesThatCallThemselvesFinishedAreRun)
{
    KXOperationQueue queue;
    const auto own = std::make_shared<OwnOperation>();
    EXPECT_TRUE(own->isFinished());
    EXPECT_FALSE(own->isDone());
    own->setExecuting(false); // says nothing yet
    std::promise<void> goOn;
    own->work = [&](OwnOperation &operation) {
        goOn.get_future().wait();
        operation.setExecuting(false);
        operation.setExecuting(false); // twice
    };
    std::atomic<int> completed { 0 };
    own->setCompletionBlock([&] { ++completed; });
    std::atomic<bool> ranBefore { false };
    const auto dependent = std::make_shared<KXBlockOperation>([&] { ranBefore = own->starts == 1 && own->isDone(); });
    dependent->addDependency(own);
    queue.addOperations({ dependent, own });
    EXPECT_FALSE(dependent->isReady());
    goOn.set_value();
    queue.waitUntilAllOperationsAreFinished();
    EXPECT_TRUE(ranBefore);
    EXPECT_EQ(own->starts, 1);
    EXPECT_EQ(completed, 1);
    EXPECT_THROW(queue.addOperation(own), KXException);
}

TEST(Operations, MayEndLaterOnAnotherThread)
{
    KXTestRandom random;
    for (int round = KXTestRandom::scaled(500); round > 0; --round) {
        KXOperationQueue queue;
        queue.setMaxConcurrentOperationCount(1);
        std::thread finisher;
        std::atomic<int> order { 0 };
        auto own = std::make_shared<OwnOperation>();
        own->work = [&](OwnOperation &operation) {
            // Nobody but the queue keeps the operation alive.
            finisher = std::thread([&operation, &order] {
                order = 1;
                operation.setExecuting(false);
            });
        };
        std::weak_ptr<OwnOperation> weak = own;
        queue.addOperation(own);
        own.reset();
        int seen = -1;
        queue.addBlock([&] { seen = order; }); // takes the slot only when the first is done
        queue.waitUntilAllOperationsAreFinished();
        EXPECT_EQ(seen, 1);
        finisher.join();
        while (!weak.expired()) // a worker may be about to let go
            std::this_thread::yield();
    }
}

TEST(Operations, CancelledBeforeTheirStartTheyAreStartedAllTheSame)
{
    KXOperationQueue queue;
    queue.setSuspended(true);
    bool ran = false;
    int completed = 0;
    const auto block = queue.addBlock([&] { ran = true; });
    block->setCompletionBlock([&] { ++completed; });
    const auto own = std::make_shared<OwnOperation>();
    own->work = [](OwnOperation &operation) { operation.setExecuting(false); };
    queue.addOperation(own);
    queue.cancelAllOperations();
    EXPECT_EQ(queue.operationCount(), 2); // suspended
    queue.setSuspended(false);
    queue.waitUntilAllOperationsAreFinished();
    EXPECT_FALSE(ran);
    EXPECT_EQ(completed, 1);
    EXPECT_TRUE(block->isCancelled() && block->isFinished());
    EXPECT_EQ(own->starts, 1);
}

TEST(Operations, CancellingInterruptsByHandlers)
{
    KXOperationQueue queue;
    std::latch running(1);
    std::atomic<bool> interrupted { false };
    const auto operation = queue.addBlock([&](KXAbstractOperation &self) {
        EXPECT_EQ(KXAbstractOperation::current(), &self);
        std::promise<void> query;
        {
            const auto removed = self.addCancelHandler([] { FAIL() << "its token is gone"; });
        }
        const auto handler = self.addCancelHandler([&] { query.set_value(); });
        running.count_down();
        query.get_future().wait();
        const auto late = self.addCancelHandler([&] { interrupted = true; }); // at once
    });
    running.wait();
    operation->cancel();
    operation->cancel();
    operation->waitUntilFinished();
    EXPECT_TRUE(interrupted);
    EXPECT_EQ(KXAbstractOperation::current(), nullptr);
}

TEST(Operations, WaitForTheirDependenciesUnlessCancelled)
{
    KXOperationQueue one;
    KXOperationQueue two;
    const auto never = std::make_shared<KXBlockOperation>([] {});
    const auto waiting = std::make_shared<KXBlockOperation>([] { FAIL() << "was cancelled"; });
    waiting->addDependency(never);
    one.addOperation(waiting);
    std::atomic<bool> firstRan { false };
    bool right = false;
    const auto first = std::make_shared<KXBlockOperation>([&] { firstRan = true; });
    const auto second = std::make_shared<KXBlockOperation>([&] { right = firstRan; });
    second->addDependency(first);
    two.addOperation(second);
    EXPECT_FALSE(second->isReady());
    one.addOperation(first); // in another queue
    second->waitUntilFinished();
    EXPECT_TRUE(right);
    EXPECT_FALSE(waiting->isDone());
    waiting->cancel();
    waiting->waitUntilFinished();
}

TEST(Operations, OneThatNeverExecutesHoldsNobodyUp)
{
    class Idle : public KXAbstractOperation
    {
    public:
        void start() override { }
    };
    KXOperationQueue queue;
    const auto idle = std::make_shared<Idle>();
    queue.addOperation(idle);
    queue.waitUntilAllOperationsAreFinished();
    EXPECT_TRUE(idle->isDone());
}

TEST(Operations, StartedByHandTheyEndAsWell)
{
    int ran = 0;
    const auto block = std::make_shared<KXBlockOperation>([&] { ++ran; });
    QStringList announced;
    for (const QString &key : { u"isExecuting"_s, u"isFinished"_s, u"isCancelled"_s })
        block->onChangeOf(key, KXObservingOptionNew, [&](const KXKeyValueChange &change) {
            announced.append(change.keyPath + u'=' + change.newValue.toString());
        });
    block->start();
    block->start();
    block->waitUntilFinished();
    EXPECT_EQ(ran, 1);
    block->cancel();
    EXPECT_EQ(announced,
        QStringList({ u"isExecuting=true"_s, u"isFinished=false"_s, u"isExecuting=false"_s, u"isFinished=true"_s,
            u"isCancelled=true"_s }));
    KXOperationQueue queue;
    EXPECT_THROW(queue.addOperation(block), KXException);
    const auto thrower = std::make_shared<KXBlockOperation>([] { throw std::runtime_error("by hand"); });
    EXPECT_THROW(thrower->start(), std::runtime_error);
    EXPECT_TRUE(thrower->isDone());
}

TEST(Operations, DestroyingTheQueueCancelsAndWaits)
{
    std::atomic<int> ended { 0 };
    {
        std::latch running(2);
        KXOperationQueue queue;
        queue.setMaxConcurrentOperationCount(2);
        for (int i = 0; i < 10; ++i)
            queue.addBlock([&](KXAbstractOperation &self) {
                running.count_down();
                while (!self.isCancelled())
                    std::this_thread::yield();
                ++ended;
            });
        running.wait();
    }
    EXPECT_EQ(ended, 2);

    // One of its own operations destroys the queue; the others end without it.
    auto queue = std::make_unique<KXOperationQueue>();
    queue->setMaxConcurrentOperationCount(1);
    queue->setSuspended(true);
    const auto destroyer = queue->addBlock([&] { queue.reset(); });
    const auto behind = queue->addBlock([] { FAIL() << "was cancelled"; });
    queue->setSuspended(false);
    destroyer->waitUntilFinished();
    behind->waitUntilFinished();
}

// Several threads queue, cancel, suspend; every operation must complete exactly once.
TEST(Operations, SurviveManyThreads)
{
    KXTestRandom random;
    for (int round = KXTestRandom::scaled(300); round > 0; --round) {
        const KXTestLog log;
        std::atomic<int> completions { 0 };
        constexpr int threadCount = 3;
        constexpr int each = 20;
        {
            KXOperationQueue queue;
            queue.setMaxConcurrentOperationCount(random.between(1, 4));
            std::vector<std::thread> threads;
            std::mutex finisherMutex;
            std::vector<std::thread> finishers;
            for (int number = 0; number < threadCount; ++number)
                threads.emplace_back([&, seed = random.between(0U, ~0U)] {
                    std::minstd_rand choice(seed);
                    std::shared_ptr<KXAbstractOperation> former;
                    for (int i = 0; i < each; ++i) {
                        std::shared_ptr<KXAbstractOperation> operation;
                        if (choice() % 3 == 0) {
                            const auto own = std::make_shared<OwnOperation>();
                            own->work = [&](OwnOperation &self) {
                                const std::lock_guard lock(finisherMutex);
                                finishers.emplace_back([&self] { self.setExecuting(false); });
                            };
                            operation = own;
                        } else {
                            operation = std::make_shared<KXBlockOperation>([fails = choice() % 4 == 0] {
                                if (fails)
                                    throw std::runtime_error("sometimes");
                            });
                        }
                        operation->setCompletionBlock([&] { ++completions; });
                        if (former && choice() % 2)
                            operation->addDependency(former);
                        queue.addOperation(operation);
                        former = operation;
                        if (choice() % 8 == 0)
                            queue.cancelAllOperations();
                        if (choice() % 8 == 0)
                            queue.setSuspended(choice() % 2);
                    }
                });
            for (auto &thread : threads)
                thread.join();
            queue.setSuspended(false);
            queue.waitUntilAllOperationsAreFinished();
            const std::lock_guard lock(finisherMutex); // the last one may still be on its way into the list
            for (auto &finisher : finishers)
                finisher.join();
        }
        ASSERT_EQ(completions, threadCount * each);
    }
}

}
