/// @file
/// ITickScheduler: the interface object of CTickScheduler.
#pragma once

#include <cstdint>

#include "ITickReceiver.h"
#include "InterfaceBroker.h"
#include "STickHandler.h"
#include "TickSchedulerExport.h"

/// The interface object of CTickScheduler in the interface broker, under the
/// name "ITickScheduler".
///
/// Clients call through the function-pointer members by position; the slot
/// order is part of the binary contract and never changes. Each slot points to
/// the CTickScheduler_* function of the same name and shares its results and
/// context (see CTickScheduler.h). The broker hands out the IInterface part:
/// convert it with dynamic_cast, since IInterface is a virtual base.
class ZYN_TS_EXPORT ITickScheduler : public virtual IInterface {
public:
    /// Every slot null; CTickScheduler_Initialize fills them.
    /// Context: any thread; tick function: allowed; does not wait for a
    /// running pass.
    ITickScheduler();
    /// Releases nothing: the slots only point to the library's functions.
    /// Context: any thread; tick function: allowed; does not wait for a
    /// running pass.
    ~ITickScheduler() override;

    /// Slot 1: CTickScheduler_RegisterTickHandler().
    /// Context: as CTickScheduler_RegisterTickHandler().
    uint32_t (*RegisterTickHandler)(STickHandler** tickHandler, const ITickReceiver* pITickReceiver,
                                    uint32_t tickInterval, const char* pszName) = nullptr;
    /// Slot 2: CTickScheduler_UnregisterTickHandler().
    /// Context: as CTickScheduler_UnregisterTickHandler().
    uint32_t (*UnregisterTickHandler)(STickHandler** handle) = nullptr;
    /// Slot 3: CTickScheduler_Freeze().
    /// Context: as CTickScheduler_Freeze().
    uint32_t (*Freeze)() = nullptr;
    /// Slot 4: CTickScheduler_Unfreeze().
    /// Context: as CTickScheduler_Unfreeze().
    uint32_t (*Unfreeze)() = nullptr;
    /// Slot 5: CTickScheduler_SetStartOffset().
    /// Context: as CTickScheduler_SetStartOffset().
    uint32_t (*SetStartOffset)(STickHandler* handler, uint32_t offset) = nullptr;
    /// Slot 6: CTickScheduler_SetTickPriority().
    /// Context: as CTickScheduler_SetTickPriority().
    uint32_t (*SetTickPriority)(STickHandler* handler, int32_t priority) = nullptr;
    /// Slot 7: CTickScheduler_EnableTickHandler().
    /// Context: as CTickScheduler_EnableTickHandler().
    uint32_t (*EnableTickHandler)(STickHandler* handler) = nullptr;
    /// Slot 8: CTickScheduler_DisableTickHandler().
    /// Context: as CTickScheduler_DisableTickHandler().
    uint32_t (*DisableTickHandler)(STickHandler* handler) = nullptr;
    /// Slot 9: CTickScheduler_AddGroup().
    /// Context: as CTickScheduler_AddGroup().
    uint32_t (*AddGroup)(STickHandler* handler, uint32_t groupId) = nullptr;
    /// Slot 10: CTickScheduler_RemoveGroup().
    /// Context: as CTickScheduler_RemoveGroup().
    uint32_t (*RemoveGroup)(STickHandler* handler, uint32_t groupId) = nullptr;
    /// Slot 11: CTickScheduler_EnableTickGroup().
    /// Context: as CTickScheduler_EnableTickGroup().
    uint32_t (*EnableTickGroup)(uint32_t groupId) = nullptr;
    /// Slot 12: CTickScheduler_DisableTickGroup().
    /// Context: as CTickScheduler_DisableTickGroup().
    uint32_t (*DisableTickGroup)(uint32_t groupId) = nullptr;
};
