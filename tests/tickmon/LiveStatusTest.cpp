#include "LiveStatus.h"

#include <gtest/gtest.h>

#include "SyntheticTicks.h"

namespace tickmon {
namespace {

using synthetic::kOriginNs;
using synthetic::kPeriodNs;

TEST(LiveStatus, FiguresAreTheTallysInWholeMicroseconds) {
    GridTally tally(PublishedGrid{kOriginNs, kPeriodNs, 1});
    for (const int64_t t : synthetic::timestamps({{1, 13999}, {2, 3000}, {3, 23000}, {6, 43500}})) {
        tally.add(t);
    }
    const StatusFigures figures = statusFigures(tally, 5000000000, 10000000000);
    EXPECT_EQ(figures.ticks, 4u);
    EXPECT_EQ(figures.latency.minUs, 3u);
    EXPECT_EQ(figures.latency.maxUs, 43u);
    EXPECT_EQ(figures.latency.avgUs, (13999u + 3000 + 23000 + 43500) / 4 / 1000);
    EXPECT_EQ(figures.missed, 2u);
    EXPECT_EQ(figures.elapsedNs, 5000000000);
    EXPECT_EQ(figures.totalNs, 10000000000);
}

TEST(LiveStatus, NothingYetGivesZeroes) {
    const GridTally tally(PublishedGrid{kOriginNs, kPeriodNs, 1});
    const StatusFigures figures = statusFigures(tally, 0, 0);
    EXPECT_EQ(figures.ticks, 0u);
    EXPECT_EQ(figures.latency.maxUs, 0u);
    EXPECT_EQ(figures.missed, 0u);
}

TEST(LiveStatus, StatusLineShowsProgressLatencyAndMissedTicks) {
    EXPECT_EQ(formatStatusLine(StatusFigures{834, 5000000000, 10000000000, {0, 3, 25}, 1}),
              "ticks 834  5.0 s / 10.0 s  latency min 0 avg 3 max 25 us  missed 1");
    EXPECT_EQ(formatStatusLine(StatusFigures{10, 60000000, 0, {1, 2, 3}, 0}),
              "ticks 10  0.1 s / until Ctrl-C  latency min 1 avg 2 max 3 us  missed 0");
}

}  // namespace
}  // namespace tickmon
