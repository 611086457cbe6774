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
}

KXMultiTrackAudioPlayer::~KXMultiTrackAudioPlayer()
{
    teardownCoreAudio();
    const std::shared_ptr<KXPlaybackSession> session = m_session;
    endSession();
    if (session)
        session->decoder()->waitUntilDone();
}

void KXMultiTrackAudioPlayer::endSession()
{
    if (!m_session)
        return;
    m_session->cancel();
    m_output->removeSource(m_session.get());
    m_session.reset();
}

void KXMultiTrackAudioPlayer::playItem(const KXAudioPlayerItemPointer &item)
{
    const QPointer<KXMultiTrackAudioPlayer> alive(this);
    const KXAudioPlayerItemPointer held = item; // whatever observers do
    const QUrl url = beginItem(held, [this] { endSession(); });
    if (url.isEmpty())
        return;
    const auto session = std::make_shared<KXPlaybackSession>(
        url, KXPlaybackOptions { .staysAtEnd = true, .mayLeadTo = held->redirectRule() });
    m_session = session;
    if (!setState(KXAudioPlayerStateLoading) || m_session != session)
        return;
    stopAudioQueue(); // whatever an observer has started meanwhile
    const bool started = session->start([this](const KXStreamFormat &format) { return willStartDecoding(format); });
    if (!started && alive && m_session == session)
        setState(KXAudioPlayerStateStopped);
}

bool KXMultiTrackAudioPlayer::willStartDecoding(const KXStreamFormat &format)
{
    const std::shared_ptr<KXPlaybackSession> session = m_session;
    const QPointer<KXMultiTrackAudioPlayer> alive(this);
    const bool ready = session->prepareBuffer(format) && setupCoreAudio(format);
    if (!alive || m_session != session || !setState(ready ? KXAudioPlayerStatePlaying : KXAudioPlayerStateStopped)
        || m_session != session)
        return false;
    Q_EMIT stemsChanged(); // last: whoever hears of them may stop
    return ready && alive && m_session == session;
}

bool KXMultiTrackAudioPlayer::setupCoreAudio(const KXStreamFormat &format)
{
    m_hasGraph = true;
    if (!takeOutput())
        return false;
    if (const int status = m_output->prepare()) {
        KXLogError(audio, "Couldn't add output node (%i)", qint16(status));
        return false;
    }
    if (const int status = m_output->open(format.mSampleRate)) {
        KXLogError(audio, "Couldn't get output unit (%i)", qint16(status));
        return false;
    }
    m_numberOfChannels = m_session->inputCount();
    m_mutes.assign(size_t(m_numberOfChannels), false);
    m_stems.assign(size_t(numberOfStems()), {});
    applyVolume();
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
    m_output->removeSource(m_session.get());
    if (m_output->hasSource(nullptr)) // not while another player has it
        m_output->close();
    m_hasGraph = false;
}

/// False when whoever had it before took it back, or destroyed this player.
bool KXMultiTrackAudioPlayer::takeOutput()
{
    const auto output = m_output;
    const auto session = m_session;
    if (!output->hasSource(session.get()))
        output->setSource(session, [this](const QString &) { stop(); });
    return output->hasSource(session.get());
}

bool KXMultiTrackAudioPlayer::startAudioQueue()
{
    if (!m_hasGraph || !m_session || !takeOutput())
        return false;
    if (m_output->isRunning())
        return true;
    // Another player may have needed another rate. Of a file that cannot be opened there is none.
    const double rate = m_session->decoder()->outputDescription().mSampleRate;
    int status = rate > 0 && rate != m_output->sampleRate() ? m_output->open(rate) : 0;
    if (status == 0)
        status = m_output->start();
    if (status != 0)
        KXLogError(audio, "Couldn't start output (%i)", qint16(status));
    m_endTimer.start();
    return true;
}

void KXMultiTrackAudioPlayer::stopAudioQueue()
{
    m_endTimer.stop();
    if (m_session && m_output->hasSource(m_session.get()))
        m_output->stop();
}

void KXMultiTrackAudioPlayer::stop()
{
    stopAudioQueue();
    setState(KXAudioPlayerStateStopped);
}

