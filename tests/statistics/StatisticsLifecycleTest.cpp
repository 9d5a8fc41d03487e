// The statistics follow the modules' life cycle without a lock of their own:
// Initialize takes no lock, so a client holding the tick lock may call it;
// the fast module's figures go with its handler list when it shuts down or
// builds the list anew.
#include <gtest/gtest.h>

#include <future>
#include <mutex>
#include <thread>

#include "BothSchedulers.h"

namespace statistics_test {
namespace {

STickHandlerStatistics handlerRecord() {
    STickHandlerStatistics record{};
    record.size = sizeof(record);
    return record;
}

class StatisticsLifecycle : public BothSchedulersTest {};

TEST_F(StatisticsLifecycle, AClientHoldingTheTickLockCallsInitializeAndGetsItsResult) {
    CTickScheduler_Uninitialize();
    std::packaged_task<uint32_t()> initializeUnderTheLock([] {
        const std::unique_lock<std::mutex> lock = CTickScheduler_WaitForTickAndLock();
        const ETickPriority priority = TICK_PRIORITY_NORMAL;
        return CTickScheduler_Initialize(&priority);
    });
    std::future<uint32_t> result = initializeUnderTheLock.get_future();
    std::thread client(std::move(initializeUnderTheLock));
    EXPECT_EQ(test_support::getWithin(result, "Initialize called with the tick lock held"), TickResult::Success);
    client.join();
}

TEST_F(StatisticsLifecycle, FastFiguresAreGoneAfterUninitializeAndANewInitialize) {
    ActionHandler handler([] {});
    ASSERT_EQ(registerWithFastScheduler(handler, "Old"), TickResult::Success);
    ASSERT_EQ(CTickSchedulerFast_EnableStatistics(0), TickResult::Success);
    CTickSchedulerFast_OnTick(nullptr);
    STickHandlerStatistics figures = handlerRecord();
    ASSERT_EQ(CTickSchedulerFast_GetHandlerStatistics(handler.handle, &figures), TickResult::Success);
    ASSERT_EQ(figures.calls, 1u);

    CTickSchedulerFast_Uninitialize();
    // Still in the list, which shut-down leaves as it is, but without figures.
    EXPECT_EQ(CTickSchedulerFast_GetHandlerStatistics(handler.handle, &figures), TickResult::UnknownHandler);
    ASSERT_EQ(CTickSchedulerFast_UnregisterTickHandler(&handler.handle), TickResult::Success);

    ASSERT_EQ(CTickSchedulerFast_Initialize(), TickResult::Success);
    ActionHandler fresh([] {});
    ASSERT_EQ(registerWithFastScheduler(fresh, "New"), TickResult::Success);
    ASSERT_EQ(CTickSchedulerFast_GetHandlerStatistics(fresh.handle, &figures), TickResult::Success);
    EXPECT_EQ(figures.calls, 0u);
}

TEST_F(StatisticsLifecycle, SchedulerFiguresAreGoneWithTheHandlerListAtUninitialize) {
    ActionHandler handler([] {});
    ASSERT_EQ(registerWithScheduler(handler, "Old"), TickResult::Success);
    ASSERT_EQ(CTickScheduler_EnableStatistics(0), TickResult::Success);
    CTickScheduler_OnTick(nullptr);
    STickHandlerStatistics figures = handlerRecord();
    ASSERT_EQ(CTickScheduler_GetHandlerStatistics(handler.handle, &figures), TickResult::Success);
    ASSERT_EQ(figures.calls, 1u);

    CTickScheduler_Uninitialize();
    EXPECT_EQ(CTickScheduler_GetHandlerStatistics(handler.handle, &figures), TickResult::UnknownHandler);
    // The record stays with its owner's handle; the test frees it.
    delete[] handler.handle;
}

TEST_F(StatisticsLifecycle, ARepeatedInitializeKeepsTheSwitchAClientSet) {
    ASSERT_EQ(setenv("ZYN_TICK_STATISTICS", "1", 1), 0);
    ASSERT_EQ(CTickScheduler_DisableStatistics(), TickResult::Success);
    CTickScheduler_Uninitialize();
    const ETickPriority priority = TICK_PRIORITY_NORMAL;
    const uint32_t result = CTickScheduler_Initialize(&priority);
    unsetenv("ZYN_TICK_STATISTICS");
    ASSERT_EQ(result, TickResult::Success);
    STickSchedulerStatistics scheduler{};
    scheduler.size = sizeof(scheduler);
    ASSERT_EQ(CTickScheduler_GetSchedulerStatistics(&scheduler), TickResult::Success);
    EXPECT_EQ(scheduler.enabled, 0u);
}

}  // namespace
}  // namespace statistics_test
