// The live status line: the figures of the ticks so far, refreshed while the
// run goes on. They come from the same tally as the final report's (see
// GridTally.h), so for the same ticks the line and the report agree.
#pragma once

#include <cstdint>
#include <string>

#include "GridTally.h"

namespace tickmon {

/// Latency after the grid in whole microseconds (rounded down).
struct LatencyFiguresUs {
    uint64_t minUs = 0;
    uint64_t avgUs = 0;
    uint64_t maxUs = 0;
};

struct StatusFigures {
    uint64_t ticks = 0;
    int64_t elapsedNs = 0;
    /// 0 when the run lasts until interrupted.
    int64_t totalNs = 0;
    LatencyFiguresUs latency;
    uint64_t missed = 0;
};

/// The tally's ticks, latency and missed grid points for the status line.
StatusFigures statusFigures(const GridTally& tally, int64_t elapsedNs, int64_t totalNs);

/// "ticks 834  5.0 s / 10.0 s  latency min 13 avg 16 max 25 us  missed 0"
std::string formatStatusLine(const StatusFigures& figures);

}  // namespace tickmon
