#pragma once

#include <algorithm>

#include <QColor>
#include <QImage>
#include <QPainterPath>
#include <QUrl>

#include <kestrixkit/audio/KXAudioTypes.h>
#include <kestrixkit/foundation/KXAbstractOperation.h>
#include <kestrixkit/foundation/KXError.h>

class KXAudioFile;
class KXWaveformPicture;

/// The code of the error of a waveform larger than can be drawn, in KXKestrixKitErrorDomain.
inline constexpr int KXWaveformSizeErrorCode = 1002;

/// The largest of `count` samples, signed: of a run that is negative throughout, the one closest to zero. Passes over
/// what is no number; negative infinity when nothing is left.
[[nodiscard]] KX_AUDIO_EXPORT float maxV(const float *samples, size_t count);

/// Draws the overview of an audio file: an image for each channel, or one of all channels added up.
///
/// The width is divided evenly among the file's frames, at least one frame a column; a file with fewer frames than
/// columns fills the left of the image only. Each column stands for the largest sample of its frames. The shape is
/// mirrored about the centre and reaches the edges where a sample is 1; sums that are larger are scaled down to fit,
/// all columns alike, single channels are cut off instead. While it works it offers partial images that grow from left
/// to right, one after every 150 columns.
///
/// An operation for a queue, used once. It reads the file once, in pieces, so that the memory it takes does not depend
/// on how long the file is. A file that still grows is waited for, up to a few seconds after its last change.
///
/// Threads: the work is done on the operation's thread, and on as many others as it is told to use. Blocks are called
/// on the main thread, later, and never after cancel() but for the cancel block. To be set up before it is queued;
/// results are to be read when it is done.
class KX_AUDIO_EXPORT KXWaveformGenerator : public KXAbstractOperation
{
public:
    using ImagesBlock = std::function<void(const QList<QImage> &)>;
    static constexpr int ColumnsPerProgress = 150;

    /// Size in pixels, of which whole ones are drawn: below 32,768 on either side, and 2^26 in all.
    KXWaveformGenerator(const QUrl &fileURL, const QSizeF &size, const QColor &fillColour);
    ~KXWaveformGenerator() override;

    [[nodiscard]] QUrl fileURL() const { return m_fileURL; }
    [[nodiscard]] QSizeF size() const { return m_size; }
    [[nodiscard]] QColor fillColour() const { return m_fillColour; }

    /// One image of the sum of the channels' peaks. False at first.
    [[nodiscard]] bool sumAllChannels() const { return m_sumAllChannels; }
    void setSumAllChannels(bool sum) { m_sumAllChannels = sum; }

    /// Threads that decode at a time, each a part of the file, for whoever waits for the result. 1 at first, and at
    /// least.
    void setDecodingThreads(int threads) { m_decodingThreads = std::max(1, threads); }

    [[nodiscard]] const ImagesBlock &successBlock() const { return m_successBlock; }
    void setSuccessBlock(ImagesBlock block) { m_successBlock = std::move(block); }
    [[nodiscard]] const ImagesBlock &progressBlock() const { return m_progressBlock; }
    void setProgressBlock(ImagesBlock block) { m_progressBlock = std::move(block); }
    [[nodiscard]] const std::function<void(const KXError &)> &failureBlock() const { return m_failureBlock; }
    /// Gets an error with the code KXAudioFileErrorCode: the file cannot be opened; or KXWaveformSizeErrorCode.
    void setFailureBlock(std::function<void(const KXError &)> block) { m_failureBlock = std::move(block); }
    [[nodiscard]] const std::function<void()> &cancelBlock() const { return m_cancelBlock; }
    void setCancelBlock(std::function<void()> block) { m_cancelBlock = std::move(block); }

    void main() override;
    void cancel() override;

    /// Reads the file. True also when cancelled, or when reading failed in the middle: what there is then counts.
    bool generateWaveformPaths(KXError *error = nullptr);
    /// The images of what has been read; none where the size has no pixels.
    [[nodiscard]] QList<QImage> generateWaveformImages();

    /// For each image the line from (0, 0) through (column, peak), unscaled.
    [[nodiscard]] QList<QPainterPath> waveformPaths() const;
    [[nodiscard]] QList<QImage> waveformImages() const { return m_images; }
    /// The largest sum so far, at least 1: what sums are divided by.
    [[nodiscard]] double holdMaxValue() const { return m_holdMaxValue; }

private:
    void readColumns(KXAudioFile &file, const KXStreamFormat &format, qint64 framesPerColumn, qint64 columns);
    void addColumn(const std::vector<float> &peaks);
    template <typename... Values> void callLater(const std::function<void(const Values &...)> &block, Values... values);
    void cancelLater();

    const QUrl m_fileURL;
    const QSizeF m_size;
    const QColor m_fillColour;
    bool m_sumAllChannels = false;
    int m_decodingThreads = 1;
    ImagesBlock m_successBlock, m_progressBlock;
    std::function<void(const KXError &)> m_failureBlock;
    std::function<void()> m_cancelBlock;

    const std::shared_ptr<std::atomic<bool>> m_cancelled; // outlives the operation in what it has queued
    std::vector<std::unique_ptr<KXWaveformPicture>> m_pictures;
    QList<QImage> m_images;
    double m_holdMaxValue = 1;
};
