#pragma once

#include <deque>

#include <kestrixkit/audio/KXAudioOutput.h>
#include <kestrixkit/audio/KXCircularBuffer.h>
#include <kestrixkit/audio/KXCoreAudioFileDecoder.h>

/// The gain of a stretch of an item: `from` before startFrame, then in a straight line to `to`, which stays.
struct KXGainRamp
{
    qint64 startFrame = 0;
    qint64 frames = 0;
    double from = 1;
    double to = 1;

    [[nodiscard]] double gainAt(qint64 frame) const
    {
        if (frame < startFrame)
            return from;
        return frame >= startFrame + frames ? to : from + (to - from) * double(frame - startFrame) / double(frames);
    }
};

/// How a session differs from the usual.
struct KXPlaybackOptions
{
    double bufferSeconds = 0.5;
    double secondsPerCall = KXAudioFileOptions().secondsPerCall; ///< for a server to answer
    bool staysAtEnd = false; ///< can be positioned again when all of the item has been read
    std::function<bool(const QUrl &)> mayLeadTo = {}; ///< see KXAudioFileOptions
};

/// Everything that belongs to one playing item: decoder, ring, mixer and position. The engine of both players.
///
/// The decoder's thread fills the ring, the render thread mixes straight out of it. Each channel of the file is an
/// input of the mixer with a gain and a pan of its own; the sum gets the volume and the ramp, which is computed for
/// each frame from its place in the item. A session is used for one item and never again, so nothing old can finish
/// or fill what is new.
///
/// Threads: everything on the main thread, unless it says otherwise.
class KX_AUDIO_EXPORT KXPlaybackSession final : public KXCoreAudioFileDecoderDelegate,
                                                public KXAudioRenderSource,
                                                public std::enable_shared_from_this<KXPlaybackSession>
{
public:
    /// At most this much is taken from the ring in one pass; the rest of a longer pass is silence that does not count.
    static constexpr int MostFramesPerPass = 2048;
    static constexpr double RampSeconds = 0.005;

    explicit KXPlaybackSession(const QUrl &url, const KXPlaybackOptions &options = {});
    ~KXPlaybackSession() override;

    [[nodiscard]] const std::shared_ptr<KXCoreAudioFileDecoder> &decoder() const { return m_decoder; }

    /// Opens the item and starts decoding it. `willStart` is called once its format is known, to make the buffer and
    /// an output ready; false cancels the decoder, although this then still answers true.
    bool start(const std::function<bool(const KXStreamFormat &)> &willStart, KXError *error = nullptr);
    /// As above, but on a worker thread, willStart included, and without decoding: that is left to
    /// decoder()->decodeAudioData().
    bool open(const std::function<bool(const KXStreamFormat &)> &willStart, KXError *error = nullptr);
    /// Ends decoding for good. Any thread.
    void cancel() { m_decoder->setState(KXCoreAudioFileDecoderStateCancelled); }

    /// Makes the ring and inputs of gain 1 panned left and right in turn. For willStart.
    bool prepareBuffer(const KXStreamFormat &format);

    [[nodiscard]] int inputCount() const { return m_inputCount; }
    /// Reached by a ramp of RampSeconds while it plays, so that nothing clicks; at once before it is first heard. A
    /// ramp is not turned round in its middle, which would click: the last gain asked for comes after it. Any thread.
    /// False for an input that does not exist.
    bool setInputGain(qint64 input, float gain);
    /// -1 left, 0 both sides at full gain, 1 right. Any thread.
    bool setInputPan(qint64 input, float pan);
    /// Applied as its third power, from the next pass on. Any thread.
    void setVolume(float volume, float gain = 1)
    {
        m_gain.store(volume * volume * volume * gain, std::memory_order_relaxed);
    }
    /// In place of the ramp before. Any thread, one at a time.
    void setRamp(const KXGainRamp &ramp);
    /// Takes the place of the ramp when playing first reaches its start. As above.
    void setNextRamp(const KXGainRamp &ramp);
    /// Changes the next ramp, unless its time has come already. As above.
    void correctNextRamp(const KXGainRamp &ramp);
    void dropNextRamp() { m_nextRamp = nullptr; }

    /// Requests a seek and wakes the decoder. Any thread.
    void seekToFrame(qint64 frame);

    /// Frames of the last pass. Any thread.
    [[nodiscard]] qint64 framesRenderedLastPass() const { return m_framesLastPass; }
    /// Whether a pass has reached the end since this was last asked, and no seek has left it since.
    [[nodiscard]] bool takeFinished();

    // From the decoder
    KXStreamFormat outputDescriptionFor(KXCoreAudioFileDecoder &decoder, const KXStreamFormat &fileFormat) override;
    void willStartDecoding(KXCoreAudioFileDecoder &decoder) override;
    void willSeekToFrame(KXCoreAudioFileDecoder &decoder, qint64 frame) override;
    bool didDecodeAudioData(KXCoreAudioFileDecoder &decoder, const KXAudioBufferList &data, quint32 frames) override;

    // On the render thread
    int render(float *left, float *right, int frames) noexcept override;

private:
    struct Input
    {
        std::atomic<float> gain = 1;
        std::atomic<float> pan = 0;
        // The render thread's own
        float from = 1; // of the ramp
        float to = 1; // of the ramp, and the gain behind it
        size_t rampAt = SIZE_MAX; // frames of the ramp that were played; its length and more: over
    };

    void mixInput(Input &input, const float *channel, float *left, float *right, int frames) noexcept;
    int mix(float *left, float *right, int frames) noexcept;
    void applyGain(float *left, float *right, int frames, qint64 firstFrame) noexcept;

    const std::shared_ptr<KXCoreAudioFileDecoder> m_decoder;
    const double m_bufferSeconds;
    const std::function<bool(const KXStreamFormat &)> *m_willStart = nullptr; // during start()
    KXCircularBuffer m_ring;
    KXStreamFormat m_format; // of the ring
    std::unique_ptr<Input[]> m_inputs;
    int m_inputCount = 0;
    std::vector<float> m_gainRamp; // from 0 to 1, a value a frame
    bool m_isHeard = false; // the render thread's: since the first frame was mixed
    std::atomic<float> m_gain = 0;
    std::atomic<const KXGainRamp *> m_ramp = nullptr;
    std::atomic<const KXGainRamp *> m_nextRamp = nullptr; // until the render thread makes it m_ramp
    std::deque<KXGainRamp> m_ramps; // all there were: the render thread may still be using one
    /// Held by whoever takes from the ring: a render pass, which only tries, or the decoder when it empties the ring.
    std::atomic_flag m_consumer;
    std::atomic<qint64> m_framesLastPass = 0;
    std::atomic<bool> m_isFinished = false;
};
