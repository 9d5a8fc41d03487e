// Reading recorded tick instants against the oscillator's grid.
//
// The grid is start + k x period, where start is the instant the oscillator
// thread read the clock. A test cannot see that instant, but it can bracket
// it: it lies after the call of start() and before the thread's starting line
// shows up in the trace. Phases measured from the bracket's beginning are
// then the tick's lateness plus at most the bracket's width.
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

/// The share of values at or below `bound`, in [0, 1].
inline double shareAtMost(const std::vector<int64_t>& values, int64_t bound) {
    if (values.empty()) {
        return 0.0;
    }
    const auto within = std::count_if(values.begin(), values.end(), [bound](int64_t v) { return v <= bound; });
    return static_cast<double>(within) / static_cast<double>(values.size());
}

/// The distance of two phases on the circle of one period.
inline int64_t circularDistance(int64_t phaseA, int64_t phaseB, int64_t period) {
    const int64_t d = phaseOf(phaseA, phaseB, period);
    return std::min(d, period - d);
}

/// Where most ticks lie on the circle of phases: the window of `width` that
/// holds the largest share of the ticks, given by its first phase.
struct PhaseCluster {
    int64_t firstPhase = 0;
    double share = 0.0;
};

inline PhaseCluster densestPhaseWindow(const std::vector<int64_t>& ticks, int64_t origin, int64_t period,
                                       int64_t width) {
    PhaseCluster best;
    if (ticks.empty()) {
        return best;
    }
    std::vector<int64_t> phases = latenesses(ticks, origin, period);
    std::sort(phases.begin(), phases.end());
    // Unroll the circle once so that windows may wrap past the period.
    const size_t n = phases.size();
    for (size_t i = 0; i < n; ++i) {
        phases.push_back(phases[i] + period);
    }
    size_t end = 0;
    for (size_t begin = 0; begin < n; ++begin) {
        end = std::max(end, begin);
        while (end < begin + n && phases[end] - phases[begin] <= width) {
            ++end;
        }
        const double share = static_cast<double>(end - begin) / static_cast<double>(n);
        if (share > best.share) {
            best.share = share;
            best.firstPhase = phases[begin];
        }
    }
    return best;
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
