// Reading recorded tick instants against the oscillator's grid.
//
// The grid is start + k x period, where start is the instant the oscillator
// thread read the clock; GridOrigin.h brackets that instant. Phases measured
// from the bracket's beginning are the tick's lateness plus at most the
// bracket's width.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace oscillator_test {

/// (instant - origin) mod period, in [0, period).
inline int64_t phaseOf(int64_t instant, int64_t origin, int64_t period) {
    const int64_t phase = (instant - origin) % period;
    return phase < 0 ? phase + period : phase;
}

/// The phase of each tick relative to the grid through `origin`.
inline std::vector<int64_t> latenesses(const std::vector<int64_t>& ticks, int64_t origin, int64_t period) {
    std::vector<int64_t> late;
    late.reserve(ticks.size());
    for (int64_t tick : ticks) {
        late.push_back(phaseOf(tick, origin, period));
    }
    return late;
}

inline int64_t median(std::vector<int64_t> values) {
    if (values.empty()) {
        return 0;
    }
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

/// The value below which `percent` of `values` lie (the nearest rank).
inline int64_t percentile(std::vector<int64_t> values, int percent) {
    if (values.empty()) {
        return 0;
    }
    const size_t rank = std::min(values.size() - 1, values.size() * static_cast<size_t>(percent) / 100);
    const auto at = values.begin() + static_cast<std::ptrdiff_t>(rank);
    std::nth_element(values.begin(), at, values.end());
    return *at;
}

/// The first grid point strictly after `instant`.
inline int64_t nextGridPointAfter(int64_t instant, int64_t origin, int64_t period) {
    return instant + (period - phaseOf(instant, origin, period));
}

/// The ticks recorded at or after `from` and before `until`.
inline std::vector<int64_t> ticksBetween(const std::vector<int64_t>& ticks, int64_t from, int64_t until) {
    std::vector<int64_t> selected;
    for (int64_t tick : ticks) {
        if (tick >= from && tick < until) {
            selected.push_back(tick);
        }
    }
    return selected;
}

}  // namespace oscillator_test
