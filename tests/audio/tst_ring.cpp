// The ring at its limits, between two threads, and at its invariants; tests/fuzz runs it beside a plain queue.

#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <kestrixkit/audio/KXCircularBuffer.h>

#include <support/KXTestRandom.h>

namespace {

const KXStreamFormat ringStereo = KXPlanarFloatFormat(44100, 2);

/// A list of so many buffers, in which frame i of buffer b is 10 * (first + i) + b.
KXAudioBufferListPointer numberedList(quint32 buffers, quint32 frames, int first)
{
    KXAudioBufferListPointer list(KXAllocateABL(KXPlanarFloatFormat(44100, buffers), frames));
    for (quint32 b = 0; b < buffers; ++b) {
        for (quint32 i = 0; i < frames; ++i)
            static_cast<float *>(list->buffers()[b].mData)[i] = float(10 * (first + int(i)) + int(b));
    }
    return list;
}

KXAudioTimeStamp stampAt(double sampleTime)
{
    KXAudioTimeStamp stamp;
    stamp.mSampleTime = sampleTime;
    stamp.mHostTime = quint64(sampleTime * 1000);
    stamp.mFlags = KXAudioTimeStampSampleTimeValid | KXAudioTimeStampHostTimeValid;
    return stamp;
}

float sampleOf(const KXAudioBufferList *list, quint32 buffer, quint32 frame)
{
    return static_cast<const float *>(list->buffers()[buffer].mData)[frame];
}

}

TEST(Ring, takesWholePagesAndShowsTheSameBytesTwice)
{
    const qint32 page = qint32(sysconf(_SC_PAGESIZE));
    const std::pair<qint32, qint32> sizes[] = { { 1, page }, { page, page }, { page + 1, 2 * page } };
    for (const auto &[requested, length] : sizes) {
        KXCircularBuffer ring;
        ASSERT_TRUE(ring.init(requested));
        EXPECT_EQ(ring.length(), length);
        qint32 free = 0;
        auto *bytes = static_cast<char *>(ring.head(&free));
        EXPECT_EQ(free, length);
        bytes[0] = 'x';
        bytes[2 * length - 1] = 'y';
        EXPECT_EQ(bytes[length], 'x');
        EXPECT_EQ(bytes[length - 1], 'y');

        ring.produce(length);
        EXPECT_EQ(ring.head(&free), nullptr);
        ring.consume(length - 3);
        ring.clear();
        ring.clear();
        EXPECT_EQ(ring.tail(&free), nullptr);
        EXPECT_EQ(free, 0);
    }
}

TEST(RingDeathTest, reportsWhatItCannotHave)
{
    KXCircularBuffer ring;
    for (const qint32 wrong : { 0, -1, (1 << 30) + 1 }) {
        ::testing::internal::CaptureStdout();
        EXPECT_FALSE(ring.init(wrong));
        EXPECT_THAT(::testing::internal::GetCapturedStdout(),
            ::testing::MatchesRegex("KXCircularBuffer.cpp:[0-9]+: Buffer allocation: .+\n"));
        EXPECT_EQ(ring.length(), 0);
    }
    ::testing::FLAGS_gtest_death_test_style = "threadsafe";
    const auto withoutDescriptors = [] {
        dup2(2, 1);
        const rlimit none { 3, 3 };
        setrlimit(RLIMIT_NOFILE, &none);
        KXCircularBuffer small;
        _exit(small.init(4096) ? 1 : 0);
    };
    EXPECT_EXIT(withoutDescriptors(), ::testing::ExitedWithCode(0), "Buffer allocation: Too many open files");
}

