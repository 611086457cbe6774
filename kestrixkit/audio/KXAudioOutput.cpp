#include <kestrixkit/audio/KXAudioOutput.h>

#include <kestrixkit/foundation/KXLog.h>

KXAudioRenderSource::~KXAudioRenderSource() = default;

KXAudioOutput::KXAudioOutput() = default;

KXAudioOutput::~KXAudioOutput() = default;

KXAudioOutput::Status KXAudioOutput::prepare() { return 0; }

void KXAudioOutput::close()
{
    stop();
    m_sampleRate = 0;
}

void KXAudioOutput::setSource(std::shared_ptr<KXAudioRenderSource> source)
{
    KX_CHECK(!isRunning(), "An output's source is replaced while it plays");
    m_source = std::move(source);
}

void KXAudioOutput::announceLost(const QString &reason)
{
    KXLogError(audio, "Audio output lost: %@", reason);
    if (const LostHandler handler = m_lostHandler)
        handler(reason);
}
