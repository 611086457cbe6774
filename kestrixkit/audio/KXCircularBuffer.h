#pragma once

#include <atomic>

#include <kestrixkit/audio/KXCoreAudioUtilities.h>

/// A ring of bytes between one producer and one consumer thread, and a ring of buffer lists on top of it.
///
/// Its memory is mapped twice in a row, so that every region that may be read or written lies in one piece and
/// nothing is ever split where the ring wraps. Neither side locks, waits or allocates; a byte written before
/// produce() is seen by the consumer, space given back by consume() by the producer.
///
/// Buffer lists are stored as blocks that start at multiples of 16 bytes: time stamp, length, list, and the data of
/// each buffer, every one at a multiple of 16. Use either the bytes or the lists of one ring, not both.
///
/// Threads: "producer" and "consumer" below say who may call; everything else while neither is active. Breaking an
/// invariant stops the process, in every build type.
class KX_AUDIO_EXPORT KXCircularBuffer
{
public:
    /// Stands for "all" where frames are counted.
    static constexpr quint32 AllFrames = 0xFFFFFFFF;

    KXCircularBuffer() = default;
    ~KXCircularBuffer() { cleanup(); }
    Q_DISABLE_COPY_MOVE(KXCircularBuffer)

    /// Makes a ring of at least so many bytes (1 to 2^30), rounded up to whole pages. False, with a report on standard
    /// output, when the memory cannot be had after four attempts.
    bool init(qint32 requestedBytes);
    /// Gives the memory back. Harmless without any.
    void cleanup();

    /// Capacity in bytes; 0 before init.
    [[nodiscard]] qint32 length() const { return m_length; }
    /// Bytes stored, from 0 to length(). Any thread.
    [[nodiscard]] qint32 fillCount() const { return m_fillCount.load(std::memory_order_acquire); }

    // Bytes

    /// Consumer: drops all that is stored.
    void clear();
    /// Consumer: where to read, and how much is there; null and 0 when the ring is empty.
    [[nodiscard]] void *tail(qint32 *availableBytes) const
    {
        *availableBytes = fillCount();
        return *availableBytes == 0 ? nullptr : m_buffer + m_tail;
    }
    /// Producer: where to write, and how much fits; null and 0 when the ring is full.
    [[nodiscard]] void *head(qint32 *availableBytes) const
    {
        *availableBytes = m_length - fillCount();
        return *availableBytes == 0 ? nullptr : m_buffer + m_head;
    }
    /// Producer: what was written at the head is now stored. More than fits stops the process.
    void produce(qint32 bytes);
    /// Consumer: what was read at the tail is gone. More than is stored stops the process.
    void consume(qint32 bytes);

    // Buffer lists

    /// Producer: a list of so many buffers in the ring, to be filled and then produced; null when it does not fit.
    [[nodiscard]] KXAudioBufferList *prepareEmptyAudioBufferList(
        quint32 buffers, quint32 bytesPerBuffer, const KXAudioTimeStamp *timestamp = nullptr);
    /// Producer: stores the list prepared last. Its last buffer's size may have been reduced, which saves the space.
    /// A time stamp replaces the one given when it was prepared.
    void produceAudioBufferList(const KXAudioTimeStamp *timestamp = nullptr);
    /// Producer: stores a copy of the list's first so many frames. False when it does not fit; 0 frames always do.
    [[nodiscard]] bool copyAudioBufferList(const KXAudioBufferList &source, const KXAudioTimeStamp *timestamp,
        quint32 frames, const KXStreamFormat &format);

    /// Consumer: the oldest list; null when there is none.
    [[nodiscard]] KXAudioBufferList *nextBufferList(KXAudioTimeStamp *timestamp = nullptr) const;
    /// Consumer: the list stored behind the given one of this ring; null when that was the last.
    [[nodiscard]] KXAudioBufferList *nextBufferListAfter(
        const KXAudioBufferList *list, KXAudioTimeStamp *timestamp = nullptr) const;
    /// Consumer: takes so many frames off the oldest list, or all of it if it has no more. What remains keeps its
    /// time stamp, moved on by the frames taken.
    void consumeNextBufferListPartial(quint32 frames, const KXStreamFormat &format);
    /// Consumer: moves frames, across lists, into the destination's buffers or (without one) nowhere. Answers in
    /// `frames` how many there were; the rest of the destination is left as it was. The time stamp is that of the
    /// first frame, all zeros when there is none.
    void dequeueBufferListFrames(
        quint32 *frames, KXAudioBufferList *destination, KXAudioTimeStamp *timestamp, const KXStreamFormat &format);
    /// Consumer: the frames stored, and the time stamp of the first.
    [[nodiscard]] quint32 peek(KXAudioTimeStamp *timestamp, const KXStreamFormat &format) const
    {
        return peekContiguous(timestamp, format, AllFrames);
    }
    /// Consumer: as above, up to the first list whose sample time is further than `toleranceFrames` from where the
    /// one before it ends.
    [[nodiscard]] quint32 peekContiguous(
        KXAudioTimeStamp *timestamp, const KXStreamFormat &format, quint32 toleranceFrames) const;

private:
    struct Block;
    [[nodiscard]] Block *blockAt(qint32 offsetFromTail) const;
    [[nodiscard]] qint64 offsetFromTail(const KXAudioBufferList *list) const;

    char *m_buffer = nullptr;
    qint32 m_length = 0;
    // Each on a cache line of its own: one side writes it all the time, the other need not hear of it.
    alignas(64) qint32 m_tail = 0; // consumer's: where the oldest byte lies
    alignas(64) qint32 m_head = 0; // producer's: where the next byte goes
    alignas(64) std::atomic<qint32> m_fillCount = 0;
};

inline void KXCircularBuffer::produce(qint32 bytes)
{
    m_head += bytes;
    if (m_head >= m_length)
        m_head -= m_length;
    const qint32 before = m_fillCount.fetch_add(bytes, std::memory_order_seq_cst);
    KX_AUDIO_INVARIANT(before + bytes <= m_length, "buffer->fillCount <= buffer->length");
}

inline void KXCircularBuffer::consume(qint32 bytes)
{
    m_tail += bytes;
    if (m_tail >= m_length)
        m_tail -= m_length;
    const qint32 before = m_fillCount.fetch_sub(bytes, std::memory_order_seq_cst);
    KX_AUDIO_INVARIANT(before - bytes >= 0, "buffer->fillCount >= 0");
}
