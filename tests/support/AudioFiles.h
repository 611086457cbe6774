#pragma once

#include <string>
#include <utility>
#include <vector>

#include <QString>

/// One vector of samples a channel, all of one length.
struct AudioSamples
{
    int rate = 44100;
    std::vector<std::vector<float>> channels;

    [[nodiscard]] size_t frames() const { return channels.empty() ? 0 : channels.front().size(); }
};

/// A rising tone with noise, different in each channel and nowhere alike, so that a shift by one frame shows.
AudioSamples makeSound(size_t frames, int channels = 2, int rate = 44100);

/// What a test file is made with: FFmpeg's names of container and encoder.
struct AudioRecipe
{
    const char *name; // of the recipe
    const char *extension;
    const char *muxer;
    const char *encoder;
    int bitRate = 0;
    std::vector<std::pair<const char *, const char *>> options = {}; // of encoder or container
};

/// Writes the samples into dir/NAME.EXTENSION and answers the path; throws std::runtime_error when it cannot.
QString writeSound(const AudioSamples &sound, const AudioRecipe &recipe, const QString &dir);

/// As 16-bit WAV without FFmpeg, which cannot write more than 64 channels.
QString writePlainWave(const AudioSamples &sound, const QString &path);
