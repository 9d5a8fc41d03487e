// The example client module of the 1 ms fast tick scheduler; see
// CFastTickClient.h.

#include "CFastTickClient.h"

#include <atomic>
#include <cstdint>

#include "CModuleManager.h"
#include "ITickSchedulerFast.h"
#include "InterfaceBroker.h"
#include "TickResultCodes.h"

namespace {

constexpr uint32_t ChannelGroup = 1;

struct ClientState {
    ITickSchedulerFast* scheduler = nullptr;
    STickHandler* handlerA = nullptr;
    STickHandler* handlerB = nullptr;
    std::atomic<uint32_t> callsOfA{0};
    std::atomic<uint32_t> callsOfB{0};
};

ClientState clientState;

// The records the module manager keeps the addresses of: static storage.
SPhaseCallbackContext phaseCallbackContext;
const uint32_t subscribedPhases[] = {12, 16};

// Fast handlers run with the fast scheduler's mutex held, every millisecond:
// they must be short and must not register or unregister through the
// locking operations.
void onTickA(void* context) { static_cast<ClientState*>(context)->callsOfA.fetch_add(1, std::memory_order_relaxed); }

void onTickB(void* context) { static_cast<ClientState*>(context)->callsOfB.fetch_add(1, std::memory_order_relaxed); }

const ITickReceiver receiverA{&clientState, &onTickA};
const ITickReceiver receiverB{&clientState, &onTickB};

uint32_t registerHandlers(ITickSchedulerFast& scheduler) {
    uint32_t result = scheduler.RegisterTickHandler(&clientState.handlerA, &receiverA, "FastClientA");
    if (TickResult::isError(result)) {
        return result;
    }
    result = scheduler.RegisterTickHandler(&clientState.handlerB, &receiverB, "FastClientB");
    if (TickResult::isError(result)) {
        return result;
    }
    return scheduler.AddGroup(clientState.handlerB, ChannelGroup);
}

uint32_t startUp() {
    // The broker hands out the IInterface part; ITickSchedulerFast derives
    // from it virtually, so only dynamic_cast finds the whole object.
    IInterface* found = InterfaceBroker::getInstance()->getInterface("ITickSchedulerFast");
    ITickSchedulerFast* scheduler = dynamic_cast<ITickSchedulerFast*>(found);
    if (scheduler == nullptr) {
        return TickResult::Failure;
    }
    clientState.scheduler = scheduler;
    return registerHandlers(*scheduler);
}

uint32_t shutDown() {
    if (clientState.scheduler == nullptr) {
        return TickResult::Success;
    }
    // The fast scheduler keeps its handler list through its own shut-down, so
    // unregistering works whether it saw phase 16 before this module or not.
    uint32_t result = clientState.scheduler->UnregisterTickHandler(&clientState.handlerA);
    const uint32_t resultB = clientState.scheduler->UnregisterTickHandler(&clientState.handlerB);
    if (!TickResult::isError(result)) {
        result = resultB;
    }
    clientState.scheduler = nullptr;
    return result;
}

uint32_t CFastTickClient_OnPhaseActivation(void* /*context*/, uint32_t phase) {
    switch (phase) {
        case 12:
            return startUp();
        case 16:
            return shutDown();
        default:
            return TickResult::PhaseNotHandled;
    }
}

}  // namespace

extern "C" uint32_t CFastTickClient_Initialize(void) {
    if (TickResult::isPlatformFailure(CModuleManager_RegisterModule(CFastTickClient_ModuleId, "CFastTickClient"))) {
        return TickResult::ModuleRegistrationFailed;
    }
    phaseCallbackContext.context = nullptr;
    phaseCallbackContext.callback = &CFastTickClient_OnPhaseActivation;
    // 100, 3 and 0 are the values every module of the platform passes.
    const uint32_t result = CModuleManager_RegisterCallback(
        CFastTickClient_ModuleId, "CFastTickClient_OnPhaseActivation", 100, &phaseCallbackContext, 3, 0,
        subscribedPhases, sizeof(subscribedPhases) / sizeof(subscribedPhases[0]));
    if (TickResult::isPlatformFailure(result)) {
        return TickResult::CallbackRegistrationFailed;
    }
    return TickResult::Success;
}

extern "C" const STickHandler* CFastTickClient_HandlerA(void) { return clientState.handlerA; }

extern "C" const STickHandler* CFastTickClient_HandlerB(void) { return clientState.handlerB; }

extern "C" uint32_t CFastTickClient_CallsOfA(void) { return clientState.callsOfA.load(std::memory_order_relaxed); }

extern "C" uint32_t CFastTickClient_CallsOfB(void) { return clientState.callsOfB.load(std::memory_order_relaxed); }

extern "C" uint32_t CFastTickClient_SetHandlerAEnabled(bool enabled) {
    if (clientState.scheduler == nullptr) {
        return TickResult::Failure;
    }
    return enabled ? clientState.scheduler->EnableTickHandler(clientState.handlerA)
                   : clientState.scheduler->DisableTickHandler(clientState.handlerA);
}

extern "C" uint32_t CFastTickClient_SetChannelEnabled(bool enabled) {
    if (clientState.scheduler == nullptr) {
        return TickResult::Failure;
    }
    return enabled ? clientState.scheduler->EnableTickGroup(ChannelGroup)
                   : clientState.scheduler->DisableTickGroup(ChannelGroup);
}

extern "C" uint32_t CFastTickClient_AddHandlerBToGroup2(void) {
    if (clientState.scheduler == nullptr) {
        return TickResult::Failure;
    }
    return clientState.scheduler->AddGroup(clientState.handlerB, 2);
}
