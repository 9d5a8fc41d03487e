// CFastTickClient: an example client module of the 1 ms fast tick scheduler.
//
// Like any platform module it registers with the module manager under its
// own module id, subscribes its phase callback to phases 12 and 16, and
// reaches the fast scheduler only through the "ITickSchedulerFast" object
// that it takes from the interface broker at phase 12.
//
// At phase 12 it registers two handlers, "FastClientA" and "FastClientB",
// and puts B into tick group 1 ("channel 2"). At phase 16 it unregisters
// both. The fast scheduler calls every enabled handler whose groups are all
// enabled on each tick of its 1 ms oscillator, in registration order.
//
// The fast scheduler configures that oscillator at phase 11 but does not
// start it: ticks flow only once the platform drives it (see
// docs/integration.md). The module works the same either way.
#pragma once

#include <cstdint>

#include "STickHandler.h"

extern "C" {

/// The module id of the example (any id the platform has not given away).
constexpr uint32_t CFastTickClient_ModuleId = 23001;

/// Registers the module and its phase callback. No lock; call once, before
/// the phases. Results: TickResult::Success; ModuleRegistrationFailed,
/// CallbackRegistrationFailed when the module manager refuses.
uint32_t CFastTickClient_Initialize(void);

/// The handles of the two handlers: both null before phase 12 and after
/// phase 16. The records are the scheduler's: read them, never write them.
const STickHandler* CFastTickClient_HandlerA(void);
const STickHandler* CFastTickClient_HandlerB(void);

/// Calls of each handler so far.
uint32_t CFastTickClient_CallsOfA(void);
uint32_t CFastTickClient_CallsOfB(void);

/// Enables or disables handler A through "ITickSchedulerFast" (no lock: takes
/// effect from the next tick). Results: those of the interface;
/// TickResult::Failure before phase 12.
uint32_t CFastTickClient_SetHandlerAEnabled(bool enabled);

/// Enables or disables tick group 1 ("channel 2"), which B belongs to.
/// Results: those of the interface; TickResult::Failure before phase 12.
uint32_t CFastTickClient_SetChannelEnabled(bool enabled);

/// Asks for a group that does not exist (id 2): the scheduler refuses with
/// TickResult::GroupIdOutOfBounds (32782) and changes nothing.
/// TickResult::Failure before phase 12.
uint32_t CFastTickClient_AddHandlerBToGroup2(void);
}
