#include "SystemReadiness.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <sstream>

#include "ProcFiles.h"

namespace tickmon {
namespace {

constexpr const char* kUnknown = "unknown";
/// Idle states deeper than this exit latency make a sleeping CPU wake the
/// tick noticeably late.
constexpr uint64_t kShallowExitLatencyUs = 10;
/// Steal above this share of the run is a host taking CPUs away.
constexpr double kStealWorthMentioning = 0.001;
constexpr int kMaxCpus = 1024;

std::string trim(const std::string& text) {
    size_t begin = 0;
    size_t end = text.size();
    while (begin < end && std::isspace(static_cast<unsigned char>(text[begin])) != 0) {
        ++begin;
    }
    while (end > begin && std::isspace(static_cast<unsigned char>(text[end - 1])) != 0) {
        --end;
    }
    return text.substr(begin, end - begin);
}

/// The first line of a file, trimmed; nothing when missing or empty.
std::optional<std::string> readLine(const std::string& path) {
    const std::optional<std::string> text = readWholeFile(path);
    if (!text) {
        return std::nullopt;
    }
    const std::string line = trim(text->substr(0, text->find('\n')));
    return line.empty() ? std::nullopt : std::optional<std::string>(line);
}

/// A file holding one decimal integer (an optional leading '-').
std::optional<int64_t> readInteger(const std::string& path) {
    const std::optional<std::string> line = readLine(path);
    if (!line) {
        return std::nullopt;
    }
    const size_t digits = (*line)[0] == '-' ? 1 : 0;
    if (line->size() == digits || line->size() > 18 ||
        !std::all_of(line->begin() + static_cast<std::ptrdiff_t>(digits), line->end(),
                     [](char c) { return std::isdigit(static_cast<unsigned char>(c)) != 0; })) {
        return std::nullopt;
    }
    return std::stoll(*line);
}

SystemFinding finding(const char* key, const char* label, const std::string& value) {
    return SystemFinding{key, label, value, false, ""};
}

SystemFinding costly(const char* key, const char* label, const std::string& value, const std::string& advice) {
    return SystemFinding{key, label, value, true, advice};
}

SystemFinding kernelRelease(const SystemRoots& roots) {
    return finding("kernel", "kernel", readLine(roots.proc + "/sys/kernel/osrelease").value_or(kUnknown));
}

/// The mode in brackets of "none voluntary (full) lazy", or nothing.
std::optional<std::string> dynamicPreemptMode(const SystemRoots& roots) {
    const std::optional<std::string> modes = readLine(roots.sys + "/kernel/debug/sched/preempt");
    if (!modes) {
        return std::nullopt;
    }
    const size_t open = modes->find('(');
    const size_t close = modes->find(')', open);
    if (open == std::string::npos || close == std::string::npos || close == open + 1) {
        return std::nullopt;
    }
    return modes->substr(open + 1, close - open - 1);
}

SystemFinding preemptionModel(const SystemRoots& roots) {
    const char* key = "preemption";
    const char* label = "preemption model";
    const std::string rtKernel =
        "a PREEMPT_RT kernel (Debian: apt install linux-image-rt-amd64 or linux-image-rt-arm64) for bounded latency";
    const std::string rtAdvice = "boot " + rtKernel;
    if (readInteger(roots.sys + "/kernel/realtime").value_or(0) == 1) {
        return finding(key, label, "PREEMPT_RT");
    }
    const std::optional<std::string> version = readLine(roots.proc + "/sys/kernel/version");
    if (!version) {
        return finding(key, label, kUnknown);
    }
    if (version->find("PREEMPT_RT") != std::string::npos) {
        return finding(key, label, "PREEMPT_RT");
    }
    if (version->find("PREEMPT_DYNAMIC") != std::string::npos) {
        const std::optional<std::string> mode = dynamicPreemptMode(roots);
        const std::string value = "PREEMPT_DYNAMIC, mode " + mode.value_or("unknown (debugfs not readable)");
        return costly(key, label, value, mode == "full" ? rtAdvice : "boot with preempt=full, or better " + rtKernel);
    }
    if (version->find("PREEMPT") != std::string::npos) {
        return costly(key, label, "PREEMPT", rtAdvice);
    }
    return costly(key, label, "none (server)", rtAdvice);
}

SystemFinding clockSource(const SystemRoots& roots) {
    const std::string directory = roots.sys + "/devices/system/clocksource/clocksource0";
    const std::optional<std::string> current = readLine(directory + "/current_clocksource");
    const std::optional<std::string> available = readLine(directory + "/available_clocksource");
    if (!current) {
        return finding("clocksource", "clock source", kUnknown);
    }
    const std::string value = *current + " (available: " + available.value_or(kUnknown) + ")";
    const bool slow = *current == "hpet" || *current == "acpi_pm" || *current == "jiffies";
    if (slow) {
        return costly("clocksource", "clock source", value,
                      "every clock read is slow: boot with clocksource=tsc (or the architecture's counter) if it "
                      "is listed as available");
    }
    return finding("clocksource", "clock source", value);
}

/// ".resolution: 1 nsecs" of the first clock in /proc/timer_list.
SystemFinding timerResolution(const SystemRoots& roots) {
    const std::optional<std::string> list = readWholeFile(roots.proc + "/timer_list");
    const size_t at = list ? list->find(".resolution:") : std::string::npos;
    unsigned long long ns = 0;
    if (at == std::string::npos || std::sscanf(list->c_str() + at, ".resolution: %llu nsecs", &ns) != 1) {
        return finding("timer_resolution", "timer resolution", kUnknown);
    }
    const std::string value = std::to_string(ns) + " ns";
    if (ns > 1) {
        return costly("timer_resolution", "timer resolution", value,
                      "high-resolution timers are off: remove highres=off from the kernel command line "
                      "(CONFIG_HIGH_RES_TIMERS=y)");
    }
    return finding("timer_resolution", "timer resolution", value);
}

SystemFinding realTimeThrottling(const SystemRoots& roots) {
    const std::optional<int64_t> runtime = readInteger(roots.proc + "/sys/kernel/sched_rt_runtime_us");
    const std::optional<int64_t> period = readInteger(roots.proc + "/sys/kernel/sched_rt_period_us");
    if (!runtime || !period || *period <= 0) {
        return finding("rt_throttling", "real-time throttling", kUnknown);
    }
    if (*runtime < 0) {
        return finding("rt_throttling", "real-time throttling", "off");
    }
    char value[160];
    std::snprintf(value, sizeof value,
                  "%lld us of every %lld us (%.0f %%); only a real-time load above that is held back",
                  static_cast<long long>(*runtime), static_cast<long long>(*period),
                  100.0 * static_cast<double>(*runtime) / static_cast<double>(*period));
    return finding("rt_throttling", "real-time throttling", value);
}

struct IdleState {
    std::string name;
    uint64_t exitLatencyUs = 0;
    bool disabled = false;
};

std::vector<IdleState> idleStatesOfCpu0(const SystemRoots& roots) {
    std::vector<IdleState> states;
    for (int index = 0; index < 16; ++index) {
        const std::string directory = roots.sys + "/devices/system/cpu/cpu0/cpuidle/state" + std::to_string(index);
        const std::optional<std::string> name = readLine(directory + "/name");
        const std::optional<int64_t> latency = readInteger(directory + "/latency");
        if (!name) {
            break;
        }
        states.push_back(IdleState{*name, latency && *latency >= 0 ? static_cast<uint64_t>(*latency) : UINT64_MAX,
                                   readInteger(directory + "/disable").value_or(0) == 1});
    }
    return states;
}

std::string describeIdleStates(const std::vector<IdleState>& states) {
    std::string text;
    for (const IdleState& state : states) {
        text +=
            (text.empty() ? "" : ", ") + state.name + " " +
            (state.exitLatencyUs == UINT64_MAX ? std::string("? us") : std::to_string(state.exitLatencyUs) + " us") +
            (state.disabled ? " (disabled)" : "");
    }
    return text.empty() ? "none listed" : text;
}

std::vector<SystemFinding> cpuIdle(const SystemRoots& roots, const RunGrants& grants) {
    const std::string directory = roots.sys + "/devices/system/cpu/cpuidle";
    const std::optional<std::string> driver = readLine(directory + "/current_driver");
    std::optional<std::string> governor = readLine(directory + "/current_governor");
    if (!governor) {
        governor = readLine(directory + "/current_governor_ro");
    }
    const std::vector<IdleState> states = idleStatesOfCpu0(roots);
    const bool deepState = std::any_of(states.begin(), states.end(), [](const IdleState& s) {
        return !s.disabled && s.exitLatencyUs > kShallowExitLatencyUs;
    });
    // In a VM the haltpoll state hands the CPU to the host: its listed exit
    // latency is small, the real one is the host's wake-up.
    const bool haltpoll = driver == std::string("haltpoll");
    const bool idleCosts = (deepState || haltpoll) && !grants.cpuLatencyHeld;
    const std::string idleAdvice =
        "hold the CPU wake-up latency request at 0 while ticking (zyn-tickmon and the host platform do by default; "
        "see --cpu-latency and ZYN_CPU_LATENCY_US), or boot with idle=poll / processor.max_cstate=1";
    std::vector<SystemFinding> findings;
    findings.push_back(finding("cpuidle_driver", "cpuidle driver", driver.value_or(kUnknown)));
    findings.push_back(finding("cpuidle_governor", "cpuidle governor", governor.value_or(kUnknown)));
    findings.push_back(
        idleCosts ? costly("idle_states", "idle states (cpu0, exit latency)", describeIdleStates(states), idleAdvice)
                  : finding("idle_states", "idle states (cpu0, exit latency)", describeIdleStates(states)));
    if (!grants.ran) {
        findings.push_back(finding("cpu_latency_request", "CPU latency request", "not tried (--system)"));
    } else if (!grants.cpuLatencyHeld && (deepState || haltpoll)) {
        findings.push_back(costly("cpu_latency_request", "CPU latency request", grants.cpuLatencyRequest, idleAdvice));
    } else {
        findings.push_back(finding("cpu_latency_request", "CPU latency request", grants.cpuLatencyRequest));
    }
    return findings;
}

SystemFinding cpufreqGovernors(const SystemRoots& roots) {
    std::string value;
    bool slow = false;
    for (int cpu = 0; cpu < kMaxCpus; ++cpu) {
        const std::string directory = roots.sys + "/devices/system/cpu/cpu" + std::to_string(cpu);
        if (!readWholeFile(directory + "/uevent") && !readLine(directory + "/online") &&
            !readLine(directory + "/cpufreq/scaling_governor")) {
            break;
        }
        const std::optional<std::string> governor = readLine(directory + "/cpufreq/scaling_governor");
        if (governor) {
            value += (value.empty() ? "" : ", ") + std::string("cpu") + std::to_string(cpu) + " " + *governor;
            slow = slow || *governor != "performance";
        }
    }
    if (value.empty()) {
        return finding("cpufreq_governor", "cpufreq governor", "none (fixed frequency or a VM)");
    }
    if (slow) {
        return costly("cpufreq_governor", "cpufreq governor", value,
                      "a CPU that clocks down runs the tick slower after idle: cpupower frequency-set -g "
                      "performance (or echo performance to each cpufreq/scaling_governor)");
    }
    return finding("cpufreq_governor", "cpufreq governor", value);
}

std::vector<SystemFinding> isolation(const SystemRoots& roots) {
    const std::optional<std::string> isolated = readWholeFile(roots.sys + "/devices/system/cpu/isolated");
    const std::optional<std::string> nohzFull = readWholeFile(roots.sys + "/devices/system/cpu/nohz_full");
    std::vector<SystemFinding> findings;
    if (!isolated) {
        findings.push_back(finding("isolated_cpus", "isolated CPUs", kUnknown));
    } else if (trim(*isolated).empty()) {
        findings.push_back(costly("isolated_cpus", "isolated CPUs", "none",
                                  "other work shares the tick's CPU: boot with isolcpus=N nohz_full=N rcu_nocbs=N "
                                  "and pin the oscillator there (zyn-tickmon --cpu N)"));
    } else {
        findings.push_back(finding("isolated_cpus", "isolated CPUs", trim(*isolated)));
    }
    const std::string nohz = nohzFull ? trim(*nohzFull) : kUnknown;
    findings.push_back(
        finding("nohz_full", "nohz_full CPUs", nohz.empty() || nohz == "(null)" ? std::string("none") : nohz));
    return findings;
}

/// The soft limit of one line of /proc/self/limits, e.g. "Max realtime
/// priority".
std::optional<std::string> softLimit(const std::string& limits, const std::string& name) {
    std::istringstream lines(limits);
    std::string line;
    while (std::getline(lines, line)) {
        if (line.compare(0, name.size(), name) == 0 && line.size() > name.size() && line[name.size()] == ' ') {
            std::istringstream fields(line.substr(name.size()));
            std::string soft;
            if (fields >> soft) {
                return soft;
            }
        }
    }
    return std::nullopt;
}

std::vector<SystemFinding> limitsAndGrants(const SystemRoots& roots, const RunGrants& grants) {
    const std::optional<std::string> limits = readWholeFile(roots.proc + "/self/limits");
    const std::optional<std::string> rtprio = limits ? softLimit(*limits, "Max realtime priority") : std::nullopt;
    const std::optional<std::string> memlock = limits ? softLimit(*limits, "Max locked memory") : std::nullopt;
    std::vector<SystemFinding> findings;
    findings.push_back(finding("rlimit_rtprio", "RLIMIT_RTPRIO", rtprio.value_or(kUnknown)));
    findings.push_back(finding("rlimit_memlock", "RLIMIT_MEMLOCK", memlock ? *memlock + " bytes" : kUnknown));
    if (!grants.ran) {
        findings.push_back(finding("realtime_priority", "real-time priority", "not tried (--system)"));
        findings.push_back(finding("memory_lock", "memory lock", "not tried (--system)"));
        return findings;
    }
    findings.push_back(grants.realTimeGranted
                           ? finding("realtime_priority", "real-time priority", "granted")
                           : costly("realtime_priority", "real-time priority", "refused",
                                    "run as root, give the program CAP_SYS_NICE (setcap cap_sys_nice+ep), or raise "
                                    "RLIMIT_RTPRIO (limits.conf: @audio - rtprio 99)"));
    findings.push_back(grants.memoryLocked || grants.memoryLock.rfind("not asked", 0) == 0
                           ? finding("memory_lock", "memory lock", grants.memoryLock)
                           : costly("memory_lock", "memory lock", grants.memoryLock,
                                    "a page fault on the tick path waits for the disk: run as root, give "
                                    "CAP_IPC_LOCK, or raise RLIMIT_MEMLOCK (limits.conf: memlock unlimited)"));
    return findings;
}

SystemFinding stealTime(const SystemRoots& roots, const std::optional<CpuTimes>& before) {
    const char* label = before ? "steal time during the run" : "steal time since boot";
    const std::optional<CpuTimes> now = readCpuTimes(roots);
    if (!now || (before && (now->total < before->total || now->steal < before->steal))) {
        return finding("steal_time", label, kUnknown);
    }
    const uint64_t total = now->total - (before ? before->total : 0);
    const uint64_t steal = now->steal - (before ? before->steal : 0);
    const double share = total > 0 ? static_cast<double>(steal) / static_cast<double>(total) : 0.0;
    char value[64];
    std::snprintf(value, sizeof value, "%.2f %% of CPU time", 100.0 * share);
    if (share > kStealWorthMentioning) {
        return costly("steal_time", label, value,
                      "a virtual machine whose host takes the CPU away: give the VM dedicated, pinned host CPUs, "
                      "or measure on the board itself");
    }
    return finding("steal_time", label, value);
}

}  // namespace

std::optional<CpuTimes> parseCpuTimes(const std::string& procStat) {
    std::istringstream lines(procStat);
    std::string line;
    while (std::getline(lines, line)) {
        std::istringstream fields(line);
        std::string name;
        fields >> name;
        if (name != "cpu") {
            continue;
        }
        // user nice system idle iowait irq softirq steal: guest time is
        // already part of user and nice.
        CpuTimes times;
        uint64_t value = 0;
        int count = 0;
        while (count < 8 && fields >> value) {
            times.total += value;
            times.steal = value;
            ++count;
        }
        if (count < 8) {
            return std::nullopt;
        }
        return times;
    }
    return std::nullopt;
}

std::optional<CpuTimes> readCpuTimes(const SystemRoots& roots) {
    const std::optional<std::string> text = readWholeFile(roots.proc + "/stat");
    return text ? parseCpuTimes(*text) : std::nullopt;
}

std::vector<SystemFinding> readSystemReadiness(const SystemRoots& roots, const RunGrants& grants,
                                               const std::optional<CpuTimes>& stealBefore) {
    std::vector<SystemFinding> findings;
    auto append = [&findings](std::vector<SystemFinding> more) {
        findings.insert(findings.end(), more.begin(), more.end());
    };
    findings.push_back(kernelRelease(roots));
    findings.push_back(preemptionModel(roots));
    findings.push_back(clockSource(roots));
    findings.push_back(timerResolution(roots));
    findings.push_back(realTimeThrottling(roots));
    append(cpuIdle(roots, grants));
    findings.push_back(cpufreqGovernors(roots));
    append(isolation(roots));
    append(limitsAndGrants(roots, grants));
    findings.push_back(stealTime(roots, stealBefore));
    return findings;
}

std::string formatSystemSection(const std::vector<SystemFinding>& findings) {
    std::string out = "\nSystem (what on this machine costs tick latency; ! marks a cost, -> its fix)\n";
    for (const SystemFinding& f : findings) {
        out += std::string("  ") + (f.costsLatency ? "! " : "  ") + f.label + ": " + f.value + "\n";
        if (f.costsLatency) {
            out += "      -> " + f.advice + "\n";
        }
    }
    return out;
}

}  // namespace tickmon
