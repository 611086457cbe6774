#include <kestrixkit/audio/KXCoreAudioFileDecoder.h>

#include <system_error>
#include <thread>

#include <kestrixkit/foundation/KXLog.h>

namespace {

constexpr auto decoderPatience = std::chrono::milliseconds(20); // between two looks at a file that grows

}

static_assert(std::atomic<int>::is_always_lock_free && std::atomic<qint64>::is_always_lock_free);

KXCoreAudioFileDecoderDelegate::~KXCoreAudioFileDecoderDelegate() = default;

KXCoreAudioFileDecoder::KXCoreAudioFileDecoder(const QUrl &fileURL)
    : m_fileURL(fileURL)
{
}

KXCoreAudioFileDecoder::~KXCoreAudioFileDecoder() = default;

bool KXCoreAudioFileDecoder::open(KXError *error)
{
    m_options.cancelled = m_cancelled;
    qint64 frames = 0;
    if (!m_file.openForReading(m_fileURL, m_options, &m_inputDescription, &frames, error))
        return false;
    m_totalFrames = m_promisedFrames = frames;
    m_totalFramesIsFinal = m_file.lengthIsExact();

    const auto delegate = m_delegate.lock();
    m_outputDescription = delegate ? delegate->outputDescriptionFor(*this, m_inputDescription) : KXStreamFormat {};
    if (!m_file.useFormat(m_outputDescription, error))
        return false;
    m_chunk.reset(KXAllocateABL(m_outputDescription, ChunkFrames));
    if (delegate)
        delegate->willStartDecoding(*this);
    return true;
}

bool KXCoreAudioFileDecoder::runInBackground(KXError *error)
{
    m_isDecoding = true;
    try {
        std::thread([self = shared_from_this()] { self->decodeAudioData(); }).detach();
    } catch (const std::system_error &failure) {
        m_isDecoding = false;
        KXLogError(audio, "Failed to start decoding: %@", failure.what());
        return KXSetError(
            error, KXError(KXKestrixKitErrorDomain, KXAudioFileErrorCode, QString::fromLocal8Bit(failure.what())));
    }
    return true;
}

void KXCoreAudioFileDecoder::decodeAudioData()
{
    m_isDecoding = true;
    while (decodeChunk()) { }
    m_isDecoding = false;
    m_isDecoding.notify_all();
}

void KXCoreAudioFileDecoder::setState(State state)
{
    {
        const std::lock_guard lock(m_mutex);
        const int current = m_state;
        if (current == KXCoreAudioFileDecoderStateCancelled
            || (current == KXCoreAudioFileDecoderStateFinished && state != KXCoreAudioFileDecoderStateCancelled))
            return;
        m_state = state;
        m_hasDelivered |= state >= KXCoreAudioFileDecoderStateCancelled;
        if (state == KXCoreAudioFileDecoderStateCancelled)
            *m_cancelled = true;
    }
    m_state.notify_all();
    m_changed.notify_all();
}

bool KXCoreAudioFileDecoder::advanceRenderedFrames(qint64 from, qint64 frames) noexcept
{
    // Read first: the length becomes final after it has been corrected.
    const bool isFinal = m_totalFramesIsFinal;
    const qint64 total = m_totalFrames;
    const bool isAtEnd = isFinal && from + frames >= total;
    return m_renderedFrames.compare_exchange_strong(from, isAtEnd ? total : from + frames) && isAtEnd;
}

bool KXCoreAudioFileDecoder::decodeChunk()
{
    if (std::exchange(m_isAtEnd, false))
        waitForSeek();
    if (isCancelled())
        return false;
    carryOutSeek();
    quint32 frames = 0;
    const KXAudioFileStatus status = m_file.read(m_chunk.get(), ChunkFrames, &frames);
    if (status == KXAudioFileInvalidFileError) {
        waitForData(status);
        return true;
    }
    m_isPending = false;
    if (frames == 0) {
        reachEnd(status);
        return m_staysAtEnd;
    }
    m_position += frames;
    if (m_promisedFrames > 0 && m_position > m_totalFrames)
        m_totalFrames = m_position;
    return deliver(frames);
}

