// Monotonic-clock helpers for the oscillator tests: instants as nanoseconds.
#pragma once

#include <cstdint>
#include <ctime>

namespace oscillator_test {

constexpr int64_t kNanosecondsPerMillisecond = 1000000;
constexpr int64_t kNanosecondsPerSecond = 1000000000;

/// The current CLOCK_MONOTONIC instant in nanoseconds, the clock the
/// oscillator keeps its grid on.
inline int64_t monotonicNow() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int64_t>(now.tv_sec) * kNanosecondsPerSecond + now.tv_nsec;
}

/// Sleeps until the CLOCK_MONOTONIC instant `deadline` (nanoseconds).
inline void sleepUntil(int64_t deadline) {
    timespec until{};
    until.tv_sec = static_cast<time_t>(deadline / kNanosecondsPerSecond);
    until.tv_nsec = static_cast<long>(deadline % kNanosecondsPerSecond);
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr) != 0) {}
}

inline void sleepFor(int64_t nanoseconds) { sleepUntil(monotonicNow() + nanoseconds); }

/// Keeps the CPU busy until `deadline`: a tick callback that really takes
/// its time, as a long handler would.
inline void spinUntil(int64_t deadline) {
    while (monotonicNow() < deadline) {}
}

}  // namespace oscillator_test
