// Where the oscillator's grid begins, as far as a test can tell: the one
// place that estimates it.
//
// The loop anchors its grid on a clock reading its thread takes right after
// start(). The test brackets that instant: it lies after the test read the
// clock before start(), and before the test saw the thread's starting line.
// The ticks narrow it further: the i-th tick (from 1) comes no earlier than
// origin + i x period, so the origin lies at or before tick_i - i x period.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace oscillator_test {

struct GridOrigin {
    int64_t earliest = 0;
    int64_t latest = 0;

    /// How vaguely the origin is known.
    int64_t width() const { return latest - earliest; }
};

inline GridOrigin bracketGridOrigin(int64_t beforeStart, int64_t startSeen, const std::vector<int64_t>& ticks,
                                    int64_t period) {
    GridOrigin origin{beforeStart, startSeen};
    for (size_t i = 0; i < ticks.size(); ++i) {
        origin.latest = std::min(origin.latest, ticks[i] - static_cast<int64_t>(i + 1) * period);
    }
    // Only a tick before its grid point (which the exact checks report) can
    // push the bound below the start; the bracket then stays a point.
    origin.latest = std::max(origin.latest, origin.earliest);
    return origin;
}

}  // namespace oscillator_test
