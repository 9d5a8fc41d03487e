#include "TickAnalysis.h"

#include <algorithm>

namespace tickmon {

LatencySummary summarizeLatencies(std::vector<int64_t> latenciesNs) {
    LatencySummary summary;
    if (latenciesNs.empty()) {
        return summary;
    }
    std::sort(latenciesNs.begin(), latenciesNs.end());
    summary.count = latenciesNs.size();
    summary.min = latenciesNs.front();
    summary.max = latenciesNs.back();
    summary.mean = summarize(latenciesNs).mean;
    summary.p50 = nearestRankPercentile(latenciesNs, 0.5);
    summary.p99 = nearestRankPercentile(latenciesNs, 0.99);
    summary.p999 = nearestRankPercentile(latenciesNs, 0.999);
    return summary;
}

TickAnalysis analyzeTicks(const std::vector<int64_t>& timestamps, int64_t periodNs) {
    TickAnalysis analysis;
    analysis.periodNs = periodNs;
    analysis.recordedTicks = timestamps.size();
    if (timestamps.empty()) {
        return analysis;
    }
    std::vector<int64_t> periods;
    periods.reserve(timestamps.size());
    for (size_t i = 1; i < timestamps.size(); ++i) {
        periods.push_back(timestamps[i] - timestamps[i - 1]);
    }
    analysis.period = summarize(periods);

    GridFit fit = fitGrid(timestamps, periodNs);
    analysis.expectedTicks = static_cast<uint64_t>(fit.gridIndices.back() - fit.gridIndices.front()) + 1;
    // Two ticks on one grid point cannot come from the oscillator, which
    // sleeps at least to the next point; they would count as none missed.
    analysis.missedTicks =
        analysis.expectedTicks > analysis.recordedTicks ? analysis.expectedTicks - analysis.recordedTicks : 0;
    analysis.drift = estimateDrift(timestamps, fit.latenciesNs, periodNs);
    analysis.latency = summarizeLatencies(fit.latenciesNs);
    analysis.latenciesNs = std::move(fit.latenciesNs);
    return analysis;
}

}  // namespace tickmon
