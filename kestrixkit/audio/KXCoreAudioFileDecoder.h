#pragma once

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>

#include <kestrixkit/audio/KXAudioFile.h>
#include <kestrixkit/audio/KXCoreAudioUtilities.h>

class KXCoreAudioFileDecoder;

enum KXCoreAudioFileDecoderState : int {
    KXCoreAudioFileDecoderStateRunning = 0, ///< decoding
    KXCoreAudioFileDecoderStateWaiting = 1, ///< sleeps, since the delegate had no room, or at an end that it stays at
    KXCoreAudioFileDecoderStateCancelled = 2, ///< asked to end; final
    KXCoreAudioFileDecoderStateFinished = 3, ///< the end of the file was reached
};

/// Takes what a decoder delivers.
class KX_AUDIO_EXPORT KXCoreAudioFileDecoderDelegate
{
public:
    virtual ~KXCoreAudioFileDecoderDelegate();

    /// The format in which the file is to be delivered. On the thread that calls decode().
    virtual KXStreamFormat outputDescriptionFor(KXCoreAudioFileDecoder &decoder, const KXStreamFormat &fileFormat) = 0;
    /// The format is settled, the thread not yet started; cancelling here keeps it from decoding anything. On the
    /// thread that calls decode().
    virtual void willStartDecoding(KXCoreAudioFileDecoder &decoder) = 0;
    /// What was delivered so far is out of date. On the decoding thread.
    virtual void willSeekToFrame(KXCoreAudioFileDecoder &decoder, qint64 frame) = 0;
    /// Takes a chunk, or answers false when there is no room now. On the decoding thread.
    virtual bool didDecodeAudioData(KXCoreAudioFileDecoder &decoder, const KXAudioBufferList &data, quint32 frames) = 0;
};

/// Turns a file into chunks of at most 4096 frames, on a thread of its own, and counts for its owner how far they
/// have been played.
///
/// A chunk that the delegate has no room for is kept while the decoder waits; setState(Running), or a render pass by
/// wakeFromRenderThread(), makes it try again. The thread keeps the decoder alive until it ends; whoever wants it to
/// end sets the state Cancelled. At the end of the file the thread ends, even though its last chunks may still be
/// unheard: a seek requested after that is shown but not carried out, unless setStaysAtEnd() was called.
///
/// Threads: decode() once, on the owner's thread; everything else on any.
class KX_AUDIO_EXPORT KXCoreAudioFileDecoder : public std::enable_shared_from_this<KXCoreAudioFileDecoder>
{
public:
    static constexpr quint32 ChunkFrames = 4096;
    using State = KXCoreAudioFileDecoderState;

    explicit KXCoreAudioFileDecoder(const QUrl &fileURL);
    ~KXCoreAudioFileDecoder();
    Q_DISABLE_COPY_MOVE(KXCoreAudioFileDecoder)

    [[nodiscard]] QUrl fileURL() const { return m_fileURL; }
    /// How the file is opened; to be set before decode(). Whether that is cancelled is the decoder's own business.
    void setFileOptions(const KXAudioFileOptions &options) { m_options = options; }
    /// Has the thread wait for a seek at the end of the file, until it is cancelled, instead of finishing. Before
    /// decode().
    void setStaysAtEnd(bool stays) { m_staysAtEnd = stays; }
    /// Held weakly. To be set before decode(). A decoder whose delegate has gone ends.
    void setDelegate(const std::weak_ptr<KXCoreAudioFileDecoderDelegate> &delegate) { m_delegate = delegate; }
    [[nodiscard]] std::shared_ptr<KXCoreAudioFileDecoderDelegate> delegate() const { return m_delegate.lock(); }

    /// Opens the file and starts decoding on a thread of its own. On failure the error has the code
    /// KXAudioFileErrorCode.
    bool decode(KXError *error = nullptr) { return open(error) && runInBackground(error); }
    /// The two steps of decode().
    bool open(KXError *error = nullptr);
    bool runInBackground(KXError *error = nullptr);
    /// For a caller that has a thread to give: decodes until the end. The caller keeps the decoder alive meanwhile.
    void decodeAudioData();
    /// A single step of decodeAudioData(). False when decoding has ended.
    bool decodeChunk();
    /// Waits until the thread has ended, after it was cancelled. Not to be called by a delegate.
    void waitUntilDone() const { m_isDecoding.wait(true); }

