// Filling a new handler record, the same in both modules; each module
// allocates and frees its records its own way.
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

}  // namespace zyn_ts