void KXCoreAudioFileDecoder::reachEnd(KXAudioFileStatus status)
{
    if (status != KXAudioFileNoError && !isCancelled())
        KXLogError(audio, "Failed to read frame %lld (%i)", m_position, status);
    m_readStatus = status != KXAudioFileNoError ? status : m_seekStatus;
    // Only now is it certain how long the file was, or how much of it can be had.
    m_totalFrames = m_position;
    m_totalFramesIsFinal = true;
    m_isAtEnd = true;
    if (!m_staysAtEnd)
        setState(KXCoreAudioFileDecoderStateFinished);
}

void KXCoreAudioFileDecoder::waitForSeek()
{
    std::unique_lock lock(m_mutex);
    if (isCancelled())
        return;
    m_state = KXCoreAudioFileDecoderStateWaiting;
    m_hasDelivered = true;
    m_changed.notify_all();
    m_changed.wait(lock, [this] { return isCancelled() || m_seekToFrame >= 0; });
}

void KXCoreAudioFileDecoder::findExactLength()
{
    if (m_totalFramesIsFinal || !m_fileURL.isLocalFile())
        return;
    {
        std::unique_lock lock(m_mutex); // until there is enough to be heard first
        m_changed.wait(lock, [this] { return m_hasDelivered; });
    }
    KXAudioFile file;
    qint64 frames = 0;
    if (!isCancelled() && !m_totalFramesIsFinal && file.open(m_fileURL, m_options) == KXAudioFileNoError
        && file.findExactLength() == KXAudioFileNoError && file.lengthIsExact()
        && file.lengthInFrames(&frames) == KXAudioFileNoError && !m_totalFramesIsFinal)
        m_totalFrames = frames;
}

void KXCoreAudioFileDecoder::carryOutSeek()
{
    qint64 target = m_seekToFrame;
    if (target < 0)
        return;
    if (m_readStatus != KXAudioFileNoError) { // there may be more than what could be had
        m_totalFramesIsFinal = false;
        m_totalFrames = m_promisedFrames > 0 ? std::max<qint64>(m_promisedFrames, m_totalFrames) : 0;
        m_readStatus = KXAudioFileNoError;
    }
    if (const auto delegate = m_delegate.lock())
        delegate->willSeekToFrame(*this, target);
    m_seekStatus = m_file.seek(target);
    if (m_seekStatus != KXAudioFileNoError)
        KXLogError(audio, "Failed to seek to frame %lld", target);
    m_position = target;
    m_renderedFrames = target;
    m_seekToFrame.compare_exchange_strong(target, -1); // unless a newer one came meanwhile
}

/// Offers the chunk until it is taken or a seek makes it useless. False when decoding is to end.
bool KXCoreAudioFileDecoder::deliver(quint32 frames)
{
    while (!isCancelled()) {
        if (m_seekToFrame >= 0)
            return true;
        const auto delegate = m_delegate.lock();
        if (!delegate)
            return false;
        if (delegate->didDecodeAudioData(*this, *m_chunk, frames))
            return true;
        if (!waitForRoom())
            return false;
    }
    return false;
}

/// False when cancelled.
bool KXCoreAudioFileDecoder::waitForRoom()
{
    {
        // Whoever seeks or cancels does so before or after this as a whole, and wakes the decoder in the second case.
        const std::lock_guard lock(m_mutex);
        if (m_seekToFrame >= 0 || isCancelled())
            return !isCancelled();
        m_state = KXCoreAudioFileDecoderStateWaiting;
        if (!std::exchange(m_hasDelivered, true))
            m_changed.notify_all();
    }
    while (m_state == KXCoreAudioFileDecoderStateWaiting)
        m_state.wait(KXCoreAudioFileDecoderStateWaiting);
    return !isCancelled();
}

/// Keeps a growing file from taking a whole core. A seek or the end of the decoder cuts it short.
void KXCoreAudioFileDecoder::waitForData(KXAudioFileStatus status)
{
    if (!std::exchange(m_isPending, true))
        KXLogError(audio, "Read status %i", status);
    std::unique_lock lock(m_mutex);
    m_changed.wait_for(lock, decoderPatience, [this] { return isCancelled() || m_seekToFrame >= 0; });
}
