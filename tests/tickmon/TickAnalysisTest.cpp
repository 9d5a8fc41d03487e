#include "TickAnalysis.h"

#include <gtest/gtest.h>

#include "LiveStatus.h"
#include "SyntheticTicks.h"

namespace tickmon {
namespace {

using synthetic::kOriginNs;
using synthetic::kPeriodNs;

const PublishedGrid kGrid{kOriginNs, kPeriodNs, 3};

/// Ticks on points 1..count, tick on point k late by latencyOf(k).
template <typename LatencyOf>
std::vector<int64_t> fromPointOne(int64_t count, LatencyOf latencyOf) {
    auto ticks = synthetic::consecutive(count, [&](int64_t i) { return latencyOf(i + 1); });
    for (synthetic::Tick& tick : ticks) {
        tick.gridIndex += 1;
    }
    return synthetic::timestamps(ticks);
}

TEST(TickAnalysis, PeriodStatisticsOfKnownTimestamps) {
    // Latencies 0, 2, 0, 2, ... us: periods alternate 6002 and 5998 us.
    const TickAnalysis analysis =
        analyzeTicks(fromPointOne(101, [](int64_t k) -> int64_t { return k % 2 == 0 ? 2000 : 0; }), kGrid);
    EXPECT_EQ(analysis.period.count, 100u);
    EXPECT_DOUBLE_EQ(analysis.period.min, 5998000.0);
    EXPECT_DOUBLE_EQ(analysis.period.max, 6002000.0);
    EXPECT_DOUBLE_EQ(analysis.period.mean, 6000000.0);
    EXPECT_DOUBLE_EQ(analysis.period.stddev, 2000.0);
    EXPECT_EQ(analysis.periodNs, kPeriodNs);
}

TEST(TickAnalysis, LatencySummaryIsMeasuredFromEachGridPoint) {
    // Latencies 5 + (k x 7 mod 1000) us: 5 to 1004 us after their grid points.
    const TickAnalysis analysis =
        analyzeTicks(fromPointOne(1000, [](int64_t k) -> int64_t { return 5000 + (k * 7 % 1000) * 1000; }), kGrid);
    EXPECT_EQ(analysis.latency.count, 1000u);
    EXPECT_EQ(analysis.latency.min, 5000);
    EXPECT_DOUBLE_EQ(analysis.latency.mean, 504500.0);
    EXPECT_EQ(analysis.latency.p50, 504000);
    EXPECT_EQ(analysis.latency.p99, 994000);
    EXPECT_EQ(analysis.latency.p999, 1003000);
    EXPECT_EQ(analysis.latency.max, 1004000);
    ASSERT_EQ(analysis.latenciesNs.size(), 1000u);
    EXPECT_EQ(analysis.latenciesNs[1], 5000 + 14000);
}

TEST(TickAnalysis, CountsGridPointsWithoutATickFromPointOne) {
    const std::vector<int64_t> timestamps =
        synthetic::timestamps({{1, 1000}, {2, 1200}, {3, 1000}, {6, 1100}, {7, 1000}, {10, 1000}});
    const TickAnalysis analysis = analyzeTicks(timestamps, kGrid);
    EXPECT_EQ(analysis.recordedTicks, 6u);
    EXPECT_EQ(analysis.expectedTicks, 10u);
    EXPECT_EQ(analysis.missedTicks, 4u);
    EXPECT_TRUE(gridSelfTestPassed(analysis));
}

TEST(TickAnalysis, AnEarlyTickOrASharedGridPointFailsTheGridSelfTest) {
    const TickAnalysis early = analyzeTicks(synthetic::timestamps({{0, 3000}, {1, 1000}}), kGrid);
    EXPECT_EQ(early.ticksBeforeTheirGridPoint, 1u);
    EXPECT_FALSE(gridSelfTestPassed(early));

    const TickAnalysis shared = analyzeTicks(synthetic::timestamps({{1, 1000}, {1, 5000000}, {2, 1000}}), kGrid);
    EXPECT_EQ(shared.ticksOnAGridPointAlreadyTicked, 1u);
    EXPECT_FALSE(gridSelfTestPassed(shared));
}

TEST(TickAnalysis, FinalStatusLineShowsTheReportsFigures) {
    const TickAnalysis analysis =
        analyzeTicks(synthetic::timestamps({{1, 13400}, {2, 25900}, {4, 14000}, {5, 100000}}), kGrid);
    const StatusFigures figures = statusFigures(analysis.tally, 0, 0);
    EXPECT_EQ(figures.ticks, analysis.recordedTicks);
    EXPECT_EQ(figures.missed, analysis.missedTicks);
    EXPECT_EQ(figures.latency.minUs, static_cast<uint64_t>(analysis.latency.min / 1000));
    EXPECT_EQ(figures.latency.avgUs, static_cast<uint64_t>(analysis.latency.mean / 1000));
    EXPECT_EQ(figures.latency.maxUs, static_cast<uint64_t>(analysis.latency.max / 1000));
    EXPECT_EQ(figures.missed, 1u);
    EXPECT_EQ(figures.latency.minUs, 13u);
}

TEST(TickAnalysis, NoTimestampsGiveAnEmptyAnalysis) {
    const TickAnalysis analysis = analyzeTicks({}, kGrid);
    EXPECT_EQ(analysis.recordedTicks, 0u);
    EXPECT_EQ(analysis.expectedTicks, 0u);
    EXPECT_EQ(analysis.latency.count, 0u);
    EXPECT_EQ(analysis.period.count, 0u);
    EXPECT_EQ(analysis.grid.generation, 3u);
}

}  // namespace
}  // namespace tickmon
