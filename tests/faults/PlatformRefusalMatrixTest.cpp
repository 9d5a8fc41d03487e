// Every platform registration of both modules' start-up refused in turn, with
// error values and with values that only look like errors: what Initialize
// returns, the line it traces, the state it leaves, and that the next
// Initialize registers everything again.

#include <cstdio>
#include <string>
#include <vector>

#include "FaultFixture.h"
#include "InterfaceBroker.h"

namespace {

using fault_test::errorsAndWarnings;

enum class Module { Scheduler, Fast };
enum class Call { ModuleRegistration, CallbackRegistration, InterfaceRegistration };

struct Refusal {
    Module module;
    Call call;
    uint32_t value;
};

/// The platform refuses when the value, read as a signed number, is 32768 or
/// more; a value with the top bit set is negative and counts as success.
bool isRefusal(uint32_t value) { return static_cast<int32_t>(value) >= 32768; }

std::string hex8(uint32_t value) {
    char text[11];
    std::snprintf(text, sizeof(text), "0x%08x", value);
    return text;
}

uint32_t moduleId(Module module) { return module == Module::Scheduler ? 22000u : 22001u; }

const char* interfaceName(Module module) {
    return module == Module::Scheduler ? "ITickScheduler" : "ITickSchedulerFast";
}

const char* initializeName(Module module) {
    return module == Module::Scheduler ? "CTickScheduler_Initialize" : "CTickSchedulerFast_Initialize";
}

uint32_t initialize(Module module) {
    const ETickPriority priority = TICK_PRIORITY_NORMAL;
    return module == Module::Scheduler ? CTickScheduler_Initialize(&priority) : CTickSchedulerFast_Initialize();
}

bool isInitialized(Module module) {
    return module == Module::Scheduler ? tickScheduler.initialized.load() == 1
                                       : tickSchedulerFastModule.initialized == 1;
}

void script(Call call, uint32_t value) {
    switch (call) {
        case Call::ModuleRegistration:
            platform_double::scriptRegisterModuleResult(value);
            break;
        case Call::CallbackRegistration:
            platform_double::scriptRegisterCallbackResult(value);
            break;
        case Call::InterfaceRegistration:
            platform_double::scriptRegisterInterfaceResult(value);
            break;
    }
}

uint32_t expectedFailure(Call call) {
    switch (call) {
        case Call::ModuleRegistration:
            return TickResult::ModuleRegistrationFailed;
        case Call::CallbackRegistration:
            return TickResult::CallbackRegistrationFailed;
        case Call::InterfaceRegistration:
            break;
    }
    return TickResult::Failure;
}

std::string expectedLine(Module module, Call call, uint32_t value) {
    const std::string prefix = std::string("1:") + initializeName(module) + ":";
    if (module == Module::Scheduler) {
        switch (call) {
            case Call::ModuleRegistration:
                return prefix + "Failed to register module with ModuleManager";
            case Call::CallbackRegistration:
                return prefix + "Failed to register module callback with error " + hex8(value);
            case Call::InterfaceRegistration:
                return prefix + "Failed to register ITickScheduler with error " + hex8(value);
        }
    }
    switch (call) {
        case Call::ModuleRegistration:
            return prefix + "Failed to register module with ModuleManager. Error = " + hex8(value);
        case Call::CallbackRegistration:
            return prefix + "Failed to register module callback. Error = " + hex8(value);
        case Call::InterfaceRegistration:
            break;
    }
    return prefix + "Failed to register ITickScheduler. Error = " + hex8(value);
}

size_t interfaceRegistrationCalls() {
    size_t count = 0;
    for (const auto& call : platform_double::brokerCalls()) {
        count += call.registration ? 1 : 0;
    }
    return count;
}

class PlatformRefusalMatrix : public fault_test::FaultTest, public ::testing::WithParamInterface<Refusal> {};

TEST_P(PlatformRefusalMatrix, InitializeReportsTracesAndRecovers) {
    const Refusal refusal = GetParam();
    const Module module = refusal.module;
    const ETickPriority priorityBefore = tickScheduler.tickPriority;
    script(refusal.call, refusal.value);

    const uint32_t result = initialize(module);

    if (!isRefusal(refusal.value)) {
        // Success with a remark, or a negative value: the module is up.
        EXPECT_EQ(result, TickResult::Success);
        EXPECT_TRUE(errorsAndWarnings().empty());
        EXPECT_TRUE(isInitialized(module));
        EXPECT_EQ(platform_double::activatePhase(moduleId(module), 13), TickResult::Success);
        return;
    }

    EXPECT_EQ(result, expectedFailure(refusal.call));
    EXPECT_EQ(errorsAndWarnings(), std::vector<std::string>{expectedLine(module, refusal.call, refusal.value)});
    EXPECT_FALSE(isInitialized(module));
    if (module == Module::Scheduler) {
        EXPECT_EQ(tickScheduler.tickPriority, priorityBefore) << "the priority is stored only on success";
    }
    // What the platform accepted before the refusal stays registered.
    const size_t reached = static_cast<size_t>(refusal.call) + 1;
    EXPECT_EQ(platform_double::moduleRegistrations().size(), 1u);
    EXPECT_EQ(platform_double::callbackRegistrations().size(), reached >= 2 ? 1u : 0u);
    EXPECT_EQ(interfaceRegistrationCalls(), reached >= 3 ? 1u : 0u);
    EXPECT_EQ(InterfaceBroker::getInstance()->getInterface(interfaceName(module)), nullptr);
    if (reached >= 2) {
        // The phase callback is in place but finds the module uninitialised.
        EXPECT_EQ(platform_double::activatePhase(moduleId(module), 13), TickResult::ModuleNotInitialized);
    }

    // The next Initialize starts again with the module registration.
    script(refusal.call, 0);
    platform_double::clearTraces();
    EXPECT_EQ(initialize(module), TickResult::Success);
    EXPECT_TRUE(errorsAndWarnings().empty());
    EXPECT_TRUE(isInitialized(module));
    EXPECT_EQ(platform_double::moduleRegistrations().size(), 2u);
    EXPECT_EQ(platform_double::callbackRegistrations().size(), reached >= 2 ? 2u : 1u);
    EXPECT_EQ(interfaceRegistrationCalls(), reached >= 3 ? 2u : 1u);
    EXPECT_NE(InterfaceBroker::getInstance()->getInterface(interfaceName(module)), nullptr);
    EXPECT_EQ(platform_double::activatePhase(moduleId(module), 13), TickResult::Success);
    if (module == Module::Scheduler) {
        EXPECT_EQ(tickScheduler.tickPriority, TICK_PRIORITY_NORMAL);
    }
}

std::vector<Refusal> everyRefusal() {
    // Errors: the smallest, typical ones, the largest positive. Successes:
    // remarks below 32768 and values with the top bit set.
    const uint32_t values[] = {32768u, 32773u, 32778u, 0x7FFFFFFFu, 1u, 4097u, 32767u, 0x80000000u, 0xFFFFFFFFu};
    std::vector<Refusal> all;
    for (Module module : {Module::Scheduler, Module::Fast}) {
        for (Call call : {Call::ModuleRegistration, Call::CallbackRegistration, Call::InterfaceRegistration}) {
            for (uint32_t value : values) {
                all.push_back(Refusal{module, call, value});
            }
        }
    }
    return all;
}

std::string caseName(const ::testing::TestParamInfo<Refusal>& info) {
    static const char* const modules[] = {"Scheduler", "Fast"};
    static const char* const calls[] = {"Module", "Callback", "Interface"};
    char value[16];
    std::snprintf(value, sizeof(value), "%08x", info.param.value);
    return std::string(modules[static_cast<int>(info.param.module)]) + calls[static_cast<int>(info.param.call)] +
           "Returns" + value;
}

INSTANTIATE_TEST_SUITE_P(EveryRegistration, PlatformRefusalMatrix, ::testing::ValuesIn(everyRefusal()), caseName);

}  // namespace
