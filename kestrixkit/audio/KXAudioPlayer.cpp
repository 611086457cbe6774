#include <kestrixkit/audio/KXAudioPlayer.h>

#include <algorithm>
#include <cmath>
#include <optional>

#include <kestrixkit/foundation/KXLog.h>
#include <kestrixkit/foundation/KXMainQueue.h>
#include <kestrixkit/foundation/KXNotificationCenter.h>

KXAudioPlayerItem::~KXAudioPlayerItem() = default;

float KXAudioPlayerItem::gain() const { return 1; }

std::function<bool(const QUrl &)> KXAudioPlayerItem::redirectRule() const { return {}; }

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

void KXAudioPlayer::applyVolume() { }

float KXAudioPlayer::itemGain() const
{
    const KXAudioPlayerItemPointer item = currentItem();
    const float gain = item ? item->gain() : 1;
    return std::isnan(gain) ? 1 : std::clamp(gain, 0.0F, MostItemGain);
}

void KXAudioPlayer::playItem(const KXAudioPlayerItemPointer &) { }

QUrl KXAudioPlayer::beginItem(KXAudioPlayerItemPointer item, const std::function<void()> &end)
{
    // Observers may ask for another item: this one follows what they ask for while the former one stops, and leaves
    // standing what they ask for when they hear of it.
    const QPointer<KXAudioPlayer> alive(this);
    stop();
    if (!alive)
        return {};
    if (end)
        end();
    if (!storeCurrentItem(item) || currentItem() != item)
        return {};
    if (!item)
        setState(KXAudioPlayerStateIdle);
    else if (m_volume == 0 && !std::exchange(m_volumeWasSet, true))
        KXLogWarning(audio, "A player plays at the volume 0, because nobody has called setVolume()");
    return item ? item->audioFileURL() : QUrl();
}

void KXAudioPlayer::stop() { }

bool KXAudioPlayer::resume() { return true; }

void KXAudioPlayer::setTime(double) { }

/// Assigns and announces. False when an observer ended the player.
bool KXAudioPlayer::change(QStringView key, void (KXAudioPlayer::*signal)(), const std::function<void()> &assign)
{
    const QPointer<KXAudioPlayer> alive(this);
    willChangeValueForKey(key);
    assign();
    didChangeValueForKey(key);
    if (alive && key == u"state")
        KXNotificationCenter::defaultCenter().post(KXAudioPlayerStateDidChangeNotification, this);
    if (alive)
        Q_EMIT(this->*signal)();
    return !alive.isNull();
}

bool KXAudioPlayer::setState(KXAudioPlayerState state)
{
    return change(u"state", &KXAudioPlayer::stateChanged, [&] { m_state = state; });
}

void KXAudioPlayer::announceState()
{
    KXNotificationCenter::defaultCenter().post(KXAudioPlayerStateDidChangeNotification, this);
    KXMainQueue::async(this, [this] {
        const QPointer<KXAudioPlayer> alive(this);
        willChangeValueForKey(u"state");
        didChangeValueForKey(u"state");
        if (alive)
            Q_EMIT stateChanged();
    });
}

bool KXAudioPlayer::storeCurrentItem(KXAudioPlayerItemPointer item)
{
    return change(u"currentItem", &KXAudioPlayer::currentItemChanged, [&] { m_currentItem.swap(item); });
}

bool KXAudioPlayer::storeVolume(float volume)
{
    m_volumeWasSet = true;
    return change(u"volume", &KXAudioPlayer::volumeChanged, [&] { m_volume = volume; });
}

void KXAudioPlayer::setContinuous(bool continuous)
{
    change(u"continuous", &KXAudioPlayer::continuousChanged, [&] { m_continuous = continuous; });
}

void KXAudioPlayer::finish()
{
    if (setState(KXAudioPlayerStateFinished) && state() == KXAudioPlayerStateFinished && m_playlist && m_continuous)
        playNext();
}

/// The answer of a playlist or delegate, which may do anything while it is asked; none when it ended the player or had
/// it play something else.
template <typename Question> auto KXAudioPlayer::ask(const Question &question)
{
    const QPointer<KXAudioPlayer> alive(this);
    const auto before = std::pair(m_playlist, currentItem());
    std::optional answer(question());
    if (!alive || std::pair(m_playlist, currentItem()) != before)
        answer.reset();
    return answer;
}

void KXAudioPlayer::playItemFromPlaylist(KXAudioPlayerItemPointer item, std::shared_ptr<KXAudioPlayerPlaylist> playlist)
{
    m_playlist.swap(playlist);
    if (ask([&] { return !delegate() || delegate()->shouldPlayNextItem(*this, item); }) == true)
        playItem(item);
}

void KXAudioPlayer::playNext()
{
    const KXAudioPlayerItemPointer current = currentItem();
    const std::shared_ptr<KXAudioPlayerPlaylist> playlist = m_playlist;
    if (!current || !playlist)
        return;
    const auto next = ask([&] { return playlist->audioPlayerItemAfter(current); });
    if (next && *next && ask([&] { return !delegate() || delegate()->shouldPlayNextItem(*this, *next); }) == true)
        playItem(*next);
}

void KXAudioPlayer::playPrevious()
{
    const KXAudioPlayerItemPointer current = currentItem();
    const std::shared_ptr<KXAudioPlayerPlaylist> playlist = m_playlist;
    const auto previous = ask([&] { return current && playlist ? playlist->audioPlayerItemBefore(current) : nullptr; });
    if (!previous)
        return;
    if (!*previous) {
        setState(KXAudioPlayerStateFinished);
        return;
    }
    const auto mayPlay = ask([&] { return !delegate() || delegate()->shouldPlayPreviousItem(*this, *previous); });
    if (mayPlay == true)
        playItem(*previous);
    else if (mayPlay == false)
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
