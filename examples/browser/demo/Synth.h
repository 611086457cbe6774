#pragma once

#include <cstdint>

#include "demo/AudioEncoder.h"
#include "tags/TagValues.h"

enum class LoopStyle { House, Techno, DeepHouse, DrumAndBass, Breaks, Downtempo, Electro, Garage, Ambient, Dub };

/// All that decides how a loop sounds.
struct LoopRecipe
{
    LoopStyle style = LoopStyle::House;
    double bpm = 120; ///< 80 or more
    MusicalKey key { 8, true };
    uint32_t seed = 1; ///< varies the melody and the noise
};

/// Seconds of the loop: the two or four bars that come nearest to five seconds.
double loopSeconds(const LoopRecipe &recipe);

/// A stereo mix that loops without a seam, its loudest sample at -1 dB. The same samples each time.
AudioBuffer renderLoop(const LoopRecipe &recipe, int sampleRate);

/// Drums, bass, chords and lead as four stereo pairs (eight channels) that sum up to about the mix.
AudioBuffer renderStems(const LoopRecipe &recipe, int sampleRate);
