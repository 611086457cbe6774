// Background work on a store: operations with contexts of their own, what becomes of their saves, and how they are
// stopped.

#include <latch>
#include <mutex>
#include <thread>

#include <QCoreApplication>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <kestrixkit/context/KXManagedObjectContextOperation.h>
#include <kestrixkit/foundation/KXMainQueue.h>
#include <kestrixkit/foundation/KXMainThreadDictionary.h>
#include <kestrixkit/foundation/KXNotificationCenter.h>
#include <kestrixkit/foundation/KXOperationQueue.h>
#include <kestrixkit/foundation/KXUndoManager.h>

#include "store/Library.h"
#include "support/KXTestLog.h"
#include "support/KXTestPrint.h"
#include "support/KXTestRandom.h"

using namespace Qt::StringLiterals;

namespace store_operation_test {

constexpr int interrupted = 1116;

/// An operation whose work is a function; tells when it goes.
class Work : public KXManagedObjectContextOperation
{
public:
    Work(const KXManagedObjectContext::Ref &mainContext, std::function<void(Work &)> work)
        : KXManagedObjectContextOperation(mainContext)
        , m_work(std::move(work))
    {
    }
    ~Work() override
    {
        if (atEnd)
            atEnd();
    }
    void main() override { m_work(*this); }
    void managedObjectContextDidSave(const KXNotification &notification) override
    {
        KXManagedObjectContextOperation::managedObjectContextDidSave(notification);
        if (atSave)
            atSave();
    }

    std::function<void()> atSave;
    std::function<void()> atEnd;

private:
    std::function<void(Work &)> m_work;
};

void runToItsEnd(const std::shared_ptr<KXAbstractOperation> &operation)
{
    KXOperationQueue queue;
    queue.addOperation(operation);
    queue.waitUntilAllOperationsAreFinished();
}

void turnMainLoop()
{
    bool turned = false;
    KXMainQueue::async([&] { turned = true; });
    while (!turned)
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
}

/// Lets a test reach into the connections of a store that is opened while this lives.
class Connections
{
public:
    Connections()
    {
        opened().clear();
        sqlite3_auto_extension(entry());
    }
    ~Connections() { sqlite3_cancel_auto_extension(entry()); }
    Q_DISABLE_COPY_MOVE(Connections)

