#pragma once

#include <atomic>

/// Counts what a render pass must not do: while a RenderScope lives, the calls of its thread into the allocator, the
/// locks, the file functions and the kernel are counted by wrappers of the C library's functions.
struct RenderScopeCounts
{
    std::atomic<long> allocations = 0, frees = 0, mutexes = 0, conditions = 0, writes = 0, systemCalls = 0;
    std::atomic<long> wakes = 0; ///< futex wake-ups, which are allowed
    [[nodiscard]] long forbidden() const { return allocations + frees + mutexes + conditions + writes + systemCalls; }
};

class RenderScope
{
public:
    /// False where a sanitizer has wrapped the functions already.
    static bool isAvailable();
    explicit RenderScope(RenderScopeCounts &counts);
    ~RenderScope();
};