TEST(Ring, fillsUpToTheLastByte)
{
    KXCircularBuffer ring;
    ASSERT_TRUE(ring.init(1));
    const auto free = quint32(ring.length());
    EXPECT_EQ(ring.prepareEmptyAudioBufferList(1, free - 96 + 1), nullptr);
    EXPECT_EQ(ring.prepareEmptyAudioBufferList(2, (free - 112) / 2 + 1), nullptr);
    // The sum of the parts fits here, but not with every buffer at a multiple of 16.
    EXPECT_EQ(ring.prepareEmptyAudioBufferList(3, (free - 128) / 3 - 1), nullptr);
    ASSERT_NE(ring.prepareEmptyAudioBufferList(1, free - 96), nullptr);
    ring.produceAudioBufferList();
    EXPECT_EQ(ring.fillCount(), ring.length());
    EXPECT_EQ(ring.prepareEmptyAudioBufferList(1, 0), nullptr);
    EXPECT_TRUE(ring.copyAudioBufferList(*numberedList(1, 1, 0), nullptr, 0, ringStereo)); // nothing always fits
    ring.clear();

    // A producer may store less than it prepared.
    KXAudioBufferList *list = ring.prepareEmptyAudioBufferList(2, 400);
    ASSERT_TRUE(list);
    list->buffers()[1].mDataByteSize = 100;
    ring.produceAudioBufferList();
    EXPECT_EQ(ring.fillCount(), 112 + 400 + 112);
    EXPECT_EQ(qint64(reinterpret_cast<quintptr>(list->buffers()[1].mData) % 16), 0);
}

TEST(Ring, movesTimeAlongWithPartsTakenAndStopsAtGaps)
{
    KXCircularBuffer ring;
    ASSERT_TRUE(ring.init(1 << 16));
    const std::pair<double, quint32> blocks[] = { { 100, 50 }, { 150, 50 }, { 203.9, 10 }, { 1000, 5 } };
    for (const auto &[time, frames] : blocks) {
        const KXAudioTimeStamp stamp = stampAt(time);
        ASSERT_TRUE(ring.copyAudioBufferList(*numberedList(2, 60, int(time)), &stamp, frames, ringStereo));
    }
    KXAudioTimeStamp stamp;
    EXPECT_EQ(ring.peek(&stamp, ringStereo), 115U);
    EXPECT_EQ(ring.peekContiguous(&stamp, ringStereo, 2), 100U); // 3.9 frames too late counts as 3
    EXPECT_EQ(ring.peekContiguous(&stamp, ringStereo, 3), 110U);
    ring.consumeNextBufferListPartial(7, ringStereo);
    EXPECT_EQ(sampleOf(ring.nextBufferList(&stamp), 1, 0), 1071);
    EXPECT_EQ(stamp.mSampleTime, 107);
    EXPECT_EQ(stamp.mHostTime, 100000 + quint64(7 / 44100.0 * 1e9));
    ring.consumeNextBufferListPartial(1000, ringStereo); // never more than one list
    EXPECT_EQ(ring.peek(&stamp, ringStereo), 65U);
    EXPECT_EQ(stamp.mSampleTime, 150);
    quint32 frames = 60;
    ring.dequeueBufferListFrames(&frames, nullptr, &stamp, ringStereo);
    EXPECT_EQ(frames, 60U);
    EXPECT_EQ(ring.peek(&stamp, ringStereo), 5U);
    EXPECT_EQ(stamp.mSampleTime, 1000);
}

