#include "GridTally.h"

#include <algorithm>

namespace tickmon {

int64_t GridTally::gridPointOf(int64_t timestampNs) const {
    if (grid.periodNs <= 0) {
        return 0;
    }
    const int64_t sinceOrigin = timestampNs - grid.originNs;
    // Rounded towards minus infinity: a tick before the origin belongs to a
    // negative grid point, not to point 0.
    const int64_t point = sinceOrigin / grid.periodNs;
    return (sinceOrigin % grid.periodNs < 0) ? point - 1 : point;
}

int64_t latencyAfterGridPoint(const GridTally& tally, int64_t timestampNs) {
    return timestampNs - tally.publishedGrid().instantOf(tally.gridPointOf(timestampNs));
}

void GridTally::add(int64_t timestampNs) {
    const int64_t point = gridPointOf(timestampNs);
    const int64_t latency = latencyAfterGridPoint(*this, timestampNs);
    if (point < 1) {
        ++earlyCount;
    } else if (point <= lastPoint) {
        ++sharedCount;
    } else {
        ++pointsWithATick;
        lastPoint = point;
    }
    minNs = tickCount == 0 ? latency : std::min(minNs, latency);
    maxNs = tickCount == 0 ? latency : std::max(maxNs, latency);
    sumNs += latency;
    ++tickCount;
}

uint64_t GridTally::missed() const { return static_cast<uint64_t>(lastPoint) - pointsWithATick; }

double GridTally::meanLatencyNs() const {
    return tickCount == 0 ? 0.0 : static_cast<double>(sumNs) / static_cast<double>(tickCount);
}

}  // namespace tickmon
