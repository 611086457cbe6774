#pragma once

#include <memory>
#include <vector>

#include <QtGlobal>

/// How loud a sound is as a whole, by EBU R 128: what its channels make together, even ones on the left and odd ones on
/// the right. A single channel is heard from both sides.
///
/// Threads: one at a time.
class KXAudioLoudness
{
public:
    KXAudioLoudness(quint32 channels, double sampleRate);
    ~KXAudioLoudness();
    Q_DISABLE_COPY_MOVE(KXAudioLoudness)

    /// Finite samples, an array a channel.
    void add(const float *const *channels, int frames);
    /// In LUFS; negative infinity for silence and for less than 0.4 s, no number when it could not be measured.
    [[nodiscard]] double lufs() const;

private:
    struct State;
    const quint32 m_channels;
    const std::unique_ptr<State> m_state;
    std::vector<float> m_interleaved;
};
