#pragma once

#include <functional>
#include <optional>
#include <span>
#include <vector>

#include <kestrixkit/audio/KXAudioFingerprint.h>

/// Codes of errors in KXKestrixKitErrorDomain: a file has more channels than a waveform, or stored bytes are none.
inline constexpr int KXWaveformChannelsErrorCode = 1003;
inline constexpr int KXWaveformBytesErrorCode = 1004;

/// What a column of a waveform stands for: least and greatest of its samples, and their RMS. 1 is full scale, which
/// lossy formats and mixes exceed.
struct KXWaveformColumn
{
    float least = 0;
    float greatest = 0;
    float rms = 0;
    friend bool operator==(const KXWaveformColumn &, const KXWaveformColumn &) = default;
};
using KXWaveformColumns = std::vector<KXWaveformColumn>;

/// How a file is read for its waveform.
struct KXWaveformReading
{
    std::shared_ptr<std::atomic<bool>> cancelled; ///< set to true from any thread to end it; may be null
    std::function<void(double)> progress; ///< from 0 to 1, now and then, on the thread that reads
    bool measuresLoudness = false; ///< by EBU R 128, which takes a little longer
};

/// The waveform of a sound at every zoom, made by decoding it once, in memory that does not depend on its length.
///
/// It consists of up to 8,192 cells of at least 64 frames, each with least, greatest and RMS of every channel and of
/// the mixes of stems: all sets of stems in a file of up to four of them, all stems together beyond. A stem is a pair
/// of neighbouring channels, 2k on the left and 2k + 1 on the right; a last odd one is alone on the left. Values are
/// kept in steps of 1/127 of the greatest, extremes rounded outwards; a column that begins or ends within a cell has
/// all of the cell in it.
///
/// As bytes it takes at most 64 KiB. A value: it may be copied, and asked on any thread.
class KX_AUDIO_EXPORT KXWaveformPyramid
{
public:
    static constexpr qint64 MostBytes = 64 * 1024;
    static constexpr int MostChannels = 32;
    /// In LUFS: what players level music to where they leave room for its peaks.
    static constexpr double ReferenceLoudness = -18;

    /// Decodes the file, which takes as long as that; one that still grows is waited for, a few seconds after its last
    /// change. Nothing when it is cancelled, and with an error when it cannot be read or has too many channels. A file
    /// that is cut off ends where it ends.
    static std::optional<KXWaveformPyramid> read(
        const QUrl &url, const KXWaveformReading &how = {}, KXError *error = nullptr);

    /// See docs/formats/waveforms.md.
    [[nodiscard]] QByteArray toBytes() const;
    /// Nothing, with an error, for bytes that are damaged, cut off or of another version.
    static std::optional<KXWaveformPyramid> fromBytes(QByteArrayView bytes, KXError *error = nullptr);

    [[nodiscard]] qint64 frames() const { return m_frames; }
    [[nodiscard]] double sampleRate() const { return m_sampleRate; }
    [[nodiscard]] double duration() const { return m_sampleRate > 0 ? double(m_frames) / m_sampleRate : 0; }
    [[nodiscard]] int channels() const { return m_channels; }
    [[nodiscard]] int stems() const { return (m_channels + 1) / 2; }
    [[nodiscard]] qint64 framesPerCell() const { return m_framesPerCell; }
    [[nodiscard]] qsizetype cells() const { return m_cells; }
    /// In LUFS, negative infinity for silence; nothing when it was not measured.
    [[nodiscard]] std::optional<double> loudness() const;
    /// Of the sound that this is the waveform of; empty unless somebody has set it.
    [[nodiscard]] KXAudioFingerprint fingerprint() const { return m_fingerprint; }
    void setFingerprint(const KXAudioFingerprint &fingerprint) { m_fingerprint = fingerprint; }

    /// So many columns of equal width from the frame `from` to `to`, each at least a frame wide: least and greatest
    /// over the channels, all of them when none is named. What lies outside of the file is zero.
    [[nodiscard]] KXWaveformColumns columnsOfChannels(
        std::span<const int> channels, qint64 from, qint64 to, int count) const;

    /// The same of the mix that is heard when stems are played with these gains, missing ones 1. `isEstimate` tells
    /// whether it is a guess: with different gains, and for some but not all of more than four stems.
    [[nodiscard]] KXWaveformColumns columnsOfStems(
        std::span<const float> gains, qint64 from, qint64 to, int count, bool *isEstimate = nullptr) const;

    /// What the sound is to be multiplied with to be heard at so many LUFS, but no more than lets its highest sample
    /// reach full scale. 1 for silence, and when the loudness was not measured.
    [[nodiscard]] float gainForLoudness(double wanted = ReferenceLoudness) const;

    /// Where the loudest stretch of so many seconds begins, in seconds.
    [[nodiscard]] double loudestTime(double seconds) const;

private:
    struct Lane
    {
        float step = 0; // of the extremes; half of it is the RMS's
        std::vector<qint8> least, greatest;
        std::vector<quint8> rms;
    };

    [[nodiscard]] KXWaveformColumn column(std::span<const int> lanes, qint64 from, qint64 to) const;
    [[nodiscard]] std::vector<int> lanesOfStem(int stem) const;

    qint64 m_frames = 0;
    double m_sampleRate = 0;
    int m_channels = 0;
    qint64 m_framesPerCell = 0;
    qsizetype m_cells = 0;
    double m_loudness = 0; // no number when it was not measured
    KXAudioFingerprint m_fingerprint;
    std::vector<Lane> m_lanes;
};
