#include <kestrixkit/audio/KXCoreAudioUtilities.h>

#include <cstdio>
#include <cstdlib>

KXAudioBufferList *KXAllocateABL(const KXStreamFormat &format, quint32 capacityFrames)
{
    const quint32 count = format.isNonInterleaved() ? format.mChannelsPerFrame : 1;
    auto *list = static_cast<KXAudioBufferList *>(std::calloc(1, KXAudioBufferList::byteSize(count)));
    Q_CHECK_PTR(list);
    list->mNumberBuffers = count;
    for (KXAudioBuffer &buffer : list->buffers()) {
        buffer.mNumberChannels = format.isNonInterleaved() ? 1 : format.mChannelsPerFrame;
        buffer.mDataByteSize = capacityFrames * format.mBytesPerFrame;
        buffer.mData = std::calloc(capacityFrames, format.mBytesPerFrame);
    }
    return list;
}

void KXDeallocateABL(KXAudioBufferList *bufferList)
{
    KX_AUDIO_INVARIANT(bufferList, "bufferList != NULL");
    for (KXAudioBuffer &buffer : bufferList->buffers())
        std::free(std::exchange(buffer.mData, nullptr));
    std::free(bufferList);
}

void KXAudioInvariantBroken(const char *text, const char *file, int line)
{
    std::fprintf(stderr, "Assertion failed: (%s), file %s, line %d\n", text, file, line);
    std::fflush(stderr);
    std::abort();
}
