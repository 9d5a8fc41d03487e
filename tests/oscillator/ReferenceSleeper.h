// A reference for the wake-up latency of this machine, now: a plain
// clock_nanosleep loop on its own grid, on a thread with the oscillator's
// policy and priority.
//
// Host stalls, sanitizers and load lengthen the wake-ups of every thread
// alike; the reference measures them beside the oscillator so that a test
// can fail only when the oscillator is clearly worse than a plain sleep.
#pragma once

#include <pthread.h>

#include <cstddef>
#include <cstdint>
#include <thread>
#include <vector>

#include "RealTimeScope.h"
#include "ZynSupport/MonotonicClock.h"

namespace oscillator_test {

struct ReferenceRun {
    std::vector<int64_t> latenesses;  ///< of each wake-up past its grid point
    int64_t gridPoints = 0;           ///< grid points the run spanned
};

/// Sleeps to the next grid point of `period` for `duration`, on a thread
/// under SCHED_RR at `priority`, skipping grid points that have passed.
inline ReferenceRun measureReference(int64_t period, int64_t duration, int priority) {
    ReferenceRun run;
    std::thread sleeper([&] {
        (void)applyRoundRobin(pthread_self(), priority);
        const int64_t origin = zyn_support::monotonicNowNs();
        const int64_t end = origin + duration;
        int64_t now = origin;
        while (now < end) {
            const int64_t target = now + (period - (now - origin) % period);
            zyn_support::sleepUntilNs(target);
            now = zyn_support::monotonicNowNs();
            run.latenesses.push_back(now - target);
        }
        run.gridPoints = (now - origin) / period;
    });
    sleeper.join();
    return run;
}

}  // namespace oscillator_test
