#include "PublishedGrid.h"

namespace zyn_ts {

void PublishedGrid::fill(const GridSnapshot& snapshot) {
    // Only this thread stores the version, so its own relaxed load is exact.
    Slot& next = slots[(version.load(std::memory_order_relaxed) + 1) % kSlots];
    next.running.store(snapshot.running ? 1u : 0u, std::memory_order_release);
    next.generation.store(snapshot.generation, std::memory_order_release);
    next.originNs.store(snapshot.originNs, std::memory_order_release);
    next.periodNs.store(snapshot.periodNs, std::memory_order_release);
}

void PublishedGrid::commit() { version.store(version.load(std::memory_order_relaxed) + 1, std::memory_order_release); }

GridSnapshot PublishedGrid::copyOf(uint64_t seenVersion) const {
    const Slot& slot = slots[seenVersion % kSlots];
    GridSnapshot copy;
    copy.running = slot.running.load(std::memory_order_acquire) != 0;
    copy.generation = slot.generation.load(std::memory_order_acquire);
    copy.originNs = slot.originNs.load(std::memory_order_acquire);
    copy.periodNs = slot.periodNs.load(std::memory_order_acquire);
    return copy;
}

}  // namespace zyn_ts
