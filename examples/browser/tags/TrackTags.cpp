#include "tags/TrackTags.h"

#include <cerrno>
#include <cstring>
#include <filesystem>

#include <QStringDecoder>

#include <aifffile.h>
#include <id3v2tag.h>
#include <mpegfile.h>
#include <popularimeterframe.h>
#include <tfilestream.h>
#include <tpropertymap.h>
#include <wavfile.h>

#include "tags/AudioProbe.h"
#include "tags/TagFiles.h"

using namespace Qt::StringLiterals;

namespace {

QString quoted(const QString &text)
{
    const QString shown = TagValues::clean(text, 40);
    return u"“"_s + shown + (shown.size() >= 40 ? u"…”"_s : u"”"_s);
}

/// Takes values out of a property map by name and notes what makes no sense.
class TagReader
{
public:
    TagReader(TrackTags &tags, const TagLib::PropertyMap &properties)
        : m_tags(tags)
        , m_properties(properties)
    {
    }

    /// All values of the first of the names that has any.
    QStringList fields(std::initializer_list<const char *> names) const
    {
        QStringList values;
        for (const char *name : names) {
            const auto found = m_properties.find(name);
            if (found == m_properties.end())
                continue;
            for (const TagLib::String &value : found->second) {
                if (const QString text = TagFiles::text(value); !text.trimmed().isEmpty())
                    values.append(text);
            }
            if (!values.isEmpty())
                break;
        }
        return values;
    }

    QString text(const QString &what, std::initializer_list<const char *> names)
    {
        const QString raw = fields(names).join(", "_L1);
        const QString result = TagValues::clean(raw, maximumTagLength);
        if (raw.size() > maximumTagLength)
            m_tags.notes.append(u"%1 cut to %2 of %3 characters"_s.arg(what).arg(result.size()).arg(raw.size()));
        return result;
    }

