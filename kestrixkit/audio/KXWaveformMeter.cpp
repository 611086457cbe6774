#include <kestrixkit/audio/KXWaveformMeter_p.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>

namespace {

constexpr float meterMostSample = 1e6F;
constexpr int meterMostExactStems = 4;

}

void KXWaveformExtent::add(const KXWaveformExtent &other)
{
    least = std::min(least, other.least);
    greatest = std::max(greatest, other.greatest);
    energy += other.energy;
    samples += other.samples;
}

KXWaveformExtent KXMeasureSamples(const float *samples, int count)
{
    // Several of each side by side, since each step waits for the one before; as many as fit into registers.
    constexpr int lanes = 16;
    std::array<float, lanes> least, greatest, energy;
    least.fill(std::numeric_limits<float>::infinity());
    greatest.fill(-std::numeric_limits<float>::infinity());
    energy.fill(0);
    int at = 0;
    for (; at + lanes <= count; at += lanes) {
        for (int i = 0; i < lanes; ++i) {
            const float sample = samples[at + i];
            least[size_t(i)] = sample < least[size_t(i)] ? sample : least[size_t(i)];
            greatest[size_t(i)] = sample > greatest[size_t(i)] ? sample : greatest[size_t(i)];
            energy[size_t(i)] += sample * sample;
        }
    }
    KXWaveformExtent extent { .samples = count };
    for (; at < count; ++at) {
        extent.least = std::min(extent.least, samples[at]);
        extent.greatest = std::max(extent.greatest, samples[at]);
        extent.energy += double(samples[at]) * double(samples[at]);
    }
    for (size_t i = 0; i < lanes; ++i) {
        extent.least = std::min(extent.least, least[i]);
        extent.greatest = std::max(extent.greatest, greatest[i]);
        extent.energy += double(energy[i]);
    }
    return extent;
}

KXWaveformSamples::KXWaveformSamples(int channels)
    : m_channels(size_t(channels))
    , m_cleaned(size_t(channels))
{
}

void KXWaveformSamples::take(const float *const *channels, int offset, int frames, KXWaveformExtent *extents)
{
    for (size_t c = 0; c < m_channels.size(); ++c) {
        m_channels[c] = channels[c] + offset;
        extents[c] = KXMeasureSamples(m_channels[c], frames);
        // A sample that is no number escapes the extremes, but not the sum.
        if (std::isfinite(extents[c].energy) && extents[c].greatest <= meterMostSample
            && extents[c].least >= -meterMostSample)
            continue;
        m_cleaned[c].resize(size_t(frames));
        std::transform(m_channels[c], m_channels[c] + frames, m_cleaned[c].begin(), [](float sample) {
            return std::isnan(sample) ? 0.0F : std::clamp(sample, -meterMostSample, meterMostSample);
        });
        m_channels[c] = m_cleaned[c].data();
        extents[c] = KXMeasureSamples(m_channels[c], frames);
    }
}

std::vector<quint32> KXWaveformLanes::sets() const
{
    if (stems() < 2)
        return {};
    if (stems() > meterMostExactStems)
        return { allStems() };
    std::vector<quint32> sets;
    for (quint32 set = 1; set <= allStems(); ++set) {
        if (std::popcount(set) > 1)
            sets.push_back(set);
    }
    return sets;
}

KXWaveformMeter::KXWaveformMeter(int channels, qsizetype mostCells)
    : m_lanes { channels }
    , m_sets(m_lanes.sets())
    , m_mostCells(mostCells)
    , m_samples(channels)
    , m_extents(size_t(m_lanes.count()), std::vector<KXWaveformExtent>(size_t(mostCells)))
    , m_block(size_t(channels))
    , m_mixes(m_sets.empty()                          ? 0
              : m_lanes.stems() > meterMostExactStems ? 2
                                                      : 2 * (size_t(m_lanes.allStems()) + 1),
          std::vector<float>(KXWaveformSamples::MostFrames))
{
}

void KXWaveformMeter::add(const float *const *channels, int offset, int frames)
{
    while (frames > 0) {
        if (m_cells == 0 || m_framesInCell == m_framesPerCell)
            nextCell();
        const auto count = int(std::min<qint64>(
            { qint64(frames), m_framesPerCell - m_framesInCell, qint64(KXWaveformSamples::MostFrames) }));
        m_samples.take(channels, offset, count, m_block.data());
        for (int c = 0; c < m_lanes.channels; ++c)
            m_extents[size_t(c)][size_t(m_cells - 1)].add(m_block[size_t(c)]);
        addSets(count);
        offset += count;
        frames -= count;
        m_frames += count;
        m_framesInCell += count;
    }
}

void KXWaveformMeter::addSets(int frames)
{
    const bool areAll = m_lanes.stems() <= meterMostExactStems;
    for (size_t i = 0; i < m_sets.size(); ++i) {
        const quint32 set = m_sets[i];
        KXWaveformExtent &extent = m_extents[size_t(m_lanes.channels) + i][size_t(m_cells - 1)];
        for (quint32 side = 0; side < 2; ++side) {
            float *const mix = m_mixes[areAll ? 2 * set + side : side].data();
            if (!areAll) {
                std::fill_n(mix, frames, 0.0F);
                for (int c = int(side); c < m_lanes.channels; c += 2) {
                    const float *const channel = m_samples.channels()[c];
                    for (int f = 0; f < frames; ++f)
                        mix[f] += channel[f];
                }
            } else {
                // One stem more than a set that was mixed before.
                const auto last = quint32(std::bit_width(set) - 1);
                const quint32 rest = set & ~(1U << last);
                const float *const before = std::popcount(rest) > 1
                    ? m_mixes[2 * rest + side].data()
                    : m_samples.channels()[2 * std::countr_zero(rest) + int(side)];
                const quint32 channel = 2 * last + side;
                if (int(channel) >= m_lanes.channels) { // the last one is alone, on the left
                    std::copy_n(before, frames, mix);
                } else {
                    const float *const added = m_samples.channels()[channel];
                    for (int f = 0; f < frames; ++f)
                        mix[f] = before[f] + added[f];
                }
            }
            extent.add(KXMeasureSamples(mix, frames));
        }
    }
}

void KXWaveformMeter::nextCell()
{
    if (m_cells == m_mostCells) {
        for (std::vector<KXWaveformExtent> &lane : m_extents) {
            for (size_t i = 0; i < lane.size(); i += 2) {
                lane[i].add(lane[i + 1]);
                lane[i / 2] = lane[i];
            }
            std::fill(lane.begin() + ptrdiff_t(lane.size() / 2), lane.end(), KXWaveformExtent());
        }
        m_cells /= 2;
        m_framesPerCell *= 2;
    }
    ++m_cells;
    m_framesInCell = 0;
}
