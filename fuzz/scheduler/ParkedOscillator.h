// The scheduler's oscillator thread, started by phase 14, kept out of the
// run: the target links with --wrap=clock_nanosleep, so the thread's first
// sleep parks it until the oscillator is stopped. It never delivers a tick:
// the target drives every tick itself, and every input replays exactly.
//
// A stop lets the parked sleep return, after which the oscillator loop would
// deliver one last tick. That is the tick of a stop landing just before a
// grid point; to keep the run deterministic the parked thread holds back the
// oscillator's receiver while it leaves, and the target puts it back once
// the stop has joined the thread (restoreReceiver()).
#pragma once

#include "TickOscillator.h"

namespace zyn_fuzz::sched {

class ParkedOscillator {
public:
    /// Waits until the oscillator thread started last has parked (it has
    /// then written all its start-up trace lines); false after `seconds`.
    static bool waitUntilParked(unsigned seconds);
    /// Gives the receiver held back by a parked thread that has left back to
    /// `oscillator`, once that thread has been joined.
    static void restoreReceiver(TickOscillator& oscillator);
};

}  // namespace zyn_fuzz::sched
