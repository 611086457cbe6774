#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

// What clang's thread analysis reads (-Wthread-safety): which lock guards a value, which a function needs. Other
// compilers see nothing of it.
#if defined(__clang__)
#define KX_THREAD_ATTRIBUTE(x) __attribute__((x))
#else
#define KX_THREAD_ATTRIBUTE(x)
#endif
/// Behind a member: touched only while the lock is held.
#define KX_GUARDED_BY(lock) KX_THREAD_ATTRIBUTE(guarded_by(lock))
/// Behind a function: called with the lock held.
#define KX_REQUIRES(...) KX_THREAD_ATTRIBUTE(requires_capability(__VA_ARGS__))
/// Behind a function: called without the lock, which it takes itself.
#define KX_EXCLUDES(...) KX_THREAD_ATTRIBUTE(locks_excluded(__VA_ARGS__))
/// Behind a function whose locking the analysis cannot follow; say why.
#define KX_NO_THREAD_ANALYSIS KX_THREAD_ATTRIBUTE(no_thread_safety_analysis)

/// A std::mutex that the thread analysis knows. Not recursive.
class KX_THREAD_ATTRIBUTE(capability("mutex")) KXMutex
{
public:
    KXMutex() = default;
    KXMutex(const KXMutex &) = delete;
    KXMutex &operator=(const KXMutex &) = delete;

    void lock() KX_THREAD_ATTRIBUTE(acquire_capability()) { m_mutex.lock(); }
    void unlock() KX_THREAD_ATTRIBUTE(release_capability()) { m_mutex.unlock(); }
    [[nodiscard]] bool try_lock() KX_THREAD_ATTRIBUTE(try_acquire_capability(true)) { return m_mutex.try_lock(); }

private:
    friend class KXMutexLocker;
    std::mutex m_mutex;
};

/// Holds a KXMutex until it goes out of scope; may let go of it and take it again meanwhile.
class KX_THREAD_ATTRIBUTE(scoped_lockable) KXMutexLocker
{
public:
    explicit KXMutexLocker(KXMutex &mutex) KX_THREAD_ATTRIBUTE(acquire_capability(mutex))
        : m_lock(mutex.m_mutex)
    {
    }
    ~KXMutexLocker() KX_THREAD_ATTRIBUTE(release_capability()) { }
    KXMutexLocker(const KXMutexLocker &) = delete;
    KXMutexLocker &operator=(const KXMutexLocker &) = delete;

    void lock() KX_THREAD_ATTRIBUTE(acquire_capability()) { m_lock.lock(); }
    void unlock() KX_THREAD_ATTRIBUTE(release_capability()) { m_lock.unlock(); }

    // The mutex is let go while waiting, and held again afterwards. To be called in a loop that looks at what is waited
    // for: a predicate would be a function of its own to the analysis, one that holds nothing.

    void wait(std::condition_variable &condition) { condition.wait(m_lock); }
    template <typename Clock, typename Duration>
    std::cv_status waitUntil(std::condition_variable &condition, const std::chrono::time_point<Clock, Duration> &time)
    {
        return condition.wait_until(m_lock, time);
    }

private:
    std::unique_lock<std::mutex> m_lock;
};
