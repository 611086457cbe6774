#include "demo/Synth.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <string_view>

namespace {

constexpr double pi = std::numbers::pi;

/// What makes a style, in sixteenth notes of one bar: 'x' a hit, 'o' a soft one, digits a degree of the
/// scale (8 is the octave), '.' nothing. A chord sounds until the next one.
struct Style
{
    std::string_view kick, snare, hat, bass, chords, lead;
    std::array<int, 4> progression; // degrees from 0, one a bar
    double swing; // part of a sixteenth by which every second one comes late
    double brightness; // hertz of the chords' filter
    double duck; // how far the kick pushes bass and chords down, 0 to 1
};

const Style &styleOf(LoopStyle style)
{
    // clang-format off
    static constexpr Style styles[] = {
        { "x...x...x...x...", "....x.......x...", "..x...x...x...x.", "1..1..1.1..15.8.", "x..x..x...x..x..", "1...5..3..1.6...", { 0, 5, 2, 6 }, 0.10, 2600, 0.7 },
        { "x...x...x...x...", "....o.......o..o", "o.x.o.x.o.x.o.x.", ".11..11..11..118", "x...............", "1.1...1.3.1...8.", { 0, 0, 5, 0 }, 0.00, 1500, 0.8 },
        { "x...x...x...x...", "....x.......x...", "o.xoo.xoo.xoo.xo", "1.....1..5..8...", "x.....x.........", "..5...3...1.....", { 0, 3, 0, 4 }, 0.22, 1800, 0.6 },
        { "x.........x.....", "....x..o.o..x..o", "x.x.x.x.x.x.x.x.", "1.......1.5.....", "x...............", "8..5..3.1..5..6.", { 0, 5, 3, 4 }, 0.05, 3200, 0.3 },
        { "x..x......x.....", "....x..o....x...", "x.o.x.o.x.o.x.oo", "1..1....5.8.1...", "....x.......x...", "5..3..1...3.5...", { 0, 6, 5, 6 }, 0.12, 2400, 0.3 },
        { "x......o..x.....", "....x.......x...", "x.x.x.x.x.xxx.x.", "1.....5...3.....", "x.......x.......", "3...5...8...5.3.", { 0, 3, 5, 4 }, 0.25, 1400, 0.3 },
        { "x..x..x...x..x..", "....x.......x...", "xoxoxoxoxoxoxoxo", "1.8.1.8.5.3.1.8.", "x...x...........", "1.3.5.8.5.3.1...", { 0, 0, 3, 4 }, 0.00, 3600, 0.4 },
        { "x.....x...o.....", "....x.......x..o", "..xo..xo..xo..xo", "1..8...5..1.3...", "..x..x....x..x..", "5.......3..1....", { 0, 5, 3, 0 }, 0.30, 2800, 0.4 },
        { "................", "................", "o.......o.......", "1...............", "x...............", "1.....5...8.3...", { 0, 3, 5, 2 }, 0.00, 1100, 0.0 },
        { "x.......x.......", "........x.......", "..o...o...o...o.", "1..1..5.....8...", "..x...x...x...x.", "......5.......3.", { 0, 0, 3, 3 }, 0.18, 1700, 0.3 },
    };
    // clang-format on
    return styles[size_t(style)];
}

/// Small and the same on every platform, which the standard distributions are not.
class Noise
{
public:
    explicit Noise(uint32_t seed)
        : m_state(seed * 2654435761u | 1u)
    {
    }
    uint32_t next()
    {
        m_state ^= m_state << 13;
        m_state ^= m_state >> 17;
        m_state ^= m_state << 5;
        return m_state;
    }
    float sample() { return float(next()) / 2147483648.0F - 1.0F; }

private:
    uint32_t m_state;
};

/// A sawtooth whose edge is rounded over two samples, so that it does not alias audibly.
class Saw
{
public:
    Saw(double frequency, int rate, double phase)
        : m_step(frequency / rate)
        , m_phase(phase)
    {
    }
    double next()
    {
        m_phase += m_step;
        if (m_phase >= 1)
            m_phase -= 1;
        double value = 2 * m_phase - 1;
        if (m_phase < m_step) {
            const double t = m_phase / m_step;
            value -= t + t - t * t - 1;
        } else if (m_phase > 1 - m_step) {
            const double t = (m_phase - 1) / m_step;
            value -= t * t + t + t + 1;
        }
        return value;
    }

private:
    double m_step;
    double m_phase;
};

/// Two-pole state-variable filter.
class Filter
{
public:
    Filter(double cutoff, double resonance, int rate)
        : m_g(std::tan(pi * std::min(cutoff, rate * 0.45) / rate))
        , m_k(2 - 1.9 * resonance)
    {
    }
    double low(double in)
    {
        run(in);
        return m_low;
    }
    double high(double in)
    {
        run(in);
        return in - m_k * m_band - m_low;
    }
    double band(double in)
    {
        run(in);
        return m_band;
    }

private:
    void run(double in)
    {
        m_band = (m_g * (in - m_s2) + m_s1) / (1 + m_g * (m_g + m_k));
        m_low = m_s2 + m_g * m_band;
        m_s1 = 2 * m_band - m_s1;
        m_s2 = 2 * m_low - m_s2;
    }
    double m_g, m_k;
    double m_s1 = 0, m_s2 = 0, m_band = 0, m_low = 0;
};

/// One stereo part of the loop; what rings on past the end goes on at the beginning.
struct Part
{
    std::vector<float> left, right;

