// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

// Attributes by which clang's -Wthread-safety checks that what a mutex guards is touched only
// with that mutex held; other compilers see nothing.
// https://clang.llvm.org/docs/ThreadSafetyAnalysis.html
#ifdef __clang__
#define THREAD_ANNOTATION(x) __attribute__((x))
#else
#define THREAD_ANNOTATION(x)
#endif

#define CAPABILITY(x) THREAD_ANNOTATION(capability(x))
#define SCOPED_CAPABILITY THREAD_ANNOTATION(scoped_lockable)
#define GUARDED_BY(x) THREAD_ANNOTATION(guarded_by(x))
#define REQUIRES(...) THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define EXCLUDES(...) THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
#define ACQUIRE(...) THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define RELEASE(...) THREAD_ANNOTATION(release_capability(__VA_ARGS__))
#define TRY_ACQUIRE(...) THREAD_ANNOTATION(try_acquire_capability(__VA_ARGS__))
#define ACQUIRED_BEFORE(...) THREAD_ANNOTATION(acquired_before(__VA_ARGS__))
#define ACQUIRED_AFTER(...) THREAD_ANNOTATION(acquired_after(__VA_ARGS__))
#define NO_THREAD_SAFETY_ANALYSIS THREAD_ANNOTATION(no_thread_safety_analysis)

namespace lnkd {

// std::mutex with the attributes that the standard library's lacks.
class CAPABILITY("mutex") Mutex : public std::mutex {
  public:
    void lock() ACQUIRE() { std::mutex::lock(); }
    void unlock() RELEASE() { std::mutex::unlock(); }
};

// Holds a mutex for the length of a scope.
template <typename AnyMutex>
class SCOPED_CAPABILITY MutexLock {
  public:
    explicit MutexLock(AnyMutex& mutex) ACQUIRE(mutex) : m_mutex(mutex) { m_mutex.lock(); }
    // Takes over one that the caller holds.
    MutexLock(AnyMutex& mutex, std::adopt_lock_t /*held*/) REQUIRES(mutex) : m_mutex(mutex) {}
    ~MutexLock() RELEASE() { m_mutex.unlock(); }
    MutexLock(const MutexLock&) = delete;
    MutexLock& operator=(const MutexLock&) = delete;

  private:
    AnyMutex& m_mutex;
};

// std::condition_variable for a Mutex. A wait may end for no reason, so it stands in a loop that
// looks at what it waits for: a predicate would hide that look from the analysis.
class CondVar {
  public:
    void notify_all() { m_condition.notify_all(); }
    void wait(Mutex& mutex) REQUIRES(mutex) {
        std::unique_lock<std::mutex> lock(mutex, std::adopt_lock);
        m_condition.wait(lock);
        lock.release();
    }
    // False when the time is over.
    bool waitUntil(Mutex& mutex, std::chrono::steady_clock::time_point deadline) REQUIRES(mutex) {
        std::unique_lock<std::mutex> lock(mutex, std::adopt_lock);
        const std::cv_status status = m_condition.wait_until(lock, deadline);
        lock.release();
        return status == std::cv_status::no_timeout;
    }

  private:
    std::condition_variable m_condition;
};

}  // namespace lnkd
