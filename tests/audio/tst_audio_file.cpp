// Files of every format: positions, lengths, growth, damage, and what is no audio at all.

#include <bit>
#include <thread>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include <kestrixkit/audio/KXAudioFile.h>

#include <support/AudioFiles.h>
#include <support/HttpServer.h>
#include <support/KXTestRandom.h>

using namespace Qt::StringLiterals;

namespace {

using Planar = std::vector<std::vector<float>>;

/// How a recipe's file comes out: how far it may be from the source, and whether its length is known at once.
struct FileCase
{
    AudioRecipe recipe;
    double
        tolerance; // root of the mean squared difference to the source; 2: its codec adds a delay or it is not compared
    bool exact;
    quint32 framesPerPacket;
    int rate = 44100;
};

const FileCase fileCases[] = {
    { { "u8", "wav", "wav", "pcm_u8" }, 0.005, true, 1 },
    { { "s16", "wav", "wav", "pcm_s16le" }, 2e-5, true, 1 },
    { { "s24", "wav", "wav", "pcm_s24le" }, 1e-7, true, 1 },
    { { "s32", "wav", "wav", "pcm_s32le" }, 1e-7, true, 1 },
    { { "f32", "wav", "wav", "pcm_f32le" }, 0, true, 1 },
    { { "f64", "wav", "wav", "pcm_f64le" }, 0, true, 1 },
    { { "rf64", "wav", "wav", "pcm_s24le", 0, { { "rf64", "always" } } }, 1e-7, true, 1 },
    { { "w64", "w64", "w64", "pcm_s16le" }, 2, false, 1 }, // pads its data
    { { "alaw", "wav", "wav", "pcm_alaw" }, 0.02, true, 1 },
    { { "s8", "aiff", "aiff", "pcm_s8" }, 0.005, true, 1 },
    { { "s16", "aiff", "aiff", "pcm_s16be" }, 2e-5, true, 1 },
    { { "s24", "aiff", "aiff", "pcm_s24be" }, 1e-7, true, 1 },
    { { "sowt", "aiff", "aiff", "pcm_s16le" }, 2e-5, true, 1 },
    { { "f32", "aiff", "aiff", "pcm_f32be" }, 0, true, 1 },
    { { "f64", "aiff", "aiff", "pcm_f64be" }, 0, true, 1 },
    { { "s16", "caf", "caf", "pcm_s16le" }, 2e-5, true, 1 },
    { { "s24", "caf", "caf", "pcm_s24be" }, 1e-7, true, 1 },
    { { "f32", "caf", "caf", "pcm_f32le" }, 0, true, 1 },
    { { "flac", "flac", "flac", "flac" }, 2e-5, true, 4608 },
    { { "alac", "m4a", "ipod", "alac" }, 2e-5, true, 4096 },
    { { "alac", "caf", "caf", "alac" }, 2e-5, false, 4096 },
    { { "aac", "m4a", "ipod", "aac", 192000, { { "aac_pns", "0" } } }, 0.06, true, 1024 },
    { { "raw", "aac", "adts", "aac", 192000, { { "aac_pns", "0" } } }, 2, false, 1024 },
    { { "cbr", "mp3", "mp3", "libmp3lame", 192000 }, 0.06, false, 1152 },
    { { "vbr", "mp3", "mp3", "libmp3lame", 0, { { "global_quality", "236" } } }, 0.06, false, 1152 },
    { { "low", "mp3", "mp3", "libmp3lame", 32000 }, 2, false, 1152 },
    { { "cbr-untagged", "mp3", "mp3", "libmp3lame", 192000, { { "write_xing", "0" } } }, 2, false, 1152 },
    { { "vbr-untagged", "mp3", "mp3", "libmp3lame", 0, { { "global_quality", "236" }, { "write_xing", "0" } } }, 2,
        false, 1152 },
    { { "mpeg2", "mp3", "mp3", "libmp3lame", 64000 }, 0.1, false, 576, 22050 },
    { { "vorbis", "ogg", "ogg", "libvorbis", 160000 }, 0.06, true, 1 },
    { { "opus", "opus", "opus", "libopus", 160000 }, 0.06, false, 1, 48000 },
};

constexpr size_t fileFrames = 300'007; // no multiple of any packet

/// Reads so many frames at most, in calls of odd sizes.
Planar readFrames(KXAudioFile &file, int channels, qint64 frames = std::numeric_limits<qint64>::max())
{
    Planar out(static_cast<size_t>(channels));
    Planar chunk(static_cast<size_t>(channels), std::vector<float>(5000));
    std::vector<float *> pointers;
    for (std::vector<float> &samples : chunk)
        pointers.push_back(samples.data());
    quint32 step = 1;
    while (frames > 0) {
        step = (step * 7 + 3) % 5000 + 1;
        const auto wanted = quint32(std::min<qint64>(step, frames));
        quint32 got = 0;
        EXPECT_EQ(file.read(pointers.data(), wanted, &got), 0);
        for (size_t c = 0; c < chunk.size(); ++c)
            out[c].insert(out[c].end(), chunk[c].begin(), chunk[c].begin() + got);
        frames -= got;
        if (got < wanted)
            break;
    }
    return out;
}

qint64 lengthOf(const KXAudioFile &file)
{
    qint64 frames = -1;
    EXPECT_EQ(file.lengthInFrames(&frames), 0);
    return frames;
}

double difference(const Planar &a, const Planar &b)
{
    double sum = 0;
    const size_t frames = std::min(a[0].size(), b[0].size());
    for (size_t c = 0; c < a.size(); ++c) {
        for (size_t i = 0; i < frames; ++i)
            sum += std::pow(double(a[c][i]) - b[c][i], 2);
    }
    return std::sqrt(sum / double(std::max<size_t>(1, frames * a.size())));
}

class AudioFile : public ::testing::Test
{
protected:
    QString write(const AudioRecipe &recipe, size_t frames, int channels = 2, int rate = 44100)
    {
        return writeSound(makeSound(frames, channels, rate), recipe, m_dir.path());
    }
    QString writeBytes(const QString &name, const QByteArray &bytes)
    {
        QFile file(m_dir.filePath(name));
        EXPECT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(bytes);
        return file.fileName();
    }
    static QByteArray bytesOf(const QString &path)
    {
        QFile file(path);
        EXPECT_TRUE(file.open(QIODevice::ReadOnly));
        return file.readAll();
    }
    QTemporaryDir m_dir;
};

class AudioFormats : public AudioFile, public ::testing::WithParamInterface<FileCase>
{
};

}

