// The library's one unit of time: int64_t nanoseconds of CLOCK_MONOTONIC, for
// instants and durations alike, and the conversions to and from timespec.
#pragma once

#include <time.h>

#include <cstdint>

namespace zyn_ts {

constexpr int64_t kNsPerUs = 1000;
constexpr int64_t kNsPerMs = 1000000;
constexpr int64_t kNsPerSecond = 1000000000;

/// Nanoseconds of a CLOCK_MONOTONIC reading.
inline int64_t toNs(const timespec& instant) {
    return static_cast<int64_t>(instant.tv_sec) * kNsPerSecond + static_cast<int64_t>(instant.tv_nsec);
}

/// A duration of `ns` nanoseconds (not negative) as a timespec.
inline timespec toTimespec(int64_t ns) {
    timespec interval{};
    interval.tv_sec = static_cast<time_t>(ns / kNsPerSecond);
    interval.tv_nsec = static_cast<long>(ns % kNsPerSecond);
    return interval;
}

}  // namespace zyn_ts
