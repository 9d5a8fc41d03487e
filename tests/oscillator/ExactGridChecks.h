// What a correct oscillator guarantees on the real clock whatever the
// machine does: asserted on every tick of every run.
//
// Every tick comes at or after its grid point, and each grid point gives at
// most one tick. A tick's grid point lies after the previous tick (the loop
// measures the clock after the callback and sleeps to the next grid point),
// so between two consecutive ticks there is always a grid point. A catch-up
// burst delivers ticks with no grid point between them.
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <vector>

#include "GridOrigin.h"

namespace oscillator_test {

/// The i-th tick (from 1) comes at origin + i x period at the earliest.
inline void expectNoEarlyTick(const std::vector<int64_t>& ticks, const GridOrigin& origin, int64_t period) {
    for (size_t i = 0; i < ticks.size(); ++i) {
        const int64_t dueAtTheEarliest = origin.earliest + static_cast<int64_t>(i + 1) * period;
        ASSERT_GE(ticks[i], dueAtTheEarliest)
            << "tick " << i + 1 << " came " << (dueAtTheEarliest - ticks[i]) << " ns before its grid point";
    }
}

/// True when some grid point, wherever in the bracket the origin lies, falls
/// in (after, until].
inline bool gridPointBetween(int64_t after, int64_t until, const GridOrigin& origin, int64_t period) {
    if (until < origin.earliest) {
        return false;
    }
    // The last grid point at or before `until` for the earliest origin...
    const int64_t k = (until - origin.earliest) / period;
    // ...is the latest one whose band [earliest, latest] + k x period can
    // still reach past `after`.
    return origin.latest + k * period > after;
}

/// Between every two consecutive ticks lies a grid point: no burst, at most
/// one tick per grid point.
inline void expectAGridPointBetweenConsecutiveTicks(const std::vector<int64_t>& ticks, const GridOrigin& origin,
                                                    int64_t period) {
    for (size_t i = 1; i < ticks.size(); ++i) {
        ASSERT_TRUE(gridPointBetween(ticks[i - 1], ticks[i], origin, period))
            << "ticks " << i << " and " << i + 1 << " come " << ticks[i] - ticks[i - 1]
            << " ns apart with no grid point between them";
    }
}

/// No more ticks than grid points passed between the start and `afterStop`.
inline void expectNoMoreTicksThanGridPoints(size_t ticks, const GridOrigin& origin, int64_t afterStop, int64_t period) {
    EXPECT_LE(static_cast<int64_t>(ticks), (afterStop - origin.earliest) / period);
}

/// All three, for one run of the oscillator.
inline void expectExactGridProperties(const std::vector<int64_t>& ticks, const GridOrigin& origin, int64_t afterStop,
                                      int64_t period) {
    expectNoEarlyTick(ticks, origin, period);
    expectAGridPointBetweenConsecutiveTicks(ticks, origin, period);
    expectNoMoreTicksThanGridPoints(ticks.size(), origin, afterStop, period);
}

}  // namespace oscillator_test
