// ITickScheduler: the interface object of CTickScheduler in the interface
// broker, under the name "ITickScheduler".
//
// Clients call through the function-pointer members by position; the slot
// order is part of the binary contract and never changes. Each slot points to
// the CTickScheduler_* function of the same name (see CTickScheduler.h for
// results and locking).
#pragma once

#include <cstdint>

#include "InterfaceBroker.h"
#include "ITickReceiver.h"
#include "STickHandler.h"
#include "TickSchedulerExport.h"

class ZYN_TS_EXPORT ITickScheduler : public virtual IInterface {
public:
    ITickScheduler();
    virtual ~ITickScheduler();

    uint32_t (*RegisterTickHandler)(STickHandler** tickHandler, const ITickReceiver* pITickReceiver,
                                    uint32_t tickInterval, const char* pszName);
    uint32_t (*UnregisterTickHandler)(STickHandler** handle);
    uint32_t (*Freeze)(void);
    uint32_t (*Unfreeze)(void);
    uint32_t (*SetStartOffset)(STickHandler* handler, uint32_t offset);
    uint32_t (*SetTickPriority)(STickHandler* handler, int32_t priority);
    uint32_t (*EnableTickHandler)(STickHandler* handler);
    uint32_t (*DisableTickHandler)(STickHandler* handler);
    uint32_t (*AddGroup)(STickHandler* handler, uint32_t groupId);
    uint32_t (*RemoveGroup)(STickHandler* handler, uint32_t groupId);
    uint32_t (*EnableTickGroup)(uint32_t groupId);
    uint32_t (*DisableTickGroup)(uint32_t groupId);
};
