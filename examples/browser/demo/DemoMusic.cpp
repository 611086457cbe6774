#include "demo/DemoMusic.h"

#include <filesystem>

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <aifffile.h>
#include <fileref.h>
#include <flacfile.h>
#include <id3v2tag.h>
#include <mp4file.h>
#include <mpegfile.h>
#include <popularimeterframe.h>
#include <tpropertymap.h>
#include <wavfile.h>

#include "import/Parallel.h"

using namespace Qt::StringLiterals;

namespace {

// Changes with the records below, so that older music is not taken for this. Users' libraries point into it.
constexpr QLatin1StringView demoFolderName { "crate-1" };

TagLib::String tagText(const QString &text) { return TagLib::String(text.toStdString(), TagLib::String::UTF8); }

TagLib::StringList tagTexts(const char *parted)
{
    TagLib::StringList list;
    for (const QString &part : QString::fromUtf8(parted).split(u';'))
        list.append(tagText(part));
    return list;
}

void writeRating(TagLib::File *file, int stars)
{
    static constexpr int popularities[] = { 0, 1, 64, 128, 196, 255 };
    TagLib::ID3v2::Tag *tag = nullptr;
    if (auto *mpeg = dynamic_cast<TagLib::MPEG::File *>(file))
        tag = mpeg->ID3v2Tag(true);
    else if (auto *wav = dynamic_cast<TagLib::RIFF::WAV::File *>(file))
        tag = wav->ID3v2Tag();
    else if (auto *aiff = dynamic_cast<TagLib::RIFF::AIFF::File *>(file))
        tag = aiff->tag();
    else if (auto *mp4 = dynamic_cast<TagLib::MP4::File *>(file))
        mp4->tag()->setItem("----:com.apple.iTunes:RATING", TagLib::StringList(tagText(QString::number(stars * 20))));
    if (!tag)
        return;
    auto *frame = new TagLib::ID3v2::PopularimeterFrame; // the tag takes it
    frame->setRating(popularities[stars]);
    tag->addFrame(frame);
}

QString writeTrack(const DemoTrack &track, uint32_t number, const std::string &folder)
{
    const std::string path = folder + '/' + track.fileName().toStdString();
    const LoopRecipe recipe = track.recipe(number);
    const int rate = preferredSampleRate(track.format);
    QString error = encodeAudio(track.stems ? renderStems(recipe, rate) : renderLoop(recipe, rate), track.format, path);
    if (error.isEmpty())
        error = DemoMusic::writeTags(track, int(number), path);
    return error.isEmpty() ? error : u"%1: %2"_s.arg(track.fileName(), error);
}

// What runs that were killed left behind; a younger folder may belong to a process at work.
void removeLeftovers(const QDir &caches)
{
    for (const QFileInfo &leftover : caches.entryInfoList({ u"making-crate-*"_s }, QDir::Dirs | QDir::NoDotAndDotDot)) {
        if (leftover.lastModified().secsTo(QDateTime::currentDateTime()) > 3600)
            QDir(leftover.filePath()).removeRecursively();
    }
}

} // namespace

QString DemoTrack::fileName() const
{
    const QString folder = stems ? u"Stems"_s : QString::fromUtf8(genres).section(u';', 0, 0).replace(u'/', u'-');
    const QString credit = QString::fromUtf8(artists).replace(u";"_s, u", "_s);
    return u"%1/%2 - %3.%4"_s.arg(folder, credit, QString::fromUtf8(title), fileExtension(format));
}

LoopRecipe DemoTrack::recipe(uint32_t seed) const
{
    return { style, bpm, TagValues::key(QString::fromUtf8(key)).value_or(MusicalKey { 8, true }), seed };
}

QString DemoMusic::writeTags(const DemoTrack &track, int trackNumber, const std::string &path)
{
    const TagLib::FileRef reference(path.c_str());
    if (reference.isNull())
        return u"cannot be opened for tagging"_s;
    TagLib::PropertyMap properties;
    properties["TITLE"] = tagTexts(track.title);
    properties["ARTIST"] = tagTexts(track.artists);
    properties["ALBUM"] = tagTexts(track.album);
    properties["ALBUMARTIST"] = tagText(QString::fromUtf8(track.artists).section(u';', 0, 0));
    properties["GENRE"] = tagTexts(track.genres);
    properties["LABEL"] = tagTexts(track.label);
    properties["INITIALKEY"] = tagTexts(track.key);
    properties["BPM"] = tagText(QString::number(track.bpm));
    properties["DATE"] = tagText(QString::number(track.year));
    properties["TRACKNUMBER"] = tagText(QString::number(trackNumber));
    properties["COMMENT"] = tagText(u"synthesised loop"_s);
    if (track.rating > 0)
        properties["RATING"] = tagText(QString::number(track.rating * 20));

    TagLib::File *file = reference.file();
    const TagLib::PropertyMap refused = file->setProperties(properties);
    if (auto *mp4 = dynamic_cast<TagLib::MP4::File *>(file)) {
        // What the library has no name for goes into free-form atoms, as DJ programs write it.
        for (const auto &[name, values] : refused)
            mp4->tag()->setItem("----:com.apple.iTunes:" + name, values);
    }
    if (track.rating > 0)
        writeRating(file, track.rating);
    return file->save() ? QString() : u"tags cannot be written"_s;
}

