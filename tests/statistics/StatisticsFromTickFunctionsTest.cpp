// Every statistics function of either scheduler called from a tick function,
// of its own scheduler or of the other one, returns without waiting for any
// pass: no deadlock on the fast dispatch's mutex, and no cycle between the
// two schedulers' passes. Each pass runs on a thread of its own, so a hang
// ends the test program as STUCK within seconds instead of at CTest's
// timeout.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "BothSchedulers.h"

namespace statistics_test {
namespace {

/// What each statistics function of one scheduler returned in a tick
/// function, and whether the switch took effect there and then.
struct Results {
    uint32_t enable = 0xFFFFFFFFu;
    uint32_t reset = 0xFFFFFFFFu;
    uint32_t handler = 0xFFFFFFFFu;
    uint32_t scheduler = 0xFFFFFFFFu;
    uint32_t disable = 0xFFFFFFFFu;
    uint32_t enabledSeenInside = 0;
    uint32_t enabledSeenAfterDisable = 1;
};

STickHandlerStatistics handlerRecord() { return sized_record::sized<STickHandlerStatistics>(); }

STickSchedulerStatistics schedulerRecord() { return sized_record::sized<STickSchedulerStatistics>(); }

/// Calls all five statistics functions of `functions` about `handle` and
/// keeps their results.
void callEveryFunction(const SchedulerEntryPoints& functions, const STickHandler* handle, Results& results) {
    results.enable = functions.enableStatistics(0);
    STickSchedulerStatistics scheduler = schedulerRecord();
    results.scheduler = functions.getSchedulerStatistics(&scheduler);
    results.enabledSeenInside = scheduler.enabled;
    results.reset = functions.resetStatistics();
    STickHandlerStatistics handler = handlerRecord();
    results.handler = functions.getHandlerStatistics(handle, &handler);
    results.disable = functions.disableStatistics();
    scheduler = schedulerRecord();
    (void)functions.getSchedulerStatistics(&scheduler);
    results.enabledSeenAfterDisable = scheduler.enabled;
}

void expectAllSucceeded(const Results& results) {
    EXPECT_EQ(results.enable, TickResult::Success);
    EXPECT_EQ(results.scheduler, TickResult::Success);
    EXPECT_EQ(results.reset, TickResult::Success);
    EXPECT_EQ(results.handler, TickResult::Success);
    EXPECT_EQ(results.disable, TickResult::Success);
    EXPECT_EQ(results.enabledSeenInside, 1u) << "switched on at once, not at the end of the pass";
    EXPECT_EQ(results.enabledSeenAfterDisable, 0u);
}

class StatisticsFromTickFunctions : public BothSchedulersTest {
protected:
    /// One pass of `scheduler`, on a thread of its own (`pass` names it),
    /// calls a tick function that calls all five statistics functions of
    /// that scheduler about itself: each one succeeds there and then.
    static void expectOwnTickFunctionCallsEveryFunction(const SchedulerEntryPoints& scheduler,
                                                        const std::string& pass) {
        Results results;
        ActionHandler handler([] {});
        ASSERT_EQ(scheduler.registerHandler(handler, "Self"), TickResult::Success);
        handler.action = [&] { callEveryFunction(scheduler, handler.handle, results); };

        runPassesOnOwnThread(scheduler.onTick, 1, pass);

        EXPECT_EQ(handler.calls.load(), 1);
        expectAllSucceeded(results);
    }
};

TEST_F(StatisticsFromTickFunctions, AFastTickFunctionCallsEveryFastStatisticsFunction) {
    expectOwnTickFunctionCallsEveryFunction(kFast, "a fast pass whose tick function calls the fast statistics");
}

TEST_F(StatisticsFromTickFunctions, ATickFunctionCallsEverySchedulerStatisticsFunction) {
    expectOwnTickFunctionCallsEveryFunction(kScheduler, "a pass whose tick function calls the statistics");
}

TEST_F(StatisticsFromTickFunctions, EachSchedulersTickFunctionsCallTheOthersStatistics) {
    ActionHandler fastHandler([] {});
    ActionHandler schedulerHandler([] {});
    ASSERT_EQ(registerWithFastScheduler(fastHandler, "Fast"), TickResult::Success);
    ASSERT_EQ(registerWithScheduler(schedulerHandler, "Scheduler"), TickResult::Success);
    Results fromScheduler;
    Results fromFast;
    schedulerHandler.action = [&] { callEveryFunction(kFast, fastHandler.handle, fromScheduler); };
    fastHandler.action = [&] { callEveryFunction(kScheduler, schedulerHandler.handle, fromFast); };

    runPassesOnOwnThread(&CTickSchedulerFast_OnTick, 1, "a fast pass calling the other scheduler's statistics");
    runPassesOnOwnThread(&CTickScheduler_OnTick, 1, "a pass calling the fast scheduler's statistics");

    expectAllSucceeded(fromScheduler);
    expectAllSucceeded(fromFast);
}

/// Holds each of two tick functions until the other has been called too, so
/// that both passes are under way at once; gives up after a deadline.
class BothPassesUnderWay {
public:
    /// False when the other pass never came.
    bool arrive(std::atomic<bool>& mine, const std::atomic<bool>& other) {
        mine.store(true);
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
        while (!other.load()) {
            if (std::chrono::steady_clock::now() > deadline) {
                return false;
            }
            std::this_thread::sleep_for(std::chrono::microseconds(100));
        }
        return true;
    }

