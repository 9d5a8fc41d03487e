// The metronome of one scheduler: a handler that runs first in every tick
// pass and numbers the passes, so that client threads can tell which passes
// an operation of theirs fell between; and a record of when the passes ran,
// to check that they stay on the oscillator's grid.
#pragma once

#include <atomic>
#include <cstdint>

#include "ITickReceiver.h"

namespace soak {

/// Timing of the passes, kept by the tick thread, read after it has stopped.
struct GridRecord {
    uint64_t passes = 0;
    uint64_t firstNs = 0;
    uint64_t lastNs = 0;
    uint64_t gridSteps = 0;       ///< the gaps between passes, each rounded to whole periods, summed
    uint64_t skippedPeriods = 0;  ///< grid points passed over (gaps of two periods or more)
    uint64_t longestGapNs = 0;
};

class PassClock {
public:
    explicit PassClock(uint32_t periodNs) : periodNs(periodNs) {}

    ITickReceiver receiver() { return ITickReceiver{this, &PassClock::onTick}; }

    /// The number of the pass running now, or of the last one that ran.
    uint64_t current() const { return pass.load(std::memory_order_acquire); }

    /// Only once the oscillator has stopped or the metronome is unregistered.
    const GridRecord& grid() const { return record; }
    uint32_t period() const { return periodNs; }

private:
    static void onTick(void* context);

    const uint32_t periodNs;
    std::atomic<uint64_t> pass{0};
    GridRecord record;
};

/// Now on the monotonic clock, in nanoseconds.
uint64_t monotonicNs();

}  // namespace soak
