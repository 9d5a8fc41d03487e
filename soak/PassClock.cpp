#include "PassClock.h"

#include "TickResultCodes.h"
#include "ZynSupport/MonotonicClock.h"

namespace soak {

bool sameGrid(const STickGrid& a, const STickGrid& b) {
    return a.generation == b.generation && a.originNs == b.originNs && a.periodNs == b.periodNs;
}

void PassClock::placeOnGrid(int64_t nowNs) {
    STickGrid grid{};
    grid.size = sizeof grid;
    if (gridQuery(&grid) != TickResult::Success || grid.running != 1 || grid.periodNs <= 0) {
        ++record.unpublished;
        return;
    }
    if (record.passes == 0) {
        record.grid = grid;
    } else if (!sameGrid(grid, record.grid)) {
        ++record.gridChanges;
    }
    // Counted from the published origin, so nothing accumulates: a pass that
    // is late by any amount lands on the right grid point or a later one.
    const int64_t sinceOrigin = nowNs - record.grid.originNs;
    const int64_t point = sinceOrigin >= 0 ? sinceOrigin / record.grid.periodNs : -1;
    record.beforePointOne += point < 1 ? 1 : 0;
    if (record.passes == 0) {
        record.firstPoint = point;
    } else {
        if (point <= record.lastPoint) {
            ++record.sharedPoints;
        } else {
            record.skippedPoints += static_cast<uint64_t>(point - record.lastPoint - 1);
        }
        const int64_t gap = nowNs - record.lastNs;
        record.longestGapNs = gap > record.longestGapNs ? gap : record.longestGapNs;
    }
    record.lastPoint = point;
}

void PassClock::onTick(void* context) {
    auto* clock = static_cast<PassClock*>(context);
    const int64_t now = zyn_support::monotonicNowNs();
    if (clock->gridQuery != nullptr) {
        clock->placeOnGrid(now);
    }
    GridRecord& record = clock->record;
    record.lastNs = now;
    ++record.passes;
    // Before the pass reads any handler's state (see current()).
    (void)clock->pass.exchange(record.passes, std::memory_order_acq_rel);
}

}  // namespace soak
