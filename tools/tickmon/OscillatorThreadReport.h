// What the monitor learnt about the oscillator thread from /proc: its
// scheduling as the kernel applied it and the CPU time it used.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>

namespace tickmon {

/// The scheduler's oscillator thread as the kernel sees it.
struct OscillatorThreadReport {
    bool found = false;
    pid_t tid = 0;
    std::string name;
    uint32_t policy = 0;
    std::string policyName;
    uint32_t priority = 0;
    bool cpuMeasured = false;
    /// CPU time the thread used per second of run, nanoseconds.
    double cpuNsPerSecond = 0.0;
    /// "schedstat" or "stat" (see ThreadStat.h).
    std::string cpuSource;
};

}  // namespace tickmon
