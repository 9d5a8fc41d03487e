// The tick grid of each oscillator, where its owner can read it.
//
// TickOscillator's layout is part of the exported interface, so the grid is
// not kept in the object: the library holds a fixed table of slots, one per
// oscillator that has started a thread, found by the oscillator's address.
// Each slot is a sequence lock over atomic fields: the oscillator thread
// and the owner's threads write it (rarely: at start, stop and initialize),
// any thread reads it without a lock and retries only while a write is under
// way. Nothing here allocates.
#pragma once

#include <cstdint>
#include <ctime>

class TickOscillator;

namespace zyn_ts {

struct GridSnapshot {
    bool running = false;
    uint64_t generation = 0;
    int64_t originNs = 0;
    int64_t periodNs = 0;
};

/// Oscillator thread, before its first tick: the new origin and period,
/// running, generation + 1 (release). False when every slot is taken.
bool publishGridStart(const TickOscillator& oscillator, const timespec& origin, int64_t periodNs);

/// A repeated initialize: the new period on the same origin, if the
/// oscillator has a slot.
void publishGridPeriod(const TickOscillator& oscillator, int64_t periodNs);

/// After the thread has been joined: not running, the rest kept.
void publishGridStopped(const TickOscillator& oscillator);

/// The oscillator is destroyed: its slot becomes free.
void releaseGrid(const TickOscillator& oscillator);

/// The last published grid (acquire); all zero when the oscillator never
/// started a thread.
GridSnapshot readGrid(const TickOscillator& oscillator);

}  // namespace zyn_ts
