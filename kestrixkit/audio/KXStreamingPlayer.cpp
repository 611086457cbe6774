#include <kestrixkit/audio/KXStreamingPlayer_p.h>

#include <cmath>
#include <system_error>
#include <thread>

#include <kestrixkit/foundation/KXLog.h>

namespace {

constexpr double streamingRemoteBufferSeconds = 8; // a connection may be slow for some seconds
constexpr double streamingFadeSeconds = 1;

}

std::shared_ptr<KXPlaybackSession> KXStreamingPlayer::makeSession(
    const QUrl &url, double secondsPerCall, std::function<bool(const QUrl &)> mayLeadTo)
{
    KXPlaybackOptions options;
    if (!url.isLocalFile())
        options.bufferSeconds = streamingRemoteBufferSeconds;
    options.secondsPerCall = secondsPerCall;
    options.staysAtEnd = true;
    options.mayLeadTo = std::move(mayLeadTo);
    return std::make_shared<KXPlaybackSession>(url, options);
}

bool KXStreamingPlayer::load(KXPlaybackSession &session)
{
    bool isReady = false;
    const bool opened = session.open([&](const KXStreamFormat &format) {
        isReady = session.prepareBuffer(format);
        if (format.mChannelsPerFrame == 1)
            session.setInputPan(0, 0);
        return isReady;
    });
    if (!opened || !isReady)
        return false;
    session.decoder()->decodeChunk(); // so that it is heard at once when it starts
    return true;
}

void KXStreamingPlayer::run(const std::shared_ptr<KXPlaybackSession> &session)
{
    if (!session->decoder()->totalFramesIsFinal()) {
        try {
            std::thread([session] { session->decoder()->findExactLength(); }).detach();
        } catch (const std::system_error &) {
            // It stays a guess until the end.
        }
    }
    session->decoder()->decodeAudioData();
}

KXStreamingPlayer::KXStreamingPlayer(
    std::shared_ptr<KXPlaybackSession> session, std::shared_ptr<KXAudioOutput> output, KXAudioOutput::LostHandler lost)
    : m_session(std::move(session))
    , m_output(std::move(output))
    , m_lost(std::move(lost))
{
}

KXStreamingPlayer::~KXStreamingPlayer()
{
    m_session->cancel();
    m_output->removeSource(m_session.get());
}

bool KXStreamingPlayer::play()
{
    if (!m_output->hasSource(m_session.get())) {
        const auto output = m_output;
        const auto session = m_session;
        output->setSource(session, m_lost);
        if (!output->hasSource(session.get()))
            return false;
    }
    if (m_output->isRunning())
        return true;
    int status = 0;
    if (m_output->sampleRate() != sampleRate() && (status = m_output->prepare()) == 0)
        status = m_output->open(sampleRate());
    if (decoder().readStatus() != KXAudioFileNoError)
        m_session->seekToFrame(decoder().renderedFrames());
    (void)m_session->takeFinished(); // of the time before
    if (status == 0)
        status = m_output->start();
    if (status != 0)
        KXLogError(audio, "Couldn't start output (%i)", status);
    return status == 0;
}

void KXStreamingPlayer::pause()
{
    if (m_output->hasSource(m_session.get()))
        m_output->stop();
}

double KXStreamingPlayer::duration() const
{
    return sampleRate() > 0 ? double(std::max<qint64>(0, decoder().totalFrames())) / sampleRate() : 0;
}

double KXStreamingPlayer::currentTime() const
{
    const qint64 target = decoder().seekToFrame();
    return sampleRate() > 0 ? double(target >= 0 ? target : decoder().renderedFrames()) / sampleRate() : 0;
}

void KXStreamingPlayer::seekToSecond(double seconds)
{
    const auto total = double(decoder().totalFrames());
    if (total > 0 && !std::isnan(seconds))
        m_session->seekToFrame(qint64(std::clamp(std::trunc(seconds) * sampleRate(), 0.0, total)));
}

KXGainRamp KXStreamingPlayer::fadeOutRamp() const
{
    if (decoder().totalFrames() <= 0)
        return { qint64(1) << 60, 0, 1, 0 }; // the length is not known: never
    const double start = std::max(0.0, std::trunc(duration() - streamingFadeSeconds));
    return { qint64(start * sampleRate()), qint64(streamingFadeSeconds * sampleRate()), 1, 0 };
}

void KXStreamingPlayer::fadeOutAtEnd()
{
    m_framesOfFade = decoder().totalFrames();
    m_session->setNextRamp(fadeOutRamp());
}

void KXStreamingPlayer::applyFadeIn() { m_session->setRamp({ 0, qint64(streamingFadeSeconds * sampleRate()), 0, 1 }); }

void KXStreamingPlayer::applyFadeOut()
{
    m_session->dropNextRamp();
    m_session->setRamp(fadeOutRamp());
}

KXStreamingPlayer::Event KXStreamingPlayer::takeEvent()
{
    // Where reading broke off is no end. Asked on both sides: the decoder goes on by itself.
    const bool wasWhole = decoder().readStatus() == KXAudioFileNoError;
    const qint64 total = decoder().totalFrames();
    const bool isWhole = wasWhole && decoder().readStatus() == KXAudioFileNoError;
    if (isWhole && total != m_framesOfFade) { // it was a guess
        m_framesOfFade = total;
        m_session->correctNextRamp(fadeOutRamp());
    }
    if (!m_session->takeFinished())
        return Event::None;
    return decoder().readStatus() != KXAudioFileNoError ? Event::BrokenOff : Event::End;
}
