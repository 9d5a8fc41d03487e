// The exported statistics switches and queries of both modules. Each takes
// its module's own mutex, which guards the module's statistics.
#include <pthread.h>

#include <mutex>

#include "CTickScheduler.h"
#include "CTickSchedulerFastModule.h"
#include "CTickSchedulerModule.h"
#include "DispatchStatistics.h"
#include "TickResultCodes.h"
#include "TickStatistics.h"

namespace {

/// Holds the fast module's mutex for a scope. A failed lock leaves the
/// scope without it, and the caller reports the failure.
class FastModuleLock {
public:
    FastModuleLock() : locked(pthread_mutex_lock(&tickSchedulerFastModule.tickMutex) == 0) {}
    ~FastModuleLock() {
        if (locked) {
            (void)pthread_mutex_unlock(&tickSchedulerFastModule.tickMutex);
        }
    }
    FastModuleLock(const FastModuleLock&) = delete;
    FastModuleLock& operator=(const FastModuleLock&) = delete;

    bool held() const { return locked; }

private:
    bool locked;
};

/// Runs `use` on the fast module's statistics with its mutex held and
/// returns what `use` returns; TickResult::MutexFailure when the mutex
/// cannot be locked.
template <typename Use>
uint32_t withFastStatistics(Use use) {
    const FastModuleLock lock;
    if (!lock.held()) {
        return TickResult::MutexFailure;
    }
    return use(fastDispatchStatistics);
}

uint32_t copyHandler(const zyn_ts::DispatchStatistics& statistics, const STickHandler* handler,
                     STickHandlerStatistics* out) {
    if (!statistics.copyHandler(handler, *out)) {
        return TickResult::UnknownHandler;
    }
    return TickResult::Success;
}

bool isUsable(const STickHandlerStatistics* out) { return out != nullptr && out->size >= sizeof(*out); }

bool isUsable(const STickSchedulerStatistics* out) { return out != nullptr && out->size >= sizeof(*out); }

}  // namespace

// ---- CTickScheduler -----------------------------------------------------------
// Switches and reset wait for a running pass through the tick lock; queries
// take the mutex directly, which the pass releases around every call, so a
// tick function may query too.

extern "C" uint32_t CTickScheduler_EnableStatistics(uint64_t handlerBudgetNs) {
    std::unique_lock<std::mutex> lock = CTickScheduler_WaitForTickAndLock();
    tickScheduler.statistics.switchOn(handlerBudgetNs);
    return TickResult::Success;
}

extern "C" uint32_t CTickScheduler_DisableStatistics(void) {
    std::unique_lock<std::mutex> lock = CTickScheduler_WaitForTickAndLock();
    tickScheduler.statistics.switchOff();
    return TickResult::Success;
}

extern "C" uint32_t CTickScheduler_ResetStatistics(void) {
    std::unique_lock<std::mutex> lock = CTickScheduler_WaitForTickAndLock();
    tickScheduler.statistics.reset();
    return TickResult::Success;
}

extern "C" uint32_t CTickScheduler_GetHandlerStatistics(const STickHandler* handler,
                                                        STickHandlerStatistics* statistics) {
    if (handler == nullptr || !isUsable(statistics)) {
        return TickResult::NullArgument;
    }
    std::lock_guard<std::mutex> lock(tickScheduler.tickMutex);
    return copyHandler(tickScheduler.statistics, handler, statistics);
}

extern "C" uint32_t CTickScheduler_GetSchedulerStatistics(STickSchedulerStatistics* statistics) {
    if (!isUsable(statistics)) {
        return TickResult::NullArgument;
    }
    std::lock_guard<std::mutex> lock(tickScheduler.tickMutex);
    tickScheduler.statistics.copyScheduler(*statistics);
    return TickResult::Success;
}

// ---- CTickSchedulerFast -------------------------------------------------------
// The dispatch holds the mutex for the whole pass: each of these waits for it.

extern "C" uint32_t CTickSchedulerFast_EnableStatistics(uint64_t handlerBudgetNs) {
    return withFastStatistics([handlerBudgetNs](zyn_ts::DispatchStatistics& statistics) {
        statistics.switchOn(handlerBudgetNs);
        return TickResult::Success;
    });
}

extern "C" uint32_t CTickSchedulerFast_DisableStatistics(void) {
    return withFastStatistics([](zyn_ts::DispatchStatistics& statistics) {
        statistics.switchOff();
        return TickResult::Success;
    });
}

extern "C" uint32_t CTickSchedulerFast_ResetStatistics(void) {
    return withFastStatistics([](zyn_ts::DispatchStatistics& statistics) {
        statistics.reset();
        return TickResult::Success;
    });
}

extern "C" uint32_t CTickSchedulerFast_GetHandlerStatistics(const STickHandler* handler,
                                                            STickHandlerStatistics* statistics) {
    if (handler == nullptr || !isUsable(statistics)) {
        return TickResult::NullArgument;
    }
    return withFastStatistics([handler, statistics](const zyn_ts::DispatchStatistics& fastStatistics) {
        return copyHandler(fastStatistics, handler, statistics);
    });
}

extern "C" uint32_t CTickSchedulerFast_GetSchedulerStatistics(STickSchedulerStatistics* statistics) {
    if (!isUsable(statistics)) {
        return TickResult::NullArgument;
    }
    return withFastStatistics([statistics](const zyn_ts::DispatchStatistics& fastStatistics) {
        fastStatistics.copyScheduler(*statistics);
        return TickResult::Success;
    });
}
