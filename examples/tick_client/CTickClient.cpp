// The example client module of the 6 ms tick scheduler; see CTickClient.h.

#include "CTickClient.h"

#include <atomic>
#include <cstdint>

#include "CTickScheduler.h"
#include "ClientModule.h"
#include "ITickScheduler.h"

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

// Registration appends; a new priority moves the handler in front of the
// first one with a higher value.
uint32_t registerHandlers(ITickScheduler& scheduler) {
    return ClientModule_RunUntilError({
        [&] {
            return scheduler.RegisterTickHandler(&clientState.slowHandle, &slowReceiver, SlowInterval,
                                                 "TickClientSlow");
        },
        [&] { return scheduler.RegisterTickHandler(&clientState.fastHandle, &fastReceiver, 1, "TickClientFast"); },
        [&] { return scheduler.SetTickPriority(clientState.fastHandle, FastPriority); },
        [&] { return scheduler.SetTickPriority(clientState.slowHandle, SlowPriority); },
        [&] { return scheduler.AddGroup(clientState.slowHandle, ChannelGroup); },
    });
}

uint32_t startUp() { return ClientModule_StartUp(clientState.scheduler, "ITickScheduler", &registerHandlers); }

// The scheduler's own shut-down empties its handler list without freeing the
// records, so this module must see phase 16 first (see CTickClient.h).
uint32_t shutDown() {
    return ClientModule_ShutDown(clientState.scheduler, &clientState.fastHandle, &clientState.slowHandle);
}

// The module manager keeps the record's address: static storage.
SClientModule clientModule{
    CTickClient_ModuleId, "CTickClient", "CTickClient_OnPhaseActivation", &startUp, &shutDown, {}};

}  // namespace

extern "C" uint32_t CTickClient_Initialize(void) { return ClientModule_Register(clientModule); }

extern "C" STickClientCounts CTickClient_ReadCounts(void) {
    const std::unique_lock<std::mutex> tickLock = CTickScheduler_WaitForTickAndLock();
    return STickClientCounts{clientState.fastCalls.load(std::memory_order_relaxed),
                             clientState.slowCalls.load(std::memory_order_relaxed),
                             clientState.dispatchOrderKept.load(std::memory_order_relaxed)};
}

extern "C" uint32_t CTickClient_SetChannelEnabled(bool enabled) {
    return ClientModule_SetGroupEnabled(clientState.scheduler, ChannelGroup, enabled);
}

extern "C" bool CTickClient_HandlersRegistered(void) {
    return clientState.fastHandle != nullptr && clientState.slowHandle != nullptr;
}
