// The oscillator thread's side of its published grid: the only writer.
//
// The thread makes one on its stack when it starts, from the attachment it
// found (or none), and tells it what the grid is at the three moments it
// changes: the start instant before the first sleep, a new period before the
// first sleep computed with it, and the end of the loop. Every call is
// wait-free and allocates nothing; without a grid record every call does
// nothing.
#pragma once

#include <cstdint>
#include <ctime>

#include "PublishedGrid.h"

namespace zyn_ts {

class GridPublisher {
public:
    /// `grid` may be null: the oscillator has no attachment.
    explicit GridPublisher(PublishedGrid* grid);

    /// The thread took `origin` as grid point 0 with `periodNs`: running,
    /// with the generation after the one published last.
    void started(const timespec& origin, int64_t periodNs);

    /// The thread is about to sleep on `periodNs`: published first when it
    /// differs from the period published last. One comparison otherwise.
    void sleepsOn(int64_t periodNs) {
        if (periodNs != current.periodNs) {
            publishPeriod(periodNs);
        }
    }

    /// The loop has ended: not running, origin, period and generation kept.
    void stopped();

private:
    void publishPeriod(int64_t periodNs);
    void publishCurrent();

    PublishedGrid* grid;
    GridSnapshot current;
};

}  // namespace zyn_ts
