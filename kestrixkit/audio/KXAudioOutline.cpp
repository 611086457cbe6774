#include <kestrixkit/audio/KXAudioOutline.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <numbers>
#include <vector>

#include <kestrixkit/audio/KXAudioFile.h>

namespace {

constexpr int outlineBands = 17; // a bit for each pair of neighbours
constexpr double outlineLowest = 150, outlineHighest = 5000; // hertz: what every encoder keeps
constexpr double outlineHop = 0.25; // seconds
constexpr qsizetype outlineWordBytes = 2, outlineMostWords = 32;
constexpr qsizetype outlineLeastWords = 8; // two seconds: less proves nothing
constexpr double outlineStill = 0.02; // of the logarithm of a band's energy: what encoders add is less
constexpr double outlineFloor = 1e-8; // of full scale, squared
constexpr quint32 outlineRead = 4096; // frames at a time

/// Energies of bands, hop by hop, of a stream of mono samples.
class OutlineBands
{
public:
    using Energies = std::array<double, outlineBands>;

    explicit OutlineBands(double rate)
        : m_hop(qint64(std::lround(rate * outlineHop)))
    {
        const double step = std::pow(outlineHighest / outlineLowest, 1.0 / (outlineBands - 1));
        const double quality = 1 / (std::sqrt(step) - 1 / std::sqrt(step));
        for (int i = 0; i < outlineBands; ++i) {
            const double turn = 2 * std::numbers::pi * std::min(outlineLowest * std::pow(step, i) / rate, 0.49);
            const double alpha = std::sin(turn) / (2 * quality);
            m_bands[size_t(i)]
                = { alpha / (1 + alpha), -2 * std::cos(turn) / (1 + alpha), (1 - alpha) / (1 + alpha), 0, 0 };
        }
    }

    void take(double sample)
    {
        for (size_t i = 0; i < m_bands.size(); ++i) {
            Band &band = m_bands[i];
            const double out = band.gain * sample + band.first; // transposed: two values are all that is remembered
            band.first = band.second - band.a1 * out;
            band.second = -band.gain * sample - band.a2 * out;
            m_sums[i] += out * out;
        }
        if (++m_frames < m_hop)
            return;
        hops.push_back(std::exchange(m_sums, {}));
        m_frames = 0;
    }

    std::vector<Energies> hops;

private:
    struct Band
    {
        double gain, a1, a2, first, second;
    };
    std::array<Band, outlineBands> m_bands;
    Energies m_sums {};
    qint64 m_hop, m_frames = 0;
};

/// Which neighbour gained on the other since the hop before. Two hops are taken together: encoders shift a sound by up
/// to a tenth of one.
QByteArray outlineOf(const std::vector<OutlineBands::Energies> &hops)
{
    const auto level
        = [&](size_t hop, size_t band) { return std::log(outlineFloor + hops[hop][band] + hops[hop + 1][band]); };
    QByteArray bytes;
    qsizetype rising = 0;
    for (size_t hop = 1; hop + 1 < hops.size() && bytes.size() < outlineMostWords * outlineWordBytes; ++hop) {
        quint16 word = 0;
        for (size_t band = 0; band + 1 < outlineBands; ++band) {
            const double gained
                = level(hop, band) - level(hop, band + 1) - level(hop - 1, band) + level(hop - 1, band + 1);
            word = quint16(word << 1 | (gained > outlineStill));
        }
        rising += std::popcount(word);
        bytes.append(char(word >> 8)).append(char(word & 255));
    }
    const qsizetype bits = bytes.size() * 8;
    const bool says = bits >= outlineLeastWords * outlineWordBytes * 8 && rising * 8 > bits && rising * 8 < bits * 7;
    return says ? bytes : QByteArray();
}

} // namespace

KXAudioOutline KXAudioOutline::fromBytes(QByteArrayView bytes)
{
    KXAudioOutline outline;
    if (bytes.size() % outlineWordBytes == 0 && bytes.size() >= outlineLeastWords * outlineWordBytes
        && bytes.size() <= outlineMostWords * outlineWordBytes)
        outline.m_bytes = bytes.toByteArray();
    return outline;
}

KXAudioOutline KXAudioOutline::ofFile(
    const QUrl &url, const std::shared_ptr<std::atomic<bool>> &cancelled, KXError *error)
{
    KXAudioFileOptions options;
    options.cancelled = cancelled;
    KXAudioFile file;
    KXStreamFormat format;
    qint64 length = 0;
    if (!url.isLocalFile() || !file.openForReading(url, options, &format, &length, error))
        return {};
    OutlineBands bands(format.mSampleRate);
    std::vector<std::vector<float>> samples(format.mChannelsPerFrame, std::vector<float>(outlineRead));
    std::vector<float *> channels;
    for (std::vector<float> &channel : samples)
        channels.push_back(channel.data());
    const size_t most = size_t(Seconds / outlineHop) + 1;
    for (quint32 frames = 1; frames > 0 && bands.hops.size() < most;) {
        // What was read before a fault is a beginning as well.
        if (file.read(channels.data(), outlineRead, &frames) != KXAudioFileNoError)
            break;
        for (quint32 frame = 0; frame < frames; ++frame) {
            double sum = 0;
            for (const float *channel : channels)
                sum += double(channel[frame]);
            bands.take(std::isfinite(sum) ? sum / double(channels.size()) : 0);
        }
    }
    return cancelled && *cancelled ? KXAudioOutline() : fromBytes(outlineOf(bands.hops));
}

double KXAudioOutline::likeness(const KXAudioOutline &to) const
{
    const qsizetype size = std::min(m_bytes.size(), to.m_bytes.size());
    if (size == 0)
        return 0;
    int different = 0;
    for (qsizetype i = 0; i < size; ++i)
        different += std::popcount(quint8(m_bytes[i] ^ to.m_bytes[i]));
    return 1 - double(different) / double(size * 8);
}