    /// The one that this thread opened last.
    static sqlite3 *ofThisThread()
    {
        const std::lock_guard lock(mutex());
        return opened()[std::this_thread::get_id()];
    }

private:
    static void (*entry())() { return reinterpret_cast<void (*)()>(&note); }
    static int note(sqlite3 *database, const char **, const sqlite3_api_routines *)
    {
        const std::lock_guard lock(mutex());
        opened()[std::this_thread::get_id()] = database;
        return SQLITE_OK;
    }
    static std::mutex &mutex()
    {
        static std::mutex mutex;
        return mutex;
    }
    static std::unordered_map<std::thread::id, sqlite3 *> &opened()
    {
        static std::unordered_map<std::thread::id, sqlite3 *> map;
        return map;
    }
};

/// A SQL function that stands still in its first call until it is opened, and counts its calls.
class Gate
{
public:
    /// Puts it in place of the function that [c] needs, on the reader that this thread uses.
    void build(KXManagedObjectContext &context)
    {
        (void)context.countForEntity(u"Genre"_s); // the reader is there from now on
        const auto function = [](sqlite3_context *sql, int, sqlite3_value **values) {
            static_cast<Gate *>(sqlite3_user_data(sql))->pass();
            sqlite3_result_value(sql, values[0]);
        };
        ASSERT_EQ(sqlite3_create_function_v2(Connections::ofThisThread(), "kx_fold", 2, SQLITE_UTF8, this, function,
                      nullptr, nullptr, nullptr),
            SQLITE_OK);
    }
    void waitUntilReached() { m_reached.wait(); }
    void open() { m_open.count_down(); }
    int calls() const { return m_calls; }

private:
    void pass()
    {
        if (m_calls++ == 0) {
            m_reached.count_down();
            m_open.wait();
        }
    }
    std::latch m_reached { 1 };
    std::latch m_open { 1 };
    std::atomic<int> m_calls { 0 };
};

KXPredicate titledA() { return KXPredicate::predicateWithFormat("title ==[c] %@", u"a"_s); }

/// A library with so many tracks called "a".
struct Tracks : Connections, LibraryTest
{
    explicit Tracks(int count)
    {
        for (int i = 0; i < count; ++i)
            (void)track(u"a"_s);
        EXPECT_TRUE(context->save());
    }
};

/// Makes the library's context the process's main one for a scope.
class Registered
{
public:
    explicit Registered(const LibraryTest &library)
    {
        KXMainThreadDictionary::setValue(KLNSManagedObjectContextMainThreadKey, library.context);
    }
    ~Registered() { KXMainThreadDictionary::remove(KLNSManagedObjectContextMainThreadKey); }
    Q_DISABLE_COPY_MOVE(Registered)
};

TEST(StoreOperations, keepOneFlagAndAnnounceItsTwoKeysTogether)
{
    const auto operation = std::make_shared<KXOperation>();
    EXPECT_FALSE(operation->isExecuting());
    EXPECT_TRUE(operation->isFinished()); // though it has not started
    EXPECT_TRUE(operation->isConcurrent());
    QStringList announced;
    for (const QString &key : { u"isFinished"_s, u"isExecuting"_s })
        operation->onChangeOf(key, KXObservingOptionNew, [&](const KXKeyValueChange &change) {
            announced.append(change.keyPath + u'=' + change.newValue.toString());
        });
    const QStringList on { u"isExecuting=true"_s, u"isFinished=false"_s };
    const QStringList off { u"isExecuting=false"_s, u"isFinished=true"_s };
    operation->setExecuting(true);
    operation->setExecuting(true);
    operation->setExecuting(false);
    EXPECT_EQ(announced, on + on + off);
    EXPECT_TRUE(operation->isDone());
    EXPECT_EQ(std::make_shared<KXManagedObjectContextOperation>(nullptr)->localContext(), nullptr);
    LibraryTest here; // on the main thread, whose contexts have one
    ASSERT_TRUE(here.context->undoManager());
    const auto ofHere = std::make_shared<KXManagedObjectContextOperation>(here.context);
    EXPECT_EQ(ofHere->localContext()->undoManager(), nullptr);

    announced.clear();
    const auto throws = std::make_shared<Work>(nullptr, [](Work &) { throw std::runtime_error("in its work"); });
    int completed = 0;
    throws->setCompletionBlock([&] { ++completed; });
    const KXTestLog log;
    runToItsEnd(throws);
    EXPECT_TRUE(throws->isDone() && throws->isFinished());
    EXPECT_EQ(completed, 1);
    EXPECT_TRUE(log.contains(u"in its work"_s));
}

TEST(StoreOperations, theirSavesReachTheMainContextOnlyWhenAsked)
{
    LibraryTest library;
    const auto undo = std::make_shared<KXUndoManager>();
    library.context->setUndoManager(undo);
    const auto held = library.track(u"before"_s);
    ASSERT_TRUE(library.context->save());
    turnMainLoop();
    undo->removeAllActions();
    for (const bool merges : { false, true }) {
        held->setComment(u"my own"_s); // unsaved
        turnMainLoop(); // the user's step
        const auto operation = std::make_shared<Work>(library.context, [&](Work &self) {
            const auto context = self.localContext();
            EXPECT_EQ(context, self.localContext());
            EXPECT_EQ(context->undoManager(), nullptr);
            const auto track = Track::cast(context->objectWithID(held->objectID()));
            track->setTitle(merges ? u"merged"_s : u"saved"_s);
            track->setComment(u"its own"_s);
            EXPECT_TRUE(context->save());
        });
        operation->setMergeChangesIntoMainContext(merges);
        runToItsEnd(operation);
        EXPECT_EQ(held->title(), u"before"_s); // not before the main thread's turn
        const KXUndoRegistrationOff section(undo.get()); // such as a modal alert that the merge falls into
        turnMainLoop();
        EXPECT_EQ(held->title(), merges ? u"merged"_s : u"before"_s);
        EXPECT_EQ(held->comment(), u"my own"_s);
        EXPECT_FALSE(undo->isUndoRegistrationEnabled());
    }
    EXPECT_TRUE(undo->isUndoRegistrationEnabled());
    undo->undo();
    EXPECT_EQ(held->title(), u"merged"_s);
    while (undo->canUndo())
        undo->undo();
    EXPECT_EQ(held->title(), u"merged"_s); // somebody else's work is nobody's step
}

TEST(StoreOperations, aMergeOutlivesItsOperationAndItsContext)
{
    LibraryTest library;
    const auto held = library.genre(u"before"_s);
    ASSERT_TRUE(library.context->save());
    std::weak_ptr<Work> gone;
    {
        const auto operation = std::make_shared<Work>(library.context, [id = held->objectID()](Work &self) {
            Genre::cast(self.localContext()->objectWithID(id))->setName(u"after"_s);
            EXPECT_TRUE(self.localContext()->save());
        });
        operation->setMergeChangesIntoMainContext(true);
        gone = operation;
        runToItsEnd(operation);
    }
    while (!gone.expired()) // a worker may be about to let go
        std::this_thread::yield();
    turnMainLoop();
    EXPECT_EQ(held->name(), u"after"_s);

    // Nobody but an operation on another thread, and the merge that it queues, hold the main context.
    auto other = library.otherContext();
    std::weak_ptr<KXManagedObjectContext> main = other;
    auto operation = std::make_shared<Work>(other, [](Work &self) {
        Genre::createInContext(*self.localContext())->setName(u"saved"_s);
        EXPECT_TRUE(self.localContext()->save());
    });
    other.reset();
    operation->setMergeChangesIntoMainContext(true);
    std::thread([operation = std::exchange(operation, nullptr)]() mutable {
        operation->start();
        operation.reset();
    }).join();
    EXPECT_FALSE(main.expired()); // its end waits for its own thread
    turnMainLoop();
    EXPECT_TRUE(main.expired());
}

TEST(StoreOperations, mayBeLetGoWhileASaveIsBeingAnnounced)
{
    LibraryTest library;
    std::latch inDelivery(1);
    std::latch letGo(1);
    std::atomic<bool> ended { false };
    std::atomic<bool> endedInDelivery { false };
    auto operation = std::make_shared<Work>(library.context, [](Work &) {});
    operation->setMergeChangesIntoMainContext(true);
    operation->atEnd = [&] { ended = true; };
    operation->atSave = [&] {
        inDelivery.count_down();
        letGo.wait();
        endedInDelivery = ended.load();
    };
    std::thread saver([&, weak = std::weak_ptr(operation)] {
        KXManagedObjectContext::Ref context;
        if (const auto self = weak.lock())
            context = self->localContext();
        Genre::createInContext(*context)->setName(u"saved"_s);
        EXPECT_TRUE(context->save());
        Genre::createInContext(*context)->setName(u"nobody listens any more"_s);
        EXPECT_TRUE(context->save());
    });
    inDelivery.wait();
    operation.reset();
    letGo.count_down();
    saver.join();
    EXPECT_FALSE(endedInDelivery);
    EXPECT_TRUE(ended);
    turnMainLoop();

    // Again and again, at whatever moment.
    KXTestRandom random;
    for (int round = KXTestRandom::scaled(200); round > 0; --round) {
        auto again = std::make_shared<Work>(library.context, [](Work &) {});
        again->setMergeChangesIntoMainContext(true);
        std::latch ready(1);
        std::thread thread([&ready, context = KXManagedObjectContext::Ref(), weak = std::weak_ptr(again)]() mutable {
            if (const auto self = weak.lock())
                context = self->localContext();
            ready.count_down();
            Genre::createInContext(*context)->setName(u"a"_s);
            EXPECT_TRUE(context->save());
        });
        ready.wait();
        for (int i = random.between(0, 100); i > 0; --i)
            std::this_thread::yield();
        again.reset();
        thread.join();
    }
    turnMainLoop();
}

#if defined(KX_CHECKS)
TEST(StoreOperationsDeathTest, theirContextBelongsToWhomeverTouchesItFirst)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    LibraryTest library;
    const auto operation = std::make_shared<Work>(library.context, [](Work &self) { (void)self.localContext(); });
    (void)operation->localContext(); // a debugger, say
    EXPECT_DEATH(runToItsEnd(operation), "used on thread [0-9]+ but belongs to thread [0-9]+");
}
#endif

