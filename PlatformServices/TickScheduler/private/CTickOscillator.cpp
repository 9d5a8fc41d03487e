#include <cerrno>
#include <ctime>
#include <exception>
#include <string>

#include "GridPublisher.h"
#include "NextGridPoint.h"
#include "OscillatorAttachment.h"
#include "PrecisionWake.h"
#include "PrecisionWakeStep.h"
#include "ThreadUtilities.h"
#include "TickOscillator.h"
#include "TickPrecisionWake.h"
#include "TickResultCodes.h"
#include "TraceSite.h"
#include "Tracepoints.h"
#include "ZynSupport/MonotonicClock.h"

namespace {

constexpr int kRoundRobinPolicy = 2;  // SCHED_RR
constexpr uint32_t kNanosecondsPerMillisecond = 1000000u;
constexpr long kNanosecondsPerSecond = 1000000000L;

int32_t schedulingPriorityFor(ETickPriority priority) {
    switch (priority) {
        case 0:
            return 99;
        case 1:
            return 98;
        case 2:
        case 3:
        case 4:
            return 79;
        default:
            return 0;
    }
}

int64_t periodNanoseconds(ETickDelay delay) {
    return static_cast<int64_t>(delay) * static_cast<int64_t>(kNanosecondsPerMillisecond);
}

/// The precision wake of an oscillator without an attachment: never
/// switched on, so its thread runs the plain loop; its off-mode figures are
/// written and never read.
zyn_ts::PrecisionWake& unattachedWake() {
    static zyn_ts::PrecisionWake unattached(0);
    return unattached;
}

/// One iteration's clock reading and sleep: to the next grid point after the
/// instant read, on the delay and compensation the owner set last. The
/// reading, taken right after the previous tick's pass, is also recorded as
/// that pass's end behind the grid point the previous sleep asked for
/// (`previousSleepEndNs`, 0 when there is none).
void sleepUntilNextGridPoint(TickOscillator& oscillator, timespec& startInstant, zyn_ts::GridPublisher& grid,
                             zyn_ts::PrecisionWake& wake, int64_t& previousSleepEndNs) {
    const zyn_ts::NextGridPoint next = zyn_ts::findNextGridPoint(oscillator, startInstant, grid);
    if (previousSleepEndNs != 0) {
        wake.passEnded(next.readingNs - previousSleepEndNs);
    }
    previousSleepEndNs = next.readingNs + next.sleepNs;
    // A signal only interrupts the sleep; the rest of it is slept, so no
    // signal ever produces an early tick. Other errors count as a completed
    // sleep: the next iteration measures the clock again anyway.
    timespec interval = zyn_support::toTimespec(next.sleepNs);
    while (clock_nanosleep(CLOCK_MONOTONIC, 0, &interval, &interval) == EINTR) {}
}

/// The tick tracepoint, while a session records it: the grid point at or
/// before the wake-up and how far past it the oscillator woke.
void traceTick(ETickDelay delay, const timespec& startInstant) {
    if (!ZYN_TS_TRACEPOINT_ENABLED(tick)) {
        return;
    }
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    const int64_t periodNs = periodNanoseconds(delay);
    const int64_t elapsedNs = zyn_support::toNanoseconds(now) - zyn_support::toNanoseconds(startInstant);
    const int64_t gridPoint = elapsedNs / periodNs;
    ZYN_TS_TRACEPOINT(tick, static_cast<uint32_t>(periodNs / 1000), static_cast<uint64_t>(gridPoint),
                      elapsedNs - gridPoint * periodNs);
}

}  // namespace

TickOscillator::TickOscillator() = default;

TickOscillator::~TickOscillator() {
    running.store(false, std::memory_order_relaxed);
    if (thread.joinable()) {
        thread.join();
    }
}

