#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include <QtGlobal>

/// How loud a sound is as a whole, by EBU R 128: what its channels make together, even ones on the left and odd ones on
/// the right. A single channel is heard from both sides.
///
/// Measuring takes as long as decoding does: it is done on a thread of its own, a block behind.
///
/// Threads: one at a time.
class KXAudioLoudness
{
public:
    KXAudioLoudness(quint32 channels, double sampleRate);
    ~KXAudioLoudness();
    Q_DISABLE_COPY_MOVE(KXAudioLoudness)

    /// An array a channel. What is no number counts as silence.
    void add(const float *const *channels, int frames);
    /// In LUFS; negative infinity for silence and for less than 0.4 s, no number when it could not be measured.
    [[nodiscard]] double lufs();

private:
    struct State;
    void run();
    void hand();

    const quint32 m_channels;
    const size_t m_sides;
    const std::unique_ptr<State> m_state;
    std::vector<float> m_interleaved; // being filled
    std::vector<float> m_handed; // being measured
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_isMeasuring = false;
    bool m_ends = false;
    std::thread m_thread; // last
};
