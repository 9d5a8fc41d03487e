// Where ticks fall on the scheduler's grid.
//
// The oscillator wakes on start + k x period, but the monitor does not see
// the start instant, so the grid's phase is estimated from the run. Each
// tick's offset from the first tick, folded into one period, is a point on a
// circle of one period. A tick is never early, so the points crowd just after
// the true phase; but a tick that is very late lands on the circle just
// before the crowd, where it looks early. The estimate settles this with a
// bound: the densest part of the circle (the usual wake-up, found on
// microsecond bins) is taken as the reference, a tick up to 1 ms before it is
// an early one, and anything further round is a late one. The phase is then
// the earliest tick in that millisecond. Time order settles most of the rest:
// two ticks are never on the same grid point, so a tick followed by the next
// one sooner than a period minus 1 ms was itself at least 1 ms late, and it
// is not taken for an early one, however it folds. Latency is measured from
// the best wake-up of the run: never negative, 0 for the earliest tick,
// showing how far each tick came after the best one rather than the kernel's
// constant part of a wake-up.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace tickmon {

struct GridFit {
    /// The grid point of the first tick (same clock as the timestamps).
    int64_t firstGridPointNs = 0;
    /// Per tick: its latency after its grid point, 0 <= latency < period.
    std::vector<int64_t> latenciesNs;
    /// Per tick: its grid point's index, counted from the first tick's (0).
    std::vector<int64_t> gridIndices;
};

/// How far before the usual wake-up a tick still counts as early.
constexpr int64_t kEarlyTickAllowanceNs = 1000000;

/// The centre of the densest 21 microseconds of `microsecondBins` (counts of
/// folded offsets, one bin per microsecond of the period), taken round the
/// circle; the first such bin on a tie, 0 when all are empty.
size_t densestMicrosecond(const std::vector<uint64_t>& microsecondBins);

/// True when the next tick came so soon after this one that this one must
/// have been more than kEarlyTickAllowanceNs late: both sit on different grid
/// points, so this one's latency is at least period - (next - this) more
/// than the next one's.
bool isKnownLate(int64_t tickNs, int64_t nextTickNs, int64_t periodNs);

/// The grid phase in [0, period) for `foldedOffsets` (each in [0, period)):
/// the earliest offset within kEarlyTickAllowanceNs before the densest
/// microsecond, going round the circle. 0 for no offsets.
int64_t estimateGridPhase(const std::vector<int64_t>& foldedOffsets, int64_t periodNs);

/// Fits the grid to non-decreasing tick timestamps of consecutive passes,
/// leaving known-late ticks out of the phase estimate.
GridFit fitGrid(const std::vector<int64_t>& timestamps, int64_t periodNs);

/// How far the tick source's phase moved over the run. Each latency step is
/// taken as the shorter way round the circle, so a late tick or a skipped
/// grid point leaves no trace, while a period that is not exactly the
/// grid's makes the phase walk steadily. The walk's slope against time is
/// taken along its lower envelope (the earliest tick of each of 16 windows,
/// median of the slopes between them), so late ticks do not count as drift.
struct DriftEstimate {
    /// Phase movement over the run, nanoseconds (positive: ticks came later
    /// and later, the source runs slow).
    double ns = 0.0;
    /// The same per million nanoseconds of run.
    double ppm = 0.0;
    /// The same in ticks of the grid period.
    double ticks = 0.0;
};

DriftEstimate estimateDrift(const std::vector<int64_t>& timestamps, const std::vector<int64_t>& latenciesNs,
                            int64_t periodNs);

}  // namespace tickmon
