/// @file
/// CTickScheduler: the 6 ms interval and priority tick scheduler.
///
/// Handlers are registered by name with a tick interval; on every tick of the
/// scheduler's 6 ms oscillator the due handlers run on the oscillator thread,
/// one after the other, in the order of the handler list (registration appends;
/// CTickScheduler_SetTickPriority moves a handler in front of the first one of
/// higher priority).
///
/// Locking: the module has one mutex, the tick lock. Operations that touch the
/// handler list, the group masks or the oscillator take it through
/// CTickScheduler_WaitForTickAndLock: from a client thread (the fast
/// scheduler's tick functions included) they wait until a running tick pass
/// has ended; from inside one of this scheduler's tick functions they wait
/// only for a client that holds the lock. Registering, unregistering and
/// re-prioritising from a tick function is safe: the running pass keeps
/// walking the handlers it started with (a handler removed in the pass is
/// not called after its removal, its record is freed when the pass ends),
/// and the changed list applies from the next pass.
///
/// Results are TickResult codes (TickResultCodes.h): TickResult::Success (0),
/// TickResult::AlreadyInitialized (4097), errors from TickResult::Failure
/// (32768) up.
#pragma once

#include <cstdint>
#include <mutex>

#include "ETickPriority.h"
#include "ITickReceiver.h"
#include "STickHandler.h"
#include "TickSchedulerExport.h"