uint32_t TickOscillator::initialize(ETickDelay eDelay, ETickPriority ePriority) {
    ZYN_TS_ENTER_TEXT("initialize",
                      "eDelay=" << static_cast<uint32_t>(eDelay) << ", ePriority=" << static_cast<int32_t>(ePriority));
    Compensation routine = nullptr;
    if (eDelay == TICK_DELAY_1MS) {
        routine = &TickOscillator::tickCompensation1MS;
    } else if (eDelay == TICK_DELAY_6MS) {
        routine = &TickOscillator::tickCompensation6MS;
    } else {
        return TickResult::NullArgument;
    }
    // The delay and its compensation routine are stored together so that the
    // running thread never pairs a 6 ms period with the 1 ms correction for
    // longer than one iteration.
    compensation.store(routine, std::memory_order_relaxed);
    priority = schedulingPriorityFor(ePriority);
    delay.store(eDelay, std::memory_order_relaxed);
    frozen.store(false, std::memory_order_relaxed);
    initialized = true;
    // A running thread keeps its start instant and applies the new period
    // from its next sleep; it publishes the period itself before that sleep.
    return TickResult::Success;
}

uint32_t TickOscillator::start() {
    ZYN_TS_ENTER("start");
    if (!initialized) {
        // The wording is the platform's established text for this refusal.
        ZYN_TS_TRACE(KIV_TRACE_ERROR, "start", "TickOscillator is already initialized");
        return TickResult::NotInitialized;
    }
    if (running.load(std::memory_order_relaxed)) {
        ZYN_TS_TRACE(KIV_TRACE_WARNING, "start", "Thread is already running");
        return TickResult::AlreadyRunning;
    }
    running.store(true, std::memory_order_relaxed);
    try {
        thread = std::thread(&TickOscillator::run, this);
    } catch (const std::exception&) {
        running.store(false, std::memory_order_relaxed);
        return TickResult::ThreadCreationFailed;
    }
    // A refused real-time priority does not fail the start: the ticks still
    // come, only with more latency.
    (void)os_extension::thread_utilities::setScheduling(thread, kRoundRobinPolicy, priority);
    const std::string name =
        "zyn-ts-osc" + std::to_string(static_cast<uint32_t>(delay.load(std::memory_order_relaxed)));
    (void)os_extension::thread_utilities::setName(thread, name);
    return TickResult::Success;
}

uint32_t TickOscillator::stop() {
    ZYN_TS_ENTER("stop");
    running.store(false, std::memory_order_relaxed);
    if (thread.joinable()) {
        thread.join();
    }
    return TickResult::Success;
}

uint32_t TickOscillator::freeze() {
    ZYN_TS_ENTER("freeze");
    frozen.store(true, std::memory_order_relaxed);
    return TickResult::Success;
}

uint32_t TickOscillator::unfreeze() {
    ZYN_TS_ENTER("unfreeze");
    frozen.store(false, std::memory_order_relaxed);
    return TickResult::Success;
}

uint32_t TickOscillator::registerOnTick(ITickReceiver* newReceiver) {
    if (!initialized) {
        ZYN_TS_TRACE(KIV_TRACE_ERROR, "registerOnTick", "Not initialized");
        return TickResult::NotInitialized;
    }
    receiver.store(newReceiver, std::memory_order_relaxed);
    return TickResult::Success;
}

uint32_t TickOscillator::timeDiff(timespec* start, timespec* end, timespec* result) {
    if (start->tv_nsec > end->tv_nsec) {
        result->tv_nsec = kNanosecondsPerSecond - (start->tv_nsec - end->tv_nsec);
        result->tv_sec = end->tv_sec - start->tv_sec - 1;
    } else {
        result->tv_nsec = end->tv_nsec - start->tv_nsec;
        result->tv_sec = end->tv_sec - start->tv_sec;
    }
    return TickResult::Success;
}

void TickOscillator::tickCompensation6MS(timespec* elapsed) {
    // 1 s = 166 x 6 ms + 4 ms: each dropped second moves the phase by 4 ms,
    // so s seconds move it by (s mod 3) x 4 ms mod 6 ms = 0, 4 or 2 ms.
    switch (elapsed->tv_sec % 3) {
        case 1:
            elapsed->tv_nsec += 4000000;
            break;
        case 2:
            elapsed->tv_nsec += 2000000;
            break;
        default:
            break;
    }
}

void TickOscillator::tickCompensation1MS(timespec* /*elapsed*/) {}

