#include "Statistics.h"

#include <algorithm>
#include <cmath>

namespace tickmon {

SummaryStatistics summarize(const std::vector<int64_t>& values) {
    SummaryStatistics stats;
    if (values.empty()) {
        return stats;
    }
    stats.count = values.size();
    const auto [lowest, highest] = std::minmax_element(values.begin(), values.end());
    stats.min = static_cast<double>(*lowest);
    stats.max = static_cast<double>(*highest);
    // Welford's update keeps the variance exact enough for millions of
    // values around 6e6 ns, where the naive sum of squares loses digits.
    double mean = 0.0;
    double squaredDeviations = 0.0;
    uint64_t n = 0;
    for (const int64_t value : values) {
        ++n;
        const double delta = static_cast<double>(value) - mean;
        mean += delta / static_cast<double>(n);
        squaredDeviations += delta * (static_cast<double>(value) - mean);
    }
    stats.mean = mean;
    stats.stddev = std::sqrt(squaredDeviations / static_cast<double>(n));
    return stats;
}

int64_t nearestRankPercentile(const std::vector<int64_t>& sorted, double fraction) {
    if (sorted.empty()) {
        return 0;
    }
    // The small allowance keeps 0.99 x 100 at rank 99 despite rounding.
    const double rank = std::ceil(fraction * static_cast<double>(sorted.size()) - 1e-6);
    const size_t index = rank < 1.0 ? 0 : std::min(sorted.size() - 1, static_cast<size_t>(rank) - 1);
    return sorted[index];
}

}  // namespace tickmon
