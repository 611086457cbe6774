// kxtool audio, started the way users start it.

#include <array>
#include <cmath>
#include <cstdlib>

#include <sys/wait.h>

#include <QDir>
#include <QImage>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include <kestrixkit/audio/KXAudioFile.h>

#include <support/AudioFiles.h>

using namespace Qt::StringLiterals;

namespace {

/// Runs kxtool audio in the folder, and answers its exit status. By the shell: QProcess forks, which the thread
/// sanitizer does not survive.
int runTool(
    const QTemporaryDir &dir, const QString &arguments, QByteArray *output = nullptr, QByteArray *errors = nullptr)
{
    const QString command = u"cd '%1' && exec '%2' audio %3 > .output 2> .errors"_s.arg(
        dir.path(), QStringLiteral(KX_TOOL), QString(arguments).replace(u'#', u"\\#"_s));
    const int status = std::system(qPrintable(command));
    for (const auto &[name, bytes] : { std::pair(u".output"_s, output), std::pair(u".errors"_s, errors) }) {
        QFile file(dir.filePath(name));
        if (bytes && file.open(QIODevice::ReadOnly))
            *bytes = file.readAll();
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::vector<std::vector<float>> rendered(const QTemporaryDir &dir)
{
    KXAudioFile file;
    EXPECT_EQ(file.open(QUrl::fromLocalFile(dir.filePath(u"out.wav"_s))), 0);
    std::vector<std::vector<float>> sides(2, std::vector<float>(1'000'000));
    float *const pointers[] = { sides[0].data(), sides[1].data() };
    quint32 frames = 0;
    EXPECT_EQ(file.read(pointers, 1'000'000, &frames), 0);
    for (auto &side : sides)
        side.resize(frames);
    return sides;
}

}

TEST(AudioCommands, tellAndDraw)
{
    const QTemporaryDir dir;
    writeSound(makeSound(30'000, 2), { "in", "flac", "flac", "flac" }, dir.path());
    QByteArray output, errors;
    ASSERT_EQ(runTool(dir, u"info in.flac"_s, &output), 0);
    const QJsonObject info = QJsonDocument::fromJson(output).object();
    EXPECT_EQ(info[u"numberOfFrames"_s].toInt(), 30'000);
    EXPECT_EQ(info[u"uti"_s].toString(), u"audio/flac"_s);

    ASSERT_EQ(runTool(dir, u"waveform in.flac out.png --size 300x101 --colour #ff8000"_s, &output, &errors), 0);
    EXPECT_TRUE(errors.contains("50 %") && errors.endsWith("100 %\n")) << errors.constData();
    const QImage apart(dir.filePath(u"out.png"_s));
    EXPECT_EQ(apart.size(), QSize(300, 101));
    for (const int centre : { 25, 75 }) // one channel above the other
        EXPECT_EQ(apart.pixel(100, centre), 0xffff8000) << centre;
    EXPECT_EQ(apart.pixel(100, 50), 0U);
    ASSERT_EQ(runTool(dir, u"waveform in.flac out.png --size 300x100 --sum --colour #ff8000"_s), 0);
    EXPECT_EQ(QImage(dir.filePath(u"out.png"_s)).pixel(100, 50), 0xffff8000);
}

TEST(AudioCommands, renderWhatThePlayersPlay)
{
    const QTemporaryDir dir;
    const AudioSamples sound = makeSound(200'000, 4);
    writeSound(sound, { "in", "wav", "wav", "pcm_f32le" }, dir.path());
    ASSERT_EQ(
        runTool(dir, u"render in.wav out.wav --player multitrack --volume 0.5 --mute 1,2 --seek 1.5 --duration 2"_s),
        0);
    auto sides = rendered(dir);
    ASSERT_EQ(sides[0].size(), 88'200U);
    for (size_t i = 0; i < sides[0].size(); ++i) {
        ASSERT_NEAR(sides[0][i], 0.125 * sound.channels[0][66'150 + i], 1e-6) << i;
        ASSERT_NEAR(sides[1][i], 0.125 * sound.channels[3][66'150 + i], 1e-6) << i;
    }
    ASSERT_EQ(runTool(dir, u"render in.wav out.wav --seek 2.9"_s), 0); // whole seconds
    sides = rendered(dir);
    ASSERT_EQ(sides[0].size(), 111'800U);
    for (size_t i = 0; i < sides[0].size(); ++i) {
        const double fade = std::clamp(4 - double(88'200 + i) / 44'100, 0.0, 1.0);
        ASSERT_NEAR(sides[0][i], fade * (sound.channels[0][88'200 + i] + sound.channels[2][88'200 + i]), 2e-6) << i;
    }
    // All of it lies in the player's buffer when it is to be positioned.
    const AudioSamples little = makeSound(8000, 1);
    writeSound(little, { "little", "wav", "wav", "pcm_f32le" }, dir.path());
    ASSERT_EQ(runTool(dir, u"render little.wav out.wav --player multitrack --seek 0.1"_s), 0);
    EXPECT_EQ(rendered(dir)[0], std::vector<float>(little.channels[0].begin() + 4410, little.channels[0].end()));
}

TEST(AudioCommands, sayWhatIsWrong)
{
    const QTemporaryDir dir;
    writeSound(makeSound(3000, 2), { "in", "wav", "wav", "pcm_s16le" }, dir.path());
    const std::pair<const char *, int> rows[] = { { "", 2 }, { "play in.wav", 2 }, { "info", 2 },
        { "info missing.wav", 2 }, { "info in.wav --more", 2 }, { "waveform in.wav out.png", 2 },
        { "waveform in.wav out.png --size 0x9", 2 }, { "waveform in.wav out.png --size 9x1", 2 },
        { "waveform in.wav out.png --size 9x9 --colour red", 2 }, { "waveform in.wav nowhere/out.png --size 9x9", 1 },
        { "waveform missing.wav out.png --size 9x9", 2 }, { "render missing.wav out.wav", 2 },
        { "render in.wav nowhere/out.wav", 1 }, { "render in.wav out.wav --mute 1", 2 },
        { "render in.wav out.wav --player multitrack --mute 2", 2 }, { "render in.wav out.wav --volume 2", 2 },
        { "render in.wav out.wav --player tape", 2 }, { "render in.wav out.wav --seek x", 2 } };
    for (const auto &[arguments, status] : rows) {
        QByteArray errors;
        EXPECT_EQ(runTool(dir, QString::fromLatin1(arguments), nullptr, &errors), status) << arguments;
        EXPECT_TRUE(errors.contains("kxtool: ")) << arguments;
    }
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files), QStringList { u"in.wav"_s }); // nothing half done
}

TEST(AudioCommands, printColumnsAndLoudness)
{
    const QTemporaryDir dir;
    AudioSamples sound { 8000, { std::vector<float>(8000 * 12), std::vector<float>(8000 * 12) } };
    for (size_t i = 0; i < sound.frames(); ++i) {
        sound.channels[0][i] = i < 48'000 ? 0.5F : -0.25F;
        sound.channels[1][i] = i % 2 ? 0.75F : 0;
    }
    writeSound(sound, { "in", "wav", "wav", "pcm_f32le" }, dir.path());
    const auto columns = [&](const QString &arguments) {
        QByteArray output;
        EXPECT_EQ(runTool(dir, u"pyramid in.wav "_s + arguments, &output), 0);
        std::vector<std::array<double, 3>> result;
        for (const QJsonValue each : QJsonDocument::fromJson(output)[u"columns"_s].toArray())
            result.push_back({ each[u"min"_s].toDouble(), each[u"max"_s].toDouble(), each[u"rms"_s].toDouble() });
        return result;
    };
    // Out of cells, which are 64 frames here, and decoded where columns divide them.
    for (const QString &count : { u"500"_s, u"7"_s }) {
        const auto both = columns(u"--columns "_s + count);
        ASSERT_EQ(both.size(), count.toUInt());
        EXPECT_NEAR(both.front()[0], 0, 0.01);
        EXPECT_NEAR(both.front()[1], 0.75, 0.01);
        EXPECT_NEAR(both.front()[2], std::sqrt((0.25 + 0.5625 / 2) / 2), 0.01);
        EXPECT_NEAR(both.back()[0], -0.25, 0.01);
    }
    const auto left = columns(u"--columns 3 --from 5.5 --to 7 --channels 0"_s);
    ASSERT_EQ(left.size(), 3U);
    EXPECT_EQ(left[0], (std::array<double, 3> { 0.5, 0.5, 0.5 }));
    EXPECT_EQ(left[1], (std::array<double, 3> { -0.25, -0.25, 0.25 }));
    QByteArray output, errors;
    ASSERT_EQ(runTool(dir, u"loudness in.wav"_s, &output), 0);
    EXPECT_LT(QJsonDocument::fromJson(output)[u"loudness"_s].toDouble(), -1);
    for (const QString &wrong : { u"pyramid in.wav"_s, u"pyramid in.wav --columns 0"_s,
             u"pyramid absent.wav --columns 5"_s, u"pyramid in.wav --columns 5 --channels 2"_s,
             u"pyramid in.wav --columns 5 --from 7 --to 6"_s, u"loudness absent.wav"_s }) {
        EXPECT_EQ(runTool(dir, wrong, nullptr, &errors), 2) << wrong.toStdString();
        EXPECT_FALSE(errors.isEmpty());
    }
}