TEST(StoreOperations, aBlockedCountKeepsNobodyFromFetchingAndSaving)
{
    Tracks library(10);
    Gate gate;
    qint64 counted = 0;
    const auto operation = std::make_shared<Work>(library.context, [&](Work &self) {
        gate.build(*self.localContext());
        counted = self.localContext()->countForEntity(u"Track"_s, titledA());
    });
    KXOperationQueue queue;
    queue.addOperation(operation);
    gate.waitUntilReached();
    EXPECT_EQ(library.context->fetchForEntity(u"Track"_s, titledA()).size(), 10);
    (void)library.track(u"a"_s);
    EXPECT_TRUE(library.context->save());
    EXPECT_EQ(library.context->countForEntity(u"Track"_s), 11);
    EXPECT_FALSE(operation->isDone());
    gate.open();
    queue.waitUntilAllOperationsAreFinished();
    EXPECT_EQ(counted, 10); // as it was when the count began
}

TEST(StoreOperations, cancellingEndsAFetchThatLooksAtObjects)
{
    Tracks library(3000); // several batches
    const KXTestLog log;
    qint64 counted = 0;
    qint64 countedLater = 0;
    KXError error;
    runToItsEnd(std::make_shared<Work>(library.context, [&](Work &self) {
        KXManagedObjectContext &context = *self.localContext();
        const KXFetchRequest request(u"Track"_s, KXPredicate::predicateWithFormat("scratch == nil"));
        (void)context.countForEntity(u"Genre"_s); // the reader is there from now on
        struct Second
        {
            Work &operation;
            int statements = 0;
        } second { self };
        const auto cancel = [](unsigned, void *data, void *, void *) {
            auto *at = static_cast<Second *>(data);
            if (++at->statements == 2) // after the keys, while objects are read
                at->operation.cancel();
            return 0;
        };
        sqlite3_trace_v2(Connections::ofThisThread(), SQLITE_TRACE_STMT, cancel, &second);
        counted = context.count(request, &error);
        sqlite3_trace_v2(Connections::ofThisThread(), 0, nullptr, nullptr);
        countedLater = context.count(request);
    }));
    EXPECT_EQ(counted, -1);
    EXPECT_EQ(error.code(), interrupted);
    EXPECT_EQ(countedLater, 3000);
}

