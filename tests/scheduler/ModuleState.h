// Access to the CTickScheduler module state for white-box tests: putting it
// back into its load state, and reading it under its mutex.
#pragma once

#include <mutex>
#include <new>
#include <vector>

#include "CTickSchedulerModule.h"
#include "StatisticsLoadState.h"

namespace scheduler_test {

/// Stops a running oscillator, frees every record the module still holds and
/// rebuilds the module state as it is when the library is loaded.
inline void resetModuleToLoadState() {
    CTickScheduler& state = tickScheduler;
    (void)state.tickOscillator.stop();
    std::vector<STickHandler*> records;
    {
        std::lock_guard<std::mutex> lock(state.tickMutex);
        records = state.tickHandlers;
        records.insert(records.end(), state.retiredHandlers.begin(), state.retiredHandlers.end());
    }
    state.~CTickScheduler();
    // The handler table of the statistics is static storage of its own.
    statistics_test::zeroHandlerSlots(schedulerHandlerSlots);
    new (&state) CTickScheduler();
    for (STickHandler* record : records) {
        delete[] record;
    }
    schedulerTickReceiver = ITickReceiver{nullptr, nullptr};
    phaseCallbackContext = SPhaseCallbackContext{nullptr, nullptr};
}

/// The handler list, read under the mutex.
inline std::vector<STickHandler*> handlerList() {
    std::lock_guard<std::mutex> lock(tickScheduler.tickMutex);
    return tickScheduler.tickHandlers;
}

inline uint32_t disabledGroups() { return tickScheduler.disabledGroupMask.load(); }

/// One tick pass on the calling thread, as the oscillator would deliver it.
inline void tick(int count = 1) {
    for (int i = 0; i < count; ++i) {
        CTickScheduler_OnTick(&tickScheduler);
    }
}

}  // namespace scheduler_test
