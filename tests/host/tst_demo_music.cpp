// The music that the browser makes itself: real music in every format.

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QSet>
#include <QTemporaryDir>

#include <demo/DemoMusic.h>
#include <tags/AudioProbe.h>

#include "MusicFiles.h"

using namespace Qt::StringLiterals;

TEST(DemoMusic, everyFileIsMusicAndTellsItsTags)
{
    const QTemporaryDir caches;
    QString error;
    const std::string made = DemoMusic::make(caches.path(), &error);
    ASSERT_FALSE(made.empty()) << error.toStdString();

    QSet<QString> names;
    std::set<AudioFormat> formats;
    int stems = 0;
    for (const DemoTrack &track : DemoMusic::tracks()) {
        SCOPED_TRACE(track.title);
        EXPECT_FALSE(names.contains(track.fileName()));
        names.insert(track.fileName());
        formats.insert(track.format);
        stems += track.stems;
        const std::string path = made + '/' + track.fileName().toStdString();
        const TagReading reading = readTags(path);
        ASSERT_TRUE(reading.tags) << reading.refusal.toStdString();
        const TrackTags &tags = *reading.tags;
        EXPECT_EQ(tags.notes, QStringList());
        EXPECT_EQ(tags.title, QString::fromUtf8(track.title));
        EXPECT_EQ(tags.artists, QString::fromUtf8(track.artists).split(u';'));
        EXPECT_EQ(tags.genres, QString::fromUtf8(track.genres).split(u';'));
        EXPECT_EQ(tags.labels, QString::fromUtf8(track.label).split(u';'));
        EXPECT_EQ(tags.album, QString::fromUtf8(track.album));
        ASSERT_TRUE(tags.key);
        EXPECT_EQ(tags.key->name(), QString::fromUtf8(track.key));
        EXPECT_EQ(tags.bpm, track.bpm);
        EXPECT_EQ(tags.year, track.year);
        EXPECT_EQ(tags.rating, track.rating ? std::optional(track.rating) : std::nullopt);
        EXPECT_EQ(tags.channels, track.stems ? 8 : 2);
        EXPECT_NEAR(tags.duration.value_or(0), loopSeconds(track.recipe(1)), 0.1); // some formats pad their ends
        EXPECT_GE(loopSeconds(track.recipe(1)), 3);
        EXPECT_LE(loopSeconds(track.recipe(1)), 6);

        const std::optional<AudioProbe> probe = probeAudio(path);
        ASSERT_TRUE(probe);
        EXPECT_EQ(probe->sampleRate, tags.sampleRate);
    }
    EXPECT_EQ(formats.size(), 7U);
    EXPECT_GE(stems, 2);
    EXPECT_EQ(QDir(caches.path()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot).size(), 1)
        << "something is left over";
}

TEST(DemoMusic, isMadeOnceAndWhole)
{
    const QTemporaryDir caches;
    QString error;
    // What a killed run left, long ago, goes; a young one may be at work.
    QDir(caches.path()).mkpath(u"making-crate-old/House"_s);
    QDir(caches.path()).mkpath(u"making-crate-new/House"_s);
    ASSERT_EQ(::system(("touch -d '3 hours ago' " + caches.filePath(u"making-crate-old"_s).toStdString()).c_str()), 0);
    const std::string first = DemoMusic::make(caches.path(), &error);
    ASSERT_FALSE(first.empty()) << error.toStdString();
    EXPECT_FALSE(QDir(caches.filePath(u"making-crate-old"_s)).exists());
    EXPECT_TRUE(QDir(caches.filePath(u"making-crate-new"_s)).exists());

    const std::string file = first + '/' + DemoMusic::tracks().front().fileName().toStdString();
    const auto made = std::filesystem::last_write_time(file);
    EXPECT_EQ(DemoMusic::make(caches.path(), &error), first);
    EXPECT_EQ(std::filesystem::last_write_time(file), made);
    EXPECT_TRUE(DemoMusic::make(u"/proc/no such place"_s, &error).empty());
    EXPECT_FALSE(error.isEmpty());
}

TEST(DemoMusic, loopsSoundTheSameEachTimeAndGoRoundWithoutAClick)
{
    for (const LoopStyle style : { LoopStyle::House, LoopStyle::DrumAndBass, LoopStyle::Ambient, LoopStyle::Dub }) {
        const LoopRecipe recipe { style, 126, { 8, true }, 7 };
        const AudioBuffer loop = renderLoop(recipe, 44100);
        EXPECT_EQ(loop.channels, renderLoop(recipe, 44100).channels);
        float peak = 0;
        double energy = 0;
        for (const float sample : loop.channels[0]) {
            ASSERT_TRUE(std::isfinite(sample));
            peak = std::max(peak, std::abs(sample));
            energy += double(sample) * double(sample);
        }
        EXPECT_LE(peak, 0.9F);
        EXPECT_GT(std::sqrt(energy / double(loop.frames())), 0.05) << "hardly anything to hear";
        // The step from the end to the beginning is no bigger than those inside.
        float largest = 0;
        for (size_t i = 1; i < loop.frames(); ++i)
            largest = std::max(largest, std::abs(loop.channels[0][i] - loop.channels[0][i - 1]));
        EXPECT_LE(std::abs(loop.channels[0].front() - loop.channels[0].back()), largest);
    }
}
