#pragma once

#include <functional>
#include <memory>

#include <QPointer>
#include <QUrl>

#include <kestrixkit/foundation/KXObject.h>
#include <kestrixkit/foundation/KXWeakDelegate.h>

class KXAudioPlayer;

/// Posted by a player on every assignment of its state, equal or not, on the thread that assigns. The sender is the
/// player.
inline constexpr QLatin1StringView KXAudioPlayerStateDidChangeNotification {
    "KXAudioPlayerStateDidChangeNotification"
};
/// For the host's queue to post when its entries change; the framework does nothing with it.
inline constexpr QLatin1StringView KXAudioPlayerQueueEntriesDidChangeNotification {
    "KXAudioPlayerQueueEntriesDidChangeNotification"
};

/// The numbers are seen by hosts; 2 and 5 stay unused.
enum KXAudioPlayerState : int {
    KXAudioPlayerStateIdle = 0, ///< nothing to play, or nothing yet
    KXAudioPlayerStateLoading = 1, ///< an item is being opened
    KXAudioPlayerStatePlaying = 3,
    KXAudioPlayerStateStopped = 4, ///< also when an item cannot be opened
    KXAudioPlayerStateFinished = 6, ///< the item came to its end, or there is none before it
};

/// Something to play; the host's.
class KX_AUDIO_EXPORT KXAudioPlayerItem
{
public:
    virtual ~KXAudioPlayerItem();
    /// A local file or a stream; an empty address when there is nothing to play.
    [[nodiscard]] virtual QUrl audioFileURL() const = 0;
    /// What its sound is multiplied with before the volume, so that items sound equally loud, such as
    /// KXWaveformPyramid::gainForLoudness(). 1 at first; players take what is no number for 1, and keep to 0 to
    /// KXAudioPlayer::MostItemGain. Main thread.
    [[nodiscard]] virtual float gain() const;
    /// Where the stream's server may lead on to: see KXAudioFileOptions::mayLeadTo. Empty unless overridden. Asked for
    /// on the main thread when the item is opened; the function itself is called on other threads.
    [[nodiscard]] virtual std::function<bool(const QUrl &)> redirectRule() const;
};
using KXAudioPlayerItemPointer = std::shared_ptr<KXAudioPlayerItem>;

/// The order in which items follow each other; the host's. Null where there is none.
class KX_AUDIO_EXPORT KXAudioPlayerPlaylist
{
public:
    virtual ~KXAudioPlayerPlaylist();
    [[nodiscard]] virtual KXAudioPlayerItemPointer audioPlayerItemAfter(const KXAudioPlayerItemPointer &item);
    [[nodiscard]] virtual KXAudioPlayerItemPointer audioPlayerItemBefore(const KXAudioPlayerItemPointer &item);
};

/// Asked before a player changes to another item of its playlist.
class KX_AUDIO_EXPORT KXAudioPlayerDelegate
{
public:
    virtual ~KXAudioPlayerDelegate();
    /// Also asked before the first item of a playlist.
    virtual bool shouldPlayNextItem(KXAudioPlayer &player, const KXAudioPlayerItemPointer &item);
    virtual bool shouldPlayPreviousItem(KXAudioPlayer &player, const KXAudioPlayerItemPointer &item);
};

/// Plays one item at a time. A base without sound: concrete players override what is marked so.
///
/// Properties (also keys for observers): state, volume, currentItem, continuous.
///
/// Threads: the main thread. Where a player announces its state elsewhere, it says so.
class KX_AUDIO_EXPORT KXAudioPlayer : public KXObject
{
    Q_OBJECT
    Q_PROPERTY(int state READ state NOTIFY stateChanged)
    Q_PROPERTY(float volume READ volume WRITE setVolume NOTIFY volumeChanged)
    Q_PROPERTY(KXAudioPlayerItemPointer currentItem READ currentItem NOTIFY currentItemChanged)
    Q_PROPERTY(bool continuous READ isContinuous WRITE setContinuous NOTIFY continuousChanged)
    Q_PROPERTY(double duration READ duration)
    Q_PROPERTY(double currentTime READ currentTime WRITE setTime)
public:
    static constexpr float MostItemGain = 16;

    explicit KXAudioPlayer(QObject *parent = nullptr);
    ~KXAudioPlayer() override;

