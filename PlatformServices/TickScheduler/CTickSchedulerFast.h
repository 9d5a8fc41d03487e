/// @file
/// CTickSchedulerFast: the 1 ms scheduler that calls every enabled handler on
/// every tick. Its handler operations are reached through the
/// "ITickSchedulerFast" object (ITickSchedulerFast.h); only start-up and
/// shut-down are exported by name.
///
/// The module configures its 1 ms oscillator at phase 11 but never starts the
/// oscillator thread itself; the integrator starts it through
/// CTickSchedulerFast_GetTickOscillator (TickFastOscillator.h).
#pragma once

#include <cstdint>

#include "TickSchedulerExport.h"

extern "C" {

/// Registers the module (TickModule::FastSchedulerModuleId, 22001) with the
/// module manager, its phase callback for phases 11, 13, 16 (see
/// TickModuleIdentity.h) and the "ITickSchedulerFast" object with the broker;
/// then initialises the mutex and the handler list. No lock.
/// Results: TickResult::Success (0); TickResult::AlreadyInitialized (4097);
/// a refused registration: TickResult::ModuleRegistrationFailed (32775),
/// TickResult::CallbackRegistrationFailed (32776), TickResult::Failure
/// (32768) for the interface object; TickResult::MutexFailure (32778) the
/// mutex could not be initialised. Earlier registrations are not undone.
/// Context: one thread, once, before the phases run; tick function: not
/// allowed (no tick runs before the phases); does not wait for a running pass
/// (takes no lock).
ZYN_TS_EXPORT uint32_t CTickSchedulerFast_Initialize(void);

/// Stops the oscillator, withdraws "ITickSchedulerFast" and marks the module
/// uninitialised. Handlers and their records are left as they are.
/// Context: the thread that runs the phases; tick function: not allowed (from
/// a fast one it would join its own thread); waits for a running fast pass (it
/// waits for the oscillator thread to end).
ZYN_TS_EXPORT void CTickSchedulerFast_Uninitialize(void);
}
