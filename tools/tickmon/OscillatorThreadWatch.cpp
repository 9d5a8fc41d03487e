#include "OscillatorThreadWatch.h"

#include <vector>

#include "ZynSupport/MonotonicClock.h"

namespace tickmon {

using zyn_support::monotonicNowNs;

bool OscillatorThreadWatch::begin(int64_t timeoutNs) {
    const int64_t giveUp = monotonicNowNs() + timeoutNs;
    for (;;) {
        const std::vector<pid_t> found = findThreadsByName(name);
        if (!found.empty()) {
            tid = found.front();
            break;
        }
        if (monotonicNowNs() >= giveUp) {
            return false;
        }
        zyn_support::sleepForNs(zyn_support::kNanosecondsPerMillisecond);
    }
    startCpu = readThreadCpuTime(tid);
    startNs = monotonicNowNs();
    return true;
}

OscillatorThreadReport OscillatorThreadWatch::finish() {
    OscillatorThreadReport report;
    report.name = name;
    if (tid == 0) {
        return report;
    }
    const std::optional<ThreadCpuTime> endCpu = readThreadCpuTime(tid);
    const int64_t endNs = monotonicNowNs();
    const std::optional<ThreadStat> stat = readThreadStat(tid);
    if (!stat) {
        return report;
    }
    report.found = true;
    report.tid = tid;
    report.name = stat->comm;
    report.policy = stat->policy;
    report.policyName = schedulingPolicyName(stat->policy);
    report.priority = stat->rtPriority;
    if (startCpu && endCpu && startCpu->source == endCpu->source && endNs > startNs) {
        report.cpuMeasured = true;
        report.cpuSource = endCpu->source;
        const double seconds = static_cast<double>(endNs - startNs) / 1e9;
        report.cpuNsPerSecond = static_cast<double>(endCpu->ns - startCpu->ns) / seconds;
    }
    return report;
}

}  // namespace tickmon
