// What the two scheduler modules do alike: filling a new handler record,
// storing its enable flag, the tick groups, and the arguments of the phase
// callback registration. Everything else each module writes in its own
// source, in its own words: their traces differ, and so do how they
// allocate records and which exceptions a dispatch catches.
#pragma once

#include <cstdint>

#include "ITickReceiver.h"
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

/// The three arguments of the phase callback registration that only the
/// module manager gives a meaning; both modules pass them unchanged.
struct PhaseCallbackArguments {
    static constexpr uint32_t first = 100;
    static constexpr uint32_t second = 3;
    static constexpr uint32_t third = 0;
};

}  // namespace zyn_ts
