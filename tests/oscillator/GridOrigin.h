// Where the oscillator's grid begins.
//
// The loop anchors its grid on a clock reading its thread takes right after
// start(), and publishes that instant. A test also brackets it from outside:
// it lies after the test read the clock before start(), and before the test
// saw the thread's starting line; the i-th tick (from 1) comes no earlier than
// origin + i x period, so it also lies at or before tick_i - i x period. The
// published origin must fall inside that bracket, and then it is the origin
// the checks use: a single instant, known exactly.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "PublishedGrid.h"

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

/// The origin an oscillator's latest thread published into `grid`, as a
/// bracket of width 0, when it lies inside `bracket`; otherwise the bracket
/// itself, which the caller reports (the published origin is then wrong).
inline GridOrigin publishedGridOrigin(const zyn_ts::PublishedGrid& grid, const GridOrigin& bracket) {
    zyn_ts::GridSnapshot snapshot;
    const int64_t published = grid.read(snapshot) ? snapshot.originNs : 0;
    if (published < bracket.earliest || published > bracket.latest) {
        return bracket;
    }
    return GridOrigin{published, published};
}

}  // namespace oscillator_test
