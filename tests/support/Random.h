#pragma once

#include <algorithm>
#include <cstdio>
#include <random>

#include <QtGlobal>

/// What random tests draw from. Prints its seed; KX_TEST_SEED repeats a run, KX_TEST_SCALE (0.1 by default) scales the
/// number of rounds.
class Random
{
public:
    Random()
    {
        bool given = false;
        quint64 seed = qgetenv("KX_TEST_SEED").toULongLong(&given);
        if (!given)
            seed = std::random_device()();
        std::printf("KX_TEST_SEED=%llu\n", static_cast<unsigned long long>(seed));
        m_engine.seed(seed);
    }

    [[nodiscard]] static int rounds(int full)
    {
        bool given = false;
        const double scale = qgetenv("KX_TEST_SCALE").toDouble(&given);
        return std::max(1, int(full * (given ? scale : 0.1)));
    }

    /// From 0 to count - 1.
    [[nodiscard]] int below(int count) { return std::uniform_int_distribution<int>(0, count - 1)(m_engine); }
    [[nodiscard]] bool chance(double probability) { return std::bernoulli_distribution(probability)(m_engine); }
    [[nodiscard]] double real(double from, double to) { return std::uniform_real_distribution<double>(from, to)(m_engine); }
    template<typename Container> [[nodiscard]] const auto &oneOf(const Container &container) { return *(std::begin(container) + below(int(std::size(container)))); }

private:
    std::mt19937_64 m_engine;
};
