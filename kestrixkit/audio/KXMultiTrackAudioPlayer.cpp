#include <kestrixkit/audio/KXMultiTrackAudioPlayer.h>

#include <cmath>

#include <kestrixkit/audio/KXPlaybackSession_p.h>
#include <kestrixkit/audio/KXPortAudioOutput.h>
#include <kestrixkit/foundation/KXLog.h>

namespace {

constexpr int multiTrackEndMilliseconds = 20;
constexpr int multiTrackNoSuchBus = KXAudioFileParameterError;

}

KXMultiTrackAudioPlayer::KXMultiTrackAudioPlayer(std::shared_ptr<KXAudioOutput> output, QObject *parent)
    : KXAudioPlayer(parent)
    , m_output(output ? std::move(output) : std::make_shared<KXPortAudioOutput>())
{
    m_endTimer.setInterval(multiTrackEndMilliseconds);
    connect(&m_endTimer, &QTimer::timeout, this, &KXMultiTrackAudioPlayer::lookForEnd);
    m_output->setLostHandler([this](const QString &) { stop(); });
}

KXMultiTrackAudioPlayer::~KXMultiTrackAudioPlayer()
{
    m_output->setLostHandler({});
    teardownCoreAudio();
    const std::shared_ptr<KXPlaybackSession> session = m_session;
    endSession();
    m_output->setSource({});
    if (session)
        session->decoder()->waitUntilDone();
}

void KXMultiTrackAudioPlayer::endSession()
{
    if (m_session)
        m_session->cancel();
    m_session.reset();
}

void KXMultiTrackAudioPlayer::playItem(const KXAudioPlayerItemPointer &item)
{
    const QPointer<KXMultiTrackAudioPlayer> alive(this);
    const QUrl url = beginItem(item, [this] { endSession(); });
    if (url.isEmpty())
        return;
    const auto session = std::make_shared<KXPlaybackSession>(url);
    m_session = session;
    setState(KXAudioPlayerStateLoading);
    if (!alive || m_session != session)
        return;
    stopAudioQueue(); // whatever an observer has started meanwhile
    m_output->setSource(session);
    const bool started = session->start([this](const KXStreamFormat &format) { return willStartDecoding(format); });
    if (!started && alive && m_session == session)
        setState(KXAudioPlayerStateStopped);
}

bool KXMultiTrackAudioPlayer::willStartDecoding(const KXStreamFormat &format)
{
    const std::shared_ptr<KXPlaybackSession> session = m_session;
    const bool ready = session->prepareBuffer(format) && setupCoreAudio(format);
    const QPointer<KXMultiTrackAudioPlayer> alive(this);
    setState(ready ? KXAudioPlayerStatePlaying : KXAudioPlayerStateStopped);
    return ready && alive && m_session == session;
}

bool KXMultiTrackAudioPlayer::setupCoreAudio(const KXStreamFormat &format)
{
    teardownCoreAudio();
    m_hasGraph = true;
    if (const int status = m_output->prepare()) {
        KXLogError(audio, "Couldn't add output node (%i)", qint16(status));
        return false;
    }
    if (const int status = m_output->open(format.mSampleRate)) {
        KXLogError(audio, "Couldn't get output unit (%i)", qint16(status));
        return false;
    }
    m_numberOfChannels = m_session->inputCount();
    applyVolumeToMixer();
    if (const int status = m_output->start()) {
        KXLogError(audio, "Couldn't initialize graph (%i)", qint16(status));
        return false;
    }
    m_endTimer.start();
    return true;
}

void KXMultiTrackAudioPlayer::teardownCoreAudio()
{
    if (!m_hasGraph)
        return;
    stopAudioQueue();
    m_output->close();
    m_hasGraph = false;
}

void KXMultiTrackAudioPlayer::startAudioQueue()
{
    if (!m_hasGraph || m_output->isRunning())
        return;
    if (const int status = m_output->start())
        KXLogError(audio, "Couldn't start output (%i)", qint16(status));
    m_endTimer.start();
}

void KXMultiTrackAudioPlayer::stopAudioQueue()
{
    m_endTimer.stop();
    if (m_hasGraph && m_output->isRunning())
        m_output->stop();
}

void KXMultiTrackAudioPlayer::stop()
{
    stopAudioQueue();
    setState(KXAudioPlayerStateStopped);
}

bool KXMultiTrackAudioPlayer::resume()
{
    if (!m_hasGraph)
        return false;
    if (m_session)
        (void)m_session->takeFinished(); // of the time before
    startAudioQueue();
    setState(KXAudioPlayerStatePlaying);
    return true;
}

void KXMultiTrackAudioPlayer::lookForEnd()
{
    if (m_session && m_session->takeFinished())
        playbackHasFinished();
}

void KXMultiTrackAudioPlayer::playbackHasFinished()
{
    if (state() != KXAudioPlayerStatePlaying)
        return;
    stopAudioQueue();
    finish();
}

std::shared_ptr<KXCoreAudioFileDecoder> KXMultiTrackAudioPlayer::currentFileDecoder() const
{
    return m_session ? m_session->decoder() : nullptr;
}

qint64 KXMultiTrackAudioPlayer::framesRenderedLastPass() const
{
    return m_session ? m_session->framesRenderedLastPass() : 0;
}

double KXMultiTrackAudioPlayer::duration() const
{
    const double rate = m_session ? m_session->decoder()->outputDescription().mSampleRate : 0;
    return rate > 0 ? double(m_session->decoder()->totalFrames()) / rate : 0;
}

double KXMultiTrackAudioPlayer::currentTime() const
{
    const double rate = m_session ? m_session->decoder()->outputDescription().mSampleRate : 0;
    if (!(rate > 0))
        return 0;
    const qint64 target = m_session->decoder()->seekToFrame();
    return double(target >= 0 ? target : m_session->decoder()->renderedFrames()) / rate;
}

bool KXMultiTrackAudioPlayer::isSeeking() const { return m_session && m_session->decoder()->seekToFrame() >= 0; }

void KXMultiTrackAudioPlayer::setTime(double seconds)
{
    if (!m_session || std::isnan(seconds))
        return;
    const auto last = double(m_session->decoder()->totalFrames() - 1);
    if (last < 0)
        return;
    const double frame = std::trunc(seconds * m_session->decoder()->outputDescription().mSampleRate);
    seekToFrame(qint64(std::clamp(frame, 0.0, last)));
}

void KXMultiTrackAudioPlayer::seekToFrame(qint64 frame)
{
    if (m_session && frame >= 0 && frame < m_session->decoder()->totalFrames())
        m_session->seekToFrame(frame);
}

void KXMultiTrackAudioPlayer::setVolume(float volume)
{
    storeVolume(volume);
    applyVolumeToMixer();
}

void KXMultiTrackAudioPlayer::applyVolumeToMixer()
{
    if (m_session)
        m_session->setVolume(volume());
}

void KXMultiTrackAudioPlayer::setChannelGain(qint64 index, float gain, const char *failure)
{
    if (m_session && m_hasGraph && index <= m_numberOfChannels && !m_session->setInputGain(index, gain))
        KXLogError(audio, failure, index, multiTrackNoSuchBus);
}

void KXMultiTrackAudioPlayer::muteChannel(qint64 index)
{
    setChannelGain(index, 0, "Failed to set mute channel %ld (%i)");
}

void KXMultiTrackAudioPlayer::unmuteChannel(qint64 index)
{
    setChannelGain(index, 1, "Failed to set unmute channel %ld (%i)");
}
