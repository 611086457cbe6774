// Reading samples; the headers are read in KXPCMAudioFileHeader.cpp.

#include <kestrixkit/audio/KXPCMAudioFile_p.h>

#include <bit>

#include <fcntl.h>
#include <unistd.h>

#include <QFile>
#include <QtEndian>

#include <kestrixkit/audio/KXAudioFileGrowth_p.h>
#include <kestrixkit/audio/KXLocalPath_p.h>

namespace {

constexpr qint64 pcmBufferBytes = 64 * 1024; // stays in the cache between reading and converting

template <typename T, bool bigEndian> T pcmLoad(const uchar *bytes)
{
    return bigEndian ? qFromBigEndian<T>(bytes) : qFromLittleEndian<T>(bytes);
}

/// One sample as float. Integers are scaled so that the most negative one becomes -1.
template <KXPCMAudioFile::Sample sample, bool bigEndian> inline float pcmValue(const uchar *bytes)
{
    using enum KXPCMAudioFile::Sample;
    if constexpr (sample == Unsigned8)
        return float(int(*bytes) - 128) * (1.0F / 128);
    else if constexpr (sample == Signed8)
        return float(qint8(*bytes)) * (1.0F / 128);
    else if constexpr (sample == Signed16)
        return float(pcmLoad<qint16, bigEndian>(bytes)) * (1.0F / 32768);
    else if constexpr (sample == Signed24) {
        const quint32 high = bytes[bigEndian ? 0 : 2], low = bytes[bigEndian ? 2 : 0];
        return float(qint32(high << 24 | quint32(bytes[1]) << 16 | low << 8)) * (1.0F / 2147483648.0F);
    } else if constexpr (sample == Signed32)
        return float(pcmLoad<qint32, bigEndian>(bytes)) * (1.0F / 2147483648.0F);
    else if constexpr (sample == Float32)
        return std::bit_cast<float>(pcmLoad<quint32, bigEndian>(bytes));
    else
        return float(std::bit_cast<double>(pcmLoad<quint64, bigEndian>(bytes)));
}

constexpr int pcmBytes(KXPCMAudioFile::Sample sample)
{
    constexpr int bytes[] = { 1, 1, 2, 3, 4, 4, 8 };
    return bytes[int(sample)];
}

template <KXPCMAudioFile::Sample sample, bool bigEndian, int fixedChannels>
void pcmSeparate(const uchar *bytes, int channels, qint64 frames, float *const *out, qint64 at)
{
    // With the number of channels known the compiler makes vector code of this.
    const int stride = (fixedChannels ? fixedChannels : channels) * pcmBytes(sample);
    for (int c = 0; c < channels; ++c) {
        float *const to = out[c] + at;
        const uchar *from = bytes + c * pcmBytes(sample);
        for (qint64 i = 0; i < frames; ++i)
            to[i] = pcmValue<sample, bigEndian>(from + i * stride);
    }
}

using PCMSeparate = void (*)(const uchar *, int, qint64, float *const *, qint64);

template <KXPCMAudioFile::Sample sample> PCMSeparate pcmSeparator(bool bigEndian, quint32 channels)
{
    if (bigEndian)
        return channels == 2 ? pcmSeparate<sample, true, 2> : pcmSeparate<sample, true, 0>;
    if (channels == 1)
        return pcmSeparate<sample, false, 1>;
    return channels == 2 ? pcmSeparate<sample, false, 2> : pcmSeparate<sample, false, 0>;
}

PCMSeparate pcmSeparatorOf(KXPCMAudioFile::Sample sample, bool bigEndian, quint32 channels)
{
    using enum KXPCMAudioFile::Sample;
    switch (sample) {
    case Unsigned8:
        return pcmSeparator<Unsigned8>(bigEndian, channels);
    case Signed8:
        return pcmSeparator<Signed8>(bigEndian, channels);
    case Signed16:
        return pcmSeparator<Signed16>(bigEndian, channels);
    case Signed24:
        return pcmSeparator<Signed24>(bigEndian, channels);
    case Signed32:
        return pcmSeparator<Signed32>(bigEndian, channels);
    case Float32:
        return pcmSeparator<Float32>(bigEndian, channels);
    case Float64:
        break;
    }
    return pcmSeparator<Float64>(bigEndian, channels);
}

}

