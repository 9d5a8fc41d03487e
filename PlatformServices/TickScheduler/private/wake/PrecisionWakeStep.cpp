#include "PrecisionWakeStep.h"

#include <cerrno>

#include "TickOscillator.h"
#include "TickPrecisionWake.h"
#include "ZynSupport/MonotonicClock.h"

namespace zyn_ts {
namespace {

int64_t readClockNs() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return zyn_support::toNanoseconds(now);
}

bool maySpin(const TickOscillator& oscillator) { return !oscillator.isFrozen() && oscillator.getReceiver() != nullptr; }

}  // namespace

bool sleepAndSpinToNextGridPoint(TickOscillator& oscillator, timespec& startInstant, GridPublisher& grid,
                                 PrecisionWake& wake, uint32_t mode) {
    timespec current{};
    timespec elapsed{};
    clock_gettime(CLOCK_MONOTONIC, &current);
    oscillator.timeDiff(&startInstant, &current, &elapsed);
    const TickOscillator::Compensation correct = oscillator.getCompensation();
    if (correct != nullptr) {
        correct(&elapsed);
    }
    elapsed.tv_sec = 0;
    const uint64_t period =
        static_cast<uint64_t>(oscillator.getDelay()) * static_cast<uint64_t>(zyn_support::kNanosecondsPerMillisecond);
    grid.sleepsOn(static_cast<int64_t>(period));
    const int64_t readingNs = zyn_support::toNanoseconds(current);
    const int64_t gridPointNs =
        readingNs + static_cast<int64_t>(TickOscillator::sleepToNextGridPoint(elapsed, static_cast<uint32_t>(period)));
    // Frozen or without a receiver, no tick is due: sleep to the grid point
    // itself, so that nothing spins.
    const int64_t leadNs = maySpin(oscillator) ? wake.leadFor(mode, static_cast<int64_t>(period)) : 0;
    const int64_t wakeAtNs = gridPointNs - leadNs;

    int64_t nowNs = readingNs;
    bool slept = false;
    while (nowNs < wakeAtNs) {
        timespec interval = zyn_support::toTimespec(wakeAtNs - nowNs);
        int result = 0;
        while ((result = clock_nanosleep(CLOCK_MONOTONIC, 0, &interval, &interval)) == EINTR) {}
        nowNs = readClockNs();
        slept = true;
        if (result != 0) {
            // A failing sleep is not retried: the spin below, bounded by the
            // grid point, covers the rest.
            break;
        }
    }
    if (slept) {
        wake.wokeUp(nowNs - wakeAtNs, mode == TICK_WAKE_ADAPTIVE && leadNs > 0);
    }
    const bool lateDespiteLead = nowNs >= gridPointNs;
    if (!lateDespiteLead) {
        if (!maySpin(oscillator)) {
            return false;
        }
        const int64_t spinFromNs = nowNs;
        // Bounded: the grid point is at most the lead (half a period at
        // most) ahead, unless a sleep failed.
        while (nowNs < gridPointNs) {
            nowNs = readClockNs();
        }
        wake.delivered(nowNs, nowNs - gridPointNs, nowNs - spinFromNs, false);
        return true;
    }
    if (maySpin(oscillator)) {
        wake.delivered(nowNs, nowNs - gridPointNs, 0, slept && leadNs > 0);
    }
    return true;
}

}  // namespace zyn_ts
