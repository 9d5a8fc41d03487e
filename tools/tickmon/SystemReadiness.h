// The System section: what on this machine costs tick latency, and the fix.
//
// Read from /proc and /sys under root directories given as parameters, so
// that tests can feed fixture trees. A file that is missing or does not read
// as expected gives "unknown", never an error.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tickmon {

struct SystemRoots {
    std::string proc = "/proc";
    std::string sys = "/sys";
};

/// One thing the monitor looked at.
struct SystemFinding {
    /// Stable key, e.g. "preemption" (the JSON key).
    std::string key;
    /// What it is, for people, e.g. "preemption model".
    std::string label;
    /// What was found, or "unknown".
    std::string value;
    /// True when it costs tick latency; then `advice` says what fixes it.
    bool costsLatency = false;
    std::string advice;
};

/// Total and steal time of all CPUs, in clock ticks (the "cpu" line of
/// /proc/stat).
struct CpuTimes {
    uint64_t total = 0;
    uint64_t steal = 0;
};

/// What the monitor itself tried, when it ran: whether the kernel granted it.
struct RunGrants {
    bool ran = false;
    bool realTimeGranted = false;
    std::string memoryLock;  // "locked", "not asked (--no-mlock)" or the refusal
    bool memoryLocked = false;
    std::string cpuLatencyRequest;  // "held at 0 us", "off", or the refusal
    bool cpuLatencyHeld = false;
};

std::optional<CpuTimes> parseCpuTimes(const std::string& procStat);

/// Reads every finding. `stealBefore` is the /proc/stat sample taken when the
/// run started (steal time is reported over the run; without it, since boot).
std::vector<SystemFinding> readSystemReadiness(const SystemRoots& roots, const RunGrants& grants,
                                               const std::optional<CpuTimes>& stealBefore);

/// Reads the "cpu" line of <proc>/stat now.
std::optional<CpuTimes> readCpuTimes(const SystemRoots& roots);

/// The section as text: one line per finding, each costly one followed by
/// one line of advice.
std::string formatSystemSection(const std::vector<SystemFinding>& findings);

}  // namespace tickmon