    explicit Part(size_t frames)
        : left(frames)
        , right(frames)
    {
    }
    void add(size_t at, double value, double pan = 0)
    {
        at %= left.size();
        left[at] += float(value * (1 - std::max(pan, 0.0)));
        right[at] += float(value * (1 + std::min(pan, 0.0)));
    }
};

class Loop
{
public:
    Loop(const LoopRecipe &recipe, int rate)
        : m_recipe(recipe)
        , m_style(styleOf(recipe.style))
        , m_rate(rate)
        , m_bars(int(std::lround(loopSeconds(recipe) * recipe.bpm / 240)))
        , m_frames(size_t(std::lround(loopSeconds(recipe) * rate)))
        , m_noise(recipe.seed)
        , drums(m_frames)
        , bass(m_frames)
        , chords(m_frames)
        , lead(m_frames)
    {
        for (int bar = 0; bar < m_bars; ++bar) {
            for (int step = 0; step < 16; ++step)
                playStep(bar, step);
        }
        duck(bass, m_style.duck);
        duck(chords, m_style.duck);
        echo(lead, 0.45);
        echo(chords, 0.25);
    }

    void normalise(std::initializer_list<std::vector<float> *> all, double peak) const
    {
        float loudest = 1e-6F;
        for (const std::vector<float> *channel : all) {
            for (const float sample : *channel)
                loudest = std::max(loudest, std::abs(sample));
        }
        for (std::vector<float> *channel : all) {
            for (float &sample : *channel)
                sample *= float(peak) / loudest;
        }
    }

private:
    size_t frameOf(int bar, int step) const
    {
        const double late = step % 2 ? m_style.swing : 0;
        return size_t((bar * 16 + step + late) * 15 / m_recipe.bpm * m_rate);
    }

    /// Hertz of a degree of the key's scale (0 is the tonic), in the octave of the given C.
    double frequency(int degree, int octaveC) const
    {
        static constexpr std::array<int, 7> minorScale { 0, 2, 3, 5, 7, 8, 10 };
        static constexpr std::array<int, 7> majorScale { 0, 2, 4, 5, 7, 9, 11 };
        const auto &scale = m_recipe.key.minor ? minorScale : majorScale;
        const int note = octaveC + m_recipe.key.tonic() + scale[size_t(degree % 7)] + 12 * (degree / 7);
        return 440 * std::pow(2.0, (note - 69) / 12.0);
    }

