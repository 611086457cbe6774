#include "MusicReader.h"

#include <algorithm>
#include <cmath>
#include <filesystem>

#include <QUrl>

#include <dsp/rateconversion/Resampler.h>

#include <kestrixkit/audio/KXAudioFile.h>

namespace {

constexpr quint32 readerFrames = 16 * 1024; // at a time
constexpr double readerShortest = 2; // seconds: less says nothing

QUrl readerUrl(const std::string &path)
{
    // Byte for byte: a name need not be text.
    std::error_code error;
    const std::string whole = std::filesystem::absolute(path, error).native();
    return QUrl::fromEncoded("file://" + QByteArray::fromStdString(whole).toPercentEncoding("/"), QUrl::StrictMode);
}

/// Reads on until there are so many samples, or no more.
void readMixed(KXAudioFile &file, const KXStreamFormat &format, size_t samples, std::vector<float> &to)
{
    const size_t channels = format.mChannelsPerFrame;
    std::vector<std::vector<float>> buffers(channels, std::vector<float>(readerFrames));
    std::vector<float *> places;
    for (std::vector<float> &buffer : buffers)
        places.push_back(buffer.data());
    while (to.size() < samples) {
        quint32 got = 0;
        const KXAudioFileStatus status = file.read(places.data(), readerFrames, &got);
        if (status != KXAudioFileNoError || got == 0)
            return; // what came before is music all the same
        for (quint32 i = 0; i < got; ++i) {
            float sum = 0;
            for (const std::vector<float> &buffer : buffers)
                sum += buffer[i];
            to.push_back(std::isfinite(sum) ? sum / float(channels) : 0);
        }
    }
}

/// The analysis is made for the rates that most music has.
void resample(Music &music)
{
    if (music.rate == 44100 || music.rate == 48000)
        return;
    const std::vector<double> before(music.samples.begin(), music.samples.end());
    const std::vector<double> after = Resampler::resample(music.rate, 44100, before.data(), int(before.size()));
    music.samples.assign(after.begin(), after.end());
    music.rate = 44100;
}

} // namespace

Music MusicReader::read(const std::string &path, QString *problem)
{
    KXAudioFile file;
    KXStreamFormat format;
    qint64 frames = 0;
    KXError error;
    if (!file.openForReading(readerUrl(path), {}, &format, &frames, &error)) {
        *problem = QStringLiteral("cannot be read: %1").arg(error.localizedDescription());
        return {};
    }
    Music music { int(format.mSampleRate), {} };
    if (music.rate < 4000 || music.rate > 400'000 || format.mChannelsPerFrame == 0) {
        *problem = QStringLiteral("cannot be analysed: its format is not known");
        return {};
    }
    const auto wanted = qint64(most * music.rate);
    if (frames > wanted)
        file.seek((frames - wanted) / 2); // where it fails it is heard from the start
    readMixed(file, format, size_t(wanted), music.samples);
    resample(music);
    if (music.seconds() < readerShortest) {
        *problem = QStringLiteral("cannot be analysed: it is too short");
        return {};
    }
    const size_t once = music.samples.size(), round = size_t(std::ceil(least / music.seconds()));
    if (round > 1) {
        music.samples.resize(once * round);
        for (size_t i = once; i < music.samples.size(); ++i)
            music.samples[i] = music.samples[i - once];
    }
    return music;
}
