// The lateness distribution the oscillator thread writes and any thread
// reads: its bins, its percentiles and its maximum.
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>

#include "LatenessHistogram.h"
#include "TickPrecisionWake.h"

namespace {

using zyn_ts::LatenessHistogram;

STickLatenessFigures figuresOf(const LatenessHistogram& histogram) {
    STickLatenessFigures figures{};
    histogram.copyTo(figures);
    return figures;
}

TEST(LatenessHistogram, BinsAreOneMicrosecondWideUpTo512AndEveryValueLiesInItsBin) {
    EXPECT_EQ(0u, LatenessHistogram::binOf(0));
    EXPECT_EQ(0u, LatenessHistogram::binOf(999));
    EXPECT_EQ(1u, LatenessHistogram::binOf(1000));
    EXPECT_EQ(511u, LatenessHistogram::binOf(511999));
    EXPECT_EQ(512u, LatenessHistogram::binOf(512000));
    EXPECT_EQ(LatenessHistogram::kBins - 1, LatenessHistogram::binOf(int64_t{1} << 40));
    size_t previous = 0;
    for (int64_t ns = 0; ns < 1100000000; ns += ns / 50 + 997) {
        const size_t bin = LatenessHistogram::binOf(ns);
        ASSERT_GE(bin, previous) << ns;
        ASSERT_LT(bin, LatenessHistogram::kBins);
        if (bin + 1 < LatenessHistogram::kBins) {
            ASSERT_LE(ns, LatenessHistogram::upperEdgeNs(bin)) << ns;
        }
        if (bin > 0) {
            ASSERT_GT(ns, LatenessHistogram::upperEdgeNs(bin - 1)) << ns;
        }
        previous = bin;
    }
}

TEST(LatenessHistogram, ReportsCountMedianNinetyNinthPercentileAndExactMaximum) {
    auto histogram = std::make_unique<LatenessHistogram>();
    EXPECT_EQ(0u, figuresOf(*histogram).count);
    EXPECT_EQ(0, figuresOf(*histogram).p99Ns);
    for (int i = 0; i < 980; ++i) {
        histogram->add(3500);  // 3 us bin
    }
    for (int i = 0; i < 19; ++i) {
        histogram->add(40200);  // 40 us bin
    }
    histogram->add(2345678);
    const STickLatenessFigures figures = figuresOf(*histogram);
    EXPECT_EQ(1000u, figures.count);
    EXPECT_EQ(3999, figures.p50Ns);
    EXPECT_EQ(40999, figures.p99Ns);
    EXPECT_EQ(2345678, figures.maxNs);
}

TEST(LatenessHistogram, NegativeLatenessCountsAsNoneAndClearDropsEverySample) {
    auto histogram = std::make_unique<LatenessHistogram>();
    histogram->add(-5000);
    EXPECT_EQ(1u, figuresOf(*histogram).count);
    EXPECT_EQ(0, figuresOf(*histogram).maxNs);
    EXPECT_EQ(0, figuresOf(*histogram).p99Ns) << "never above the maximum";
    histogram->add(7000);
    histogram->clear();
    EXPECT_EQ(0u, figuresOf(*histogram).count);
    EXPECT_EQ(0, figuresOf(*histogram).maxNs);
}

}  // namespace
