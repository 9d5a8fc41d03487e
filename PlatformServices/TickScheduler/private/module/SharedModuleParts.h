// What the two scheduler modules do alike: filling a new handler record,
// storing its enable flag, the tick groups, registering the phase callback,
// the environment's switches at the first start-up, and a phase's
// tracepoint. Everything else each module writes in its own source, in its
// own words: their traces differ, and so do how they allocate records and
// which exceptions a dispatch catches.
#pragma once

#include <cstdint>

#include "CModuleManager.h"
#include "DispatchStatistics.h"
#include "ITickReceiver.h"
#include "PrecisionWake.h"
#include "STickHandler.h"
#include "Tracepoints.h"

namespace zyn_ts {

/// The priority of a newly registered handler.
constexpr int32_t kInitialPriority = 5;

/// Makes `record` an enabled handler in no group, with its counter at 0, the
/// initial priority, and the first 31 characters of `name`.
void fillHandlerRecord(STickHandler& record, const ITickReceiver& receiver, uint32_t tickInterval, const char* name);

/// Stores `enabled` (1 or 0) into the record behind `handle`, as the enable
/// and disable operations of both modules do once they may write it.
/// Results: TickResult::Success; TickResult::NullArgument for a null handle.
/// A stored value is also a handler_enabled or handler_disabled tracepoint
/// of `scheduler`.
uint32_t storeEnabled(TracedScheduler scheduler, STickHandler* handle, uint32_t enabled);

// A handler belongs to any of the tick groups 0 and 1, one bit a group in its
// `groupMask`; a module-wide mask of the same bits disables whole groups.
constexpr uint32_t kHighestGroupId = 1;

constexpr bool isGroupIdValid(uint32_t groupId) { return groupId <= kHighestGroupId; }

constexpr uint32_t groupBit(uint32_t groupId) { return 1u << groupId; }

/// Group ids are unsigned for the bound test and signed in messages.
constexpr int32_t groupIdForDisplay(uint32_t groupId) { return static_cast<int32_t>(groupId); }

/// What the first successful initialisation of a module turns on: its
/// statistics and its precision wake as the environment asks, and the
/// tracepoint provider for the process. Later calls change nothing. Takes no
/// lock: a client that holds the tick lock may initialise.
void applyEnvironmentOnce(DispatchStatistics& statistics, PrecisionWake& wake);

/// A phase callback's result, told to a module_phase tracepoint first.
inline uint32_t phaseHandled(TracedScheduler scheduler, uint32_t phase, uint32_t result) {
    ZYN_TS_TRACEPOINT(module_phase, static_cast<int>(scheduler), phase, result);
    return result;
}

/// Points `record` (static storage: the module manager keeps its address) at
/// `callback` with a null context and registers it for `phases` (static too)
/// under `moduleId` and `callbackName`. The three other arguments have their
/// meaning in the module manager only; both modules pass the same.
/// Result: the module manager's.
template <uint32_t PhaseCount>
uint32_t registerPhaseCallback(uint32_t moduleId, const char* callbackName, SPhaseCallbackContext& record,
                               PhaseCallback callback, const uint32_t (&phases)[PhaseCount]) {
    record = {nullptr, callback};
    return CModuleManager_RegisterCallback(moduleId, callbackName, 100, &record, 3, 0, phases, PhaseCount);
}

}  // namespace zyn_ts
