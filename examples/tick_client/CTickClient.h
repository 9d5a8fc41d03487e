// CTickClient: an example client module of the 6 ms tick scheduler.
//
// It is written as any module of the platform is: it registers with the
// module manager under its own module id, subscribes its phase callback to
// phases 12 and 16, and reaches the scheduler only through the
// "ITickScheduler" object that it takes from the interface broker at phase
// 12 (the scheduler publishes it when it is initialised, before any phase).
//
// At phase 12 it registers two handlers:
//   "TickClientFast"  every tick (6 ms), priority 2
//   "TickClientSlow"  every 5th tick (30 ms), priority 8, member of tick
//                     group 0 ("channel 1")
// The slow one is registered first; the priorities put the fast one in front
// of it, so on a tick on which both are due the fast one runs first.
//
// At phase 16 it unregisters both handlers. It must see phase 16 before the
// scheduler does, since the scheduler's own shut-down empties its handler
// list without freeing the records: the reference module manager calls the
// callbacks of a phase in registration order, so initialise this module
// before CTickScheduler_Initialize.
#pragma once

#include <cstdint>

extern "C" {

/// The module id of the example (any id the platform has not given away).
constexpr uint32_t CTickClient_ModuleId = 23000;

/// Registers the module and its phase callback. No lock; call once, before
/// the phases. Results: TickResult::Success; ModuleRegistrationFailed,
/// CallbackRegistrationFailed when the module manager refuses.
uint32_t CTickClient_Initialize(void);

/// A consistent snapshot of what the handlers have seen.
struct STickClientCounts {
    /// Calls of "TickClientFast" (one per tick pass).
    uint32_t fastCalls;
    /// Calls of "TickClientSlow".
    uint32_t slowCalls;
    /// False once "TickClientSlow" ran on a tick on which "TickClientFast"
    /// had not run before it, or on a tick that was not its own.
    bool dispatchOrderKept;
};

/// Reads the counts under the scheduler's tick lock, so that no tick pass is
/// half done: both counters belong to the same number of passes.
STickClientCounts CTickClient_ReadCounts(void);

/// Disables or enables tick group 0 ("channel 1") through "ITickScheduler".
/// Once it returns no tick pass calls the slow handler any more (resp. it is
/// called again on its own ticks). Results: those of DisableTickGroup and
/// EnableTickGroup; TickResult::Failure before phase 12.
uint32_t CTickClient_SetChannelEnabled(bool enabled);

/// True from phase 12 until phase 16 when both handlers are registered.
bool CTickClient_HandlersRegistered(void);
}