    /// convert answers std::nullopt for what makes no sense. Tags say "0" where they know nothing.
    template <class Convert> auto value(const QString &what, std::initializer_list<const char *> names, Convert convert)
    {
        const QString raw = fields(names).value(0);
        const auto result = convert(raw);
        if (!result && !raw.isEmpty() && raw.trimmed() != "0"_L1)
            m_tags.notes.append(u"%1 %2 left out"_s.arg(what, quoted(raw)));
        return result;
    }

private:
    TrackTags &m_tags;
    const TagLib::PropertyMap &m_properties;
};

std::optional<int> popularity(TagLib::File *file)
{
    const TagLib::ID3v2::Tag *tag = nullptr;
    if (auto *mpeg = dynamic_cast<TagLib::MPEG::File *>(file))
        tag = mpeg->ID3v2Tag();
    else if (auto *wav = dynamic_cast<TagLib::RIFF::WAV::File *>(file))
        tag = wav->ID3v2Tag();
    else if (auto *aiff = dynamic_cast<TagLib::RIFF::AIFF::File *>(file))
        tag = aiff->tag();
    if (!tag)
        return std::nullopt;
    for (const TagLib::ID3v2::Frame *frame : tag->frameList("POPM")) {
        if (const auto *rating = dynamic_cast<const TagLib::ID3v2::PopularimeterFrame *>(frame))
            return TagValues::starsOfPopularity(rating->rating());
    }
    return std::nullopt;
}

void fillFromProperties(TrackTags &tags, TagLib::File *file)
{
    const TagLib::PropertyMap properties = TagFiles::propertiesOf(file);
    TagReader reader(tags, properties);
    tags.title = reader.text(u"title"_s, { "TITLE" });
    tags.artistText = reader.text(u"artist"_s, { "ARTIST", "ARTISTS" });
    tags.artists = TagValues::artists(reader.fields({ "ARTISTS", "ARTIST" }));
    tags.album = reader.text(u"album"_s, { "ALBUM" });
    tags.albumArtist = reader.text(u"album artist"_s, { "ALBUMARTIST", "ALBUM ARTIST" });
    tags.genres = TagValues::names(reader.fields({ "GENRE" }));
    tags.labels = TagValues::names(reader.fields({ "LABEL", "ORGANIZATION", "PUBLISHER" }));
    tags.comment = reader.text(u"comment"_s, { "COMMENT", "DESCRIPTION" });
    tags.key = reader.value(u"key"_s, { "INITIALKEY", "KEY" }, TagValues::key);
    tags.bpm = reader.value(u"BPM"_s, { "BPM", "TEMPO" }, TagValues::tempo);
    tags.year = reader.value(u"year"_s, { "DATE", "YEAR", "ORIGINALDATE" }, TagValues::year);
    tags.trackNumber = reader.value(u"track number"_s, { "TRACKNUMBER" }, TagValues::trackNumber);
    tags.rating = popularity(file);
    if (!tags.rating)
        tags.rating
            = reader.value(u"rating"_s, { "FMPS_RATING" }, [](const QString &t) { return TagValues::stars(t, true); });
    if (!tags.rating)
        tags.rating
            = reader.value(u"rating"_s, { "RATING" }, [](const QString &t) { return TagValues::stars(t, false); });
}

template <class T> std::optional<T> positive(T value) { return value > 0 ? std::optional(value) : std::nullopt; }

void fillAudio(TrackTags &tags, const TagLib::AudioProperties &audio)
{
    tags.duration = positive(audio.lengthInMilliseconds() / 1000.0);
    tags.sampleRate = positive(audio.sampleRate());
    tags.channels = positive(audio.channels());
    tags.bitrate = positive(audio.bitrate());
}

/// The tag library drops texts that are no valid UTF-8; the decoder library has their bytes.
void fillFromProbe(TrackTags &tags, const AudioProbe &probe)
{
    const auto text = [&](const QString &what, const char *name) {
        const QByteArray bytes = probe.tags.value(name);
        QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
        QString value = decoder.decode(bytes);
        if (decoder.hasError()) {
            value = QString::fromLatin1(bytes);
            tags.notes.append(u"%1 is no valid UTF-8, read as Latin-1"_s.arg(what));
        }
        return TagValues::clean(value, maximumTagLength);
    };
    if (tags.title.isEmpty())
        tags.title = text(u"title"_s, "TITLE");
    if (tags.artistText.isEmpty()) {
        tags.artistText = text(u"artist"_s, "ARTIST");
        tags.artists = TagValues::artists({ tags.artistText });
    }
    if (tags.album.isEmpty())
        tags.album = text(u"album"_s, "ALBUM");
    if (tags.genres.isEmpty())
        tags.genres = TagValues::names({ text(u"genre"_s, "GENRE") });
}

TagReading refused(const QString &reason) { return { std::nullopt, reason }; }

TagReading readOpenFile(TagLib::FileStream &stream, const std::string &path)
{
    constexpr int mostLevels = TagFiles::mostLevelsOfBoxes;
    if (TagFiles::levelsOfBoxes(stream, mostLevels) > mostLevels)
        return refused(u"cannot be read: its boxes are nested more than %1 deep"_s.arg(mostLevels));
    TrackTags tags;
    const TagFiles::File file = TagFiles::openByContent(stream);
    const bool known = file && file->isValid() && file->audioProperties() && file->audioProperties()->sampleRate() > 0;
    if (known) {
        fillFromProperties(tags, file.get());
        fillAudio(tags, *file->audioProperties());
    }
    if (!known || tags.title.isEmpty() || tags.artistText.isEmpty()) {
        const std::optional<AudioProbe> probe = probeAudio(path);
        if (!probe && !known)
            return refused(file ? u"damaged or cut off: no audio can be found in it"_s : u"not an audio file"_s);
        if (!known) {
            // A format that the tag library knows, yet sees no audio in, is cut off: its header's length is not true.
            if (!file)
                tags.duration = probe->duration;
            tags.sampleRate = probe->sampleRate;
            tags.channels = probe->channels;
            tags.bitrate = probe->bitrate;
        }
        if (probe)
            fillFromProbe(tags, *probe);
    }
    if (!tags.duration)
        tags.notes.append(u"length unknown: the audio is damaged or cut off"_s);
    else if (known && TagFiles::isCutOff(*file, stream))
        tags.notes.append(cutOffNote());
    if (tags.title.isEmpty()) {
        tags.title = TagValues::clean(displayPath(std::filesystem::path(path).stem().native()), maximumTagLength);
        tags.notes.append(u"no title, named after its file"_s);
    }
    return { tags, {} };
}

} // namespace

TagReading readTags(const std::string &path)
{
    std::error_code error;
    const auto size = std::filesystem::file_size(path, error);
    if (error)
        return refused(u"cannot be read: %1"_s.arg(QString::fromLocal8Bit(std::strerror(error.value()))));
    if (size == 0)
        return refused(u"empty file"_s);
    try {
        TagLib::FileStream stream(path.c_str(), true);
        if (!stream.isOpen())
            return refused(u"cannot be read: %1"_s.arg(QString::fromLocal8Bit(std::strerror(errno))));
        return readOpenFile(stream, path);
    } catch (const std::exception &exception) {
        // Sizes in a damaged file may ask for more memory than there is.
        return refused(u"cannot be read: %1"_s.arg(QString::fromLocal8Bit(exception.what())));
    }
}

QString cutOffNote() { return u"cut off: the file ends before its music does"_s; }

QString displayPath(const std::string &path)
{
    QString result;
    const QByteArrayView bytes(path);
    for (qsizetype at = 0; at < bytes.size();) {
        // The longest well-formed character that begins here; a byte that begins none is shown in figures.
        qsizetype length = 0;
        for (qsizetype n = 1; n <= 4 && at + n <= bytes.size() && !length; ++n) {
            if (bytes.sliced(at, n).isValidUtf8())
                length = n;
        }
        if (length)
            result += QString::fromUtf8(bytes.sliced(at, length));
        else
            result += u"\\x%1"_s.arg(uchar(bytes[at]), 2, 16, QChar(u'0'));
        at += qMax<qsizetype>(length, 1);
    }
    return result;
}
