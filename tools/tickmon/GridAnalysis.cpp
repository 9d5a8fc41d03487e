#include "GridAnalysis.h"

#include <algorithm>
#include <utility>

namespace tickmon {
namespace {

int64_t floorMod(int64_t value, int64_t modulus) {
    const int64_t remainder = value % modulus;
    return remainder < 0 ? remainder + modulus : remainder;
}

/// `difference` moved into [-period/2, period/2): the shorter way round.
int64_t shortestStep(int64_t difference, int64_t periodNs) {
    return floorMod(difference + periodNs / 2, periodNs) - periodNs / 2;
}

constexpr int64_t kMicro = 1000;
/// Half the width of the window that finds the densest part of the circle.
constexpr size_t kDensityHalfWidthUs = 10;
/// Windows whose earliest ticks trace the lower envelope of the phase.
constexpr size_t kDriftWindows = 16;

}  // namespace

size_t densestMicrosecond(const std::vector<uint64_t>& microsecondBins) {
    const size_t bins = microsecondBins.size();
    if (bins == 0) {
        return 0;
    }
    const size_t halfWidth = std::min<size_t>(kDensityHalfWidthUs, (bins - 1) / 2);
    // Sliding sum over [centre - halfWidth, centre + halfWidth], round the circle.
    uint64_t sum = 0;
    for (size_t offset = bins - halfWidth; offset < bins + halfWidth + 1; ++offset) {
        sum += microsecondBins[offset % bins];
    }
    uint64_t best = sum;
    size_t bestCentre = 0;
    for (size_t centre = 1; centre < bins; ++centre) {
        sum += microsecondBins[(centre + halfWidth) % bins];
        sum -= microsecondBins[(centre + bins - halfWidth - 1) % bins];
        if (sum > best) {
            best = sum;
            bestCentre = centre;
        }
    }
    return bestCentre;
}

bool isKnownLate(int64_t tickNs, int64_t nextTickNs, int64_t periodNs) {
    return nextTickNs - tickNs < periodNs - kEarlyTickAllowanceNs;
}

int64_t estimateGridPhase(const std::vector<int64_t>& foldedOffsets, int64_t periodNs) {
    if (foldedOffsets.empty()) {
        return 0;
    }
    std::vector<uint64_t> bins(static_cast<size_t>((periodNs + kMicro - 1) / kMicro), 0);
    for (const int64_t offset : foldedOffsets) {
        ++bins[static_cast<size_t>(offset / kMicro)];
    }
    const int64_t usualWakeUp = static_cast<int64_t>(densestMicrosecond(bins)) * kMicro;
    const int64_t reference = floorMod(usualWakeUp - kEarlyTickAllowanceNs, periodNs);
    int64_t earliest = periodNs;
    for (const int64_t offset : foldedOffsets) {
        earliest = std::min(earliest, floorMod(offset - reference, periodNs));
    }
    return floorMod(reference + earliest, periodNs);
}

GridFit fitGrid(const std::vector<int64_t>& timestamps, int64_t periodNs) {
    GridFit fit;
    if (timestamps.empty()) {
        return fit;
    }
    const int64_t first = timestamps.front();
    std::vector<int64_t> candidates;
    candidates.reserve(timestamps.size());
    for (size_t i = 0; i < timestamps.size(); ++i) {
        const bool knownLate = i + 1 < timestamps.size() && isKnownLate(timestamps[i], timestamps[i + 1], periodNs);
        if (!knownLate) {
            candidates.push_back(floorMod(timestamps[i] - first, periodNs));
        }
    }
    const int64_t phase = estimateGridPhase(candidates, periodNs);
    // The grid point at or before the first tick.
    fit.firstGridPointNs = first - floorMod(-phase, periodNs);
    fit.latenciesNs.reserve(timestamps.size());
    fit.gridIndices.reserve(timestamps.size());
    for (const int64_t t : timestamps) {
        const int64_t sinceGrid = t - fit.firstGridPointNs;
        fit.gridIndices.push_back(sinceGrid / periodNs);
        fit.latenciesNs.push_back(sinceGrid % periodNs);
    }
    return fit;
}

DriftEstimate estimateDrift(const std::vector<int64_t>& timestamps, const std::vector<int64_t>& latenciesNs,
                            int64_t periodNs) {
    DriftEstimate drift;
    const size_t n = std::min(timestamps.size(), latenciesNs.size());
    if (n < 2) {
        return drift;
    }
    std::vector<int64_t> unwrapped(n, 0);
    for (size_t i = 1; i < n; ++i) {
        unwrapped[i] = unwrapped[i - 1] + shortestStep(latenciesNs[i] - latenciesNs[i - 1], periodNs);
    }
    // Late ticks only ever push the phase up, so the lower envelope shows
    // the source's own movement: the earliest tick of each window, and the
    // median of the slopes between those points (Theil-Sen), which a few
    // windows full of late ticks cannot sway.
    const size_t windows = std::min(n, kDriftWindows);
    std::vector<std::pair<double, double>> lowest;
    for (size_t w = 0; w < windows; ++w) {
        const size_t begin = w * n / windows;
        const size_t end = (w + 1) * n / windows;
        size_t best = begin;
        for (size_t i = begin; i < end; ++i) {
            best = unwrapped[i] < unwrapped[best] ? i : best;
        }
        lowest.emplace_back(static_cast<double>(timestamps[best] - timestamps.front()),
                            static_cast<double>(unwrapped[best]));
    }
    std::vector<double> slopes;
    for (size_t a = 0; a < lowest.size(); ++a) {
        for (size_t b = a + 1; b < lowest.size(); ++b) {
            if (lowest[b].first > lowest[a].first) {
                slopes.push_back((lowest[b].second - lowest[a].second) / (lowest[b].first - lowest[a].first));
            }
        }
    }
    if (slopes.empty()) {
        return drift;
    }
    std::sort(slopes.begin(), slopes.end());
    const size_t middle = slopes.size() / 2;
    const double slope = slopes.size() % 2 == 1 ? slopes[middle] : (slopes[middle - 1] + slopes[middle]) / 2.0;
    const double span = static_cast<double>(timestamps[n - 1] - timestamps.front());
    drift.ns = slope * span;
    drift.ppm = slope * 1e6;
    drift.ticks = drift.ns / static_cast<double>(periodNs);
    return drift;
}

}  // namespace tickmon
