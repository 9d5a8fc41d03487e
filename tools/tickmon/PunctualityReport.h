// What the monitor set up around the run for punctual ticks (the CPU wake-up
// latency request, the memory lock, the oscillator's CPUs, the trace break)
// and the System section: as report text and as JSON.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "BreakTrace.h"
#include "JsonRecord.h"
#include "SystemReadiness.h"

namespace tickmon {

struct PunctualityReport {
    /// "held at 0 us (/dev/cpu_dma_latency)", "off", or the refusal.
    std::string cpuLatency;
    bool cpuLatencyHeld = false;
    /// The request's value in microseconds, or unset when off.
    std::optional<uint32_t> cpuLatencyUs;
    std::string memoryLock;
    bool memoryLocked = false;
    /// CPUs asked for with --cpu (empty: not pinned).
    std::vector<uint32_t> requestedCpus;
    /// CPUs the oscillator thread was allowed on, and where it last ran.
    std::vector<uint32_t> allowedCpus;
    std::optional<uint32_t> lastCpu;
    /// Set when --break-trace was given.
    std::optional<int64_t> breakTraceUs;
    std::string tracefs;
    BreakTraceResult breakTrace;
    std::vector<SystemFinding> system;
};

/// The "Punctuality" section and the System section, as report text.
std::string formatPunctuality(const PunctualityReport& report);

/// The "punctuality" object of the JSON record.
Json punctualityJson(const PunctualityReport& report);

/// The "system" object of the JSON record (alone for --system --json).
Json systemJson(const std::vector<SystemFinding>& findings);

}  // namespace tickmon
