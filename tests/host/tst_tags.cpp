// What the browser makes of tags and of files that are no music.

#include <QTemporaryDir>
#include <random>

#include <import/Parallel.h>
#include <tags/TagReaders.h>
#include <tags/TrackTags.h>

#include "MusicFiles.h"

using namespace Qt::StringLiterals;

namespace {

QString keyName(const char *text)
{
    const auto key = TagValues::key(QString::fromUtf8(text));
    return key ? key->wheelCode() + u' ' + key->name() : u"none"_s;
}

/// So many boxes inside each other, behind what makes an MP4 file.
std::string nestedBoxes(quint32 levels, const char *name)
{
    const auto big = [](quint32 number) {
        return std::string { char(number >> 24), char(number >> 16), char(number >> 8), char(number) };
    };
    std::string bytes = big(16) + "ftypM4A " + big(0);
    for (quint32 i = levels; i > 0; --i)
        bytes += big(i * 8) + name;
    return bytes;
}

} // namespace

TEST(TagValues, numbersThatMakeSenseAndThoseThatDoNot)
{
    using Numbers = std::vector<std::pair<const char *, std::optional<double>>>;
    for (const auto &[text, expected] :
        Numbers { { "128", 128 }, { " 127.98 ", 127.98 }, { "127,98", 127.98 }, { "174 BPM", 174 }, { "fast", {} },
            { "", {} }, { "0", {} }, { "-120", {} }, { "nan", {} }, { "inf", {} }, { "1e9", {} }, { "12000", {} } })
        EXPECT_EQ(TagValues::tempo(QString::fromUtf8(text)), expected) << text;

    using Integers = std::vector<std::pair<const char *, std::optional<int>>>;
    for (const auto &[text, expected] :
        Integers { { "1998", 1998 }, { "2019-05-03", 2019 }, { "2019-05-03T10:00", 2019 }, { "0", {} }, { "0000", {} },
            { "99", {} }, { "20190503", {} }, { "-1999", {} }, { "soon", {} } })
        EXPECT_EQ(TagValues::year(QString::fromUtf8(text)), expected) << text;
    for (const auto &[text, expected] :
        Integers { { "3", 3 }, { "03/12", 3 }, { "-3", {} }, { "A1", {} }, { "99999999999", {} } })
        EXPECT_EQ(TagValues::trackNumber(QString::fromUtf8(text)), expected) << text;
    for (const auto &[text, expected] : Integers { { "0", 0 }, { "4", 4 }, { "5", 5 }, { "8", 4 }, { "80", 4 },
             { "100", 5 }, { "-1", {} }, { "101", {} }, { "nan", {} } })
        EXPECT_EQ(TagValues::stars(QString::fromUtf8(text), false), expected) << text;
    EXPECT_EQ(TagValues::stars(u"0.8"_s, true), 4);
    EXPECT_EQ(TagValues::stars(u"1.5"_s, true), std::nullopt);
}

TEST(TagValues, keysInAllSpellings)
{
    for (const auto &[text, expected] : std::vector<std::pair<const char *, const char *>> { { "Am", "8A Am" },
             { "A minor", "8A Am" }, { "amin", "8A Am" }, { "8A", "8A Am" }, { "08a", "8A Am" }, { "1m", "8A Am" },
             { "C", "8B C" }, { "Cmaj", "8B C" }, { "1d", "8B C" }, { "F#m", "11A F#m" }, { "F♯ Minor", "11A F#m" },
             { "Gbm", "11A F#m" }, { "D♭", "3B Db" }, { "c sharp", "3B Db" }, { "Cb", "1B B" }, { "B#", "8B C" },
             { "12B", "12B E" }, { "E", "12B E" }, { "13A", "none" }, { "0A", "none" }, { "H", "none" },
             { "o", "none" }, { "", "none" }, { "Am7", "none" } })
        EXPECT_EQ(keyName(text), QString::fromUtf8(expected)) << text;
    // Names, numbers and tonics agree all round the wheel.
    for (int number = 1; number <= 12; ++number) {
        for (const bool minor : { true, false }) {
            const MusicalKey key { number, minor };
            EXPECT_EQ(TagValues::key(key.name()), key) << key.name().toStdString();
            EXPECT_EQ((MusicalKey { number % 12 + 1, minor }.tonic()), (key.tonic() + 7) % 12);
        }
    }
}

