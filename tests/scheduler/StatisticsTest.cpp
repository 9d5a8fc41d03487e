// Handler timing and overrun attribution of CTickScheduler, on a clock the
// test moves: each tick function advances it by the time it is meant to take.

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "HandlerFigures.h"
#include "SchedulerFixture.h"
#include "ScriptedClock.h"
#include "SizedRecords.h"
#include "TickStatistics.h"

namespace scheduler_test {
namespace {

using test_support::ScriptedClock;
constexpr int64_t kMs = ScriptedClock::kMs;

/// A probe whose every call takes the next of `durations` (the last repeats).
struct TimedProbe : Probe {
    TimedProbe(const std::string& probeName, std::vector<int64_t> callDurations)
        : Probe(probeName, nullptr), durations(std::move(callDurations)) {
        action = [this] {
            const size_t index = std::min(next++, durations.size() - 1);
            ScriptedClock::advance(durations[index]);
        };
    }
    std::vector<int64_t> durations;
    size_t next = 0;
};

STickHandlerStatistics handlerStatistics(const STickHandler* handler) {
    return sized_record::filledBy<STickHandlerStatistics>(
        [handler](STickHandlerStatistics* record) { return CTickScheduler_GetHandlerStatistics(handler, record); });
}

STickSchedulerStatistics schedulerStatistics() {
    return sized_record::filledBy<STickSchedulerStatistics>(&CTickScheduler_GetSchedulerStatistics);
}

std::vector<Line> warnings() {
    std::vector<Line> lines;
    for (const Line& line : messages()) {
        if (line.level == KIV_TRACE_WARNING) {
            lines.push_back(line);
        }
    }
    return lines;
}

class StatisticsTest : public SchedulerTest {
protected:
    /// Initializes with ZYN_TICK_STATISTICS set to `value` for the call only.
    static void initializeWithStatisticsVariable(const char* value) {
        ASSERT_EQ(setenv("ZYN_TICK_STATISTICS", value, 1), 0);
        const ETickPriority priority = TICK_PRIORITY_NORMAL;
        const uint32_t result = CTickScheduler_Initialize(&priority);
        unsetenv("ZYN_TICK_STATISTICS");
        ASSERT_EQ(result, TickResult::Success);
    }

