// A fixture for tests that use both schedulers at once: each module starts
// from its load state against a reset platform double, initialised, with its
// statistics off and cleared, and is put back afterwards.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <ostream>
#include <string>
#include <thread>

#include "BoundedWait.h"
#include "CTickScheduler.h"
#include "CTickSchedulerFast.h"
#include "FastSchedulerFixture.h"
#include "ModuleState.h"
#include "PlatformDouble.h"
#include "SizedRecords.h"
#include "StatisticsLoadState.h"
#include "TickEventCapture.h"
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

/// The entry points of one scheduler that these tests call, so that a test
/// runs the same way on either.
struct SchedulerEntryPoints {
    const char* name;
    uint32_t (*registerHandler)(ActionHandler&, const char*);
    void (*onTick)(void*);
    void (*uninitialize)();
    uint32_t (*enableStatistics)(uint64_t);
    uint32_t (*disableStatistics)();
    uint32_t (*resetStatistics)();
    uint32_t (*getHandlerStatistics)(const STickHandler*, STickHandlerStatistics*);
    uint32_t (*getSchedulerStatistics)(STickSchedulerStatistics*);
    uint32_t (*startEventCapture)();
    uint32_t (*stopEventCapture)();
    uint32_t (*readEvents)(STickEvent*, uint32_t, uint32_t*, uint64_t*);
};

/// How a test parameterised by the scheduler names it.
inline void PrintTo(const SchedulerEntryPoints& scheduler, std::ostream* out) { *out << scheduler.name; }

inline const SchedulerEntryPoints kScheduler{"CTickScheduler",
                                             &registerWithScheduler,
                                             &CTickScheduler_OnTick,
                                             &CTickScheduler_Uninitialize,
                                             &CTickScheduler_EnableStatistics,
                                             &CTickScheduler_DisableStatistics,
                                             &CTickScheduler_ResetStatistics,
                                             &CTickScheduler_GetHandlerStatistics,
                                             &CTickScheduler_GetSchedulerStatistics,
                                             &CTickScheduler_StartEventCapture,
                                             &CTickScheduler_StopEventCapture,
                                             &CTickScheduler_ReadEvents};

inline const SchedulerEntryPoints kFast{"CTickSchedulerFast",
                                        &registerWithFastScheduler,
                                        &CTickSchedulerFast_OnTick,
                                        &CTickSchedulerFast_Uninitialize,
                                        &CTickSchedulerFast_EnableStatistics,
                                        &CTickSchedulerFast_DisableStatistics,
                                        &CTickSchedulerFast_ResetStatistics,
                                        &CTickSchedulerFast_GetHandlerStatistics,
                                        &CTickSchedulerFast_GetSchedulerStatistics,
                                        &CTickSchedulerFast_StartEventCapture,
                                        &CTickSchedulerFast_StopEventCapture,
                                        &CTickSchedulerFast_ReadEvents};

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
