// fast_tick_client: runs the example module CFastTickClient with the 1 ms
// fast tick scheduler on the reference platform, as the platform's loading
// process would, and checks what the module can rely on.
//
// The fast scheduler configures its 1 ms oscillator at phase 11 and never
// starts it itself; the reference platform does not start it either. So this
// example shows registration, enabling and disabling, and groups through
// "ITickSchedulerFast", and that no handler is called while nothing drives
// the oscillator. Exit status 0 when every check holds, 1 otherwise.

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <thread>

#include "CFastTickClient.h"
#include "ExampleChecks.h"
#include "InterfaceBroker.h"
#include "PlatformHost/ModuleManagerHost.h"
#include "TickScheduler.h"

namespace {

using example_checks::allPhasesSucceeded;
using example_checks::check;

constexpr uint32_t GroupBit1 = 1u << 1;

void checkRegistration(const STickHandler* a, const STickHandler* b) {
    check(std::strcmp(a->name, "FastClientA") == 0 && std::strcmp(b->name, "FastClientB") == 0,
          "the records carry the handlers' names");
    check(a->enabled.load() == 1 && b->enabled.load() == 1, "new handlers are enabled");
    check(a->groupMask.load() == 0 && b->groupMask.load() == GroupBit1, "FastClientB alone is in tick group 1");
}

void checkSwitching(const STickHandler* a, const STickHandler* b) {
    check(CFastTickClient_SetHandlerAEnabled(false) == TickResult::Success && a->enabled.load() == 0,
          "FastClientA disabled");
    check(CFastTickClient_SetHandlerAEnabled(true) == TickResult::Success && a->enabled.load() == 1,
          "FastClientA enabled again");
    check(CFastTickClient_SetChannelEnabled(false) == TickResult::Success, "tick group 1 disabled");
    check(CFastTickClient_SetChannelEnabled(true) == TickResult::Success, "tick group 1 enabled again");
    check(CFastTickClient_AddHandlerBToGroup2() == TickResult::GroupIdOutOfBounds && b->groupMask.load() == GroupBit1,
          "group 2 does not exist: refused with 32782, membership unchanged");
}

void checkNoTicksWithoutDriver() {
    // Fifty periods of the 1 ms oscillator.
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    const uint32_t callsOfA = CFastTickClient_CallsOfA();
    const uint32_t callsOfB = CFastTickClient_CallsOfB();
    std::printf("after 50 ms: FastClientA called %u times, FastClientB %u times\n", static_cast<unsigned>(callsOfA),
                static_cast<unsigned>(callsOfB));
    check(callsOfA == 0 && callsOfB == 0,
          "no handler is called: the fast oscillator is configured at phase 11 but nothing has started it");
}

}  // namespace

int main() {
    // The client first, so that it sees phase 16 first: the order does not
    // matter to the fast scheduler, which keeps its handler list through its
    // shut-down, but it is the safe habit with both schedulers.
    check(CFastTickClient_Initialize() == TickResult::Success, "CFastTickClient registered with the module manager");
    check(CTickSchedulerFast_Initialize() == TickResult::Success, "CTickSchedulerFast initialised");

    check(allPhasesSucceeded(platform_host::runStartup()), "start-up phases 11 to 15 succeed");
    const STickHandler* a = CFastTickClient_HandlerA();
    const STickHandler* b = CFastTickClient_HandlerB();
    check(a != nullptr && b != nullptr, "the client registered its handlers at phase 12");
    if (a != nullptr && b != nullptr) {
        checkRegistration(a, b);
        checkSwitching(a, b);
    }
    checkNoTicksWithoutDriver();

    check(allPhasesSucceeded(platform_host::runShutdown()), "shut-down phase 16 succeeds");
    check(CFastTickClient_HandlerA() == nullptr && CFastTickClient_HandlerB() == nullptr,
          "the client unregistered its handlers at phase 16");
    check(InterfaceBroker::getInstance()->getInterface("ITickSchedulerFast") == nullptr,
          "\"ITickSchedulerFast\" is withdrawn from the broker");

    return example_checks::verdict("fast_tick_client");
}
