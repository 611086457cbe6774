#include <kestrixkit/audio/KXWaveformGenerator.h>

#include <array>
#include <cmath>
#include <condition_variable>
#include <limits>
#include <mutex>
#include <thread>

#include <kestrixkit/audio/KXAudioFile.h>
#include <kestrixkit/audio/KXWaveformPicture_p.h>
#include <kestrixkit/foundation/KXMainQueue.h>
#include <kestrixkit/foundation/KXStringWithFormat.h>

namespace {

constexpr size_t waveformChunkBytes = 128 * 1024; // of all channels: stays in the cache between decoding and looking
constexpr double waveformMostSide = 32768; // pixels, from here on more than painters take
constexpr double waveformMostArea = 1 << 26; // pixels of an image
constexpr auto waveformPatience = std::chrono::milliseconds(20); // between two looks at a file that grows
constexpr double waveformGrowthSeconds = 3; // a picture cannot wait as long as a player

/// Reads a file column by column.
class WaveformColumns
{
public:
    WaveformColumns(KXAudioFile &file, quint32 channels, qint64 framesPerColumn, const std::atomic<bool> &cancelled)
        : m_file(file)
        , m_framesPerColumn(framesPerColumn)
        , m_chunk(quint32(
              std::min<qint64>(std::max<qint64>(256, waveformChunkBytes / sizeof(float) / channels), framesPerColumn)))
        , m_cancelled(cancelled)
        , m_samples(size_t(channels) * m_chunk)
    {
        for (size_t c = 0; c < channels; ++c)
            m_pointers.push_back(m_samples.data() + c * m_chunk);
    }

    /// The largest sample of each channel in the next column. False when cancelled, and where no frame is left.
    bool next(std::vector<float> &peaks)
    {
        qint64 frames = 0;
        while (frames < m_framesPerColumn && !m_cancelled) {
            quint32 got = 0;
            const KXAudioFileStatus status
                = m_file.read(m_pointers.data(), quint32(std::min<qint64>(m_chunk, m_framesPerColumn - frames)), &got);
            if (status == KXAudioFileInvalidFileError) {
                std::this_thread::sleep_for(waveformPatience);
                continue;
            }
            if (got == 0)
                break;
            for (size_t c = 0; c < m_pointers.size(); ++c) {
                const float peak = maxV(m_pointers[c], got);
                peaks[c] = frames == 0 ? peak : std::max(peaks[c], peak);
            }
            frames += got;
        }
        return frames > 0 && !m_cancelled;
    }

private:
    KXAudioFile &m_file;
    const qint64 m_framesPerColumn;
    const quint32 m_chunk; // frames
    const std::atomic<bool> &m_cancelled;
    std::vector<float> m_samples;
    std::vector<float *> m_pointers;
};

KXAudioFileOptions waveformOptions(const std::shared_ptr<std::atomic<bool>> &cancelled)
{
    KXAudioFileOptions options;
    options.cancelled = cancelled;
    options.growthSeconds = waveformGrowthSeconds;
    return options;
}

/// A run of columns that a thread of its own reads ahead.
class WaveformPart
{
public:
    /// From the column `first` on, `columns` of them, or to the end of the file for -1.
    WaveformPart(const QUrl &url, const std::shared_ptr<std::atomic<bool>> &cancelled, const KXStreamFormat &format,
        qint64 framesPerColumn, qint64 first, qint64 columns)
        : m_first(first)
        , m_channels(format.mChannelsPerFrame)
        , m_thread([=, this] { read(url, cancelled, format, framesPerColumn, columns); })
    {
    }
    ~WaveformPart()
    {
        m_unwanted = true;
        m_thread.join();
    }
    Q_DISABLE_COPY_MOVE(WaveformPart)

    /// False where the file could not be opened a second time, or cannot be read from the middle.
    bool hasBegun()
    {
        std::unique_lock lock(m_mutex);
        m_changed.wait(lock, [this] { return m_state != Opening; });
        return m_state != Failed;
    }
    /// The peaks of a column, once they are there. False where the file ended before.
    bool wait(qint64 column, std::vector<float> &peaks)
    {
        const size_t at = size_t(column - m_first) * m_channels;
        std::unique_lock lock(m_mutex);
        m_changed.wait(lock, [&] { return at < m_peaks.size() || m_state == Ended; });
        if (at >= m_peaks.size())
            return false;
        std::copy_n(m_peaks.begin() + ptrdiff_t(at), m_channels, peaks.begin());
        return true;
    }

private:
    enum State { Opening, Failed, Reading, Ended };

    void enter(State state)
    {
        const std::lock_guard lock(m_mutex);
        m_state = state;
        m_changed.notify_one();
    }

    void read(const QUrl &url, const std::shared_ptr<std::atomic<bool>> &cancelled, const KXStreamFormat &format,
        qint64 framesPerColumn, qint64 columns)
    {
        KXAudioFile file;
        KXStreamFormat found;
        qint64 frames = 0;
        if (!file.openForReading(url, waveformOptions(cancelled), &found, &frames, nullptr)
            || found.mChannelsPerFrame != m_channels
            || !file.useFormat(KXPlanarFloatFormat(format.mSampleRate, format.mChannelsPerFrame), nullptr)
            || file.seek(m_first * framesPerColumn) != KXAudioFileNoError)
            return enter(Failed);
        enter(Reading);
        WaveformColumns reader(file, format.mChannelsPerFrame, framesPerColumn, *cancelled);
        std::vector<float> peaks(m_channels);
        for (qint64 i = 0; i != columns && !m_unwanted && reader.next(peaks); ++i) {
            const std::lock_guard lock(m_mutex);
            m_peaks.insert(m_peaks.end(), peaks.begin(), peaks.end());
            m_changed.notify_one();
        }
        enter(Ended);
    }