std::string DemoMusic::make(const QString &cachesFolder, QString *error)
{
    QDir caches(cachesFolder);
    const QString made = caches.filePath(demoFolderName);
    const std::string path = QFile::encodeName(made).toStdString();
    if (QFileInfo(made).isDir())
        return path;
    if (!caches.mkpath(u"."_s)) {
        *error = u"%1: cannot make the folder"_s.arg(cachesFolder);
        return {};
    }
    removeLeftovers(caches);
    const QTemporaryDir making(caches.filePath(u"making-crate-XXXXXX"_s));
    if (!making.isValid()) {
        *error = u"%1: %2"_s.arg(cachesFolder, making.errorString());
        return {};
    }

    for (const DemoTrack &track : tracks())
        QDir(making.path()).mkpath(track.fileName().section(u'/', 0, 0));
    const std::string folder = QFile::encodeName(making.path()).toStdString();
    std::vector<QString> problems(tracks().size());
    forEachInParallel(
        problems.size(), [&](size_t i) { problems[i] = writeTrack(tracks()[i], uint32_t(i + 1), folder); });
    for (const QString &problem : problems) {
        if (!problem.isEmpty()) {
            *error = problem;
            return {};
        }
    }

    std::error_code code;
    std::filesystem::rename(folder, path, code);
    if (code && !QFileInfo(made).isDir()) { // another process may have been first
        *error = u"%1: %2"_s.arg(made, QString::fromStdString(code.message()));
        return {};
    }
    return path;
}

