#include "peer/hand_rules.h"

namespace {

template <int... N> void countRow(const hand::Row &row, hand::Counts &counts, std::integer_sequence<int, N...>)
{
    ((counts[N] += hand::fits<N>(row)), ...);
}

template <int N> void changeOne(const hand::Row &before, const hand::Row &after, hand::Counts &counts)
{
    if constexpr (hand::rules[N].hasBpm)
        counts[N] += int(hand::fits<N>(after)) - int(hand::fits<N>(before));
}

template <int... N>
void changeAll(const hand::Row &before, const hand::Row &after, hand::Counts &counts, std::integer_sequence<int, N...>)
{
    (changeOne<N>(before, after, counts), ...);
}

}

void hand::countAll(const Row *rows, size_t count, Counts &counts)
{
    for (size_t i = 0; i < count; ++i)
        countRow(rows[i], counts, std::make_integer_sequence<int, Rules> {});
}

void hand::change(const Row &before, const Row &after, Counts &counts)
{
    changeAll(before, after, counts, std::make_integer_sequence<int, Rules> {});
}
