#include "TempoFinder.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <memory>
#include <numbers>
#include <numeric>

#include <aubio/aubio.h>

namespace {

constexpr uint_t tempoWindow = 1024, tempoHop = 512; // samples
constexpr size_t tempoFewest = 12; // beats
constexpr double tempoSteady = 0.08; // share by which steady beats come early or late
constexpr double tempoDoubt = 0.7; // what a tempo counts for at which no beats were heard
constexpr double tempoShare = 0.6; // of the beats that have to be steady
constexpr double tempoWhole = 0.12; // beats a minute: music is made at whole ones, or at halves
constexpr double tempoNear = 0.01, tempoStep = 0.02; // share, and beats a minute: where a better one is looked for
constexpr double tempoQuiet = 1e-4; // energy of a hop that is as good as none
constexpr double tempoLowest = 30, tempoHighest = 300;

/// When the beats come, in samples.
std::vector<double> beatsOf(const Music &music)
{
    std::vector<double> beats;
    const std::unique_ptr<aubio_tempo_t, decltype(&del_aubio_tempo)> tracker(
        new_aubio_tempo("default", tempoWindow, tempoHop, uint_t(music.rate)), &del_aubio_tempo);
    const std::unique_ptr<fvec_t, decltype(&del_fvec)> in(new_fvec(tempoHop), &del_fvec), out(new_fvec(2), &del_fvec);
    if (!tracker || !in || !out)
        return beats;
    for (size_t at = 0; at + tempoHop <= music.samples.size(); at += tempoHop) {
        std::copy_n(music.samples.data() + at, tempoHop, in->data);
        aubio_tempo_do(tracker.get(), in.get(), out.get());
        if (out->data[0] != 0)
            beats.push_back(aubio_tempo_get_last(tracker.get()));
    }
    return beats;
}

/// By how much each hop is louder than the one before; nothing where it is not.
std::vector<double> risesOf(const Music &music)
{
    std::vector<double> rises;
    double before = 0;
    for (size_t at = 0; at + tempoHop <= music.samples.size(); at += tempoHop) {
        double energy = tempoQuiet;
        for (size_t i = at; i < at + tempoHop; ++i)
            energy += double(music.samples[i]) * double(music.samples[i]);
        const double loudness = std::log(energy);
        rises.push_back(at == 0 ? 0 : std::max(0.0, loudness - before));
        before = loudness;
    }
    return rises;
}

/// The tempo close by at which the music rises most regularly, on beats, eighths and sixteenths. Single beats are heard
/// a little early or late; this counts all of them. Where beats were heard across the bar, three of them for two or two
/// for three, that does not come out even, and the other tempo is the more regular one by far.
double refined(const Music &music, double tempo)
{
    const std::vector<double> rises = risesOf(music);
    const auto regularity = [&](double at) {
        double sum = 0;
        for (const int part : { 1, 2, 4 }) {
            const auto turn = std::polar(1.0, 2 * std::numbers::pi * at * part / 60 * tempoHop / music.rate);
            std::complex<double> phase = 1, total = 0;
            for (const double rise : rises) {
                total += rise * phase;
                phase *= turn;
            }
            sum += std::abs(total);
        }
        return sum;
    };
    double best = tempo, most = 0;
    for (const double factor : { 1.0, 1.5, 2.0 / 3 }) {
        const double near = tempo * factor, weight = factor == 1 ? 1 : tempoDoubt;
        for (double at = near * (1 - tempoNear); at <= near * (1 + tempoNear); at += tempoStep) {
            if (const double found = regularity(at) * weight; found > most) {
                most = found;
                best = at;
            }
        }
    }
    return best;
}

/// Music is made at whole tempos, sometimes at halves.
double rounded(double tempo)
{
    const double half = std::round(tempo * 2) / 2;
    return std::abs(tempo - half) <= tempoWhole ? half : std::round(tempo * 10) / 10;
}

} // namespace

std::optional<double> TempoFinder::tempo(const Music &music)
{
    const std::vector<double> beats = beatsOf(music);
    if (beats.size() < tempoFewest)
        return std::nullopt;
    std::vector<double> gaps;
    for (size_t i = 1; i < beats.size(); ++i)
        gaps.push_back(beats[i] - beats[i - 1]);
    std::vector<double> sorted = gaps;
    std::nth_element(sorted.begin(), sorted.begin() + std::ptrdiff_t(sorted.size() / 2), sorted.end());
    const double middle = sorted[sorted.size() / 2];
    std::erase_if(gaps, [&](double gap) { return std::abs(gap - middle) > middle * tempoSteady; });
    if (middle <= 0 || double(gaps.size()) < double(sorted.size()) * tempoShare)
        return std::nullopt;
    const double gap = std::accumulate(gaps.begin(), gaps.end(), 0.0) / double(gaps.size());
    const double found = rounded(refined(music, 60.0 * music.rate / gap));
    return found >= tempoLowest && found <= tempoHighest ? std::optional(found) : std::nullopt;
}
