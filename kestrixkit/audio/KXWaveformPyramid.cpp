#include <kestrixkit/audio/KXWaveformPyramid.h>

#include <bit>
#include <cmath>
#include <cstring>
#include <numeric>

#include <QtEndian>

#include <zlib.h>

#include <kestrixkit/audio/KXAudioFile.h>
#include <kestrixkit/audio/KXAudioLoudness_p.h>
#include <kestrixkit/audio/KXWaveformMeter_p.h>
#include <kestrixkit/audio/KXWaveformPass_p.h>
#include <kestrixkit/foundation/KXStringWithFormat.h>

namespace {

constexpr char pyramidMagic[8] = { 'K', 'X', 'W', 'A', 'V', 'E', 1, 0 }; // the last two: the version
constexpr qsizetype pyramidHeaderBytes = 64;
constexpr qsizetype pyramidMostCells = 8192;
constexpr qsizetype pyramidBytesPerValue = 3; // least, greatest, RMS

qsizetype pyramidCells(int channels)
{
    const int lanes = KXWaveformLanes { channels }.count();
    const qsizetype there = KXWaveformPyramid::MostBytes - pyramidHeaderBytes - qsizetype(sizeof(float)) * lanes;
    return std::min(pyramidMostCells, there / (pyramidBytesPerValue * lanes) / 2 * 2);
}

quint32 pyramidChecksum(QByteArrayView bytes)
{
    return quint32(crc32_z(0, reinterpret_cast<const Bytef *>(bytes.data()), size_t(bytes.size())));
}

/// The header as it lies in the bytes, little-endian.
struct PyramidHeader
{
    char magic[8];
    quint32 checksum; // CRC-32 of all that follows
    quint32 channels;
    quint64 cells;
    quint64 framesPerCell;
    quint64 frames;
    double sampleRate;
    double loudness;
    // the fingerprint's 16 bytes and the lanes follow
};
constexpr qsizetype pyramidChecked = 12; // where what is checked begins
constexpr qsizetype pyramidFingerprint = sizeof(PyramidHeader);
static_assert(pyramidFingerprint == 56 && Q_BYTE_ORDER == Q_LITTLE_ENDIAN);
constexpr qsizetype pyramidLanes = pyramidFingerprint + KXAudioFingerprint::Bytes;

}

std::optional<KXWaveformPyramid> KXWaveformPyramid::read(const QUrl &url, const KXWaveformReading &how, KXError *error)
{
    KXWaveformPass pass;
    if (!pass.open(url, how.cancelled, error))
        return {};
    const auto channels = int(pass.format().mChannelsPerFrame);
    if (channels < 1 || channels > MostChannels) {
        KXSetError(error,
            KXError(KXKestrixKitErrorDomain, KXWaveformChannelsErrorCode,
                KXStringWithFormat(KXLocalizedString("A waveform of %i channels cannot be made"), channels)));
        return {};
    }
    KXWaveformMeter meter(channels, pyramidCells(channels));
    std::optional<KXAudioLoudness> loudness;
    if (how.measuresLoudness)
        loudness.emplace(quint32(channels), pass.format().mSampleRate);
    double told = 0;
    const auto take = [&](const float *const *samples, int frames) {
        meter.add(samples, 0, frames);
        if (loudness)
            loudness->add(samples, frames);
        const double done = double(meter.frames()) / double(std::max<qint64>(1, pass.frames()));
        if (how.progress && done >= told + 0.01) // no more often than anybody sees
            how.progress(told = std::min(done, 1.0));
    };
    if (!pass.run(std::numeric_limits<qint64>::max(), take, error))
        return {};

    KXWaveformPyramid pyramid;
    pyramid.m_frames = meter.frames();
    pyramid.m_sampleRate = pass.format().mSampleRate;
    pyramid.m_channels = channels;
    pyramid.m_framesPerCell = meter.framesPerCell();
    pyramid.m_cells = meter.cells();
    pyramid.m_loudness = loudness ? loudness->lufs() : std::numeric_limits<double>::quiet_NaN();
    for (int i = 0; i < KXWaveformLanes { channels }.count(); ++i) {
        float peak = 0;
        for (qsizetype cell = 0; cell < pyramid.m_cells; ++cell)
            peak = std::max({ peak, meter.extent(i, cell).greatest, -meter.extent(i, cell).least });
        Lane &lane = pyramid.m_lanes.emplace_back();
        lane.step = peak / 127;
        while (lane.step * 127 < peak)
            lane.step = std::nextafter(lane.step, std::numeric_limits<float>::infinity());
        // Down to the step below; the division may have rounded it up.
        const auto outwards = [step = lane.step](float value) {
            int steps = step > 0 ? int(std::floor(value / step)) : 0;
            steps -= float(steps) * step > value;
            return std::max(-127, steps);
        };
        for (qsizetype cell = 0; cell < pyramid.m_cells; ++cell) {
            const KXWaveformExtent &extent = meter.extent(i, cell);
            const double rms = std::sqrt(extent.energy / double(extent.samples));
            lane.least.push_back(qint8(outwards(extent.least)));
            lane.greatest.push_back(qint8(-outwards(-extent.greatest)));
            lane.rms.push_back(quint8(lane.step > 0 ? std::min(255.0, std::round(rms / double(lane.step) * 2)) : 0));
        }
    }
    return pyramid;
}

