#include "peer/hand_facets.h"

namespace hand {

namespace {

inline void count(const Piece &piece, const FacetSearch &search, FacetCounts &counts, int64_t by)
{
    int failed = -1;
    for (int facet = 0; facet < Facets; ++facet) {
        if (!search.isChosen[size_t(facet)] || search.included[size_t(facet)][piece.values[size_t(facet)]])
            continue;
        if (failed >= 0)
            return;
        failed = facet;
    }
    if (failed >= 0) {
        counts.gained[size_t(failed)][piece.values[size_t(failed)]] += by;
        return;
    }
    counts.total += by;
    for (size_t facet = 0; facet < Facets; ++facet) {
        counts.lost[facet][piece.values[facet]] += by;
        if (!search.isChosen[facet])
            counts.gained[facet][piece.values[facet]] += by;
    }
}

}

void countFacets(const Piece *pieces, size_t size, const FacetSearch &search, FacetCounts &counts)
{
    for (size_t i = 0; i < size; ++i)
        count(pieces[i], search, counts, 1);
}

void changeFacets(const Piece &before, const Piece &after, const FacetSearch &search, FacetCounts &counts)
{
    count(before, search, counts, -1);
    count(after, search, counts, 1);
}

}
