// tick_client: runs the example module CTickClient with the 6 ms tick
// scheduler on the reference platform, as the platform's loading process
// would, and checks that the module's handlers really got their ticks.
//
// Exit status 0 when every check holds, 1 otherwise.

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <thread>

#include "CTickClient.h"
#include "ExampleChecks.h"
#include "InterfaceBroker.h"
#include "PlatformHost/ModuleManagerHost.h"
#include "TickScheduler.h"

namespace {

using example_checks::allPhasesSucceeded;
using example_checks::check;

using Clock = std::chrono::steady_clock;

// Generous: ticks come every 6 ms, but a loaded machine may skip some.
constexpr std::chrono::seconds TickWaitLimit{10};
constexpr uint32_t TicksPerStep = 20;

// Waits until the fast handler has run `target` times; the last snapshot.
STickClientCounts waitForFastCalls(uint32_t target) {
    const Clock::time_point deadline = Clock::now() + TickWaitLimit;
    STickClientCounts counts = CTickClient_ReadCounts();
    while (counts.fastCalls < target && Clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        counts = CTickClient_ReadCounts();
    }
    return counts;
}

uint32_t ceilDiv(uint32_t value, uint32_t divisor) { return (value + divisor - 1) / divisor; }

void checkTicking(Clock::time_point startedBefore) {
    const STickClientCounts counts = waitForFastCalls(TicksPerStep);
    const auto elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - startedBefore);
    std::printf("after %lld ms: TickClientFast called %u times, TickClientSlow %u times\n",
                static_cast<long long>(elapsed.count()), static_cast<unsigned>(counts.fastCalls),
                static_cast<unsigned>(counts.slowCalls));
    check(counts.fastCalls >= TicksPerStep, "the fast handler gets ticks");
    // The oscillator never delivers faster than its grid, whatever the load.
    check(counts.fastCalls <= static_cast<uint32_t>(elapsed.count() / 6) + 1, "ticks come no faster than every 6 ms");
    // Both handlers were registered before the first tick: the slow one ran
    // on every 5th pass, starting with the first.
    check(counts.slowCalls == ceilDiv(counts.fastCalls, 5), "the slow handler runs on every 5th tick");
    check(counts.dispatchOrderKept, "on a shared tick the priority-2 handler runs before the priority-8 one");
}

void checkChannelSwitching() {
    check(CTickClient_SetChannelEnabled(false) == TickResult::Success, "tick group 0 disabled");
    const STickClientCounts disabled = CTickClient_ReadCounts();
    const STickClientCounts whileDisabled = waitForFastCalls(disabled.fastCalls + TicksPerStep);
    std::printf("group 0 disabled: %u more fast ticks, slow handler %u -> %u\n",
                static_cast<unsigned>(whileDisabled.fastCalls - disabled.fastCalls),
                static_cast<unsigned>(disabled.slowCalls), static_cast<unsigned>(whileDisabled.slowCalls));
    check(whileDisabled.fastCalls >= disabled.fastCalls + TicksPerStep, "the handler outside the group keeps ticking");
    check(whileDisabled.slowCalls == disabled.slowCalls, "the group member is not called while its group is disabled");

    check(CTickClient_SetChannelEnabled(true) == TickResult::Success, "tick group 0 enabled again");
    const STickClientCounts reenabled = CTickClient_ReadCounts();
    const STickClientCounts enabled = waitForFastCalls(reenabled.fastCalls + TicksPerStep);
    std::printf("group 0 enabled: slow handler %u -> %u\n", static_cast<unsigned>(reenabled.slowCalls),
                static_cast<unsigned>(enabled.slowCalls));
    // Any 20 consecutive passes hold exactly 4 of the slow handler's ticks.
    check(enabled.slowCalls >= reenabled.slowCalls + TicksPerStep / 5, "the group member is called again once enabled");
    check(enabled.dispatchOrderKept, "the slow handler still runs on its own ticks only");
}

}  // namespace

int main() {
    // The client first: at phase 16 it unregisters its handlers before the
    // scheduler shuts down (callbacks run in registration order).
    check(CTickClient_Initialize() == TickResult::Success, "CTickClient registered with the module manager");
    const ETickPriority oscillatorPriority = TICK_PRIORITY_NORMAL;
    check(CTickScheduler_Initialize(&oscillatorPriority) == TickResult::Success, "CTickScheduler initialised");

    const Clock::time_point startedBefore = Clock::now();
    check(allPhasesSucceeded(platform_host::runStartup()), "start-up phases 11 to 15 succeed");
    check(CTickClient_HandlersRegistered(), "the client registered its handlers at phase 12");

    checkTicking(startedBefore);
    checkChannelSwitching();

    check(allPhasesSucceeded(platform_host::runShutdown()), "shut-down phase 16 succeeds");
    check(!CTickClient_HandlersRegistered(), "the client unregistered its handlers at phase 16");
    check(InterfaceBroker::getInstance()->getInterface("ITickScheduler") == nullptr,
          "\"ITickScheduler\" is withdrawn from the broker");

    return example_checks::verdict("tick_client");
}
