#pragma once

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <random>
#include <type_traits>

/// The random numbers of one test: prints its seed, and takes it from KX_TEST_SEED to run the same again.
class KXTestRandom
{
public:
    KXTestRandom()
    {
        const char *given = std::getenv("KX_TEST_SEED");
        m_seed = given ? std::strtoull(given, nullptr, 10) : std::random_device {}();
        m_engine.seed(m_seed);
        std::cout << "KX_TEST_SEED=" << m_seed << std::endl;
    }

    /// Both ends included.
    template <typename T> T between(T least, T most)
    {
        if constexpr (std::is_floating_point_v<T>)
            return std::uniform_real_distribution<T>(least, most)(m_engine);
        else
            return std::uniform_int_distribution<T>(least, most)(m_engine);
    }
    /// From 0 to count - 1.
    int below(int count) { return between(0, count - 1); }
    template <typename Container> const auto &oneOf(const Container &container)
    {
        return *(std::begin(container) + below(int(std::size(container))));
    }
    bool chance(double probability) { return between(0.0, 1.0) < probability; }
    std::mt19937_64 &engine() { return m_engine; }

    /// The rounds of a test that should run `rounds` times when there is time: scaled by KX_TEST_SCALE.
    static int scaled(int rounds)
    {
        const char *given = std::getenv("KX_TEST_SCALE");
        return std::max(1, int(rounds * (given ? std::strtod(given, nullptr) : 0.1)));
    }

private:
    unsigned long long m_seed;
    std::mt19937_64 m_engine;
};
