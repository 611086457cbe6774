// The waveform of every zoom beside brute force over the samples.

#include <cmath>

#include <QTemporaryDir>
#include <gtest/gtest.h>

#include <kestrixkit/audio/KXAudioFile.h>
#include <kestrixkit/audio/KXWaveformWindow.h>

#include <support/AudioFiles.h>
#include <support/KXTestLog.h>
#include <support/KXTestRandom.h>

using namespace Qt::StringLiterals;

namespace {

const AudioRecipe floats { "floats", "wav", "wav", "pcm_f32le" };

KXWaveformColumn brute(const std::vector<std::vector<float>> &channels, qint64 from, qint64 to)
{
    KXWaveformColumn column { INFINITY, -INFINITY, 0 };
    double energy = 0;
    qint64 count = 0;
    for (const std::vector<float> &channel : channels) {
        for (qint64 i = std::max<qint64>(0, from); i < std::min(to, qint64(channel.size())); ++i, ++count) {
            column.least = std::min(column.least, channel[size_t(i)]);
            column.greatest = std::max(column.greatest, channel[size_t(i)]);
            energy += double(channel[size_t(i)]) * double(channel[size_t(i)]);
        }
    }
    column.rms = float(std::sqrt(energy / double(std::max<qint64>(1, count))));
    return count > 0 ? column : KXWaveformColumn();
}

/// Extremes not inside of what they should be, and all of it within a step.
void expectWithin(const KXWaveformColumns &got, const KXWaveformColumns &wanted, float step, const char *what)
{
    ASSERT_EQ(got.size(), wanted.size());
    const float slack = 1e-6F * std::max(1.0F, step * 127);
    for (size_t i = 0; i < got.size(); ++i) {
        EXPECT_LE(got[i].least, wanted[i].least + slack) << what << " " << i;
        EXPECT_GE(got[i].greatest, wanted[i].greatest - slack) << what << " " << i;
        EXPECT_NEAR(got[i].least, wanted[i].least, step + slack) << what << " " << i;
        EXPECT_NEAR(got[i].greatest, wanted[i].greatest, step + slack) << what << " " << i;
        EXPECT_NEAR(got[i].rms, wanted[i].rms, step + slack) << what << " " << i;
    }
}

float stepOf(const std::vector<std::vector<float>> &channels)
{
    const KXWaveformColumn all = brute(channels, 0, qint64(channels[0].size()));
    return std::max(all.greatest, -all.least) / 127 * 1.0001F;
}

/// What is heard left and right of the stems with these gains.
std::vector<std::vector<float>> mixed(const AudioSamples &sound, const std::vector<float> &gains)
{
    std::vector<std::vector<float>> sides;
    for (size_t side = 0; side < 2; ++side) {
        std::vector<float> mix(sound.frames());
        bool isHeard = false;
        for (size_t c = side; c < sound.channels.size(); c += 2) {
            const float gain = gains[c / 2];
            isHeard = isHeard || gain != 0;
            for (size_t i = 0; i < mix.size(); ++i)
                mix[i] += gain * sound.channels[c][i];
        }
        if (isHeard)
            sides.push_back(mix);
    }
    return sides;
}

}

class Pyramid : public ::testing::Test
{
protected:
    QUrl write(const AudioSamples &sound, const AudioRecipe &recipe = floats)
    {
        return QUrl::fromLocalFile(writeSound(sound, recipe, m_dir.path()));
    }
    QTemporaryDir m_dir;
};

