// Any bytes as an audio file: opening, reading, seeking, its length.

#include "Fuzz.h"

#include <cstdlib>
#include <cstring>

#include <sys/mman.h>
#include <unistd.h>

#include <QFile>
#include <QTemporaryDir>

#include <kestrixkit/audio/KXAudioFile.h>

#include <support/AudioFiles.h>

namespace {

constexpr int fuzzReads = 20; // of 4096 frames: damage may promise hours

void require(bool holds)
{
    if (!holds)
        std::abort();
}

void readSome(KXAudioFile &file, quint32 channels)
{
    std::vector<float> samples(size_t(channels) * 4096);
    std::vector<float *> pointers;
    for (quint32 c = 0; c < channels; ++c)
        pointers.push_back(samples.data() + size_t(c) * 4096);
    for (int i = 0; i < fuzzReads; ++i) {
        const qint64 before = file.position();
        quint32 got = 0;
        const int status = file.read(pointers.data(), 4096, &got);
        require(got <= 4096 && file.position() == before + got);
        if (status != KXAudioFileNoError || got == 0)
            return;
    }
}

}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const int memory = memfd_create("fuzz", MFD_CLOEXEC);
    require(memory >= 0 && write(memory, data, size) == ssize_t(size));
    {
        KXAudioFileOptions options;
        options.growthSeconds = 0;
        KXAudioFile file;
        KXStreamFormat format;
        qint64 frames = 0;
        if (file.open(QUrl::fromLocalFile(QStringLiteral("/proc/self/fd/%1").arg(memory)), options)
            == KXAudioFileNoError) {
            require(
                file.dataFormat(&format) == KXAudioFileNoError && file.lengthInFrames(&frames) == KXAudioFileNoError);
            require(
                format.mChannelsPerFrame > 0 && format.mFramesPerPacket > 0 && format.mSampleRate > 0 && frames >= 0);
            readSome(file, format.mChannelsPerFrame);
            for (const qint64 target : { qint64(0), frames / 2, frames, frames - 1 }) {
                if (target >= 0 && file.seek(target) == KXAudioFileNoError)
                    readSome(file, format.mChannelsPerFrame);
            }
            (void)file.findExactLength();
            readSome(file, format.mChannelsPerFrame);
        }
    }
    close(memory);
    return 0;
}

std::vector<std::string> fuzzSeeds()
{
    const AudioRecipe recipes[] = { { "s16", "wav", "wav", "pcm_s16le" },
        { "rf64", "wav", "wav", "pcm_s24le", 0, { { "rf64", "always" } } }, { "f64", "aiff", "aiff", "pcm_f64be" },
        { "s16", "caf", "caf", "pcm_s16le" }, { "flac", "flac", "flac", "flac" }, { "alac", "m4a", "ipod", "alac" },
        { "aac", "m4a", "ipod", "aac", 64000 }, { "raw", "aac", "adts", "aac", 64000 },
        { "cbr", "mp3", "mp3", "libmp3lame", 32000 }, { "vorbis", "ogg", "ogg", "libvorbis", 64000 } };
    const QTemporaryDir dir;
    const AudioSamples sound = makeSound(5000, 2);
    std::vector<std::string> seeds;
    for (const AudioRecipe &recipe : recipes) {
        QFile file(writeSound(sound, recipe, dir.path()));
        require(file.open(QIODevice::ReadOnly));
        seeds.push_back(file.readAll().toStdString());
    }
    return seeds;
}
