#pragma once

#include <mutex>

#include <kestrixkit/audio/KXAudioOutput.h>

/// An output that plays when it is told to, frame by frame: for rendering into files, faster than real time, and for
/// tests.
class KX_AUDIO_EXPORT KXHandCrankedAudioOutput : public KXAudioOutput
{
public:
    ~KXHandCrankedAudioOutput() override;

    Status open(double sampleRate) override;
    Status start() override;
    void stop() override;
    [[nodiscard]] bool isRunning() const override;

    /// One render pass: fills both sides and answers how many frames there were to be played, 0 while stopped. Any
    /// thread; the others wait meanwhile.
    int crank(float *left, float *right, int frames);

protected:
    /// The pass itself, which takes no lock.
    virtual int renderPass(KXAudioRenderSource &source, float *left, float *right, int frames);

private:
    mutable std::mutex m_mutex;
    bool m_isRunning = false;
};
