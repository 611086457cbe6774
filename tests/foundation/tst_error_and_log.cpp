#include <thread>

#include <gtest/gtest.h>

#include <kestrixkit/foundation/KXCheck.h>
#include <kestrixkit/foundation/KXError.h>
#include <kestrixkit/foundation/KXException.h>
#include <kestrixkit/foundation/KXLog.h>

#include <support/KXTestLog.h>
#include <support/KXTestPrint.h>

using namespace Qt::StringLiterals;

namespace error_test {

TEST(Error, IsEmptyUntilSomethingWentWrong)
{
    static_assert(sizeof(KXError) == sizeof(void *));
    KXError error;
    EXPECT_FALSE(error);
    EXPECT_EQ(error.code(), 0);
    EXPECT_TRUE(error.userInfo().isEmpty());
    EXPECT_TRUE(error.callStack().isEmpty());
    EXPECT_FALSE(KXSetError(nullptr, KXError(u"d"_s, 1, u"x"_s)));
    EXPECT_FALSE(
        KXSetError(&error, KXError(KXKestrixKitErrorDomain, 8001, u"No models found in bundle"_s, { { u"k"_s, 2 } })));
    EXPECT_TRUE(error);
    EXPECT_EQ(error.domain(), u"com.kestrix.KestrixKit"_s);
    EXPECT_EQ(error.code(), 8001);
    EXPECT_EQ(error.userInfo().value(u"k"_s), 2);
    const KXError copy = std::exchange(error, {});
    EXPECT_FALSE(error);
    EXPECT_EQ(copy.localizedDescription(), u"No models found in bundle"_s);
}

__attribute__((noinline)) KXError madeDeeply(int depth)
{
    if (depth == 0)
        return KXError(u"d"_s, 1, u"deep"_s);
    KXError error = madeDeeply(depth - 1);
    asm volatile("" ::: "memory"); // no tail call: each level is a frame
    return error;
}

TEST(Error, CapturesWhereItWasMade)
{
    const KXError error = madeDeeply(3);
    const QStringList stack = error.userInfo().value(KXErrorStackTraceKey).toStringList();
    EXPECT_EQ(stack, error.callStack());
    EXPECT_GT(stack.size(), 4);
    EXPECT_EQ(madeDeeply(300).callStack().size(), 100);
    EXPECT_FALSE(stack.first().contains("KXError"_L1)) << stack.first().toStdString();

    const QStringList given { u"frame"_s };
    const KXError foreign(u"d"_s, 1, u"x"_s, { { KXErrorStackTraceKey, given } });
    EXPECT_EQ(foreign.callStack(), given);
    const KXError again = KXError::errorWithError(foreign);
    EXPECT_NE(again.callStack(), given);
    EXPECT_EQ(again.code(), 1);
    EXPECT_FALSE(KXError::errorWithError({}));

    const KXException exception(u"KXUnknownEntity"_s, u"no entity Trakc"_s);
    EXPECT_STREQ(exception.what(), "KXUnknownEntity: no entity Trakc");
    EXPECT_FALSE(exception.callStack().symbols().isEmpty());
}

TEST(Log, IsGatedBeforeItsArgumentsAreEvaluated)
{
    const int former = KXKestrixKitLogLevel.load();
    int evaluated = 0;
    const auto argument = [&] { return ++evaluated; };
    {
        const KXTestLog log;
        KXKestrixKitLogLevel = KXLogLevelError | KXLogLevelInfo;
        KXLogError(store, "Failed to save: %@", argument());
        KXLogWarning(store, "never %@", argument());
        KXLogInfo(audio, "100%% of %@", u"%s%n"_s); // what is logged is no format
        KXLogDebug(audio, "never %@", argument());
        KXKestrixKitLogLevel = 0;
        KXLogError(store, "never %@", argument());
        EXPECT_EQ(
            log.lines(), QStringList({ u"kestrix.store: Failed to save: 1"_s, u"kestrix.audio: 100% of %s%n"_s }));
    }
    EXPECT_EQ(evaluated, 1);
    KXKestrixKitLogLevel = former;
}

TEST(Log, TakesMessagesFromManyThreads)
{
    const KXTestLog log;
    std::vector<std::thread> threads;
    for (int number = 0; number < 4; ++number)
        threads.emplace_back([number] {
            for (int i = 0; i < 50; ++i)
                KXLogError(foundation, "thread %d message %d", number, i);
        });
    for (auto &thread : threads)
        thread.join();
    EXPECT_EQ(log.lines().size(), 200);
}

#if defined(KX_CHECKS) && !defined(KX_SANITIZED)
TEST(LogDeathTest, ACheckThatFailsStopsTheProcess)
{
    KX_CHECK(1 + 1 == 2, "never");
    EXPECT_DEATH(KX_CHECK(1 + 1 == 3, "index %d of %d", 7, 3), "index 7 of 3.*1 \\+ 1 == 3");
}
#endif

}