TEST(TagValues, listsAreSplitWhereNamesEnd)
{
    using List = std::vector<std::pair<QStringList, QStringList>>;
    for (const auto &[fields, expected] :
        List { { { u"Above & Below"_s }, { u"Above & Below"_s } }, { { u"Earth, Wind"_s }, { u"Earth, Wind"_s } },
            { { u"A; B ;a"_s }, { u"A"_s, u"B"_s } }, { { u"A / B"_s, u"C"_s }, { u"A"_s, u"B"_s, u"C"_s } },
            { { u"AB/CD"_s }, { u"AB/CD"_s } }, { { u"One feat. Two"_s }, { u"One"_s, u"Two"_s } },
            { { u"One (ft. Two)"_s }, { u"One"_s, u"Two"_s } }, { { u"One vs. Two"_s }, { u"One"_s, u"Two"_s } },
            { { u"Left Foot (Trio)"_s }, { u"Left Foot (Trio)"_s } } })
        EXPECT_EQ(TagValues::artists(fields), expected) << fields.join(u'|').toStdString();
    EXPECT_EQ(TagValues::names({ u"House/Disco, house ;Drum & Bass"_s, u" "_s }),
        (QStringList { u"House"_s, u"Disco"_s, u"Drum & Bass"_s }));
    EXPECT_LE(TagValues::names({ u"a,b,c,d,e,f,g,h,i,j,k,l,m,n,o,p,q,r,s,t,u,v,w,x,y,z,aa,bb,cc,dd,ee,ff,gg,hh,ii"_s })
                  .size(),
        32);
}

TEST(TrackTags, absurdTagsAreKeptAsFarAsTheyMakeSense)
{
    const QTemporaryDir folder;
    const std::string huge = std::string(3'000'000, 'x');
    for (const AudioFormat format : { AudioFormat::Wav, AudioFormat::Aiff, AudioFormat::Flac, AudioFormat::Mp3,
             AudioFormat::M4a, AudioFormat::Vorbis, AudioFormat::Opus }) {
        const std::string path = folder.filePath(u"absurd."_s + fileExtension(format)).toStdString();
        SCOPED_TRACE(path);
        makeMusic(path,
            { { "TITLE", huge.c_str() }, { "ARTIST", "One\nTwo\x01" }, { "DATE", "0" }, { "INITIALKEY", "loud" },
                { "GENRE", ";;" } },
            format);
        if (format != AudioFormat::M4a) // where the tempo is a number and nothing else
            setTags(path,
                { { "TITLE", huge.c_str() }, { "ARTIST", "One\nTwo\x01" }, { "DATE", "0" }, { "BPM", "fast" },
                    { "TRACKNUMBER", "-7" }, { "GENRE", ";;" } });
        const TagReading reading = readTags(path);
        ASSERT_TRUE(reading.tags) << reading.refusal.toStdString();
        const TrackTags &tags = *reading.tags;
        EXPECT_EQ(tags.title, QString(1000, u'x'));
        EXPECT_EQ(tags.artistText, u"One Two"_s);
        EXPECT_EQ(tags.year, std::nullopt);
        EXPECT_EQ(tags.bpm, std::nullopt);
        EXPECT_EQ(tags.trackNumber, std::nullopt);
        EXPECT_TRUE(tags.genres.isEmpty());
        EXPECT_NEAR(tags.duration.value_or(0), 0.33, 0.1);
        const QString notes = tags.notes.join(u'\n');
        EXPECT_TRUE(notes.contains(u"title cut to 1000 of 3000000 characters"_s)) << notes.toStdString();
        if (format != AudioFormat::M4a) {
            EXPECT_TRUE(notes.contains(u"BPM “fast” left out"_s)) << notes.toStdString();
        }
    }
}

