#include <kestrixkit/audio/KXBasicAudioPlayer.h>

#include <condition_variable>
#include <system_error>
#include <thread>

#include <kestrixkit/audio/KXPortAudioOutput.h>
#include <kestrixkit/audio/KXStreamingPlayer_p.h>
#include <kestrixkit/foundation/KXLog.h>
#include <kestrixkit/foundation/KXMainQueue.h>

namespace {

constexpr int basicPlayerEventMilliseconds = 20;

}

/// What the threads that open items know of their player, which may be gone by the time they have done so.
struct KXBasicAudioPlayer::Loader
{
    std::mutex mutex;
    std::condition_variable announced;
    KXBasicAudioPlayer *player = nullptr;
    std::shared_ptr<KXPlaybackSession> session; // the one that is wanted
    int announcements = 0; // going on

    /// Makes another session the wanted one and ends the former.
    void want(std::shared_ptr<KXPlaybackSession> newSession)
    {
        const std::lock_guard lock(mutex);
        session.swap(newSession);
        if (newSession)
            newSession->cancel();
    }

    void loaded(const std::shared_ptr<KXPlaybackSession> &loadedSession, bool isPlayable)
    {
        std::unique_lock lock(mutex);
        if (!player || session != loadedSession)
            return;
        if (isPlayable) {
            KXMainQueue::async(player, [to = player, loadedSession] { to->becomeReady(loadedSession); });
            return;
        }
        player->assignState(KXAudioPlayerStateStopped);
        // Without the lock, since observers do what they like; the player waits for them before it goes.
        ++announcements;
        lock.unlock();
        player->announceState();
        lock.lock();
        --announcements;
        announced.notify_all();
    }

    void forgetPlayer()
    {
        std::unique_lock lock(mutex);
        announced.wait(lock, [this] { return announcements == 0; });
        player = nullptr;
    }
};

KXBasicAudioPlayer::KXBasicAudioPlayer(std::shared_ptr<KXAudioOutput> output, QObject *parent)
    : KXAudioPlayer(parent)
    , m_output(output ? std::move(output) : std::make_shared<KXPortAudioOutput>())
    , m_loader(std::make_shared<Loader>())
{
    m_loader->player = this;
    m_eventTimer.setInterval(basicPlayerEventMilliseconds);
    connect(&m_eventTimer, &QTimer::timeout, this, &KXBasicAudioPlayer::lookForEvents);
    m_endToken = KXNotificationCenter::defaultCenter().addObserver(KXStreamingPlayerDidPlayToEndNotification,
        KXNotificationCenter::anySender(),
        [this](const KXNotification &notification) { playerItemDidReachEnd(notification); });
}

KXBasicAudioPlayer::~KXBasicAudioPlayer()
{
    m_endToken.reset();
    m_loader->want({});
    m_loader->forgetPlayer();
    m_player.reset();
    if (m_output->hasSource(nullptr)) // not while another player has it
        m_output->close();
}

void KXBasicAudioPlayer::playItem(const KXAudioPlayerItemPointer &item)
{
    const QPointer<KXBasicAudioPlayer> alive(this);
    const KXAudioPlayerItemPointer held = item; // whatever observers do
    const QUrl url = beginItem(held);
    if (url.isEmpty())
        return;
    const auto session = KXStreamingPlayer::makeSession(url, m_secondsPerCall, held->redirectRule());
    m_loader->want(session);
    m_eventTimer.stop();
    m_player.reset();
    setState(KXAudioPlayerStateLoading);
    if (alive && m_loader->session == session)
        load(session);
}

void KXBasicAudioPlayer::load(const std::shared_ptr<KXPlaybackSession> &session)
{
    try {
        std::thread([loader = m_loader, session] {
            const bool isPlayable = KXStreamingPlayer::load(*session);
            loader->loaded(session, isPlayable);
            if (isPlayable)
                KXStreamingPlayer::run(session);
        }).detach();
    } catch (const std::system_error &failure) {
        KXLogError(audio, "Failed to start loading: %@", failure.what());
        setState(KXAudioPlayerStateStopped);
    }
}

void KXBasicAudioPlayer::becomeReady(const std::shared_ptr<KXPlaybackSession> &session)
{
    if (m_loader->session != session)
        return;
    m_player = std::make_unique<KXStreamingPlayer>(session, m_output, [this](const QString &) { stop(); });
    applyVolume();
    const bool isStopped = state() == KXAudioPlayerStateStopped || state() == KXAudioPlayerStateIdle;
    if (!isStopped)
        m_player->applyFadeIn();
    m_player->fadeOutAtEnd();
    if (isStopped)
        return; // meanwhile; resume() plays it
    const QPointer<KXBasicAudioPlayer> alive(this);
    const bool plays = startPlaying();
    if (alive && m_loader->session == session) // else whoever had the output asked for another item
        setState(plays ? KXAudioPlayerStatePlaying : KXAudioPlayerStateStopped);
}

bool KXBasicAudioPlayer::startPlaying()
{
    if (!m_player->play())
        return false;
    m_eventTimer.start();
    return true;
}

void KXBasicAudioPlayer::stop()
{
    m_eventTimer.stop();
    if (m_player)
        m_player->pause();
    setState(KXAudioPlayerStateStopped);
}

bool KXBasicAudioPlayer::resume()
{
    if (!m_player || !startPlaying())
        return false;
    setState(KXAudioPlayerStatePlaying);
    return true;
}

void KXBasicAudioPlayer::lookForEvents()
{
    switch (m_player ? m_player->takeEvent() : KXStreamingPlayer::Event::None) {
    case KXStreamingPlayer::Event::None:
        break;
    case KXStreamingPlayer::Event::BrokenOff:
        stop();
        break;
    case KXStreamingPlayer::Event::End:
        m_eventTimer.stop();
        m_player->pause();
        KXNotificationCenter::defaultCenter().post(KXStreamingPlayerDidPlayToEndNotification, m_player.get());
    }
}

void KXBasicAudioPlayer::playerItemDidReachEnd(const KXNotification &notification)
{
    if (m_player && notification.sender == m_player.get()) {
        m_player->seekToSecond(0);
        finish();
    } else if (playlist() && isContinuous()) {
        playNext();
    }
}

double KXBasicAudioPlayer::duration() const { return m_player ? m_player->duration() : 0; }

double KXBasicAudioPlayer::currentTime() const { return m_player ? m_player->currentTime() : 0; }

bool KXBasicAudioPlayer::isSeeking() const { return m_player && m_player->isSeeking(); }

void KXBasicAudioPlayer::setTime(double seconds)
{
    if (m_player)
        m_player->seekToSecond(seconds);
}

void KXBasicAudioPlayer::setVolume(float volume)
{
    if (storeVolume(volume))
        applyVolume();
}

void KXBasicAudioPlayer::applyVolume()
{
    if (m_player)
        m_player->setVolume(volume(), itemGain());
}

void KXBasicAudioPlayer::applyFadeIn()
{
    if (m_player)
        m_player->applyFadeIn();
}

void KXBasicAudioPlayer::applyFadeOut()
{
    if (m_player)
        m_player->applyFadeOut();
}
