#include "TickAnalysis.h"

#include <algorithm>

namespace tickmon {

LatencySummary summarizeLatencies(std::vector<int64_t> latenciesNs, const GridTally& tally) {
    LatencySummary summary;
    if (latenciesNs.empty()) {
        return summary;
    }
    std::sort(latenciesNs.begin(), latenciesNs.end());
    summary.count = latenciesNs.size();
    summary.min = tally.minLatencyNs();
    summary.max = tally.maxLatencyNs();
    summary.mean = tally.meanLatencyNs();
    summary.p50 = nearestRankPercentile(latenciesNs, 0.5);
    summary.p99 = nearestRankPercentile(latenciesNs, 0.99);
    summary.p999 = nearestRankPercentile(latenciesNs, 0.999);
    return summary;
}

TickAnalysis analyzeTicks(const std::vector<int64_t>& timestamps, const PublishedGrid& grid) {
    TickAnalysis analysis;
    analysis.grid = grid;
    analysis.periodNs = grid.periodNs;
    analysis.recordedTicks = timestamps.size();
    std::vector<int64_t> periods;
    periods.reserve(timestamps.size());
    for (size_t i = 1; i < timestamps.size(); ++i) {
        periods.push_back(timestamps[i] - timestamps[i - 1]);
    }
    analysis.period = summarize(periods);

    GridTally tally(grid);
    analysis.latenciesNs.reserve(timestamps.size());
    for (const int64_t t : timestamps) {
        tally.add(t);
        analysis.latenciesNs.push_back(latencyAfterGridPoint(tally, t));
    }
    analysis.expectedTicks = static_cast<uint64_t>(tally.lastGridPoint());
    analysis.missedTicks = tally.missed();
    analysis.ticksBeforeTheirGridPoint = tally.ticksBeforeTheFirstGridPoint();
    analysis.ticksOnAGridPointAlreadyTicked = tally.ticksOnAGridPointAlreadyTicked();
    analysis.latency = summarizeLatencies(analysis.latenciesNs, tally);
    analysis.tally = tally;
    return analysis;
}

bool gridSelfTestPassed(const TickAnalysis& analysis) {
    return analysis.ticksBeforeTheirGridPoint == 0 && analysis.ticksOnAGridPointAlreadyTicked == 0;
}

}  // namespace tickmon
