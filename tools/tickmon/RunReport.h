// The end-of-run report: as text for people and as one JSON record for tools.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "HandlerCheck.h"
#include "HandlerTimeReport.h"
#include "MonitorOptions.h"
#include "OscillatorThreadReport.h"
#include "PunctualityReport.h"
#include "TickAnalysis.h"
#include "TimelineWriter.h"
#include "WakeReport.h"

namespace tickmon {

enum class StopReason { Duration, Ticks, Interrupted, BreakTrace };

/// The layout version of the JSON record. 2: latency and missed grid points
/// measured from the published grid, a "grid" object, no drift estimate; the
/// "punctuality" and "system" objects; the stop reason "break-trace".
/// Records without the field are version 1.
constexpr int64_t kJsonRecordVersion = 2;

struct RunReport {
    MonitorOptions options;
    StopReason stopReason = StopReason::Duration;
    /// From the oscillator start to the end of the run.
    int64_t elapsedNs = 0;
    /// Tick passes: calls of the probe handler, which runs on every pass.
    uint64_t passes = 0;
    /// Timestamps the main thread could not take in time (see TickRecorder).
    uint64_t lostTimestamps = 0;
    TickAnalysis ticks;
    std::vector<HandlerVerdict> handlers;
    /// The scheduler's timing of every handler and pass, and the worst
    /// pass's culprit.
    HandlerTimeReport handlerTime;
    OscillatorThreadReport thread;
    PunctualityReport punctuality;
    /// The precision wake the scheduler ran with, and its figures.
    WakeReport wake;
    /// What --timeline wrote, when it was asked for.
    std::optional<TimelineCounts> timeline;
    /// Every handler called as often as its interval requires, no tick
    /// before its grid point and no grid point with more than one tick.
    bool passed = false;
};

std::string formatReport(const RunReport& report);
std::string formatJson(const RunReport& report);

/// "duration", "ticks", "interrupted" or "break-trace".
const char* stopReasonName(StopReason reason);

}  // namespace tickmon
