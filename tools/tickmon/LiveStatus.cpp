#include "LiveStatus.h"

#include <cinttypes>
#include <cstdio>

namespace tickmon {
namespace {

/// Whole microseconds, rounded down; a negative latency (only an early tick
/// has one, and the self-test fails it) shows as 0.
uint64_t wholeMicroseconds(double ns) { return ns <= 0.0 ? 0 : static_cast<uint64_t>(ns / 1000.0); }

}  // namespace

StatusFigures statusFigures(const GridTally& tally, int64_t elapsedNs, int64_t totalNs) {
    StatusFigures figures;
    figures.ticks = tally.ticks();
    figures.elapsedNs = elapsedNs;
    figures.totalNs = totalNs;
    figures.latency.minUs = wholeMicroseconds(static_cast<double>(tally.minLatencyNs()));
    figures.latency.avgUs = wholeMicroseconds(tally.meanLatencyNs());
    figures.latency.maxUs = wholeMicroseconds(static_cast<double>(tally.maxLatencyNs()));
    figures.missed = tally.missed();
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