    void playStep(int bar, int step)
    {
        const size_t at = frameOf(bar, step);
        const int chord = m_style.progression[size_t(bar) % 4];
        const auto loudness = [step](std::string_view pattern) {
            const char c = pattern[size_t(step)];
            return c == '.' ? 0.0 : c == 'o' ? 0.45 : 1.0;
        };
        if (const double level = loudness(m_style.kick); level > 0) {
            kick(at, level);
            m_kicks.push_back(at);
        }
        if (const double level = loudness(m_style.snare); level > 0)
            snare(at, level);
        if (const double level = loudness(m_style.hat); level > 0)
            hat(at, level, step % 4 == 2 ? 0.11 : 0.035);
        if (const char degree = m_style.bass[size_t(step)]; degree != '.')
            bassNote(at, frequency(chord + degree - '1', 24), m_recipe.style == LoopStyle::Ambient ? 1.8 : 0.19);
        if (m_style.chords[size_t(step)] != '.') {
            const size_t next = m_style.chords.find('x', size_t(step) + 1);
            const size_t length = (next == std::string_view::npos ? 16 : next) - size_t(step);
            for (int note = 0; note < 4; ++note)
                padNote(at, frequency(chord + note * 2, 48), double(length) * 15 / m_recipe.bpm, note * 0.5 - 0.75);
        }
        // A melody that leaves out and moves some of its notes, by the seed.
        if (const char degree = m_style.lead[size_t(step)]; degree != '.' && m_noise.next() % 4 != 0)
            pluck(at, frequency(chord + degree - '1' + (m_noise.next() % 5 == 0 ? 7 : 0), 60), bar % 2 ? 0.4 : -0.4);
    }

    void kick(size_t at, double level)
    {
        double phase = 0;
        for (size_t i = 0; i < size_t(0.32 * m_rate); ++i) {
            const double t = double(i) / m_rate;
            phase += (46 + 170 * std::exp(-t / 0.022)) / m_rate;
            drums.add(at + i, level * 0.95 * std::exp(-t / 0.11) * std::sin(2 * pi * phase));
        }
    }

    void snare(size_t at, double level)
    {
        Filter filter(1900, 0.35, m_rate);
        for (size_t i = 0; i < size_t(0.22 * m_rate); ++i) {
            const double t = double(i) / m_rate;
            const double body = 0.3 * std::exp(-t / 0.05) * std::sin(2 * pi * 188 * t);
            // The three quick bursts of hands that do not clap quite together.
            const double bursts = t < 0.024 ? std::exp(-std::fmod(t, 0.008) / 0.004) : std::exp(-(t - 0.024) / 0.07);
            drums.add(at + i, level * (body + 0.75 * bursts * filter.band(m_noise.sample())));
        }
    }

    void hat(size_t at, double level, double decay)
    {
        Filter filter(7800, 0.2, m_rate);
        for (size_t i = 0; i < size_t(decay * 5 * m_rate); ++i)
            drums.add(
                at + i, level * 0.22 * std::exp(-double(i) / m_rate / decay) * filter.high(m_noise.sample()), 0.25);
    }

    void bassNote(size_t at, double hertz, double seconds)
    {
        Saw saw(hertz, m_rate, 0);
        Filter filter(hertz * 6, 0.55, m_rate);
        for (size_t i = 0; i < size_t((seconds + 0.06) * m_rate); ++i) {
            const double t = double(i) / m_rate;
            const double gate = std::min(t / 0.004, 1.0) * (t < seconds ? 1 : std::max(0.0, 1 - (t - seconds) / 0.06));
            const double tone = 0.5 * filter.low(saw.next()) + 0.5 * std::sin(2 * pi * hertz * t);
            bass.add(at + i, 0.55 * gate * std::exp(-t / (seconds * 2.5)) * std::tanh(1.6 * tone));
        }
    }

