#pragma once

#include <string>
#include <vector>

#include <QString>

/// Planar sound: one vector of samples from -1 to 1 for each channel, all of one length.
struct AudioBuffer
{
    int sampleRate = 44100;
    std::vector<std::vector<float>> channels;

    [[nodiscard]] size_t frames() const { return channels.empty() ? 0 : channels.front().size(); }
};

enum class AudioFormat { Wav, Aiff, Flac, Mp3, M4a, Vorbis, Opus };

/// Without dot.
QString fileExtension(AudioFormat format);

/// Opus knows few sample rates; all other formats take 44,100.
int preferredSampleRate(AudioFormat format);

/// Writes sound into a file, the same bytes each time. Answers what went wrong, or an empty text. Any thread.
QString encodeAudio(const AudioBuffer &sound, AudioFormat format, const std::string &path);