TEST_P(AudioFormats, seekThenReadIsWhatReadingThroughGives)
{
    const FileCase &row = GetParam();
    const AudioSamples sound = makeSound(fileFrames, 2, row.rate);
    const QUrl url = QUrl::fromLocalFile(writeSound(sound, row.recipe, m_dir.path()));
    KXAudioFile file;
    ASSERT_EQ(file.open(url), 0);
    KXStreamFormat format;
    ASSERT_EQ(file.dataFormat(&format), 0);
    EXPECT_EQ(format.mSampleRate, row.rate);
    EXPECT_EQ(format.mChannelsPerFrame, 2U);
    EXPECT_EQ(format.mFramesPerPacket, row.framesPerPacket);
    EXPECT_EQ(file.setClientFormat(KXPlanarFloatFormat(row.rate, 2)), 0);
    EXPECT_NE(file.setClientFormat(KXPlanarFloatFormat(row.rate, 1)), 0);

    // The length, whether known or found, is what reading delivers.
    EXPECT_EQ(file.lengthIsExact(), row.exact);
    const qint64 promised = lengthOf(file);
    const Planar linear = readFrames(file, 2);
    const qint64 length = qint64(linear[0].size());
    EXPECT_EQ(lengthOf(file), length);
    EXPECT_TRUE(file.lengthIsExact());
    EXPECT_TRUE(!row.exact || promised == length) << promised;
    if (row.tolerance < 2) {
        EXPECT_LE(difference(sound.channels, linear), row.tolerance);
        EXPECT_NEAR(double(length), double(fileFrames), row.tolerance < 0.01 ? 0 : 60);
    }
    KXAudioFile other;
    ASSERT_EQ(other.open(url), 0);
    Planar few = readFrames(other, 2, 1000);
    EXPECT_EQ(other.findExactLength(), 0);
    EXPECT_EQ(lengthOf(other), length);
    EXPECT_TRUE(other.lengthIsExact());
    EXPECT_EQ(other.position(), 1000);

    KXTestRandom random;
    const bool isOpus = row.recipe.encoder == std::string_view("libopus"); // converges, but never quite forgets
    std::vector<qint64> targets = { 0, 1, length / 2, length - 1, length, 1000, 0 };
    for (int i = KXTestRandom::scaled(200); i > 0; --i)
        targets.push_back(random.between<qint64>(0, length));
    for (const qint64 target : targets) {
        ASSERT_EQ(file.seek(target), 0) << target;
        ASSERT_EQ(file.position(), target);
        const qint64 count = std::min<qint64>(random.between(1, 6000), length - target);
        const Planar part = readFrames(file, 2, random.chance(0.1) && count > 0 ? count : std::max<qint64>(count, 1));
        ASSERT_EQ(qint64(part[0].size()), count) << target;
        for (size_t c = 0; c < 2; ++c) {
            for (size_t i = 0; i < part[c].size(); ++i) {
                const float expected = linear[c][size_t(target) + i];
                ASSERT_NEAR(part[c][i], expected, isOpus ? 1e-6 : 0) << target << " + " << i;
            }
        }
    }
    EXPECT_NE(file.seek(-1), 0);
    EXPECT_NE(file.seek(length + 1), 0);
}

