// Every figure the monitor derives from the probe's tick timestamps and the
// grid the scheduler published.
#pragma once

#include <cstdint>
#include <vector>

#include "GridTally.h"
#include "Statistics.h"

namespace tickmon {

/// Latency after the grid point each tick belongs to, nanoseconds.
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
    PublishedGrid grid;
    int64_t periodNs = 0;
    /// Distances between consecutive ticks (count is ticks - 1).
    SummaryStatistics period;
    LatencySummary latency;
    /// Ticks recorded by the probe.
    uint64_t recordedTicks = 0;
    /// Grid points from 1 (the first one a tick is due on) to the last
    /// tick's: the ticks a perfect source would have delivered.
    uint64_t expectedTicks = 0;
    /// Grid points in that range on which no tick came.
    uint64_t missedTicks = 0;
    /// Ticks before grid point 1 (self-test: must be 0).
    uint64_t ticksBeforeTheirGridPoint = 0;
    /// Ticks on a grid point that already had one (self-test: must be 0).
    uint64_t ticksOnAGridPointAlreadyTicked = 0;
    /// The tally of every tick: the figures of the final status line.
    GridTally tally;
    /// Per tick latency, in recording order (for histograms).
    std::vector<int64_t> latenciesNs;
};

/// Analyses non-decreasing timestamps of consecutive ticks on `grid`.
TickAnalysis analyzeTicks(const std::vector<int64_t>& timestamps, const PublishedGrid& grid);

/// True when no tick came before its grid point and no grid point got more
/// than one tick.
bool gridSelfTestPassed(const TickAnalysis& analysis);

/// The percentiles of the given latencies (any order); min, mean and max
/// come from the tally (the same figures as the live status line).
LatencySummary summarizeLatencies(std::vector<int64_t> latenciesNs, const GridTally& tally);

}  // namespace tickmon
