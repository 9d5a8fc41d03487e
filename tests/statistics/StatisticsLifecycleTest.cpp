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

class StatisticsLifecycle : public BothSchedulersTest {
protected:
    /// Registers `handler` as "Old" with `scheduler`, lets one pass call it
    /// with the statistics on and shuts the scheduler down: the figures it
    /// had are gone then.
    static void expectFiguresGoneAtUninitialize(const SchedulerEntryPoints& scheduler, ActionHandler& handler) {
        ASSERT_EQ(scheduler.registerHandler(handler, "Old"), TickResult::Success);
        ASSERT_EQ(scheduler.enableStatistics(0), TickResult::Success);
        scheduler.onTick(nullptr);
        STickHandlerStatistics figures = sized_record::sized<STickHandlerStatistics>();
        ASSERT_EQ(scheduler.getHandlerStatistics(handler.handle, &figures), TickResult::Success);
        ASSERT_EQ(figures.calls, 1u);

        scheduler.uninitialize();
        EXPECT_EQ(scheduler.getHandlerStatistics(handler.handle, &figures), TickResult::UnknownHandler);
    }
};

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
    // Still in the list after the shut-down, which leaves it as it is, but
    // without figures.
    ASSERT_NO_FATAL_FAILURE(expectFiguresGoneAtUninitialize(kFast, handler));
    ASSERT_EQ(CTickSchedulerFast_UnregisterTickHandler(&handler.handle), TickResult::Success);

    ASSERT_EQ(CTickSchedulerFast_Initialize(), TickResult::Success);
    ActionHandler fresh([] {});
    ASSERT_EQ(registerWithFastScheduler(fresh, "New"), TickResult::Success);
    STickHandlerStatistics figures = sized_record::sized<STickHandlerStatistics>();
    ASSERT_EQ(CTickSchedulerFast_GetHandlerStatistics(fresh.handle, &figures), TickResult::Success);
    EXPECT_EQ(figures.calls, 0u);
}

TEST_F(StatisticsLifecycle, SchedulerFiguresAreGoneWithTheHandlerListAtUninitialize) {
    ActionHandler handler([] {});
    ASSERT_NO_FATAL_FAILURE(expectFiguresGoneAtUninitialize(kScheduler, handler));
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
    EXPECT_EQ(sized_record::filledBy<STickSchedulerStatistics>(&CTickScheduler_GetSchedulerStatistics).enabled, 0u);
}

}  // namespace
}  // namespace statistics_test
