#include <kestrixkit/audio/KXWaveformPicture_p.h>

#include <cmath>
#include <cstring>

#include <QtEndian>

namespace {

constexpr size_t waveformBlockColumns = 64; // drawn together: a cache line is written as a whole

/// One column of pixels: the height of the shape above the centre line goes from |a| to |b| in a straight line, through
/// zero where the signs differ. Unit: pixels.
struct WaveformColumn
{
    double a = 0, b = 0;
    double sign = 1; // 1 where a and b are on the same side, else -1
    double factor = 0;

    WaveformColumn() = default;
    WaveformColumn(double from, double to)
    {
        constexpr double flattest = 1e-4; // keeps level lines from dividing by zero, and is too little to be seen
        constexpr double highest = 1e5; // of far more than any image, where squares still are precise enough
        sign = from * to < 0 ? -1 : 1;
        a = std::min(std::abs(from), highest);
        b = std::min(std::abs(to), highest);
        if (std::abs(a - sign * b) < flattest)
            a = b + flattest;
        factor = 0.5 / (a - sign * b);
    }
    /// The area of the shape further than `distance` from the centre line.
    [[nodiscard]] double areaBeyond(double distance) const
    {
        const double overA = std::max(a - distance, 0.0);
        const double overB = std::max(b - distance, 0.0);
        return (overA * overA - sign * overB * overB) * factor;
    }
};

}

KXWaveformPicture::KXWaveformPicture(const QSize &pixels, const QColor &colour)
    : m_pixels(pixels)
{
    const QRgb rgba = colour.rgba();
    m_shades.reserve(256);
    for (quint32 coverage = 0; coverage < 256; ++coverage) {
        const quint32 alpha = quint32(qAlpha(rgba)) * coverage;
        const auto premultiplied = [&](int part) { return (quint32(part) * alpha + 255 * 255 / 2) / (255 * 255); };
        m_shades.push_back(qToLittleEndian(premultiplied(qRed(rgba)) | premultiplied(qGreen(rgba)) << 8
            | premultiplied(qBlue(rgba)) << 16 | ((alpha + 127) / 255) << 24));
    }
}

QImage KXWaveformPicture::image(double scale)
{
    Canvas &canvas = m_canvases[m_next];
    m_next = 1 - m_next;
    if (canvas.image.isNull() || canvas.scale != scale) {
        canvas = { QImage(m_pixels, QImage::Format_RGBA8888_Premultiplied), 0, scale };
        // Not QImage::fill: it leaves the vector registers in a state that slows decoding down afterwards.
        if (!canvas.image.isNull())
            std::memset(canvas.image.bits(), 0, size_t(canvas.image.sizeInBytes()));
    }
    // What was the last column sloped down to nothing.
    const size_t first = canvas.columns > 0 ? canvas.columns - 1 : 0;
    canvas.columns = std::min(m_peaks.size(), size_t(std::max(0, m_pixels.width())));
    if (!canvas.image.isNull()) {
        for (size_t at = first; at < canvas.columns; at += waveformBlockColumns)
            draw(canvas, at);
    }
    return canvas.image;
}

void KXWaveformPicture::draw(Canvas &canvas, size_t firstColumn)
{
    const size_t count = std::min(waveformBlockColumns, canvas.columns - firstColumn);
    const int height = m_pixels.height();
    const int half = height / 2; // where the height is odd, only peaks beyond 1 reach the top row
    WaveformColumn columns[waveformBlockColumns];
    double beyond[waveformBlockColumns];
    for (size_t i = 0; i < count; ++i) {
        const size_t at = firstColumn + i;
        const double next = at + 1 < m_peaks.size() ? m_peaks[at + 1] : 0.0F;
        columns[i] = { half * canvas.scale * m_peaks[at], half * canvas.scale * next };
        beyond[i] = columns[i].areaBeyond(0);
    }
    for (int distance = 0; distance < height - half; ++distance) {
        quint32 row[waveformBlockColumns];
        for (size_t i = 0; i < count; ++i) {
            const double further = columns[i].areaBeyond(distance + 1);
            row[i] = m_shades[size_t(std::clamp(int((beyond[i] - further) * 255 + 0.5), 0, 255))];
            beyond[i] = further;
        }
        for (const int y : { height - 1 - half - distance, height - half + distance }) {
            if (y < height)
                std::memcpy(canvas.image.scanLine(y) + firstColumn * sizeof(quint32), row, count * sizeof(quint32));
        }
    }
}
