#pragma once

#include <kestrixkit/audio/KXPlaybackSession_p.h>

/// Posted on the main thread when an item has been played to its end. The sender is the KXStreamingPlayer.
inline constexpr QLatin1StringView KXStreamingPlayerDidPlayToEndNotification {
    "KXStreamingPlayerDidPlayToEndNotification"
};

/// Plays one item that has been opened, a local file or a stream, through an output: starting, pausing, positions in
/// seconds, fades. It can be positioned and played again after its end.
///
/// Threads: load() and run() on a worker thread, everything else on the main thread.
class KXStreamingPlayer
{
public:
    enum class Event { None, End, BrokenOff };

    /// A session for the item, not opened yet.
    static std::shared_ptr<KXPlaybackSession> makeSession(
        const QUrl &url, double secondsPerCall, std::function<bool(const QUrl &)> mayLeadTo);
    /// Opens it and decodes its start; false when it cannot be played. Waits for servers, until the session is
    /// cancelled.
    static bool load(KXPlaybackSession &session);
    /// Fills its buffer, and looks for its exact length beside. Returns when the session is cancelled.
    static void run(const std::shared_ptr<KXPlaybackSession> &session);

    /// The session has been loaded. `lost` is called when the output, taken by play(), is lost while it plays.
    KXStreamingPlayer(std::shared_ptr<KXPlaybackSession> session, std::shared_ptr<KXAudioOutput> output,
        KXAudioOutput::LostHandler lost);
    /// Stops, and ends the session.
    ~KXStreamingPlayer();
    Q_DISABLE_COPY_MOVE(KXStreamingPlayer)

    /// Takes the output. False, with a log line, when it cannot be had; also when whoever had it before took it back or
    /// destroyed this player. What broke off is tried again.
    bool play();
    void pause();

    /// Seconds; 0 when unknown.
    [[nodiscard]] double duration() const;
    /// The target while a seek is pending.
    [[nodiscard]] double currentTime() const;
    /// Goes to the whole second, within the item.
    void seekToSecond(double seconds);
    [[nodiscard]] bool isSeeking() const { return decoder().seekToFrame() >= 0; }

    void setVolume(float volume, float gain) { m_session->setVolume(volume, gain); }
    /// To silence over the item's last whole second, once playing comes there; beside the fade that there is.
    void fadeOutAtEnd();
    /// In place of the fade that there is. The one at the end still comes after a fade in, and not after a fade out.
    void applyFadeIn();
    void applyFadeOut();

    /// What has happened since this was last asked. To be asked several times a second while it plays.
    [[nodiscard]] Event takeEvent();

private:
    [[nodiscard]] KXGainRamp fadeOutRamp() const;
    [[nodiscard]] const KXCoreAudioFileDecoder &decoder() const { return *m_session->decoder(); }
    [[nodiscard]] double sampleRate() const { return decoder().outputDescription().mSampleRate; }

    const std::shared_ptr<KXPlaybackSession> m_session;
    const std::shared_ptr<KXAudioOutput> m_output;
    const KXAudioOutput::LostHandler m_lost;
    qint64 m_framesOfFade = 0; // the item's length when the fade at its end was placed
};
