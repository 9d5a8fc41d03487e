// The example client module of the 6 ms tick scheduler; see CTickClient.h.

#include "CTickClient.h"

#include <atomic>
#include <cstdint>

#include "CModuleManager.h"
#include "CTickScheduler.h"
#include "ITickScheduler.h"
#include "InterfaceBroker.h"
#include "TickResultCodes.h"

namespace {

constexpr uint32_t SlowInterval = 5;
constexpr int32_t FastPriority = 2;
constexpr int32_t SlowPriority = 8;
constexpr uint32_t ChannelGroup = 0;

// Everything the tick thread and the client's own threads share.
struct ClientState {
    ITickScheduler* scheduler = nullptr;
    STickHandler* fastHandle = nullptr;
    STickHandler* slowHandle = nullptr;
    std::atomic<uint32_t> fastCalls{0};
    std::atomic<uint32_t> slowCalls{0};
    std::atomic<bool> dispatchOrderKept{true};
};

ClientState clientState;

// The records the module manager keeps the addresses of: static storage.
SPhaseCallbackContext phaseCallbackContext;
const uint32_t subscribedPhases[] = {12, 16};

void onFastTick(void* context) {
    static_cast<ClientState*>(context)->fastCalls.fetch_add(1, std::memory_order_relaxed);
}

// The slow handler is due on passes 0, 5, 10, ... of the scheduler. The fast
// handler runs on every pass and, by its priority, before this one, so here
// it has always been called 1, 6, 11, ... times.
void onSlowTick(void* context) {
    ClientState* state = static_cast<ClientState*>(context);
    if (state->fastCalls.load(std::memory_order_relaxed) % SlowInterval != 1) {
        state->dispatchOrderKept.store(false, std::memory_order_relaxed);
    }
    state->slowCalls.fetch_add(1, std::memory_order_relaxed);
}

// The scheduler copies the receivers into its handler records.
const ITickReceiver fastReceiver{&clientState, &onFastTick};
const ITickReceiver slowReceiver{&clientState, &onSlowTick};

uint32_t registerHandlers(ITickScheduler& scheduler) {
    uint32_t result =
        scheduler.RegisterTickHandler(&clientState.slowHandle, &slowReceiver, SlowInterval, "TickClientSlow");
    if (TickResult::isError(result)) {
        return result;
    }
    result = scheduler.RegisterTickHandler(&clientState.fastHandle, &fastReceiver, 1, "TickClientFast");
    if (TickResult::isError(result)) {
        return result;
    }
    // Registration appends; a new priority moves the handler in front of the
    // first one with a higher value.
    result = scheduler.SetTickPriority(clientState.fastHandle, FastPriority);
    if (TickResult::isError(result)) {
        return result;
    }
    result = scheduler.SetTickPriority(clientState.slowHandle, SlowPriority);
    if (TickResult::isError(result)) {
        return result;
    }
    return scheduler.AddGroup(clientState.slowHandle, ChannelGroup);
}

uint32_t startUp() {
    // The broker hands out the IInterface part; ITickScheduler derives from
    // it virtually, so only dynamic_cast finds the whole object.
    IInterface* found = InterfaceBroker::getInstance()->getInterface("ITickScheduler");
    ITickScheduler* scheduler = dynamic_cast<ITickScheduler*>(found);
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
    // Unregistering frees the records and clears the handles.
    uint32_t result = clientState.scheduler->UnregisterTickHandler(&clientState.fastHandle);
    const uint32_t slowResult = clientState.scheduler->UnregisterTickHandler(&clientState.slowHandle);
    if (!TickResult::isError(result)) {
        result = slowResult;
    }
    clientState.scheduler = nullptr;
    return result;
}

uint32_t CTickClient_OnPhaseActivation(void* /*context*/, uint32_t phase) {
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

extern "C" uint32_t CTickClient_Initialize(void) {
    if (TickResult::isPlatformFailure(CModuleManager_RegisterModule(CTickClient_ModuleId, "CTickClient"))) {
        return TickResult::ModuleRegistrationFailed;
    }
    phaseCallbackContext.context = nullptr;
    phaseCallbackContext.callback = &CTickClient_OnPhaseActivation;
    // 100, 3 and 0 are the values every module of the platform passes.
    const uint32_t result = CModuleManager_RegisterCallback(CTickClient_ModuleId, "CTickClient_OnPhaseActivation", 100,
                                                            &phaseCallbackContext, 3, 0, subscribedPhases,
                                                            sizeof(subscribedPhases) / sizeof(subscribedPhases[0]));
    if (TickResult::isPlatformFailure(result)) {
        return TickResult::CallbackRegistrationFailed;
    }
    return TickResult::Success;
}

extern "C" STickClientCounts CTickClient_ReadCounts(void) {
    const std::unique_lock<std::mutex> tickLock = CTickScheduler_WaitForTickAndLock();
    return STickClientCounts{clientState.fastCalls.load(std::memory_order_relaxed),
                             clientState.slowCalls.load(std::memory_order_relaxed),
                             clientState.dispatchOrderKept.load(std::memory_order_relaxed)};
}

extern "C" uint32_t CTickClient_SetChannelEnabled(bool enabled) {
    if (clientState.scheduler == nullptr) {
        return TickResult::Failure;
    }
    return enabled ? clientState.scheduler->EnableTickGroup(ChannelGroup)
                   : clientState.scheduler->DisableTickGroup(ChannelGroup);
}

extern "C" bool CTickClient_HandlersRegistered(void) {
    return clientState.fastHandle != nullptr && clientState.slowHandle != nullptr;
}
