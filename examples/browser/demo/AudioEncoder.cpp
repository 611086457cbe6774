#include "demo/AudioEncoder.h"

QString fileExtension(AudioFormat format)
{
    static constexpr const char *extensions[] = { "wav", "aiff", "flac", "mp3", "m4a", "ogg", "opus" };
    return QLatin1StringView(extensions[size_t(format)]);
}

int preferredSampleRate(AudioFormat format) { return format == AudioFormat::Opus ? 48000 : 44100; }
