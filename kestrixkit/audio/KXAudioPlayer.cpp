#include <kestrixkit/audio/KXAudioPlayer.h>

#include <kestrixkit/foundation/KXMainQueue.h>
#include <kestrixkit/foundation/KXNotificationCenter.h>

KXAudioPlayerItem::~KXAudioPlayerItem() = default;

KXAudioPlayerPlaylist::~KXAudioPlayerPlaylist() = default;

KXAudioPlayerItemPointer KXAudioPlayerPlaylist::audioPlayerItemAfter(const KXAudioPlayerItemPointer &) { return {}; }

KXAudioPlayerItemPointer KXAudioPlayerPlaylist::audioPlayerItemBefore(const KXAudioPlayerItemPointer &) { return {}; }

KXAudioPlayerDelegate::~KXAudioPlayerDelegate() = default;

bool KXAudioPlayerDelegate::shouldPlayNextItem(KXAudioPlayer &, const KXAudioPlayerItemPointer &) { return true; }

bool KXAudioPlayerDelegate::shouldPlayPreviousItem(KXAudioPlayer &, const KXAudioPlayerItemPointer &) { return true; }

KXAudioPlayer::KXAudioPlayer(QObject *parent)
    : KXObject(parent)
{
}

KXAudioPlayer::~KXAudioPlayer() = default;

void KXAudioPlayer::setVolume(float) { }

void KXAudioPlayer::playItem(const KXAudioPlayerItemPointer &) { }

QUrl KXAudioPlayer::beginItem(const KXAudioPlayerItemPointer &item, const std::function<void()> &end)
{
    // Observers may ask for another item at any of these announcements; the newest one stays.
    const QPointer<KXAudioPlayer> alive(this);
    stop();
    if (!alive)
        return {};
    if (end)
        end();
    storeCurrentItem(item);
    if (!alive || currentItem() != item)
        return {};
    if (!item)
        setState(KXAudioPlayerStateIdle);
    return item ? item->audioFileURL() : QUrl();
}

void KXAudioPlayer::stop() { }

bool KXAudioPlayer::resume() { return true; }

void KXAudioPlayer::setTime(double) { }

void KXAudioPlayer::setState(KXAudioPlayerState state)
{
    willChangeValueForKey(u"state");
    m_state = state;
    didChangeValueForKey(u"state");
    const QPointer<KXAudioPlayer> alive(this);
    KXNotificationCenter::defaultCenter().post(KXAudioPlayerStateDidChangeNotification, this);
    if (alive)
        Q_EMIT stateChanged();
}

void KXAudioPlayer::announceState()
{
    KXNotificationCenter::defaultCenter().post(KXAudioPlayerStateDidChangeNotification, this);
    KXMainQueue::async(this, [this] {
        willChangeValueForKey(u"state");
        didChangeValueForKey(u"state");
        Q_EMIT stateChanged();
    });
}

void KXAudioPlayer::storeCurrentItem(const KXAudioPlayerItemPointer &item)
{
    willChangeValueForKey(u"currentItem");
    m_currentItem = item;
    didChangeValueForKey(u"currentItem");
    Q_EMIT currentItemChanged();
}

void KXAudioPlayer::storeVolume(float volume)
{
    willChangeValueForKey(u"volume");
    m_volume = volume;
    didChangeValueForKey(u"volume");
    Q_EMIT volumeChanged();
}

void KXAudioPlayer::finish()
{
    const QPointer<KXAudioPlayer> alive(this);
    setState(KXAudioPlayerStateFinished);
    if (alive && m_playlist && m_continuous)
        playNext();
}

void KXAudioPlayer::playItemFromPlaylist(
    const KXAudioPlayerItemPointer &item, const std::shared_ptr<KXAudioPlayerPlaylist> &playlist)
{
    m_playlist = playlist;
    if (!delegate() || delegate()->shouldPlayNextItem(*this, item))
        playItem(item);
}

void KXAudioPlayer::playNext()
{
    const KXAudioPlayerItemPointer current = currentItem();
    const KXAudioPlayerItemPointer next = current && m_playlist ? m_playlist->audioPlayerItemAfter(current) : nullptr;
    if (next && (!delegate() || delegate()->shouldPlayNextItem(*this, next)))
        playItem(next);
}

void KXAudioPlayer::playPrevious()
{
    const KXAudioPlayerItemPointer current = currentItem();
    const KXAudioPlayerItemPointer previous
        = current && m_playlist ? m_playlist->audioPlayerItemBefore(current) : nullptr;
    if (!previous)
        setState(KXAudioPlayerStateFinished);
    else if (!delegate() || delegate()->shouldPlayPreviousItem(*this, previous))
        playItem(previous);
    else
        stop();
}

void KXAudioPlayer::scanForward(double seconds)
{
    const double length = duration();
    if (length == 0)
        return;
    const double target = currentTime() + seconds;
    setTime(target > length ? length - 0.1 : target);
}

void KXAudioPlayer::scanBackward(double seconds)
{
    if (duration() != 0)
        setTime(currentTime() - seconds);
}
