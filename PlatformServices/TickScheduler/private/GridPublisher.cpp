#include "GridPublisher.h"

namespace zyn_ts {
namespace {

constexpr int64_t kNanosecondsPerSecond = 1000000000;

}  // namespace

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
    current.originNs = static_cast<int64_t>(origin.tv_sec) * kNanosecondsPerSecond + origin.tv_nsec;
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