    /// The file's own format, and that of the chunks. Not to be read during decode().
    [[nodiscard]] const KXStreamFormat &inputDescription() const { return m_inputDescription; }
    [[nodiscard]] const KXStreamFormat &outputDescription() const { return m_outputDescription; }

    [[nodiscard]] State state() const { return State(m_state.load()); }
    /// Wakes the decoder. Cancelled stays whatever comes after it, and Finished gives way to nothing else.
    void setState(State state);
    /// From Waiting to Running without a lock: for the render thread, on every pass.
    void wakeFromRenderThread() noexcept
    {
        int waiting = KXCoreAudioFileDecoderStateWaiting;
        if (m_state.compare_exchange_strong(waiting, KXCoreAudioFileDecoderStateRunning))
            m_state.notify_one();
    }

    /// Frames in the file, as far as is known, and 0 where nothing is; at the end of the file, what it really had.
    [[nodiscard]] qint64 totalFrames() const { return m_totalFrames; }
    void setTotalFrames(qint64 frames) { m_totalFrames = frames; }
    /// Whether totalFrames() will not change any more.
    [[nodiscard]] bool totalFramesIsFinal() const { return m_totalFramesIsFinal; }

    /// Looks for the length of a local file that was only guessed, in the file opened once more; first it waits until
    /// the decoder waits for room or has come to the end. After decode(), on a thread that may wait.
    void findExactLength();
    /// What ended reading before the end of the file, 0 when nothing did. A seek tries again.
    [[nodiscard]] KXAudioFileStatus readStatus() const { return m_readStatus; }

    /// The frame to go to, -1 when none is pending. Set Running afterwards.
    [[nodiscard]] qint64 seekToFrame() const { return m_seekToFrame; }
    void setSeekToFrame(qint64 frame) { m_seekToFrame = frame; }

    /// How far playing has come: the target when a seek is carried out, advanced by whoever plays.
    [[nodiscard]] qint64 renderedFrames() const { return m_renderedFrames; }
    void setRenderedFrames(qint64 frames) { m_renderedFrames = frames; }
    /// Advances by the frames of a render pass, unless a seek has set the position since it was `from`. True when that
    /// was the end of the file. Lock-free.
    bool advanceRenderedFrames(qint64 from, qint64 frames) noexcept;

private:
    void carryOutSeek();
    bool deliver(quint32 frames);
    bool waitForRoom();
    void waitForData(KXAudioFileStatus status);
    void reachEnd(KXAudioFileStatus status);
    void waitForSeek();
    [[nodiscard]] bool isCancelled() const { return m_state == KXCoreAudioFileDecoderStateCancelled; }

    const QUrl m_fileURL;
    std::weak_ptr<KXCoreAudioFileDecoderDelegate> m_delegate;
    KXAudioFile m_file;
    const std::shared_ptr<std::atomic<bool>> m_cancelled = std::make_shared<std::atomic<bool>>(false);
    KXAudioFileOptions m_options;
    bool m_staysAtEnd = false;
    KXStreamFormat m_inputDescription;
    KXStreamFormat m_outputDescription;
    KXAudioBufferListPointer m_chunk;
    qint64 m_position = 0; // the decoding thread's: end of what was read, as the player counts
    KXAudioFileStatus m_seekStatus = KXAudioFileNoError; // of the last seek
    qint64 m_promisedFrames = 0; // what totalFrames() was at first
    bool m_isAtEnd = false; // the decoding thread's
    bool m_isPending = false; // the decoding thread's: the last read found a growing file's present end

    std::mutex m_mutex; // held for every change of the state but the render thread's
    std::condition_variable m_changed;
    bool m_hasDelivered = false; // as much as there was room for, or all; guarded by the mutex
    /// Waited for by the decoding thread alone: the render thread wakes one.
    std::atomic<int> m_state = KXCoreAudioFileDecoderStateRunning;
    std::atomic<qint64> m_totalFrames = 0;
    std::atomic<bool> m_totalFramesIsFinal = false;
    std::atomic<KXAudioFileStatus> m_readStatus = KXAudioFileNoError;
    std::atomic<qint64> m_seekToFrame = -1;
    std::atomic<qint64> m_renderedFrames = 0;
    std::atomic<bool> m_isDecoding = false;
};