TEST(RingDeathTest, brokenInvariantsStopTheProcess)
{
    ::testing::FLAGS_gtest_death_test_style = "threadsafe";
    KXCircularBuffer ring;
    ASSERT_TRUE(ring.init(4096));
    const auto list = numberedList(2, 100, 0);
    EXPECT_DEATH(ring.produce(ring.length() + 1), "buffer->fillCount <= buffer->length");
    EXPECT_DEATH(ring.consume(1), "buffer->fillCount >= 0");
    EXPECT_DEATH(
        {
            (void)ring.prepareEmptyAudioBufferList(1, 100);
            (void)ring.nextBufferListAfter(list.get());
        },
        "list lies inside the stored region");
    EXPECT_DEATH((void)ring.copyAudioBufferList(*list, nullptr, 101, ringStereo),
        "byteCount <= inBufferList->mBuffers\\[0\\].mDataByteSize");
    EXPECT_DEATH(
        {
            KXAudioBufferList *prepared = ring.prepareEmptyAudioBufferList(1, 100);
            prepared->mBuffers[0].mDataByteSize = 200;
            ring.produceAudioBufferList();
        },
        "calculatedLength <= block->totalLength && calculatedLength <= availableBytes");
    EXPECT_DEATH(
        {
            ring.produce(8);
            (void)ring.prepareEmptyAudioBufferList(1, 16);
        },
        "block & 0xF");
    EXPECT_DEATH(
        {
            ring.produce(ring.length());
            ring.produceAudioBufferList();
        },
        "Assertion failed: \\(block\\)");
    EXPECT_DEATH(
        {
            (void)ring.copyAudioBufferList(*list, nullptr, 100, ringStereo);
            quint32 frames = 100;
            ring.dequeueBufferListFrames(&frames, numberedList(2, 99, 0).get(), nullptr, ringStereo);
        },
        "bytesCopied \\+ bytesToCopy <= outputBufferList->mBuffers\\[i\\].mDataByteSize");
    EXPECT_DEATH(KXDeallocateABL(nullptr), "bufferList != NULL");
}

TEST(Ring, carriesEverythingBetweenTwoThreads)
{
    KXTestRandom random;
    const int total = KXTestRandom::scaled(100'000'000);
    KXCircularBuffer ring;
    ASSERT_TRUE(ring.init(20000));
    std::mt19937 producing(random.between(0U, 1000000U));
    std::thread producer([&] {
        for (int at = 0; at < total;) {
            const quint32 frames = std::min<quint32>(producing() % 300 + 1, quint32(total - at));
            KXAudioBufferList *list = ring.prepareEmptyAudioBufferList(2, frames * 4);
            if (!list) {
                std::this_thread::yield();
                continue;
            }
            for (quint32 i = 0; i < frames; ++i) {
                static_cast<quint32 *>(list->buffers()[0].mData)[i] = quint32(at) + i;
                static_cast<quint32 *>(list->buffers()[1].mData)[i] = ~(quint32(at) + i);
            }
            const KXAudioTimeStamp stamp = stampAt(at);
            ring.produceAudioBufferList(&stamp);
            at += int(frames);
        }
    });
    const KXAudioBufferListPointer taken(KXAllocateABL(ringStereo, 500));
    qint64 wrong = 0;
    for (int at = 0; at < total;) {
        auto frames = random.between<quint32>(1, 500);
        KXAudioTimeStamp stamp;
        ring.dequeueBufferListFrames(&frames, taken.get(), &stamp, ringStereo);
        if (frames == 0)
            std::this_thread::yield();
        else
            wrong += stamp.mSampleTime != at;
        for (quint32 i = 0; i < frames; ++i, ++at) {
            wrong += static_cast<const quint32 *>(taken->buffers()[0].mData)[i] != quint32(at);
            wrong += static_cast<const quint32 *>(taken->buffers()[1].mData)[i] != ~quint32(at);
        }
    }
    producer.join();
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(ring.fillCount(), 0);
}

TEST(BufferList, hasABufferAChannelOrOneForAll)
{
    KXStreamFormat format = ringStereo;
    KXAudioBufferListPointer list(KXAllocateABL(format, 10));
    ASSERT_EQ(list->mNumberBuffers, 2U);
    EXPECT_EQ(list->buffers()[1].mNumberChannels, 1U);
    EXPECT_EQ(list->buffers()[1].mDataByteSize, 40U);
    EXPECT_EQ(sampleOf(list.get(), 1, 9), 0);

    format.mFormatFlags &= ~quint32(KXAudioFormatFlagIsNonInterleaved);
    format.mBytesPerFrame = 8;
    list.reset(KXAllocateABL(format, 10));
    ASSERT_EQ(list->mNumberBuffers, 1U);
    EXPECT_EQ(list->mBuffers[0].mNumberChannels, 2U);
    EXPECT_EQ(list->mBuffers[0].mDataByteSize, 80U);
}
