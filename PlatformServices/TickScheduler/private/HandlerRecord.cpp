#include "HandlerRecord.h"

#include <cstdio>

#include "TickResultCodes.h"

namespace zyn_ts {

void fillHandlerRecord(STickHandler& record, const ITickReceiver& receiver, uint32_t tickInterval, const char* name) {
    record.tickReceiver = receiver;
    record.enabled.store(1, std::memory_order_relaxed);
    record.tickInterval = tickInterval;
    record.prio.store(kInitialPriority, std::memory_order_relaxed);
    record.currentInterval.store(0, std::memory_order_relaxed);
    record.groupMask.store(0, std::memory_order_relaxed);
    std::snprintf(record.name, sizeof(record.name), "%s", name);
}

uint32_t storeEnabled(STickHandler* handle, uint32_t enabled) {
    if (handle == nullptr) {
        return TickResult::NullArgument;
    }
    handle->enabled.store(enabled, std::memory_order_relaxed);
    return TickResult::Success;
}

}  // namespace zyn_ts
