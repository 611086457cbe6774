/// A search by facets over an array of plain structs, as somebody would write it by hand: which values each facet lets
/// in is a table, and one pass fills for each facet what a value would gain and what it would lose. The peer of the
/// benchmarks of what-if counts. Keeps one word a value and nothing about rows.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace hand {

inline constexpr int Facets = 12;
inline constexpr int Values = 40;

struct Piece
{
    std::array<uint32_t, Facets> values; ///< numbers from 0 to 39
};

/// What is asked for.
struct FacetSearch
{
    std::array<std::array<bool, Values>, Facets> included {};
    std::array<bool, Facets> isChosen {};
};

struct FacetCounts
{
    int64_t total = 0;
    std::array<std::array<int64_t, Values>, Facets> gained {}; ///< by a value that is added
    std::array<std::array<int64_t, Values>, Facets> lost {}; ///< by one that is excluded
};

void countFacets(const Piece *pieces, size_t size, const FacetSearch &search, FacetCounts &counts);
/// One piece was like this and is like that.
void changeFacets(const Piece &before, const Piece &after, const FacetSearch &search, FacetCounts &counts);

}
