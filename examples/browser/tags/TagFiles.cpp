#include "tags/TagFiles.h"

#include <set>
#include <vector>

#include <aifffile.h>
#include <apefile.h>
#include <asffile.h>
#include <flacfile.h>
#include <id3v2framefactory.h>
#include <mp4file.h>
#include <mp4tag.h>
#include <mpcfile.h>
#include <mpegfile.h>
#include <oggflacfile.h>
#include <opusfile.h>
#include <speexfile.h>
#include <tpropertymap.h>
#include <trueaudiofile.h>
#include <vorbisfile.h>
#include <wavfile.h>
#include <wavpackfile.h>

namespace {

template <class File> bool openAs(TagFiles::File &file, TagLib::IOStream &stream)
{
    if (file || !File::isSupported(&stream))
        return false;
    stream.seek(0);
    if constexpr (std::is_same_v<File, TagLib::FLAC::File> || std::is_same_v<File, TagLib::MPEG::File>)
        file = std::make_unique<File>(&stream, TagLib::ID3v2::FrameFactory::instance());
    else
        file = std::make_unique<File>(&stream);
    return true;
}

} // namespace

int TagFiles::levelsOfBoxes(TagLib::IOStream &stream, int most)
{
    static const std::set<std::string> containers { "moov", "udta", "mdia", "meta", "ilst", "stbl", "minf", "moof",
        "traf", "trak", "stsd" };
    const auto number = [](const TagLib::ByteVector &bytes, size_t at, size_t size) {
        quint64 result = 0;
        for (size_t i = 0; i < size; ++i)
            result = result << 8 | uchar(bytes[int(at + i)]);
        return result;
    };
    const auto read = [&](qint64 at, size_t size) {
        stream.seek(long(at));
        return stream.readBlock(size);
    };
    const qint64 size = stream.length();
    const TagLib::ByteVector start = read(0, 8);
    if (start.size() < 8 || !start.endsWith("ftyp")) // TagLib compares past the end of what is shorter
        return 0;
    std::vector<qint64> ends { size };
    size_t deepest = 1;
    for (qint64 at = 0; !ends.empty() && int(deepest) <= most;) {
        if (at + 8 > ends.back()) {
            at = ends.back();
            ends.pop_back();
            continue;
        }
        const TagLib::ByteVector head = read(at, 20);
        if (head.size() < 8)
            break;
        quint64 length = number(head, 0, 4);
        qint64 inside = at + 8;
        if (length == 1 && head.size() >= 16) {
            length = number(head, 8, 8);
            inside += 8;
        } else if (length == 0) {
            length = quint64(size - at);
        }
        if (length < 8 || length > quint64(size - at)) // damaged: nobody goes further
            break;
        const std::string name(head.data() + 4, 4);
        const qint64 end = at + qint64(length);
        if (!containers.contains(name)) {
            at = end;
            continue;
        }
        if (name == "stsd")
            inside += 8;
        else if (name == "meta" && head.size() >= 16 && number(head, 8, 4) == 0) // with a version, or without
            inside += 4;
        ends.push_back(end);
        deepest = std::max(deepest, ends.size());
        at = inside;
    }
    return int(deepest);
}

TagFiles::File TagFiles::openByContent(TagLib::IOStream &stream)
{
    // Formats with a fixed beginning first: the frames of MP3 are recognised in many other files too.
    File file;
    openAs<TagLib::RIFF::WAV::File>(file, stream);
    openAs<TagLib::RIFF::AIFF::File>(file, stream);
    openAs<TagLib::MP4::File>(file, stream);
    openAs<TagLib::Ogg::Vorbis::File>(file, stream);
    openAs<TagLib::Ogg::Opus::File>(file, stream);
    openAs<TagLib::Ogg::FLAC::File>(file, stream);
    openAs<TagLib::Ogg::Speex::File>(file, stream);
    openAs<TagLib::ASF::File>(file, stream);
    openAs<TagLib::FLAC::File>(file, stream);
    openAs<TagLib::WavPack::File>(file, stream);
    openAs<TagLib::APE::File>(file, stream);
    openAs<TagLib::TrueAudio::File>(file, stream);
    openAs<TagLib::MPC::File>(file, stream);
    openAs<TagLib::MPEG::File>(file, stream);
    return file;
}

TagLib::PropertyMap TagFiles::propertiesOf(TagLib::File *file)
{
    TagLib::PropertyMap properties = file->properties();
    if (auto *mp4 = dynamic_cast<TagLib::MP4::File *>(file); mp4 && mp4->tag()) {
        for (const auto &[atom, item] : mp4->tag()->itemMap()) {
            const TagLib::String name = atom.substr(size_t(atom.rfind(":") + 1)).upper();
            const bool isExact = name == "BPM"; // the atom of its own holds whole numbers only
            if (atom.startsWith("----:") && (isExact || !properties.contains(name)))
                properties[name] = item.toStringList();
        }
    }
    return properties;
}

QString TagFiles::text(const TagLib::String &text)
{
    QString result;
    result.reserve(qsizetype(text.size()));
    for (const wchar_t unit : text)
        result.append(QChar::fromUcs4(char32_t(unit)));
    return result;
}

TagLib::String TagFiles::text(const QString &text) { return { text.toUtf8().constData(), TagLib::String::UTF8 }; }