bool KXMultiTrackAudioPlayer::resume()
{
    if (!m_hasGraph || !m_session)
        return false;
    (void)m_session->takeFinished(); // of the time before
    const QPointer<KXMultiTrackAudioPlayer> alive(this);
    if (!startAudioQueue())
        return false;
    if (alive)
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
    return m_session && m_hasGraph ? m_session->framesRenderedLastPass() : 0;
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
    if (storeVolume(volume))
        applyVolume();
}

void KXMultiTrackAudioPlayer::applyVolume()
{
    if (m_session)
        m_session->setVolume(volume(), itemGain());
}

void KXMultiTrackAudioPlayer::setChannelMuted(qint64 index, bool muted, const char *failure)
{
    if (!m_session || !m_hasGraph || index > m_numberOfChannels)
        return;
    if (index < 0 || index >= qint64(m_mutes.size()) || index >= m_session->inputCount()) {
        KXLogError(audio, failure, index, multiTrackNoSuchBus);
        return;
    }
    m_mutes[size_t(index)] = muted;
    applyStems();
}

void KXMultiTrackAudioPlayer::muteChannel(qint64 index)
{
    setChannelMuted(index, true, "Failed to set mute channel %ld (%i)");
}

void KXMultiTrackAudioPlayer::unmuteChannel(qint64 index)
{
    setChannelMuted(index, false, "Failed to set unmute channel %ld (%i)");
}

bool KXMultiTrackAudioPlayer::isChannelMuted(qint64 index) const
{
    return index >= 0 && index < qint64(m_mutes.size()) && m_mutes[size_t(index)];
}

float KXMultiTrackAudioPlayer::heardGain(qint64 stem) const
{
    const bool anySoloed = std::any_of(m_stems.begin(), m_stems.end(), [](const Stem &each) { return each.soloed; });
    return !anySoloed || m_stems[size_t(stem)].soloed ? m_stems[size_t(stem)].gain : 0;
}

void KXMultiTrackAudioPlayer::applyStems()
{
    for (qint64 c = 0; m_session && c < std::min<qint64>(m_session->inputCount(), qint64(m_mutes.size())); ++c)
        m_session->setInputGain(c, m_mutes[size_t(c)] ? 0 : heardGain(c / 2));
    Q_EMIT stemsChanged();
}

void KXMultiTrackAudioPlayer::setStemMuted(qint64 stem, bool muted)
{
    if (stem < 0 || stem >= qint64(m_stems.size()))
        return;
    for (qint64 c = 2 * stem; c < std::min<qint64>(2 * stem + 2, qint64(m_mutes.size())); ++c)
        m_mutes[size_t(c)] = muted;
    applyStems();
}

bool KXMultiTrackAudioPlayer::isStemMuted(qint64 stem) const
{
    return stem >= 0 && stem < qint64(m_stems.size()) && isChannelMuted(2 * stem)
        && (2 * stem + 1 >= qint64(m_mutes.size()) || isChannelMuted(2 * stem + 1));
}

void KXMultiTrackAudioPlayer::setStemSoloed(qint64 stem, bool soloed)
{
    if (stem < 0 || stem >= qint64(m_stems.size()))
        return;
    m_stems[size_t(stem)].soloed = soloed;
    applyStems();
}

bool KXMultiTrackAudioPlayer::isStemSoloed(qint64 stem) const
{
    return stem >= 0 && stem < qint64(m_stems.size()) && m_stems[size_t(stem)].soloed;
}

void KXMultiTrackAudioPlayer::setStemGain(qint64 stem, float gain)
{
    if (stem < 0 || stem >= qint64(m_stems.size()) || std::isnan(gain))
        return;
    m_stems[size_t(stem)].gain = std::clamp(gain, 0.0F, MostStemGain);
    applyStems();
}

float KXMultiTrackAudioPlayer::stemGain(qint64 stem) const
{
    return stem >= 0 && stem < qint64(m_stems.size()) ? m_stems[size_t(stem)].gain : 0;
}

bool KXMultiTrackAudioPlayer::mutesPartsOfStems() const
{
    for (size_t c = 0; c + 1 < m_mutes.size(); c += 2) {
        if (m_mutes[c] != m_mutes[c + 1])
            return true;
    }
    return false;
}

std::vector<float> KXMultiTrackAudioPlayer::audibleStemGains() const
{
    std::vector<float> gains;
    for (qint64 stem = 0; stem < qint64(m_stems.size()); ++stem)
        gains.push_back(isStemMuted(stem) ? 0 : heardGain(stem));
    return gains;
}
