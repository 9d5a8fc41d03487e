#include "GridTally.h"

#include <gtest/gtest.h>

#include "SyntheticTicks.h"

namespace tickmon {
namespace {

using synthetic::kOriginNs;
using synthetic::kPeriodNs;

PublishedGrid sixMsGrid() { return PublishedGrid{kOriginNs, kPeriodNs, 1}; }

GridTally tallyOf(const std::vector<synthetic::Tick>& ticks) {
    GridTally tally(sixMsGrid());
    for (const int64_t t : synthetic::timestamps(ticks)) {
        tally.add(t);
    }
    return tally;
}

TEST(GridTally, TickBelongsToTheLastGridPointAtOrBeforeIt) {
    const GridTally tally(sixMsGrid());
    EXPECT_EQ(tally.gridPointOf(kOriginNs), 0);
    EXPECT_EQ(tally.gridPointOf(kOriginNs + kPeriodNs - 1), 0);
    EXPECT_EQ(tally.gridPointOf(kOriginNs + kPeriodNs), 1);
    EXPECT_EQ(tally.gridPointOf(kOriginNs + 7 * kPeriodNs + 12345), 7);
    EXPECT_EQ(tally.gridPointOf(kOriginNs - 1), -1) << "before the origin is before grid point 0";
}

TEST(GridTally, LatencyIsMeasuredFromTheDueInstantNotFromTheBestTick) {
    // Every tick at least 13 us late: the minimum is 13 us, not 0.
    const GridTally tally = tallyOf({{1, 13000}, {2, 20000}, {3, 13500}, {4, 40000}});
    EXPECT_EQ(tally.minLatencyNs(), 13000);
    EXPECT_EQ(tally.maxLatencyNs(), 40000);
    EXPECT_DOUBLE_EQ(tally.meanLatencyNs(), (13000 + 20000 + 13500 + 40000) / 4.0);
    EXPECT_EQ(latencyAfterGridPoint(tally, kOriginNs + 9 * kPeriodNs + 777), 777);
}

TEST(GridTally, MissedCountsGridPointsFromOneWithoutATick) {
    // Points 1, 2, 5, 6, 9 ticked: 3, 4, 7 and 8 missed.
    const GridTally tally = tallyOf({{1, 1000}, {2, 1000}, {5, 2000}, {6, 1000}, {9, 1000}});
    EXPECT_EQ(tally.ticks(), 5u);
    EXPECT_EQ(tally.lastGridPoint(), 9);
    EXPECT_EQ(tally.missed(), 4u);
    EXPECT_TRUE(tally.everyTickOnAGridPointOfItsOwn());
}

TEST(GridTally, ALateFirstTickLeavesTheGridPointsBeforeItMissed) {
    const GridTally tally = tallyOf({{3, 1000}, {4, 1000}});
    EXPECT_EQ(tally.missed(), 2u);
}

TEST(GridTally, ATickLateByMoreThanAPeriodCountsOnTheLaterGridPoint) {
    // Due on point 2, it came 1.5 periods late: point 3, and point 2 missed.
    const GridTally tally = tallyOf({{1, 1000}, {2, kPeriodNs + kPeriodNs / 2}, {4, 1000}});
    EXPECT_EQ(tally.missed(), 1u);
    EXPECT_EQ(tally.maxLatencyNs(), kPeriodNs / 2);
    EXPECT_TRUE(tally.everyTickOnAGridPointOfItsOwn());
}

TEST(GridTally, LatenessCountsTheGridPointsAStalledTickSkipped) {
    GridTally tally(sixMsGrid());
    EXPECT_EQ(tally.latenessAfterNextGridPoint(kOriginNs + kPeriodNs + 20000), 20000) << "the first is due at point 1";
    tally.add(kOriginNs + kPeriodNs + 20000);
    // Due at point 2; arriving 1 ms after point 3, it is 7 ms late, though its
    // latency after its own grid point is 1 ms.
    const int64_t stalled = kOriginNs + 3 * kPeriodNs + 1000000;
    EXPECT_EQ(tally.latenessAfterNextGridPoint(stalled), kPeriodNs + 1000000);
    EXPECT_EQ(latencyAfterGridPoint(tally, stalled), 1000000);
}

TEST(GridTally, ATickAtOrBeforeTheOriginIsEarly) {
    const GridTally tally = tallyOf({{0, 5000}, {1, 1000}});
    EXPECT_EQ(tally.ticksBeforeTheFirstGridPoint(), 1u);
    EXPECT_FALSE(tally.everyTickOnAGridPointOfItsOwn());
}

TEST(GridTally, TwoTicksOnOneGridPointAreCaught) {
    // An oscillator that woke early would deliver the second tick before
    // point 3: it lands on point 2 again.
    const GridTally tally = tallyOf({{1, 1000}, {2, 1000}, {2, 5990000}, {3, 1000}});
    EXPECT_EQ(tally.ticksOnAGridPointAlreadyTicked(), 1u);
    EXPECT_FALSE(tally.everyTickOnAGridPointOfItsOwn());
    EXPECT_EQ(tally.missed(), 0u);
}

TEST(GridTally, NothingYetGivesZeroes) {
    const GridTally tally(sixMsGrid());
    EXPECT_EQ(tally.ticks(), 0u);
    EXPECT_EQ(tally.missed(), 0u);
    EXPECT_EQ(tally.minLatencyNs(), 0);
    EXPECT_EQ(tally.maxLatencyNs(), 0);
    EXPECT_DOUBLE_EQ(tally.meanLatencyNs(), 0.0);
}

}  // namespace
}  // namespace tickmon
