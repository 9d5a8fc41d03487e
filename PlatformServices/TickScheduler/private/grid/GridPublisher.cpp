#include "GridPublisher.h"

#include "ZynSupport/MonotonicClock.h"

namespace zyn_ts {

GridPublisher::GridPublisher(PublishedGrid* publishedGrid) : grid(publishedGrid) {
    // The previous thread of this oscillator, if any, was joined before this
    // one was created: its last publication is visible and final.
    if (grid != nullptr) {
        current = grid->lastPublished();
    }
}

void GridPublisher::started(const timespec& origin, int64_t periodNs) {
    current.running = true;
    current.generation += 1;
    current.originNs = zyn_support::toNanoseconds(origin);
    current.periodNs = periodNs;
    publishCurrent();
}

void GridPublisher::publishPeriod(int64_t periodNs) {
    current.periodNs = periodNs;
    publishCurrent();
}

void GridPublisher::stopped() {
    current.running = false;
    publishCurrent();
}

void GridPublisher::publishCurrent() {
    if (grid != nullptr) {
        grid->publish(current);
    }
}

}  // namespace zyn_ts
