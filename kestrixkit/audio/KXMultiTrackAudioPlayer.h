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
/// A stem is the channels 2k and 2k + 1, a last odd one alone. Mutes, solo and gain of one item are forgotten with it.
/// They change by ramps of 5 ms, so that nothing clicks.
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

    [[nodiscard]] bool isChannelMuted(qint64 index) const;

    /// Stems of the item, 0 before the first. Calls that name none of them do nothing.
    [[nodiscard]] qint64 numberOfStems() const { return (m_numberOfChannels + 1) / 2; }
    /// Mutes its channels, or lets them be heard again.
    void setStemMuted(qint64 stem, bool muted);
    /// Whether all of its channels are muted.
    [[nodiscard]] bool isStemMuted(qint64 stem) const;
    /// As long as any stem is soloed, only those that are can be heard.
    void setStemSoloed(qint64 stem, bool soloed);
    [[nodiscard]] bool isStemSoloed(qint64 stem) const;
    /// From 0 to MostStemGain; 1 at first.
    void setStemGain(qint64 stem, float gain);
    [[nodiscard]] float stemGain(qint64 stem) const;
    static constexpr float MostStemGain = 4;
    /// With what gain each stem is heard: 0 where it is muted, or another one is soloed.
    [[nodiscard]] std::vector<float> audibleStemGains() const;
    /// Whether one channel of a stem is muted and the other one is not, which gains of stems do not tell.
    [[nodiscard]] bool mutesPartsOfStems() const;

    /// The decoder of the current item; null when there is none.
    [[nodiscard]] std::shared_ptr<KXCoreAudioFileDecoder> currentFileDecoder() const;
    [[nodiscard]] KXAudioOutput &output() const { return *m_output; }

    /// Frames of the last render pass; 0 after teardownCoreAudio().
    [[nodiscard]] qint64 framesRenderedLastPass() const;

    /// False where there is nothing to be played, or whoever had the output took it back.
    bool startAudioQueue();
    void stopAudioQueue();
    void teardownCoreAudio();

Q_SIGNALS:
    /// What is heard of the stems has changed, or other stems are there.
    void stemsChanged();

protected:
    void applyVolume() override;

private:
    struct Stem
    {
        float gain = 1;
        bool soloed = false;
    };

    bool takeOutput();
    bool willStartDecoding(const KXStreamFormat &format);
    bool setupCoreAudio(const KXStreamFormat &format);
    void setChannelMuted(qint64 index, bool muted, const char *failure);
    [[nodiscard]] float heardGain(qint64 stem) const;
    void applyStems();
    void lookForEnd();
    void playbackHasFinished();
    void endSession();

    const std::shared_ptr<KXAudioOutput> m_output;
    std::shared_ptr<KXPlaybackSession> m_session; // of the current item
    bool m_hasGraph = false; // since the first attempt to get an output ready
    qint64 m_numberOfChannels = 0;
    std::vector<bool> m_mutes; // of the channels
    std::vector<Stem> m_stems;
    QTimer m_endTimer; // the render thread cannot tell us of the end: it is asked
};
