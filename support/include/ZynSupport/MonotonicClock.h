// CLOCK_MONOTONIC, the clock the scheduler keeps its grid on, in nanoseconds:
// the one clock helper of the library, the tools, the soak, the demo, the
// benchmarks and the tests.
#pragma once

#include <time.h>

#include <cstdint>

namespace zyn_support {

constexpr int64_t kNanosecondsPerMicrosecond = 1000;
constexpr int64_t kNanosecondsPerMillisecond = 1000000;
constexpr int64_t kNanosecondsPerSecond = 1000000000;

/// A timespec as nanoseconds.
constexpr int64_t toNanoseconds(const timespec& instant) {
    return static_cast<int64_t>(instant.tv_sec) * kNanosecondsPerSecond + instant.tv_nsec;
}

/// Nanoseconds (not negative) as a timespec.
inline timespec toTimespec(int64_t nanoseconds) {
    timespec instant{};
    instant.tv_sec = static_cast<time_t>(nanoseconds / kNanosecondsPerSecond);
    instant.tv_nsec = static_cast<long>(nanoseconds % kNanosecondsPerSecond);
    return instant;
}

/// The current CLOCK_MONOTONIC instant in nanoseconds.
inline int64_t monotonicNowNs() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return toNanoseconds(now);
}

/// Sleeps until the CLOCK_MONOTONIC instant `deadlineNs`; a signal does not
/// cut the sleep short.
inline void sleepUntilNs(int64_t deadlineNs) {
    const timespec until = toTimespec(deadlineNs);
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr) != 0) {}
}

/// Sleeps for `nanoseconds` on CLOCK_MONOTONIC.
inline void sleepForNs(int64_t nanoseconds) { sleepUntilNs(monotonicNowNs() + nanoseconds); }

/// Keeps the CPU busy until `deadlineNs`: work that really takes its time.
inline void spinUntilNs(int64_t deadlineNs) {
    while (monotonicNowNs() < deadlineNs) {}
}

}  // namespace zyn_support
