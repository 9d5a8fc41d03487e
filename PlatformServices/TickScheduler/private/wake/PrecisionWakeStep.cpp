#include "PrecisionWakeStep.h"

#include <cerrno>

#include "NextGridPoint.h"
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
    const NextGridPoint next = findNextGridPoint(oscillator, startInstant, grid);
    const int64_t readingNs = next.readingNs;
    const int64_t gridPointNs = readingNs + next.sleepNs;
    // Frozen or without a receiver, no tick is due: sleep to the grid point
    // itself, so that nothing spins.
    const int64_t leadNs = maySpin(oscillator) ? wake.leadFor(mode, next.periodNs) : 0;
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
