// Every figure the monitor derives from the probe's tick timestamps.
#pragma once

#include <cstdint>
#include <vector>

#include "GridAnalysis.h"
#include "Statistics.h"

namespace tickmon {

/// Latency after the grid, nanoseconds (see GridAnalysis.h for the phase).
struct LatencySummary {
    uint64_t count = 0;
    int64_t min = 0;
    double mean = 0.0;
    int64_t p50 = 0;
    int64_t p99 = 0;
    int64_t p999 = 0;
    int64_t max = 0;
};

struct TickAnalysis {
    int64_t periodNs = 0;
    /// Distances between consecutive ticks (count is ticks - 1).
    SummaryStatistics period;
    LatencySummary latency;
    /// Ticks recorded by the probe.
    uint64_t recordedTicks = 0;
    /// Grid points from the first recorded tick to the last, both included:
    /// the ticks a perfect source would have delivered in that time.
    uint64_t expectedTicks = 0;
    /// Grid points in that range on which no tick came.
    uint64_t missedTicks = 0;
    DriftEstimate drift;
    /// Per tick latency, in recording order (for histograms).
    std::vector<int64_t> latenciesNs;
};

/// Analyses non-decreasing timestamps of consecutive ticks of a source with
/// period `periodNs`.
TickAnalysis analyzeTicks(const std::vector<int64_t>& timestamps, int64_t periodNs);

/// Latency summary of the given values (any order).
LatencySummary summarizeLatencies(std::vector<int64_t> latenciesNs);

}  // namespace tickmon
