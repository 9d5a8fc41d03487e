#include "LiveStatus.h"

#include <gtest/gtest.h>

#include "SyntheticTicks.h"

namespace tickmon {
namespace {

using synthetic::kPeriodNs;

TEST(LiveStatus, LatencyFiguresMatchTheExactOnesInWholeMicroseconds) {
    LiveLatency live(kPeriodNs);
    // After the earliest tick (3 us): 0, 10, 20 and 40 us.
    for (const int64_t t : synthetic::timestamps({{0, 13000}, {1, 3000}, {2, 23000}, {3, 43000}, {4, 3500}})) {
        live.add(t);
    }
    const LiveLatency::Figures figures = live.latency();
    EXPECT_EQ(figures.minUs, 0u);
    EXPECT_EQ(figures.maxUs, 40u);
    EXPECT_EQ(figures.avgUs, (10u + 0 + 20 + 40 + 0) / 5);
    EXPECT_EQ(live.ticks(), 5u);
}

TEST(LiveStatus, PhaseSurvivesAClusterAcrossThePeriodEnd) {
    LiveLatency live(kPeriodNs);
    // The first tick is 5 us late, the others 1 us early relative to it.
    for (const int64_t t : synthetic::timestamps({{0, 5000}, {1, 4000}, {2, 4000}, {3, 6000}})) {
        live.add(t);
    }
    EXPECT_EQ(live.latency().maxUs, 2u);
    EXPECT_EQ(live.latency().minUs, 0u);
}

TEST(LiveStatus, ATickLateByMostOfAPeriodDoesNotPassForAnEarlyOne) {
    LiveLatency live(kPeriodNs);
    auto ticks = synthetic::consecutive(50, [](int64_t i) -> int64_t { return 10000 + (i % 3) * 1000; });
    ticks[20].latencyNs = 5070000;
    for (const int64_t t : synthetic::timestamps(ticks)) {
        live.add(t);
    }
    EXPECT_EQ(live.latency().minUs, 0u);
    EXPECT_EQ(live.latency().maxUs, 5060u);
}

TEST(LiveStatus, CountsGridPointsWithoutATick) {
    LiveLatency live(kPeriodNs);
    for (const int64_t t : synthetic::timestamps({{0, 1000}, {1, 1000}, {4, 2000}, {5, 1000}, {7, 1000}})) {
        live.add(t);
    }
    EXPECT_EQ(live.missed(), 3u);
}

TEST(LiveStatus, NothingYetGivesZeroes) {
    const LiveLatency live(kPeriodNs);
    EXPECT_EQ(live.ticks(), 0u);
    EXPECT_EQ(live.latency().maxUs, 0u);
}

TEST(LiveStatus, StatusLineShowsProgressLatencyAndMissedTicks) {
    EXPECT_EQ(formatStatusLine(StatusFigures{834, 5000000000, 10000000000, {0, 3, 25}, 1}),
              "ticks 834  5.0 s / 10.0 s  latency min 0 avg 3 max 25 us  missed 1");
    EXPECT_EQ(formatStatusLine(StatusFigures{10, 60000000, 0, {1, 2, 3}, 0}),
              "ticks 10  0.1 s / until Ctrl-C  latency min 1 avg 2 max 3 us  missed 0");
}

}  // namespace
}  // namespace tickmon
