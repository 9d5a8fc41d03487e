// Where ticks fall on the scheduler's published grid.
//
// The oscillator publishes the instant its grid starts from (grid point 0)
// and its period: tick k is due at origin + k x period, and the first tick at
// grid point 1. Each tick belongs to the last grid point at or before it, so
// its latency is its distance after that point, measured as cyclictest
// measures a wake-up: from the instant it was due. Nothing is estimated: the
// live status line and the final report both feed the timestamps through
// this one tally, so for the same ticks they show the same figures.
#pragma once

#include <cstdint>

namespace tickmon {

/// The grid a scheduler published (see TickGrid.h of the library).
struct PublishedGrid {
    /// The instant grid point `point` is due at.
    int64_t instantOf(int64_t point) const { return originNs + point * periodNs; }

    int64_t originNs = 0;
    int64_t periodNs = 0;
    uint64_t generation = 0;
};

class GridTally {
public:
    GridTally() = default;
    explicit GridTally(const PublishedGrid& grid) : grid(grid) {}

    /// The grid point a tick at `timestampNs` belongs to: the last one at or
    /// before it (negative before the origin).
    int64_t gridPointOf(int64_t timestampNs) const;

    /// How late a tick at `timestampNs`, not yet added, is after the grid
    /// point it was due at: the one after the latest tick's. Unlike its
    /// latency, this counts the grid points a stalled tick skipped.
    int64_t latenessAfterNextGridPoint(int64_t timestampNs) const {
        return timestampNs - grid.instantOf(lastPoint + 1);
    }

    /// Adds the next tick (timestamps non-decreasing).
    void add(int64_t timestampNs);

    const PublishedGrid& publishedGrid() const { return grid; }
    uint64_t ticks() const { return tickCount; }
    /// The grid point of the latest tick; 0 before the first one.
    int64_t lastGridPoint() const { return lastPoint; }
    /// Grid points from 1 to the latest tick's that got no tick.
    uint64_t missed() const;
    /// Ticks at or before grid point 0, where no tick is due: early ones.
    uint64_t ticksBeforeTheFirstGridPoint() const { return earlyCount; }
    /// Ticks on a grid point that had already had one: the oscillator woke
    /// before the next grid point.
    uint64_t ticksOnAGridPointAlreadyTicked() const { return sharedCount; }
    /// No tick before its grid point and no grid point with two ticks.
    bool everyTickOnAGridPointOfItsOwn() const { return earlyCount == 0 && sharedCount == 0; }

    /// Latency of the ticks so far after their grid points, nanoseconds.
    int64_t minLatencyNs() const { return tickCount == 0 ? 0 : minNs; }
    int64_t maxLatencyNs() const { return tickCount == 0 ? 0 : maxNs; }
    double meanLatencyNs() const;

private:
    PublishedGrid grid;
    uint64_t tickCount = 0;
    int64_t lastPoint = 0;
    uint64_t pointsWithATick = 0;
    uint64_t earlyCount = 0;
    uint64_t sharedCount = 0;
    int64_t minNs = 0;
    int64_t maxNs = 0;
    int64_t sumNs = 0;
};

/// A tick's latency after its grid point.
int64_t latencyAfterGridPoint(const GridTally& tally, int64_t timestampNs);

}  // namespace tickmon