QByteArray KXWaveformPyramid::toBytes() const
{
    PyramidHeader header = { {}, 0, quint32(m_channels), quint64(m_cells), quint64(m_framesPerCell), quint64(m_frames),
        m_sampleRate, m_loudness };
    std::memcpy(header.magic, pyramidMagic, sizeof header.magic);
    QByteArray bytes(reinterpret_cast<const char *>(&header), sizeof header);
    bytes.reserve(MostBytes);
    bytes += m_fingerprint.isEmpty() ? QByteArray(KXAudioFingerprint::Bytes, 0) : m_fingerprint.bytes();
    for (const Lane &lane : m_lanes) {
        bytes.append(reinterpret_cast<const char *>(&lane.step), sizeof lane.step);
        bytes.append(reinterpret_cast<const char *>(lane.least.data()), m_cells);
        bytes.append(reinterpret_cast<const char *>(lane.greatest.data()), m_cells);
        bytes.append(reinterpret_cast<const char *>(lane.rms.data()), m_cells);
    }
    const quint32 checksum = pyramidChecksum(QByteArrayView(bytes).sliced(pyramidChecked));
    std::memcpy(bytes.data() + offsetof(PyramidHeader, checksum), &checksum, sizeof checksum);
    return bytes;
}

std::optional<KXWaveformPyramid> KXWaveformPyramid::fromBytes(QByteArrayView bytes, KXError *error)
{
    const auto fail = [error] {
        KXSetError(error,
            KXError(KXKestrixKitErrorDomain, KXWaveformBytesErrorCode,
                KXLocalizedString("A stored waveform is damaged or of another version")));
        return std::nullopt;
    };
    PyramidHeader header;
    if (bytes.size() < pyramidLanes || bytes.size() > MostBytes)
        return fail();
    std::memcpy(&header, bytes.data(), sizeof header);
    if (std::memcmp(header.magic, pyramidMagic, sizeof header.magic) != 0
        || header.checksum != pyramidChecksum(bytes.sliced(pyramidChecked)))
        return fail();
    // Whoever made the checksum may still have made up the rest.
    constexpr quint64 mostFrames = quint64(1) << 53;
    if (header.channels < 1 || header.channels > quint32(MostChannels)
        || header.cells > quint64(pyramidCells(int(header.channels))) || header.frames > mostFrames
        || header.framesPerCell < quint64(KXWaveformMeter::LeastFramesPerCell) || header.framesPerCell > mostFrames
        || header.cells != (header.frames + header.framesPerCell - 1) / header.framesPerCell
        || !std::isfinite(header.sampleRate) || header.sampleRate <= 0)
        return fail();
    const int lanes = KXWaveformLanes { int(header.channels) }.count();
    const auto cells = qsizetype(header.cells);
    if (bytes.size() != pyramidLanes + lanes * (qsizetype(sizeof(float)) + pyramidBytesPerValue * cells))
        return fail();

    KXWaveformPyramid pyramid;
    pyramid.m_frames = qint64(header.frames);
    pyramid.m_sampleRate = header.sampleRate;
    pyramid.m_channels = int(header.channels);
    pyramid.m_framesPerCell = qint64(header.framesPerCell);
    pyramid.m_cells = cells;
    pyramid.m_loudness = header.loudness;
    pyramid.m_fingerprint = KXAudioFingerprint::fromBytes(bytes.sliced(pyramidFingerprint, KXAudioFingerprint::Bytes));
    const char *at = bytes.data() + pyramidLanes;
    for (int i = 0; i < lanes; ++i) {
        Lane &lane = pyramid.m_lanes.emplace_back();
        std::memcpy(&lane.step, at, sizeof lane.step);
        if (!std::isfinite(lane.step) || lane.step < 0)
            return fail();
        at += sizeof lane.step;
        lane.least.assign(at, at + cells);
        lane.greatest.assign(at + cells, at + 2 * cells);
        lane.rms.assign(at + 2 * cells, at + 3 * cells);
        at += 3 * cells;
    }
    return pyramid;
}

