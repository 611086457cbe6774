#pragma once

// Music files of a few seconds that sound different from each other, for what knows files by their sound.

#include <map>

#include <demo/Synth.h>

#include "MusicFiles.h"

inline const AudioBuffer &tune(uint32_t seed)
{
    static std::map<uint32_t, AudioBuffer> rendered;
    AudioBuffer &sound = rendered[seed];
    if (sound.channels.empty()) {
        const LoopStyle styles[] { LoopStyle::House, LoopStyle::Breaks, LoopStyle::DrumAndBass, LoopStyle::Garage };
        sound = renderLoop({ styles[seed % 4], 118.0 + seed % 3, { int(seed % 12) + 1, seed % 2 == 0 }, seed }, 44100);
    }
    return sound;
}

inline void makeTune(const std::string &path, uint32_t seed, Tags tags = {}, AudioFormat format = AudioFormat::Flac)
{
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    ASSERT_EQ(encodeAudio(tune(seed), format, path), QString());
    if (tags.size())
        setTags(path, tags);
}
