// The live status line: figures that are cheap to keep up to date while the
// run goes on, whatever its length.
//
// Latency here is estimated the same way as in the final report (see
// GridAnalysis.h) but on microsecond bins of one period, so each update costs
// one pass over the bins instead of a pass over every tick. The final report
// recomputes everything exactly.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace tickmon {

class LiveLatency {
public:
    explicit LiveLatency(int64_t periodNs);

    /// Adds the next tick's timestamp (non-decreasing).
    void add(int64_t timestampNs);

    uint64_t ticks() const { return tickCount; }
    /// Ticks the grid expected between two recorded ticks but never came.
    uint64_t missed() const { return missedCount; }

    struct Figures {
        uint64_t minUs = 0;
        uint64_t avgUs = 0;
        uint64_t maxUs = 0;
    };
    /// Latency after the estimated grid phase over all ticks so far.
    Figures latency() const;

private:
    int64_t periodNs;
    std::vector<uint64_t> foldedBins;  // one per microsecond of the period
    /// The same without known-late ticks and without the newest tick.
    std::vector<uint64_t> candidateBins;
    size_t lastBin = 0;
    int64_t firstNs = 0;
    int64_t lastNs = 0;
    uint64_t tickCount = 0;
    uint64_t missedCount = 0;
};

struct StatusFigures {
    uint64_t ticks = 0;
    int64_t elapsedNs = 0;
    /// 0 when the run lasts until interrupted.
    int64_t totalNs = 0;
    LiveLatency::Figures latency;
    uint64_t missed = 0;
};

/// "ticks 834  5.0 s / 10.0 s  latency min 0 avg 3 max 25 us  missed 0"
std::string formatStatusLine(const StatusFigures& figures);

}  // namespace tickmon
