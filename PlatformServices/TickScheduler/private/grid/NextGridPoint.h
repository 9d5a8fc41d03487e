// Where the oscillator loop sleeps to: the next grid point after a fresh
// clock reading, found the same way whether the precision wake is on or off.
#pragma once

#include <cstdint>
#include <ctime>

#include "GridPublisher.h"

class TickOscillator;

namespace zyn_ts {

struct NextGridPoint {
    /// The clock reading it was found from, ns.
    int64_t readingNs;
    /// From the reading to the grid point, ns (at most a period).
    int64_t sleepNs;
    /// The oscillator's period, ns.
    int64_t periodNs;
};

/// Reads CLOCK_MONOTONIC and finds the next grid point after the reading on
/// the oscillator's current delay and compensation, counted from
/// `startInstant`. Publishes the period to `grid` before the sleep it
/// applies to. Tick thread only (defined with the oscillator loop).
NextGridPoint findNextGridPoint(TickOscillator& oscillator, timespec& startInstant, GridPublisher& grid);

}  // namespace zyn_ts
