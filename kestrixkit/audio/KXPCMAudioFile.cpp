#include <kestrixkit/audio/KXPCMAudioFile_p.h>

#include <bit>
#include <cmath>

#include <fcntl.h>
#include <unistd.h>

#include <QFile>
#include <QtEndian>

#include <kestrixkit/audio/KXAudioFileGrowth_p.h>

namespace {

constexpr qint64 pcmBufferBytes = 64 * 1024; // stays in the cache between reading and converting
constexpr quint32 pcmMostChannels = 1024;
constexpr int pcmMostChunks = 1000; // of a header; damaged ones could go on for ever

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

/// A piece of a header: its name and where its contents lie.
struct KXPCMAudioFile::Chunk
{
    QByteArray name;
    qint64 offset = 0;
    qint64 size = 0;
};

KXPCMAudioFile::~KXPCMAudioFile()
{
    if (m_descriptor >= 0)
        ::close(m_descriptor);
}

KXAudioFileStatus KXPCMAudioFile::open(const QUrl &url, const KXAudioFileOptions &options)
{
    if (!url.isLocalFile())
        return KXAudioFileParameterError;
    m_path = QFile::encodeName(url.toLocalFile());
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

QByteArray KXPCMAudioFile::bytesAt(qint64 offset, qint64 count) const
{
    QByteArray bytes(count, Qt::Uninitialized);
    const ssize_t got = offset >= 0 ? pread(m_descriptor, bytes.data(), size_t(count), offset) : 0;
    bytes.resize(std::max<ssize_t>(0, got));
    return bytes;
}

bool KXPCMAudioFile::readHeader()
{
    const QByteArray start = bytesAt(0, 12);
    const QByteArray outer = start.left(4), inner = start.mid(8, 4);
    if (inner == "WAVE" && (outer == "RIFF" || outer == "RF64" || outer == "BW64"))
        return readRIFF(outer != "RIFF");
    if (outer == "FORM" && (inner == "AIFF" || inner == "AIFC"))
        return readAIFF(inner == "AIFC");
    return outer == "caff" && readCAF();
}

bool KXPCMAudioFile::readRIFF(bool is64)
{
    constexpr qint64 unknown = 0xFFFFFFFF;
    qint64 dataSize64 = -1;
    qint64 at = 12;
    for (int chunks = 0; chunks < pcmMostChunks; ++chunks) {
        const QByteArray head = bytesAt(at, 8);
        if (head.size() < 8)
            return false;
        Chunk chunk { head.left(4), at + 8, qFromLittleEndian<quint32>(head.constData() + 4) };
        if (chunk.name == "ds64" && is64) {
            const QByteArray sizes = bytesAt(chunk.offset, 16);
            if (sizes.size() < 16)
                return false;
            dataSize64 = qFromLittleEndian<qint64>(sizes.constData() + 8);
        } else if (chunk.name == "fmt ") {
            if (!readWaveFormat(chunk))
                return false;
        } else if (chunk.name == "data") {
            if (is64 && chunk.size == unknown)
                chunk.size = dataSize64;
            // A size of 0 stands for "nothing" and for "not known": somebody else may guess, unless nothing follows.
            if (chunk.size == 0 && !bytesAt(chunk.offset, 1).isEmpty())
                return false;
            setData(chunk.offset, chunk.size, chunk.size >= 0 && chunk.size != unknown);
            return m_format.mChannelsPerFrame > 0;
        }
        at = chunk.offset + chunk.size + (chunk.size & 1);
    }
    return false;
}

bool KXPCMAudioFile::readWaveFormat(const Chunk &chunk)
{
    const QByteArray bytes = bytesAt(chunk.offset, std::min<qint64>(chunk.size, 40));
    if (bytes.size() < 16)
        return false;
    const auto word = [&](int offset) { return quint32(qFromLittleEndian<quint16>(bytes.constData() + offset)); };
    quint32 tag = word(0);
    if (tag == 0xFFFE && bytes.size() >= 26)
        tag = word(24); // extensible: the first two bytes of the sub-format
    m_format.mChannelsPerFrame = word(2);
    m_format.mSampleRate = qFromLittleEndian<quint32>(bytes.constData() + 4);
    const quint32 bits = word(14);
    return (tag == 1 || tag == 3) && setFormat(tag == 3, false, bits, bits / 8)
        && word(12) == m_format.mBytesPerPacket;
}

bool KXPCMAudioFile::readAIFF(bool compressed)
{
    qint64 frames = -1;
    qint64 at = 12;
    qint64 dataOffset = -1;
    for (int chunks = 0; chunks < pcmMostChunks && (frames < 0 || dataOffset < 0); ++chunks) {
        const QByteArray head = bytesAt(at, 8);
        if (head.size() < 8)
            return false;
        const Chunk chunk { head.left(4), at + 8, qFromBigEndian<quint32>(head.constData() + 4) };
        if (chunk.name == "COMM") {
            const QByteArray bytes = bytesAt(chunk.offset, 22);
            if (bytes.size() < 18)
                return false;
            m_format.mChannelsPerFrame = qFromBigEndian<quint16>(bytes.constData());
            frames = qFromBigEndian<quint32>(bytes.constData() + 2);
            const quint32 bits = qFromBigEndian<quint16>(bytes.constData() + 6);
            const int exponent = qFromBigEndian<quint16>(bytes.constData() + 8); // a number of 80 bits
            m_format.mSampleRate = std::ldexp(double(qFromBigEndian<quint64>(bytes.constData() + 10)), exponent - 16446);
            const QByteArray type = compressed ? bytes.mid(18, 4) : QByteArrayLiteral("NONE");
            const QByteArray lower = type.toLower();
            const bool floating = lower == "fl32" || lower == "fl64";
            const bool little = type == "sowt";
            const quint32 container = lower == "fl32" ? 4 : lower == "fl64" ? 8 : bits / 8;
            const bool known = floating || (little && bits == 16) || type == "NONE" || (type == "twos" && bits == 16)
                || (type == "in24" && bits == 24) || (type == "in32" && bits == 32);
            if (!known || !setFormat(floating, !little, container * 8, container) || (!floating && bits % 8 != 0))
                return false;
        } else if (chunk.name == "SSND") {
            const QByteArray bytes = bytesAt(chunk.offset, 4);
            if (bytes.size() < 4)
                return false;
            dataOffset = chunk.offset + 8 + qFromBigEndian<quint32>(bytes.constData());
        }
        at = chunk.offset + chunk.size + (chunk.size & 1);
    }
    if (frames < 0 || dataOffset < 0)
        return false;
    if (m_sample == Sample::Unsigned8)
        m_sample = Sample::Signed8;
    setData(dataOffset, frames * m_format.mBytesPerPacket, true);
    return true;
}

bool KXPCMAudioFile::readCAF()
{
    qint64 at = 8;
    for (int chunks = 0; chunks < pcmMostChunks; ++chunks) {
        const QByteArray head = bytesAt(at, 12);
        if (head.size() < 12)
            return false;
        const Chunk chunk { head.left(4), at + 12, qFromBigEndian<qint64>(head.constData() + 4) };
        if (chunk.name == "desc") {
            const QByteArray bytes = bytesAt(chunk.offset, 32);
            if (bytes.size() < 32 || bytes.mid(8, 4) != "lpcm")
                return false;
            const auto number = [&](int offset) { return qFromBigEndian<quint32>(bytes.constData() + offset); };
            m_format.mSampleRate = std::bit_cast<double>(qFromBigEndian<quint64>(bytes.constData()));
            m_format.mChannelsPerFrame = number(24);
            const quint32 bits = number(28);
            if (!setFormat(number(12) & 1, !(number(12) & 2), bits, bits / 8)
                || number(16) != m_format.mBytesPerPacket || number(20) != 1)
                return false;
            if (m_sample == Sample::Unsigned8)
                m_sample = Sample::Signed8;
        } else if (chunk.name == "data") {
            if (m_format.mChannelsPerFrame == 0)
                return false;
            setData(chunk.offset + 4, chunk.size - 4, chunk.size >= 4); // after a counter of edits
            return true;
        }
        if (chunk.size < 0 || chunk.size > (qint64(1) << 60))
            return false;
        at = chunk.offset + chunk.size;
    }
    return false;
}

bool KXPCMAudioFile::setFormat(bool floating, bool bigEndian, quint32 bits, quint32 containerBytes)
{
    const quint32 channels = m_format.mChannelsPerFrame;
    if (channels < 1 || channels > pcmMostChannels || bits != containerBytes * 8 || !(m_format.mSampleRate >= 1)
        || m_format.mSampleRate > 1e7)
        return false;
    if (floating) {
        if (bits != 32 && bits != 64)
            return false;
        m_sample = bits == 32 ? Sample::Float32 : Sample::Float64;
    } else {
        constexpr Sample samples[] = { Sample::Unsigned8, Sample::Signed16, Sample::Signed24, Sample::Signed32 };
        if (containerBytes < 1 || containerBytes > 4)
            return false;
        m_sample = samples[containerBytes - 1];
    }
    m_bigEndian = bigEndian;
    m_format.mFormatID = KXAudioFormatLinearPCM;
    m_format.mFormatFlags = quint32(KXAudioFormatFlagIsPacked)
        | quint32(floating ? KXAudioFormatFlagIsFloat : KXAudioFormatFlagIsSignedInteger)
        | (bigEndian ? quint32(KXAudioFormatFlagIsBigEndian) : 0);
    m_format.mBytesPerFrame = m_format.mBytesPerPacket = channels * containerBytes;
    m_format.mFramesPerPacket = 1;
    m_format.mBitsPerChannel = bits;
    return true;
}

void KXPCMAudioFile::setData(qint64 offset, qint64 promisedBytes, bool promised)
{
    m_dataOffset = offset;
    m_length = promised && m_format.mBytesPerPacket > 0 ? promisedBytes / m_format.mBytesPerPacket : -1;
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
        separate(reinterpret_cast<const uchar *>(m_buffer.constData()), int(m_format.mChannelsPerFrame), count, channels, done);
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