uint32_t TickOscillator::sleepToNextGridPoint(const timespec& compensatedElapsed, uint32_t periodNs) {
    // The nanoseconds stay below 1004000000 after compensation, so the
    // remainder fits the 32-bit signed arithmetic a small target does cheaply.
    const int32_t phase = static_cast<int32_t>(compensatedElapsed.tv_nsec) % static_cast<int32_t>(periodNs);
    return periodNs - static_cast<uint32_t>(phase);
}

void TickOscillator::deliverTick() {
    if (frozen.load(std::memory_order_relaxed)) {
        return;
    }
    ITickReceiver* const target = receiver.load(std::memory_order_relaxed);
    if (target == nullptr) {
        return;
    }
    ZYN_TS_TRACE(KIV_TRACE_DETAIL, "run", "Running OnTick");
    target->onTick(target->context);
}

void TickOscillator::run() {
    ZYN_TS_ENTER("run");
    // Looked up before the start instant is read, so that the lookup's lock
    // never delays the grid's origin. This thread is the only writer of the
    // grid and of the precision wake's figures.
    zyn_ts::OscillatorAttachment* const attachment = zyn_ts::findAttachment(*this);
    zyn_ts::GridPublisher grid(attachment != nullptr ? &attachment->grid : nullptr);
    zyn_ts::PrecisionWake& wake = attachment != nullptr ? attachment->wake : unattachedWake();
    timespec startInstant{};
    timespec resolution{};
    clock_gettime(CLOCK_MONOTONIC, &startInstant);
    clock_getres(CLOCK_MONOTONIC, &resolution);
    // Published before the first sleep, hence before the first tick: a tick
    // function always finds the grid it is called on.
    grid.started(startInstant, periodNanoseconds(delay.load(std::memory_order_relaxed)));
    ZYN_TS_TRACE(KIV_TRACE_INFO, "run",
                 "  Starting oscillator with delay " << static_cast<uint32_t>(delay.load(std::memory_order_relaxed))
                                                     << " ms, resolution " << resolution.tv_nsec << " ns");
    int64_t previousSleepEndNs = 0;
    while (running.load(std::memory_order_relaxed)) {
        // One relaxed load per tick tells the mode and whether the figures
        // are to be dropped; the plain loop below is otherwise untouched.
        const uint32_t control = wake.loadControl();
        if (wake.changedSince(control)) {
            wake.controlChanged(control);
        }
        const uint32_t mode = zyn_ts::PrecisionWake::modeOf(control);
        if (mode == TICK_WAKE_OFF) {
            sleepUntilNextGridPoint(*this, startInstant, grid, wake, previousSleepEndNs);
            if (!frozen.load(std::memory_order_relaxed)) {
                traceTick(delay.load(std::memory_order_relaxed), startInstant);
            }
            deliverTick();
        } else {
            previousSleepEndNs = 0;
            if (zyn_ts::sleepAndSpinToNextGridPoint(*this, startInstant, grid, wake, mode)) {
                if (!frozen.load(std::memory_order_relaxed)) {
                    traceTick(delay.load(std::memory_order_relaxed), startInstant);
                }
                deliverTick();
            }
        }
    }
    grid.stopped();
}

// The time since the start instant, corrected by the delay's compensation,
// within its second: the remainder by the period is how far the grid point
// before the reading lies behind it.
zyn_ts::NextGridPoint zyn_ts::findNextGridPoint(TickOscillator& oscillator, timespec& startInstant,
                                                GridPublisher& grid) {
    timespec current{};
    timespec elapsed{};
    clock_gettime(CLOCK_MONOTONIC, &current);
    oscillator.timeDiff(&startInstant, &current, &elapsed);
    const TickOscillator::Compensation correct = oscillator.getCompensation();
    if (correct != nullptr) {
        correct(&elapsed);
    }
    elapsed.tv_sec = 0;
    const uint64_t period = static_cast<uint64_t>(oscillator.getDelay()) * kNanosecondsPerMillisecond;
    grid.sleepsOn(static_cast<int64_t>(period));
    const uint32_t sleepNs = TickOscillator::sleepToNextGridPoint(elapsed, static_cast<uint32_t>(period));
    return {zyn_support::toNanoseconds(current), static_cast<int64_t>(sleepNs), static_cast<int64_t>(period)};
}
