// A reference for the wake-up latency of this machine, now: a plain
// clock_nanosleep loop on its own grid, on a thread with the oscillator's
// policy and priority, sleeping as the oscillator does (relative sleeps that
// a signal interrupts and the rest of which is slept again) and timing each
// wake-up as a test times a tick (a trace level test, then a TickRecorder).
//
// Host stalls, sanitizers and load lengthen the wake-ups of every thread
// alike; the reference measures them beside the oscillator so that a test
// can fail only when the oscillator is clearly worse than a plain sleep.
#pragma once

#include <pthread.h>
#include <time.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <thread>
#include <vector>

#include "RealTimeScope.h"
#include "TickRecorder.h"
#include "TickSchedulerTrace.h"
#include "ZynSupport/MonotonicClock.h"

namespace oscillator_test {

struct ReferenceRun {
    std::vector<int64_t> latenesses;  ///< of each wake-up past its grid point
    int64_t gridPoints = 0;           ///< grid points the run spanned
};

/// Sleeps for `nanoseconds` as the oscillator does: a relative sleep, which
/// the kernel times from the moment of the call, resumed with the remaining
/// time when a signal interrupts it.
inline void sleepRelative(int64_t nanoseconds) {
    timespec interval{};
    interval.tv_sec = static_cast<time_t>(nanoseconds / zyn_support::kNanosecondsPerSecond);
    interval.tv_nsec = static_cast<long>(nanoseconds % zyn_support::kNanosecondsPerSecond);
    while (clock_nanosleep(CLOCK_MONOTONIC, 0, &interval, &interval) == EINTR) {}
}

/// Disturbs the sleeping reference thread from the calling thread until the
/// instant `untilNs`, as a test disturbs the oscillator's thread.
using Disturbance = std::function<void(pthread_t sleeper, int64_t untilNs)>;

/// Sleeps to the next grid point of `period` for `duration`, on a thread
/// under SCHED_RR at `priority`, skipping grid points that have passed.
inline ReferenceRun measureReference(int64_t period, int64_t duration, int priority,
                                     const Disturbance& disturbance = {}) {
    ReferenceRun run;
    const int64_t begin = zyn_support::monotonicNowNs();
    TickRecorder recorder;
    uint64_t levelTests = 0;
    std::thread sleeper([&] {
        (void)applyRoundRobin(pthread_self(), priority);
        const int64_t origin = zyn_support::monotonicNowNs();
        const int64_t end = origin + duration;
        int64_t now = origin;
        while (now < end) {
            const int64_t target = now + (period - (now - origin) % period);
            sleepRelative(target - now);
            // Delivered as the oscillator delivers a tick: the trace's level
            // test, then a call of a recorder, which reads the clock. Both
            // run from caches that the sleep left cold, as the oscillator's.
            levelTests += tsTrace.isEnabled(KIV_TRACE_DETAIL) ? 1 : 0;
            ITickReceiver* const receiver = recorder.receiver();
            receiver->onTick(receiver->context);
            now = recorder.ticks().back();
            run.latenesses.push_back(now - target);
        }
        run.gridPoints = (now - origin) / period;
    });
    if (disturbance) {
        disturbance(sleeper.native_handle(), begin + duration);
    }
    sleeper.join();
    return run;
}

/// Two runs of the reference taken as one: the wake-ups of both, and the grid
/// points both spanned.
inline ReferenceRun pooled(ReferenceRun first, const ReferenceRun& second) {
    first.latenesses.insert(first.latenesses.end(), second.latenesses.begin(), second.latenesses.end());
    first.gridPoints += second.gridPoints;
    return first;
}

}  // namespace oscillator_test
