#include "TickAnalysis.h"

#include <gtest/gtest.h>

#include <cmath>

#include "SyntheticTicks.h"

namespace tickmon {
namespace {

using synthetic::kPeriodNs;

TEST(TickAnalysis, PeriodStatisticsOfKnownTimestamps) {
    // Latencies 0, 2, 0, 2, ... us: periods alternate 6002 and 5998 us.
    const auto ticks = synthetic::consecutive(101, [](int64_t i) -> int64_t { return i % 2 == 0 ? 0 : 2000; });
    const TickAnalysis analysis = analyzeTicks(synthetic::timestamps(ticks), kPeriodNs);
    EXPECT_EQ(analysis.period.count, 100u);
    EXPECT_DOUBLE_EQ(analysis.period.min, 5998000.0);
    EXPECT_DOUBLE_EQ(analysis.period.max, 6002000.0);
    EXPECT_DOUBLE_EQ(analysis.period.mean, 6000000.0);
    EXPECT_DOUBLE_EQ(analysis.period.stddev, 2000.0);
    EXPECT_EQ(analysis.periodNs, kPeriodNs);
}

TEST(TickAnalysis, LatencySummaryOfKnownTimestamps) {
    // Latencies 5 + (i mod 1000) us for 1000 ticks: after the earliest, 0..999 us.
    const auto ticks = synthetic::consecutive(1000, [](int64_t i) -> int64_t { return 5000 + (i * 7 % 1000) * 1000; });
    const TickAnalysis analysis = analyzeTicks(synthetic::timestamps(ticks), kPeriodNs);
    EXPECT_EQ(analysis.latency.count, 1000u);
    EXPECT_EQ(analysis.latency.min, 0);
    EXPECT_DOUBLE_EQ(analysis.latency.mean, 499500.0);
    EXPECT_EQ(analysis.latency.p50, 499000);
    EXPECT_EQ(analysis.latency.p99, 989000);
    EXPECT_EQ(analysis.latency.p999, 998000);
    EXPECT_EQ(analysis.latency.max, 999000);
    ASSERT_EQ(analysis.latenciesNs.size(), 1000u);
    EXPECT_EQ(analysis.latenciesNs[1], 7000);
}

TEST(TickAnalysis, CountsMissedGridPoints) {
    const std::vector<int64_t> timestamps =
        synthetic::timestamps({{0, 1000}, {1, 1200}, {2, 1000}, {5, 1100}, {6, 1000}, {9, 1000}});
    const TickAnalysis analysis = analyzeTicks(timestamps, kPeriodNs);
    EXPECT_EQ(analysis.recordedTicks, 6u);
    EXPECT_EQ(analysis.expectedTicks, 10u);
    EXPECT_EQ(analysis.missedTicks, 4u);
    EXPECT_LT(std::fabs(analysis.drift.ns), 1.0);
}

TEST(TickAnalysis, AnExactRunHasNothingMissedAndNoDrift) {
    const auto ticks = synthetic::consecutive(500, [](int64_t i) -> int64_t { return 4000 + (i % 3) * 100; });
    const TickAnalysis analysis = analyzeTicks(synthetic::timestamps(ticks), kPeriodNs);
    EXPECT_EQ(analysis.recordedTicks, 500u);
    EXPECT_EQ(analysis.expectedTicks, 500u);
    EXPECT_EQ(analysis.missedTicks, 0u);
    EXPECT_LT(std::fabs(analysis.drift.ns), 1.0);
    EXPECT_EQ(analysis.latency.max, 200);
}

TEST(TickAnalysis, NoTimestampsGiveAnEmptyAnalysis) {
    const TickAnalysis analysis = analyzeTicks({}, kPeriodNs);
    EXPECT_EQ(analysis.recordedTicks, 0u);
    EXPECT_EQ(analysis.expectedTicks, 0u);
    EXPECT_EQ(analysis.latency.count, 0u);
    EXPECT_EQ(analysis.period.count, 0u);
}

TEST(TickAnalysis, OneTimestampIsOneExpectedTick) {
    const TickAnalysis analysis = analyzeTicks({synthetic::kOriginNs}, kPeriodNs);
    EXPECT_EQ(analysis.recordedTicks, 1u);
    EXPECT_EQ(analysis.expectedTicks, 1u);
    EXPECT_EQ(analysis.missedTicks, 0u);
    EXPECT_EQ(analysis.latency.max, 0);
}

}  // namespace
}  // namespace tickmon
