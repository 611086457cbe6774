#pragma once

#include <kestrixkit/audio/KXWaveformPyramid.h>

/// A stretch of a file's waveform, decoded: for zooms at which the pyramid's cells would show.
struct KX_AUDIO_EXPORT KXWaveformWindow
{
    qint64 from = 0; ///< frames
    qint64 to = 0; ///< where it is not after `from`, every column shows the frame that is there
    int columns = 0; ///< of equal width, each at least a frame wide
    std::vector<int> channels; ///< least and greatest over these; all of them when empty and there are no gains
    std::vector<float> gains; ///< if any: of the mix of the stems with these gains, missing ones 1

    /// Exactly what the samples are; what lies outside of the file is zero. Takes as long as decoding the stretch.
    /// Nothing when cancelled, and with an error when the file cannot be read. Any thread.
    [[nodiscard]] std::optional<KXWaveformColumns> read(
        const QUrl &url, const std::shared_ptr<std::atomic<bool>> &cancelled = {}, KXError *error = nullptr) const;
};
