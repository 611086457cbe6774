#include <kestrixkit/audio/KXWaveformGenerator.h>

#include <cmath>
#include <limits>
#include <thread>

#include <xmmintrin.h>

#include <kestrixkit/audio/KXAudioFile.h>
#include <kestrixkit/audio/KXWaveformPicture_p.h>
#include <kestrixkit/foundation/KXMainQueue.h>

namespace {

constexpr size_t waveformChunkBytes = 128 * 1024; // of all channels: stays in the cache between decoding and looking
constexpr auto waveformPatience = std::chrono::milliseconds(20); // between two looks at a file that grows
constexpr double waveformGrowthSeconds = 3; // a picture cannot wait as long as a player

}

float maxV(const float *samples, size_t count)
{
    // Several maxima side by side, since each step waits for the one before; 128 bits, since wider units take longer
    // to wake up for a chunk than they save. The order of the operands passes over what is no number.
    constexpr size_t lanes = 8;
    __m128 most[lanes];
    std::fill_n(most, lanes, _mm_set1_ps(-std::numeric_limits<float>::infinity()));
    size_t at = 0;
    for (; at + 4 * lanes <= count; at += 4 * lanes) {
        for (size_t i = 0; i < lanes; ++i)
            most[i] = _mm_max_ps(_mm_loadu_ps(samples + at + 4 * i), most[i]);
    }
    for (size_t i = 1; i < lanes; ++i)
        most[0] = _mm_max_ps(most[i], most[0]);
    float result[4];
    _mm_storeu_ps(result, most[0]);
    for (size_t i = 1; i < 4; ++i)
        result[0] = std::max(result[0], result[i]);
    for (; at < count; ++at)
        result[0] = samples[at] > result[0] ? samples[at] : result[0];
    return result[0];
}

KXWaveformGenerator::KXWaveformGenerator(const QUrl &fileURL, const QSizeF &size, const QColor &fillColour)
    : m_fileURL(fileURL)
    , m_size(size)
    , m_fillColour(fillColour)
    , m_cancelled(std::make_shared<std::atomic<bool>>(false))
{
}

KXWaveformGenerator::~KXWaveformGenerator() = default;

void KXWaveformGenerator::cancel()
{
    *m_cancelled = true;
    KXAbstractOperation::cancel();
}

template <typename... Values>
void KXWaveformGenerator::callLater(const std::function<void(const Values &...)> &block, Values... values)
{
    if (!block || isCancelled())
        return;
    KXMainQueue::async([cancelled = m_cancelled, block, values...] {
        if (!*cancelled)
            block(values...);
    });
}

void KXWaveformGenerator::cancelLater()
{
    if (m_cancelBlock)
        KXMainQueue::async(m_cancelBlock);
}

void KXWaveformGenerator::main()
{
    KXError error;
    if (!generateWaveformPaths(&error)) {
        callLater(m_failureBlock, error);
        return;
    }
    m_images = generateWaveformImages();
    callLater(m_successBlock, m_images);
}

bool KXWaveformGenerator::generateWaveformPaths(KXError *error)
{
    KXAudioFileOptions options;
    options.cancelled = m_cancelled;
    options.growthSeconds = waveformGrowthSeconds;
    options.decodingThreads = m_decodingThreads;
    KXAudioFile file;
    KXStreamFormat format;
    qint64 frames = 0;
    if (!file.openForReading(m_fileURL, options, &format, &frames, error)
        || !file.useFormat(KXPlanarFloatFormat(format.mSampleRate, format.mChannelsPerFrame), error)) {
        if (isCancelled())
            cancelLater();
        return false;
    }
    // A guess would leave the right of the image empty, or not see the end of the file.
    if (!file.lengthIsExact() && file.findExactLength() == KXAudioFileNoError)
        (void)file.lengthInFrames(&frames);

    const bool hasSize = m_size.width() > 0 && m_size.height() > 0;
    const QSize pixels
        = hasSize ? QSize(int(std::min(m_size.width(), 1e6)), int(std::min(m_size.height(), 1e6))) : QSize();
    m_pictures.clear();
    for (quint32 i = 0; i < (m_sumAllChannels ? 1 : format.mChannelsPerFrame); ++i)
        m_pictures.push_back(std::make_unique<KXWaveformPicture>(pixels, m_fillColour));
    if (frames > 0 && m_size.width() > 0)
        readColumns(file, format, qint64(std::min(std::ceil(double(frames) / m_size.width()), 1e15)));
    if (isCancelled())
        cancelLater();
    return true;
}

void KXWaveformGenerator::readColumns(KXAudioFile &file, const KXStreamFormat &format, qint64 framesPerColumn)
{
    const size_t channels = format.mChannelsPerFrame;
    const size_t most = std::max<size_t>(256, waveformChunkBytes / sizeof(float) / channels);
    const auto chunk = quint32(std::min<qint64>(qint64(most), framesPerColumn));
    std::vector<float> samples(channels * chunk);
    std::vector<float *> pointers;
    for (size_t c = 0; c < channels; ++c)
        pointers.push_back(samples.data() + c * chunk);

    std::vector<float> peaks(channels);
    qint64 columns = 0;
    while (!isCancelled()) {
        qint64 frames = 0;
        while (frames < framesPerColumn && !isCancelled()) {
            quint32 got = 0;
            const auto wanted = quint32(std::min<qint64>(chunk, framesPerColumn - frames));
            const KXAudioFileStatus status = file.read(pointers.data(), wanted, &got);
            if (status == KXAudioFileInvalidFileError) {
                std::this_thread::sleep_for(waveformPatience);
                continue;
            }
            if (got == 0)
                break;
            for (size_t c = 0; c < channels; ++c) {
                const float peak = maxV(pointers[c], got);
                peaks[c] = frames == 0 ? peak : std::max(peaks[c], peak);
            }
            frames += got;
        }
        if (frames == 0 || isCancelled())
            return;
        addColumn(peaks);
        if (++columns % ColumnsPerProgress == 0 && m_progressBlock) {
            if (const QList<QImage> images = generateWaveformImages(); !images.isEmpty())
                callLater(m_progressBlock, images);
        }
    }
}

void KXWaveformGenerator::addColumn(const std::vector<float> &peaks)
{
    if (!m_sumAllChannels) {
        for (size_t c = 0; c < peaks.size(); ++c)
            m_pictures[c]->add(peaks[c]);
        return;
    }
    float sum = 0;
    for (const float peak : peaks) {
        sum += std::isfinite(peak) ? peak : 0.0F;
        if (std::isfinite(sum))
            m_holdMaxValue = std::max(m_holdMaxValue, double(sum));
    }
    m_pictures[0]->add(sum);
}

QList<QImage> KXWaveformGenerator::generateWaveformImages()
{
    QList<QImage> images;
    for (const auto &picture : m_pictures) {
        const QImage image = picture->image(1 / m_holdMaxValue);
        if (!image.isNull())
            images.append(image);
    }
    return images;
}

QList<QPainterPath> KXWaveformGenerator::waveformPaths() const
{
    QList<QPainterPath> paths;
    for (const auto &picture : m_pictures) {
        QPainterPath path(QPointF(0, 0));
        const std::vector<float> &peaks = picture->peaks();
        for (size_t x = 0; x < peaks.size(); ++x)
            path.lineTo(double(x), peaks[x]);
        paths.append(path);
    }
    return paths;
}
