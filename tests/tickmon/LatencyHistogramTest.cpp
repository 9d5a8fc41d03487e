#include "LatencyHistogram.h"

#include <gtest/gtest.h>

#include <sstream>

#include "HistogramLines.h"

namespace tickmon {
namespace {

TEST(LatencyHistogram, SortsLatenciesIntoMicrosecondBucketsTruncating) {
    const LatencyHistogram h = buildHistogram({0, 999, 1000, 1999, 2500, 3000000}, 4);
    EXPECT_EQ(h.buckets, (std::vector<uint64_t>{2, 2, 1, 0}));
    EXPECT_EQ(h.overflows, 1u);
    EXPECT_EQ(h.overflowCycles, (std::vector<uint64_t>{5}));
    EXPECT_EQ(h.total, 6u);
    EXPECT_EQ(h.minUs, 0u);
    EXPECT_EQ(h.avgUs, (0u + 0 + 1 + 1 + 2 + 3000) / 6);
    EXPECT_EQ(h.maxUs, 3000u);
}

TEST(LatencyHistogram, MinimumIsTakenOverAllTicks) {
    const LatencyHistogram h = buildHistogram({5000, 3000, 9000}, 10);
    EXPECT_EQ(h.minUs, 3u);
    EXPECT_EQ(h.maxUs, 9u);
    EXPECT_EQ(h.avgUs, 5u);
}

TEST(LatencyHistogram, FormatIsCyclictestLayout) {
    const LatencyHistogram h = buildHistogram({0, 1500, 1200, 7000}, 3);
    EXPECT_EQ(formatCyclictestHistogram(h),
              "# Histogram\n"
              "000000 000001\n"
              "000001 000002\n"
              "000002 000000\n"
              "# Total: 000000004\n"
              "# Min Latencies: 00000\n"
              "# Avg Latencies: 00002\n"
              "# Max Latencies: 00007\n"
              "# Histogram Overflows: 00001\n"
              "# Histogram Overflow at cycle number:\n"
              "# Thread 0: 00003\n");
}

TEST(LatencyHistogram, EveryBucketHasALine) {
    const std::string text = formatCyclictestHistogram(buildHistogram({}, 1000));
    std::istringstream lines(text);
    std::string line;
    std::getline(lines, line);
    EXPECT_EQ(line, "# Histogram");
    int buckets = 0;
    while (std::getline(lines, line) && line[0] != '#') {
        EXPECT_TRUE(isBucketLine(line)) << line;
        EXPECT_EQ(std::stoi(line.substr(0, 6)), buckets);
        ++buckets;
    }
    EXPECT_EQ(buckets, 1000);
    EXPECT_EQ(line, "# Total: 000000000");
}

TEST(LatencyHistogram, OverflowCycleListIsBounded) {
    const std::vector<int64_t> allOverflowing(kMaxOverflowCycles + 5, 2000000);
    const LatencyHistogram h = buildHistogram(allOverflowing, 10);
    EXPECT_EQ(h.overflows, kMaxOverflowCycles + 5);
    EXPECT_EQ(h.overflowCycles.size(), kMaxOverflowCycles);
    EXPECT_NE(formatCyclictestHistogram(h).find(" # 00005 others\n"), std::string::npos);
}

}  // namespace
}  // namespace tickmon
