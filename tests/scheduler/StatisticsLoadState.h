// Puts a module's statistics back into their state at library load: switched
// off, the environment not yet consulted, and every slot of the module's
// handler table zero-filled, as its static storage is before first use.
#pragma once

#include <cstddef>
#include <new>

#include "DispatchStatistics.h"

namespace statistics_test {

/// Every slot of a handler table as zero-filled static storage has it.
template <size_t SlotCount>
void zeroHandlerSlots(zyn_ts::HandlerSlot (&slots)[SlotCount]) {
    for (zyn_ts::HandlerSlot& slot : slots) {
        slot.generation.store(0);
        slot.epoch.store(0);
        slot.key.store(nullptr);
        slot.calls.store(0);
        slot.overBudget.store(0);
        slot.totalNs.store(0);
        slot.minNs.store(0);
        slot.maxNs.store(0);
        slot.lastNs.store(0);
    }
}

/// The statistics object and its table as the library loads them.
template <size_t SlotCount>
void resetStatisticsToLoadState(zyn_ts::DispatchStatistics& statistics, int64_t periodNs,
                                zyn_ts::HandlerSlot (&slots)[SlotCount]) {
    zeroHandlerSlots(slots);
    statistics.~DispatchStatistics();
    new (&statistics) zyn_ts::DispatchStatistics(periodNs, slots);
}

}  // namespace statistics_test
