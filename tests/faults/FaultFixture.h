// The fixture of every fault-injection test: both modules in their load
// state (uninitialised, no handlers, oscillators stopped, groups enabled, not
// frozen), a reset platform double, and no fault armed, before and after
// each test.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "CTickScheduler.h"
#include "CTickSchedulerFast.h"
#include "CTickSchedulerFastModule.h"
#include "CTickSchedulerModule.h"
#include "MutexFaultInjection.h"
#include "PlatformDouble.h"
#include "SleepFaults.h"
#include "ThreadCreationFaults.h"
#include "TickResultCodes.h"

namespace fault_test {

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
    ITickReceiver receiver() { return ITickReceiver{this, &CountingClient::onTick}; }
    static void onTick(void* context) { static_cast<CountingClient*>(context)->calls.fetch_add(1); }
};

/// Waits until `condition` holds or `limit` has passed; true when it holds.
template <typename Condition>
bool eventually(Condition condition, std::chrono::milliseconds limit = std::chrono::seconds(5)) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

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
