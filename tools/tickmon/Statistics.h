// Summary statistics of a series of nanosecond values.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace tickmon {

/// The nearest-rank percentile of ascending `sorted` values: the smallest
/// value with at least `fraction` of all values at or below it (fraction
/// 0.5 gives the median, 0.99 the 99th percentile). 0 for no values.
int64_t nearestRankPercentile(const std::vector<int64_t>& sorted, double fraction);

struct SummaryStatistics {
    uint64_t count = 0;
    double min = 0.0;
    double mean = 0.0;
    double max = 0.0;
    /// Population standard deviation (divides by count).
    double stddev = 0.0;
};

/// Count, min, mean, max and standard deviation; all zero for no values.
SummaryStatistics summarize(const std::vector<int64_t>& values);

}  // namespace tickmon
