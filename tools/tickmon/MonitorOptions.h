// The command line of zyn-tickmon: what to run, for how long, and where the
// results go. Parsing is pure: it never touches the library or the system.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tickmon {

/// Accepted ranges, shared by the parser, the help text and the tests.
namespace limits {
constexpr int64_t kMinDurationNs = 1000000;                         // 1 ms
constexpr int64_t kMaxDurationNs = 7LL * 24 * 3600 * 1000000000LL;  // 7 days
constexpr uint64_t kMinTicks = 1;
constexpr uint64_t kMaxTicks = 100000000;
constexpr int32_t kMinPriority = 0;
constexpr int32_t kMaxPriority = 4;
constexpr uint32_t kMaxHandlers = 10000;
constexpr uint32_t kMinInterval = 1;
constexpr uint32_t kMaxInterval = 100000;
constexpr int64_t kMaxWorkNs = 6000000;  // one 6 ms tick
constexpr uint32_t kMaxTraceLevel = 7;
constexpr uint32_t kMinHistogramBuckets = 1;
constexpr uint32_t kMaxHistogramBuckets = 6000;  // a whole tick in microseconds
constexpr uint32_t kMinTimelineMb = 1;
constexpr uint32_t kMaxTimelineMb = 65536;
constexpr int64_t kMaxCpuLatencyUs = 2000000000;  // the kernel takes a signed 32-bit value
constexpr uint32_t kMaxCpu = 1023;
constexpr int64_t kMinBreakTraceUs = 1;
constexpr int64_t kMaxBreakTraceUs = 1000000;   // one second
constexpr int64_t kMinWakeLeadNs = 1000;        // 1 us
constexpr int64_t kMaxWakeLeadNs = 3000000;     // half the 6 ms period
constexpr int64_t kMaxFastWakeLeadNs = 500000;  // half the fast scheduler's 1 ms period
}  // namespace limits

/// The scheduler whose ticks the monitor measures.
enum class MonitoredGrid {
    /// CTickScheduler's 6 ms grid, started by the module at phase 14.
    Scheduler,
    /// CTickSchedulerFast's 1 ms grid; the module never starts its own
    /// oscillator, so the monitor starts it, as an integrator does.
    Fast,
};

/// "scheduler" or "fast", as --grid reads them.
const char* gridName(MonitoredGrid grid);

/// The module that owns the grid: "CTickScheduler" or "CTickSchedulerFast".
const char* schedulerModuleName(MonitoredGrid grid);

struct MonitorOptions {
    MonitoredGrid grid = MonitoredGrid::Scheduler;
    /// Run length; with neither set the run lasts until Ctrl-C. With both,
    /// whichever is reached first ends the run.
    std::optional<int64_t> durationNs;
    std::optional<uint64_t> ticks;
    /// ETickPriority given to the scheduler (0 highest .. 4 lowest). The fast
    /// scheduler's oscillator always runs at ETickPriority 1.
    int32_t priority = 2;
    /// Handlers registered beside the probe, with intervals taken in turn
    /// from `intervals` (all 1 on the fast grid, which calls every handler on
    /// every tick), each busy for `workNs` per call.
    uint32_t handlerCount = 6;
    std::vector<uint32_t> intervals = {1, 2, 5};
    int64_t workNs = 0;
    /// From a list given to --work ("0,0,2ms"): the busy time of handler i
    /// is element i, and handlers beyond the list do no work. Empty when
    /// --work gave one value for every handler (`workNs`).
    std::vector<int64_t> workPerHandler;
    /// Level for the library's trace object "ZYN.TS"; unset keeps the
    /// platform's setting.
    std::optional<uint32_t> traceLevel;
    bool quiet = false;
    std::string jsonPath;
    std::string histogramPath;
    std::string plotPath;
    uint32_t histogramBuckets = 1000;
    /// The run as a Trace Event Format timeline, cut at timelineMaxMb.
    std::string timelinePath;
    uint32_t timelineMaxMb = 256;
    /// Disables one handler for a few ticks, so the self-test must fail:
    /// a check of the checker.
    bool injectFault = false;
    /// CPU wake-up latency request while the oscillator runs, microseconds,
    /// or kCpuLatencyOff; unset keeps the host platform's (0 us unless
    /// ZYN_CPU_LATENCY_US says otherwise).
    std::optional<int64_t> cpuLatencyUs;
    static constexpr int64_t kCpuLatencyOff = -1;
    /// mlockall(MCL_CURRENT | MCL_FUTURE) before the oscillator starts, so
    /// that no page fault delays a tick.
    bool lockMemory = true;
    /// CPUs the oscillator thread may run on; empty leaves it unpinned.
    std::vector<uint32_t> cpus;
    /// The first tick later than this stops kernel tracing and ends the run.
    std::optional<int64_t> breakTraceUs;
    /// Print only the System section (what on this machine costs latency).
    bool systemOnly = false;
    /// The scheduler's precision wake: kWakeLeadOff, kWakeLeadAuto, or a
    /// fixed lead in ns.
    int64_t wakeLeadNs = kWakeLeadOff;
    static constexpr int64_t kWakeLeadOff = 0;
    static constexpr int64_t kWakeLeadAuto = -1;
};

/// "off", "auto", or the fixed lead as a time ("80us").
std::string wakeLeadName(int64_t wakeLeadNs);

/// The busy time per call of load handler `index`.
int64_t workOfHandler(const MonitorOptions& options, size_t index);

enum class ParseOutcome { Run, Help, Error };

struct ParseResult {
    ParseOutcome outcome = ParseOutcome::Run;
    MonitorOptions options;
    /// For Error: one line naming the option and what it accepts.
    std::string error;
};

/// Parses the arguments after the program name. Options take their value as
/// the next argument or after '=' ("--duration 10s", "--duration=10s").
ParseResult parseOptions(const std::vector<std::string>& arguments);

/// The text printed by --help.
std::string usageText();

}  // namespace tickmon
