#include <kestrixkit/audio/KXAudioOutput.h>

#include <kestrixkit/foundation/KXLog.h>

using namespace Qt::StringLiterals;

KXAudioRenderSource::~KXAudioRenderSource() = default;

KXAudioOutput::KXAudioOutput() = default;

KXAudioOutput::~KXAudioOutput() = default;

KXAudioOutput::Status KXAudioOutput::prepare() { return 0; }

void KXAudioOutput::close()
{
    stop();
    m_sampleRate = 0;
}

void KXAudioOutput::setSource(std::shared_ptr<KXAudioRenderSource> source, LostHandler lost)
{
    stop();
    const bool isTaken = m_source && m_source != source;
    m_source = std::move(source);
    const LostHandler former = std::exchange(m_lostHandler, std::move(lost));
    if (isTaken && former)
        former(u"something else is played"_s);
}

void KXAudioOutput::removeSource(const KXAudioRenderSource *source)
{
    if (!hasSource(source))
        return;
    m_lostHandler = {};
    setSource({});
}

void KXAudioOutput::announceLost(const QString &reason)
{
    KXLogError(audio, "Audio output lost: %@", reason);
    const LostHandler player = m_lostHandler, host = m_deviceLostHandler; // either may end the output
    if (player)
        player(reason);
    if (host)
        host(reason);
}
