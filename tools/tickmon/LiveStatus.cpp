#include "LiveStatus.h"

#include <cinttypes>
#include <cstdio>

#include "GridAnalysis.h"

namespace tickmon {

LiveLatency::LiveLatency(int64_t period)
    : periodNs(period),
      foldedBins(static_cast<size_t>((period + 999) / 1000), 0),
      candidateBins(foldedBins.size(), 0) {}

void LiveLatency::add(int64_t timestampNs) {
    if (tickCount == 0) {
        firstNs = timestampNs;
    } else {
        // A gap of k periods (give or take half a period of jitter) means
        // k - 1 grid points went by without a tick.
        const int64_t gapPeriods = (timestampNs - lastNs + periodNs / 2) / periodNs;
        if (gapPeriods > 1) {
            missedCount += static_cast<uint64_t>(gapPeriods - 1);
        }
        // Now that its successor is known, the previous tick may stand for
        // the phase unless it was certainly late.
        if (!isKnownLate(lastNs, timestampNs, periodNs)) {
            ++candidateBins[lastBin];
        }
    }
    const int64_t folded = (timestampNs - firstNs) % periodNs;
    lastBin = static_cast<size_t>(folded / 1000);
    ++foldedBins[lastBin];
    lastNs = timestampNs;
    ++tickCount;
}

LiveLatency::Figures LiveLatency::latency() const {
    Figures figures;
    if (tickCount == 0) {
        return figures;
    }
    // The first candidate bin in the millisecond before the densest one, as
    // estimateGridPhase does on exact offsets. The newest tick has no
    // successor yet and counts as a candidate.
    std::vector<uint64_t> candidates = candidateBins;
    ++candidates[lastBin];
    const size_t bins = foldedBins.size();
    const size_t allowanceBins = static_cast<size_t>(kEarlyTickAllowanceNs / 1000) % bins;
    size_t phaseBin = (densestMicrosecond(candidates) + bins - allowanceBins) % bins;
    while (candidates[phaseBin] == 0) {
        phaseBin = (phaseBin + 1) % bins;
    }
    uint64_t sum = 0;
    bool first = true;
    for (size_t step = 0; step < bins; ++step) {
        const size_t bin = (phaseBin + step) % bins;
        if (foldedBins[bin] == 0) {
            continue;
        }
        if (first) {
            figures.minUs = step;
            first = false;
        }
        figures.maxUs = step;
        sum += step * foldedBins[bin];
    }
    figures.avgUs = sum / tickCount;
    return figures;
}

std::string formatStatusLine(const StatusFigures& figures) {
    char total[32] = "until Ctrl-C";
    if (figures.totalNs > 0) {
        std::snprintf(total, sizeof total, "%.1f s", static_cast<double>(figures.totalNs) / 1e9);
    }
    char line[200];
    std::snprintf(line, sizeof line,
                  "ticks %" PRIu64 "  %.1f s / %s  latency min %" PRIu64 " avg %" PRIu64 " max %" PRIu64
                  " us  missed %" PRIu64,
                  figures.ticks, static_cast<double>(figures.elapsedNs) / 1e9, total, figures.latency.minUs,
                  figures.latency.avgUs, figures.latency.maxUs, figures.missed);
    return line;
}

}  // namespace tickmon