std::optional<double> KXWaveformPyramid::loudness() const
{
    return std::isnan(m_loudness) ? std::nullopt : std::optional(m_loudness);
}

KXWaveformColumn KXWaveformPyramid::column(std::span<const int> lanes, qint64 from, qint64 to) const
{
    from = std::max<qint64>(0, from);
    to = std::min(m_frames, to);
    if (from >= to)
        return {};
    const qint64 first = from / m_framesPerCell, last = (to - 1) / m_framesPerCell;
    KXWaveformExtent all;
    for (const int index : lanes) {
        const Lane &lane = m_lanes[size_t(index)];
        int least = 127, greatest = -127;
        double energy = 0;
        qint64 samples = 0;
        for (qint64 cell = first; cell <= last; ++cell) {
            least = std::min<int>(least, lane.least[size_t(cell)]);
            greatest = std::max<int>(greatest, lane.greatest[size_t(cell)]);
            const qint64 frames = std::min(to, (cell + 1) * m_framesPerCell) - std::max(from, cell * m_framesPerCell);
            const double rms = double(lane.rms[size_t(cell)]) * 0.5 * double(lane.step);
            energy += rms * rms * double(frames);
            samples += frames;
        }
        all.add({ float(least) * lane.step, float(greatest) * lane.step, energy, samples });
    }
    if (all.samples == 0)
        return {};
    return { all.least, all.greatest, float(std::sqrt(all.energy / double(all.samples))) };
}

std::vector<int> KXWaveformPyramid::lanesOfStem(int stem) const
{
    std::vector<int> lanes { 2 * stem };
    if (2 * stem + 1 < m_channels)
        lanes.push_back(2 * stem + 1);
    return lanes;
}

KXWaveformColumns KXWaveformPyramid::columnsOfChannels(
    std::span<const int> channels, qint64 from, qint64 to, int count) const
{
    std::vector<int> lanes;
    for (int c = 0; c < m_channels; ++c) {
        if (channels.empty() || std::find(channels.begin(), channels.end(), c) != channels.end())
            lanes.push_back(c);
    }
    KXWaveformColumns columns;
    KXWaveformBounds(from, to, count).forEach([&](qint64 start, qint64 end) {
        columns.push_back(column(lanes, start, end));
    });
    return columns;
}

