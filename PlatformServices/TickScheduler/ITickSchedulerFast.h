/// @file
/// ITickSchedulerFast: the interface object of CTickSchedulerFast.
#pragma once

#include <cstdint>

#include "ITickReceiver.h"
#include "InterfaceBroker.h"
#include "STickHandler.h"
#include "TickSchedulerExport.h"

/// The interface object of CTickSchedulerFast in the interface broker, under
/// the name "ITickSchedulerFast". It is the only way to reach the fast
/// scheduler's handler and group operations. The broker hands out the
/// IInterface part: convert it with dynamic_cast, since IInterface is a
/// virtual base.
///
/// The fast scheduler calls every enabled, non-suppressed handler on every
/// tick of its 1 ms oscillator, in registration order, with its mutex held for
/// the whole dispatch. Hence, from inside a tick function, use
/// UnregisterTickHandlerFromOnTick (never RegisterTickHandler or
/// UnregisterTickHandler, which would lock the mutex again); outside a tick
/// function use UnregisterTickHandler.
///
/// Slot order is part of the binary contract and never changes.
///
/// Results (TickResultCodes.h): TickResult::Success (0);
/// TickResult::NullArgument (32770) a null argument; TickResult::MutexFailure
/// (32778); TickResult::ListRemoveFailed (32780) the handler could not be
/// removed from the list; TickResult::GroupIdOutOfBounds (32782) group id
/// above 1. Each slot lists the ones it can return.
class ZYN_TS_EXPORT ITickSchedulerFast : public virtual IInterface {
public:
    /// Every slot null; CTickSchedulerFast_Initialize fills them.
    /// Context: any thread; tick function: allowed; does not wait for a
    /// running pass.
    ITickSchedulerFast();
    /// Releases nothing: the slots only point to the library's functions.
    /// Context: any thread; tick function: allowed; does not wait for a
    /// running pass.
    ~ITickSchedulerFast() override;

    /// Creates an enabled handler at the tail of the list; `*outHandle`
    /// receives it. Success, NullArgument, MutexFailure.
    /// Context: any thread but the fast oscillator thread; tick function:
    /// allowed from the other scheduler's only (a fast pass holds the mutex
    /// this takes, so a fast tick function would wait for itself); waits for a
    /// running fast pass.
    uint32_t (*RegisterTickHandler)(STickHandler** outHandle, const ITickReceiver* receiver,
                                    const char* name) = nullptr;
    /// Removes and frees `*handle` under the mutex, then clears it.
    /// Success, NullArgument, MutexFailure, ListRemoveFailed.
    /// Context: any thread but the fast oscillator thread; tick function:
    /// allowed from the other scheduler's only (a fast pass holds the mutex
    /// this takes, so a fast tick function would wait for itself); waits for a
    /// running fast pass.
    uint32_t (*UnregisterTickHandler)(STickHandler** handle) = nullptr;
    /// The same without locking, for use from inside a tick function only.
    /// Success, NullArgument, ListRemoveFailed.
    /// Context: the fast oscillator thread only, inside a fast tick function;
    /// tick function: allowed from a fast one only, on the pass that holds the
    /// mutex; does not wait for a running pass (takes no lock).
    uint32_t (*UnregisterTickHandlerFromOnTick)(STickHandler** handle) = nullptr;
    /// Sets `enabled` to 1 (no lock). Success, NullArgument.
    /// Context: any thread; tick function: allowed; does not wait for a
    /// running pass (takes no lock).
    uint32_t (*EnableTickHandler)(STickHandler* handle) = nullptr;
    /// Sets `enabled` to 0 (no lock). Success, NullArgument.
    /// Context: any thread; tick function: allowed; does not wait for a
    /// running pass (takes no lock).
    uint32_t (*DisableTickHandler)(STickHandler* handle) = nullptr;
    /// Adds the handler to group 0 or 1. Success, NullArgument,
    /// GroupIdOutOfBounds.
    /// Context: any thread; tick function: allowed; does not wait for a
    /// running pass (takes no lock).
    uint32_t (*AddGroup)(STickHandler* handle, uint32_t groupId) = nullptr;
    /// Removes the handler from group 0 or 1. Success, NullArgument,
    /// GroupIdOutOfBounds.
    /// Context: any thread; tick function: allowed; does not wait for a
    /// running pass (takes no lock).
    uint32_t (*RemoveGroup)(STickHandler* handle, uint32_t groupId) = nullptr;
    /// Enables group 0 or 1. Success, GroupIdOutOfBounds.
    /// Context: any thread; tick function: allowed; does not wait for a
    /// running pass (takes no lock).
    uint32_t (*EnableTickGroup)(uint32_t groupId) = nullptr;
    /// Disables group 0 or 1: its members are skipped. Success,
    /// GroupIdOutOfBounds.
    /// Context: any thread; tick function: allowed; does not wait for a
    /// running pass (takes no lock).
    uint32_t (*DisableTickGroup)(uint32_t groupId) = nullptr;
};
