// What every client module of the tick schedulers does the same way, once for
// both example modules: register with the module manager, subscribe a phase
// callback to phases 12 and 16, and take the scheduler's interface object
// from the interface broker.
//
// Phase 12 (start-up): the module takes its scheduler's interface object and
// registers its handlers. Phase 16 (shut-down): it gives its handlers back.
#pragma once

#include <cstdint>
#include <functional>
#include <initializer_list>

#include "CModuleManager.h"
#include "InterfaceBroker.h"
#include "STickHandler.h"
#include "TickResultCodes.h"

/// A client module as the module manager sees it. Static storage: the module
/// manager keeps the address of `phaseCallbackContext`.
struct SClientModule {
    uint32_t moduleId;
    const char* moduleName;
    const char* callbackName;
    uint32_t (*startUp)();   ///< Phase 12.
    uint32_t (*shutDown)();  ///< Phase 16.
    SPhaseCallbackContext phaseCallbackContext;
};

/// Registers the module and its phase callback. No lock; call once, before
/// the phases. Results: TickResult::Success; ModuleRegistrationFailed,
/// CallbackRegistrationFailed when the module manager refuses.
uint32_t ClientModule_Register(SClientModule& module);

/// Runs the steps in order until one of them fails: the result of the last
/// step run. For registrations where each step needs the ones before it.
inline uint32_t ClientModule_RunUntilError(std::initializer_list<std::function<uint32_t()>> steps) {
    uint32_t result = TickResult::Success;
    for (const std::function<uint32_t()>& step : steps) {
        result = step();
        if (TickResult::isError(result)) {
            break;
        }
    }
    return result;
}

/// Phase 12 of a client of the scheduler that the broker publishes under
/// `name`: finds its interface object, keeps it in `scheduler` and registers
/// the client's handlers with `registerHandlers`. TickResult::Failure when
/// the broker has no such object. The broker hands out the IInterface part;
/// the scheduler interfaces derive from it virtually, so only dynamic_cast
/// finds the whole object.
template <class SchedulerInterface>
uint32_t ClientModule_StartUp(SchedulerInterface*& scheduler, const char* name,
                              uint32_t (*registerHandlers)(SchedulerInterface&)) {
    scheduler = dynamic_cast<SchedulerInterface*>(InterfaceBroker::getInstance()->getInterface(name));
    if (scheduler == nullptr) {
        return TickResult::Failure;
    }
    return registerHandlers(*scheduler);
}

/// `operation` on the scheduler that phase 12 found; TickResult::Failure
/// before phase 12 found one and after phase 16.
template <class SchedulerInterface, class Operation>
uint32_t ClientModule_WithScheduler(SchedulerInterface* scheduler, Operation operation) {
    if (scheduler == nullptr) {
        return TickResult::Failure;
    }
    return operation(*scheduler);
}

/// Enables or disables tick group `group` of the scheduler that phase 12
/// found; TickResult::Failure without one.
template <class SchedulerInterface>
uint32_t ClientModule_SetGroupEnabled(SchedulerInterface* scheduler, uint32_t group, bool enabled) {
    return ClientModule_WithScheduler(scheduler, [group, enabled](SchedulerInterface& found) {
        return enabled ? found.EnableTickGroup(group) : found.DisableTickGroup(group);
    });
}

/// Phase 16: unregisters the handlers in the order given, each one even when
/// an earlier one fails (unregistering frees the record and clears the
/// handle), and forgets the scheduler. The first error, else the last result;
/// TickResult::Success when phase 12 found no scheduler.
template <class SchedulerInterface, class... Handles>
uint32_t ClientModule_ShutDown(SchedulerInterface*& scheduler, Handles... handles) {
    if (scheduler == nullptr) {
        return TickResult::Success;
    }
    uint32_t combined = TickResult::Success;
    for (STickHandler** handle : {handles...}) {
        const uint32_t result = scheduler->UnregisterTickHandler(handle);
        if (!TickResult::isError(combined)) {
            combined = result;
        }
    }
    scheduler = nullptr;
    return combined;
}
