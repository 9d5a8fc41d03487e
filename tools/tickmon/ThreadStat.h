// A thread as the kernel sees it, read from /proc.
#pragma once

#include <sys/types.h>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tickmon {

/// The fields of /proc/<pid>/task/<tid>/stat that the monitor reports.
struct ThreadStat {
    std::string comm;
    char state = '?';
    /// User and system CPU time in clock ticks (sysconf(_SC_CLK_TCK)).
    uint64_t utimeTicks = 0;
    uint64_t stimeTicks = 0;
    /// Real-time priority (field 40) and scheduling policy (field 41).
    uint32_t rtPriority = 0;
    uint32_t policy = 0;
};

/// Parses one stat line. The name in parentheses may itself hold blanks and
/// parentheses, so the fields after it are found from the last ')'.
std::optional<ThreadStat> parseThreadStat(const std::string& line);

/// "SCHED_OTHER", "SCHED_FIFO", "SCHED_RR", "SCHED_BATCH", "SCHED_IDLE",
/// "SCHED_DEADLINE", or "policy <n>" for any other value.
std::string schedulingPolicyName(uint32_t policy);

/// The first field of /proc/<pid>/task/<tid>/schedstat: the nanoseconds the
/// thread has run on a CPU.
std::optional<uint64_t> parseSchedstatRuntime(const std::string& text);

// ---- Reading this process's threads ------------------------------------

/// Thread ids of this process whose name (comm) is exactly `name`.
std::vector<pid_t> findThreadsByName(const std::string& name);

std::optional<ThreadStat> readThreadStat(pid_t tid);

/// CPU time the thread has used so far, nanoseconds, and where it came from.
struct ThreadCpuTime {
    uint64_t ns = 0;
    /// "schedstat" (nanosecond resolution) or "stat" (utime + stime, in
    /// clock ticks of usually 10 ms).
    std::string source;
};

std::optional<ThreadCpuTime> readThreadCpuTime(pid_t tid);

}  // namespace tickmon
