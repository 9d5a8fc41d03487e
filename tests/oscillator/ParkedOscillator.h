// An oscillator's thread on the virtual clock (VirtualClock.h), parked at
// numbered sleep calls: started so that it parks at its first one, run on to
// a later one, stopped wherever it is parked.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <thread>
#include <vector>

#include "BoundedWait.h"
#include "TickOscillator.h"
#include "VirtualClock.h"

namespace virtual_clock {

/// Lets the simulated thread run until it enters sleep call `index` and
/// parks it there.
inline void runTo(size_t index) { ASSERT_TRUE(runUntilSleep(index)) << "the loop never reached sleep call " << index; }

/// Starts the thread of `oscillator` (initialised, its receiver registered)
/// and parks it at its first sleep call. Returns the instant the thread
/// anchors its grid on: its first clock reading (0 when it made none, which
/// fails the test).
inline int64_t startParked(TickOscillator& oscillator) {
    const size_t firstReading = readings().size();
    // No thread runs now: every sleep call so far has returned.
    const size_t firstSleep = sleeps().size();
    parkAtSleep(firstSleep);
    EXPECT_EQ(0u, oscillator.start());
    runTo(firstSleep);
    const std::vector<int64_t> all = readings();
    EXPECT_GT(all.size(), firstReading) << "the started thread read no clock";
    return all.size() > firstReading ? all[firstReading] : 0;
}

/// Stops the thread of `oscillator` wherever it is parked.
inline void stopParked(TickOscillator& oscillator) {
    if (!oscillator.isRunning()) {
        oscillator.stop();
        return;
    }
    std::thread stopper([&oscillator] { oscillator.stop(); });
    const auto deadline = std::chrono::steady_clock::now() + test_support::kStuckAfter;
    while (oscillator.isRunning()) {
        if (std::chrono::steady_clock::now() > deadline) {
            test_support::abortAsStuck("stop() clearing the running flag");
        }
        std::this_thread::yield();
    }
    releaseParked();
    stopper.join();
}

}  // namespace virtual_clock