KXPCMAudioFile::~KXPCMAudioFile()
{
    if (m_descriptor >= 0)
        ::close(m_descriptor);
}

KXAudioFileStatus KXPCMAudioFile::open(const QUrl &url, const KXAudioFileOptions &options)
{
    if (!url.isLocalFile())
        return KXAudioFileParameterError;
    m_path = KXLocalPath(url);
    m_options = options;
    m_descriptor = ::open(m_path.constData(), O_RDONLY | O_CLOEXEC | O_NONBLOCK); // a pipe must not hold us up
    struct stat info = {};
    if (m_descriptor < 0 || fstat(m_descriptor, &info) != 0 || !S_ISREG(info.st_mode) || !readHeader())
        return KXAudioFileParameterError;
    const qint64 there = std::max<qint64>(0, info.st_size - m_dataOffset) / m_format.mBytesPerPacket;
    if (m_length < 0 || (m_length > there && !KXAudioFileGrowth::of(m_path.constData(), options).recent))
        m_length = there;
    m_buffer.resize(std::max<qint64>(1, pcmBufferBytes / m_format.mBytesPerPacket) * m_format.mBytesPerPacket);
    return KXAudioFileNoError;
}

KXAudioFileStatus KXPCMAudioFile::dataFormat(KXStreamFormat *format)
{
    *format = m_format;
    return KXAudioFileNoError;
}

KXAudioFileStatus KXPCMAudioFile::lengthInFrames(qint64 *frames)
{
    *frames = m_length;
    return KXAudioFileNoError;
}

KXAudioFileStatus KXPCMAudioFile::setClientFormat(const KXStreamFormat &format)
{
    const bool known = format == KXPlanarFloatFormat(m_format.mSampleRate, m_format.mChannelsPerFrame);
    return known ? KXAudioFileNoError : KXAudioFileParameterError;
}

KXAudioFileStatus KXPCMAudioFile::seek(qint64 frame)
{
    if (frame < 0 || frame > m_length)
        return KXAudioFileParameterError;
    m_position = frame;
    return KXAudioFileNoError;
}

KXAudioFileStatus KXPCMAudioFile::read(float *const *channels, quint32 frames, quint32 *framesRead)
{
    const qint64 frameBytes = m_format.mBytesPerPacket;
    const auto separate = pcmSeparatorOf(m_sample, m_bigEndian, m_format.mChannelsPerFrame);
    const qint64 wanted = std::min<qint64>(frames, m_length - m_position);
    qint64 done = 0;
    while (done < wanted) {
        const qint64 most = std::min<qint64>(m_buffer.size(), (wanted - done) * frameBytes);
        const ssize_t got = pread(m_descriptor, m_buffer.data(), size_t(most), m_dataOffset + m_position * frameBytes);
        const qint64 count = std::max<ssize_t>(0, got) / frameBytes;
        if (count == 0)
            break;
        separate(reinterpret_cast<const uchar *>(m_buffer.constData()), int(m_format.mChannelsPerFrame), count,
            channels, done);
        done += count;
        m_position += count;
    }
    *framesRead = quint32(done);
    if (done >= wanted)
        return KXAudioFileNoError;
    // Less than there should be.
    if (KXAudioFileGrowth::of(m_path.constData(), m_options).recent)
        return done > 0 ? KXAudioFileNoError : KXAudioFileInvalidFileError;
    struct stat info = {};
    if (fstat(m_descriptor, &info) == 0)
        m_length = std::min(m_position, std::max<qint64>(0, info.st_size - m_dataOffset) / frameBytes);
    return KXAudioFileNoError;
}
