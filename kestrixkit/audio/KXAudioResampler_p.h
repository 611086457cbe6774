#pragma once

#include <memory>
#include <vector>

#include <kestrixkit/audio/KXAudioOutput.h>
#include <kestrixkit/audio/KXFFmpeg_p.h>

/// Brings a source's sound to another rate, as a device needs it, by libswresample.
///
/// All that it needs is there when it has been made: rendering allocates nothing. It pulls in pieces of PullFrames, so
/// that it hears of a seek that much later at most.
///
/// Threads: made and reset while nobody renders, render() on the render thread.
class KX_AUDIO_EXPORT KXAudioResampler
{
public:
    static constexpr int PullFrames = 128;

    /// isValid() is false where the rates cannot be brought together.
    KXAudioResampler(double fromRate, double toRate);
    ~KXAudioResampler();
    Q_DISABLE_COPY_MOVE(KXAudioResampler)

    [[nodiscard]] bool isValid() const { return m_converter != nullptr; }
    /// Forgets what it has pulled.
    void reset();

    /// Fills both sides at the new rate, and answers as the source does: how many frames there were to be played, all
    /// or none of them.
    int render(KXAudioRenderSource &source, float *left, float *right, int frames) noexcept;

private:
    void pull(KXAudioRenderSource *source) noexcept;

    std::unique_ptr<KXRateConverter> m_converter;
    std::vector<float> m_in[2];
    std::vector<float> m_out[2]; // what was converted and not played yet
    int m_ready = 0; // frames in m_out
    int m_heard = 0; // of them, those up to the last one that the source delivered
};
