#pragma once

#include <algorithm>
#include <atomic>
#include <thread>
#include <vector>

/// Calls work(0) to work(count - 1), each once, on as many threads as the machine has cores, and returns when
/// all are done. work must not throw.
template <class Work> void forEachInParallel(size_t count, const Work &work)
{
    std::atomic<size_t> next = 0;
    const auto run = [&] {
        for (size_t i; (i = next++) < count;)
            work(i);
    };
    std::vector<std::thread> others;
    const size_t threads = std::min<size_t>(count, std::max(1U, std::thread::hardware_concurrency()));
    for (size_t i = 1; i < threads; ++i)
        others.emplace_back(run);
    run();
    for (std::thread &other : others)
        other.join();
}
