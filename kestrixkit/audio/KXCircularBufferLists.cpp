// The buffer lists of KXCircularBuffer: blocks of time stamp, length, list and data.

#include <kestrixkit/audio/KXCircularBuffer.h>

#include <cmath>
#include <cstring>

namespace {

constexpr double circularBufferTicksPerSecond = 1e9; // host time is the monotonic clock's, in nanoseconds

template <typename T> constexpr T circularBufferAligned(T bytes) { return (bytes + 15) & ~T(15); }

}

struct KXCircularBuffer::Block
{
    KXAudioTimeStamp timestamp;
    quint32 totalLength; // bytes to the next block
    quint32 padding;
    KXAudioBufferList list;

    [[nodiscard]] static constexpr size_t headerSize(quint32 buffers) { return 96 + 16 * (qint64(buffers) - 1); }
    [[nodiscard]] const char *start() const { return reinterpret_cast<const char *>(this); }
    [[nodiscard]] quint32 bytesPerBuffer() const { return list.mBuffers[0].mDataByteSize; }
};

KXCircularBuffer::Block *KXCircularBuffer::blockAt(qint32 offsetFromTail) const
{
    static_assert(sizeof(Block) == 96 && offsetof(Block, totalLength) == 64 && offsetof(Block, list) == 72);
    // Always by its address in the first mapping, since that is where its buffers' pointers lead.
    const qint32 offset = m_tail + offsetFromTail;
    char *start = m_buffer + (offset >= m_length ? offset - m_length : offset);
    KX_AUDIO_INVARIANT(!(reinterpret_cast<quintptr>(start) & 0xF), "!((unsigned long)block & 0xF)");
    return reinterpret_cast<Block *>(start);
}

KXAudioBufferList *KXCircularBuffer::prepareEmptyAudioBufferList(
    quint32 buffers, quint32 bytesPerBuffer, const KXAudioTimeStamp *timestamp)
{
    qint32 available = 0;
    char *const start = static_cast<char *>(head(&available));
    if (!start || buffers == 0)
        return nullptr;
    // Without the gaps between buffers; keeps what follows from writing the header into space that is not free.
    if (quint64(available) < Block::headerSize(buffers) + quint64(buffers) * bytesPerBuffer)
        return nullptr;
    KX_AUDIO_INVARIANT(!(reinterpret_cast<quintptr>(start) & 0xF), "!((unsigned long)block & 0xF)");
    const quint64 stride = circularBufferAligned(quint64(bytesPerBuffer));
    const quint64 first = circularBufferAligned(quint64(Block::headerSize(buffers)));
    const quint64 total = first + buffers * stride;
    if (total > quint64(available))
        return nullptr;

    auto *block = reinterpret_cast<Block *>(start);
    block->timestamp = timestamp ? *timestamp : KXAudioTimeStamp {};
    block->totalLength = quint32(total);
    block->padding = 0;
    block->list.mNumberBuffers = buffers;
    char *data = start + first;
    for (KXAudioBuffer &buffer : block->list.buffers()) {
        buffer = { 1, bytesPerBuffer, data };
        data += stride;
    }
    return &block->list;
}

void KXCircularBuffer::produceAudioBufferList(const KXAudioTimeStamp *timestamp)
{
    qint32 available = 0;
    auto *block = static_cast<Block *>(head(&available));
    KX_AUDIO_INVARIANT(block, "block");
    KX_AUDIO_INVARIANT(!(reinterpret_cast<quintptr>(block) & 0xF), "!((unsigned long)block & 0xF)");
    if (timestamp)
        block->timestamp = *timestamp;
    const KXAudioBuffer &last = block->list.buffers().back();
    const auto end = static_cast<const char *>(last.mData) + last.mDataByteSize - block->start();
    const quint64 calculated = circularBufferAligned(quint64(end));
    KX_AUDIO_INVARIANT(calculated <= block->totalLength && calculated <= quint64(available),
        "calculatedLength <= block->totalLength && calculatedLength <= availableBytes");
    block->totalLength = quint32(calculated);
    produce(qint32(calculated));
}

bool KXCircularBuffer::copyAudioBufferList(
    const KXAudioBufferList &source, const KXAudioTimeStamp *timestamp, quint32 frames, const KXStreamFormat &format)
{
    if (frames == 0)
        return true;
    quint64 bytes = source.mBuffers[0].mDataByteSize;
    if (frames != AllFrames) {
        bytes = quint64(frames) * format.mBytesPerFrame;
        KX_AUDIO_INVARIANT(
            bytes <= source.mBuffers[0].mDataByteSize, "byteCount <= inBufferList->mBuffers[0].mDataByteSize");
    }
    KXAudioBufferList *list = prepareEmptyAudioBufferList(source.mNumberBuffers, quint32(bytes), timestamp);
    if (!list)
        return false;
    for (quint32 i = 0; i < source.mNumberBuffers; ++i)
        std::memcpy(list->buffers()[i].mData, source.buffers()[i].mData, bytes);
    produceAudioBufferList();
    return true;
}

KXAudioBufferList *KXCircularBuffer::nextBufferList(KXAudioTimeStamp *timestamp) const
{
    if (fillCount() == 0)
        return nullptr;
    Block *block = blockAt(0);
    if (timestamp)
        *timestamp = block->timestamp;
    return &block->list;
}

