// A virtual CLOCK_MONOTONIC for the oscillator's timing loop, in a binary
// linked with --wrap=clock_gettime and --wrap=clock_nanosleep.
//
// Once installed, every thread except the installing (test) thread reads and
// sleeps on the virtual clock: a sleep returns at once and moves the clock to
// the instant the sleep ends. Time passes only through sleeps and advance(),
// so the loop's real computation can be checked to the nanosecond. The test
// thread keeps the real clock for its own waits.
//
// The simulated thread can be parked at the entry of a numbered sleep call
// (numbered from 0 across the whole installation, EINTR retries included):
// the test then changes what it likes (freeze, initialize, the parked sleep's
// end) and lets it run on to a later call.
#pragma once

#include <time.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

namespace virtual_clock {

/// One call of clock_nanosleep by a simulated thread.
struct Sleep {
    clockid_t clock = 0;
    int flags = 0;
    bool remainIsRequest = false;  ///< the remainder goes back into the request record
    int64_t calledAt = 0;          ///< virtual instant of the call
    int64_t requestNs = 0;
    int64_t endedAt = 0;  ///< virtual instant it returned
    int result = 0;
    int64_t remainNs = 0;  ///< written back on EINTR

    /// The instant the call asked to sleep to.
    int64_t target() const { return calledAt + requestNs; }
};

/// Decides when a sleep ends, from its number and the instant it asked for;
/// an earlier answer counts as that instant. Runs with the clock locked: it
/// must not call back into this namespace.
using WakeUpPlan = std::function<int64_t(size_t sleepIndex, int64_t requestedEnd)>;

/// Makes CLOCK_MONOTONIC virtual at `startNs` for every thread but the
/// caller, with sleeps ending as requested and a park at sleep call 0.
void install(int64_t startNs);

/// Real clock again; a parked thread is let go.
void uninstall();

/// The virtual instant.
int64_t now();

/// Moves the virtual clock on, as work on a simulated thread would.
void advance(int64_t nanoseconds);

void setWakeUpPlan(WakeUpPlan plan);

/// Every clock reading by a simulated thread moves the clock on by
/// `nanoseconds` after it is taken, as the reading itself would take: so
/// that a loop that reads the clock until an instant gets there. 0 (the
/// default after install) keeps time still between sleeps.
void setReadingCost(int64_t nanoseconds);

/// Sleep call `sleepIndex` is interrupted by a signal `afterNs` into it: it
/// writes the rest back and returns EINTR.
void interruptSleep(size_t sleepIndex, int64_t afterNs);

/// Lets the simulated thread run until it enters sleep call `sleepIndex` and
/// parks it there. False when it did not get there within seconds of real
/// time.
bool runUntilSleep(size_t sleepIndex);

/// Arms the park at sleep call `sleepIndex` without waiting: for a thread
/// about to start, which must not run past it before runUntilSleep.
void parkAtSleep(size_t sleepIndex);

/// The sleep parked on ends at `instant` (at its requested end when earlier).
void endParkedSleepAt(int64_t instant);

/// No sleep parks any more until the next runUntilSleep: for a stop.
void releaseParked();

/// Room for `sleepCount` sleeps and `readingCount` readings in the records
/// kept of them, so that keeping them allocates nothing on the simulated
/// thread until then: for tests that count that thread's allocations.
void reserveRecords(size_t sleepCount, size_t readingCount);

/// Every sleep call so far, in order.
std::vector<Sleep> sleeps();

/// Every clock_gettime(CLOCK_MONOTONIC) result handed to a simulated thread.
std::vector<int64_t> readings();

}  // namespace virtual_clock
