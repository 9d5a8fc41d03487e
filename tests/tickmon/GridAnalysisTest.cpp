#include "GridAnalysis.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "SyntheticTicks.h"

namespace tickmon {
namespace {

using synthetic::kOriginNs;
using synthetic::kPeriodNs;

TEST(GridAnalysis, PhaseIsTheStartOfTheClusterAfterTheWidestGap) {
    EXPECT_EQ(estimateGridPhase({100, 300, 200}, kPeriodNs), 100);
    // The cluster wraps round the end of the period.
    EXPECT_EQ(estimateGridPhase({5999000, 20, 5999500, 400}, kPeriodNs), 5999000);
    EXPECT_EQ(estimateGridPhase({}, kPeriodNs), 0);
    EXPECT_EQ(estimateGridPhase({777}, kPeriodNs), 777);
}

TEST(GridAnalysis, LatenciesAreMeasuredFromTheEarliestTick) {
    const std::vector<int64_t> late = {9000, 4000, 12000, 4000, 30000, 5000};
    const GridFit fit = fitGrid(
        synthetic::timestamps(synthetic::consecutive(6, [&](int64_t i) { return late[static_cast<size_t>(i)]; })),
        kPeriodNs);
    EXPECT_EQ(fit.latenciesNs, (std::vector<int64_t>{5000, 0, 8000, 0, 26000, 1000}));
    EXPECT_EQ(fit.gridIndices, (std::vector<int64_t>{0, 1, 2, 3, 4, 5}));
    EXPECT_EQ(fit.firstGridPointNs, kOriginNs + 4000);
}

TEST(GridAnalysis, ATickMoreThanHalfAPeriodLateKeepsThePhase) {
    // Tick 3 comes 4.5 ms late: nearest-grid rounding would take it for an
    // early tick of the next grid point.
    const GridFit fit =
        fitGrid(synthetic::timestamps({{0, 2000}, {1, 3000}, {2, 2500}, {3, 4502000}, {4, 2000}}), kPeriodNs);
    EXPECT_EQ(fit.latenciesNs, (std::vector<int64_t>{0, 1000, 500, 4500000, 0}));
    EXPECT_EQ(fit.gridIndices, (std::vector<int64_t>{0, 1, 2, 3, 4}));
}

TEST(GridAnalysis, ATickLateByMostOfAPeriodDoesNotPassForAnEarlyOne) {
    // Tick 50 comes 5.07 ms late: folded, it sits 0.93 ms before the others,
    // within the early allowance; the next tick 0.94 ms later gives it away.
    auto ticks = synthetic::consecutive(100, [](int64_t i) -> int64_t { return 10000 + (i % 5) * 1000; });
    ticks[50].latencyNs = 5070000;
    const GridFit fit = fitGrid(synthetic::timestamps(ticks), kPeriodNs);
    EXPECT_EQ(fit.latenciesNs[0], 0);
    EXPECT_EQ(fit.latenciesNs[50], 5060000);
    EXPECT_EQ(fit.latenciesNs[51], 1000);
    EXPECT_EQ(fit.gridIndices[50], 50);
}

TEST(GridAnalysis, KnownLateFromTheNextTick) {
    EXPECT_TRUE(isKnownLate(0, 940000, kPeriodNs));
    EXPECT_TRUE(isKnownLate(0, 4999999, kPeriodNs));
    EXPECT_FALSE(isKnownLate(0, 5000000, kPeriodNs));
    EXPECT_FALSE(isKnownLate(0, 6000000, kPeriodNs));
    EXPECT_FALSE(isKnownLate(0, 12000000, kPeriodNs));
}

TEST(GridAnalysis, ALoneEarlyTickBeforeADenseClusterSetsThePhase) {
    // One wake-up at 2 us, a thousand between 8 and 20 us: the lone one is
    // the best wake-up, not a tick almost a whole period late.
    auto ticks = synthetic::consecutive(1000, [](int64_t i) -> int64_t { return 8000 + (i * 37) % 12000; });
    ticks[500].latencyNs = 2000;
    const GridFit fit = fitGrid(synthetic::timestamps(ticks), kPeriodNs);
    EXPECT_EQ(fit.latenciesNs[500], 0);
    EXPECT_EQ(fit.latenciesNs[0], 6000);
    int64_t latest = 0;
    for (const synthetic::Tick& tick : ticks) {
        latest = std::max(latest, tick.latencyNs);
    }
    EXPECT_EQ(*std::max_element(fit.latenciesNs.begin(), fit.latenciesNs.end()), latest - 2000);
    EXPECT_EQ(fit.gridIndices[999], 999);
}

TEST(GridAnalysis, DensestMicrosecondLooksRoundTheCircle) {
    std::vector<uint64_t> bins(6000, 0);
    // Only the window centred on 5995 (5985 to 6005, i.e. 5) holds both.
    bins[5985] = 3;
    bins[5] = 3;
    bins[3000] = 5;
    EXPECT_EQ(densestMicrosecond(bins), 5995u);
    EXPECT_EQ(densestMicrosecond(std::vector<uint64_t>(6000, 0)), 0u);
    EXPECT_EQ(densestMicrosecond({}), 0u);
}

TEST(GridAnalysis, SkippedGridPointsShowInTheIndices) {
    const GridFit fit = fitGrid(synthetic::timestamps({{0, 1000}, {1, 1000}, {4, 1500}, {5, 1000}}), kPeriodNs);
    EXPECT_EQ(fit.gridIndices, (std::vector<int64_t>{0, 1, 4, 5}));
    EXPECT_EQ(fit.latenciesNs, (std::vector<int64_t>{0, 0, 500, 0}));
}

TEST(GridAnalysis, NoDriftOnAnExactGridWhateverTheLateTicks) {
    // Every 7th tick is 400 us late, every 13th 2 ms late.
    const auto ticks = synthetic::consecutive(2000, [](int64_t i) -> int64_t {
        return 3000 + (i % 7 == 0 ? 400000 : 0) + (i % 13 == 0 ? 2000000 : 0) + (i * 7919) % 1000;
    });
    const std::vector<int64_t> timestamps = synthetic::timestamps(ticks);
    const GridFit fit = fitGrid(timestamps, kPeriodNs);
    const DriftEstimate drift = estimateDrift(timestamps, fit.latenciesNs, kPeriodNs);
    EXPECT_LT(std::fabs(drift.ns), 1000.0);
    EXPECT_LT(std::fabs(drift.ticks), 0.001);
}

TEST(GridAnalysis, ASlowSourceShowsItsDrift) {
    // A source whose period is 6.006 ms against the 6 ms grid: 1000 ppm slow.
    std::vector<int64_t> timestamps;
    for (int64_t i = 0; i < 3000; ++i) {
        timestamps.push_back(kOriginNs + i * 6006000 + 2000);
    }
    const GridFit fit = fitGrid(timestamps, kPeriodNs);
    const DriftEstimate drift = estimateDrift(timestamps, fit.latenciesNs, kPeriodNs);
    const double span = static_cast<double>(timestamps.back() - timestamps.front());
    EXPECT_NEAR(drift.ppm, 1000.0 * 6000000.0 / 6006000.0 * 1.0, 1.0);
    EXPECT_NEAR(drift.ns, span * drift.ppm / 1e6, 1.0);
    EXPECT_NEAR(drift.ticks, drift.ns / 6e6, 1e-9);
    EXPECT_GT(drift.ticks, 2.9);
}

TEST(GridAnalysis, AFastSourceDriftsTheOtherWay) {
    std::vector<int64_t> timestamps;
    for (int64_t i = 0; i < 1000; ++i) {
        timestamps.push_back(kOriginNs + i * 5999000);
    }
    const GridFit fit = fitGrid(timestamps, kPeriodNs);
    const DriftEstimate drift = estimateDrift(timestamps, fit.latenciesNs, kPeriodNs);
    EXPECT_NEAR(drift.ns, -999000.0, 1.0);
}

TEST(GridAnalysis, DriftNeedsTwoTicks) {
    const DriftEstimate drift = estimateDrift({kOriginNs}, {0}, kPeriodNs);
    EXPECT_EQ(drift.ns, 0.0);
    EXPECT_EQ(drift.ppm, 0.0);
}

}  // namespace
}  // namespace tickmon
