// The metronome of one scheduler: a handler that runs first in every tick
// pass and numbers the passes, so that client threads can tell which passes
// an operation of theirs fell between; and a record of the grid points the
// passes ran on, counted from the origin the oscillator publishes, to check
// that they stay on its grid.
#pragma once

#include <atomic>
#include <cstdint>

#include "ITickReceiver.h"
#include "TickGrid.h"

namespace soak {

/// Where the passes fell on the published grid, kept by the tick thread,
/// read after it has stopped. Each pass belongs to the last grid point at or
/// before it: (now - origin) / period.
struct GridRecord {
    uint64_t passes = 0;
    /// The grid published when the first pass ran.
    STickGrid grid{};
    int64_t firstPoint = 0;
    int64_t lastPoint = 0;
    uint64_t skippedPoints = 0;   ///< grid points between passes without one
    uint64_t beforePointOne = 0;  ///< passes before grid point 1 (early: no tick is due at the origin)
    uint64_t sharedPoints = 0;    ///< passes on a grid point that already had one
    uint64_t gridChanges = 0;     ///< passes that found another grid than the first pass (a restart)
    uint64_t unpublished = 0;     ///< passes on which the query did not report a running grid
    int64_t longestGapNs = 0;
    int64_t lastNs = 0;
};

/// The grid query of a scheduler (CTickScheduler_GetTickGrid or
/// CTickSchedulerFast_GetTickGrid).
using GridQuery = uint32_t (*)(STickGrid*);

class PassClock {
public:
    /// `query` null: the passes are numbered, their grid is not checked.
    explicit PassClock(GridQuery query) : gridQuery(query) {}

    ITickReceiver receiver() { return ITickReceiver{this, &PassClock::onTick}; }

    /// The number of the pass running now, or of the last one that ran.
    /// Read with a read-modify-write that pairs with the one onTick numbers a
    /// pass with: a client reads the number right after a change the library
    /// stores without a lock (enable, groups, offset), and with plain loads
    /// each thread could miss the other's store (the store-buffer pattern),
    /// so that the change seemed in place a pass before the tick thread could
    /// see it. Of two read-modify-writes one reads the other's value, which
    /// orders the change before the pass or the pass before the reading.
    uint64_t current() const { return pass.fetch_add(0, std::memory_order_acq_rel); }

    /// Only once the oscillator has stopped or the metronome is unregistered.
    const GridRecord& grid() const { return record; }

private:
    static void onTick(void* context);
    void placeOnGrid(int64_t nowNs);

    const GridQuery gridQuery;
    mutable std::atomic<uint64_t> pass{0};
    GridRecord record;
};

/// The same origin, period and generation.
bool sameGrid(const STickGrid& a, const STickGrid& b);

}  // namespace soak