const std::vector<DemoTrack> &DemoMusic::tracks()
{
    using enum LoopStyle;
    using F = AudioFormat;
    // clang-format off
    static const std::vector<DemoTrack> all {
        { "Glass Harbour", "Ostra Lume", "Night Ferry", "House", "Quay Nine", "Am", House, 124, 2019, 4, F::Flac },
        { "Second Deck", "Ostra Lume;Mirela Vance", "Night Ferry", "House;Deep House", "Quay Nine", "Em", House, 123, 2019, 5, F::Flac },
        { "Tidewater Stomp", "Ostra Lume", "Night Ferry", "House", "Quay Nine", "Dm", House, 125, 2019, 3, F::Mp3 },
        { "Paper Suns", "Kite & Lantern", "Kerosene Picnic", "House;Disco", "Marigold Cuts", "F", House, 121, 2021, 4, F::M4a },
        { "Velvet Elevator", "Kite & Lantern", "Kerosene Picnic", "House;Disco", "Marigold Cuts", "C", House, 122, 2021, 5, F::Aiff },
        { "Corner Table", "Juno Pellerin", "After The Rain Delay", "Deep House", "Low Ceiling", "Cm", DeepHouse, 118, 2017, 4, F::Vorbis },
        { "Umbrella Weather", "Juno Pellerin", "After The Rain Delay", "Deep House", "Low Ceiling", "Gm", DeepHouse, 119, 2017, 3, F::Flac },
        { "Half Past Amber", "Juno Pellerin;Sable Row", "After The Rain Delay", "Deep House;Soul", "Low Ceiling", "Fm", DeepHouse, 117.5, 2017, 5, F::Wav },
        { "Switchyard", "Tarn Vokel", "Grid Reference", "Techno", "Ferrum Audio", "F#m", Techno, 132, 2022, 4, F::Wav },
        { "Load Bearing", "Tarn Vokel", "Grid Reference", "Techno", "Ferrum Audio", "Bm", Techno, 134, 2022, 5, F::Flac },
        { "Cold Start Procedure", "Tarn Vokel", "Grid Reference", "Techno", "Ferrum Audio", "C#m", Techno, 136, 2022, 2, F::Mp3 },
        { "Nineteen Pylons", "Hedda Strom", "Overhead Lines", "Techno;Minimal", "Ferrum Audio", "Abm", Techno, 129, 2020, 3, F::Opus },
        { "Substation Choir", "Hedda Strom;Tarn Vokel", "Overhead Lines", "Techno", "Ferrum Audio;Quay Nine", "Ebm", Techno, 130, 2020, 4, F::M4a },
        { "Rookery", "Brackish", "Estuary Dubs", "Drum & Bass", "Saltmarsh", "Em", DrumAndBass, 174, 2018, 5, F::Flac },
        { "Windfall Amen", "Brackish", "Estuary Dubs", "Drum & Bass;Jungle", "Saltmarsh", "Am", DrumAndBass, 172, 2018, 4, F::Mp3 },
        { "Causeway Run", "Brackish;Imani Thorne", "Estuary Dubs", "Drum & Bass", "Saltmarsh", "Dm", DrumAndBass, 174, 2018, 4, F::Vorbis },
        { "Moth Signal", "Pale Antenna", "Shortwave Season", "Drum & Bass", "Saltmarsh", "Bbm", DrumAndBass, 173, 2023, 3, F::Opus },
        { "Gravel Tape", "Otis Merrow", "Loose Cable", "Breaks", "Plug & Pray", "Gm", Breaks, 128, 2005, 3, F::Aiff },
        { "Nine Volt Shuffle", "Otis Merrow", "Loose Cable", "Breaks;Electro", "Plug & Pray", "Cm", Breaks, 130, 2005, 4, F::Mp3 },
        { "Spare Fuse", "Otis Merrow;Dot Calloway", "Loose Cable", "Breaks", "Plug & Pray", "Fm", Breaks, 127, 2005, 2, F::M4a },
        { "Chrome Orchard", "Unit Delfina", "Voltage Garden", "Electro", "Plug & Pray", "Dm", Electro, 128, 2016, 4, F::Flac },
        { "Telephone Rain", "Unit Delfina", "Voltage Garden", "Electro", "Plug & Pray", "Am", Electro, 126, 2016, 5, F::Vorbis },
        { "Arcade Cathedral", "Unit Delfina", "Voltage Garden", "Electro;Synthwave", "Plug & Pray", "Bm", Electro, 120, 2016, 3, F::Wav },
        { "Kettle Whistle", "Dot Calloway", "Two Step Programme", "UK Garage", "Top Deck", "Ebm", Garage, 132, 2001, 4, F::Mp3 },
        { "Lemon Peel", "Dot Calloway;Mirela Vance", "Two Step Programme", "UK Garage", "Top Deck", "Abm", Garage, 131, 2001, 5, F::Flac },
        { "Last Bus Skippers", "Dot Calloway", "Two Step Programme", "UK Garage;Bass", "Top Deck", "Bbm", Garage, 133, 2001, 3, F::Opus },
        { "Porch Light", "Sable Row", "Slow Furniture", "Downtempo", "Low Ceiling", "C", Downtempo, 88, 2012, 4, F::Vorbis },
        { "Borrowed Bicycle", "Sable Row", "Slow Furniture", "Downtempo;Hip-Hop", "Low Ceiling", "G", Downtempo, 92, 2012, 4, F::M4a },
        { "Cardamom", "Sable Row;Imani Thorne", "Slow Furniture", "Downtempo;Soul", "Low Ceiling", "Eb", Downtempo, 85.5, 2012, 5, F::Aiff },
        { "Lichen Atlas", "Pale Antenna", "Slow Light Survey", "Ambient", "Shortwave Press", "D", Ambient, 90, 2024, 0, F::Flac },
        { "Where Snow Goes", "Pale Antenna", "Slow Light Survey", "Ambient", "Shortwave Press", "A", Ambient, 84, 2024, 4, F::Opus },
        { "Harbour Master's Dub", "Ras Fennimore", "Echo Inventory", "Dub", "Saltmarsh", "Gm", Dub, 140, 1998, 4, F::Mp3 },
        { "Tin Roof Version", "Ras Fennimore", "Echo Inventory", "Dub;Reggae", "Saltmarsh", "Dm", Dub, 138, 1998, 3, F::Wav },
        { "Anchor Chain", "Ras Fennimore;Brackish", "Echo Inventory", "Dub", "Saltmarsh", "Cm", Dub, 141, 1998, 5, F::M4a },
        { "Glass Harbour (Stems)", "Ostra Lume", "Night Ferry", "House", "Quay Nine", "Am", House, 124, 2019, 4, F::Wav, true },
        { "Load Bearing (Stems)", "Tarn Vokel", "Grid Reference", "Techno", "Ferrum Audio", "Bm", Techno, 134, 2022, 0, F::Flac, true },
        { "Porch Light (Stems)", "Sable Row", "Slow Furniture", "Downtempo", "Low Ceiling", "C", Downtempo, 88, 2012, 4, F::Flac, true },
        { "Rookery (Stems)", "Brackish", "Estuary Dubs", "Drum & Bass", "Saltmarsh", "Em", DrumAndBass, 174, 2018, 5, F::Wav, true },
    };
    // clang-format on
    return all;
}
