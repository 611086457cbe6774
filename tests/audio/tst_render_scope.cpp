// What the render thread does beside rendering: nothing.

#include <array>

#include <QLoggingCategory>
#include <QTemporaryDir>
#include <QTest>
#include <gtest/gtest.h>

#include <kestrixkit/audio/KXHandCrankedAudioOutput.h>
#include <kestrixkit/audio/KXMultiTrackAudioPlayer.h>

#include <support/AudioFiles.h>
#include <support/KXTestRandom.h>
#include <support/RenderScope.h>

namespace {

/// Counts what its passes do, and can be made to do something forbidden.
struct CountingOutput : KXHandCrankedAudioOutput
{
    RenderScopeCounts counts;
    std::atomic<long> passes = 0;
    std::atomic<void *> deliberate = nullptr;
    std::atomic<bool> misbehaves = false;

    int renderPass(KXAudioRenderSource &source, float *left, float *right, int frames) override
    {
        const RenderScope scope(counts);
        ++passes;
        if (misbehaves.exchange(false))
            deliberate = std::malloc(1);
        return KXHandCrankedAudioOutput::renderPass(source, left, right, frames);
    }
};

struct ScopeItem : KXAudioPlayerItem
{
    explicit ScopeItem(const QString &path)
        : url(QUrl::fromLocalFile(path))
    {
    }
    QUrl audioFileURL() const override { return url; }
    QUrl url;
};

}

using ScopeItems = std::array<std::shared_ptr<ScopeItem>, 2>;

static void doAnything(KXMultiTrackAudioPlayer &player, const ScopeItems &items, KXTestRandom &random)
{
    switch (random.between(0, 13)) {
    case 0:
        player.playItem(items[random.between(size_t(0), size_t(1))]);
        break;
    case 1:
        player.stop();
        break;
    case 2:
    case 3:
        player.resume();
        break;
    case 4:
        player.muteChannel(random.between(0, 3));
        break;
    case 5:
        player.unmuteChannel(random.between(0, 3));
        break;
    case 6:
        player.setVolume(random.between(0.0F, 1.0F));
        break;
    case 12:
        player.setStemGain(random.between(0, 1), random.between(0.0F, 2.0F));
        break;
    case 13:
        player.setStemSoloed(random.between(0, 1), random.chance(0.5));
        break;
    case 7:
        QTest::qWait(1);
        break;
    default:
        player.setTime(random.between(0.0, 9.0));
    }
}

TEST(RenderScope, passesNeitherLockNorAllocateNorCall)
{
    if (!RenderScope::isAvailable())
        GTEST_SKIP() << "the sanitizer has wrapped these functions itself";
    const QTemporaryDir dir;
    const ScopeItems items {
        std::make_shared<ScopeItem>(writeSound(makeSound(400'000, 4), { "a", "wav", "wav", "pcm_s16le" }, dir.path())),
        std::make_shared<ScopeItem>(writeSound(makeSound(100'000, 2), { "b", "flac", "flac", "flac" }, dir.path())),
    };
    const auto output = std::make_shared<CountingOutput>();
    KXMultiTrackAudioPlayer player(output);
    KXTestRandom random;
    const int passes = KXTestRandom::scaled(1'000'000);
    std::atomic<bool> ends = false;
    std::thread render([&] {
        float left[2048], right[2048];
        std::minstd_rand sizes(1);
        while (!ends)
            output->crank(left, right, int(sizes() % 300));
    });
    while (output->passes < passes) {
        doAnything(player, items, random);
        if (player.state() == KXAudioPlayerStateFinished || player.state() == KXAudioPlayerStateIdle)
            player.playItem(items[0]);
    }
    const RenderScopeCounts &counts = output->counts;
    EXPECT_EQ(counts.allocations, 0);
    EXPECT_EQ(counts.frees, 0);
    EXPECT_EQ(counts.mutexes, 0);
    EXPECT_EQ(counts.conditions, 0);
    EXPECT_EQ(counts.writes, 0);
    EXPECT_EQ(counts.systemCalls, 0);
    // The decoder is woken, and by nothing else; whether it ever waits in a short run is the scheduler's choice.
    RecordProperty("futex wakes", int(counts.wakes));

    // What is forbidden would have been seen.
    output->misbehaves = true;
    while (output->misbehaves) {
        player.playItem(items[0]);
        QTest::qWait(1);
    }
    ends = true;
    render.join();
    std::free(output->deliberate);
    EXPECT_EQ(counts.allocations, 1);
    EXPECT_EQ(counts.forbidden(), 1);
}
