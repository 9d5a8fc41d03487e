#include "TickMonitor.h"

#include <signal.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <new>
#include <optional>

#include "BreakTrace.h"
#include "CpuPlacement.h"
#include "HandlerTimeQuery.h"
#include "HistogramPlot.h"
#include "JsonRecord.h"
#include "LatencyHistogram.h"
#include "LiveStatus.h"
#include "MemoryLock.h"
#include "OscillatorThreadWatch.h"
#include "PlatformHost/CpuLatencyHost.h"
#include "PlatformHost/TraceHost.h"
#include "RunReport.h"
#include "SchedulerSession.h"
#include "SystemReadiness.h"
#include "TickAnalysis.h"
#include "TickHandlers.h"
#include "TickPrecisionWake.h"
#include "TickResultCodes.h"
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

volatile sig_atomic_t interrupted = 0;

void onInterrupt(int) { interrupted = 1; }

/// Ctrl-C and SIGTERM end the run with a report; a second one ends the
/// process at once (the handler is reset after the first).
void installInterruptHandlers() {
    struct sigaction action {};
    action.sa_handler = &onInterrupt;
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

/// Blocks SIGINT and SIGTERM while alive: threads started meanwhile (the
/// oscillator) inherit the mask, so the signals always reach the main thread
/// and never interrupt the real-time thread's sleep.
class InterruptsBlocked {
public:
    InterruptsBlocked() {
        sigset_t interrupts;
        sigemptyset(&interrupts);
        sigaddset(&interrupts, SIGINT);
        sigaddset(&interrupts, SIGTERM);
        pthread_sigmask(SIG_BLOCK, &interrupts, &previous);
    }
    ~InterruptsBlocked() { pthread_sigmask(SIG_SETMASK, &previous, nullptr); }
    InterruptsBlocked(const InterruptsBlocked&) = delete;
    InterruptsBlocked& operator=(const InterruptsBlocked&) = delete;

private:
    sigset_t previous;
};

void sleepNs(int64_t ns) {
    const timespec pause = zyn_support::toTimespec(ns);
    nanosleep(&pause, nullptr);  // an interrupt ends it early, as wanted
}

/// The files the run writes, opened before the run so that a bad path is a
/// usage error and not a lost run.
struct OutputFiles {
    std::unique_ptr<std::ofstream> json;
    std::unique_ptr<std::ofstream> histogram;

    bool open(const MonitorOptions& options, std::string& error) {
        return openOne("--json", options.jsonPath, json, error) &&
               openOne("--histogram", options.histogramPath, histogram, error);
    }

private:
    static bool openOne(const char* option, const std::string& path, std::unique_ptr<std::ofstream>& file,
                        std::string& error) {
        if (path.empty()) {
            return true;
        }
        file = std::make_unique<std::ofstream>(path, std::ios::out | std::ios::trunc);
        if (!file->is_open()) {
            error = std::string(option) + ": cannot write '" + path + "': " + std::strerror(errno);
            return false;
        }
        return true;
    }
};

/// The live status line: refreshed in place on a terminal, one plain line at
/// a time otherwise.
class StatusPrinter {
public:
    explicit StatusPrinter(bool enabled) : active(enabled), terminal(isatty(STDERR_FILENO) == 1) {}

    void print(const StatusFigures& figures) {
        if (!active) {
            return;
        }
        const std::string line = formatStatusLine(figures);
        if (terminal) {
            std::fprintf(stderr, "\r%s\033[K", line.c_str());
            printedInPlace = true;
        } else {
            std::fprintf(stderr, "%s\n", line.c_str());
        }
        std::fflush(stderr);
    }

    /// The last line, with the figures of the report, left standing.
    void finish(const StatusFigures& figures) {
        print(figures);
        if (active && terminal) {
            std::fprintf(stderr, "\n");
            std::fflush(stderr);
        }
    }

private:
    bool active;
    bool terminal;
    bool printedInPlace = false;
};

/// Disables the first load handler for a few passes: the scheduler then
/// calls it less often than its interval requires, and the self-test must
/// catch it.
class FaultInjection {
public:
    FaultInjection(bool wanted, TickHandlers& handlers) : pending(wanted), handlers(handlers) {}

    /// Advances the injection; true once it is over (or was never wanted).
    bool step(SchedulerSession& session) {
        const uint64_t passes = handlers.probe().passes.load(std::memory_order_relaxed);
        LoadHandler& victim = handlers.load(0);
        if (pending && !disabled && passes >= 1) {
            session.disableHandler(victim.handle);
            disabled = true;
            enableAfterPasses = passes + victim.interval + 1;
        } else if (pending && disabled && passes >= enableAfterPasses) {
            session.enableHandler(victim.handle);
            pending = false;
        }
        return !pending;
    }

private:
    bool pending;
    bool disabled = false;
    uint64_t enableAfterPasses = 0;
    TickHandlers& handlers;
};

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
                      StatusPrinter& status, BreakTrace* breakTrace) {
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
        const int64_t now = monotonicNowNs();
        result.elapsedNs = now - startNs;
        const bool faultDone = fault.step(session);
        if (now >= nextStatusNs) {
            status.print(statusFigures(live, result.elapsedNs, totalNs));
            nextStatusNs += kStatusEveryNs;
        }
        if (interrupted != 0) {
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
    if (options.traceLevel) {
        platform_host::setTraceLevel("ZYN.TS", *options.traceLevel);
    }
    installInterruptHandlers();
    applyCpuLatencyOption(options);
    PunctualityReport punctuality;
    const MemoryLockOutcome memory = lockMemory(options.lockMemory, readMemoryLockRights());
    punctuality.memoryLock = memory.description;
    punctuality.memoryLocked = memory.locked;
    punctuality.requestedCpus = options.cpus;
    punctuality.breakTraceUs = options.breakTraceUs;
    punctuality.tracefs = tracefs.value_or("");
    std::unique_ptr<BreakTrace> breakTrace;
    if (tracefs && options.breakTraceUs) {
        breakTrace = std::make_unique<BreakTrace>(*tracefs, *options.breakTraceUs * kNanosecondsPerMicrosecond);
    }
    const std::optional<CpuTimes> cpuTimesAtStart = readCpuTimes(SystemRoots{});

    SchedulerSession session(options.grid);
    const SchedulerEntryPoints& library = session.entryPoints();
    std::vector<int64_t> timestamps;
    reserveTimestamps(timestamps, options, library.periodNs);
    std::vector<int64_t> work;
    for (size_t i = 0; i < options.handlerCount; ++i) {
        work.push_back(workOfHandler(options, i));
    }
    TickHandlers handlers(options.handlerCount, options.intervals, work, kRingCapacity);
    if (!session.initialize(static_cast<ETickPriority>(options.priority), error)) {
        return failStartUp(error, session);
    }
    if (!handlers.registerAll(session, error)) {
        handlers.unregisterAll(session);
        return failStartUp(error, session);
    }
    if (!applyWakeLead(options, library)) {
        std::fprintf(stderr, "zyn-tickmon: warning: --wake-lead %s not applied\n",
                     wakeLeadName(options.wakeLeadNs).c_str());
    }
    if (!enableHandlerTime(library)) {
        std::fprintf(stderr, "zyn-tickmon: warning: the scheduler's handler statistics could not be switched on\n");
    }
    int64_t startNs = 0;
    {
        const InterruptsBlocked keepInterruptsOffTheTickThread;
        const CallingThreadPinned oscillatorInheritsTheCpus(options.cpus);
        if (!oscillatorInheritsTheCpus.error().empty()) {
            std::fprintf(stderr, "zyn-tickmon: warning: --cpu %s not applied: %s\n",
                         formatCpuList(options.cpus).c_str(), oscillatorInheritsTheCpus.error().c_str());
        }
        bool started = session.prepareTicks(error);
        startNs = monotonicNowNs();
        started = started && session.startTicks(error);
        if (!started) {
            handlers.unregisterAll(session);
            return failStartUp(error, session);
        }
    }
    PublishedGrid grid;
    if (!waitForPublishedGrid(session, grid)) {
        handlers.unregisterAll(session);
        return failStartUp("the scheduler published no tick grid", session);
    }
    OscillatorThreadWatch threadWatch(library.oscillatorThreadName);
    threadWatch.begin(kNanosecondsPerSecond);

    StatusPrinter status(!options.quiet);
    const RunLoopResult loop = runLoop(options, session, handlers, timestamps, startNs, grid, status, breakTrace.get());

    RunReport report;
    report.thread = threadWatch.finish();
    describeCpuLatency(punctuality);
    if (report.thread.found) {
        punctuality.allowedCpus = allowedCpus(report.thread.tid);
        punctuality.lastCpu = lastCpuOf(report.thread.tid);
    }
    // Once no pass runs, the counts below belong to whole passes.
    session.stopPasses();
    report.wake = readWake(options, library);
    report.passes = handlers.probe().passes.load();
    report.handlers = checkHandlers(report.passes, handlers.tallies());
    report.handlerTime = readHandlerTime(library, handlers);
    handlers.unregisterAll(session);
    session.shutDown();

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
    status.finish(statusFigures(report.ticks.tally, loop.elapsedNs, plannedRunNs(options, library.periodNs)));
    if (breakTrace) {
        punctuality.breakTrace = breakTrace->result();
    }
    RunGrants grants;
    grants.ran = true;
    grants.realTimeGranted = report.thread.found && report.thread.policy == 2;  // SCHED_RR
    grants.memoryLock = punctuality.memoryLock;
    grants.memoryLocked = punctuality.memoryLocked;
    grants.cpuLatencyRequest = punctuality.cpuLatency;
    grants.cpuLatencyHeld = punctuality.cpuLatencyHeld;
    punctuality.system = readSystemReadiness(SystemRoots{}, grants, cpuTimesAtStart);
    report.punctuality = punctuality;
    writeOutputs(options, report, files);
    if (!report.passed) {
        reportSelfTestFailure(report);
        return exit_status::kSelfTestFailed;
    }
    return exit_status::kPassed;
}

}  // namespace tickmon
