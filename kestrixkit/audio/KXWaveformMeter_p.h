#pragma once

#include <limits>
#include <vector>

#include <QtGlobal>

/// The extremes of some samples, and what their RMS is made of.
struct KXWaveformExtent
{
    float least = std::numeric_limits<float>::infinity();
    float greatest = -std::numeric_limits<float>::infinity();
    double energy = 0; // the sum of the squares
    qint64 samples = 0;

    void add(const KXWaveformExtent &other);
};

/// Of finite samples.
[[nodiscard]] KXWaveformExtent KXMeasureSamples(const float *samples, int count);

/// Samples without what is no number, which counts as silence, and with what lies beyond a million cut off there.
/// Decoders of damaged files hand out both.
class KXWaveformSamples
{
public:
    static constexpr int MostFrames = 1024; // of a block: what is worked on stays in the nearest cache

    explicit KXWaveformSamples(int channels);

    /// Takes a block. `extents` gets a measure of each channel.
    void take(const float *const *channels, int offset, int frames, KXWaveformExtent *extents);
    /// The block, an array a channel, until the next one.
    [[nodiscard]] const float *const *channels() const { return m_channels.data(); }

private:
    std::vector<const float *> m_channels;
    std::vector<std::vector<float>> m_cleaned; // of the channels that needed it
};

/// The lanes of a file's waveform: one for each channel, and one for each set of stems whose mix is kept. A stem is a
/// pair of neighbouring channels, the first on the left and the second on the right; a last odd one is alone.
struct KXWaveformLanes
{
    int channels = 0;

    [[nodiscard]] int stems() const { return (channels + 1) / 2; }
    [[nodiscard]] quint32 allStems() const { return (1U << stems()) - 1; }
    /// Sets of two stems and more, as bits: all of them up to four stems, the set of all stems beyond.
    [[nodiscard]] std::vector<quint32> sets() const;
    [[nodiscard]] int count() const { return channels + int(sets().size()); }
};

/// Measures a sound from its start to its end, in memory that does not depend on its length: cells of 64 frames, which
/// double whenever there are too many of them.
class KXWaveformMeter
{
public:
    static constexpr qint64 LeastFramesPerCell = 64;

    /// Up to `mostCells` cells, an even number.
    KXWaveformMeter(int channels, qsizetype mostCells);

    void add(const float *const *channels, int offset, int frames);

    [[nodiscard]] qint64 frames() const { return m_frames; }
    [[nodiscard]] qint64 framesPerCell() const { return m_framesPerCell; }
    [[nodiscard]] qsizetype cells() const { return m_cells; }
    [[nodiscard]] const KXWaveformExtent &extent(int lane, qsizetype cell) const
    {
        return m_extents[size_t(lane)][size_t(cell)];
    }

private:
    void addSets(int frames);
    void nextCell();

    const KXWaveformLanes m_lanes;
    const std::vector<quint32> m_sets;
    const qsizetype m_mostCells;
    KXWaveformSamples m_samples;
    std::vector<std::vector<KXWaveformExtent>> m_extents; // of each lane
    std::vector<KXWaveformExtent> m_block; // of each channel
    std::vector<std::vector<float>> m_mixes; // two sides of each set of up to four stems; of all stems beyond
    qint64 m_frames = 0;
    qint64 m_framesPerCell = LeastFramesPerCell;
    qint64 m_framesInCell = 0;
    qsizetype m_cells = 0; // begun
};
