#include "MonitorOptions.h"

#include <algorithm>
#include <memory>

#include "CommandLine.h"
#include "TickModuleIdentity.h"
#include "TimeSpan.h"
#include "ZynSupport/MonotonicClock.h"

namespace tickmon {
namespace {

using zyn_cli::integerIn;
using zyn_support::kNanosecondsPerMicrosecond;
using zyn_support::kNanosecondsPerSecond;

std::string range(int64_t low, int64_t high) { return std::to_string(low) + " to " + std::to_string(high); }

/// "50us": a busy time from 0 to kMaxWorkNs (no unit: microseconds).
std::optional<int64_t> readWork(const std::string& text) {
    const std::optional<int64_t> ns = parseTimeSpan(text, kNanosecondsPerMicrosecond);
    return ns && *ns <= limits::kMaxWorkNs ? ns : std::nullopt;
}

/// "2" or "0-3": the CPU numbers of one item of a --cpu list.
std::optional<std::vector<uint32_t>> readCpuRange(const std::string& text) {
    const size_t dash = text.find('-');
    const std::optional<uint32_t> first = integerIn(text.substr(0, dash), 0U, limits::kMaxCpu);
    const std::optional<uint32_t> last =
        dash == std::string::npos ? first : integerIn(text.substr(dash + 1), 0U, limits::kMaxCpu);
    if (!first || !last || *last < *first) {
        return std::nullopt;
    }
    std::vector<uint32_t> cpus;
    for (uint32_t cpu = *first; cpu <= *last; ++cpu) {
        cpus.push_back(cpu);
    }
    return cpus;
}

/// "2", "0,1" or "0-3,6": CPU numbers from 0 to kMaxCpu, sorted, each once.
std::optional<std::vector<uint32_t>> readCpuList(const std::string& text) {
    const std::optional<std::vector<std::vector<uint32_t>>> ranges = zyn_cli::listOf(text, readCpuRange);
    if (!ranges) {
        return std::nullopt;
    }
    std::vector<uint32_t> cpus;
    for (const std::vector<uint32_t>& range : *ranges) {
        cpus.insert(cpus.end(), range.begin(), range.end());
    }
    std::sort(cpus.begin(), cpus.end());
    cpus.erase(std::unique(cpus.begin(), cpus.end()), cpus.end());
    return cpus;
}

/// Stores the value `read` gives into `target`; false when it gives none.
template <typename Target, typename Reader>
std::function<bool(const std::string&)> into(Target& target, Reader read) {
    return [&target, read](const std::string& text) { return zyn_cli::storeIfAny(target, read(text)); };
}

std::function<bool(const std::string&)> fileNameInto(std::string& target, const std::string& suffix = "") {
    return into(target, [suffix](const std::string& text) -> std::optional<std::string> {
        const bool endsWithSuffix =
            text.size() > suffix.size() && text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
        return endsWithSuffix ? std::make_optional(text) : std::nullopt;
    });
}

void addRunLength(CLI::App& app, MonitorOptions& o) {
    const std::string group = "Run length (default: until Ctrl-C; with both, whichever comes first)";
    zyn_cli::addValueOption(app, group,
                            {"--duration", "TIME", "how long to run",
                             "a time from 1ms to 7 days, e.g. 10s, 500ms or 2min (no unit: seconds)",
                             into(o.durationNs, [](const std::string& text) -> std::optional<int64_t> {
                                 const std::optional<int64_t> ns = parseTimeSpan(text, kNanosecondsPerSecond);
                                 const bool inRange =
                                     ns && *ns >= limits::kMinDurationNs && *ns <= limits::kMaxDurationNs;
                                 return inRange ? ns : std::nullopt;
                             })});
    zyn_cli::addIntegerOption(app, group, "--ticks", "N", "stop after N probe ticks",
                              zyn_cli::IntegerRange<uint64_t>{limits::kMinTicks, limits::kMaxTicks}, o.ticks);
}

void addSchedulerAndLoad(CLI::App& app, MonitorOptions& o) {
    const std::string group = "Scheduler and load";
    zyn_cli::addValueOption(
        app, group,
        {"--grid", "scheduler|fast",
         "which grid to measure: CTickScheduler's 6 ms (default) or CTickSchedulerFast's 1 ms, whose oscillator the "
         "monitor starts as an integrator does",
         "'scheduler' or 'fast'", into(o.grid, [](const std::string& text) -> std::optional<MonitoredGrid> {
             if (text == gridName(MonitoredGrid::Scheduler)) {
                 return MonitoredGrid::Scheduler;
             }
             if (text == gridName(MonitoredGrid::Fast)) {
                 return MonitoredGrid::Fast;
             }
             return std::nullopt;
         })});
    zyn_cli::addIntegerOption(
        app, group, "--priority", "P", "oscillator priority, default " + std::to_string(o.priority),
        zyn_cli::IntegerRange<int32_t>{limits::kMinPriority, limits::kMaxPriority, "highest", "lowest"}, o.priority);
    zyn_cli::addIntegerOption(app, group, "--handlers", "N",
                              "handlers beside the probe, default " + std::to_string(o.handlerCount),
                              zyn_cli::IntegerRange<uint32_t>{0, limits::kMaxHandlers}, o.handlerCount);
    zyn_cli::addValueOption(app, group,
                            {"--intervals", "LIST", "the handlers' tick intervals, taken in turn, default 1,2,5",
                             "a comma-separated list of integers from " +
                                 range(limits::kMinInterval, limits::kMaxInterval) + ", e.g. 1,2,5",
                             into(o.intervals, [](const std::string& text) {
                                 return zyn_cli::listOf(text, [](const std::string& item) {
                                     return integerIn(item, limits::kMinInterval, limits::kMaxInterval);
                                 });
                             })});
    zyn_cli::addValueOption(
        app, group,
        {"--work", "TIME[,TIME..]",
         "busy time per handler call, default 0; a list gives handler i the i-th time (e.g. 0,0,2ms: the third is "
         "slow), the rest 0",
         "a time from 0 to 6ms per call, e.g. 50us (no unit: microseconds), or a comma-separated list of such times, "
         "one per handler, e.g. 0,0,2ms",
         [&o](const std::string& text) {
             const std::optional<std::vector<int64_t>> times = zyn_cli::listOf(text, readWork, limits::kMaxHandlers);
             const bool oneForAll = times && text.find(',') == std::string::npos;
             if (times) {
                 o.workNs = oneForAll ? times->front() : 0;
                 o.workPerHandler = oneForAll ? std::vector<int64_t>{} : *times;
             }
             return times.has_value();
         }});
    zyn_cli::addIntegerOption(
        app, group, "--trace-level", "L", "level of the library's trace object (default: the platform's)",
        zyn_cli::IntegerRange<uint32_t>{0, limits::kMaxTraceLevel, "off", "per-tick detail"}, o.traceLevel);
}

void addPunctuality(CLI::App& app, MonitorOptions& o) {
    const std::string group = "Punctuality (what a real-time engineer sets up around a latency test)";
    zyn_cli::addValueOption(app, group,
                            {"--cpu-latency", "US|off",
                             "CPU wake-up latency request held while ticking (default: 0, or ZYN_CPU_LATENCY_US)",
                             "'off' or microseconds from " + range(0, limits::kMaxCpuLatencyUs),
                             into(o.cpuLatencyUs, [](const std::string& text) {
                                 return text == "off" ? std::make_optional(MonitorOptions::kCpuLatencyOff)
                                                      : integerIn(text, int64_t{0}, limits::kMaxCpuLatencyUs);
                             })});
    app.add_flag_callback(
           "--no-mlock", [&o] { o.lockMemory = false; }, "do not lock the process's memory (default: mlockall)")
        ->group(group);
    zyn_cli::addValueOption(
        app, group,
        {"--cpu", "LIST", "pin the oscillator thread to these CPUs",
         "a CPU number or list from " + range(0, limits::kMaxCpu) + ", e.g. 1, 0,2 or 0-3", into(o.cpus, readCpuList)});
    zyn_cli::addValueOption(
        app, group,
        {"--break-trace", "US",
         "the first tick later than US writes a marker to tracefs, stops kernel tracing and ends the run (tracefs: "
         "/sys/kernel/tracing, /sys/kernel/debug/tracing, or $ZYN_TICKMON_TRACEFS)",
         "microseconds from " + range(limits::kMinBreakTraceUs, limits::kMaxBreakTraceUs),
         [&o](const std::string& text) {
             return zyn_cli::storeInteger(text, o.breakTraceUs, limits::kMinBreakTraceUs, limits::kMaxBreakTraceUs);
         }});
    zyn_cli::addValueOption(
        app, group,
        {"--wake-lead", "off|auto|TIME",
         "precision wake: sleep to TIME before each grid point, then spin onto it; 'auto' follows the kernel's "
         "wake-up spread (default: off)",
         "'off', 'auto' or a time from 1us to 3ms, e.g. 80us (no unit: microseconds)",
         into(o.wakeLeadNs, [](const std::string& text) -> std::optional<int64_t> {
             if (text == "off") {
                 return MonitorOptions::kWakeLeadOff;
             }
             if (text == "auto") {
                 return MonitorOptions::kWakeLeadAuto;
             }
             const std::optional<int64_t> ns = parseTimeSpan(text, kNanosecondsPerMicrosecond);
             const bool inRange = ns && *ns >= limits::kMinWakeLeadNs && *ns <= limits::kMaxWakeLeadNs;
             return inRange ? ns : std::nullopt;
         })});
    app.add_flag("--system", o.systemOnly,
                 "print only the System section (what on this machine costs tick latency, and the fix) and exit")
        ->group(group);
}

void addOutput(CLI::App& app, MonitorOptions& o) {
    const std::string group = "Output";
    app.add_flag("-q,--quiet", o.quiet, "no live status and no report on stdout")->group(group);
    zyn_cli::addValueOption(app, group,
                            {"--json", "FILE", "every figure and the run's settings as one JSON record", "a file name",
                             fileNameInto(o.jsonPath)});
    zyn_cli::addValueOption(app, group,
                            {"--histogram", "FILE", "latency histogram in cyclictest's -h text layout", "a file name",
                             fileNameInto(o.histogramPath)});
    zyn_cli::addIntegerOption(
        app, group, "--histogram-buckets", "N",
        "one-microsecond buckets in that file, default " + std::to_string(o.histogramBuckets),
        zyn_cli::IntegerRange<uint32_t>{limits::kMinHistogramBuckets, limits::kMaxHistogramBuckets, nullptr,
                                        "one bucket per microsecond"},
        o.histogramBuckets);
    zyn_cli::addValueOption(app, group,
                            {"--timeline", "FILE.json",
                             "every tick, pass and handler call as a timeline in the Trace Event Format (open it in "
                             "Perfetto's UI or chrome://tracing)",
                             "a file name ending in .json", fileNameInto(o.timelinePath, ".json")});
    zyn_cli::addIntegerOption(
        app, group, "--timeline-max-mb", "N",
        "stop adding to the timeline at N megabytes, default " + std::to_string(o.timelineMaxMb),
        zyn_cli::IntegerRange<uint32_t>{limits::kMinTimelineMb, limits::kMaxTimelineMb, nullptr, "megabytes"},
        o.timelineMaxMb);
    zyn_cli::addValueOption(app, group,
                            {"--plot", "FILE.png", "histogram picture (needs gnuplot on PATH)",
                             "a file name ending in .png", fileNameInto(o.plotPath, ".png")});
}

/// The monitor's command line, storing into `o`.
std::unique_ptr<CLI::App> commandLine(MonitorOptions& o) {
    auto app = zyn_cli::makeApp(
        "zyn-tickmon",
        "Runs libZynTickScheduler as a platform process does (both modules initialised, phases " +
            std::to_string(TickModule::Phase::Configure) + ", " + std::to_string(TickModule::Phase::Idle) + " and " +
            std::to_string(TickModule::Phase::StartTicks) + ", phase " + std::to_string(TickModule::Phase::ShutDown) +
            " at the end), measures the 6 ms tick (or the fast scheduler's 1 ms tick) with a probe handler and reports "
            "period, latency after the "
            "published grid, missed grid points, handler call counts and the oscillator thread as the kernel sees "
            "it.");
    addRunLength(*app, o);
    addSchedulerAndLoad(*app, o);
    addPunctuality(*app, o);
    addOutput(*app, o);
    app->add_flag("--inject-fault", o.injectFault, "disable one handler for a few ticks: the run must fail")
        ->group("Self-test");
    // Set again to be listed last, in its group.
    app->set_help_flag("-h,--help", "this text")->group("Self-test");
    app->footer(
        "Exit status: 0 every handler was called as often as its interval requires;\n"
        "1 a handler was called a wrong number of times, or the library did not start;\n"
        "2 bad usage or an output file that cannot be written.");
    return app;
}

/// What the fast grid cannot do: its scheduler has no intervals, its
/// oscillator's priority is the module's, and its period halves to 500 us.
std::string fastGridError(const CLI::App& app, const MonitorOptions& o) {
    if (app.count("--intervals") != 0) {
        return "--intervals: the fast scheduler calls every handler on every tick; expected no --intervals with "
               "--grid fast";
    }
    if (app.count("--priority") != 0) {
        return "--priority: the fast scheduler's oscillator runs at ETickPriority 1; expected no --priority with "
               "--grid fast";
    }
    if (o.wakeLeadNs > limits::kMaxFastWakeLeadNs) {
        return "--wake-lead: " + wakeLeadName(o.wakeLeadNs) +
               " is more than half the fast scheduler's 1 ms period; expected 'off', 'auto' or a time from 1us to "
               "500us with --grid fast";
    }
    return "";
}

/// Options that are valid alone but not together; empty when all is well.
/// The fast grid's fixed settings are stored into `o`.
std::string combinationError(const CLI::App& app, MonitorOptions& o) {
    if (o.injectFault && o.handlerCount == 0) {
        return "--inject-fault: needs at least one handler; expected --handlers from 1 to " +
               std::to_string(limits::kMaxHandlers);
    }
    if (o.grid != MonitoredGrid::Fast) {
        return "";
    }
    const std::string error = fastGridError(app, o);
    o.intervals = {1};
    o.priority = 1;
    return error;
}

}  // namespace

const char* gridName(MonitoredGrid grid) { return grid == MonitoredGrid::Fast ? "fast" : "scheduler"; }

const char* schedulerModuleName(MonitoredGrid grid) {
    return grid == MonitoredGrid::Fast ? "CTickSchedulerFast" : "CTickScheduler";
}

int64_t workOfHandler(const MonitorOptions& options, size_t index) {
    if (options.workPerHandler.empty()) {
        return options.workNs;
    }
    return index < options.workPerHandler.size() ? options.workPerHandler[index] : 0;
}

std::string wakeLeadName(int64_t wakeLeadNs) {
    if (wakeLeadNs == MonitorOptions::kWakeLeadOff) {
        return "off";
    }
    if (wakeLeadNs == MonitorOptions::kWakeLeadAuto) {
        return "auto";
    }
    // Whole microseconds unless the lead was given finer.
    return wakeLeadNs % kNanosecondsPerMicrosecond == 0 ? std::to_string(wakeLeadNs / kNanosecondsPerMicrosecond) + "us"
                                                        : std::to_string(wakeLeadNs) + "ns";
}

ParseResult parseOptions(const std::vector<std::string>& arguments) {
    ParseResult result;
    const std::unique_ptr<CLI::App> app = commandLine(result.options);
    const zyn_cli::Parsed parsed = zyn_cli::parse(*app, arguments);
    result.error = parsed.error;
    result.outcome = parsed.outcome == zyn_cli::Outcome::Help    ? ParseOutcome::Help
                     : parsed.outcome == zyn_cli::Outcome::Error ? ParseOutcome::Error
                                                                 : ParseOutcome::Run;
    if (result.outcome == ParseOutcome::Run) {
        result.error = combinationError(*app, result.options);
        if (!result.error.empty()) {
            result.outcome = ParseOutcome::Error;
        }
    }
    return result;
}

std::string usageText() {
    MonitorOptions unused;
    return commandLine(unused)->help();
}

}  // namespace tickmon