extern "C" {

/// Registers the module (TickModule::SchedulerModuleId, 22000) with the module
/// manager, then its phase callback for phases 11, 13, 16, 14 (see
/// TickModuleIdentity.h), then the "ITickScheduler" object with the interface
/// broker; then resets the group masks and stores *priority (read only here,
/// after every registration succeeded) for the oscillator. No lock.
/// Results: TickResult::Success (0); TickResult::AlreadyInitialized (4097),
/// nothing done; a refused registration, which earlier registrations do not
/// undo and which leaves the module uninitialised:
/// TickResult::ModuleRegistrationFailed (32775) for the module,
/// TickResult::CallbackRegistrationFailed (32776) for the callback,
/// TickResult::Failure (32768) for the interface object.
/// Context: one thread, once, before the phases run; tick function: not
/// allowed (no tick runs before the phases); does not wait for a running pass
/// (takes no lock).
ZYN_TS_EXPORT uint32_t CTickScheduler_Initialize(const ETickPriority* priority);

/// Stops and joins the oscillator, marks the module uninitialised (under the
/// tick lock), withdraws "ITickScheduler" and empties the handler list
/// without freeing the records.
/// Context: the thread that runs the phases; tick function: not allowed (from
/// one of this scheduler's it would join its own thread); waits for a running
/// pass (it waits for the oscillator thread to end, then for the tick lock).
ZYN_TS_EXPORT void CTickScheduler_Uninitialize(void);

/// Creates a handler: enabled, priority 5, counter 0, no group, named with the
/// first 31 characters of `pszName`, appended at the end of the handler list
/// under the tick lock; `*tickHandler` receives the handle. Allowed in every
/// state of the module; the handler is due on the next pass.
/// Results: TickResult::Success (0); TickResult::NullArgument (32770) when
/// `tickHandler`, `pITickReceiver` or `pszName` is null.
/// Context: any thread; tick function: allowed; waits for a running pass,
/// except in this scheduler's own tick function, where it waits only for a
/// client that holds the tick lock (see Locking above).
ZYN_TS_EXPORT uint32_t CTickScheduler_RegisterTickHandler(STickHandler** tickHandler,
                                                          const ITickReceiver* pITickReceiver, uint32_t tickInterval,
                                                          const char* pszName);

/// Removes `*handle` from the handler list under the tick lock, frees it and
/// clears `*handle`. A handle that is not in the list is reported, not freed,
/// and `*handle` is cleared all the same.
/// Results: TickResult::Success (0), also for a null `*handle` or a handle
/// not in the list; TickResult::NullArgument (32770) when `handle` is null.
/// Context: any thread; tick function: allowed; waits for a running pass,
/// except in this scheduler's own tick function, where it waits only for a
/// client that holds the tick lock (see Locking above).
ZYN_TS_EXPORT uint32_t CTickScheduler_UnregisterTickHandler(STickHandler** handle);

/// Freezes the oscillator under the tick lock: once it returns, no handler
/// runs until CTickScheduler_Unfreeze. Always TickResult::Success (0).
/// Context: any thread; tick function: allowed; waits for a running pass,
/// except in this scheduler's own tick function, where it waits only for a
/// client that holds the tick lock (see Locking above).
ZYN_TS_EXPORT uint32_t CTickScheduler_Freeze(void);

/// Unfreezes the oscillator under the tick lock; ticks resume on the same
/// grid. Always TickResult::Success (0).
/// Context: any thread; tick function: allowed; waits for a running pass,
/// except in this scheduler's own tick function, where it waits only for a
/// client that holds the tick lock (see Locking above).
ZYN_TS_EXPORT uint32_t CTickScheduler_Unfreeze(void);

/// Writes `offset` into the handler's phase counter (no lock): with interval
/// n and offset o, the handler is next called after n - o ticks.
/// Results: TickResult::Success (0); TickResult::NullArgument (32770) null
/// handler; TickResult::OutOfRange (32771) offset not below the interval.
/// Context: any thread; tick function: allowed; does not wait for a running
/// pass (takes no lock).
ZYN_TS_EXPORT uint32_t CTickScheduler_SetStartOffset(STickHandler* handler, uint32_t offset);

/// Moves the handler in front of the first handler of higher priority (or to
/// the end) under the tick lock. An unchanged priority returns at once.
/// Results: TickResult::Success (0); TickResult::Failure (32768) handler not
/// registered; TickResult::NullArgument (32770) null handler.
/// Context: any thread; tick function: allowed; waits for a running pass,
/// except in this scheduler's own tick function, where it waits only for a
/// client that holds the tick lock (see Locking above). An unchanged priority
/// returns before the lock.
ZYN_TS_EXPORT uint32_t CTickScheduler_SetTickPriority(STickHandler* handler, int32_t priority);

/// Enables the handler under the tick lock; it keeps its phase.
/// Results: TickResult::Success (0); TickResult::NullArgument (32770) null
/// handler.
/// Context: any thread; tick function: allowed; waits for a running pass,
/// except in this scheduler's own tick function, where it waits only for a
/// client that holds the tick lock (see Locking above).
ZYN_TS_EXPORT uint32_t CTickScheduler_EnableTickHandler(STickHandler* handler);

/// Disables the handler under the tick lock; its counter keeps running.
/// Results: as CTickScheduler_EnableTickHandler.
/// Context: any thread; tick function: allowed; waits for a running pass,
/// except in this scheduler's own tick function, where it waits only for a
/// client that holds the tick lock (see Locking above).
ZYN_TS_EXPORT uint32_t CTickScheduler_DisableTickHandler(STickHandler* handler);

/// Adds the handler to group 0 or 1 under the tick lock.
/// Results: TickResult::Success (0); TickResult::NullArgument (32770) null
/// handler; TickResult::GroupIdOutOfBounds (32782) group id above 1.
/// Context: any thread; tick function: allowed; waits for a running pass,
/// except in this scheduler's own tick function, where it waits only for a
/// client that holds the tick lock (see Locking above).
ZYN_TS_EXPORT uint32_t CTickScheduler_AddGroup(STickHandler* handler, uint32_t groupId);

/// Removes the handler from group 0 or 1 under the tick lock.
/// Results: as CTickScheduler_AddGroup.
/// Context: any thread; tick function: allowed; waits for a running pass,
/// except in this scheduler's own tick function, where it waits only for a
/// client that holds the tick lock (see Locking above).
ZYN_TS_EXPORT uint32_t CTickScheduler_RemoveGroup(STickHandler* handler, uint32_t groupId);

/// Enables group 0 or 1 under the tick lock.
/// Results: TickResult::Success (0); TickResult::GroupIdOutOfBounds (32782)
/// group id above 1.
/// Context: any thread; tick function: allowed; waits for a running pass,
/// except in this scheduler's own tick function, where it waits only for a
/// client that holds the tick lock (see Locking above).
ZYN_TS_EXPORT uint32_t CTickScheduler_EnableTickGroup(uint32_t groupId);

/// Disables group 0 or 1 under the tick lock: its members are skipped (their
/// counters keep running). A bad id is refused before the lock is taken.
/// Results: as CTickScheduler_EnableTickGroup.
/// Context: any thread; tick function: allowed; waits for a running pass,
/// except in this scheduler's own tick function, where it waits only for a
/// client that holds the tick lock (see Locking above). A bad id returns
/// before the lock.
ZYN_TS_EXPORT uint32_t CTickScheduler_DisableTickGroup(uint32_t groupId);
}

/// The tick lock: locks the scheduler's mutex and, when a tick pass is running
/// on another thread, waits until it has ended. On the tick thread itself
/// (from inside a tick function) it returns at once. The caller holds the
/// mutex until the returned lock is released or destroyed.
/// Context: any thread; tick function: allowed (in one of this scheduler's,
/// the lock must be released before the tick function returns); waits for a
/// running pass from a client thread and from the fast scheduler's tick
/// functions, but in this scheduler's own tick function only for a client
/// that holds the lock.
ZYN_TS_EXPORT std::unique_lock<std::mutex> CTickScheduler_WaitForTickAndLock();
