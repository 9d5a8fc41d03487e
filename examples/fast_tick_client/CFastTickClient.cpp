// The example client module of the 1 ms fast tick scheduler; see
// CFastTickClient.h.

#include "CFastTickClient.h"

#include <atomic>
#include <cstdint>

#include "ClientModule.h"
#include "ITickSchedulerFast.h"

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

// Fast handlers run with the fast scheduler's mutex held, every millisecond:
// they must be short and must not register or unregister through the
// locking operations.
void onTickA(void* context) { static_cast<ClientState*>(context)->callsOfA.fetch_add(1, std::memory_order_relaxed); }

void onTickB(void* context) { static_cast<ClientState*>(context)->callsOfB.fetch_add(1, std::memory_order_relaxed); }

const ITickReceiver receiverA{&clientState, &onTickA};
const ITickReceiver receiverB{&clientState, &onTickB};

uint32_t registerHandlers(ITickSchedulerFast& scheduler) {
    return ClientModule_RunUntilError({
        [&] { return scheduler.RegisterTickHandler(&clientState.handlerA, &receiverA, "FastClientA"); },
        [&] { return scheduler.RegisterTickHandler(&clientState.handlerB, &receiverB, "FastClientB"); },
        [&] { return scheduler.AddGroup(clientState.handlerB, ChannelGroup); },
    });
}

uint32_t startUp() { return ClientModule_StartUp(clientState.scheduler, "ITickSchedulerFast", &registerHandlers); }

// The fast scheduler keeps its handler list through its own shut-down, so
// unregistering works whether it saw phase 16 before this module or not.
uint32_t shutDown() {
    return ClientModule_ShutDown(clientState.scheduler, &clientState.handlerA, &clientState.handlerB);
}

// The module manager keeps the record's address: static storage.
SClientModule clientModule{
    CFastTickClient_ModuleId, "CFastTickClient", "CFastTickClient_OnPhaseActivation", &startUp, &shutDown, {}};

}  // namespace

extern "C" uint32_t CFastTickClient_Initialize(void) { return ClientModule_Register(clientModule); }

extern "C" const STickHandler* CFastTickClient_HandlerA(void) { return clientState.handlerA; }

extern "C" const STickHandler* CFastTickClient_HandlerB(void) { return clientState.handlerB; }

extern "C" uint32_t CFastTickClient_CallsOfA(void) { return clientState.callsOfA.load(std::memory_order_relaxed); }

extern "C" uint32_t CFastTickClient_CallsOfB(void) { return clientState.callsOfB.load(std::memory_order_relaxed); }

extern "C" uint32_t CFastTickClient_SetHandlerAEnabled(bool enabled) {
    return ClientModule_WithScheduler(clientState.scheduler, [enabled](ITickSchedulerFast& scheduler) {
        return enabled ? scheduler.EnableTickHandler(clientState.handlerA)
                       : scheduler.DisableTickHandler(clientState.handlerA);
    });
}

extern "C" uint32_t CFastTickClient_SetChannelEnabled(bool enabled) {
    return ClientModule_SetGroupEnabled(clientState.scheduler, ChannelGroup, enabled);
}

extern "C" uint32_t CFastTickClient_AddHandlerBToGroup2(void) {
    return ClientModule_WithScheduler(clientState.scheduler, [](ITickSchedulerFast& scheduler) {
        return scheduler.AddGroup(clientState.handlerB, 2);
    });
}