INSTANTIATE_TEST_SUITE_P(All, AudioFormats, ::testing::ValuesIn(fileCases), [](const auto &row) {
    std::string name = std::string(row.param.recipe.extension) + "_" + row.param.recipe.name;
    std::replace(name.begin(), name.end(), '-', '_');
    return name;
});

TEST_F(AudioFile, oddShapes)
{
    const AudioRecipe wav { "odd", "wav", "wav", "pcm_f32le" }, flac { "odd", "flac", "flac", "flac" };
    struct Shape
    {
        const AudioRecipe &recipe;
        size_t frames;
        int channels, rate;
    } const shapes[] = { { wav, 0, 2, 44100 }, { wav, 1, 1, 8000 }, { wav, 3000, 32, 192000 }, { flac, 1, 2, 44100 },
        { flac, 3000, 8, 8000 }, { flac, 3000, 1, 192000 } };
    for (const Shape &shape : shapes) {
        const QString path = write(shape.recipe, shape.frames, shape.channels, shape.rate);
        const QString wrongName = path + u".mp3"_s;
        ASSERT_TRUE(QFile::rename(path, wrongName));
        KXAudioFile file;
        ASSERT_EQ(file.open(QUrl::fromLocalFile(wrongName)), 0);
        EXPECT_EQ(lengthOf(file), qint64(shape.frames));
        const Planar all = readFrames(file, shape.channels);
        EXPECT_EQ(all[0].size(), shape.frames);
        EXPECT_LE(difference(all, makeSound(shape.frames, shape.channels, shape.rate).channels), 2e-5);
        QFile::remove(wrongName);
    }
}