    void padNote(size_t at, double hertz, double seconds, double pan)
    {
        Saw one(hertz * 0.9965, m_rate, 0.1), two(hertz * 1.0035, m_rate, 0.6);
        Filter filter(m_style.brightness, 0.25, m_rate);
        const double attack = std::min(0.15, seconds * 0.2), release = 0.2;
        for (size_t i = 0; i < size_t((seconds + release) * m_rate); ++i) {
            const double t = double(i) / m_rate;
            const double gate
                = std::min(t / attack, 1.0) * (t < seconds ? 1 : std::max(0.0, 1 - (t - seconds) / release));
            chords.add(at + i, 0.085 * gate * filter.low(one.next() + two.next()), pan);
        }
    }

    void pluck(size_t at, double hertz, double pan)
    {
        for (size_t i = 0; i < size_t(0.5 * m_rate); ++i) {
            const double t = double(i) / m_rate;
            const double bell = std::sin(2 * pi * hertz * t + 2.2 * std::exp(-t / 0.05) * std::sin(4 * pi * hertz * t));
            lead.add(at + i, 0.2 * std::min(t / 0.003, 1.0) * std::exp(-t / 0.13) * bell, pan);
        }
    }

    void duck(Part &part, double depth) const
    {
        std::vector<float> gain(m_frames, 1.0F);
        for (const size_t kickAt : m_kicks) {
            for (size_t i = 0; i < size_t(0.4 * m_rate); ++i) {
                float &g = gain[(kickAt + i) % m_frames];
                g = std::min(g, float(1 - depth * std::exp(-double(i) / m_rate / 0.11)));
            }
        }
        for (size_t i = 0; i < m_frames; ++i) {
            part.left[i] *= gain[i];
            part.right[i] *= gain[i];
        }
    }

    /// A dotted eighth from side to side. Two rounds, so that the loop's end is heard at its beginning.
    void echo(Part &part, double level) const
    {
        const size_t delay = size_t(45 / m_recipe.bpm * m_rate) % m_frames;
        const Part dry = part;
        for (size_t i = 0; i < 2 * m_frames; ++i) {
            const size_t now = i % m_frames, before = (i + m_frames - delay) % m_frames;
            const float left = part.left[before];
            part.left[now] = dry.left[now] + float(level * 0.8) * part.right[before];
            part.right[now] = dry.right[now] + float(level * 0.8) * left;
        }
    }

    const LoopRecipe m_recipe;
    const Style &m_style;
    const int m_rate;
    const int m_bars;
    const size_t m_frames;
    Noise m_noise;
    std::vector<size_t> m_kicks;

public:
    Part drums, bass, chords, lead;
};

} // namespace

double loopSeconds(const LoopRecipe &recipe)
{
    const double bar = 240 / recipe.bpm;
    return bar * (std::abs(2 * bar - 5) <= std::abs(4 * bar - 5) ? 2 : 4);
}

AudioBuffer renderLoop(const LoopRecipe &recipe, int sampleRate)
{
    Loop loop(recipe, sampleRate);
    AudioBuffer mix { sampleRate, { loop.drums.left, loop.drums.right } };
    for (size_t i = 0; i < mix.frames(); ++i) {
        // A soft ceiling glues the parts together and keeps the kick from setting the level alone.
        mix.channels[0][i]
            = std::tanh(1.1F * (mix.channels[0][i] + loop.bass.left[i] + loop.chords.left[i] + loop.lead.left[i]));
        mix.channels[1][i]
            = std::tanh(1.1F * (mix.channels[1][i] + loop.bass.right[i] + loop.chords.right[i] + loop.lead.right[i]));
    }
    loop.normalise({ &mix.channels[0], &mix.channels[1] }, 0.891);
    return mix;
}

AudioBuffer renderStems(const LoopRecipe &recipe, int sampleRate)
{
    Loop loop(recipe, sampleRate);
    AudioBuffer stems { sampleRate, {} };
    for (Part *part : { &loop.drums, &loop.bass, &loop.chords, &loop.lead }) {
        stems.channels.push_back(std::move(part->left));
        stems.channels.push_back(std::move(part->right));
    }
    auto &c = stems.channels;
    loop.normalise({ &c[0], &c[1], &c[2], &c[3], &c[4], &c[5], &c[6], &c[7] }, 0.7);
    return stems;
}