TEST(StoreOperations, cancellingInterruptsTheQueryThatRunsAndNoOther)
{
    constexpr int rows = 3000;
    Tracks library(rows);
    const KXTestLog log;
    KXOperationQueue queue;
    queue.setMaxConcurrentOperationCount(1); // one thread, so one reader
    Gate gate;
    qint64 counted = 0;
    qint64 countedLater = 0;
    int callsAtTheEnd = 0;
    KXError error;
    const auto operation = std::make_shared<Work>(library.context, [&](Work &self) {
        gate.build(*self.localContext());
        const KXFetchRequest request(u"Track"_s, titledA());
        counted = self.localContext()->count(request, &error);
        callsAtTheEnd = gate.calls();
        // Begun after it was cancelled, which is for the operation to notice.
        countedLater = self.localContext()->count(request);
    });
    qint64 countedByNext = 0;
    const auto next = std::make_shared<Work>(library.context,
        [&](Work &self) { countedByNext = self.localContext()->countForEntity(u"Track"_s, titledA()); });
    queue.addOperations({ operation, next });
    gate.waitUntilReached();
    operation->cancel();
    EXPECT_EQ(library.context->countForEntity(u"Track"_s), rows);
    gate.open();
    queue.waitUntilAllOperationsAreFinished();
    EXPECT_EQ(counted, -1);
    EXPECT_EQ(error.code(), interrupted);
    // The progress handler looks every 1,000 steps, and each row takes some.
    EXPECT_LT(callsAtTheEnd, 1000);
    EXPECT_EQ(countedLater, rows);
    EXPECT_EQ(countedByNext, rows);
}

