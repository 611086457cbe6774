// Any bytes as a run of calls into the ring's buffer lists, beside a plain queue of the same frames. It wraps many
// times, in odd amounts, so that blocks end and start at every place.

#include "Fuzz.h"

#include <cstdlib>
#include <deque>

#include <kestrixkit/audio/KXCircularBuffer.h>

namespace {

constexpr quint32 fuzzMostFrames = 600;

void require(bool holds)
{
    if (!holds)
        std::abort();
}

/// The ring and what should be in it. A sample tells its frame and channel, and the frame's number is also its time.
struct FuzzRing
{
    const quint32 channels;
    KXStreamFormat format = KXPlanarFloatFormat(44'100, channels);
    KXCircularBuffer ring;
    KXAudioBufferListPointer list { KXAllocateABL(format, fuzzMostFrames) };
    qint64 written = 0, taken = 0; // frames
    std::deque<quint32> blocks; // frames left in each

    float sample(qint64 frame, quint32 channel) const { return float(frame % 100'000 * 8 + channel); }
    KXAudioTimeStamp stamp() const { return { double(written), 0, 0, 0, {}, KXAudioTimeStampSampleTimeValid, 0 }; }

    void fill(KXAudioBufferList &target, quint32 frames) const
    {
        for (quint32 c = 0; c < channels; ++c) {
            for (quint32 i = 0; i < frames; ++i)
                static_cast<float *>(target.buffers()[c].mData)[i] = sample(written + i, c);
        }
    }
    void copyIn(quint32 frames)
    {
        for (KXAudioBuffer &buffer : list->buffers())
            buffer.mDataByteSize = fuzzMostFrames * quint32(sizeof(float));
        fill(*list, frames);
        const auto align = [](quint32 bytes) { return (bytes + 15) / 16 * 16; };
        const bool fits
            = ring.fillCount() + qint32(96 + 16 * (channels - 1) + channels * align(frames * 4)) <= ring.length();
        const KXAudioTimeStamp time = stamp();
        require(ring.copyAudioBufferList(*list, &time, frames, format) == (fits || frames == 0));
        if (fits)
            stored(frames);
    }
    /// Prepared with more than is then produced.
    void writeInto(quint32 frames, quint32 more)
    {
        KXAudioBufferList *target
            = ring.prepareEmptyAudioBufferList(channels, (frames + more) * quint32(sizeof(float)));
        if (!target)
            return;
        fill(*target, frames);
        for (KXAudioBuffer &buffer : target->buffers())
            buffer.mDataByteSize = frames * quint32(sizeof(float));
        const KXAudioTimeStamp time = stamp();
        ring.produceAudioBufferList(&time);
        stored(frames);
    }
    void stored(quint32 frames)
    {
        written += frames;
        if (frames > 0)
            blocks.push_back(frames);
    }
    void takeOut(quint32 frames)
    {
        for (KXAudioBuffer &buffer : list->buffers())
            buffer.mDataByteSize = fuzzMostFrames * quint32(sizeof(float));
        quint32 got = frames;
        KXAudioTimeStamp time;
        ring.dequeueBufferListFrames(&got, list.get(), &time, format);
        require(got == std::min<qint64>(frames, written - taken) && (got == 0 || time.mSampleTime == double(taken)));
        for (quint32 c = 0; c < channels; ++c) {
            for (quint32 i = 0; i < got; ++i)
                require(static_cast<float *>(list->buffers()[c].mData)[i] == sample(taken + i, c));
        }
        gone(got);
    }
    void gone(quint32 frames)
    {
        for (taken += frames; frames > 0;) {
            const quint32 part = std::min(frames, blocks.front());
            frames -= part;
            if ((blocks.front() -= part) == 0)
                blocks.pop_front();
        }
    }
    void takeOfFirst(quint32 frames)
    {
        if (blocks.empty())
            return require(ring.nextBufferList() == nullptr);
        ring.consumeNextBufferListPartial(frames, format);
        gone(std::min(frames, blocks.front()));
    }
    void lookAtAll() const
    {
        size_t count = 0;
        qint64 frame = taken;
        KXAudioTimeStamp time;
        for (const auto *each = ring.nextBufferList(&time); each; each = ring.nextBufferListAfter(each, &time)) {
            require(
                each->mBuffers[0].mDataByteSize == blocks[count] * sizeof(float) && time.mSampleTime == double(frame));
            require(*static_cast<float *>(each->buffers().back().mData) == sample(frame, channels - 1));
            frame += blocks[count++];
        }
        require(count == blocks.size() && frame == written && ring.peek(nullptr, format) == written - taken);
    }
};

}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 2)
        return 0;
    FuzzRing ring { data[0] % 5 + 1U };
    require(ring.ring.init(1 + data[1] % 3 * 4096));
    for (size_t at = 2; at + 2 < size; at += 3) {
        const quint32 frames = (data[at + 1] | quint32(data[at + 2]) << 8) % fuzzMostFrames;
        switch (data[at] % 5) {
        case 0:
            ring.copyIn(frames);
            break;
        case 1:
            ring.writeInto(frames + 1, data[at] / 5 % 7);
            break;
        case 2:
            ring.takeOut(frames);
            break;
        case 3:
            ring.takeOfFirst(frames);
            break;
        default:
            ring.lookAtAll();
        }
    }
    return 0;
}

std::vector<std::string> fuzzSeeds()
{
    std::vector<std::string> seeds;
    for (const char channels : { 0, 1, 3 }) {
        std::string seed = { channels, 1 };
        for (int i = 0; i < 400; ++i)
            seed += { char(i * 7 % 5 + i % 35 / 5 * 5), char(i * 37), char(i % 3) };
        seeds.push_back(seed);
    }
    return seeds;
}