TEST(TrackTags, textThatIsNoUtf8IsReadAsLatin1AndNoted)
{
    const QTemporaryDir folder;
    const std::string path = folder.filePath(u"latin.flac"_s).toStdString();
    makeMusic(path, { { "TITLE", "Caf#" }, { "ARTIST", "Fine" } });
    std::string bytes = readBytes(path);
    const size_t at = bytes.find("Caf#");
    ASSERT_NE(at, std::string::npos);
    bytes[at + 3] = '\xe9';
    writeBytes(path, bytes);
    const TagReading reading = readTags(path);
    ASSERT_TRUE(reading.tags);
    EXPECT_EQ(reading.tags->title, u"Café"_s);
    EXPECT_EQ(reading.tags->artistText, u"Fine"_s);
    EXPECT_TRUE(reading.tags->notes.join(u' ').contains(u"no valid UTF-8"_s));
}

TEST(TrackTags, missingTagsLeaveNothingButTheFilesName)
{
    const QTemporaryDir folder;
    const std::string path = folder.filePath(u"a b.c.wav"_s).toStdString();
    makeMusic(path, {}, AudioFormat::Wav);
    const TagReading reading = readTags(path);
    ASSERT_TRUE(reading.tags);
    EXPECT_EQ(reading.tags->title, u"a b.c"_s);
    EXPECT_TRUE(reading.tags->artists.isEmpty() && reading.tags->genres.isEmpty());
    EXPECT_FALSE(reading.tags->bpm || reading.tags->year || reading.tags->rating || reading.tags->key);
    EXPECT_EQ(reading.tags->channels, 1);
}

TEST(TrackTags, contentDecidesAndNotTheName)
{
    const QTemporaryDir folder;
    const std::string path = folder.filePath(u"really.mp3"_s).toStdString();
    makeMusic(path, { { "TITLE", "Lossless" } });
    EXPECT_EQ(readTags(path).tags.value().title, u"Lossless"_s);
}

