#pragma once

#include <thread>

#include <kestrixkit/audio/KXAudioOutput.h>

/// An output without a device: pulls its source at the right pace on a thread of its own, and nobody hears it. For
/// machines without a sound card.
class KX_AUDIO_EXPORT KXClockAudioOutput : public KXAudioOutput
{
public:
    static constexpr int FramesPerPass = 512;

    ~KXClockAudioOutput() override;

    Status open(double sampleRate) override;
    Status start() override;
    void stop() override;
    [[nodiscard]] bool isRunning() const override { return m_thread.joinable(); }

private:
    void run(KXAudioRenderSource *source, double sampleRate);

    std::thread m_thread;
    std::atomic<bool> m_stops = false;
};
