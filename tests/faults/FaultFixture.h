// The fixture of every fault-injection test: both modules in their load
// state (uninitialised, no handlers, oscillators stopped, groups enabled, not
// frozen), a reset platform double, and no fault armed, before and after
// each test.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "BoundedWait.h"
#include "CTickScheduler.h"
#include "CTickSchedulerFast.h"
#include "CTickSchedulerFastModule.h"
#include "CTickSchedulerModule.h"
#include "MutexFaultInjection.h"
#include "PlatformDouble.h"
#include "SleepFaults.h"
#include "ThreadCreationFaults.h"
#include "TickModuleIdentity.h"
#include "TickResultCodes.h"

namespace fault_test {

/// Names a test whose parameter is an errno value after the value's symbol
/// ("EINVAL"), so that a failing case says which error it injected.
inline std::string errnoName(const ::testing::TestParamInfo<int>& info) {
    static const std::pair<int, const char*> kSymbols[] = {{EINVAL, "EINVAL"}, {EFAULT, "EFAULT"}, {ENOTSUP, "ENOTSUP"},
                                                           {EPERM, "EPERM"},   {EAGAIN, "EAGAIN"}, {ENOMEM, "ENOMEM"}};
    for (const auto& [value, symbol] : kSymbols) {
        if (value == info.param) {
            return symbol;
        }
    }
    return "errno" + std::to_string(info.param);
}

inline void disarmEveryFault() {
    mutex_faults::disarm();
    thread_faults::allowThreadCreation();
    sleep_faults::disarm();
    sleep_faults::clearLog();
}

inline void resetScheduler() {
    std::vector<STickHandler*> left = tickScheduler.tickHandlers;
    for (STickHandler* handler : left) {
        CTickScheduler_UnregisterTickHandler(&handler);
    }
    CTickScheduler_Uninitialize();
    CTickScheduler_EnableTickGroup(0);
    CTickScheduler_EnableTickGroup(1);
    CTickScheduler_Unfreeze();
}

inline void resetFast() {
    CTickSchedulerFast& module = tickSchedulerFastModule;
    module.tickOscillator.stop();
    for (void* element : platform_double::listElements(&module.handlerList)) {
        STickHandler* handler = static_cast<STickHandler*>(element);
        CTickSchedulerFast_UnregisterTickHandler(&handler);
    }
    CTickSchedulerFast_Uninitialize();
    CTickSchedulerFast_EnableTickGroup(0);
    CTickSchedulerFast_EnableTickGroup(1);
}

class FaultTest : public ::testing::Test {
protected:
    void SetUp() override { resetEverything(); }
    void TearDown() override { resetEverything(); }

    static void resetEverything() {
        disarmEveryFault();
        platform_double::reset();
        resetScheduler();
        resetFast();
        platform_double::reset();
    }
};

/// A tick function that counts its calls.
struct CountingClient {
    std::atomic<int> calls{0};
    STickHandler* handle = nullptr;
    ITickReceiver receiver() { return ITickReceiver{this, &CountingClient::onTick}; }
    static void onTick(void* context) { static_cast<CountingClient*>(context)->calls.fetch_add(1); }

    /// Registers with CTickScheduler under `name`, keeping the handle.
    uint32_t registerWithScheduler(uint32_t interval, const char* name) {
        const ITickReceiver tickReceiver = receiver();
        return CTickScheduler_RegisterTickHandler(&handle, &tickReceiver, interval, name);
    }
};

/// Initialises CTickScheduler at the lowest priority and runs its configure
/// phase: the oscillator is ready, and the start phase would start it.
inline void initializeAndConfigureScheduler() {
    const ETickPriority priority = TICK_PRIORITY_LOWEST;
    ASSERT_EQ(CTickScheduler_Initialize(&priority), TickResult::Success);
    ASSERT_EQ(CTickScheduler_OnPhaseActivation(nullptr, TickModule::Phase::Configure), TickResult::Success);
}

using test_support::eventually;

/// The messages (not entry records) at levels 1 and 2, as "level:function:text".
inline std::vector<std::string> errorsAndWarnings() {
    std::vector<std::string> lines;
    for (const auto& record : platform_double::traces()) {
        if (!record.entry && record.level <= 2) {
            lines.push_back(std::to_string(record.level) + ":" + record.function + ":" + record.text);
        }
    }
    return lines;
}

}  // namespace fault_test