TEST(TrackTags, whatIsNoMusicIsRefusedWithAReason)
{
    const QTemporaryDir folder;
    const auto file = [&](const char *name) { return folder.filePath(QString::fromUtf8(name)).toStdString(); };
    writeBytes(file("empty.mp3"), {});
    writeBytes(file("text.mp3"), "not a sound\n");
    writeBytes(file("zero.wav"), std::string(100'000, '\0'));
    writeBytes(file("header.flac"), "fLaC");
    writeBytes(file("id3.mp3"), std::string("ID3\4\0\0\0\0\0\0", 10));
    EXPECT_EQ(readTags(file("empty.mp3")).refusal, u"empty file"_s);
    for (const char *name : { "text.mp3", "zero.wav", "header.flac", "id3.mp3", "absent.ogg" }) {
        const TagReading reading = readTags(file(name));
        EXPECT_FALSE(reading.tags) << name;
        EXPECT_FALSE(reading.refusal.isEmpty()) << name;
    }
}

TEST(TrackTags, boxesInsideBoxesAreCountedBeforeTheyAreRead)
{
    const QTemporaryDir folder;
    const std::string path = folder.filePath(u"nested.m4a"_s).toStdString();
    for (const char *name : { "moov", "udta", "trak", "ilst" }) {
        writeBytes(path, nestedBoxes(200'000, name));
        const TagReading reading = readTags(path);
        EXPECT_FALSE(reading.tags);
        EXPECT_EQ(reading.refusal, u"cannot be read: its boxes are nested more than 64 deep"_s);
    }
    writeBytes(path, nestedBoxes(60, "moov")); // not many, but no music either
    EXPECT_EQ(readTags(path).refusal, u"damaged or cut off: no audio can be found in it"_s);
}

TEST(TagReaders, readWhatThisProcessWouldRead)
{
    const QTemporaryDir folder;
    std::vector<std::string> paths;
    for (const AudioFormat format : { AudioFormat::Wav, AudioFormat::Aiff, AudioFormat::Flac, AudioFormat::Mp3,
             AudioFormat::M4a, AudioFormat::Vorbis, AudioFormat::Opus }) {
        paths.push_back(folder.filePath(u"\u00e4\u266b."_s + fileExtension(format)).toStdString());
        makeMusic(paths.back(),
            { { "TITLE", "Title" }, { "ARTIST", "One; Two" }, { "ALBUM", "Album" }, { "ALBUMARTIST", "Three" },
                { "GENRE", "House" }, { "LABEL", "Label" }, { "COMMENT", "\xf0\x9f\x8e\xb5" }, { "DATE", "1999" },
                { "INITIALKEY", "Am" }, { "BPM", "0" }, { "TRACKNUMBER", "7" }, { "RATING", "4" } },
            format);
    }
    paths.push_back(folder.filePath(u"absent.wav"_s).toStdString());
    TagReaders readers(KX_TAG_READER);
    std::vector<TagReading> readings(paths.size());
    forEachInParallel(paths.size(), [&](size_t i) { readings[i] = readers.read(paths[i]); });
    for (size_t i = 0; i < paths.size(); ++i) {
        EXPECT_EQ(readings[i], readTags(paths[i])) << paths[i];
        EXPECT_EQ(readings[i].tags.has_value(), i + 1 < paths.size());
    }
}

TEST(TagReaders, aFileThatEndsItsReaderCostsItselfAlone)
{
    const QTemporaryDir folder;
    std::vector<std::string> paths;
    for (int i = 0; i < 12; ++i) {
        paths.push_back(folder.filePath(u"%1.mp3"_s.arg(i)).toStdString());
        if (i % 3 == 1)
            writeBytes(paths.back(), nestedChapters(300'000));
        else
            makeMusic(paths.back(), { { "TITLE", "Good" } }, AudioFormat::Mp3);
    }
    TagReaders readers(KX_TAG_READER);
    std::vector<TagReading> readings(paths.size());
    forEachInParallel(paths.size(), [&](size_t i) { readings[i] = readers.read(paths[i]); });
    for (size_t i = 0; i < paths.size(); ++i) {
        EXPECT_EQ(readings[i].tags.has_value(), i % 3 != 1) << paths[i];
        if (i % 3 == 1) {
            EXPECT_TRUE(readings[i].refusal.startsWith(u"cannot be read: "_s)) << readings[i].refusal.toStdString();
        }
    }
    // Without the program files are read all the same.
    TagReaders missing(folder.filePath(u"nowhere"_s).toStdString());
    EXPECT_EQ(missing.read(paths[0]), readTags(paths[0]));
    TagReaders wrong("/bin/true");
    EXPECT_EQ(wrong.read(paths[0]), readTags(paths[0]));
}

// Cut anywhere or with bytes changed anywhere, a file gives tags or a reason, never both or neither.
TEST(TrackTags, damagedFilesNeverHurt)
{
    const char *seedText = std::getenv("KX_TEST_SEED");
    const unsigned seed = seedText ? unsigned(std::strtoul(seedText, nullptr, 10)) : std::random_device {}();
    const double scale = std::getenv("KX_TEST_SCALE") ? std::atof(std::getenv("KX_TEST_SCALE")) : 0.1;
    SCOPED_TRACE("KX_TEST_SEED=" + std::to_string(seed));
    std::mt19937 random(seed);
    const QTemporaryDir folder;
    for (const AudioFormat format : { AudioFormat::Wav, AudioFormat::Aiff, AudioFormat::Flac, AudioFormat::Mp3,
             AudioFormat::M4a, AudioFormat::Vorbis, AudioFormat::Opus }) {
        const std::string path = folder.filePath(u"damaged."_s + fileExtension(format)).toStdString();
        makeMusic(path, { { "TITLE", "Damaged" }, { "ARTIST", "Some; Body" }, { "BPM", "120" } }, format);
        const std::string whole = readBytes(path);
        for (int round = 0; round < int(300 * scale); ++round) {
            std::string bytes = whole;
            if (round % 2)
                bytes.resize(random() % bytes.size());
            for (unsigned i = random() % 8; i > 0 && !bytes.empty(); --i)
                bytes[random() % std::min<size_t>(bytes.size(), round % 3 ? 400 : bytes.size())] = char(random());
            writeBytes(path, bytes);
            const TagReading reading = readTags(path);
            EXPECT_NE(reading.tags.has_value(), !reading.refusal.isEmpty());
            if (reading.tags) {
                EXPECT_FALSE(reading.tags->title.isEmpty());
            }
        }
    }
}

TEST(TrackTags, beginningsOfAFewBytesAreRefused)
{
    const QTemporaryDir folder;
    for (const AudioFormat format : { AudioFormat::Wav, AudioFormat::Flac, AudioFormat::Mp3, AudioFormat::M4a }) {
        const std::string path = folder.filePath(u"short."_s + fileExtension(format)).toStdString();
        makeMusic(path, { { "TITLE", "Short" } }, format);
        const std::string whole = readBytes(path);
        for (size_t length = 0; length < 24; ++length) {
            writeBytes(path, whole.substr(0, length));
            EXPECT_FALSE(readTags(path).refusal.isEmpty()) << path << ": " << length;
        }
    }
}

TEST(TrackTags, pathsOfAnyBytesCanBeShown)
{
    EXPECT_EQ(displayPath("Caf\xc3\xa9/\xff x"), u"Café/\\xff x"_s);
    EXPECT_EQ(displayPath("\xf0\x9f\x8e\xb5"), u"🎵"_s);
    EXPECT_EQ(displayPath("\xf0\x9f"), u"\\xf0\\x9f"_s);
}

TEST(TrackTags, filesThatAreCutOffAreToldApart)
{
    const QTemporaryDir folder;
    const AudioFormat formats[] { AudioFormat::Wav, AudioFormat::Aiff, AudioFormat::Flac, AudioFormat::Mp3,
        AudioFormat::M4a, AudioFormat::Vorbis, AudioFormat::Opus };
    for (const AudioFormat format : formats) {
        const std::string name = fileExtension(format).toStdString(),
                          path = folder.filePath(u"a."_s).toStdString() + name;
        AudioBuffer sound { preferredSampleRate(format),
            { std::vector<float>(size_t(preferredSampleRate(format)) * 5) } };
        unsigned state = 1;
        for (float &sample : sound.channels[0])
            sample = float((state = state * 1664525U + 1013904223U) >> 16) / 65536.0F - 0.5F;
        ASSERT_EQ(encodeAudio(sound, format, path), QString());
        const auto isCutOff = [&] {
            const TagReading reading = readTags(path);
            return !reading.tags || reading.tags->notes.contains(cutOffNote()) || !reading.tags->duration;
        };
        EXPECT_FALSE(isCutOff()) << name;
        const std::string whole = readBytes(path);
        for (const size_t share : { 90, 50 }) {
            writeBytes(path, whole.substr(0, whole.size() * share / 100));
            EXPECT_TRUE(isCutOff()) << name << " of which " << share << " % are there";
        }
        // Tags at its end, or a block of nothing, do not make it another length.
        writeBytes(path, whole);
        setTags(path, { { "TITLE", "Tagged" } });
        EXPECT_FALSE(isCutOff()) << name << " with tags";
    }
}
