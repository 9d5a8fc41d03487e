#include "Statistics.h"

#include <gtest/gtest.h>

#include <numeric>

namespace tickmon {
namespace {

TEST(Statistics, SummaryOfAKnownSeries) {
    const SummaryStatistics stats = summarize({2, 4, 4, 4, 5, 5, 7, 9});
    EXPECT_EQ(stats.count, 8u);
    EXPECT_DOUBLE_EQ(stats.min, 2.0);
    EXPECT_DOUBLE_EQ(stats.mean, 5.0);
    EXPECT_DOUBLE_EQ(stats.max, 9.0);
    EXPECT_DOUBLE_EQ(stats.stddev, 2.0);
}

TEST(Statistics, SummaryKeepsPrecisionAroundLargeValues) {
    // Periods near 6 ms that differ by a few nanoseconds.
    const SummaryStatistics stats = summarize({6000000001, 5999999999, 6000000001, 5999999999});
    EXPECT_DOUBLE_EQ(stats.mean, 6000000000.0);
    EXPECT_DOUBLE_EQ(stats.stddev, 1.0);
}

TEST(Statistics, SummaryOfNothingIsZero) {
    const SummaryStatistics stats = summarize({});
    EXPECT_EQ(stats.count, 0u);
    EXPECT_EQ(stats.mean, 0.0);
    EXPECT_EQ(stats.stddev, 0.0);
}

TEST(Statistics, NearestRankPercentiles) {
    std::vector<int64_t> hundred(100);
    std::iota(hundred.begin(), hundred.end(), 1);
    EXPECT_EQ(nearestRankPercentile(hundred, 0.5), 50);
    EXPECT_EQ(nearestRankPercentile(hundred, 0.99), 99);
    EXPECT_EQ(nearestRankPercentile(hundred, 0.999), 100);
    EXPECT_EQ(nearestRankPercentile(hundred, 0.0), 1);
    EXPECT_EQ(nearestRankPercentile(hundred, 1.0), 100);

    std::vector<int64_t> thousand(1000);
    std::iota(thousand.begin(), thousand.end(), 1);
    EXPECT_EQ(nearestRankPercentile(thousand, 0.999), 999);
    EXPECT_EQ(nearestRankPercentile(thousand, 0.99), 990);
}

TEST(Statistics, PercentileOfOneOrNoValue) {
    EXPECT_EQ(nearestRankPercentile({42}, 0.99), 42);
    EXPECT_EQ(nearestRankPercentile({}, 0.5), 0);
}

}  // namespace
}  // namespace tickmon