    ScriptedClock clock;
};

TEST_F(StatisticsTest, AreOffByDefaultAndTimeNothing) {
    TimedProbe slow("Slow", {7 * kMs});
    STickHandler* handle = registerProbe(slow, 1);
    const uint64_t readingsBefore = ScriptedClock::readings();
    tick(3);

    EXPECT_EQ(ScriptedClock::readings(), readingsBefore) << "passes read the clock with the statistics off";
    EXPECT_EQ(slow.calls.load(), 3);
    EXPECT_EQ(schedulerStatistics().enabled, 0u);
    EXPECT_EQ(schedulerStatistics().passes, 0u);
    EXPECT_EQ(schedulerStatistics().overruns, 0u);
    EXPECT_EQ(handlerStatistics(handle).calls, 0u);
    EXPECT_TRUE(warnings().empty());
}

TEST_F(StatisticsTest, HandlerFiguresAreCallsTotalMinimumMaximumAndLast) {
    TimedProbe probe("Probe", {1 * kMs, 3 * kMs, 2 * kMs});
    STickHandler* handle = registerProbe(probe, 1);
    ASSERT_EQ(CTickScheduler_EnableStatistics(0), TickResult::Success);
    tick(3);

    EXPECT_EQ(handler_figures::of(handlerStatistics(handle)),
              (handler_figures::Figures{3, 6 * kMs, 1 * kMs, 3 * kMs, 2 * kMs, 0}));
    EXPECT_EQ(schedulerStatistics().passes, 3u);
    EXPECT_EQ(schedulerStatistics().enabled, 1u);
}

TEST_F(StatisticsTest, OnlyCallsAreCountedNotTicksOnWhichTheHandlerWasNotDue) {
    TimedProbe everyThird("EveryThird", {1 * kMs});
    STickHandler* handle = registerProbe(everyThird, 3);
    ASSERT_EQ(CTickScheduler_EnableStatistics(0), TickResult::Success);
    tick(9);
    EXPECT_EQ(handlerStatistics(handle).calls, 3u);
    EXPECT_EQ(schedulerStatistics().passes, 9u);
}

TEST_F(StatisticsTest, CallsLongerThanTheBudgetAreCounted) {
    TimedProbe probe("Probe", {1 * kMs, 3 * kMs, 2 * kMs, 5 * kMs});
    STickHandler* handle = registerProbe(probe, 1);
    ASSERT_EQ(CTickScheduler_EnableStatistics(2 * kMs), TickResult::Success);
    tick(4);
    // 3 ms and 5 ms exceed 2 ms; exactly 2 ms does not.
    EXPECT_EQ(handlerStatistics(handle).overBudget, 2u);
    EXPECT_EQ(schedulerStatistics().handlerBudgetNs, 2 * kMs);
}

TEST_F(StatisticsTest, ABudgetOfZeroMeansThePeriod) {
    TimedProbe probe("Probe", {6 * kMs, 6 * kMs + 1});
    STickHandler* handle = registerProbe(probe, 1);
    ASSERT_EQ(CTickScheduler_EnableStatistics(0), TickResult::Success);
    tick(2);
    EXPECT_EQ(schedulerStatistics().periodNs, 6 * kMs);
    EXPECT_EQ(schedulerStatistics().handlerBudgetNs, 6 * kMs);
    EXPECT_EQ(handlerStatistics(handle).overBudget, 1u);
}

TEST_F(StatisticsTest, LongestPassNamesTheHandlerThatTookMostOfIt) {
    TimedProbe first("First", {1 * kMs, 2 * kMs, 1 * kMs});
    TimedProbe second("Second", {2 * kMs, 7 * kMs, 1 * kMs});
    TimedProbe third("Third", {3 * kMs, 1 * kMs, 4 * kMs});
    registerProbe(first, 1);
    registerProbe(second, 1);
    registerProbe(third, 1);
    ASSERT_EQ(CTickScheduler_EnableStatistics(0), TickResult::Success);
    tick(3);  // passes of 6, 10 and 6 ms

    const STickSchedulerStatistics figures = schedulerStatistics();
    EXPECT_EQ(figures.passes, 3u);
    EXPECT_EQ(figures.longestPassNs, 10 * kMs);
    EXPECT_STREQ(figures.longestPassCulprit, "Second");
    EXPECT_EQ(figures.longestPassCulpritNs, 7 * kMs);
    EXPECT_EQ(figures.overruns, 1u) << "only the 10 ms pass is longer than 6 ms";
}

TEST_F(StatisticsTest, OnlyTheFirstCallsOwnReadingStandsBetweenTheTickAndTheCall) {
    TimedProbe probe("First", {1 * kMs});
    uint64_t readingsAtTheCall = 0;
    probe.action = [&readingsAtTheCall] { readingsAtTheCall = ScriptedClock::readings(); };
    registerProbe(probe, 1);
    ASSERT_EQ(CTickScheduler_EnableStatistics(0), TickResult::Success);
    EXPECT_EQ(ScriptedClock::readingsBefore(readingsAtTheCall, [] { tick(1); }), 1u);
    EXPECT_EQ(schedulerStatistics().passes, 1u);
}

TEST_F(StatisticsTest, APassThatCallsNoHandlerLastsNothing) {
    TimedProbe everySecond("EverySecond", {2 * kMs});
    registerProbe(everySecond, 2);
    ASSERT_EQ(CTickScheduler_EnableStatistics(0), TickResult::Success);
    tick(1);
    ScriptedClock::advance(7 * kMs);
    tick(1);  // not due
    EXPECT_EQ(schedulerStatistics().passes, 2u);
    EXPECT_EQ(schedulerStatistics().longestPassNs, 2 * kMs);
    EXPECT_EQ(schedulerStatistics().overruns, 0u);
}

TEST_F(StatisticsTest, OverrunMessageNamesPassCulpritAndIsLimitedToOneASecond) {
    TimedProbe quick("Quick", {1 * kMs});
    TimedProbe slow("Slow", {7 * kMs});
    registerProbe(quick, 1);
    registerProbe(slow, 1);
    ASSERT_EQ(CTickScheduler_EnableStatistics(0), TickResult::Success);
    platform_double::reset();

    tick(10);  // ten 8 ms passes within 80 ms: one message
    ASSERT_EQ(warnings(),
              (std::vector<Line>{{KIV_TRACE_WARNING, kOnTick,
                                  "CTickScheduler pass took 8000.000 us, period 6000.000 us; longest TickHandler "
                                  "Slow took 7000.000 us; 0 earlier overruns not reported"}}));
    EXPECT_EQ(schedulerStatistics().overruns, 10u);

    ScriptedClock::advance(1000 * kMs);
    platform_double::reset();
    tick(1);
    EXPECT_EQ(warnings(),
              (std::vector<Line>{{KIV_TRACE_WARNING, kOnTick,
                                  "CTickScheduler pass took 8000.000 us, period 6000.000 us; longest TickHandler "
                                  "Slow took 7000.000 us; 9 earlier overruns not reported"}}));
}

TEST_F(StatisticsTest, APassJustOverThePeriodReadsAsLongerInTheMessage) {
    TimedProbe just("Just", {6 * kMs + 500});
    registerProbe(just, 1);
    ASSERT_EQ(CTickScheduler_EnableStatistics(0), TickResult::Success);
    platform_double::reset();
    tick(1);
    EXPECT_EQ(warnings(), (std::vector<Line>{{KIV_TRACE_WARNING, kOnTick,
                                              "CTickScheduler pass took 6000.500 us, period 6000.000 us; longest "
                                              "TickHandler Just took 6000.500 us; 0 earlier overruns not reported"}}));
}

TEST_F(StatisticsTest, APassOfExactlyThePeriodIsNoOverrun) {
    TimedProbe exact("Exact", {6 * kMs});
    registerProbe(exact, 1);
    ASSERT_EQ(CTickScheduler_EnableStatistics(0), TickResult::Success);
    platform_double::reset();
    tick(5);
    EXPECT_EQ(schedulerStatistics().overruns, 0u);
    EXPECT_TRUE(warnings().empty());
}

TEST_F(StatisticsTest, ResetClearsEveryFigureAndKeepsThemOn) {
    TimedProbe slow("Slow", {7 * kMs, 2 * kMs});
    STickHandler* handle = registerProbe(slow, 1);
    ASSERT_EQ(CTickScheduler_EnableStatistics(1 * kMs), TickResult::Success);
    tick(1);
    ASSERT_EQ(CTickScheduler_ResetStatistics(), TickResult::Success);

    const STickHandlerStatistics cleared = handlerStatistics(handle);
    EXPECT_EQ(cleared.calls, 0u);
    EXPECT_EQ(cleared.totalNs, 0);
    EXPECT_EQ(cleared.maxNs, 0);
    EXPECT_EQ(cleared.overBudget, 0u);
    const STickSchedulerStatistics clearedPasses = schedulerStatistics();
    EXPECT_EQ(clearedPasses.passes, 0u);
    EXPECT_EQ(clearedPasses.overruns, 0u);
    EXPECT_EQ(clearedPasses.longestPassNs, 0);
    EXPECT_STREQ(clearedPasses.longestPassCulprit, "");
    EXPECT_EQ(clearedPasses.enabled, 1u);
    EXPECT_EQ(clearedPasses.handlerBudgetNs, 1 * kMs);

    tick(1);
    EXPECT_EQ(handlerStatistics(handle).calls, 1u);
    EXPECT_EQ(handlerStatistics(handle).minNs, 2 * kMs);
}

TEST_F(StatisticsTest, SwitchedOffTheyStopCountingAndKeepTheirFigures) {
    TimedProbe probe("Probe", {1 * kMs});
    STickHandler* handle = registerProbe(probe, 1);
    ASSERT_EQ(CTickScheduler_EnableStatistics(0), TickResult::Success);
    tick(2);
    ASSERT_EQ(CTickScheduler_DisableStatistics(), TickResult::Success);
    tick(2);
    EXPECT_EQ(handlerStatistics(handle).calls, 2u);
    EXPECT_EQ(schedulerStatistics().passes, 2u);
    EXPECT_EQ(schedulerStatistics().enabled, 0u);
}

TEST_F(StatisticsTest, QueriesRefuseNullPointersAndTooSmallRecords) {
    Probe probe("Probe", nullptr);
    STickHandler* handle = registerProbe(probe, 1);
    STickHandlerStatistics handlerRecord{};
    handlerRecord.size = sizeof(handlerRecord) - 1;
    EXPECT_EQ(CTickScheduler_GetHandlerStatistics(handle, &handlerRecord), TickResult::NullArgument);
    EXPECT_EQ(CTickScheduler_GetHandlerStatistics(handle, nullptr), TickResult::NullArgument);
    handlerRecord.size = sizeof(handlerRecord);
    EXPECT_EQ(CTickScheduler_GetHandlerStatistics(nullptr, &handlerRecord), TickResult::NullArgument);
    STickSchedulerStatistics schedulerRecord{};
    schedulerRecord.size = sizeof(schedulerRecord) - 1;
    EXPECT_EQ(CTickScheduler_GetSchedulerStatistics(&schedulerRecord), TickResult::NullArgument);
    EXPECT_EQ(CTickScheduler_GetSchedulerStatistics(nullptr), TickResult::NullArgument);
}

TEST_F(StatisticsTest, ALargerRecordKeepsItsBytesBeyondTheLibrarysOwn) {
    sized_record::Grown<STickSchedulerStatistics> grown =
        sized_record::grown<STickSchedulerStatistics>(0x5555555555555555ULL);
    EXPECT_EQ(CTickScheduler_GetSchedulerStatistics(&grown.known), TickResult::Success);
    EXPECT_EQ(grown.later, 0x5555555555555555ULL);
    EXPECT_EQ(grown.known.periodNs, 6 * kMs);
}

TEST_F(StatisticsTest, AnUnregisteredHandlerIsUnknown) {
    Probe probe("Probe", nullptr);
    STickHandler* handle = registerProbe(probe, 1);
    STickHandler* const former = handle;
    ASSERT_EQ(CTickScheduler_UnregisterTickHandler(&handle), TickResult::Success);
    STickHandlerStatistics record{};
    record.size = sizeof(record);
    EXPECT_EQ(CTickScheduler_GetHandlerStatistics(former, &record), TickResult::UnknownHandler);
}

TEST_F(StatisticsTest, AHandlerRemovingItselfDuringItsTimedCallIsStillTheCulprit) {
    TimedProbe quick("Quick", {1 * kMs});
    TimedProbe leaving("Leaving", {9 * kMs});
    registerProbe(quick, 1);
    STickHandler* leavingHandle = registerProbe(leaving, 1);
    leaving.action = [&] {
        ScriptedClock::advance(9 * kMs);
        (void)CTickScheduler_UnregisterTickHandler(&leavingHandle);
    };
    ASSERT_EQ(CTickScheduler_EnableStatistics(0), TickResult::Success);
    tick(2);
    EXPECT_EQ(leaving.calls.load(), 1);
    EXPECT_EQ(quick.calls.load(), 2);
    EXPECT_EQ(schedulerStatistics().longestPassNs, 10 * kMs);
    EXPECT_STREQ(schedulerStatistics().longestPassCulprit, "Leaving");
}

TEST_F(StatisticsTest, AThrowingTickFunctionIsTimedAndStillLogsItsFailure) {
    Probe thrower("Thrower", nullptr);
    thrower.action = [] {
        ScriptedClock::advance(2 * kMs);
        throw std::runtime_error("boom");
    };
    STickHandler* handle = registerProbe(thrower, 1);
    ASSERT_EQ(CTickScheduler_EnableStatistics(0), TickResult::Success);
    platform_double::reset();
    tick(1);
    EXPECT_EQ(handlerStatistics(handle).maxNs, 2 * kMs);
    EXPECT_EQ(
        messages(),
        (std::vector<Line>{{KIV_TRACE_ERROR, kOnTick, "Failed to execute TickHandler Thrower. Runtime error: boom"}}));
}

TEST_F(StatisticsTest, ATickFunctionMayQueryItsOwnFigures) {
    Probe probe("Probe", nullptr);
    STickHandler* handle = registerProbe(probe, 1);
    uint64_t seenCalls = 99;
    probe.action = [&] {
        ScriptedClock::advance(1 * kMs);
        STickHandlerStatistics record{};
        record.size = sizeof(record);
        if (CTickScheduler_GetHandlerStatistics(handle, &record) == TickResult::Success) {
            seenCalls = record.calls;
        }
    };
    ASSERT_EQ(CTickScheduler_EnableStatistics(0), TickResult::Success);
    tick(3);
    EXPECT_EQ(seenCalls, 2u) << "the third call sees the two before it";
}

TEST_F(StatisticsTest, TheEnvironmentSwitchesThemOnAtInitialization) {
    ASSERT_NO_FATAL_FAILURE(initializeWithStatisticsVariable("1"));
    EXPECT_EQ(schedulerStatistics().enabled, 1u);
    EXPECT_EQ(schedulerStatistics().handlerBudgetNs, 6 * kMs);
}

TEST_F(StatisticsTest, AnEnvironmentValueOfZeroLeavesThemOff) {
    ASSERT_NO_FATAL_FAILURE(initializeWithStatisticsVariable("0"));
    EXPECT_EQ(schedulerStatistics().enabled, 0u);
}

// Real clock: a client thread reads and resets while another thread runs
// passes; the race detector build checks that nothing is shared unguarded.
TEST(StatisticsConcurrency, ClientsQueryAndResetWhilePassesRun) {
    resetModuleToLoadState();
    Probe first("First", nullptr);
    Probe second("Second", nullptr);
    STickHandler* firstHandle = registerProbe(first, 1);
    registerProbe(second, 2);
    ASSERT_EQ(CTickScheduler_EnableStatistics(1), TickResult::Success);
    std::atomic<bool> stop{false};
    std::thread ticker([&] {
        while (!stop.load()) {
            tick();
        }
    });
    // Until the ticker has run plenty of passes, however the host schedules it.
    const auto deadline = std::chrono::steady_clock::now() + test_support::kStuckAfter;
    for (int round = 0; round < 2000 || first.calls.load() < 2000; ++round) {
        if (std::chrono::steady_clock::now() > deadline) {
            test_support::abortAsStuck("2000 passes of the ticker thread");
        }
        STickHandlerStatistics handlerRecord{};
        handlerRecord.size = sizeof(handlerRecord);
        ASSERT_EQ(CTickScheduler_GetHandlerStatistics(firstHandle, &handlerRecord), TickResult::Success);
        // A consistent snapshot: no call is longer than all calls together.
        EXPECT_LE(handlerRecord.maxNs, handlerRecord.totalNs);
        EXPECT_LE(handlerRecord.minNs, handlerRecord.maxNs);
        STickSchedulerStatistics schedulerRecord{};
        schedulerRecord.size = sizeof(schedulerRecord);
        ASSERT_EQ(CTickScheduler_GetSchedulerStatistics(&schedulerRecord), TickResult::Success);
        EXPECT_LE(schedulerRecord.overruns, schedulerRecord.passes);
        if (round % 500 == 499) {
            ASSERT_EQ(CTickScheduler_ResetStatistics(), TickResult::Success);
        }
    }
    stop.store(true);
    ticker.join();
    resetModuleToLoadState();
}

}  // namespace
}  // namespace scheduler_test