TEST(StoreOperations, cancelledBeforeTheyStartTheyMayStillWork)
{
    Tracks library(5);
    class Count : public KXManagedObjectContextOperation
    {
    public:
        using KXManagedObjectContextOperation::KXManagedObjectContextOperation;
        void start() override // does not look whether it is cancelled
        {
            setExecuting(true);
            counted = localContext()->countForEntity(u"Track"_s, titledA());
            setExecuting(false);
            setExecuting(false);
        }
        qint64 counted = 0;
    };
    KXOperationQueue queue;
    queue.setSuspended(true);
    const auto count = std::make_shared<Count>(library.context);
    std::atomic<int> completed { 0 };
    count->setCompletionBlock([&] { ++completed; });
    queue.addOperation(count);
    count->cancel();
    queue.setSuspended(false);
    queue.waitUntilAllOperationsAreFinished();
    EXPECT_EQ(count->counted, 5);
    EXPECT_EQ(completed, 1);
}

TEST(StoreOperations, aCancelledSaveLeavesItsChangesForAnotherTry)
{
    Tracks library(0); // opens the writer on this thread
    const KXTestLog log;
    sqlite3 *const writer = Connections::ofThisThread();
    constexpr int rows = 3000;
    const auto operation = std::make_shared<Work>(library.context, [&](Work &self) {
        const auto context = self.localContext();
        for (int i = 0; i < rows; ++i)
            Genre::createInContext(*context)->setName(u"a"_s);
        KXError error;
        EXPECT_FALSE(context->save(&error));
        EXPECT_EQ(error.code(), interrupted);
        EXPECT_TRUE(self.isCancelled());
        EXPECT_EQ(context->insertedObjects().size(), rows);
        const auto also = Genre::createInContext(*context); // keys are not refused
        ASSERT_TRUE(also);
        also->setName(u"b"_s);
        EXPECT_TRUE(context->save(&error)) << error.localizedDescription().toStdString();
    });
    struct Halfway
    {
        KXAbstractOperation &operation;
        int inserts = 0;
    } halfway { *operation };
    sqlite3_update_hook(
        writer,
        [](void *user, int, const char *, const char *table, sqlite3_int64) {
            auto *counted = static_cast<Halfway *>(user);
            if (std::string_view(table).find("Genre") != std::string_view::npos && ++counted->inserts == rows / 2)
                counted->operation.cancel();
        },
        &halfway);
    runToItsEnd(operation);
    EXPECT_LT(halfway.inserts, rows + rows + 1); // the first save ended early
    EXPECT_GE(halfway.inserts, rows + 1 + rows / 2);
    sqlite3_update_hook(writer, nullptr, nullptr);
    EXPECT_EQ(library.context->countForEntity(u"Genre"_s), rows + 1);
    EXPECT_FALSE(log.contains(u"Rolling back"_s));
}