TEST_F(Pyramid, isBruteForceAtEveryZoom)
{
    KXTestRandom random;
    struct Case
    {
        size_t frames;
        int channels, rate;
    };
    // One frame more and less than cells and pages of them; so long that cells are merged several times.
    const Case cases[] = { { 1, 1, 8000 }, { 63, 2, 44'100 }, { 64, 3, 48'000 }, { 65, 2, 8000 },
        { 8192 * 64, 1, 96'000 }, { 8192 * 64 + 1, 2, 192'000 }, { 700'000, 5, 44'100 }, { 150'001, 32, 44'100 },
        { size_t(random.between(1, 2'000'000)), 2, 44'100 } };
    for (const Case &each : cases) {
        const AudioSamples sound = makeSound(each.frames, each.channels, each.rate);
        const auto pyramid = KXWaveformPyramid::read(write(sound));
        ASSERT_TRUE(pyramid);
        EXPECT_EQ(pyramid->frames(), qint64(each.frames));
        EXPECT_EQ(pyramid->channels(), each.channels);
        EXPECT_EQ(pyramid->sampleRate(), each.rate);
        EXPECT_LE(pyramid->toBytes().size(), KXWaveformPyramid::MostBytes);
        EXPECT_TRUE(pyramid->framesPerCell() == 64 || pyramid->cells() > 300);
        std::vector<int> some;
        for (int c = 0; c < each.channels; c += random.between(1, 2))
            some.push_back(c);
        std::vector<std::vector<float>> chosen;
        for (const int c : some)
            chosen.push_back(sound.channels[size_t(c)]);
        for (qint64 width = pyramid->framesPerCell(); width < 2 * qint64(each.frames) + 64; width *= 2) {
            const int count = int((qint64(each.frames) + width - 1) / width);
            KXWaveformColumns wanted, exact;
            for (int i = 0; i < count; ++i)
                wanted.push_back(brute(chosen, i * width, (i + 1) * width));
            expectWithin(pyramid->columnsOfChannels(some, 0, count * width, count), wanted, stepOf(chosen), "zoom");
        }
        EXPECT_EQ(KXWaveformPyramid::fromBytes(pyramid->toBytes())->toBytes(), pyramid->toBytes());
    }
}

TEST_F(Pyramid, followsEverySetOfUpToFourStems)
{
    for (const int channels : { 2, 5, 7, 8 }) {
        const AudioSamples sound = makeSound(200'000, channels);
        const auto pyramid = KXWaveformPyramid::read(write(sound));
        ASSERT_TRUE(pyramid);
        const qint64 width = pyramid->framesPerCell() * 3;
        const int count = int(200'000 / width);
        for (unsigned set = 0; set < 1U << pyramid->stems(); ++set) {
            std::vector<float> gains;
            for (int stem = 0; stem < pyramid->stems(); ++stem)
                gains.push_back(set >> stem & 1 ? 0.5F : 0);
            const auto sides = mixed(sound, gains);
            KXWaveformColumns wanted;
            for (int i = 0; i < count; ++i)
                wanted.push_back(brute(sides, i * width, (i + 1) * width));
            bool isEstimate = true;
            expectWithin(pyramid->columnsOfStems(gains, 0, count * width, count, &isEstimate), wanted,
                sides.empty() ? 0 : stepOf(sides), "set");
            EXPECT_FALSE(isEstimate);
            const auto window = KXWaveformWindow { 0, count * width, count, {}, gains }.read(write(sound));
            expectWithin(*window, wanted, 1e-5F, "window");
        }
    }
    // Beyond that it says that it guesses, and the guess is no worse than adding up.
    const AudioSamples sound = makeSound(100'000, 12);
    const auto pyramid = KXWaveformPyramid::read(write(sound));
    bool isEstimate = true;
    const std::vector<float> all(6, 1.0F), some { 1, 0, 1, 0.3F, 0, 0 };
    const auto whole = pyramid->columnsOfStems(all, 0, 100'000, 1, &isEstimate);
    EXPECT_FALSE(isEstimate);
    const auto guess = pyramid->columnsOfStems(some, 0, 100'000, 1, &isEstimate);
    EXPECT_TRUE(isEstimate);
    const KXWaveformColumn exact = brute(mixed(sound, some), 0, 100'000);
    EXPECT_NEAR(guess[0].rms, exact.rms, 0.3 * double(exact.rms));
    EXPECT_LT(guess[0].greatest, whole[0].greatest);
    EXPECT_GT(guess[0].greatest, 0.5F * exact.greatest);
}

TEST_F(Pyramid, windowsAreExactWhereverTheyBegin)
{
    KXTestRandom random;
    const AudioSamples sound = makeSound(30'000, 3);
    const QUrl url = write(sound);
    for (int round = 0; round < 40; ++round) {
        const qint64 from = random.between<qint64>(-3000, 31'000);
        const int count = random.between(1, 700);
        // Shorter than its columns are many, long, and without any length.
        const qint64 to = round % 5 == 0 ? from : from + random.between<qint64>(0, round % 2 ? 400 : 40'000);
        const auto got = KXWaveformWindow { from, to, count, { 2 }, {} }.read(url);
        ASSERT_TRUE(got);
        KXWaveformColumns wanted;
        for (int i = 0; i < count; ++i) {
            const qint64 start = from + (to - from) * i / count;
            const qint64 end = std::max(start + 1, from + (to - from) * (i + 1) / count);
            wanted.push_back(brute({ sound.channels[2] }, start, end));
        }
        expectWithin(*got, wanted, 1e-5F, "window");
    }
}

TEST_F(Pyramid, takesSamplesAsTheyCome)
{
    const float nan = std::numeric_limits<float>::quiet_NaN(), infinite = std::numeric_limits<float>::infinity();
    struct Case
    {
        const char *name;
        std::vector<float> samples;
        KXWaveformColumn wanted;
    };
    const Case cases[] = { { "silence", std::vector<float>(5000), {} },
        { "offset", std::vector<float>(5000, -0.25F), { -0.25F, -0.25F, 0.25F } },
        { "beyond full scale", { 1.5F, -1.1F }, { -1.1F, 1.5F, 1.31529F } },
        { "no numbers", { nan, 0.5F, nan, nan }, { 0, 0.5F, 0.25F } },
        { "endless", { infinite, -infinite, 0, 0 }, { -1e6F, 1e6F, 707'107 } } };
    for (const Case &each : cases) {
        const auto pyramid = KXWaveformPyramid::read(write({ 44'100, { each.samples } }));
        ASSERT_TRUE(pyramid) << each.name;
        const float step = std::max(each.wanted.greatest, -each.wanted.least) / 127 + 1e-6F;
        expectWithin(pyramid->columnsOfChannels({}, 0, pyramid->frames(), 1), { each.wanted }, step, each.name);
    }
    std::vector<float> square(44'100);
    for (size_t i = 0; i < square.size(); ++i)
        square[i] = i / 50 % 2 ? 1.0F : -1.0F;
    const auto pyramid = KXWaveformPyramid::read(write({ 44'100, { square } }));
    for (const KXWaveformColumn &column : pyramid->columnsOfChannels({}, 0, 44'100, 100)) {
        EXPECT_EQ(column.least, -1);
        EXPECT_EQ(column.greatest, 1);
        EXPECT_NEAR(column.rms, 1, 1e-6);
    }
    std::vector<float> swells(441'000);
    for (size_t i = 0; i < swells.size(); ++i)
        swells[i] = float(i % 2) * (i / 44'100 == 6 ? 0.9F : 0.2F);
    EXPECT_NEAR(KXWaveformPyramid::read(write({ 44'100, { swells } }))->loudestTime(1), 6, 0.01);
}

TEST_F(Pyramid, refusesWhatItIsNot)
{
    const QByteArray bytes = KXWaveformPyramid::read(write(makeSound(3000, 2)))->toBytes();
    KXTestRandom random;
    KXError error;
    EXPECT_FALSE(KXWaveformPyramid::fromBytes({}, &error));
    EXPECT_EQ(error.code(), KXWaveformBytesErrorCode);
    for (int round = 0; round < 300; ++round) {
        QByteArray damaged = bytes;
        if (round % 3 == 0)
            damaged.truncate(random.between<qsizetype>(0, bytes.size() - 1));
        else if (round % 3 == 1)
            damaged[random.between<qsizetype>(0, bytes.size() - 1)] ^= char(1 << random.between(0, 7));
        else
            damaged += 'x';
        EXPECT_FALSE(KXWaveformPyramid::fromBytes(damaged));
    }
    for (const int channels : { 33, 64, 255 }) {
        const QString path = writePlainWave(makeSound(1000, channels), m_dir.filePath(u"many.wav"_s));
        EXPECT_FALSE(KXWaveformPyramid::read(QUrl::fromLocalFile(path), {}, &error));
        EXPECT_EQ(error.code(), KXWaveformChannelsErrorCode);
    }
    EXPECT_FALSE(KXWaveformPyramid::read(QUrl::fromLocalFile(m_dir.filePath(u"absent.wav"_s)), {}, &error));
    EXPECT_EQ(error.code(), KXAudioFileErrorCode);
    error = {};
    const auto cancelled = std::make_shared<std::atomic<bool>>(false);
    KXWaveformReading reading { cancelled, [&](double) { *cancelled = true; }, false };
    EXPECT_FALSE(KXWaveformPyramid::read(write(makeSound(2'000'000)), reading, &error));
    EXPECT_FALSE(error);
    // A file that was cut off ends where it ends.
    const QUrl whole = write(makeSound(100'000, 2));
    QFile::resize(whole.toLocalFile(), QFileInfo(whole.toLocalFile()).size() / 2);
    QFile file(whole.toLocalFile());
    ASSERT_TRUE(file.open(QIODevice::ReadWrite));
    file.setFileTime(QDateTime::currentDateTime().addDays(-1), QFileDevice::FileModificationTime);
    EXPECT_NEAR(double(KXWaveformPyramid::read(whole)->frames()), 50'000, 50);
}

TEST_F(Pyramid, loudnessIsTheStandards)
{
    // A sine of 997 Hz at full scale on both sides has 0 LUFS by definition of the scale, to 0.1.
    std::vector<float> sine(48'000 * 3);
    for (size_t i = 0; i < sine.size(); ++i)
        sine[i] = float(std::sin(2 * M_PI * 997 * double(i) / 48'000));
    KXWaveformReading reading;
    reading.measuresLoudness = true;
    const std::vector<float> silence(sine.size());
    const auto loudness = [&](const std::vector<std::vector<float>> &channels) {
        return *KXWaveformPyramid::read(write({ 48'000, channels }), reading)->loudness();
    };
    EXPECT_NEAR(loudness({ sine, sine }), 0, 0.1);
    EXPECT_NEAR(loudness({ sine }), 0, 0.1); // from both sides
    EXPECT_NEAR(loudness({ sine, silence }), -3, 0.1);
    EXPECT_NEAR(loudness({ silence, silence, sine, sine }), 0, 0.1); // the stems' mix
    EXPECT_EQ(loudness({ silence, silence }), -INFINITY);
    EXPECT_FALSE(KXWaveformPyramid::read(write(makeSound(1000)))->loudness());
    std::vector<float> damaged = sine;
    damaged[1000] = std::numeric_limits<float>::quiet_NaN();
    EXPECT_NEAR(loudness({ damaged, sine }), 0, 0.1);
}

TEST_F(Pyramid, fingerprintsAreOfTheSoundAlone)
{
    const AudioSamples sound = makeSound(50'000, 2);
    const AudioRecipe formats[]
        = { floats, { "f", "flac", "flac", "flac" }, { "m", "mp3", "mp3", "libmp3lame", 128'000 },
              { "o", "ogg", "ogg", "libvorbis", 128'000 }, { "a", "m4a", "ipod", "aac", 128'000 } };
    std::vector<KXAudioFingerprint> all;
    for (const AudioRecipe &recipe : formats) {
        const QUrl url = write(sound, recipe);
        const KXAudioFingerprint fingerprint = KXAudioFingerprint::ofFile(url);
        EXPECT_FALSE(fingerprint.isEmpty()) << recipe.name;
        EXPECT_EQ(KXAudioFingerprint::fromBytes(fingerprint.bytes()), fingerprint);
        EXPECT_EQ(std::count(all.begin(), all.end(), fingerprint), 0);
        all.push_back(fingerprint);
        const QString moved = m_dir.filePath(u"moved.%1"_s.arg(QLatin1StringView(recipe.extension)));
        QFile::remove(moved);
        QFile::copy(url.toLocalFile(), moved);
        if (qstrcmp(recipe.extension, "mp3") == 0) { // tagged at both ends
            QFile file(moved);
            ASSERT_TRUE(file.open(QIODevice::ReadWrite));
            const QByteArray audio = file.readAll();
            file.resize(0);
            file.write(
                QByteArray("ID3\x04\0\0\0\0\x02\0", 10) + QByteArray(256, 0) + audio + "TAG" + QByteArray(125, 'x'));
        }
        EXPECT_EQ(KXAudioFingerprint::ofFile(QUrl::fromLocalFile(moved)), fingerprint) << recipe.name;
    }
    AudioSamples other = sound;
    other.channels[1][49'999] += 0.25F;
    EXPECT_NE(KXAudioFingerprint::ofFile(write(other)), all[0]);
    KXError error;
    EXPECT_TRUE(KXAudioFingerprint::ofFile(QUrl::fromLocalFile(m_dir.path()), {}, &error).isEmpty());
    EXPECT_EQ(error.code(), KXAudioFileErrorCode);
    auto pyramid = KXWaveformPyramid::read(write(sound));
    pyramid->setFingerprint(all[0]);
    EXPECT_EQ(KXWaveformPyramid::fromBytes(pyramid->toBytes())->fingerprint(), all[0]);
}
