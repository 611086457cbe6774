/// The plain records that audio passes through: stream formats, time stamps and lists of buffers. Their layout is
/// fixed, since the ring stores them as they are.
#pragma once

#include <cstddef>
#include <span>

#include <QtGlobal>

#include <kestrixkit/foundation/KXGlobal.h>

/// Four characters as one number, the first in the highest byte: how formats are named.
constexpr quint32 KXFourCharCode(const char (&text)[5])
{
    return quint32(quint8(text[0])) << 24 | quint32(quint8(text[1])) << 16 | quint32(quint8(text[2])) << 8
        | quint32(quint8(text[3]));
}

inline constexpr quint32 KXAudioFormatLinearPCM = KXFourCharCode("lpcm");
inline constexpr quint32 KXAudioFormatAppleLossless = KXFourCharCode("alac");
inline constexpr quint32 KXAudioFormatFLAC = KXFourCharCode("flac");
inline constexpr quint32 KXAudioFormatMPEG4AAC = KXFourCharCode("aac ");
inline constexpr quint32 KXAudioFormatMPEGLayer3 = KXFourCharCode(".mp3");
inline constexpr quint32 KXAudioFormatVorbis = KXFourCharCode("vorb");
inline constexpr quint32 KXAudioFormatOpus = KXFourCharCode("opus");

/// Flags of linear PCM.
enum KXAudioFormatFlag : quint32 {
    KXAudioFormatFlagIsFloat = 0x01,
    KXAudioFormatFlagIsBigEndian = 0x02,
    KXAudioFormatFlagIsSignedInteger = 0x04,
    KXAudioFormatFlagIsPacked = 0x08,
    KXAudioFormatFlagIsNonInterleaved = 0x20, ///< one buffer a channel
};

/// What a stream of audio looks like. All zeros: no format. A value; any thread.
struct KXStreamFormat
{
    double mSampleRate = 0; ///< frames a second
    quint32 mFormatID = 0; ///< KXAudioFormatLinearPCM and so on
    quint32 mFormatFlags = 0; ///< KXAudioFormatFlag, for linear PCM
    quint32 mBytesPerPacket = 0; ///< 0 where packets vary
    quint32 mFramesPerPacket = 0; ///< 1 for linear PCM and where packets vary; never 0 in a file's format
    quint32 mBytesPerFrame = 0; ///< of one buffer: of one channel when non-interleaved; 0 when compressed
    quint32 mChannelsPerFrame = 0;
    quint32 mBitsPerChannel = 0; ///< 0 when compressed
    quint32 mReserved = 0;

    [[nodiscard]] bool isNonInterleaved() const { return mFormatFlags & KXAudioFormatFlagIsNonInterleaved; }
    friend bool operator==(const KXStreamFormat &, const KXStreamFormat &) = default;
};
static_assert(sizeof(KXStreamFormat) == 40);

/// 32-bit floats, one buffer a channel: what files are decoded to.
constexpr KXStreamFormat KXPlanarFloatFormat(double sampleRate, quint32 channels)
{
    constexpr quint32 flags = KXAudioFormatFlagIsFloat | KXAudioFormatFlagIsPacked | KXAudioFormatFlagIsNonInterleaved;
    return { sampleRate, KXAudioFormatLinearPCM, flags, 4, 1, 4, channels, 32, 0 };
}

enum KXAudioTimeStampFlag : quint32 {
    KXAudioTimeStampSampleTimeValid = 1,
    KXAudioTimeStampHostTimeValid = 2,
};

/// When something sounds, in frames of its stream and in nanoseconds of the machine's monotonic clock. A value; any
/// thread.
struct KXAudioTimeStamp
{
    double mSampleTime = 0;
    quint64 mHostTime = 0;
    double mRateScalar = 0;
    quint64 mWordClockTime = 0;
    quint8 mSMPTETime[24] = {};
    quint32 mFlags = 0; ///< KXAudioTimeStampFlag: which of the fields count
    quint32 mReserved = 0;
};
static_assert(sizeof(KXAudioTimeStamp) == 64 && offsetof(KXAudioTimeStamp, mFlags) == 56);

/// One buffer of a list. Borrowed memory, on the thread of its owner.
struct KXAudioBuffer
{
    quint32 mNumberChannels = 0;
    quint32 mDataByteSize = 0;
    void *mData = nullptr;
};
static_assert(sizeof(KXAudioBuffer) == 16);

/// A list of mNumberBuffers buffers, one behind the other; memory for all but the first follows the record.
/// Interleaved audio has one buffer with all channels, non-interleaved audio one buffer a channel. One thread at a
/// time.
struct KXAudioBufferList
{
    quint32 mNumberBuffers = 0;
    KXAudioBuffer mBuffers[1];

    /// All buffers. Only for lists that have memory for them.
    [[nodiscard]] std::span<KXAudioBuffer> buffers()
    {
        return { static_cast<KXAudioBuffer *>(mBuffers), mNumberBuffers };
    }
    [[nodiscard]] std::span<const KXAudioBuffer> buffers() const
    {
        return { static_cast<const KXAudioBuffer *>(mBuffers), mNumberBuffers };
    }
    /// Bytes that a list of so many buffers takes, at least one.
    [[nodiscard]] static constexpr size_t byteSize(quint32 buffers)
    {
        return sizeof(KXAudioBufferList) + (buffers ? buffers - 1 : 0) * sizeof(KXAudioBuffer);
    }
};
static_assert(sizeof(KXAudioBufferList) == 24 && offsetof(KXAudioBufferList, mBuffers) == 8);
