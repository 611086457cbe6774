// Waveforms: what the columns are, what the pixels are, what is called when. And what is known of a file without them.

#include <thread>

#include <QFile>
#include <QPainter>
#include <QTemporaryDir>
#include <QTest>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <kestrixkit/audio/KXAudioFile.h>
#include <kestrixkit/audio/KXAudioFileMetadata.h>
#include <kestrixkit/audio/KXWaveformGenerator.h>
#include <kestrixkit/audio/KXWaveformPicture_p.h>
#include <kestrixkit/foundation/KXOperationQueue.h>

#include <support/AudioFiles.h>
#include <support/HttpServer.h>
#include <support/KXTestLog.h>
#include <support/KXTestRandom.h>

using namespace Qt::StringLiterals;

namespace {

constexpr int wavePatience = 60'000; // milliseconds

/// The picture as a general painter draws it.
QImage waveReference(const std::vector<float> &peaks, double scale, const QSize &size, const QColor &colour)
{
    QPainterPath line(QPointF(0, 0));
    for (size_t x = 0; x < peaks.size(); ++x)
        line.lineTo(double(x), peaks[x] * scale);
    line.lineTo(line.currentPosition().x() + 1, 0);
    const double half = size.height() / 2;
    QPainterPath shape;
    for (const int side : { 1, -1 }) // y grows upwards, from the bottom edge
        shape.addPath(QTransform().translate(0, size.height() - half).scale(1, -side * half).map(line));
    shape.setFillRule(Qt::WindingFill);
    QImage image(size, QImage::Format_RGBA8888_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.fillPath(shape, colour);
    return image;
}

/// The largest difference of any part of any pixel.
int waveDifference(const QImage &a, const QImage &b)
{
    int most = a.size() == b.size() && a.format() == b.format() ? 0 : 1000;
    for (int y = 0; most < 1000 && y < a.height(); ++y) {
        for (int i = 0; i < 4 * a.width(); ++i)
            most = std::max(most, std::abs(a.constScanLine(y)[i] - b.constScanLine(y)[i]));
    }
    return most;
}

/// A mono sound of any length, made as it is asked for.
struct MadeUpFile : KXAudioFileBackend
{
    explicit MadeUpFile(qint64 frames)
        : left(frames)
    {
    }
    KXAudioFileStatus open(const QUrl &, const KXAudioFileOptions &) override { return 0; }
    KXAudioFileStatus dataFormat(KXStreamFormat *format) override
    {
        *format = KXPlanarFloatFormat(8000, 1);
        return 0;
    }
    KXAudioFileStatus lengthInFrames(qint64 *frames) override
    {
        *frames = left;
        return 0;
    }
    KXAudioFileStatus setClientFormat(const KXStreamFormat &) override { return 0; }
    KXAudioFileStatus seek(qint64) override { return -1; }
    KXAudioFileStatus read(float *const *channels, quint32 frames, quint32 *framesRead) override
    {
        mostAsked = std::max(mostAsked.load(), frames);
        *framesRead = quint32(std::min<qint64>(frames, left));
        std::fill_n(channels[0], *framesRead, 0.5F);
        left -= *framesRead;
        return 0;
    }
    qint64 left;
    static inline std::atomic<quint32> mostAsked = 0;
};

struct Events
{
    std::vector<QList<QImage>> progress;
    QList<QImage> success;
    QStringList names;

    void listenTo(KXWaveformGenerator &generator)
    {
        generator.setProgressBlock([this](const QList<QImage> &images) {
            progress.push_back(images);
            names.append(u"progress"_s);
        });
        generator.setSuccessBlock([this](const QList<QImage> &images) {
            success = images;
            names.append(u"success"_s);
        });
        generator.setFailureBlock([this](const KXError &error) { names.append(error.localizedDescription()); });
        generator.setCancelBlock([this] { names.append(u"cancel"_s); });
    }
};

}

class Waveform : public ::testing::Test
{
protected:
    std::shared_ptr<KXWaveformGenerator> make(const AudioSamples &sound, const QSizeF &size, bool sum = false,
        const AudioRecipe &recipe = { "wave", "wav", "wav", "pcm_f32le" })
    {
        const QString path = writeSound(sound, recipe, m_dir.path());
        const auto generator
            = std::make_shared<KXWaveformGenerator>(QUrl::fromLocalFile(path), size, QColor(10, 200, 30, 200));
        generator->setSumAllChannels(sum);
        return generator;
    }
    /// Runs it on a queue, until nothing is left to be called.
    static void run(const std::shared_ptr<KXAbstractOperation> &operation)
    {
        KXOperationQueue queue;
        queue.addOperation(operation);
        ASSERT_TRUE(QTest::qWaitFor([&] { return operation->isDone(); }, wavePatience));
        QTest::qWait(0);
    }
    static std::vector<float> peaksOf(const KXWaveformGenerator &generator, int path)
    {
        std::vector<float> peaks;
        const QPainterPath line = generator.waveformPaths().at(path);
        EXPECT_EQ(QPointF(line.elementAt(0)), QPointF(0, 0));
        for (int i = 1; i < line.elementCount(); ++i) {
            EXPECT_EQ(line.elementAt(i).x, i - 1);
            peaks.push_back(float(line.elementAt(i).y));
        }
        return peaks;
    }
    QTemporaryDir m_dir;
};

TEST_F(Waveform, theLargestSampleCountsWithItsSign)
{
    KXTestRandom random;
    for (size_t length = 1; length < 200; ++length) {
        std::vector<float> samples(length, -0.5F);
        samples[random.between<size_t>(0, length - 1)] = NAN;
        samples[random.between<size_t>(0, length - 1)] = -0.25F;
        EXPECT_EQ(maxV(samples.data(), length), -0.25F) << length;
    }
    EXPECT_EQ(maxV(nullptr, 0), -INFINITY);
}

TEST_F(Waveform, columnsAreTheMaximaOfTheirFrames)
{
    struct Row
    {
        size_t frames, framesPerColumn;
        double width;
        int channels, progressCalls;
    };
    // The last one: longer than what is read at once.
    for (const Row &row : { Row { 1000, 7, 150, 2, 0 }, Row { 50, 1, 200, 3, 0 }, Row { 1, 1, 100, 1, 0 },
             Row { 1490, 10, 149, 1, 0 }, Row { 9000, 60, 150.9, 2, 1 }, Row { 310, 1, 5000, 1, 2 },
             Row { 10, 10, 0.5, 1, 0 }, Row { 250'000, 125'000, 2, 2, 0 } }) {
        const AudioSamples sound = makeSound(row.frames, row.channels);
        const auto apart = make(sound, { row.width, 40 }), summed = make(sound, { row.width, 40 }, true);
        Events events;
        events.listenTo(*apart);
        apart->setDecodingThreads(row.channels); // one to three
        run(apart);
        run(summed);
        EXPECT_EQ(int(events.progress.size()), row.progressCalls) << row.width;
        EXPECT_EQ(events.success, apart->waveformImages());
        std::vector<float> sums((row.frames - 1) / row.framesPerColumn + 1);
        for (int c = 0; c < row.channels; ++c) {
            const float *samples = sound.channels[size_t(c)].data();
            const std::vector<float> peaks = peaksOf(*apart, c);
            ASSERT_EQ(peaks.size(), sums.size()) << row.frames;
            for (size_t x = 0; x < sums.size(); ++x) {
                const size_t first = x * row.framesPerColumn, end = std::min(first + row.framesPerColumn, row.frames);
                EXPECT_EQ(peaks[x], *std::max_element(samples + first, samples + end)) << row.frames << " at " << x;
                sums[x] += peaks[x];
            }
        }
        EXPECT_EQ(peaksOf(*summed, 0), sums) << row.frames;
    }
    const auto loud = make({ 44100, { { 0.9F, -0.5F }, { 0.8F, -0.25F } } }, { 2, 40 }, true);
    run(loud);
    EXPECT_EQ(loud->holdMaxValue(), 1.7000000476837158); // added up as the samples are, not as doubles
    EXPECT_THAT(peaksOf(*loud, 0), ::testing::ElementsAre(1.7000000476837158F, -0.75F));
}

TEST_F(Waveform, pixelsAreThoseOfAnyPainter)
{
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "Qt paints with threads that are not instrumented";
#endif
    KXTestRandom random;
    const QColor colours[] = { Qt::black, QColor(200, 100, 50), QColor(20, 200, 250, 128) };
    for (const QSize &size :
        { QSize(300, 100), QSize(301, 77), QSize(64, 3), QSize(65, 2), QSize(10, 1), QSize(1, 500) }) {
        std::vector<float> peaks(size_t(size.width()) + 20); // more than fit
        float level = 0;
        for (float &peak : peaks)
            peak = level = random.chance(0.1) ? random.between(-1.2F, 1.5F) : level + random.between(-0.1F, 0.1F);
        for (const size_t count : { size_t(0), size_t(1), peaks.size() / 2, peaks.size() }) {
            const std::vector<float> some(peaks.begin(), peaks.begin() + qint64(count));
            const double scale = random.between(0.3, 1.0);
            const QColor colour = random.oneOf(colours);
            KXWaveformPicture picture(size, colour);
            for (const float peak : some)
                picture.add(peak);
            // It rounds coverage and corners elsewhere, but no more than a few of 255 shades.
            EXPECT_LE(waveDifference(picture.image(scale), waveReference(some, scale, size, colour)), 6)
                << size.width() << 'x' << size.height() << " with " << count;
        }
    }
    KXWaveformPicture wild({ 4, 20 }, Qt::red);
    for (const float peak : { NAN, INFINITY, -INFINITY, 3e38F, -3e38F })
        wild.add(peak);
    const QImage image = wild.image(1);
    EXPECT_EQ(image.pixel(0, 0), 0U);
    EXPECT_EQ(image.pixel(3, 0) >> 24, 255U);
    EXPECT_TRUE(KXWaveformPicture({ 0, 20 }, Qt::red).image(1).isNull());
}

TEST_F(Waveform, partialPicturesAreWhatIsDrawnFromScratch)
{
    AudioSamples sound = makeSound(9000, 3);
    for (size_t i = 0; i < sound.frames(); ++i) {
        for (auto &channel : sound.channels)
            channel[i] *= float(i) / 4000.0F; // sums grow, so that what was drawn must be drawn anew, smaller
    }
    for (const bool sums : { false, true }) {
        const auto generator = make(sound, { 1000, 51 }, sums);
        Events events;
        events.listenTo(*generator);
        std::vector<QList<QImage>> copies;
        generator->setProgressBlock([&](const QList<QImage> &images) {
            copies.emplace_back();
            for (const QImage &image : images)
                copies.back().append(image.copy());
            if (sums) // else it lets go of them, as most receivers do
                events.progress.push_back(images);
        });
        run(generator);
        ASSERT_EQ(copies.size(), 6U); // of 1000 columns
        EXPECT_TRUE(!sums || events.progress == copies) << "what was handed out has changed";
        copies.push_back(events.success);
        for (size_t step = 0; step < copies.size(); ++step) {
            ASSERT_EQ(copies[step].size(), sums ? 1 : 3);
            for (int i = 0; i < copies[step].size(); ++i) {
                const std::vector<float> peaks = peaksOf(*generator, i);
                KXWaveformPicture fresh({ 1000, 51 }, generator->fillColour());
                double hold = 1;
                for (size_t x = 0; x < std::min((step + 1) * 150, peaks.size()); ++x) {
                    fresh.add(peaks[x]);
                    hold = std::max(hold, sums ? double(peaks[x]) : 0);
                }
                EXPECT_EQ(copies[step][i], fresh.image(1 / hold)) << step << sums;
            }
        }
    }
}

TEST_F(Waveform, nothingButTheCancelBlockIsCalledAfterCancelling)
{
    KXAudioFile::setBackendFactory(
        [](const QUrl &) { return std::make_unique<MadeUpFile>(qint64(1) << 34); }); // takes long
    for (const double width : { 3e4, 1.0 }) { // the second: in the middle of its only column
        const auto generator = std::make_shared<KXWaveformGenerator>(QUrl(), QSizeF(width, 10), Qt::red);
        Events events;
        events.listenTo(*generator);
        MadeUpFile::mostAsked = 0;
        KXOperationQueue queue;
        queue.addOperation(generator);
        while (width > 1 ? events.progress.empty() : MadeUpFile::mostAsked == 0)
            QTest::qWait(0);
        generator->cancel(); // others may be queued already
        events.names.clear();
        ASSERT_TRUE(QTest::qWaitFor([&] { return generator->isDone() && !events.names.isEmpty(); }, wavePatience));
        EXPECT_EQ(events.names, QStringList { u"cancel"_s }); // the last one that was queued
    }
    KXAudioFile::setBackendFactory({});

    // Also while it waits for a server.
    HttpServer server("RIFF", HttpServer::Stall);
    const auto generator = std::make_shared<KXWaveformGenerator>(server.url(), QSizeF(100, 10), Qt::red);
    Events events;
    events.listenTo(*generator);
    KXOperationQueue queue;
    KXTestLog log;
    queue.addOperation(generator);
    ASSERT_TRUE(QTest::qWaitFor([&] { return server.requests() > 0; }, wavePatience));
    generator->cancel();
    ASSERT_TRUE(QTest::qWaitFor([&] { return generator->isDone() && !events.names.isEmpty(); }, wavePatience));
    EXPECT_EQ(events.names, QStringList { u"cancel"_s });
    EXPECT_EQ(log.lines(), QStringList());
}

TEST_F(Waveform, whatCannotBeDrawnIsNoError)
{
    struct Row
    {
        size_t frames;
        QSizeF size;
        qsizetype images;
    };
    for (const Row &row : { Row { 100, { 0, 10 }, 0 }, Row { 100, { -5, 10 }, 0 }, Row { 100, { NAN, 10 }, 0 },
             Row { 0, { 50, 10 }, 2 }, Row { 100, { 50, 0 }, 0 }, Row { 100, { 0.9, 10 }, 0 } }) {
        const auto generator = make(makeSound(row.frames, 2), row.size);
        Events events;
        events.listenTo(*generator);
        run(generator);
        EXPECT_EQ(events.names, QStringList { u"success"_s }) << row.size.width();
        EXPECT_EQ(events.success.size(), row.images);
        EXPECT_EQ(generator->waveformPaths().size(), 2);
        for (const QImage &image : events.success)
            EXPECT_EQ(image.pixel(0, 4), 0U);
    }
    // Silence is a column like any other.
    AudioSamples quiet = makeSound(1000, 1);
    std::fill(quiet.channels[0].begin(), quiet.channels[0].end(), 0.0F);
    const auto generator = make(quiet, { 100, 10 });
    run(generator);
    EXPECT_EQ(peaksOf(*generator, 0), std::vector<float>(100, 0));
    // What is too large is refused, and says so.
    for (const QSizeF &size : { QSizeF(1e12, 1e12), QSizeF(INFINITY, 10), QSizeF(INFINITY, 0), QSizeF(10, INFINITY),
             QSizeF(32'768, 10), QSizeF(32'767, 32'767) }) {
        const auto tooLarge = make(makeSound(100, 2), size);
        Events events;
        events.listenTo(*tooLarge);
        run(tooLarge);
        ASSERT_EQ(events.names.size(), 1);
        EXPECT_TRUE(events.names.front().endsWith(u"pixels is too large"_s)) << events.names.front().toStdString();
    }
    KXTestLog log;
    const auto missing
        = std::make_shared<KXWaveformGenerator>(QUrl::fromLocalFile(u"/missing.wav"_s), QSizeF(9, 9), Qt::red);
    Events events;
    events.listenTo(*missing);
    run(missing);
    EXPECT_EQ(events.names, QStringList { u"Failed to open file (-2)"_s });
    EXPECT_EQ(log.lines(), QStringList { u"kestrix.audio: Failed to open file (-2)"_s });
}

TEST_F(Waveform, longFilesTakeNoMoreMemoryThanShortOnes)
{
    quint32 asked[2] = {};
    const qint64 seconds[] = { 60, 36'000 };
    for (int i = 0; i < 2; ++i) {
        MadeUpFile::mostAsked = 0;
        KXAudioFile::setBackendFactory([&](const QUrl &) { return std::make_unique<MadeUpFile>(seconds[i] * 8000); });
        run(std::make_shared<KXWaveformGenerator>(QUrl(), QSizeF(5, 10), Qt::red));
        asked[i] = MadeUpFile::mostAsked;
    }
    KXAudioFile::setBackendFactory({});
    EXPECT_EQ(asked[0], asked[1]);
}

TEST_F(Waveform, manyThreadsSeeWhatOneSees)
{
    const AudioSamples sound = makeSound(300'000, 2);
    for (const AudioRecipe &recipe :
        { AudioRecipe { "t", "flac", "flac", "flac" }, AudioRecipe { "t", "ogg", "ogg", "libvorbis", 160000 },
            AudioRecipe {
                "t", "mp3", "mp3", "libmp3lame", 0, { { "global_quality", "236" }, { "write_xing", "0" } } } }) {
        const auto one = make(sound, { 700, 40 }, false, recipe), many = make(sound, { 700, 40 }, false, recipe);
        many->setDecodingThreads(4);
        Events events;
        events.listenTo(*many);
        run(one);
        run(many);
        EXPECT_EQ(many->waveformImages(), one->waveformImages()) << recipe.extension;
        EXPECT_EQ(events.progress.size(), 4U);
    }
    // What cannot be opened in the middle is read from the start.
    KXAudioFile::setBackendFactory([&](const QUrl &) { return std::make_unique<MadeUpFile>(8000); });
    const auto stream = std::make_shared<KXWaveformGenerator>(QUrl(), QSizeF(100, 10), Qt::red);
    stream->setDecodingThreads(3);
    run(stream);
    KXAudioFile::setBackendFactory({});
    EXPECT_EQ(peaksOf(*stream, 0), std::vector<float>(100, 0.5F));
}

TEST_F(Waveform, guessedLengthsAreCorrectedAndGrowthIsWaitedFor)
{
    // Its header does not say how long it is, and the bit rate of its start misleads.
    const AudioRecipe vbr { "v", "mp3", "mp3", "libmp3lame", 0,
        { { "global_quality", "236" }, { "write_xing", "0" } } };
    const auto guessed = make(makeSound(400'000, 1), { 100, 20 }, false, vbr);
    run(guessed);
    EXPECT_NEAR(double(peaksOf(*guessed, 0).size()), 100, 1);

    const auto whole = make(makeSound(200'000, 1), { 100, 20 });
    run(whole);
    QFile source(whole->fileURL().toLocalFile()), growing(m_dir.filePath(u"growing.wav"_s));
    ASSERT_TRUE(source.open(QIODevice::ReadOnly) && growing.open(QIODevice::WriteOnly | QIODevice::Unbuffered));
    growing.write(source.read(300'000));
    const auto generator = std::make_shared<KXWaveformGenerator>(
        QUrl::fromLocalFile(growing.fileName()), whole->size(), whole->fillColour());
    KXOperationQueue queue;
    queue.addOperation(generator);
    QTest::qWait(50);
    growing.write(source.readAll());
    ASSERT_TRUE(QTest::qWaitFor([&] { return generator->isDone(); }, wavePatience));
    EXPECT_EQ(generator->waveformImages(), whole->waveformImages());
}

TEST_F(Waveform, metadataIsReadWithoutDecoding)
{
    struct Row
    {
        AudioRecipe recipe;
        qint64 bits, framesPerPacket;
    };
    for (const Row &row :
        { Row { { "m", "wav", "wav", "pcm_s24le" }, 24, 1 }, Row { { "m", "flac", "flac", "flac" }, 0, 4608 },
            Row { { "m", "m4a", "ipod", "aac", 128000 }, 0, 1024 } }) {
        const QString path = writeSound(makeSound(10'000, 2, 48000), row.recipe, m_dir.path());
        const auto metadata = std::make_shared<KXAudioFileMetadata>(QUrl::fromLocalFile(path));
        run(metadata);
        EXPECT_NEAR(double(metadata->numberOfFrames()), 10'000, 100);
        EXPECT_EQ(metadata->bitsPerChannel(), row.bits) << row.recipe.extension;
        // Of whole packets.
        const qint64 packets = metadata->numberOfFrames() / row.framesPerPacket;
        EXPECT_DOUBLE_EQ(metadata->duration(), double(packets * row.framesPerPacket) / 48000);
        // Read once more, of a file that is gone, it says nothing of what was.
        QFile::remove(path);
        const KXTestLog log;
        metadata->readMetadataFromAudioFile();
        EXPECT_TRUE(metadata->error());
        EXPECT_EQ(metadata->numberOfFrames() + metadata->numberOfChannels() + metadata->bitsPerChannel(), 0);
        EXPECT_EQ(metadata->duration() + metadata->sampleRate(), 0);
        EXPECT_EQ(metadata->uti(), QString());
    }
    KXTestLog log;
    KXAudioFileMetadata missing(QUrl::fromLocalFile(u"/missing.wav"_s));
    missing.main();
    EXPECT_EQ(missing.error().code(), KXAudioFileErrorCode);
    EXPECT_EQ(missing.error().localizedDescription(), u"Failed to open file (-2)"_s);
    EXPECT_EQ(missing.numberOfFrames() + missing.numberOfChannels(), 0);
}
