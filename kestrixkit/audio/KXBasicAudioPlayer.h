#pragma once

#include <QTimer>

#include <kestrixkit/audio/KXAudioOutput.h>
#include <kestrixkit/audio/KXAudioPlayer.h>
#include <kestrixkit/foundation/KXNotificationCenter.h>

class KXPlaybackSession;
class KXStreamingPlayer;

/// Plays ordinary previews: one stream, a local file or one over http, with a fade of a second at its start and one
/// over the last whole second of its length.
///
/// An item is opened on a thread of its own, so that playItem() returns at once, and a slow server keeps nobody
/// waiting; the newest item wins. While a server lets us wait the item is silent and stands still. An item that ends is
/// Finished and goes back to its start, from where resume() plays it again; one whose connection breaks off is Stopped,
/// and resume() tries to go on. When any item of the process ends, a continuous player goes on to its next one.
///
/// Threads: the main thread. That an item cannot be played is posted (state Stopped) on the thread that tried to open
/// it; observers by key and stateChanged() hear of that on the main thread.
class KX_AUDIO_EXPORT KXBasicAudioPlayer : public KXAudioPlayer
{
    Q_OBJECT
public:
    /// Plays through this output, or the default device.
    explicit KXBasicAudioPlayer(std::shared_ptr<KXAudioOutput> output = {}, QObject *parent = nullptr);
    ~KXBasicAudioPlayer() override;

    void setVolume(float volume) override;
    /// With nothing to play the item before stays, and resume() plays it.
    void playItem(const KXAudioPlayerItemPointer &item) override;
    void stop() override;
    bool resume() override;
    [[nodiscard]] double duration() const override;
    [[nodiscard]] double currentTime() const override;
    /// Goes to the whole second, without the fraction.
    void setTime(double seconds) override;
    [[nodiscard]] bool isSeeking() const override;

    /// Fades at once, in place of any other fade; nothing happens while no item is open. Played items do this by
    /// themselves.
    void applyFadeIn();
    void applyFadeOut();

    /// How many seconds a server may take to answer, for items from now on. 10 at first.
    void setSecondsPerCall(double seconds) { m_secondsPerCall = seconds; }
    [[nodiscard]] KXAudioOutput &output() const { return *m_output; }

protected:
    void applyVolume() override;

private:
    struct Loader;
    void load(const std::shared_ptr<KXPlaybackSession> &session);
    void becomeReady(const std::shared_ptr<KXPlaybackSession> &session);
    bool startPlaying();
    void lookForEvents();
    void playerItemDidReachEnd(const KXNotification &notification);

    const std::shared_ptr<KXAudioOutput> m_output;
    const std::shared_ptr<Loader> m_loader;
    std::unique_ptr<KXStreamingPlayer> m_player; // of the item that was opened last
    double m_secondsPerCall = 10;
    QTimer m_eventTimer;
    KXNotificationToken m_endToken;
};
