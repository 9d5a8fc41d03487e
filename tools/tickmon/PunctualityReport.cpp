#include "PunctualityReport.h"

#include <cinttypes>
#include <cstdio>

#include "CpuPlacement.h"

namespace tickmon {
namespace {

std::string breakTraceLine(const PunctualityReport& report) {
    char line[256];
    const BreakTraceResult& b = report.breakTrace;
    if (!b.broke) {
        std::snprintf(line, sizeof line, "armed at %" PRId64 " us (%s); no tick was that late", *report.breakTraceUs,
                      report.tracefs.c_str());
    } else if (b.error.empty()) {
        std::snprintf(line, sizeof line,
                      "tick %" PRIu64 " was %.3f us late: marker written and kernel tracing stopped (%s)", b.tick,
                      static_cast<double>(b.latencyNs) / 1000.0, report.tracefs.c_str());
    } else {
        std::snprintf(line, sizeof line, "tick %" PRIu64 " was %.3f us late, but %s", b.tick,
                      static_cast<double>(b.latencyNs) / 1000.0, b.error.c_str());
    }
    return line;
}

}  // namespace

std::string formatPunctuality(const PunctualityReport& report) {
    std::string out = "\nPunctuality\n";
    out += "  CPU latency request  " + report.cpuLatency + "\n";
    out += "  memory               " + report.memoryLock + "\n";
    out += "  oscillator CPUs      allowed " + formatCpuList(report.allowedCpus) + ", last ran on " +
           (report.lastCpu ? std::to_string(*report.lastCpu) : std::string("unknown")) +
           (report.requestedCpus.empty() ? " (not pinned)" : " (--cpu " + formatCpuList(report.requestedCpus) + ")") +
           "\n";
    if (report.breakTraceUs) {
        out += "  break-trace          " + breakTraceLine(report) + "\n";
    }
    out += formatSystemSection(report.system);
    return out;
}

Json systemJson(const std::vector<SystemFinding>& findings) {
    Json system = Json::object();
    for (const SystemFinding& f : findings) {
        system[f.key] = {{"value", f.value},
                         {"costs_latency", f.costsLatency},
                         {"advice", f.costsLatency ? Json(f.advice) : Json(nullptr)}};
    }
    return system;
}

Json punctualityJson(const PunctualityReport& report) {
    Json breakTrace = nullptr;
    if (report.breakTraceUs) {
        breakTrace = {{"threshold_us", *report.breakTraceUs},      {"tracefs", report.tracefs},
                      {"broke", report.breakTrace.broke},          {"tick", report.breakTrace.tick},
                      {"latency_ns", report.breakTrace.latencyNs}, {"error", report.breakTrace.error}};
    }
    return {
        {"cpu_latency_request",
         {{"held", report.cpuLatencyHeld}, {"us", valueOrNull(report.cpuLatencyUs)}, {"detail", report.cpuLatency}}},
        {"memory_locked", report.memoryLocked},
        {"memory_lock", report.memoryLock},
        {"requested_cpus", report.requestedCpus},
        {"allowed_cpus", report.allowedCpus},
        {"last_cpu", valueOrNull(report.lastCpu)},
        {"break_trace", breakTrace}};
}

}  // namespace tickmon
