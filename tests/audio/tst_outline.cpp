// The outline of how a sound begins: kept by other encodings, different for other sounds.

#include <cmath>

#include <QTemporaryDir>
#include <gtest/gtest.h>

#include <kestrixkit/audio/KXAudioOutline.h>
#include <support/AudioFiles.h>

using namespace Qt::StringLiterals;

namespace {

/// Notes and noises that come and go, decided by the seed.
AudioSamples makeTune(unsigned seed, double seconds, int rate = 44100)
{
    AudioSamples sound { rate, { std::vector<float>(size_t(seconds * rate)) } };
    unsigned state = seed * 2654435761U + 1;
    const auto next = [&] { return (state = state * 1664525U + 1013904223U) >> 8; };
    double pitch = 0, level = 0, noise = 0, phase = 0;
    for (size_t i = 0; i < sound.frames(); ++i) {
        if (i % size_t(rate / 4) == 0) {
            pitch = 160 * std::pow(2.0, double(next() % 48) / 12);
            level = 0.1 + 0.4 * double(next() % 100) / 100;
            noise = 0.3 * double(next() % 100) / 100;
        }
        phase += pitch / rate;
        const double saw = 2 * (phase - std::floor(phase)) - 1;
        sound.channels[0][i] = float(level * saw + noise * (double(next() % 2000) / 1000 - 1) * 0.5);
    }
    return sound;
}

const AudioRecipe flac { "flac", "flac", "flac", "flac" };

} // namespace

TEST(Outline, survivesOtherEncodingsAndTellsSoundsApart)
{
    const QTemporaryDir folder;
    const AudioRecipe lossy[] { { "mp3", "mp3", "mp3", "libmp3lame", 128'000 },
        { "low", "mp3", "mp3", "libmp3lame", 64'000 }, { "vorbis", "ogg", "ogg", "libvorbis", 96'000 },
        { "aac", "m4a", "mp4", "aac", 96'000 } };
    std::vector<KXAudioOutline> originals;
    for (unsigned seed = 1; seed <= 6; ++seed) {
        ASSERT_TRUE(QDir(folder.path()).mkpath(QString::number(seed)));
        const QString place = folder.filePath(QString::number(seed));
        const AudioSamples tune = makeTune(seed, 12);
        const QUrl original = QUrl::fromLocalFile(writeSound(tune, flac, place));
        const KXAudioOutline outline = KXAudioOutline::ofFile(original);
        ASSERT_EQ(outline.bytes().size(), 64);
        EXPECT_EQ(KXAudioOutline::fromBytes(outline.bytes()), outline);
        for (const AudioRecipe &recipe : lossy) {
            const auto other = KXAudioOutline::ofFile(QUrl::fromLocalFile(writeSound(tune, recipe, place)));
            EXPECT_GE(outline.likeness(other), KXAudioOutline::LikeFrom) << recipe.name << " of tune " << seed;
        }
        for (const KXAudioOutline &different : originals)
            EXPECT_LT(outline.likeness(different), 0.65);
        originals.push_back(outline);
    }
}

TEST(Outline, whatSaysNothingHasNone)
{
    const QTemporaryDir folder;
    AudioSamples still { 44100, { std::vector<float>(44100 * 10) } };
    EXPECT_TRUE(KXAudioOutline::ofFile(QUrl::fromLocalFile(writeSound(still, flac, folder.path()))).isEmpty());
    for (size_t i = 0; i < still.frames(); ++i)
        still.channels[0][i] = 0.5F * float(std::sin(0.06 * double(i)));
    EXPECT_TRUE(KXAudioOutline::ofFile(QUrl::fromLocalFile(writeSound(still, flac, folder.path()))).isEmpty());
    const AudioSamples blip = makeTune(1, 1);
    EXPECT_TRUE(KXAudioOutline::ofFile(QUrl::fromLocalFile(writeSound(blip, flac, folder.path()))).isEmpty());
    KXError error;
    EXPECT_TRUE(KXAudioOutline::ofFile(QUrl::fromLocalFile(folder.filePath(u"absent"_s)), {}, &error).isEmpty());
    EXPECT_TRUE(error);
    for (const qsizetype size : { 0, 2, 15, 17, 66 })
        EXPECT_TRUE(KXAudioOutline::fromBytes(QByteArray(size, 'a')).isEmpty()) << size;
    EXPECT_EQ(KXAudioOutline().likeness(KXAudioOutline()), 0);
}
