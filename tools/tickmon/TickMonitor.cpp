#include "TickMonitor.h"

#include <time.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <new>
#include <optional>

#include "BreakTrace.h"
#include "CpuPlacement.h"
#include "FaultInjection.h"
#include "HandlerTimeQuery.h"
#include "HistogramPlot.h"
#include "Interrupts.h"
#include "JsonRecord.h"
#include "LatencyHistogram.h"
#include "LiveStatus.h"
#include "MemoryLock.h"
#include "OscillatorThreadWatch.h"
#include "OutputFiles.h"
#include "PlatformHost/CpuLatencyHost.h"
#include "PlatformHost/TraceHost.h"
#include "RunReport.h"
#include "SchedulerSession.h"
#include "StatusPrinter.h"
#include "SystemReadiness.h"
#include "TickAnalysis.h"
#include "TickHandlers.h"
#include "TickPrecisionWake.h"
#include "TickResultCodes.h"
#include "TimelineCapture.h"
#include "WakeReport.h"
#include "ZynSupport/MonotonicClock.h"

namespace tickmon {
namespace {

using zyn_support::kNanosecondsPerMicrosecond;
using zyn_support::kNanosecondsPerMillisecond;
using zyn_support::kNanosecondsPerSecond;
using zyn_support::monotonicNowNs;

/// How long the oscillator thread may take to publish its grid after the
/// start: it does so before its first sleep.
constexpr int64_t kGridPublishTimeoutNs = 2 * kNanosecondsPerSecond;
/// Timestamps the ring holds between two drains: about six minutes of 6 ms
/// ticks, a minute of 1 ms ones.
constexpr size_t kRingCapacity = 65536;
constexpr int64_t kPollNs = 10 * kNanosecondsPerMillisecond;
constexpr int64_t kStatusEveryNs = kNanosecondsPerSecond;

void sleepNs(int64_t ns) {
    const timespec pause = zyn_support::toTimespec(ns);
    nanosleep(&pause, nullptr);  // an interrupt ends it early, as wanted
}

struct RunLoopResult {
    StopReason reason = StopReason::Duration;
    int64_t elapsedNs = 0;
};

int64_t plannedRunNs(const MonitorOptions& options, int64_t periodNs) {
    int64_t totalNs = options.durationNs.value_or(0);
    if (totalNs == 0 && options.ticks) {
        totalNs = static_cast<int64_t>(*options.ticks) * periodNs;
    }
    return totalNs;
}

/// Room for every timestamp of a planned run (an hour's worth at most, and
/// for a run without an end), taken before the first tick: growing the
/// vector during the run would map fresh locked pages and unmap the old
/// ones, whose TLB shootdown can reach the tick thread's CPU. A machine
/// that cannot spare it grows the vector as it goes instead.
void reserveTimestamps(std::vector<int64_t>& timestamps, const MonitorOptions& options, int64_t periodNs) {
    const int64_t anHourOfTicks = 3600 * kNanosecondsPerSecond / periodNs;
    // The loop sees the end of the run up to one poll late, and the run's
    // first and last grid points may both be ticked.
    const int64_t ticksBeyondThePlan = kPollNs / periodNs + 2;
    const int64_t plannedNs = plannedRunNs(options, periodNs);
    const int64_t plannedTicks = plannedNs == 0 ? anHourOfTicks : plannedNs / periodNs + ticksBeyondThePlan;
    try {
        timestamps.reserve(static_cast<size_t>(std::min(plannedTicks, anHourOfTicks)));
    } catch (const std::bad_alloc&) {
        // Reserved as it grows; see above.
    }
}

/// Drains timestamps, prints the status and stops on the first of: the
/// duration, the tick count, an interrupt, a tick later than --break-trace.
RunLoopResult runLoop(const MonitorOptions& options, SchedulerSession& session, TickHandlers& handlers,
                      std::vector<int64_t>& timestamps, int64_t startNs, const PublishedGrid& grid,
                      StatusPrinter& status, BreakTrace* breakTrace, TimelineCapture& timeline) {
    GridTally live(grid);
    FaultInjection fault(options.injectFault, handlers);
    int64_t nextStatusNs = startNs + kStatusEveryNs;
    const int64_t totalNs = plannedRunNs(options, session.entryPoints().periodNs);
    RunLoopResult result;
    for (;;) {
        const size_t before = timestamps.size();
        handlers.probe().recorder.drain(timestamps);
        bool broke = false;
        for (size_t i = before; i < timestamps.size(); ++i) {
            const int64_t latenessNs = live.latenessAfterNextGridPoint(timestamps[i]);
            live.add(timestamps[i]);
            broke = broke || (breakTrace != nullptr && breakTrace->add(latenessNs));
        }
        timeline.drain(timestamps, grid);
        const int64_t now = monotonicNowNs();
        result.elapsedNs = now - startNs;
        const bool faultDone = fault.step(session);
        if (now >= nextStatusNs) {
            status.print(statusFigures(live, result.elapsedNs, totalNs));
            nextStatusNs += kStatusEveryNs;
        }
        if (interruptRequested()) {
            result.reason = StopReason::Interrupted;
            break;
        }
        if (broke) {
            result.reason = StopReason::BreakTrace;
            break;
        }
        if (faultDone && options.ticks && timestamps.size() >= *options.ticks) {
            result.reason = StopReason::Ticks;
            break;
        }
        if (faultDone && options.durationNs && result.elapsedNs >= *options.durationNs) {
            result.reason = StopReason::Duration;
            break;
        }
        sleepNs(kPollNs);
    }
    return result;
}

/// Waits until the oscillator thread has published its grid.
bool waitForPublishedGrid(const SchedulerSession& session, PublishedGrid& grid) {
    const int64_t giveUpNs = monotonicNowNs() + kGridPublishTimeoutNs;
    while (!session.publishedGrid(grid)) {
        if (monotonicNowNs() >= giveUpNs) {
            return false;
        }
        sleepNs(kNanosecondsPerMillisecond);
    }
    return true;
}

void reportSelfTestFailure(const RunReport& report) {
    if (!allHandlersOk(report.handlers)) {
        std::fprintf(stderr, "zyn-tickmon: self-test failed: a handler was called a wrong number of times\n");
    }
    if (report.ticks.ticksBeforeTheirGridPoint != 0) {
        std::fprintf(stderr, "zyn-tickmon: self-test failed: a tick came before its grid point\n");
    }
    if (report.ticks.ticksOnAGridPointAlreadyTicked != 0) {
        std::fprintf(stderr, "zyn-tickmon: self-test failed: a grid point got more than one tick\n");
    }
}

void writeOutputs(const MonitorOptions& options, const RunReport& report, OutputFiles& files) {
    if (!options.quiet) {
        std::fputs(formatReport(report).c_str(), stdout);
        std::fflush(stdout);
    }
    if (files.json) {
        *files.json << formatJson(report);
        files.json->close();
    }
    if (files.histogram) {
        *files.histogram << formatCyclictestHistogram(
            buildHistogram(report.ticks.latenciesNs, options.histogramBuckets));
        files.histogram->close();
    }
    if (!options.plotPath.empty()) {
        const PlotOutcome plot = plotHistogram(report.ticks.latenciesNs, plotSettings(report), options.plotPath);
        if (!options.quiet || !plot.drawn) {
            std::fprintf(stderr, "zyn-tickmon: %s\n", plot.message.c_str());
        }
    }
}

/// --system: the System section alone, as text (unless --quiet) and JSON.
int runSystemOnly(const MonitorOptions& options, OutputFiles& files) {
    const std::vector<SystemFinding> findings = readSystemReadiness(SystemRoots{}, RunGrants{}, std::nullopt);
    if (!options.quiet) {
        std::fputs(formatSystemSection(findings).c_str() + 1, stdout);  // without the leading blank line
    }
    if (files.json) {
        *files.json << jsonText({{"tool", "zyn-tickmon"}, {"system", systemJson(findings)}});
        files.json->close();
    }
    return exit_status::kPassed;
}

/// The tracefs directory for --break-trace: ZYN_TICKMON_TRACEFS, else the
/// usual mount points.
std::optional<std::string> tracefsDirectory() {
    const char* overridden = std::getenv("ZYN_TICKMON_TRACEFS");
    return findTracefs(overridden != nullptr && *overridden != '\0' ? std::vector<std::string>{overridden}
                                                                    : defaultTracefsCandidates());
}

/// Checks what only the machine can refuse before anything starts: CPUs and
/// tracefs. Empty when all is well, else the one-line usage error.
std::string checkMachineUsage(const MonitorOptions& options, std::optional<std::string>& tracefs) {
    const std::string cpuError = unavailableCpuError(options.cpus, allowedCpus(0));
    if (!cpuError.empty()) {
        return cpuError;
    }
    if (options.breakTraceUs) {
        tracefs = tracefsDirectory();
        if (!tracefs) {
            return "--break-trace: tracefs not found at /sys/kernel/tracing or /sys/kernel/debug/tracing (mount it: "
                   "mount -t tracefs nodev /sys/kernel/tracing)";
        }
    }
    return "";
}

void applyCpuLatencyOption(const MonitorOptions& options) {
    if (!options.cpuLatencyUs) {
        return;
    }
    const bool off = *options.cpuLatencyUs == MonitorOptions::kCpuLatencyOff;
    platform_host::setCpuLatencyRequest(
        platform_host::CpuLatencyRequest{!off, off ? 0U : static_cast<uint32_t>(*options.cpuLatencyUs)});
}

/// The request as it stands while the oscillator runs.
void describeCpuLatency(PunctualityReport& report) {
    const platform_host::CpuLatencyState state = platform_host::cpuLatencyState();
    report.cpuLatencyHeld = state.held;
    if (state.request.enabled) {
        report.cpuLatencyUs = state.request.microseconds;
    }
    if (!state.request.enabled) {
        report.cpuLatency = "off (no request made)";
    } else if (state.held) {
        report.cpuLatency = "held at " + std::to_string(state.request.microseconds) + " us (" + state.devicePath + ")";
    } else {
        report.cpuLatency = "refused: " + (state.refusal.empty() ? std::string("not held") : state.refusal) +
                            " (run as root or grant write access to " + state.devicePath + ")";
    }
}

/// Switches the measured scheduler's precision wake as --wake-lead says,
/// before its oscillator starts. False when the library refuses.
bool applyWakeLead(const MonitorOptions& options, const SchedulerEntryPoints& library) {
    if (options.wakeLeadNs == MonitorOptions::kWakeLeadOff) {
        return library.setWakeLeadOff() == TickResult::Success;
    }
    if (options.wakeLeadNs == MonitorOptions::kWakeLeadAuto) {
        return library.setWakeLeadAdaptive() == TickResult::Success;
    }
    return library.setWakeLeadFixed(options.wakeLeadNs) == TickResult::Success;
}

/// The precision wake's figures of the run, before the scheduler shuts down.
WakeReport readWake(const MonitorOptions& options, const SchedulerEntryPoints& library) {
    WakeReport wake;
    wake.setting = wakeLeadName(options.wakeLeadNs);
    wake.figures.size = sizeof(wake.figures);
    wake.read = library.getPrecisionWake(&wake.figures) == TickResult::Success;
    return wake;
}

int failStartUp(const std::string& error, SchedulerSession& session) {
    std::fprintf(stderr, "zyn-tickmon: the library did not start: %s\n", error.c_str());
    session.shutDown();
    return exit_status::kSelfTestFailed;
}

/// What the run arranged on the machine before the oscillator starts.
struct MachineSetting {
    PunctualityReport punctuality;
    std::unique_ptr<BreakTrace> breakTrace;
    std::optional<CpuTimes> cpuTimesAtStart;
};

/// The trace level, the interrupts, the CPU latency request, the memory lock
/// and the kernel tracer, as the options say.
MachineSetting prepareMachine(const MonitorOptions& options, const std::optional<std::string>& tracefs) {
    if (options.traceLevel) {
        platform_host::setTraceLevel("ZYN.TS", *options.traceLevel);
    }
    installInterruptHandlers();
    applyCpuLatencyOption(options);
    MachineSetting setting;
    PunctualityReport& punctuality = setting.punctuality;
    const MemoryLockOutcome memory = lockMemory(options.lockMemory, readMemoryLockRights());
    punctuality.memoryLock = memory.description;
    punctuality.memoryLocked = memory.locked;
    punctuality.requestedCpus = options.cpus;
    punctuality.breakTraceUs = options.breakTraceUs;
    punctuality.tracefs = tracefs.value_or("");
    if (tracefs && options.breakTraceUs) {
        setting.breakTrace = std::make_unique<BreakTrace>(*tracefs, *options.breakTraceUs * kNanosecondsPerMicrosecond);
    }
    setting.cpuTimesAtStart = readCpuTimes(SystemRoots{});
    return setting;
}

/// Initialises the library, registers the handlers, applies --wake-lead and
/// the handler statistics, and starts the ticks (the oscillator inherits the
/// blocked interrupts and the --cpu pinning of this thread), then waits for
/// the published grid. `startNs` is taken just before the ticks start. False
/// with `error` set; the handlers are unregistered again then.
bool startTicking(const MonitorOptions& options, SchedulerSession& session, TickHandlers& handlers,
                  TimelineCapture& timeline, int64_t& startNs, PublishedGrid& grid, std::string& error) {
    if (!session.initialize(static_cast<ETickPriority>(options.priority), error)) {
        return false;
    }
    const SchedulerEntryPoints& library = session.entryPoints();
    bool started = handlers.registerAll(session, error);
    if (started && !timeline.startCapture()) {
        error = "the scheduler's event capture for --timeline could not be switched on";
        started = false;
    }
    if (started && !applyWakeLead(options, library)) {
        std::fprintf(stderr, "zyn-tickmon: warning: --wake-lead %s not applied\n",
                     wakeLeadName(options.wakeLeadNs).c_str());
    }
    if (started && !enableHandlerTime(library)) {
        std::fprintf(stderr, "zyn-tickmon: warning: the scheduler's handler statistics could not be switched on\n");
    }
    if (started) {
        const InterruptsBlocked keepInterruptsOffTheTickThread;
        const CallingThreadPinned oscillatorInheritsTheCpus(options.cpus);
        if (!oscillatorInheritsTheCpus.error().empty()) {
            std::fprintf(stderr, "zyn-tickmon: warning: --cpu %s not applied: %s\n",
                         formatCpuList(options.cpus).c_str(), oscillatorInheritsTheCpus.error().c_str());
        }
        started = session.prepareTicks(error);
        startNs = monotonicNowNs();
        started = started && session.startTicks(error);
    }
    if (started && !waitForPublishedGrid(session, grid)) {
        error = "the scheduler published no tick grid";
        started = false;
    }
    if (!started) {
        handlers.unregisterAll(session);
    }
    return started;
}

/// Where the kernel let the oscillator thread run, read while it still runs.
void describeThreadPlacement(const OscillatorThreadReport& thread, PunctualityReport& punctuality) {
    describeCpuLatency(punctuality);
    if (thread.found) {
        punctuality.allowedCpus = allowedCpus(thread.tid);
        punctuality.lastCpu = lastCpuOf(thread.tid);
    }
}

/// Stops the passes, reads what the library and the handlers counted, and
/// shuts the library down.
void collectFromLibrary(const MonitorOptions& options, SchedulerSession& session, TickHandlers& handlers,
                        RunReport& report) {
    // Once no pass runs, the counts below belong to whole passes.
    session.stopPasses();
    report.wake = readWake(options, session.entryPoints());
    report.passes = handlers.probe().passes.load();
    report.handlers = checkHandlers(report.passes, handlers.tallies());
    report.handlerTime = readHandlerTime(session.entryPoints(), handlers);
    handlers.unregisterAll(session);
    session.shutDown();
}

/// The run's ticks: the last timestamps drained, cut to --ticks, and judged
/// against the published grid.
void analyzeRun(const MonitorOptions& options, TickHandlers& handlers, std::vector<int64_t>& timestamps,
                const PublishedGrid& grid, const RunLoopResult& loop, RunReport& report) {
    handlers.probe().recorder.drain(timestamps);
    if (options.ticks && timestamps.size() > *options.ticks) {
        timestamps.resize(static_cast<size_t>(*options.ticks));
    }
    report.options = options;
    report.stopReason = loop.reason;
    report.elapsedNs = loop.elapsedNs;
    report.lostTimestamps = handlers.probe().recorder.lost();
    report.ticks = analyzeTicks(timestamps, grid);
    report.passed = allHandlersOk(report.handlers) && gridSelfTestPassed(report.ticks);
}

/// The System section, told what the run was granted.
void describeSystem(const RunReport& report, const std::optional<CpuTimes>& cpuTimesAtStart,
                    PunctualityReport& punctuality) {
    RunGrants grants;
    grants.ran = true;
    grants.realTimeGranted = report.thread.found && report.thread.policy == 2;  // SCHED_RR
    grants.memoryLock = punctuality.memoryLock;
    grants.memoryLocked = punctuality.memoryLocked;
    grants.cpuLatencyRequest = punctuality.cpuLatency;
    grants.cpuLatencyHeld = punctuality.cpuLatencyHeld;
    punctuality.system = readSystemReadiness(SystemRoots{}, grants, cpuTimesAtStart);
}

}  // namespace

int runMonitor(const MonitorOptions& options) {
    OutputFiles files;
    std::string error;
    if (!files.open(options, error)) {
        std::fprintf(stderr, "zyn-tickmon: %s\n", error.c_str());
        return exit_status::kUsage;
    }
    if (options.systemOnly) {
        return runSystemOnly(options, files);
    }
    std::optional<std::string> tracefs;
    error = checkMachineUsage(options, tracefs);
    if (!error.empty()) {
        std::fprintf(stderr, "zyn-tickmon: %s\n", error.c_str());
        return exit_status::kUsage;
    }
    MachineSetting machine = prepareMachine(options, tracefs);

    SchedulerSession session(options.grid);
    const int64_t periodNs = session.entryPoints().periodNs;
    std::vector<int64_t> timestamps;
    reserveTimestamps(timestamps, options, periodNs);
    std::vector<int64_t> work;
    for (size_t i = 0; i < options.handlerCount; ++i) {
        work.push_back(workOfHandler(options, i));
    }
    TickHandlers handlers(options.handlerCount, options.intervals, work, kRingCapacity);
    int64_t startNs = 0;
    PublishedGrid grid;
    TimelineCapture timeline(files.timeline.get(), uint64_t{options.timelineMaxMb} << 20U, session.entryPoints());
    if (!startTicking(options, session, handlers, timeline, startNs, grid, error)) {
        return failStartUp(error, session);
    }
    timeline.begin(startNs);
    OscillatorThreadWatch threadWatch(session.entryPoints().oscillatorThreadName);
    threadWatch.begin(kNanosecondsPerSecond);
    StatusPrinter status(!options.quiet);
    const RunLoopResult loop =
        runLoop(options, session, handlers, timestamps, startNs, grid, status, machine.breakTrace.get(), timeline);

    RunReport report;
    report.thread = threadWatch.finish();
    describeThreadPlacement(report.thread, machine.punctuality);
    collectFromLibrary(options, session, handlers, report);
    analyzeRun(options, handlers, timestamps, grid, loop, report);
    report.timeline = timeline.finish(timestamps, grid);
    status.finish(statusFigures(report.ticks.tally, loop.elapsedNs, plannedRunNs(options, periodNs)));
    if (machine.breakTrace) {
        machine.punctuality.breakTrace = machine.breakTrace->result();
    }
    describeSystem(report, machine.cpuTimesAtStart, machine.punctuality);
    report.punctuality = machine.punctuality;
    writeOutputs(options, report, files);
    if (!report.passed) {
        reportSelfTestFailure(report);
        return exit_status::kSelfTestFailed;
    }
    return exit_status::kPassed;
}

}  // namespace tickmon
