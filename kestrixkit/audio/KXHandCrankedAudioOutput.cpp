#include <kestrixkit/audio/KXHandCrankedAudioOutput.h>

#include <algorithm>

KXHandCrankedAudioOutput::~KXHandCrankedAudioOutput() = default;

KXAudioOutput::Status KXHandCrankedAudioOutput::open(double sampleRate)
{
    stop();
    setSampleRate(sampleRate);
    return 0;
}

KXAudioOutput::Status KXHandCrankedAudioOutput::start()
{
    const std::lock_guard lock(m_mutex);
    m_isRunning = isOpen();
    return 0;
}

void KXHandCrankedAudioOutput::stop()
{
    const std::lock_guard lock(m_mutex);
    m_isRunning = false;
}

bool KXHandCrankedAudioOutput::isRunning() const
{
    const std::lock_guard lock(m_mutex);
    return m_isRunning;
}

int KXHandCrankedAudioOutput::crank(float *left, float *right, int frames)
{
    const std::lock_guard lock(m_mutex);
    if (m_isRunning && source())
        return renderPass(*source(), left, right, frames);
    std::fill_n(left, frames, 0.0F);
    std::fill_n(right, frames, 0.0F);
    return 0;
}

int KXHandCrankedAudioOutput::renderPass(KXAudioRenderSource &source, float *left, float *right, int frames)
{
    return source.render(left, right, frames);
}
