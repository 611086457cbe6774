// What the headers of WAV, AIFF and CAF say. Anything unusual is left to another back end.

#include <kestrixkit/audio/KXPCMAudioFile_p.h>

#include <bit>
#include <cmath>

#include <unistd.h>

#include <QtEndian>

namespace {

constexpr quint32 pcmMostChannels = 1024;
constexpr int pcmMostChunks = 1000; // of a header; damaged ones could go on for ever

}

/// A piece of a header: its name and where its contents lie.
struct KXPCMAudioFile::Chunk
{
    QByteArray name;
    qint64 offset = 0;
    qint64 size = 0;
};

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
    return (tag == 1 || tag == 3) && setFormat(tag == 3, false, bits, bits / 8) && word(12) == m_format.mBytesPerPacket;
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
            m_format.mSampleRate
                = std::ldexp(double(qFromBigEndian<quint64>(bytes.constData() + 10)), exponent - 16446);
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
            if (!setFormat(number(12) & 1, !(number(12) & 2), bits, bits / 8) || number(16) != m_format.mBytesPerPacket
                || number(20) != 1)
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