    /// Whether the end of an item leads on to the next one of the playlist. False at first.
    [[nodiscard]] bool isContinuous() const { return m_continuous; }
    void setContinuous(bool continuous);
    [[nodiscard]] KXAudioPlayerState state() const { return m_state; }
    [[nodiscard]] KXAudioPlayerDelegate *delegate() const { return m_delegate.get(); }
    /// Borrowed. One that is a QObject may go at any time; any other must be taken away before it does.
    void setDelegate(KXAudioPlayerDelegate *delegate) { m_delegate.set(delegate); }
    [[nodiscard]] std::shared_ptr<KXAudioPlayerPlaylist> playlist() const { return m_playlist; }

    // What concrete players override; nothing happens here
    [[nodiscard]] virtual KXAudioPlayerItemPointer currentItem() const { return m_currentItem; }
    /// From 0 to 1, applied as a gain of its third power. 0 at first: the host sets what it wants to hear.
    [[nodiscard]] virtual float volume() const { return m_volume; }
    virtual void setVolume(float volume);
    /// To be called when the gain of the current item has changed.
    void currentItemGainDidChange() { applyVolume(); }
    virtual void playItem(const KXAudioPlayerItemPointer &item);
    virtual void stop();
    /// False, without a change of state, when there is nothing to go on with.
    virtual bool resume();
    /// Seconds; 0 when unknown.
    [[nodiscard]] virtual double duration() const { return 0; }
    [[nodiscard]] virtual double currentTime() const { return 0; }
    /// Any number of seconds, also beyond either end.
    virtual void setTime(double seconds);
    /// Whether a change of time is still to be carried out: until then what is heard is from where it was.
    [[nodiscard]] virtual bool isSeeking() const { return false; }

    /// Takes the playlist and, unless the delegate objects, plays the item.
    void playItemFromPlaylist(KXAudioPlayerItemPointer item, std::shared_ptr<KXAudioPlayerPlaylist> playlist);
    /// Nothing happens where there is no next item or the delegate objects. Where playlist or delegate, while they are
    /// asked, have the player play something else, that stays; so for all three.
    void playNext();
    /// Without a previous item the state becomes Finished; when the delegate objects, the player stops.
    void playPrevious();
    /// Not further than a tenth of a second before the end.
    void scanForward(double seconds);
    void scanBackward(double seconds);

Q_SIGNALS:
    void stateChanged();
    void volumeChanged();
    void currentItemChanged();
    void continuousChanged();

protected:
    /// The gain of the current item.
    [[nodiscard]] float itemGain() const;
    /// What concrete players override: the sound has the volume and the item's gain from here on.
    virtual void applyVolume();
    /// Assigns and announces, also what is the same as before. An observer may change the state again, or end the
    /// player: false when it did.
    bool setState(KXAudioPlayerState state);
    /// The two halves of setState() on a thread other than the main one. Observers by key and stateChanged() hear of it
    /// on the main thread, later.
    void assignState(KXAudioPlayerState state) { m_state = state; }
    void announceState();
    /// False when an observer ended the player.
    bool storeCurrentItem(KXAudioPlayerItemPointer item);
    /// How playItem() begins: stops, lets `end` end what was played, and makes the item the current one. The file to be
    /// played; empty where there is none, and where whoever hears of the current item asks for another one, or an
    /// observer destroyed the player. An item that is asked for while the former one stops is followed by this one.
    [[nodiscard]] QUrl beginItem(KXAudioPlayerItemPointer item, const std::function<void()> &end = {});
    /// False when an observer ended the player.
    bool storeVolume(float volume);
    /// The end of the current item: Finished, and on to the next one when continuous, unless an observer did something
    /// else.
    void finish();

private:
    bool change(QStringView key, void (KXAudioPlayer::*signal)(), const std::function<void()> &assign);
    template <typename Question> auto ask(const Question &question);

    std::atomic<KXAudioPlayerState> m_state = KXAudioPlayerStateIdle;
    float m_volume = 0;
    bool m_volumeWasSet = false; // or its absence was logged
    bool m_continuous = false;
    KXAudioPlayerItemPointer m_currentItem;
    std::shared_ptr<KXAudioPlayerPlaylist> m_playlist;
    KXWeakDelegate<KXAudioPlayerDelegate> m_delegate;
};