TEST_F(AudioFile, whatIsNoAudioIsRefused)
{
    const QString music = write({ "music", "wav", "wav", "pcm_s16le" }, 1000);
    QByteArray noise(100'000, 0);
    KXTestRandom random;
    for (char &byte : noise)
        byte = char(random.between(0, 255));
    const QByteArray wav = bytesOf(music);
    const QString paths[] = {
        m_dir.filePath(u"missing.wav"_s),
        m_dir.path(),
        writeBytes(u"empty.mp3"_s, {}),
        writeBytes(u"text.mp3"_s, "just a few words"),
        writeBytes(u"long.wav"_s, QByteArray("all work and no play makes a dull text. ").repeated(5000)),
        writeBytes(u"header.wav"_s, wav.left(30)),
        writeBytes(u"zero-channels.wav"_s, QByteArray(wav).replace(22, 2, QByteArray(2, '\0'))),
        writeBytes(u"list.mp3"_s, "#EXTM3U\n#EXT-X-TARGETDURATION:1\n#EXTINF:1,\n" + music.toUtf8() + '\n'),
        writeBytes(u"list.wav"_s, "ffconcat version 1.0\nfile music.wav\n"),
        u"/dev/zero"_s,
    };
    for (const QString &path : paths) {
        KXAudioFile file;
        EXPECT_LT(file.open(QUrl::fromLocalFile(path)), 0) << path.toStdString();
        EXPECT_FALSE(file.isOpen());
        quint32 got = 1;
        float *none[1] = {};
        EXPECT_NE(file.read(none, 1, &got), 0);
        EXPECT_EQ(got, 0U);
    }
    KXAudioFile file;
    EXPECT_EQ(file.open(QUrl::fromLocalFile(paths[0])), -ENOENT);
    EXPECT_EQ(file.open(QUrl()), KXAudioFileParameterError);
    EXPECT_EQ(file.open(QUrl(u"ftp://localhost/a.wav"_s)), KXAudioFileParameterError);
    KXAudioFile random1;
    if (random1.open(QUrl::fromLocalFile(writeBytes(u"noise.mp3"_s, noise))) == 0) // some bytes look like packets
        readFrames(random1, 2, 200000);
}

TEST_F(AudioFile, damageKeepsWhatFollowsInItsPlace)
{
    KXTestRandom random;
    for (const AudioRecipe &recipe : { AudioRecipe { "d", "flac", "flac", "flac" },
             AudioRecipe { "d", "m4a", "ipod", "alac" }, AudioRecipe { "d", "ogg", "ogg", "libvorbis", 160000 },
             AudioRecipe { "d", "mp3", "mp3", "libmp3lame", 192000 } }) {
        const AudioSamples sound = makeSound(200'000);
        const QString path = writeSound(sound, recipe, m_dir.path());
        QByteArray bytes = bytesOf(path);
        for (int spot = 0; spot < 6; ++spot) {
            const qsizetype at = random.between<qsizetype>(bytes.size() * 35 / 100, bytes.size() * 45 / 100);
            for (qsizetype i = 0; i < 40; ++i)
                bytes[at + i] = char(random.between(0, 255));
        }
        KXAudioFile file;
        ASSERT_EQ(file.open(QUrl::fromLocalFile(writeBytes(u"damaged"_s, bytes))), 0) << recipe.extension;
        const Planar all = readFrames(file, 2);
        if (recipe.encoder == std::string_view("libmp3lame"))
            continue; // its packets do not say where they belong
        ASSERT_NEAR(double(all[0].size()), 200'000, 5000) << recipe.extension;
        const Planar end = { { all[0].begin() + 160'000, all[0].begin() + 190'000 } };
        const Planar source = { { sound.channels[0].begin() + 160'000, sound.channels[0].begin() + 190'000 } };
        EXPECT_LE(difference(end, source), 0.05) << recipe.extension;
        for (const float sample : all[0])
            ASSERT_TRUE(std::isfinite(sample));
    }
}

static const AudioRecipe growingFiles[] = {
    { "g", "wav", "wav", "pcm_s16le" },
    { "g", "aiff", "aiff", "pcm_s24be" },
    { "g", "caf", "caf", "pcm_s16le" },
    { "g", "flac", "flac", "flac" },
    { "g", "mp3", "mp3", "libmp3lame", 192000 },
    { "g", "m4a", "ipod", "aac", 160000, { { "aac_pns", "0" }, { "movflags", "+faststart" } } },
};

TEST_F(AudioFile, grownFilesAreReadWithoutAGap)
{
    KXTestRandom random;
    for (const AudioRecipe &recipe : growingFiles) {
        const QString path = write(recipe, 150'000);
        const QByteArray bytes = bytesOf(path);
        KXAudioFile whole;
        ASSERT_EQ(whole.open(QUrl::fromLocalFile(path)), 0);
        const Planar expected = readFrames(whole, 2);

        QFile growing(m_dir.filePath(u"growing.part"_s));
        ASSERT_TRUE(growing.open(QIODevice::WriteOnly | QIODevice::Truncate | QIODevice::Unbuffered));
        qsizetype written = bytes.size() * 2 / 5;
        growing.write(bytes.left(written));
        KXAudioFile file;
        ASSERT_EQ(file.open(QUrl::fromLocalFile(growing.fileName())), 0) << recipe.extension;
        const qint64 promised = lengthOf(file);
        EXPECT_NEAR(double(promised), double(expected[0].size()), 2400) << recipe.extension;
        Planar all(2);
        Planar chunk(2, std::vector<float>(4096));
        float *pointers[] = { chunk[0].data(), chunk[1].data() };
        int pendings = 0;
        for (quint32 got = 1; got > 0 || written < bytes.size();) {
            const int status = file.read(pointers, 4096, &got);
            if (status == KXAudioFileInvalidFileError) {
                ASSERT_EQ(got, 0U);
                ASSERT_LT(++pendings, 100) << recipe.extension;
                ASSERT_LT(written, bytes.size()) << recipe.extension << " at " << all[0].size();
                const qsizetype more = random.between<qsizetype>(1, bytes.size() / 8);
                growing.write(bytes.mid(written, more));
                written = std::min(bytes.size(), written + more);
                got = 1;
                continue;
            }
            ASSERT_EQ(status, 0) << recipe.extension;
            ASSERT_TRUE(got > 0 || written == bytes.size()) << recipe.extension << " ended early";
            for (size_t c = 0; c < 2; ++c)
                all[c].insert(all[c].end(), chunk[c].begin(), chunk[c].begin() + got);
        }
        EXPECT_GT(pendings, 3) << recipe.extension;
        EXPECT_EQ(all, expected) << recipe.extension;
        EXPECT_EQ(lengthOf(file), qint64(expected[0].size()));
        growing.close();
    }
}

// Once nobody has touched it for some time, the end is where the bytes end.
TEST_F(AudioFile, cutOffFilesEndWhereTheirBytesEnd)
{
    for (const AudioRecipe &recipe : growingFiles) {
        const QString path = write(recipe, 150'000);
        KXAudioFile whole;
        ASSERT_EQ(whole.open(QUrl::fromLocalFile(path)), 0);
        const size_t frames = readFrames(whole, 2)[0].size();
        ASSERT_TRUE(QFile::resize(path, QFileInfo(path).size() * 3 / 5));
        KXAudioFileOptions options;
        options.growthSeconds = 0;
        KXAudioFile cut;
        ASSERT_EQ(cut.open(QUrl::fromLocalFile(path), options), 0) << recipe.extension;
        const Planar part = readFrames(cut, 2);
        EXPECT_LT(part[0].size(), frames * 4 / 5);
        EXPECT_GT(part[0].size(), frames / 3);
        EXPECT_EQ(lengthOf(cut), qint64(part[0].size())) << recipe.extension;
    }
}

/// Takes the rate out of the blocks of a FLAC file and corrects their sums; answers the number of blocks.
static int takeOutRates(QByteArray &bytes)
{
    const auto crc = [](QByteArrayView of, unsigned polynomial, unsigned bits) {
        unsigned sum = 0;
        for (const char byte : of) {
            sum ^= unsigned(uchar(byte)) << (bits - 8);
            for (int i = 0; i < 8; ++i)
                sum = sum << 1 ^ (sum >> (bits - 1) & 1 ? polynomial : 0);
        }
        return sum & ((1U << bits) - 1);
    };
    const auto headerSize = [&crc](QByteArrayView at) -> qsizetype { // of a block; 0 where none begins
        if (at.size() < 8 || uchar(at[0]) != 0xFF || (uchar(at[1]) & 0xFC) != 0xF8)
            return 0;
        const int numberBytes = std::max(1, std::countl_one(uchar(at[4])));
        const int code = uchar(at[2]) >> 4;
        const qsizetype size = 4 + numberBytes + (code == 6 ? 1 : code == 7 ? 2 : 0);
        return crc(at.first(size), 0x07, 8) == uchar(at[size]) ? size + 1 : 0;
    };
    qsizetype block = 4;
    for (bool isLast = false; !isLast;) {
        isLast = bytes[block] & 0x80;
        block += 4 + (uchar(bytes[block + 1]) << 16 | uchar(bytes[block + 2]) << 8 | uchar(bytes[block + 3]));
    }
    int blocks = 0;
    while (block < bytes.size()) {
        const qsizetype header = headerSize(QByteArrayView(bytes).sliced(block));
        EXPECT_GT(header, 0) << block;
        if (header == 0)
            return blocks;
        qsizetype end = block + header;
        while (end < bytes.size()
            && (headerSize(QByteArrayView(bytes).sliced(end)) == 0
                || crc(QByteArrayView(bytes).sliced(block, end - block), 0x8005, 16) != 0))
            ++end;
        bytes[block + 2] = char(bytes[block + 2] & 0xF0); // no rate of its own
        bytes[block + header - 1] = char(crc(QByteArrayView(bytes).sliced(block, header - 1), 0x07, 8));
        const unsigned sum = crc(QByteArrayView(bytes).sliced(block, end - block - 2), 0x8005, 16);
        bytes[end - 2] = char(sum >> 8);
        bytes[end - 1] = char(sum);
        block = end;
        ++blocks;
    }
    return blocks;
}

// A young file counts as growing while its last block might be half of one: what says that it is whole must be right.
TEST_F(AudioFile, youngFlacWhoseBlocksLeaveTheRateToTheHeaderIsWhole)
{
    for (const size_t frames :
        { size_t(9000), size_t(4608 * 2), size_t(4608 * 2 + 1), size_t(100), size_t(1'000'000) }) {
        const AudioSamples sound = makeSound(frames);
        const QString path = writeSound(sound, { "young", "flac", "flac", "flac" }, m_dir.path());
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::ReadWrite));
        QByteArray bytes = file.readAll();
        EXPECT_EQ(takeOutRates(bytes), int(frames + 4607) / 4608);
        file.seek(0);
        file.write(bytes);
        file.close();
        KXAudioFile read;
        ASSERT_EQ(read.open(QUrl::fromLocalFile(path)), 0);
        const Planar all = readFrames(read, 2);
        EXPECT_EQ(all[0].size(), frames);
        EXPECT_LE(difference(all, sound.channels), 2e-5);
        for (const size_t first : { frames / 2, frames - 1, size_t(0) }) {
            ASSERT_EQ(read.seek(qint64(first)), 0);
            Planar rest = sound.channels;
            for (auto &channel : rest)
                channel.erase(channel.begin(), channel.begin() + ptrdiff_t(first));
            const Planar heard = readFrames(read, 2);
            EXPECT_EQ(heard[0].size(), frames - first);
            EXPECT_LE(difference(heard, rest), 2e-5) << first;
        }
    }
}

TEST_F(AudioFile, survivesItsFileVanishingAndShrinking)
{
    for (const AudioRecipe &recipe : { AudioRecipe { "v", "wav", "wav", "pcm_s16le" },
             AudioRecipe { "v", "ogg", "ogg", "libvorbis", 128000 }, AudioRecipe { "v", "flac", "flac", "flac" } }) {
        const QString path = write(recipe, 100'000);
        KXAudioFile file;
        ASSERT_EQ(file.open(QUrl::fromLocalFile(path)), 0);
        readFrames(file, 2, 5000);
        ASSERT_TRUE(QFile::remove(path));
        const int status = file.seek(50'000);
        EXPECT_EQ(file.position(), status == 0 ? 50'000 : 5000) << recipe.extension; // or it reads on from there
        const size_t left = 100'000 - size_t(file.position());
        EXPECT_EQ(readFrames(file, 2)[0].size(), left) << recipe.extension;

        const QString again = write(recipe, 100'000);
        KXAudioFileOptions options;
        options.growthSeconds = 0;
        ASSERT_EQ(file.open(QUrl::fromLocalFile(again), options), 0);
        readFrames(file, 2, 5000);
        ASSERT_TRUE(QFile::resize(again, 100));
        readFrames(file, 2);
        EXPECT_LE(lengthOf(file), 100'000);
        QFile::remove(again);
    }
}

TEST_F(AudioFile, cancellingEndsAWait)
{
    KXAudioFileOptions options;
    options.cancelled = std::make_shared<std::atomic<bool>>(true);
    const QString path = write({ "c", "flac", "flac", "flac" }, 1000);
    KXAudioFile file;
    EXPECT_EQ(file.open(QUrl::fromLocalFile(path), options), KXAudioFileInterruptedError);
}

TEST_F(AudioFile, remoteFilesSeekAsLocalOnesDo)
{
    KXTestRandom random;
    for (const AudioRecipe &recipe : { AudioRecipe { "h", "wav", "wav", "pcm_s16le" },
             AudioRecipe { "h", "mp3", "mp3", "libmp3lame", 192000 }, AudioRecipe { "h", "flac", "flac", "flac" } }) {
        const QString path = write(recipe, 200'000);
        KXAudioFile local;
        ASSERT_EQ(local.open(QUrl::fromLocalFile(path)), 0);
        const Planar expected = readFrames(local, 2);
        for (const HttpServer::Mode mode : { HttpServer::Normal, HttpServer::NoRanges, HttpServer::CutOnce }) {
            HttpServer server(bytesOf(path), mode);
            KXAudioFile file;
            ASSERT_EQ(file.open(server.url()), 0) << recipe.extension << mode;
            EXPECT_EQ(file.isSeekable(), mode != HttpServer::NoRanges);
            EXPECT_EQ(readFrames(file, 2), expected) << recipe.extension << mode;
            for (int i = 0; i < 5; ++i) {
                const auto target = random.between<qint64>(0, qint64(expected[0].size()) - 3000);
                ASSERT_EQ(file.seek(target), 0);
                const Planar part = readFrames(file, 2, 3000);
                ASSERT_TRUE(std::equal(part[1].begin(), part[1].end(), expected[1].begin() + target))
                    << recipe.extension << mode << " at " << target;
            }
        }
    }
}

TEST_F(AudioFile, badServersEndInAStatusAndNeverInAWait)
{
    const QByteArray bytes = bytesOf(write({ "bad", "wav", "wav", "pcm_s16le" }, 200'000));
    KXAudioFileOptions options;
    options.secondsPerCall = 0.5;
    for (const HttpServer::Mode mode : { HttpServer::NotFound, HttpServer::Stall }) {
        HttpServer server(bytes, mode);
        KXAudioFile file;
        EXPECT_LT(file.open(server.url(), options), 0) << mode;
    }
    for (const HttpServer::Mode mode : { HttpServer::StallInBody, HttpServer::Cut, HttpServer::Lie }) {
        HttpServer server(bytes, mode);
        KXAudioFile file;
        ASSERT_EQ(file.open(server.url(), options), 0) << mode;
        Planar chunk(2, std::vector<float>(4096));
        float *pointers[] = { chunk[0].data(), chunk[1].data() };
        qint64 frames = 0;
        int status = 0;
        for (quint32 got = 1; got > 0 && status == 0; frames += got)
            status = file.read(pointers, 4096, &got);
        // What came is delivered; that there should have been more is no end of file.
        EXPECT_EQ(status != 0, mode != HttpServer::Lie) << mode;
        EXPECT_NEAR(double(frames), mode == HttpServer::Lie ? 200'000 : 100'000, 10'000) << mode;
    }
    HttpServer server(bytes, HttpServer::Stall);
    options.secondsPerCall = 3600;
    options.cancelled = std::make_shared<std::atomic<bool>>(false);
    std::thread canceller([&] {
        while (server.requests() == 0)
            std::this_thread::yield();
        *options.cancelled = true;
    });
    KXAudioFile file;
    EXPECT_EQ(file.open(server.url(), options), KXAudioFileInterruptedError);
    canceller.join();
}
