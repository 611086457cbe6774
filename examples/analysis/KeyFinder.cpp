#include "KeyFinder.h"

#include <algorithm>
#include <array>
#include <cmath>

#include <dsp/keydetection/GetKeyMode.h>

namespace {

constexpr float keyTuning = 440; // hertz of the A
constexpr double keyAverage = 10; // frames that each look is made of
constexpr size_t keyCount = 24;

/// In the order of the strengths.
constexpr std::array<const char *, keyCount> keyNames { "C", "Db", "D", "Eb", "E", "F", "F#", "G", "Ab", "A", "Bb", "B",
    "Cm", "C#m", "Dm", "Ebm", "Em", "Fm", "F#m", "Gm", "Abm", "Am", "Bbm", "Bm" };

} // namespace

QString KeyFinder::key(const Music &music)
{
    GetKeyMode finder(music.rate, keyTuning, keyAverage, keyAverage);
    const size_t block = finder.getBlockSize(), hop = finder.getHopSize();
    std::array<double, keyCount> strengths {}; // of all looks together
    std::vector<double> samples(block);
    for (size_t at = 0; at + block <= music.samples.size(); at += hop) {
        std::copy_n(music.samples.data() + at, block, samples.data());
        if (finder.process(samples.data()) == 0)
            continue; // nothing is heard there
        for (size_t key = 0; key < keyCount; ++key) {
            const double strength = finder.getKeyStrengths()[key];
            strengths[key] += std::isfinite(strength) ? strength : 0;
        }
    }
    const auto most = std::max_element(strengths.begin(), strengths.end());
    return *most > 0 ? QString::fromLatin1(keyNames[size_t(most - strengths.begin())]) : QString();
}
