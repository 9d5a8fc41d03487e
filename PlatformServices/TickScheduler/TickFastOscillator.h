/// @file
/// The fast scheduler's oscillator, for the integrator that drives it.
///
/// CTickSchedulerFast configures its 1 ms oscillator at phase 11 (period 1 ms,
/// ETickPriority 1, its dispatch registered as the receiver) but never starts
/// the oscillator thread: whether the fast handlers run at all is the
/// integrator's decision, and the module only gives the integrator its
/// oscillator to decide with.
///
/// Typical use, on the thread that runs the module phases:
///
///     CTickSchedulerFast_Initialize();
///     // ... phases 11 and 13 through the module manager ...
///     CTickSchedulerFast_GetTickOscillator()->start();  // 1 ms ticks from here
///     // ... phase 16 runs CTickSchedulerFast_Uninitialize, which stops it ...
#pragma once

#include "TickOscillator.h"
#include "TickSchedulerExport.h"

extern "C" {

/// The oscillator that drives CTickSchedulerFast's dispatch: a static of the
/// library, the same object on every call and valid for the life of the
/// process. Never null.
///
/// The module never starts it; start() succeeds once phase 11 has initialised
/// it (until phase 11 first runs in the process it returns
/// TickResult::NotInitialized, 32772, as any oscillator does), and
/// CTickSchedulerFast_Uninitialize stops it. Its settings (period, priority,
/// receiver) are the module's: calling initialize() or registerOnTick() on it
/// changes what the module's handlers see and is not meant for clients.
///
/// Context: any thread; tick function: allowed; does not wait for a running
/// pass (takes no lock and writes no trace). start() and stop() on the
/// returned oscillator are not serialised with the module's phases: call them
/// from the thread that runs the phases, and never stop() from a fast tick
/// function (it would join its own thread).
ZYN_TS_EXPORT TickOscillator* CTickSchedulerFast_GetTickOscillator(void);
}
