// zyn-tickdemo: starts a 6 ms TickOscillator on the reference host platform,
// prints every tick with its distance from the previous one, stops, and
// summarises how closely the ticks kept the period.
//
// The tick thread only stores timestamps; the main thread prints them, so
// that terminal output never delays a tick.

#include <pthread.h>
#include <sched.h>
#include <sys/prctl.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "CommandLine.h"
#include "DemoOptions.h"
#include "PlatformHost/TraceHost.h"
#include "TickOscillator.h"
#include "ZynSupport/MonotonicClock.h"

namespace {

constexpr double kPeriodMs = 6.0;

// Filled by the tick thread, read by the main thread: each slot is written
// once before `count` is published past it.
struct TickLog {
    explicit TickLog(uint32_t capacity) : stampsNs(capacity) {}
    std::vector<int64_t> stampsNs;  ///< CLOCK_MONOTONIC
    std::atomic<uint32_t> count{0};
    std::atomic<long> timerSlackNs{-1};  ///< as the tick thread sees its own
};

void recordTick(void* context) {
    auto* log = static_cast<TickLog*>(context);
    const uint32_t index = log->count.load(std::memory_order_relaxed);
    if (index >= log->stampsNs.size()) {
        return;
    }
    log->stampsNs[index] = zyn_support::monotonicNowNs();
    // Only the thread itself may read its slack without privileges.
    log->timerSlackNs.store(::prctl(PR_GET_TIMERSLACK, 0, 0, 0, 0), std::memory_order_relaxed);
    log->count.store(index + 1, std::memory_order_release);
}

double millisecondsBetween(int64_t fromNs, int64_t toNs) {
    return static_cast<double>(toNs - fromNs) / static_cast<double>(zyn_support::kNanosecondsPerMillisecond);
}

void printTick(uint32_t index, int64_t stampNs, int64_t previousNs) {
    const timespec stamp = zyn_support::toTimespec(stampNs);
    std::printf("tick %6u  %lld.%09ld s  %+9.3f ms\n", index + 1, static_cast<long long>(stamp.tv_sec), stamp.tv_nsec,
                millisecondsBetween(previousNs, stampNs));
}

// Prints the ticks recorded so far; returns how many have been printed.
uint32_t printNewTicks(const TickLog& log, uint32_t printed, int64_t startNs) {
    const uint32_t recorded = log.count.load(std::memory_order_acquire);
    for (; printed < recorded; ++printed) {
        printTick(printed, log.stampsNs[printed], printed == 0 ? startNs : log.stampsNs[printed - 1]);
    }
    std::fflush(stdout);
    return printed;
}

std::string schedulingOf(TickOscillator& oscillator) {
    int policy = 0;
    sched_param parameters{};
    if (pthread_getschedparam(oscillator.nativeHandle(), &policy, &parameters) != 0) {
        return "unknown";
    }
    if (policy == SCHED_RR) {
        return "SCHED_RR priority " + std::to_string(parameters.sched_priority);
    }
    return "normal policy (real-time refused)";
}

std::string timerSlackOf(const TickLog& log) {
    const long slack = log.timerSlackNs.load(std::memory_order_relaxed);
    return slack < 0 ? std::string("unknown") : std::to_string(slack) + " ns";
}

void printSummary(const TickLog& log, uint32_t ticks, const std::string& scheduling, const std::string& slack) {
    double shortest = 1e9;
    double longest = 0.0;
    double total = 0.0;
    for (uint32_t index = 1; index < ticks; ++index) {
        const double interval = millisecondsBetween(log.stampsNs[index - 1], log.stampsNs[index]);
        shortest = interval < shortest ? interval : shortest;
        longest = interval > longest ? interval : longest;
        total += interval;
    }
    std::printf("\n%u ticks on a %.0f ms grid; tick thread: %s, timer slack %s\n", ticks, kPeriodMs, scheduling.c_str(),
                slack.c_str());
    if (ticks > 1) {
        // The grid does not drift: a late tick is followed by a short interval.
        const double span = millisecondsBetween(log.stampsNs[0], log.stampsNs[ticks - 1]);
        std::printf("interval: min %.3f ms, mean %.3f ms, max %.3f ms; first to last %.3f ms (grid: %.3f ms)\n",
                    shortest, total / (ticks - 1), longest, span, (ticks - 1) * kPeriodMs);
    }
}

int runDemo(const DemoOptions& options) {
    if (options.traceLevel) {
        platform_host::setTraceLevel("ZYN.TS", *options.traceLevel);
    }
    TickLog log(options.ticks);
    ITickReceiver receiver{&log, &recordTick};
    TickOscillator oscillator;
    if (oscillator.initialize(TICK_DELAY_6MS, static_cast<ETickPriority>(options.priority)) != 0 ||
        oscillator.registerOnTick(&receiver) != 0) {
        std::fprintf(stderr, "zyn-tickdemo: the oscillator could not be set up\n");
        return 1;
    }
    const int64_t startNs = zyn_support::monotonicNowNs();
    const uint32_t started = oscillator.start();
    if (started != 0) {
        std::fprintf(stderr, "zyn-tickdemo: the oscillator did not start (result %u)\n", started);
        return 1;
    }
    const std::string scheduling = schedulingOf(oscillator);
    std::printf("tick    timestamp (CLOCK_MONOTONIC)  since previous tick (the first: since start)\n");

    // Twice the nominal run time plus a second: only a stalled machine misses it.
    const auto deadline = std::chrono::steady_clock::now() +
                          std::chrono::milliseconds(static_cast<long>(options.ticks * kPeriodMs * 2) + 1000);
    uint32_t printed = 0;
    while (printed < options.ticks && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        printed = printNewTicks(log, printed, startNs);
    }
    const std::string slack = timerSlackOf(log);
    oscillator.stop();
    printed = printNewTicks(log, printed, startNs);

    if (printed < options.ticks) {
        std::fprintf(stderr, "zyn-tickdemo: only %u of %u ticks arrived in time\n", printed, options.ticks);
        return 1;
    }
    printSummary(log, options.ticks, scheduling, slack);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    DemoOptions options;
    const std::unique_ptr<CLI::App> app = demoCommandLine(options);
    return zyn_cli::runParsed(*app, argc, argv, [&options] { return runDemo(options); });
}
