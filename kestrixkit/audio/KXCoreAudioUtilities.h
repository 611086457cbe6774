/// Stand-alone buffer lists, and the check that holds in every build.
#pragma once

#include <memory>

#include <kestrixkit/audio/KXAudioTypes.h>

/// A list with zeroed buffers of so many frames: one a channel when the format is non-interleaved, else one for all
/// channels. Belongs to the caller, who gives it to KXDeallocateABL. Not for the render thread.
[[nodiscard]] KX_AUDIO_EXPORT KXAudioBufferList *KXAllocateABL(const KXStreamFormat &format, quint32 capacityFrames);

/// Frees each buffer's data, setting its pointer to null, and then the list. A null list stops the process.
KX_AUDIO_EXPORT void KXDeallocateABL(KXAudioBufferList *bufferList);

/// For std::unique_ptr.
struct KXAudioBufferListDeleter
{
    void operator()(KXAudioBufferList *list) const { KXDeallocateABL(list); }
};
/// A list that frees itself.
using KXAudioBufferListPointer = std::unique_ptr<KXAudioBufferList, KXAudioBufferListDeleter>;

/// Prints the text of a broken invariant to standard error and stops the process.
[[noreturn]] KX_AUDIO_EXPORT void KXAudioInvariantBroken(const char *text, const char *file, int line);

/// An invariant that stops the process in every build type: going on would write outside the audio's memory.
#define KX_AUDIO_INVARIANT(condition, text)                                                                            \
    do {                                                                                                               \
        if (!(condition)) [[unlikely]]                                                                                 \
            KXAudioInvariantBroken(text, __FILE__, __LINE__);                                                          \
    } while (false)
