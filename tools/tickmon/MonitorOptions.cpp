#include "MonitorOptions.h"

#include <algorithm>
#include <cctype>
#include <functional>
#include <limits>
#include <sstream>

#include "TimeSpan.h"

namespace tickmon {
namespace {

/// Reads an unsigned decimal integer made of digits only.
std::optional<uint64_t> parseUnsigned(const std::string& text) {
    if (text.empty() || text.size() > 19) {
        return std::nullopt;
    }
    uint64_t value = 0;
    for (const char c : text) {
        if (std::isdigit(static_cast<unsigned char>(c)) == 0) {
            return std::nullopt;
        }
        value = value * 10 + static_cast<uint64_t>(c - '0');
    }
    return value;
}

std::optional<uint64_t> parseUnsignedInRange(const std::string& text, uint64_t low, uint64_t high) {
    const std::optional<uint64_t> value = parseUnsigned(text);
    if (!value || *value < low || *value > high) {
        return std::nullopt;
    }
    return value;
}

std::optional<std::vector<uint32_t>> parseIntervalList(const std::string& text) {
    std::vector<uint32_t> intervals;
    std::string item;
    std::istringstream items(text);
    while (std::getline(items, item, ',')) {
        const std::optional<uint64_t> interval = parseUnsignedInRange(item, limits::kMinInterval, limits::kMaxInterval);
        if (!interval) {
            return std::nullopt;
        }
        intervals.push_back(static_cast<uint32_t>(*interval));
    }
    if (intervals.empty() || text.back() == ',') {
        return std::nullopt;
    }
    return intervals;
}

/// "50us" or "0,0,2ms": busy times from 0 to kMaxWorkNs (no unit:
/// microseconds), at most one per possible handler.
std::optional<std::vector<int64_t>> parseWorkList(const std::string& text) {
    std::vector<int64_t> times;
    std::string item;
    std::istringstream items(text);
    while (std::getline(items, item, ',')) {
        const std::optional<int64_t> ns = parseTimeSpan(item, kNanosPerMicro);
        if (!ns || *ns > limits::kMaxWorkNs || times.size() >= limits::kMaxHandlers) {
            return std::nullopt;
        }
        times.push_back(*ns);
    }
    if (times.empty() || text.back() == ',') {
        return std::nullopt;
    }
    return times;
}

/// "2", "0,1" or "0-3,6": CPU numbers from 0 to kMaxCpu, sorted, each once.
std::optional<std::vector<uint32_t>> parseCpuList(const std::string& text) {
    std::vector<uint32_t> cpus;
    std::string item;
    std::istringstream items(text);
    while (std::getline(items, item, ',')) {
        const size_t dash = item.find('-');
        const std::optional<uint64_t> first = parseUnsignedInRange(item.substr(0, dash), 0, limits::kMaxCpu);
        const std::optional<uint64_t> last =
            dash == std::string::npos ? first : parseUnsignedInRange(item.substr(dash + 1), 0, limits::kMaxCpu);
        if (!first || !last || *last < *first) {
            return std::nullopt;
        }
        for (uint64_t cpu = *first; cpu <= *last; ++cpu) {
            cpus.push_back(static_cast<uint32_t>(cpu));
        }
    }
    if (cpus.empty() || text.back() == ',') {
        return std::nullopt;
    }
    std::sort(cpus.begin(), cpus.end());
    cpus.erase(std::unique(cpus.begin(), cpus.end()), cpus.end());
    return cpus;
}

std::string rangeError(const std::string& option, const std::string& value, const std::string& accepted) {
    return option + ": invalid value '" + value + "'; expected " + accepted;
}

/// One option that takes a value: its accepted range in words and how it
/// stores a valid value (false when the value is not accepted).
struct ValueOption {
    const char* name;
    const char* accepted;
    std::function<bool(const std::string&, MonitorOptions&)> apply;
};

const std::vector<ValueOption>& valueOptions() {
    static const std::vector<ValueOption> options = {
        {"--duration", "a time from 1ms to 7 days, e.g. 10s, 500ms or 2min (no unit: seconds)",
         [](const std::string& v, MonitorOptions& o) {
             const std::optional<int64_t> ns = parseTimeSpan(v, kNanosPerSecond);
             if (!ns || *ns < limits::kMinDurationNs || *ns > limits::kMaxDurationNs) {
                 return false;
             }
             o.durationNs = ns;
             return true;
         }},
        {"--ticks", "an integer from 1 to 100000000",
         [](const std::string& v, MonitorOptions& o) {
             o.ticks = parseUnsignedInRange(v, limits::kMinTicks, limits::kMaxTicks);
             return o.ticks.has_value();
         }},
        {"--priority", "an integer from 0 (highest) to 4 (lowest)",
         [](const std::string& v, MonitorOptions& o) {
             const std::optional<uint64_t> p = parseUnsignedInRange(v, limits::kMinPriority, limits::kMaxPriority);
             o.priority = p ? static_cast<int32_t>(*p) : o.priority;
             return p.has_value();
         }},
        {"--handlers", "an integer from 0 to 10000",
         [](const std::string& v, MonitorOptions& o) {
             const std::optional<uint64_t> n = parseUnsignedInRange(v, 0, limits::kMaxHandlers);
             o.handlerCount = n ? static_cast<uint32_t>(*n) : o.handlerCount;
             return n.has_value();
         }},
        {"--intervals", "a comma-separated list of integers from 1 to 100000, e.g. 1,2,5",
         [](const std::string& v, MonitorOptions& o) {
             const std::optional<std::vector<uint32_t>> list = parseIntervalList(v);
             o.intervals = list ? *list : o.intervals;
             return list.has_value();
         }},
        {"--work",
         "a time from 0 to 6ms per call, e.g. 50us (no unit: microseconds), or a comma-separated list of such "
         "times, one per handler, e.g. 0,0,2ms",
         [](const std::string& v, MonitorOptions& o) {
             const std::optional<std::vector<int64_t>> times = parseWorkList(v);
             if (!times) {
                 return false;
             }
             if (v.find(',') == std::string::npos) {
                 o.workNs = times->front();
                 o.workPerHandler.clear();
             } else {
                 o.workNs = 0;
                 o.workPerHandler = *times;
             }
             return true;
         }},
        {"--trace-level", "an integer from 0 (off) to 7 (per-tick detail)",
         [](const std::string& v, MonitorOptions& o) {
             const std::optional<uint64_t> level = parseUnsignedInRange(v, 0, limits::kMaxTraceLevel);
             if (level) {
                 o.traceLevel = static_cast<uint32_t>(*level);
             }
             return level.has_value();
         }},
        {"--json", "a file name",
         [](const std::string& v, MonitorOptions& o) {
             o.jsonPath = v;
             return !v.empty();
         }},
        {"--histogram", "a file name",
         [](const std::string& v, MonitorOptions& o) {
             o.histogramPath = v;
             return !v.empty();
         }},
        {"--histogram-buckets", "an integer from 1 to 6000 (one bucket per microsecond)",
         [](const std::string& v, MonitorOptions& o) {
             const std::optional<uint64_t> n =
                 parseUnsignedInRange(v, limits::kMinHistogramBuckets, limits::kMaxHistogramBuckets);
             o.histogramBuckets = n ? static_cast<uint32_t>(*n) : o.histogramBuckets;
             return n.has_value();
         }},
        {"--plot", "a file name ending in .png",
         [](const std::string& v, MonitorOptions& o) {
             const std::string suffix = ".png";
             if (v.size() <= suffix.size() || v.compare(v.size() - suffix.size(), suffix.size(), suffix) != 0) {
                 return false;
             }
             o.plotPath = v;
             return true;
         }},
        {"--cpu-latency", "'off' or microseconds from 0 to 2000000000",
         [](const std::string& v, MonitorOptions& o) {
             if (v == "off") {
                 o.cpuLatencyUs = MonitorOptions::kCpuLatencyOff;
                 return true;
             }
             const std::optional<uint64_t> us = parseUnsignedInRange(v, 0, limits::kMaxCpuLatencyUs);
             if (us) {
                 o.cpuLatencyUs = static_cast<int64_t>(*us);
             }
             return us.has_value();
         }},
        {"--cpu", "a CPU number or list from 0 to 1023, e.g. 1, 0,2 or 0-3",
         [](const std::string& v, MonitorOptions& o) {
             const std::optional<std::vector<uint32_t>> cpus = parseCpuList(v);
             o.cpus = cpus ? *cpus : o.cpus;
             return cpus.has_value();
         }},
        {"--break-trace", "microseconds from 1 to 1000000",
         [](const std::string& v, MonitorOptions& o) {
             const std::optional<uint64_t> us =
                 parseUnsignedInRange(v, limits::kMinBreakTraceUs, limits::kMaxBreakTraceUs);
             if (us) {
                 o.breakTraceUs = static_cast<int64_t>(*us);
             }
             return us.has_value();
         }},
    };
    return options;
}

const ValueOption* findValueOption(const std::string& name) {
    for (const ValueOption& option : valueOptions()) {
        if (name == option.name) {
            return &option;
        }
    }
    return nullptr;
}

}  // namespace

int64_t workOfHandler(const MonitorOptions& options, size_t index) {
    if (options.workPerHandler.empty()) {
        return options.workNs;
    }
    return index < options.workPerHandler.size() ? options.workPerHandler[index] : 0;
}

ParseResult parseOptions(const std::vector<std::string>& arguments) {
    ParseResult result;
    auto fail = [&result](const std::string& error) {
        result.outcome = ParseOutcome::Error;
        result.error = error;
        return result;
    };
    for (size_t i = 0; i < arguments.size(); ++i) {
        const std::string& argument = arguments[i];
        if (argument == "--help" || argument == "-h") {
            result.outcome = ParseOutcome::Help;
            return result;
        }
        if (argument == "--quiet" || argument == "-q") {
            result.options.quiet = true;
            continue;
        }
        if (argument == "--inject-fault") {
            result.options.injectFault = true;
            continue;
        }
        if (argument == "--no-mlock") {
            result.options.lockMemory = false;
            continue;
        }
        if (argument == "--system") {
            result.options.systemOnly = true;
            continue;
        }
        const size_t equals = argument.find('=');
        const std::string name = argument.substr(0, equals);
        const ValueOption* option = findValueOption(name);
        if (option == nullptr) {
            return fail("unknown option '" + argument + "' (see --help)");
        }
        std::string value;
        if (equals != std::string::npos) {
            value = argument.substr(equals + 1);
        } else if (i + 1 < arguments.size()) {
            value = arguments[++i];
        } else {
            return fail(std::string(option->name) + ": missing value; expected " + option->accepted);
        }
        if (!option->apply(value, result.options)) {
            return fail(rangeError(option->name, value, option->accepted));
        }
    }
    if (result.options.injectFault && result.options.handlerCount == 0) {
        return fail("--inject-fault: needs at least one handler; expected --handlers from 1 to 10000");
    }
    return result;
}

std::string usageText() {
    return "Usage: zyn-tickmon [options]\n"
           "\n"
           "Runs libZynTickScheduler as a platform process does (both modules initialised,\n"
           "phases 11, 13 and 14, phase 16 at the end), measures the 6 ms tick with a probe\n"
           "handler and reports period, latency after the published grid, missed grid\n"
           "points, handler call counts and the oscillator thread as the kernel sees it.\n"
           "\n"
           "Run length (default: until Ctrl-C; with both, whichever comes first):\n"
           "  --duration TIME        1ms to 7 days, e.g. 10s, 500ms, 2min (no unit: seconds)\n"
           "  --ticks N              stop after N probe ticks, 1 to 100000000\n"
           "\n"
           "Scheduler and load:\n"
           "  --priority P           oscillator priority 0 (highest) to 4 (lowest), default 2\n"
           "  --handlers N           handlers beside the probe, 0 to 10000, default 6\n"
           "  --intervals LIST       their tick intervals, cycled, each 1 to 100000, default 1,2,5\n"
           "  --work TIME[,TIME..]  busy time per handler call, 0 to 6ms (no unit: us), default 0; a list gives\n"
           "                         handler i the i-th time (e.g. 0,0,2ms: the third is slow), the rest 0\n"
           "  --trace-level L        library trace level 0 to 7 (default: the platform's)\n"
           "\n"
           "Punctuality (what a real-time engineer sets up around a latency test):\n"
           "  --cpu-latency US|off   CPU wake-up latency request held while ticking, 0 to\n"
           "                         2000000000 us, or off (default: 0, or ZYN_CPU_LATENCY_US)\n"
           "  --no-mlock             do not lock the process's memory (default: mlockall)\n"
           "  --cpu LIST             pin the oscillator thread to these CPUs, e.g. 1 or 0-3\n"
           "  --break-trace US       the first tick later than US (1 to 1000000) writes a marker\n"
           "                         to tracefs, stops kernel tracing and ends the run (tracefs:\n"
           "                         /sys/kernel/tracing, /sys/kernel/debug/tracing, or\n"
           "                         $ZYN_TICKMON_TRACEFS)\n"
           "  --system               print only the System section (what on this machine costs\n"
           "                         tick latency, and the fix) and exit\n"
           "\n"
           "Output:\n"
           "  -q, --quiet            no live status and no report on stdout\n"
           "  --json FILE            every figure and the run's settings as one JSON record\n"
           "  --histogram FILE       latency histogram in cyclictest's -h text layout\n"
           "  --histogram-buckets N  one-microsecond buckets in that file, 1 to 6000, default 1000\n"
           "  --plot FILE.png        histogram picture (needs gnuplot on PATH)\n"
           "\n"
           "Self-test:\n"
           "  --inject-fault         disable one handler for a few ticks: the run must fail\n"
           "  -h, --help             this text\n"
           "\n"
           "Exit status: 0 every handler was called as often as its interval requires;\n"
           "1 a handler was called a wrong number of times, or the library did not start;\n"
           "2 bad usage or an output file that cannot be written.\n";
}

}  // namespace tickmon
