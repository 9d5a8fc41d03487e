#include "RunReport.h"

#include <cinttypes>
#include <cstdarg>
#include <cstdio>

namespace tickmon {
namespace {

__attribute__((format(printf, 2, 3))) void appendf(std::string& out, const char* format, ...) {
    char line[512];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    out += line;
}

constexpr uint32_t kSchedRoundRobin = 2;

double toUs(double ns) { return ns / 1000.0; }
double toUs(int64_t ns) { return static_cast<double>(ns) / 1000.0; }

std::string intervalList(const std::vector<uint32_t>& intervals) {
    std::string list;
    for (const uint32_t interval : intervals) {
        list += (list.empty() ? "" : ",") + std::to_string(interval);
    }
    return list;
}

/// "50.000 us work per call", or per handler for a --work list.
std::string workText(const MonitorOptions& o) {
    char text[64];
    if (o.workPerHandler.empty()) {
        std::snprintf(text, sizeof text, "%.3f us work per call", toUs(o.workNs));
        return text;
    }
    std::string list;
    for (const int64_t ns : o.workPerHandler) {
        std::snprintf(text, sizeof text, "%s%.3f", list.empty() ? "" : ",", toUs(ns));
        list += text;
    }
    return "work per call by handler " + list + " us (0 beyond)";
}

std::string stopSentence(const RunReport& report) {
    switch (report.stopReason) {
        case StopReason::Ticks:
            return "stopped after the requested ticks";
        case StopReason::Interrupted:
            return "stopped by an interrupt";
        case StopReason::BreakTrace:
            return "stopped by --break-trace at tick " + std::to_string(report.punctuality.breakTrace.tick);
        case StopReason::Duration:
            break;
    }
    return "stopped after the requested duration";
}

void appendHeading(std::string& out, const RunReport& report) {
    const MonitorOptions& o = report.options;
    appendf(out, "zyn-tickmon: %.3f s run, %s\n", static_cast<double>(report.elapsedNs) / 1e9,
            stopSentence(report).c_str());
    appendf(out, "  %s, %.0f ms grid, ETickPriority %d; %u handlers beside the probe, intervals %s, %s\n",
            schedulerModuleName(o.grid), static_cast<double>(report.ticks.periodNs) / 1e6, o.priority, o.handlerCount,
            intervalList(o.intervals).c_str(), workText(o).c_str());
}

void appendPeriod(std::string& out, const RunReport& report) {
    const SummaryStatistics& p = report.ticks.period;
    out += "\nTick period (probe handler, interval 1)\n";
    appendf(out, "  periods   %12" PRIu64 "\n", p.count);
    appendf(out, "  expected  %12.3f us\n", toUs(report.ticks.periodNs));
    appendf(out, "  min       %12.3f us\n", toUs(p.min));
    appendf(out, "  mean      %12.3f us\n", toUs(p.mean));
    appendf(out, "  max       %12.3f us\n", toUs(p.max));
    appendf(out, "  std dev   %12.3f us\n", toUs(p.stddev));
}

void appendLatency(std::string& out, const RunReport& report) {
    const LatencySummary& l = report.ticks.latency;
    appendf(out, "\nLatency after the %.0f ms grid (from the grid point each tick was due on)\n",
            static_cast<double>(report.ticks.periodNs) / 1e6);
    appendf(out, "  min       %12.3f us\n", toUs(l.min));
    appendf(out, "  mean      %12.3f us\n", toUs(l.mean));
    appendf(out, "  p50       %12.3f us\n", toUs(l.p50));
    appendf(out, "  p99       %12.3f us\n", toUs(l.p99));
    appendf(out, "  p99.9     %12.3f us\n", toUs(l.p999));
    appendf(out, "  max       %12.3f us\n", toUs(l.max));
}

void appendTicks(std::string& out, const RunReport& report) {
    const TickAnalysis& t = report.ticks;
    out += "\nTicks\n";
    appendf(out, "  recorded  %12" PRIu64 "\n", t.recordedTicks);
    appendf(out, "  expected  %12" PRIu64 "  (grid points from the first due one to the last tick's)\n",
            t.expectedTicks);
    appendf(out, "  missed    %12" PRIu64 "  (grid points without a tick)\n", t.missedTicks);
    if (report.lostTimestamps > 0) {
        appendf(out, "  lost      %12" PRIu64 "  timestamps (the monitor fell behind; not counted above)\n",
                report.lostTimestamps);
    }
}

void appendGrid(std::string& out, const RunReport& report) {
    const PublishedGrid& g = report.ticks.grid;
    out += "\nGrid (published by the scheduler)\n";
    appendf(out, "  origin    %12.6f s  (CLOCK_MONOTONIC, grid point 0)\n", static_cast<double>(g.originNs) / 1e9);
    appendf(out, "  period    %12.3f us\n", toUs(g.periodNs));
    appendf(out, "  generation%12" PRIu64 "\n", g.generation);
}

const char* verdict(bool ok) { return ok ? "ok" : "FAIL"; }

void appendSelfTest(std::string& out, const RunReport& report) {
    const TickAnalysis& t = report.ticks;
    out += "\nSelf-test\n";
    appendf(out, "  %-42s %-4s (%" PRIu64 " early)\n", "no tick before its grid point",
            verdict(t.ticksBeforeTheirGridPoint == 0), t.ticksBeforeTheirGridPoint);
    appendf(out, "  %-42s %-4s (%" PRIu64 " extra)\n", "no grid point with more than one tick",
            verdict(t.ticksOnAGridPointAlreadyTicked == 0), t.ticksOnAGridPointAlreadyTicked);
    appendf(out, "  %-42s %s\n", "every handler called as its interval says", verdict(allHandlersOk(report.handlers)));
    out += report.passed ? "Self-test: PASS\n" : "Self-test: FAIL\n";
}

void appendHandlers(std::string& out, const RunReport& report) {
    appendf(out, "\nHandlers (calls made / calls expected after %" PRIu64 " passes)\n", report.passes);
    if (report.handlers.empty()) {
        out += "  none besides the probe\n";
    }
    for (const HandlerVerdict& h : report.handlers) {
        appendf(out, "  %-20s interval %-6u %10" PRIu64 " / %-10" PRIu64 " %s\n", h.name.c_str(), h.interval, h.calls,
                h.expected, h.ok ? "ok" : "WRONG");
    }
}

void appendThread(std::string& out, const RunReport& report) {
    const OscillatorThreadReport& t = report.thread;
    out += "\nOscillator thread (from /proc)\n";
    if (!t.found) {
        out += "  not found\n";
        return;
    }
    appendf(out, "  name      %s (tid %d)\n", t.name.c_str(), static_cast<int>(t.tid));
    appendf(out, "  policy    %s, priority %u\n", t.policyName.c_str(), t.priority);
    if (t.policy != kSchedRoundRobin) {
        out +=
            "            (not SCHED_RR: the kernel refused the real-time priority; run as root or with\n"
            "            CAP_SYS_NICE for real-time ticks)\n";
    }
    if (t.cpuMeasured) {
        appendf(out, "  CPU time  %.3f ms per second (%.3f %%), from %s\n", t.cpuNsPerSecond / 1e6,
                t.cpuNsPerSecond / 1e7, t.cpuSource.c_str());
    } else {
        out += "  CPU time  not available\n";
    }
}

}  // namespace

const char* stopReasonName(StopReason reason) {
    switch (reason) {
        case StopReason::Ticks:
            return "ticks";
        case StopReason::Interrupted:
            return "interrupted";
        case StopReason::BreakTrace:
            return "break-trace";
        case StopReason::Duration:
            break;
    }
    return "duration";
}

namespace {

void appendTimeline(std::string& out, const RunReport& report) {
    if (!report.timeline) {
        return;
    }
    const TimelineCounts& t = *report.timeline;
    out += "Timeline: " + report.options.timelinePath + ": " + std::to_string(t.passes) + " passes, " +
           std::to_string(t.ticks) + " ticks, " + std::to_string(t.stalls) + " stalls, " +
           std::to_string(t.lostEvents) + " events lost" + (t.truncated ? ", cut at the size limit" : "") + "\n";
}

}  // namespace

std::string formatReport(const RunReport& report) {
    std::string out;
    appendHeading(out, report);
    appendPeriod(out, report);
    appendLatency(out, report);
    out += formatWake(report.wake, report.ticks.latency.p99);
    appendTicks(out, report);
    appendGrid(out, report);
    appendHandlers(out, report);
    out += formatHandlerTime(report.handlerTime);
    appendThread(out, report);
    appendTimeline(out, report);
    out += formatPunctuality(report.punctuality);
    appendSelfTest(out, report);
    return out;
}

namespace {

Json settingsJson(const MonitorOptions& o) {
    return {{"grid", gridName(o.grid)},
            {"scheduler", schedulerModuleName(o.grid)},
            {"duration_ns", valueOrNull(o.durationNs)},
            {"ticks", valueOrNull(o.ticks)},
            {"priority", o.priority},
            {"handlers", o.handlerCount},
            {"intervals", o.intervals},
            {"work_ns", o.workNs},
            {"work_per_handler_ns", o.workPerHandler},
            {"trace_level", valueOrNull(o.traceLevel)},
            {"histogram_buckets", o.histogramBuckets},
            {"inject_fault", o.injectFault},
            {"wake_lead", wakeLeadName(o.wakeLeadNs)}};
}

Json periodJson(const TickAnalysis& t) {
    return {{"count", t.period.count}, {"expected", t.periodNs}, {"min", t.period.min},
            {"mean", t.period.mean},   {"max", t.period.max},    {"stddev", t.period.stddev}};
}

Json latencyJson(const LatencySummary& l) {
    return {{"count", l.count}, {"min", l.min},    {"mean", l.mean}, {"p50", l.p50},
            {"p99", l.p99},     {"p99_9", l.p999}, {"max", l.max}};
}

Json ticksJson(const TickAnalysis& t) {
    return {{"recorded", t.recordedTicks},
            {"expected", t.expectedTicks},
            {"missed", t.missedTicks},
            {"before_their_grid_point", t.ticksBeforeTheirGridPoint},
            {"on_a_grid_point_already_ticked", t.ticksOnAGridPointAlreadyTicked}};
}

Json handlersJson(const std::vector<HandlerVerdict>& handlers) {
    Json list = Json::array();
    for (const HandlerVerdict& h : handlers) {
        list.push_back(
            {{"name", h.name}, {"interval", h.interval}, {"calls", h.calls}, {"expected", h.expected}, {"ok", h.ok}});
    }
    return list;
}

Json timelineJson(const RunReport& report) {
    if (!report.timeline) {
        return nullptr;
    }
    const TimelineCounts& t = *report.timeline;
    return {{"file", report.options.timelinePath},
            {"ticks", t.ticks},
            {"passes", t.passes},
            {"calls", t.callsPerHandler},
            {"stalls", t.stalls},
            {"lost_events", t.lostEvents},
            {"truncated", t.truncated}};
}

Json threadJson(const OscillatorThreadReport& t) {
    return {{"found", t.found},
            {"name", t.name},
            {"tid", static_cast<int64_t>(t.tid)},
            {"policy", t.policyName},
            {"priority", t.priority},
            {"cpu_ns_per_second", t.cpuMeasured ? Json(t.cpuNsPerSecond) : Json(nullptr)},
            {"cpu_source", t.cpuSource}};
}

}  // namespace

std::string formatJson(const RunReport& report) {
    const TickAnalysis& t = report.ticks;
    const Json record = {
        {"tool", "zyn-tickmon"},
        {"version", kJsonRecordVersion},
        {"settings", settingsJson(report.options)},
        {"stop_reason", stopReasonName(report.stopReason)},
        {"elapsed_ns", report.elapsedNs},
        {"passes", report.passes},
        {"lost_timestamps", report.lostTimestamps},
        {"period_ns", periodJson(t)},
        {"latency_ns", latencyJson(t.latency)},
        {"wake", wakeJson(report.wake)},
        {"ticks", ticksJson(t)},
        {"grid", {{"origin_ns", t.grid.originNs}, {"period_ns", t.grid.periodNs}, {"generation", t.grid.generation}}},
        {"handlers", handlersJson(report.handlers)},
        {"handler_time", handlerTimeJson(report.handlerTime)},
        {"oscillator_thread", threadJson(report.thread)},
        {"timeline", timelineJson(report)},
        {"punctuality", punctualityJson(report.punctuality)},
        {"system", systemJson(report.punctuality.system)},
        {"passed", report.passed},
    };
    return jsonText(record);
}

}  // namespace tickmon
