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
/// Results: 0 success; 32770 null argument; 32778 mutex failure; 32780 the
/// handler could not be removed from the list; 32782 group id above 1.
class ZYN_TS_EXPORT ITickSchedulerFast : public virtual IInterface {
public:
    /// Every slot null; CTickSchedulerFast_Initialize fills them.
    ITickSchedulerFast();
    ~ITickSchedulerFast() override;

    /// Creates an enabled handler at the tail of the list; `*outHandle`
    /// receives it. 0; 32770; 32778.
    uint32_t (*RegisterTickHandler)(STickHandler** outHandle, const ITickReceiver* receiver,
                                    const char* name) = nullptr;
    /// Removes and frees `*handle` under the mutex, then clears it. 0; 32770; 32778; 32780.
    uint32_t (*UnregisterTickHandler)(STickHandler** handle) = nullptr;
    /// The same without locking, for use from inside a tick function only. 0; 32770; 32780.
    uint32_t (*UnregisterTickHandlerFromOnTick)(STickHandler** handle) = nullptr;
    /// Sets `enabled` to 1 (no lock). 0; 32770.
    uint32_t (*EnableTickHandler)(STickHandler* handle) = nullptr;
    /// Sets `enabled` to 0 (no lock). 0; 32770.
    uint32_t (*DisableTickHandler)(STickHandler* handle) = nullptr;
    /// Adds the handler to group 0 or 1. 0; 32770; 32782.
    uint32_t (*AddGroup)(STickHandler* handle, uint32_t groupId) = nullptr;
    /// Removes the handler from group 0 or 1. 0; 32770; 32782.
    uint32_t (*RemoveGroup)(STickHandler* handle, uint32_t groupId) = nullptr;
    /// Enables group 0 or 1. 0; 32782.
    uint32_t (*EnableTickGroup)(uint32_t groupId) = nullptr;
    /// Disables group 0 or 1: its members are skipped. 0; 32782.
    uint32_t (*DisableTickGroup)(uint32_t groupId) = nullptr;
};