    std::atomic<bool> schedulerPass{false};
    std::atomic<bool> fastPass{false};
};

// Two passes at once, each calling into the other scheduler's statistics: a
// query that waited for the fast pass while a fast tick function waited for
// this scheduler's pass would stall both for good. The first passes meet
// before they call; the rest run freely.
TEST_F(StatisticsFromTickFunctions, PassesOfBothSchedulersCallIntoEachOtherWithoutACycle) {
    constexpr int kPasses = 2000;
    std::atomic<int> fastCalls{0};
    std::atomic<int> schedulerCalls{0};
    std::atomic<uint32_t> failures{0};
    BothPassesUnderWay meeting;
    ActionHandler fastHandler([] {});
    ActionHandler schedulerHandler([] {});
    ASSERT_EQ(registerWithFastScheduler(fastHandler, "Fast"), TickResult::Success);
    ASSERT_EQ(registerWithScheduler(schedulerHandler, "Scheduler"), TickResult::Success);
    ASSERT_EQ(CTickScheduler_EnableStatistics(0), TickResult::Success);
    ASSERT_EQ(CTickSchedulerFast_EnableStatistics(0), TickResult::Success);
    schedulerHandler.action = [&] {
        if (schedulerCalls.load() == 0 && !meeting.arrive(meeting.schedulerPass, meeting.fastPass)) {
            failures.fetch_add(1);
        }
        STickHandlerStatistics handler = handlerRecord();
        STickSchedulerStatistics scheduler = schedulerRecord();
        const uint32_t handlerResult = CTickSchedulerFast_GetHandlerStatistics(fastHandler.handle, &handler);
        if (handlerResult != TickResult::Success || CTickSchedulerFast_GetSchedulerStatistics(&scheduler) != 0) {
            failures.fetch_add(1);
        }
        schedulerCalls.fetch_add(1);
    };
    fastHandler.action = [&] {
        if (fastCalls.load() == 0 && !meeting.arrive(meeting.fastPass, meeting.schedulerPass)) {
            failures.fetch_add(1);
        }
        if (CTickScheduler_ResetStatistics() != TickResult::Success ||
            CTickScheduler_EnableStatistics(0) != TickResult::Success) {
            failures.fetch_add(1);
        }
        fastCalls.fetch_add(1);
    };

    std::thread fastTicker([] {
        for (int i = 0; i < kPasses; ++i) {
            CTickSchedulerFast_OnTick(nullptr);
        }
    });
    std::thread schedulerTicker([] {
        for (int i = 0; i < kPasses; ++i) {
            CTickScheduler_OnTick(nullptr);
        }
    });
    test_support::joinWhenFinished(
        fastTicker, [&] { return fastCalls.load() == kPasses; }, "the fast passes resetting the other's statistics");
    test_support::joinWhenFinished(
        schedulerTicker, [&] { return schedulerCalls.load() == kPasses; }, "the passes querying the fast statistics");

    EXPECT_EQ(failures.load(), 0u);
    STickHandlerStatistics fastFigures = handlerRecord();
    ASSERT_EQ(CTickSchedulerFast_GetHandlerStatistics(fastHandler.handle, &fastFigures), TickResult::Success);
    EXPECT_EQ(fastFigures.calls, static_cast<uint64_t>(kPasses));
}

}  // namespace
}  // namespace statistics_test