qint64 KXCircularBuffer::offsetFromTail(const KXAudioBufferList *list) const
{
    const auto offset = reinterpret_cast<const char *>(list) - qint64(offsetof(Block, list)) - m_buffer - m_tail;
    // A list may have been found before the tail wrapped.
    return offset < 0 ? offset + m_length : offset >= m_length ? offset - m_length : offset;
}

KXAudioBufferList *KXCircularBuffer::nextBufferListAfter(
    const KXAudioBufferList *list, KXAudioTimeStamp *timestamp) const
{
    const qint32 stored = fillCount();
    const qint64 offset = offsetFromTail(list);
    KX_AUDIO_INVARIANT(offset >= 0 && offset < stored, "list lies inside the stored region");
    const auto next = qint32(offset + blockAt(qint32(offset))->totalLength);
    if (next >= stored)
        return nullptr;
    Block *block = blockAt(next);
    if (timestamp)
        *timestamp = block->timestamp;
    return &block->list;
}

void KXCircularBuffer::consumeNextBufferListPartial(quint32 frames, const KXStreamFormat &format)
{
    if (fillCount() == 0)
        return;
    Block *block = blockAt(0);
    const quint64 bytes = std::min<quint64>(quint64(frames) * format.mBytesPerFrame, block->bytesPerBuffer());
    if (bytes == block->bytesPerBuffer()) {
        consume(qint32(block->totalLength));
        return;
    }
    const char *const end = block->start() + block->totalLength;
    for (KXAudioBuffer &buffer : block->list.buffers()) {
        KX_AUDIO_INVARIANT(bytes <= buffer.mDataByteSize, "bytesToConsume <= buffer->mDataByteSize");
        auto *data = static_cast<char *>(buffer.mData) + bytes;
        buffer.mData = data;
        buffer.mDataByteSize -= quint32(bytes);
        KX_AUDIO_INVARIANT(data + buffer.mDataByteSize <= end, "buffer lies inside its block");
    }
    if (block->timestamp.mFlags & KXAudioTimeStampSampleTimeValid)
        block->timestamp.mSampleTime += frames;
    if (block->timestamp.mFlags & KXAudioTimeStampHostTimeValid)
        block->timestamp.mHostTime += quint64(frames / format.mSampleRate * circularBufferTicksPerSecond);

    // The header moves up behind the data just taken, whose space is given back. Data not taken lies behind it.
    const auto distance = qint32(bytes & ~quint64(15));
    if (distance == 0)
        return;
    block->totalLength -= quint32(distance);
    const quint32 buffers = block->list.mNumberBuffers;
    auto *moved = reinterpret_cast<Block *>(reinterpret_cast<char *>(block) + distance);
    std::memmove(static_cast<void *>(moved), block, Block::headerSize(buffers));
    // Beyond the first mapping the block is found at its other address from now on, and so must its data be.
    if (moved->start() >= m_buffer + m_length) {
        for (KXAudioBuffer &buffer : moved->list.buffers())
            buffer.mData = static_cast<char *>(buffer.mData) - m_length;
    }
    consume(distance);
}

void KXCircularBuffer::dequeueBufferListFrames(
    quint32 *frames, KXAudioBufferList *destination, KXAudioTimeStamp *timestamp, const KXStreamFormat &format)
{
    quint64 wanted = quint64(*frames) * format.mBytesPerFrame;
    quint64 bytesCopied = 0;
    while (wanted > 0 && fillCount() > 0) {
        const Block *block = blockAt(0);
        if (timestamp && bytesCopied == 0)
            *timestamp = block->timestamp;
        const quint64 bytes = std::min<quint64>(wanted, block->bytesPerBuffer());
        const quint32 buffers = destination ? std::min(destination->mNumberBuffers, block->list.mNumberBuffers) : 0;
        for (quint32 i = 0; i < buffers; ++i) {
            const KXAudioBuffer &output = destination->buffers()[i];
            KX_AUDIO_INVARIANT(bytesCopied + bytes <= output.mDataByteSize,
                "bytesCopied + bytesToCopy <= outputBufferList->mBuffers[i].mDataByteSize");
            std::memcpy(static_cast<char *>(output.mData) + bytesCopied, block->list.buffers()[i].mData, bytes);
        }
        consumeNextBufferListPartial(
            bytes == block->bytesPerBuffer() ? AllFrames : quint32(bytes / format.mBytesPerFrame), format);
        bytesCopied += bytes;
        wanted -= bytes;
    }
    if (wanted == 0)
        return;
    if (bytesCopied == 0 && timestamp)
        *timestamp = {};
    *frames -= quint32(wanted / format.mBytesPerFrame);
}

quint32 KXCircularBuffer::peekContiguous(
    KXAudioTimeStamp *timestamp, const KXStreamFormat &format, quint32 toleranceFrames) const
{
    const qint32 stored = fillCount();
    if (stored == 0)
        return 0;
    if (timestamp)
        *timestamp = blockAt(0)->timestamp;
    quint64 bytes = 0;
    for (qint32 offset = 0; offset < stored;) {
        const Block *block = blockAt(offset);
        bytes += block->bytesPerBuffer();
        offset += qint32(block->totalLength);
        if (offset >= stored || toleranceFrames == AllFrames)
            continue;
        const quint32 blockFrames = block->bytesPerBuffer() / format.mBytesPerFrame;
        const double due = block->timestamp.mSampleTime + blockFrames;
        if (std::trunc(std::fabs(blockAt(offset)->timestamp.mSampleTime - due)) > toleranceFrames)
            break;
    }
    return quint32(bytes / format.mBytesPerFrame);
}
