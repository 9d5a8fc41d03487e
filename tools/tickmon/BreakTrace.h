// The kernel-trace hook for the one bad tick: the first tick later than a
// threshold writes one marker line to tracefs' trace_marker and stops kernel
// tracing (tracing_on = 0), so that ftrace / trace-cmd keep the kernel's view
// of that stall as the last thing in their buffer.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tickmon {

/// The tracefs directories tried, in order.
std::vector<std::string> defaultTracefsCandidates();

/// The first candidate that holds trace_marker and tracing_on, or nothing.
std::optional<std::string> findTracefs(const std::vector<std::string>& candidates);

struct BreakTraceResult {
    bool broke = false;
    /// 1-based number of the tick that broke the trace.
    uint64_t tick = 0;
    int64_t latencyNs = 0;
    /// Empty, or why the marker or tracing_on could not be written.
    std::string error;
};

class BreakTrace {
public:
    BreakTrace(std::string tracefsDirectory, int64_t thresholdNs);

    /// Feeds the next tick, `latenessNs` after the grid point it was due at;
    /// true once the trace has been broken (on this tick or before).
    bool add(int64_t latenessNs);

    const BreakTraceResult& result() const { return outcome; }
    const std::string& directory() const { return tracefs; }
    int64_t thresholdNs() const { return threshold; }

private:
    void breakAt(uint64_t tick, int64_t latencyNs);

    std::string tracefs;
    int64_t threshold;
    uint64_t ticks = 0;
    BreakTraceResult outcome;
};

}  // namespace tickmon
