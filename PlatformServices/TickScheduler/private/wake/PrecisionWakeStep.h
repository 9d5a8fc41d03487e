// The oscillator loop's iteration with the precision wake on: sleep to the
// next grid point minus the lead, spin to the grid point, and say whether
// the tick may be delivered now.
#pragma once

#include <cstdint>
#include <ctime>

#include "GridPublisher.h"
#include "PrecisionWake.h"

class TickOscillator;

namespace zyn_ts {

/// One iteration with the precision wake on, in mode `mode` (fixed or
/// adaptive): reads the clock, finds the next grid point after the reading
/// (the plain loop's computation, on the same start instant and
/// compensation), sleeps until the lead before it (again after a sleep that
/// ends earlier than that), then reads the clock until the grid point.
/// Returns true when the grid point has been reached and a tick is due: the
/// caller delivers it. Returns false, without having reached the grid point,
/// only when the oscillator was frozen or had no receiver as it woke: then
/// it did not spin (and the next iteration sleeps to the same grid point).
/// While frozen or without receiver as the iteration begins, the sleep goes
/// to the grid point itself. Records the wake-up and the delivery in `wake`.
bool sleepAndSpinToNextGridPoint(TickOscillator& oscillator, timespec& startInstant, GridPublisher& grid,
                                 PrecisionWake& wake, uint32_t mode);

}  // namespace zyn_ts
