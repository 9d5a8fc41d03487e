// A mutex that says what it guards, in a form Clang checks.
//
// `zyn_support::GuardedMutex` is a std::mutex with Clang's thread-safety
// capability attributes; `zyn_support::GuardedLock` is its scoped lock.
// Declare what a mutex guards with ZYN_GUARDED_BY(mutex) and a function that
// expects the caller to hold it with ZYN_REQUIRES(mutex): a Clang build with
// -Wthread-safety (the project's warnings switch it on) then rejects any
// access without the lock. GCC ignores the attributes; the code is the same.
//
// For mutexes whose type an interface fixes (a std::mutex handed out in a
// std::unique_lock), the attributes cannot be attached; those say what they
// guard in a comment.
#pragma once

#include <mutex>

#if defined(__clang__)
#define ZYN_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define ZYN_THREAD_ANNOTATION(x)
#endif

#define ZYN_CAPABILITY(name) ZYN_THREAD_ANNOTATION(capability(name))
#define ZYN_SCOPED_CAPABILITY ZYN_THREAD_ANNOTATION(scoped_lockable)
#define ZYN_GUARDED_BY(mutex) ZYN_THREAD_ANNOTATION(guarded_by(mutex))
#define ZYN_PT_GUARDED_BY(mutex) ZYN_THREAD_ANNOTATION(pt_guarded_by(mutex))
#define ZYN_REQUIRES(mutex) ZYN_THREAD_ANNOTATION(requires_capability(mutex))
#define ZYN_ACQUIRE(...) ZYN_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define ZYN_RELEASE(...) ZYN_THREAD_ANNOTATION(release_capability(__VA_ARGS__))

namespace zyn_support {

class ZYN_CAPABILITY("mutex") GuardedMutex {
public:
    constexpr GuardedMutex() noexcept = default;
    GuardedMutex(const GuardedMutex&) = delete;
    GuardedMutex& operator=(const GuardedMutex&) = delete;

    void lock() ZYN_ACQUIRE() { mutex.lock(); }
    void unlock() ZYN_RELEASE() { mutex.unlock(); }

private:
    std::mutex mutex;
};

/// Holds `mutex` from construction to the end of the scope.
class ZYN_SCOPED_CAPABILITY GuardedLock {
public:
    explicit GuardedLock(GuardedMutex& guarded) ZYN_ACQUIRE(guarded) : mutex(guarded) { mutex.lock(); }
    ~GuardedLock() ZYN_RELEASE() { mutex.unlock(); }
    GuardedLock(const GuardedLock&) = delete;
    GuardedLock& operator=(const GuardedLock&) = delete;

private:
    GuardedMutex& mutex;
};

}  // namespace zyn_support