KXWaveformColumns KXWaveformPyramid::columnsOfStems(
    std::span<const float> gains, qint64 from, qint64 to, int count, bool *isEstimate) const
{
    std::vector<float> gainOf(size_t(stems()), 1.0F);
    std::copy_n(gains.begin(), std::min(gains.size(), gainOf.size()), gainOf.begin());
    quint32 set = 0;
    float gain = 0;
    bool isSame = true;
    for (size_t i = 0; i < gainOf.size(); ++i) {
        if (gainOf[i] == 0)
            continue;
        isSame = isSame && (set == 0 || gainOf[i] == gain);
        set |= 1U << i;
        gain = gainOf[i];
    }
    const std::vector<quint32> sets = KXWaveformLanes { m_channels }.sets();
    const auto laneOf = [&](quint32 stemsOfLane) -> std::vector<int> {
        if (std::popcount(stemsOfLane) == 1)
            return lanesOfStem(std::countr_zero(stemsOfLane));
        const auto found = std::find(sets.begin(), sets.end(), stemsOfLane);
        return found == sets.end() ? std::vector<int>() : std::vector<int> { m_channels + int(found - sets.begin()) };
    };
    KXWaveformColumns columns;
    const std::vector<int> exact = set != 0 && isSame ? laneOf(set) : std::vector<int>();
    const bool isGuess = set != 0 && exact.empty();
    if (isEstimate)
        *isEstimate = isGuess;
    if (!isGuess) {
        KXWaveformBounds(from, to, count).forEach([&](qint64 start, qint64 end) {
            KXWaveformColumn heard = column(exact, start, end);
            heard.least *= gain;
            heard.greatest *= gain;
            if (gain < 0)
                std::swap(heard.least, heard.greatest);
            heard.rms *= std::abs(gain);
            columns.push_back(heard);
        });
        return columns;
    }
    // As if the stems had nothing to do with each other, corrected by how far that is right for all of them together.
    std::vector<std::vector<int>> lanes;
    lanes.reserve(size_t(stems()));
    for (int stem = 0; stem < stems(); ++stem)
        lanes.push_back(lanesOfStem(stem));
    const std::vector<int> all = laneOf(KXWaveformLanes { m_channels }.allStems());
    KXWaveformBounds(from, to, count).forEach([&](qint64 start, qint64 end) {
        double wanted[3] = {}, whole[3] = {};
        for (size_t i = 0; i < lanes.size(); ++i) {
            const KXWaveformColumn stem = column(lanes[i], start, end);
            const double values[] = { stem.least, stem.greatest, stem.rms };
            for (int v = 0; v < 3; ++v) {
                const double square = values[v] * values[v];
                whole[v] += square;
                wanted[v] += square * double(gainOf[i]) * double(gainOf[i]);
            }
        }
        const KXWaveformColumn mix = column(all, start, end);
        const auto guess = [&](int v, float known) {
            return whole[v] > 0 ? float(double(known) * std::sqrt(wanted[v] / whole[v])) : 0.0F;
        };
        columns.push_back({ guess(0, mix.least), guess(1, mix.greatest), guess(2, mix.rms) });
    });
    return columns;
}

float KXWaveformPyramid::gainForLoudness(double wanted) const
{
    const std::optional<double> measured = loudness();
    if (!measured || !std::isfinite(*measured))
        return 1;
    float peak = 0;
    for (const KXWaveformColumn &part : columnsOfStems({}, 0, m_frames, 1))
        peak = std::max({ peak, -part.least, part.greatest });
    const double most = peak > 0 ? std::max(1.0, 1.0 / double(peak)) : 1;
    return float(std::min(std::pow(10.0, (wanted - *measured) / 20), most));
}

double KXWaveformPyramid::loudestTime(double seconds) const
{
    if (m_cells == 0 || !(seconds > 0))
        return 0;
    std::vector<int> lanes(size_t(m_channels), 0);
    std::iota(lanes.begin(), lanes.end(), 0);
    const auto width = qsizetype(std::clamp(seconds * m_sampleRate / double(m_framesPerCell), 1.0, double(m_cells)));
    std::vector<double> sums { 0 };
    for (qint64 cell = 0; cell < m_cells; ++cell) {
        const float rms = column(lanes, cell * m_framesPerCell, (cell + 1) * m_framesPerCell).rms;
        sums.push_back(sums.back() + double(rms) * double(rms));
    }
    qsizetype best = 0;
    for (qsizetype start = 0; start + width < qsizetype(sums.size()); ++start) {
        if (sums[size_t(start + width)] - sums[size_t(start)] > sums[size_t(best + width)] - sums[size_t(best)])
            best = start;
    }
    return double(best * m_framesPerCell) / m_sampleRate;
}
