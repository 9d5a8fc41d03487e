#include "SharedModuleParts.h"

#include <cstdio>

#include "TickResultCodes.h"
#include "TracepointProvider.h"

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

uint32_t storeEnabled(TracedScheduler scheduler, STickHandler* handle, uint32_t enabled) {
    if (handle == nullptr) {
        return TickResult::NullArgument;
    }
    handle->enabled.store(enabled, std::memory_order_relaxed);
    if (enabled != 0) {
        ZYN_TS_TRACEPOINT(handler_enabled, static_cast<int>(scheduler), handle, handle->name);
    } else {
        ZYN_TS_TRACEPOINT(handler_disabled, static_cast<int>(scheduler), handle, handle->name);
    }
    return TickResult::Success;
}

void applyEnvironmentOnce(DispatchStatistics& statistics, PrecisionWake& wake) {
    statistics.applyEnvironmentOnce();
    wake.applyEnvironmentOnce();
    openTracepointProviderOnce();
}

}  // namespace zyn_ts
