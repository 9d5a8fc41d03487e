// The exported statistics switches and queries of both modules. None takes a
// lock or waits for a pass (see DispatchStatistics.h), so each is safe from
// any thread, a tick function of either scheduler included.
#include "CTickSchedulerFastModule.h"
#include "CTickSchedulerModule.h"
#include "DispatchStatistics.h"
#include "TickResultCodes.h"
#include "TickStatistics.h"

namespace {

bool isUsable(const STickHandlerStatistics* out) { return out != nullptr && out->size >= sizeof(*out); }

bool isUsable(const STickSchedulerStatistics* out) { return out != nullptr && out->size >= sizeof(*out); }

uint32_t enable(zyn_ts::DispatchStatistics& statistics, uint64_t handlerBudgetNs) {
    statistics.switchOn(handlerBudgetNs);
    return TickResult::Success;
}

uint32_t disable(zyn_ts::DispatchStatistics& statistics) {
    statistics.switchOff();
    return TickResult::Success;
}

uint32_t reset(zyn_ts::DispatchStatistics& statistics) {
    statistics.reset();
    return TickResult::Success;
}

uint32_t copyHandler(const zyn_ts::DispatchStatistics& statistics, const STickHandler* handler,
                     STickHandlerStatistics* out) {
    if (handler == nullptr || !isUsable(out)) {
        return TickResult::NullArgument;
    }
    return statistics.copyHandler(handler, *out);
}

uint32_t copyScheduler(const zyn_ts::DispatchStatistics& statistics, STickSchedulerStatistics* out) {
    if (!isUsable(out)) {
        return TickResult::NullArgument;
    }
    statistics.copyScheduler(*out);
    return TickResult::Success;
}

}  // namespace

extern "C" uint32_t CTickScheduler_EnableStatistics(uint64_t handlerBudgetNs) {
    return enable(tickScheduler.statistics, handlerBudgetNs);
}

extern "C" uint32_t CTickScheduler_DisableStatistics(void) { return disable(tickScheduler.statistics); }

extern "C" uint32_t CTickScheduler_ResetStatistics(void) { return reset(tickScheduler.statistics); }

extern "C" uint32_t CTickScheduler_GetHandlerStatistics(const STickHandler* handler,
                                                        STickHandlerStatistics* statistics) {
    return copyHandler(tickScheduler.statistics, handler, statistics);
}

extern "C" uint32_t CTickScheduler_GetSchedulerStatistics(STickSchedulerStatistics* statistics) {
    return copyScheduler(tickScheduler.statistics, statistics);
}

extern "C" uint32_t CTickSchedulerFast_EnableStatistics(uint64_t handlerBudgetNs) {
    return enable(fastDispatchStatistics, handlerBudgetNs);
}

extern "C" uint32_t CTickSchedulerFast_DisableStatistics(void) { return disable(fastDispatchStatistics); }

extern "C" uint32_t CTickSchedulerFast_ResetStatistics(void) { return reset(fastDispatchStatistics); }

extern "C" uint32_t CTickSchedulerFast_GetHandlerStatistics(const STickHandler* handler,
                                                            STickHandlerStatistics* statistics) {
    return copyHandler(fastDispatchStatistics, handler, statistics);
}

extern "C" uint32_t CTickSchedulerFast_GetSchedulerStatistics(STickSchedulerStatistics* statistics) {
    return copyScheduler(fastDispatchStatistics, statistics);
}
