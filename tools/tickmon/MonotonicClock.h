// CLOCK_MONOTONIC, the clock of the scheduler's grid, in nanoseconds.
#pragma once

#include <time.h>

#include <cstdint>

namespace tickmon {

inline int64_t monotonicNowNs() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int64_t>(now.tv_sec) * 1000000000LL + now.tv_nsec;
}

}  // namespace tickmon
