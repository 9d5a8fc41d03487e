// With the statistics off, or switched on and off again, a scheduler writes
// exactly the trace lines and returns exactly the results it always did: the
// same sequence of registrations, failing tick functions, maintenance and
// passes is replayed and compared line by line.

#include <stdexcept>
#include <string>
#include <vector>

#include "SchedulerFixture.h"
#include "ScriptedClock.h"
#include "TickStatistics.h"

namespace scheduler_test {
namespace {

struct Outcome {
    std::vector<uint32_t> results;
    std::vector<Line> lines;
    std::vector<std::string> calls;
};

/// Registers three handlers (one throwing a runtime error, one an int),
/// ticks, disables, re-prioritises and unregisters, collecting every result.
Outcome runScenario() {
    CallLog log;
    Probe steady("Steady", &log);
    Probe failing("Failing", &log);
    failing.action = [] { throw std::runtime_error("boom"); };
    Probe odd("Odd", &log);
    odd.action = [] { throw 7; };
    Outcome outcome;
    const auto registerAs = [&outcome](Probe& probe, STickHandler** handle, uint32_t interval, const char* name) {
        const ITickReceiver receiver = probe.receiver();
        outcome.results.push_back(CTickScheduler_RegisterTickHandler(handle, &receiver, interval, name));
    };
    STickHandler* steadyHandle = nullptr;
    STickHandler* failingHandle = nullptr;
    STickHandler* oddHandle = nullptr;
    registerAs(steady, &steadyHandle, 1, "Steady");
    registerAs(failing, &failingHandle, 2, "Failing");
    registerAs(odd, &oddHandle, 3, "Odd");
    registerAs(odd, nullptr, 3, "Null");
    tick(4);
    outcome.results.push_back(CTickScheduler_DisableTickHandler(steadyHandle));
    tick(2);
    outcome.results.push_back(CTickScheduler_SetTickPriority(oddHandle, 3));
    outcome.results.push_back(CTickScheduler_UnregisterTickHandler(&failingHandle));
    outcome.results.push_back(CTickScheduler_UnregisterTickHandler(&failingHandle));
    outcome.results.push_back(CTickScheduler_EnableTickHandler(steadyHandle));
    tick(1);
    outcome.lines = messages();
    outcome.calls = log.take();
    (void)CTickScheduler_UnregisterTickHandler(&steadyHandle);
    (void)CTickScheduler_UnregisterTickHandler(&oddHandle);
    return outcome;
}

const std::vector<Line>& linesOfToday() {
    // The lines of the passes: "Failing" runs every second pass, "Odd" every
    // third.
    const Line failingThrew{KIV_TRACE_ERROR, kOnTick, "Failed to execute TickHandler Failing. Runtime error: boom"};
    const Line oddThrew{KIV_TRACE_ERROR, kOnTick, "Failed to execute TickHandler Odd"};
    static const std::vector<Line> lines = {
        {KIV_TRACE_INFO, kRegister, "Register tick handler  Steady"},
        {KIV_TRACE_INFO, kRegister, "Register tick handler  Failing"},
        {KIV_TRACE_INFO, kRegister, "Register tick handler  Odd"},
        {KIV_TRACE_ERROR, kRegister, "tickHandler == NULL"},
        failingThrew,
        oddThrew,
        failingThrew,
        oddThrew,
        failingThrew,
        {KIV_TRACE_INFO, kSetPriority, "Tick Handler Odd changed priority to 3"},
        {KIV_TRACE_INFO, kUnregister, "Tick Handler Failing unregistered successfully"},
        {KIV_TRACE_WARNING, kUnregister, "Error Unregistering Tick Handler"},
        oddThrew,
    };
    return lines;
}

const std::vector<uint32_t>& resultsOfToday() {
    static const std::vector<uint32_t> results = {0, 0, 0, TickResult::NullArgument, 0, 0, 0, 0, 0};
    return results;
}

class StatisticsOffStateTest : public SchedulerTest {
protected:
    // Passes are timed on a clock only the test moves, and nothing moves it:
    // no pass overruns, however long the host takes to throw and catch.
    test_support::ScriptedClock clock;
};

TEST_F(StatisticsOffStateTest, NeverSwitchedOnTheSchedulerTracesAndReturnsWhatItAlwaysDid) {
    const Outcome outcome = runScenario();
    EXPECT_EQ(outcome.lines, linesOfToday());
    EXPECT_EQ(outcome.results, resultsOfToday());
}

TEST_F(StatisticsOffStateTest, SwitchedOnAndOffAgainTheSchedulerTracesAndReturnsWhatItAlwaysDid) {
    const Outcome never = runScenario();
    resetModuleToLoadState();
    platform_double::reset();
    ASSERT_EQ(CTickScheduler_EnableStatistics(0), TickResult::Success);
    ASSERT_EQ(CTickScheduler_DisableStatistics(), TickResult::Success);
    const Outcome afterwards = runScenario();
    EXPECT_EQ(afterwards.lines, never.lines);
    EXPECT_EQ(afterwards.results, never.results);
    EXPECT_EQ(afterwards.calls, never.calls);
}

TEST_F(StatisticsOffStateTest, SwitchedOnTheSchedulerAddsNoLineWhileNoPassOverruns) {
    const Outcome never = runScenario();
    resetModuleToLoadState();
    platform_double::reset();
    ASSERT_EQ(CTickScheduler_EnableStatistics(0), TickResult::Success);
    const Outcome timed = runScenario();
    EXPECT_EQ(timed.lines, never.lines);
    EXPECT_EQ(timed.results, never.results);
    EXPECT_EQ(timed.calls, never.calls);
}

}  // namespace
}  // namespace scheduler_test
