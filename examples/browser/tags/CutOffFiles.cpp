// Whether a music file is shorter than it says: a download that broke off, a disk that was full.

#include <algorithm>

#include <flacfile.h>
#include <flacproperties.h>
#include <mpegfile.h>
#include <mpegproperties.h>
#include <xingheader.h>

#include "tags/TagFiles.h"

namespace {

constexpr qint64 cutTail = 256 << 10; // bytes at the end in which the last frame or page is looked for
constexpr qint64 cutGive = 4096; // bytes that tags and other programs' padding account for

quint64 bigEndian(const TagLib::ByteVector &bytes, size_t at, size_t size)
{
    quint64 number = 0;
    for (size_t i = at; i < at + size && i < size_t(bytes.size()); ++i)
        number = number << 8 | uchar(bytes[int(i)]);
    return number;
}

quint64 littleEndian(const TagLib::ByteVector &bytes, size_t at, size_t size)
{
    quint64 number = 0;
    for (size_t i = at + size; i-- > at;)
        number = number << 8 | (i < size_t(bytes.size()) ? uchar(bytes[int(i)]) : 0);
    return number;
}

TagLib::ByteVector bytesAt(TagLib::IOStream &stream, qint64 at, qint64 size)
{
    stream.seek(long(std::max<qint64>(at, 0)));
    return stream.readBlock(size_t(size));
}

/// WAV and AIFF: pieces that say how long they are. Some programs say nothing (0) or the largest number.
bool endsInsideChunk(TagLib::IOStream &stream, bool isBigEndian)
{
    const qint64 length = stream.length();
    for (qint64 at = 12; at + 8 <= length;) {
        const TagLib::ByteVector head = bytesAt(stream, at, 8);
        const quint64 size = isBigEndian ? bigEndian(head, 4, 4) : littleEndian(head, 4, 4);
        if (head.startsWith("data") || head.startsWith("SSND"))
            return size != 0 && size < 0x7fffffff && at + 8 + qint64(size) > length + 1;
        at += 8 + qint64(size) + qint64(size & 1);
    }
    return false;
}

bool endsInsideBox(TagLib::IOStream &stream)
{
    const qint64 length = stream.length();
    for (qint64 at = 0; at + 8 <= length;) {
        const TagLib::ByteVector head = bytesAt(stream, at, 16);
        quint64 size = bigEndian(head, 0, 4);
        if (size == 1)
            size = bigEndian(head, 8, 8);
        if (size == 0) // up to the end
            return false;
        if (size < 8 || size > quint64(length - at))
            return true;
        at += qint64(size);
    }
    return false;
}

/// Ogg: the last page says that it is the last, and how long it is.
bool lacksLastPage(TagLib::IOStream &stream)
{
    const TagLib::ByteVector tail = bytesAt(stream, stream.length() - cutTail, cutTail);
    const int page = tail.rfind("OggS");
    constexpr int flags = 5, last = 4, pieces = 26, table = 27;
    if (page < 0)
        return false;
    const auto byte = [&](int at) { return at < int(tail.size()) ? int(uchar(tail[at])) : 0; };
    int end = page + table + byte(page + pieces);
    for (int piece = 0; piece < byte(page + pieces); ++piece)
        end += byte(page + table + piece);
    return !(byte(page + flags) & last) || end > int(tail.size());
}

/// Samples up to the end of the frame whose head is at that place; 0 where there is none.
quint64 endOfFlacFrame(const uchar *at, const uchar *end, int blockSize)
{
    if (end - at < 16 || at[0] != 0xff || (at[1] & 0xfe) != 0xf8 || at[2] >> 4 == 0 || (at[2] & 15) == 15 || at[3] & 1)
        return 0;
    const bool isVariable = at[1] & 1;
    int more = 0; // bytes of the number, as UTF-8 has them
    while (more < 7 && at[4] & 0x80 >> more)
        ++more;
    if (more == 1 || more > 7)
        return 0;
    quint64 number = more == 0 ? at[4] : quint64(at[4] & (0x3f >> (more - 1)));
    const uchar *next = at + 5;
    for (int i = 1; i < more; ++i)
        number = number << 6 | (*next++ & 0x3f);
    const int code = at[2] >> 4, rate = at[2] & 15;
    quint64 size = 192; // code 1
    if (code >= 8)
        size = 256U << (code - 8);
    else if (code == 7)
        size = quint64(next[0] << 8 | next[1]) + 1, next += 2;
    else if (code == 6)
        size = quint64(*next++) + 1;
    else if (code >= 2)
        size = 576U << (code - 2);
    next += rate == 12 ? 1 : rate >= 13 ? 2 : 0;
    uchar sum = 0; // of all bytes before it
    for (const uchar *byte = at; byte < next; ++byte) {
        sum ^= *byte;
        for (int bit = 0; bit < 8; ++bit)
            sum = uchar(sum << 1 ^ (sum & 0x80 ? 7 : 0));
    }
    return sum == *next ? (isVariable ? number : number * quint64(blockSize)) + size : 0;
}

bool lacksLastFrame(TagLib::FLAC::File &file, TagLib::IOStream &stream)
{
    const quint64 samples = file.audioProperties() ? file.audioProperties()->sampleFrames() : 0;
    const TagLib::ByteVector tail = bytesAt(stream, stream.length() - cutTail, cutTail);
    const TagLib::ByteVector info = bytesAt(stream, file.find("fLaC") + 8, 4);
    const auto *const begin = reinterpret_cast<const uchar *>(tail.data());
    const int blockSize = int(bigEndian(info, 2, 2)); // the largest, which is that of all where it is one
    quint64 last = 0;
    for (qsizetype i = 0; i < qsizetype(tail.size()); ++i) {
        const quint64 end = endOfFlacFrame(begin + i, begin + tail.size(), blockSize);
        if (end <= samples) // else it is none
            last = std::max(last, end);
    }
    return last > 0 && last < samples;
}

/// MP3: the frame before the first says how many bytes of music follow.
bool lacksFrames(TagLib::MPEG::File &file, TagLib::IOStream &stream)
{
    const TagLib::MPEG::XingHeader *const head
        = file.audioProperties() ? file.audioProperties()->xingHeader() : nullptr;
    const qint64 first = head ? file.firstFrameOffset() : -1;
    return first >= 0 && head->isValid() && head->totalSize() > 0
        && first + qint64(head->totalSize()) > stream.length() + cutGive;
}

} // namespace

bool TagFiles::isCutOff(TagLib::File &file, TagLib::IOStream &stream)
{
    const TagLib::ByteVector head = bytesAt(stream, 0, 12);
    if (head.startsWith("RIFF") || head.startsWith("FORM"))
        return endsInsideChunk(stream, head.startsWith("FORM"));
    if (head.size() >= 8 && head.containsAt("ftyp", 4))
        return endsInsideBox(stream);
    if (head.startsWith("OggS"))
        return lacksLastPage(stream);
    if (auto *const flac = dynamic_cast<TagLib::FLAC::File *>(&file))
        return lacksLastFrame(*flac, stream);
    if (auto *const mpeg = dynamic_cast<TagLib::MPEG::File *>(&file))
        return lacksFrames(*mpeg, stream);
    return false;
}
