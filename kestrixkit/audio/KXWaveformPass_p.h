#pragma once

#include <atomic>
#include <functional>

#include <kestrixkit/audio/KXAudioFile.h>

/// One way through an audio file for its waveform.
///
/// Threads: one at a time.
class KXWaveformPass
{
public:
    /// Opens the file. False when that fails or is cancelled, the latter without an error.
    bool open(const QUrl &url, std::shared_ptr<std::atomic<bool>> cancelled, KXError *error);
    [[nodiscard]] const KXStreamFormat &format() const { return m_format; }
    /// As promised.
    [[nodiscard]] qint64 frames() const { return m_frames; }
    /// Goes to a frame first.
    bool seek(qint64 frame, KXError *error);
    /// Hands out up to so many frames, piece by piece, to the file's end at most. A file that grows is waited for.
    /// False as above, and when reading fails.
    bool run(qint64 frames, const std::function<void(const float *const *channels, int frames)> &take, KXError *error);

private:
    bool fail(KXAudioFileStatus status, KXError *error);

    KXAudioFile m_file;
    std::shared_ptr<std::atomic<bool>> m_cancelled;
    KXStreamFormat m_format;
    qint64 m_frames = 0;
};

/// Divides a stretch of frames evenly among columns, each of which has at least one of them.
class KXWaveformBounds
{
public:
    KXWaveformBounds(qint64 from, qint64 to, int count)
        : m_from(from)
        , m_to(std::max(from, to))
        , m_count(count)
    {
    }
    [[nodiscard]] qint64 start(int column) const
    {
        const qint64 frames = m_to - m_from;
        // The product of the whole would not fit where files are long.
        return m_from + frames / m_count * column + frames % m_count * column / m_count;
    }
    [[nodiscard]] qint64 end(int column) const { return std::max(start(column) + 1, start(column + 1)); }
    template <typename Function> void forEach(const Function &function) const
    {
        for (int column = 0; column < m_count; ++column)
            function(start(column), end(column));
    }

private:
    qint64 m_from;
    qint64 m_to;
    int m_count;
};