TEST(StoreOperations, objectsMayReadOthersWhileTheyAreRead)
{
    constexpr int threads = 6;
    Tracks library(threads);
    // As many as get a reader at all stand in the midst of a read before each begins another.
    std::latch allReaders(4);
    std::atomic<int> begun { 0 };
    std::atomic<int> right { 0 };
    Track::whenAwakened = [&](Track &track) {
        if (begun++ < 4)
            allReaders.arrive_and_wait();
        right += track.managedObjectContext()->countForEntity(u"Track"_s) == threads;
    };
    KXOperationQueue queue;
    queue.setMaxConcurrentOperationCount(threads);
    for (int i = 0; i < threads; ++i) {
        queue.addOperation(std::make_shared<Work>(library.context, [&](Work &self) {
            EXPECT_EQ(Track::findFirstUsingPredicate(
                          KXPredicate::predicateWithFormat("title == %@", u"a"_s), *self.localContext())
                          ->title(),
                u"a"_s);
        }));
    }
    queue.waitUntilAllOperationsAreFinished();
    Track::whenAwakened = nullptr;
    EXPECT_GE(right, threads);
}

// Operations come and go on the same few readers while they are cancelled at random: what was not cancelled is right.
TEST(StoreOperations, interruptionsHitNobodyElse)
{
    constexpr int rows = 400;
    Tracks library(rows);
    const KXTestLog log;
    KXTestRandom random;
    for (int round = KXTestRandom::scaled(60); round > 0; --round) {
        KXOperationQueue queue;
        queue.setMaxConcurrentOperationCount(3);
        std::vector<std::shared_ptr<Work>> operations;
        std::atomic<int> wrong { 0 };
        for (int i = 0; i < 20; ++i) {
            operations.push_back(std::make_shared<Work>(library.context, [&](Work &self) {
                for (int times = 0; times < 5; ++times) {
                    KXError error;
                    const qint64 counted = self.localContext()->count(KXFetchRequest(u"Track"_s, titledA()), &error);
                    wrong += counted != rows && !(counted == -1 && self.isCancelled() && error.code() == interrupted);
                }
            }));
            queue.addOperation(operations.back());
        }
        for (int i = 0; i < 30; ++i) {
            operations[random.between(size_t(0), operations.size() - 1)]->cancel();
            EXPECT_EQ(library.context->countForEntity(u"Track"_s), rows);
        }
        queue.waitUntilAllOperationsAreFinished();
        ASSERT_EQ(wrong, 0);
    }
}

TEST(StoreOperations, aSaveMayBeSentToTheMainContext)
{
    LibraryTest library;
    const auto held = library.genre(u"before"_s);
    ASSERT_TRUE(library.context->save());
    const auto id = held->objectID();
    const auto rename = [&](const QString &name, auto save) {
        std::thread([&] { // whose context is gone when the merge runs
            const auto context = library.otherContext();
            Genre::cast(context->objectWithID(id))->setName(name);
            save(*context);
        })
            .join();
    };
    rename(u"nobody is registered"_s, [](KXManagedObjectContext &context) { EXPECT_TRUE(context.saveOnMainThread()); });
    turnMainLoop();
    EXPECT_EQ(held->name(), u"before"_s);

    const Registered registered(library);
    rename(u"sent"_s, [](KXManagedObjectContext &context) {
        EXPECT_TRUE(context.saveOnMainThread());
        EXPECT_TRUE(context.saveOnMainThread()); // nothing to save
    });
    EXPECT_EQ(held->name(), u"before"_s);
    turnMainLoop();
    EXPECT_EQ(held->name(), u"sent"_s);
    rename(u"kept"_s, [](KXManagedObjectContext &context) { // it listened only during the other save
        Genre::createInContext(context)->setName(u"other"_s);
        EXPECT_TRUE(context.save());
    });
    turnMainLoop();
    EXPECT_EQ(held->name(), u"sent"_s);

    const KXTestLog log;
    rename(QString(), [](KXManagedObjectContext &context) {
        (void)Genre::createInContext(context); // without the name that it must have
        EXPECT_FALSE(context.saveOnMainThread());
        EXPECT_TRUE(context.hasChanges());
    });
    EXPECT_TRUE(log.contains(u"Failed to save: - "_s));
    turnMainLoop();
    EXPECT_EQ(held->name(), u"sent"_s);
}

}
