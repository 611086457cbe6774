// Wrappers of the C library's functions, which this program's own definitions hide.

#include "RenderScope.h"

#include <cstdarg>

#include <dlfcn.h>
#include <linux/futex.h>
#include <pthread.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

namespace {

thread_local RenderScopeCounts *renderCounts = nullptr;

void renderCount(std::atomic<long> RenderScopeCounts::*what)
{
    if (renderCounts)
        ++(renderCounts->*what);
}

#if !KX_SANITIZED
template <typename Function> Function renderNext(Function, const char *name)
{
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}
#endif

}

RenderScope::RenderScope(RenderScopeCounts &counts) { renderCounts = &counts; }

RenderScope::~RenderScope() { renderCounts = nullptr; }

#if KX_SANITIZED

bool RenderScope::isAvailable() { return false; }

#else

bool RenderScope::isAvailable() { return true; }

#define RENDER_WRAP(what, result, name, parameters, arguments)                                                         \
    extern "C" __attribute__((visibility("default"))) result name parameters                                           \
    {                                                                                                                  \
        static const auto next = renderNext(&name, #name);                                                             \
        renderCount(&RenderScopeCounts::what);                                                                         \
        return next arguments;                                                                                         \
    }

extern "C" {
void *__libc_malloc(size_t);
void *__libc_calloc(size_t, size_t);
void *__libc_realloc(void *, size_t);
void *__libc_memalign(size_t, size_t);
void __libc_free(void *);

__attribute__((visibility("default"))) void *malloc(size_t size)
{
    renderCount(&RenderScopeCounts::allocations);
    return __libc_malloc(size);
}
__attribute__((visibility("default"))) void *calloc(size_t count, size_t size)
{
    renderCount(&RenderScopeCounts::allocations);
    return __libc_calloc(count, size);
}
__attribute__((visibility("default"))) void *realloc(void *memory, size_t size)
{
    renderCount(&RenderScopeCounts::allocations);
    return __libc_realloc(memory, size);
}
__attribute__((visibility("default"))) void *aligned_alloc(size_t alignment, size_t size)
{
    renderCount(&RenderScopeCounts::allocations);
    return __libc_memalign(alignment, size);
}
__attribute__((visibility("default"))) void free(void *memory)
{
    renderCount(&RenderScopeCounts::frees);
    __libc_free(memory);
}

/// The C++ library's way to futexes.
__attribute__((visibility("default"))) long syscall(long number, ...)
{
    static const auto next = renderNext(&syscall, "syscall");
    va_list list;
    va_start(list, number);
    long a[6];
    for (long &argument : a)
        argument = va_arg(list, long);
    va_end(list);
    const bool wakes = number == SYS_futex && (a[1] & FUTEX_CMD_MASK) == FUTEX_WAKE;
    renderCount(wakes ? &RenderScopeCounts::wakes : &RenderScopeCounts::systemCalls);
    return next(number, a[0], a[1], a[2], a[3], a[4], a[5]);
}
}

RENDER_WRAP(mutexes, int, pthread_mutex_lock, (pthread_mutex_t * mutex) noexcept, (mutex))
RENDER_WRAP(mutexes, int, pthread_mutex_trylock, (pthread_mutex_t * mutex) noexcept, (mutex))
RENDER_WRAP(mutexes, int, pthread_mutex_unlock, (pthread_mutex_t * mutex) noexcept, (mutex))
RENDER_WRAP(conditions, int, pthread_cond_signal, (pthread_cond_t * condition) noexcept, (condition))
RENDER_WRAP(conditions, int, pthread_cond_broadcast, (pthread_cond_t * condition) noexcept, (condition))
RENDER_WRAP(
    conditions, int, pthread_cond_wait, (pthread_cond_t * condition, pthread_mutex_t *mutex), (condition, mutex))
RENDER_WRAP(writes, ssize_t, write, (int file, const void *bytes, size_t count), (file, bytes, count))
RENDER_WRAP(systemCalls, ssize_t, read, (int file, void *bytes, size_t count), (file, bytes, count))
RENDER_WRAP(systemCalls, int, close, (int file), (file))
RENDER_WRAP(systemCalls, int, sched_yield, () noexcept, ())
RENDER_WRAP(systemCalls, int, nanosleep, (const timespec *time, timespec *left), (time, left))
RENDER_WRAP(systemCalls, int, munmap, (void *memory, size_t size) noexcept, (memory, size))
RENDER_WRAP(systemCalls, void *, mmap,
    (void *memory, size_t size, int protection, int flags, int file, off_t offset) noexcept,
    (memory, size, protection, flags, file, offset))

#endif
