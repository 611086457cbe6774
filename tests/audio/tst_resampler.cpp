// Sound at the rate that a device has.

#include <cmath>

#include <gtest/gtest.h>

#include <kestrixkit/audio/KXAudioResampler_p.h>

#include <support/KXTestRandom.h>
#include <support/RenderScope.h>

namespace {

/// A sine on the left, half of it on the right, for so many frames.
struct SineSource : KXAudioRenderSource
{
    double rate = 44'100, frequency = 1000;
    qint64 at = 0, end = 1 << 30;
    int render(float *left, float *right, int frames) noexcept override
    {
        const int there = int(std::min<qint64>(frames, end - at));
        for (int i = 0; i < frames; ++i) {
            left[i] = i < there ? float(std::sin(2 * M_PI * frequency * double(at + i) / rate)) : 0.0F;
            right[i] = left[i] / 2;
        }
        at += there;
        return there;
    }
};

}

TEST(Resampler, keepsPitchLevelAndSides)
{
    KXTestRandom random;
    for (const auto &[from, to] : { std::pair(44'100.0, 48'000.0), { 48'000.0, 44'100.0 }, { 44'100.0, 192'000.0 },
             { 8000.0, 48'000.0 }, { 192'000.0, 44'100.0 } }) {
        KXAudioResampler resampler(from, to);
        ASSERT_TRUE(resampler.isValid());
        SineSource source;
        source.rate = from;
        std::vector<float> left, right;
        while (left.size() < size_t(to)) {
            float sides[2][4096];
            const int frames = random.between(1, 4096);
            EXPECT_EQ(resampler.render(source, sides[0], sides[1], frames), frames);
            left.insert(left.end(), sides[0], sides[0] + frames);
            right.insert(right.end(), sides[1], sides[1] + frames);
        }
        // As many frames were taken as time has passed, but for one pull and the filter.
        EXPECT_NEAR(double(source.at) / from, double(left.size()) / to, 0.02 + 200 / from);
        int crossings = 0;
        for (size_t i = 2000; i < 2000 + size_t(to) / 2; ++i) {
            crossings += left[i - 1] < 0 && left[i] >= 0;
            ASSERT_NEAR(right[i], left[i] / 2, 1e-6);
        }
        EXPECT_NEAR(crossings, 500, 1);
        const float peak = *std::max_element(left.begin() + 2000, left.end());
        EXPECT_NEAR(peak, 1, 0.02);
    }
    EXPECT_FALSE(KXAudioResampler(0, 44'100).isValid());
}

TEST(Resampler, tellsSilenceFromSoundAndForgets)
{
    KXAudioResampler resampler(44'100, 48'000);
    SineSource source;
    source.end = 1000;
    float left[512], right[512];
    int heard = 0;
    for (int i = 0; i < 10; ++i)
        heard += resampler.render(source, left, right, 512);
    EXPECT_NEAR(heard, 1088, 600);
    EXPECT_EQ(source.at, 1000);
    for (const float sample : left)
        EXPECT_EQ(sample, 0);
    source.at = 0;
    resampler.render(source, left, right, 512);
    resampler.reset();
    source.at = source.end;
    EXPECT_EQ(resampler.render(source, left, right, 512), 0);
    for (const float sample : left)
        EXPECT_EQ(sample, 0);
}

TEST(Resampler, rendersWithoutLockAllocationOrCall)
{
    if (!RenderScope::isAvailable())
        GTEST_SKIP() << "the sanitizer has wrapped these functions itself";
    KXTestRandom random;
    for (const auto &[from, to] :
        { std::pair(44'100.0, 48'000.0), { 48'000.0, 44'100.0 }, { 8000.0, 192'000.0 }, { 192'000.0, 8000.0 } }) {
        KXAudioResampler resampler(from, to);
        SineSource source;
        RenderScopeCounts counts;
        float left[4096], right[4096];
        for (int pass = KXTestRandom::scaled(20'000); pass > 0; --pass) {
            const int frames = random.between(0, pass % 100 ? 600 : 4096);
            const RenderScope scope(counts);
            resampler.render(source, left, right, frames);
        }
        EXPECT_EQ(counts.forbidden(), 0) << from << " " << to;
        EXPECT_EQ(counts.allocations, 0);
    }
}
