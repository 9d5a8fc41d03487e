// A fixture for tests that use both schedulers at once: each module starts
// from its load state against a reset platform double, initialised, with its
// statistics off and cleared, and is put back afterwards.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <string>
#include <thread>

#include "BoundedWait.h"
#include "CTickScheduler.h"
#include "CTickSchedulerFast.h"
#include "FastSchedulerFixture.h"
#include "ModuleState.h"
#include "PlatformDouble.h"
#include "StatisticsLoadState.h"
#include "TickResultCodes.h"
#include "TickStatistics.h"

namespace statistics_test {

class BothSchedulersTest : public ::testing::Test {
protected:
    void SetUp() override {
        scheduler_test::resetModuleToLoadState();
        platform_double::reset();
        fast_test::freeAllHandlers();
        CTickSchedulerFast_Uninitialize();
        fast_test::resetOscillator();
        resetStatisticsToLoadState(fastDispatchStatistics, zyn_support::kNanosecondsPerMillisecond, fastHandlerSlots);
        const ETickPriority priority = TICK_PRIORITY_NORMAL;
        ASSERT_EQ(CTickScheduler_Initialize(&priority), TickResult::Success);
        ASSERT_EQ(CTickSchedulerFast_Initialize(), TickResult::Success);
        platform_double::reset();
    }

    void TearDown() override {
        (void)CTickScheduler_DisableStatistics();
        (void)CTickSchedulerFast_DisableStatistics();
        fast_test::freeAllHandlers();
        CTickSchedulerFast_Uninitialize();
        fast_test::resetOscillator();
        scheduler_test::resetModuleToLoadState();
        platform_double::reset();
    }
};

/// A tick function that runs `action` on every call.
struct ActionHandler {
    explicit ActionHandler(std::function<void()> onEveryCall) : action(std::move(onEveryCall)) {}

    ITickReceiver receiver() { return ITickReceiver{this, &ActionHandler::onTick}; }

    static void onTick(void* context) {
        auto* self = static_cast<ActionHandler*>(context);
        self->calls.fetch_add(1);
        self->action();
    }

    std::function<void()> action;
    std::atomic<int> calls{0};
    STickHandler* handle = nullptr;
};

inline uint32_t registerWithScheduler(ActionHandler& handler, const char* name) {
    const ITickReceiver receiver = handler.receiver();
    return CTickScheduler_RegisterTickHandler(&handler.handle, &receiver, 1, name);
}

inline uint32_t registerWithFastScheduler(ActionHandler& handler, const char* name) {
    const ITickReceiver receiver = handler.receiver();
    return CTickSchedulerFast_RegisterTickHandler(&handler.handle, &receiver, name);
}

/// Runs `passes` ticks of one scheduler on a thread of its own, as its
/// oscillator would, and joins it; a pass that never returns ends the test
/// program as STUCK within seconds.
inline void runPassesOnOwnThread(void (*onTick)(void*), int passes, const std::string& what) {
    std::atomic<int> done{0};
    std::thread ticker([&] {
        for (int i = 0; i < passes; ++i) {
            onTick(nullptr);
            done.fetch_add(1);
        }
    });
    test_support::joinWhenFinished(
        ticker, [&] { return done.load() == passes; }, what);
}

}  // namespace statistics_test
