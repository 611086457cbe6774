/// 500 rules over tracks, as somebody would compile them by hand: each with its bounds as constants, over an array of
/// plain structs in which genres are numbers from 0 to 15. The peer of the benchmarks of live counts, and the table
/// from which the same presets are made.
#pragma once

#include <array>
#include <cstdint>
#include <utility>

namespace hand {

inline constexpr int Rules = 500;
inline constexpr int Folders = 40;
inline constexpr int Genres = 16;
inline constexpr const char *genreNames[Genres] = { "House", "Deep House", "Tech House", "Techno", "Minimal", "Trance",
    "Drum & Bass", "Breaks", "Electro", "Ambient", "Dub", "Disco", "Hip-Hop", "Downtempo", "Hardcore", "Garage" };

struct Row
{
    double bpm, energy;
    int64_t year, rating, plays;
    uint32_t genre;
};

struct Rule
{
    bool hasBpm, hasYear, hasRating, hasPlays, hasEnergy;
    double bpmFrom, bpmTo, energyFrom;
    int64_t yearFrom, yearTo, ratingFrom, playsTo;
    uint32_t genres; ///< bits of those let in; 0: all
    uint32_t without; ///< bits of those kept out: one at most
};

constexpr std::array<Rule, Rules> rules = [] {
    std::array<Rule, Rules> made {};
    uint64_t state = 42;
    const auto number = [&state](uint32_t below) {
        state = state * 6364136223846793005u + 1442695040888963407u;
        return uint32_t(state >> 33) % below;
    };
    for (Rule &rule : made) {
        rule.hasBpm = number(10) < 7;
        rule.bpmFrom = 60 + number(110);
        rule.bpmTo = rule.bpmFrom + 2 + number(20);
        rule.hasYear = number(10) < 4;
        rule.yearFrom = 1970 + number(50);
        rule.yearTo = rule.yearFrom + 1 + number(15);
        rule.hasRating = number(10) < 3;
        rule.ratingFrom = 1 + number(4);
        rule.hasPlays = number(10) < 2;
        rule.playsTo = 20 + number(200);
        rule.hasEnergy = number(10) < 3;
        rule.energyFrom = number(90) / 128.0;
        if (number(10) < 6) {
            for (uint32_t count = 1 + number(12); count > 0; --count)
                rule.genres |= 1u << number(16);
        } else if (number(2) == 0) {
            rule.without = 1u << number(16);
        }
        if (!rule.hasBpm && !rule.hasYear && !rule.genres)
            rule.hasBpm = true;
    }
    return made;
}();

/// Whether rule N lets the row in.
template <int N> inline bool fits(const Row &row)
{
    constexpr Rule rule = rules[N];
    if constexpr (rule.hasBpm) {
        if (!(row.bpm >= rule.bpmFrom && row.bpm < rule.bpmTo))
            return false;
    }
    if constexpr (rule.hasYear) {
        if (!(row.year >= rule.yearFrom && row.year < rule.yearTo))
            return false;
    }
    if constexpr (rule.hasRating) {
        if (row.rating < rule.ratingFrom)
            return false;
    }
    if constexpr (rule.hasPlays) {
        if (row.plays > rule.playsTo)
            return false;
    }
    if constexpr (rule.hasEnergy) {
        if (row.energy < rule.energyFrom)
            return false;
    }
    if constexpr (rule.genres != 0) {
        if (!(rule.genres >> row.genre & 1))
            return false;
    }
    if constexpr (rule.without != 0) {
        if (rule.without >> row.genre & 1)
            return false;
    }
    return true;
}

using Counts = std::array<int64_t, Rules>;

/// All rules for all rows, in one loop.
void countAll(const Row *rows, size_t count, Counts &counts);
/// The rules that use the tempo, for one row before and after.
void change(const Row &before, const Row &after, Counts &counts);

}
