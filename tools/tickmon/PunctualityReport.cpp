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

void writeSystemJson(JsonWriter& json, const std::vector<SystemFinding>& findings) {
    json.beginObject();
    for (const SystemFinding& f : findings) {
        json.key(f.key).beginObject();
        json.key("value").value(f.value);
        json.key("costs_latency").value(f.costsLatency);
        json.key("advice");
        f.costsLatency ? json.value(f.advice) : json.null();
        json.endObject();
    }
    json.endObject();
}

void writePunctualityJson(JsonWriter& json, const PunctualityReport& report) {
    json.key("punctuality").beginObject();
    json.key("cpu_latency_request").beginObject();
    json.key("held").value(report.cpuLatencyHeld);
    json.key("us");
    report.cpuLatencyUs ? json.value(static_cast<uint64_t>(*report.cpuLatencyUs)) : json.null();
    json.key("detail").value(report.cpuLatency);
    json.endObject();
    json.key("memory_locked").value(report.memoryLocked);
    json.key("memory_lock").value(report.memoryLock);
    json.key("requested_cpus").beginArray();
    for (const uint32_t cpu : report.requestedCpus) {
        json.value(cpu);
    }
    json.endArray();
    json.key("allowed_cpus").beginArray();
    for (const uint32_t cpu : report.allowedCpus) {
        json.value(cpu);
    }
    json.endArray();
    json.key("last_cpu");
    report.lastCpu ? json.value(*report.lastCpu) : json.null();
    json.key("break_trace");
    if (report.breakTraceUs) {
        json.beginObject();
        json.key("threshold_us").value(*report.breakTraceUs);
        json.key("tracefs").value(report.tracefs);
        json.key("broke").value(report.breakTrace.broke);
        json.key("tick").value(report.breakTrace.tick);
        json.key("latency_ns").value(report.breakTrace.latencyNs);
        json.key("error").value(report.breakTrace.error);
        json.endObject();
    } else {
        json.null();
    }
    json.endObject();
    json.key("system");
    writeSystemJson(json, report.system);
}

}  // namespace tickmon
