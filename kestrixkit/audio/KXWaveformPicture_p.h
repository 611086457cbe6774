#pragma once

#include <cmath>
#include <vector>

#include <QColor>
#include <QImage>

#include <kestrixkit/foundation/KXGlobal.h>

/// Draws peaks as a waveform: for each column a point, joined by straight lines, mirrored about the centre and filled,
/// with edges as smooth as the pixels allow. A plain class: no file, no thread.
///
/// A picture of some of the peaks costs only the columns that the one before did not have, and has the pixels that it
/// would have if it were drawn alone. Pictures that were handed out never change.
class KX_AUDIO_EXPORT KXWaveformPicture
{
public:
    /// A size without pixels makes null images.
    KXWaveformPicture(const QSize &pixels, const QColor &colour);

    /// Peaks that are no numbers count as silence.
    void add(float peak) { m_peaks.push_back(std::isfinite(peak) ? peak : 0.0F); }
    [[nodiscard]] const std::vector<float> &peaks() const { return m_peaks; }

    /// All peaks so far, scaled; a scaled peak of 1 reaches the edge, and what is above is cut off. The last column
    /// slopes down to the centre line.
    [[nodiscard]] QImage image(double scale);

private:
    struct Canvas
    {
        QImage image;
        size_t columns = 0; // drawn
        double scale = 1;
    };
    void draw(Canvas &canvas, size_t firstColumn);

    const QSize m_pixels;
    std::vector<quint32> m_shades; // the colour at each of 256 coverages, as it lies in the image
    std::vector<float> m_peaks;
    // Used in turn. Whoever gets the pictures usually keeps the newest one only, so the older canvas belongs to nobody
    // else and is drawn on without a copy being made.
    Canvas m_canvases[2];
    int m_next = 0;
};
