#pragma once

#include <QTimer>

#include <kestrixkit/audio/KXAudioOutput.h>
#include <kestrixkit/audio/KXAudioPlayer.h>
#include <kestrixkit/audio/KXAudioTypes.h>

class KXCoreAudioFileDecoder;
class KXPlaybackSession;

/// Plays files whose channels are tracks of their own: even ones on the left, odd ones on the right, so that pairs
/// sound as stereo stems, each to be muted alone. A mono file is heard on the left.
///
/// An item that has begun is Playing at once, though its first passes may be silent. After its end resume() ends again
/// immediately, unless a seek went back.
///
/// Threads: the main thread.
class KX_AUDIO_EXPORT KXMultiTrackAudioPlayer : public KXAudioPlayer
{
    Q_OBJECT
public:
    /// Plays through this output, or the default device.
    explicit KXMultiTrackAudioPlayer(std::shared_ptr<KXAudioOutput> output = {}, QObject *parent = nullptr);
    /// Waits until the decoder has ended.
    ~KXMultiTrackAudioPlayer() override;

    void setVolume(float volume) override;
    void playItem(const KXAudioPlayerItemPointer &item) override;
    void stop() override;
    bool resume() override;
    [[nodiscard]] double duration() const override;
    /// The target while a seek is pending.
    [[nodiscard]] double currentTime() const override;
    /// Limited to the item's frames. Nothing happens while its length is unknown.
    void setTime(double seconds) override;
    [[nodiscard]] bool isSeeking() const override;
    /// Nothing happens for a frame that the item does not have.
    void seekToFrame(qint64 frame);

    /// Channels of the item, 0 before the first.
    [[nodiscard]] qint64 numberOfChannels() const { return m_numberOfChannels; }
    /// For the current item only. An index that names no channel is logged.
    void muteChannel(qint64 index);
    void unmuteChannel(qint64 index);

    /// The decoder of the current item; null when there is none.
    [[nodiscard]] std::shared_ptr<KXCoreAudioFileDecoder> currentFileDecoder() const;
    [[nodiscard]] KXAudioOutput &output() const { return *m_output; }

    /// Frames of the last render pass. Any thread.
    [[nodiscard]] qint64 framesRenderedLastPass() const;

    void startAudioQueue();
    void stopAudioQueue();
    void teardownCoreAudio();

private:
    bool takeOutput();
    bool willStartDecoding(const KXStreamFormat &format);
    bool setupCoreAudio(const KXStreamFormat &format);
    void applyVolumeToMixer();
    void setChannelGain(qint64 index, float gain, const char *failure);
    void lookForEnd();
    void playbackHasFinished();
    void endSession();

    const std::shared_ptr<KXAudioOutput> m_output;
    std::shared_ptr<KXPlaybackSession> m_session; // of the current item
    bool m_hasGraph = false; // since the first attempt to get an output ready
    qint64 m_numberOfChannels = 0;
    QTimer m_endTimer; // the render thread cannot tell us of the end: it is asked
};