    const qint64 m_first;
    const size_t m_channels;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    State m_state = Opening;
    std::vector<float> m_peaks; // of all channels, column by column
    std::atomic<bool> m_unwanted { false };
    std::thread m_thread;
};

}

float maxV(const float *samples, size_t count)
{
    // Several maxima side by side, since each step waits for the one before: eight registers of 128 bits where the
    // compiler has them. The order of the operands passes over what is no number.
    constexpr size_t lanes = 32;
    const auto greater = [](float sample, float most) { return sample > most ? sample : most; };
    std::array<float, lanes> most;
    most.fill(-std::numeric_limits<float>::infinity());
    size_t at = 0;
    for (; at + lanes <= count; at += lanes) {
        for (size_t i = 0; i < lanes; ++i)
            most[i] = greater(samples[at + i], most[i]);
    }
    for (; at < count; ++at)
        most[0] = greater(samples[at], most[0]);
    for (size_t i = 1; i < lanes; ++i)
        most[0] = greater(most[i], most[0]);
    return most[0];
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
    if (!block || *m_cancelled)
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
    if (m_size.width() >= waveformMostSide || m_size.height() >= waveformMostSide
        || (!m_size.isEmpty() && m_size.width() * m_size.height() > waveformMostArea))
        return KXSetError(error,
            KXError(KXKestrixKitErrorDomain, KXWaveformSizeErrorCode,
                KXStringWithFormat(
                    KXLocalizedString("A waveform of %g by %g pixels is too large"), m_size.width(), m_size.height())));
    KXAudioFile file;
    KXStreamFormat format;
    qint64 frames = 0;
    if (!file.openForReading(m_fileURL, waveformOptions(m_cancelled), &format, &frames, error)
        || !file.useFormat(KXPlanarFloatFormat(format.mSampleRate, format.mChannelsPerFrame), error)) {
        if (*m_cancelled)
            cancelLater();
        return false;
    }
    // A guess would leave the right of the image empty, or not see the end of the file.
    if (!file.lengthIsExact() && file.findExactLength() == KXAudioFileNoError)
        (void)file.lengthInFrames(&frames);

    const bool isDrawable = m_size.width() > 0 && m_size.height() > 0; // neither is a size that is no number
    const QSize pixels = isDrawable ? QSize(int(m_size.width()), int(m_size.height())) : QSize();
    m_pictures.clear();
    for (quint32 i = 0; i < (m_sumAllChannels ? 1 : format.mChannelsPerFrame); ++i)
        m_pictures.push_back(std::make_unique<KXWaveformPicture>(pixels, m_fillColour));
    if (frames > 0 && m_size.width() > 0) {
        const auto framesPerColumn = qint64(std::min(std::ceil(double(frames) / m_size.width()), 1e15));
        readColumns(file, format, framesPerColumn, (frames + framesPerColumn - 1) / framesPerColumn);
    }
    if (*m_cancelled)
        cancelLater();
    return true;
}

void KXWaveformGenerator::readColumns(
    KXAudioFile &file, const KXStreamFormat &format, qint64 framesPerColumn, qint64 columns)
{
    // Files are divided among threads, not frames among a codec's threads: waking one for each frame costs as much as
    // decoding it. Each thread reads a run of columns through a file of its own.
    const qint64 share = (columns + m_decodingThreads - 1) / m_decodingThreads;
    std::vector<std::unique_ptr<WaveformPart>> parts;
    for (qint64 first = share; first < columns; first += share)
        parts.push_back(std::make_unique<WaveformPart>(
            m_fileURL, m_cancelled, format, framesPerColumn, first, first + share < columns ? share : -1));

    WaveformColumns own(file, format.mChannelsPerFrame, framesPerColumn, *m_cancelled);
    std::vector<float> peaks(format.mChannelsPerFrame);
    qint64 read = 0; // columns, through the file at hand
    for (qint64 column = 0; !*m_cancelled; ++column) {
        const auto place = size_t(std::min(column / share, qint64(parts.size())));
        WaveformPart *const part = place > 0 ? parts[place - 1].get() : nullptr;
        if (part && part->hasBegun()) {
            if (!part->wait(column, peaks))
                return;
        } else {
            if (read != column && file.seek(column * framesPerColumn) != KXAudioFileNoError)
                return;
            if (!own.next(peaks))
                return;
            read = column + 1;
        }
        addColumn(peaks);
        if ((column + 1) % ColumnsPerProgress == 0 && m_progressBlock) {
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
        const std::vector<float> &peaks = picture->peaks();
        QPolygonF points { QPointF(0, 0) }; // a path that is drawn line by line leaves out a first peak of 0
        for (size_t x = 0; x < peaks.size(); ++x)
            points.append(QPointF(double(x), peaks[x]));
        QPainterPath path;
        path.addPolygon(points);
        paths.append(path);
    }
    return paths;
}
