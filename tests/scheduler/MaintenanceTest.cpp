// Handler maintenance: unregistering, moving a handler by priority and start
// offsets.

#include <cstdio>
#include <deque>
#include <string>
#include <vector>

#include "SchedulerFixture.h"

namespace scheduler_test {
namespace {

using Handles = std::vector<STickHandler*>;

class MaintenanceTest : public SchedulerTest {
protected:
    /// Registers one handler per probe, in order, all with interval 1.
    Handles registerAll(std::deque<Probe>& probes) {
        Handles handles;
        for (Probe& probe : probes) {
            handles.push_back(registerProbe(probe, 1));
        }
        platform_double::clearTraces();
        return handles;
    }
};

// ---- Unregistering ---------------------------------------------------------------

/// Unregisters `record` through a variable of its own: the call succeeds and
/// clears the variable, and the trace says that the list does not hold it.
void expectUnregisterFindsNothing(STickHandler* record) {
    STickHandler* handle = record;
    platform_double::clearTraces();
    EXPECT_EQ(CTickScheduler_UnregisterTickHandler(&handle), TickResult::Success);
    EXPECT_EQ(handle, nullptr);
    EXPECT_EQ(
        messages(),
        (std::vector<Line>{{2, kUnregister, "Tick Handler unregister unsuccessful : Tick handler doesn't exist"}}));
}

TEST_F(MaintenanceTest, UnregisterFreesTheRecordClearsTheHandleAndTracesTheName) {
    Probe probe("Audio", &log);
    STickHandler* handle = registerProbe(probe, 1);
    platform_double::clearTraces();
    EXPECT_EQ(CTickScheduler_UnregisterTickHandler(&handle), TickResult::Success);
    EXPECT_EQ(handle, nullptr);
    EXPECT_TRUE(handlerList().empty());
    EXPECT_EQ(messages(), (std::vector<Line>{{5, kUnregister, "Tick Handler Audio unregistered successfully"}}));
    tick();
    EXPECT_EQ(probe.calls.load(), 0);
}

TEST_F(MaintenanceTest, UnregisterWithANullAddressIsRefused) {
    EXPECT_EQ(CTickScheduler_UnregisterTickHandler(nullptr), TickResult::NullArgument);
    EXPECT_EQ(messages(), (std::vector<Line>{{1, kUnregister, "Called with nullptr argument"}}));
}

TEST_F(MaintenanceTest, UnregisterThroughANullHandleVariableSucceedsWithAWarning) {
    STickHandler* handle = nullptr;
    EXPECT_EQ(CTickScheduler_UnregisterTickHandler(&handle), TickResult::Success);
    EXPECT_EQ(handle, nullptr);
    EXPECT_EQ(messages(), (std::vector<Line>{{2, kUnregister, "Error Unregistering Tick Handler"}}));
}

TEST_F(MaintenanceTest, SecondUnregisterThroughTheSameVariableFindsANullHandle) {
    Probe probe("Audio", &log);
    STickHandler* handle = registerProbe(probe, 1);
    ASSERT_EQ(CTickScheduler_UnregisterTickHandler(&handle), TickResult::Success);
    platform_double::clearTraces();
    EXPECT_EQ(CTickScheduler_UnregisterTickHandler(&handle), TickResult::Success);
    EXPECT_EQ(messages(), (std::vector<Line>{{2, kUnregister, "Error Unregistering Tick Handler"}}));
}

TEST_F(MaintenanceTest, UnregisterOfAPointerNotInTheListClearsTheVariableAndFreesNothing) {
    Probe probe("Kept", &log);
    STickHandler* kept = registerProbe(probe, 1);
    STickHandler* stranger = new STickHandler[1]();
    std::snprintf(stranger->name, sizeof(stranger->name), "%s", "Stranger");
    expectUnregisterFindsNothing(stranger);
    EXPECT_EQ(handlerList(), Handles{kept});
    // Still a live block (a freed one would be reported by the address sanitizer).
    EXPECT_STREQ(stranger->name, "Stranger");
    delete[] stranger;
}

TEST_F(MaintenanceTest, UnregisterOfAStaleCopyDoesNotTouchTheFreedRecord) {
    Probe probe("Gone", &log);
    STickHandler* handle = registerProbe(probe, 1);
    STickHandler* copy = handle;
    ASSERT_EQ(CTickScheduler_UnregisterTickHandler(&handle), TickResult::Success);
    expectUnregisterFindsNothing(copy);
}

TEST_F(MaintenanceTest, UnregisteringTheOnlyHandlerLeavesAnEmptyList) {
    Probe probe("Only", &log);
    STickHandler* handle = registerProbe(probe, 1);
    ASSERT_EQ(CTickScheduler_UnregisterTickHandler(&handle), TickResult::Success);
    EXPECT_TRUE(handlerList().empty());
    tick();
    EXPECT_FALSE(tickScheduler.inTick);
}

TEST_F(MaintenanceTest, OtherHandlersKeepTheirOrderAfterAnUnregistration) {
    std::deque<Probe> probes;
    for (const char* name : {"A", "B", "C", "D", "E"}) {
        probes.emplace_back(name, &log);
    }
    Handles handles = registerAll(probes);
    STickHandler* c = handles[2];
    STickHandler* a = handles[0];
    ASSERT_EQ(CTickScheduler_UnregisterTickHandler(&c), TickResult::Success);
    EXPECT_EQ(handlerList(), (Handles{handles[0], handles[1], handles[3], handles[4]}));
    ASSERT_EQ(CTickScheduler_UnregisterTickHandler(&a), TickResult::Success);
    EXPECT_EQ(handlerList(), (Handles{handles[1], handles[3], handles[4]}));
    tick();
    EXPECT_EQ(log.take(), (std::vector<std::string>{"B", "D", "E"}));
}

// ---- Priority ---------------------------------------------------------------------

TEST_F(MaintenanceTest, PriorityOfANullHandlerIsRefused) {
    EXPECT_EQ(CTickScheduler_SetTickPriority(nullptr, 1), TickResult::NullArgument);
    EXPECT_EQ(messages(), (std::vector<Line>{{1, kSetPriority, "Called with nullptr argument"}}));
}

TEST_F(MaintenanceTest, UnchangedPriorityReturnsAtOnceEvenForAnUnregisteredRecord) {
    STickHandler* stranger = new STickHandler[1]();
    stranger->prio.store(5);
    EXPECT_EQ(CTickScheduler_SetTickPriority(stranger, 5), TickResult::Success);
    EXPECT_TRUE(platform_double::traces().empty());
    EXPECT_TRUE(handlerList().empty());
    delete[] stranger;
}

TEST_F(MaintenanceTest, MovingAHandlerByPriorityFollowsTheFirstHigherOne) {
    std::deque<Probe> probes;
    for (const char* name : {"A", "B", "C"}) {
        probes.emplace_back(name, &log);
    }
    Handles h = registerAll(probes);
    STickHandler* a = h[0];
    STickHandler* b = h[1];
    STickHandler* c = h[2];

    EXPECT_EQ(CTickScheduler_SetTickPriority(b, 5), TickResult::Success);
    EXPECT_EQ(handlerList(), (Handles{a, b, c}));
    EXPECT_TRUE(platform_double::traces().empty());

    EXPECT_EQ(CTickScheduler_SetTickPriority(a, 7), TickResult::Success);
    EXPECT_EQ(handlerList(), (Handles{b, c, a}));
    EXPECT_EQ(messages(), (std::vector<Line>{{5, kSetPriority, "Tick Handler A changed priority to 7"}}));

    EXPECT_EQ(CTickScheduler_SetTickPriority(c, 5), TickResult::Success);
    EXPECT_EQ(handlerList(), (Handles{b, c, a}));

    platform_double::clearTraces();
    EXPECT_EQ(CTickScheduler_SetTickPriority(c, 6), TickResult::Success);
    EXPECT_EQ(handlerList(), (Handles{b, c, a}));
    EXPECT_EQ(c->prio.load(), 6);
    EXPECT_EQ(messages(), (std::vector<Line>{{5, kSetPriority, "Tick Handler C changed priority to 6"}}));
}

TEST_F(MaintenanceTest, EqualPriorityGoesBehindTheOthersInFrontOfTheFirstHigherOne) {
    std::deque<Probe> probes;
    for (const char* name : {"A", "B", "C", "D"}) {
        probes.emplace_back(name, &log);
    }
    Handles h = registerAll(probes);
    ASSERT_EQ(CTickScheduler_SetTickPriority(h[0], 1), TickResult::Success);  // A B C D
    ASSERT_EQ(CTickScheduler_SetTickPriority(h[2], 9), TickResult::Success);  // A B D C
    EXPECT_EQ(handlerList(), (Handles{h[0], h[1], h[3], h[2]}));
    ASSERT_EQ(CTickScheduler_SetTickPriority(h[1], 1), TickResult::Success);  // B stays behind A
    EXPECT_EQ(handlerList(), (Handles{h[0], h[1], h[3], h[2]}));
    ASSERT_EQ(CTickScheduler_SetTickPriority(h[3], 1), TickResult::Success);  // D goes behind A and B
    EXPECT_EQ(handlerList(), (Handles{h[0], h[1], h[3], h[2]}));
    ASSERT_EQ(CTickScheduler_SetTickPriority(h[3], 0), TickResult::Success);  // D to the front
    EXPECT_EQ(handlerList(), (Handles{h[3], h[0], h[1], h[2]}));
}

TEST_F(MaintenanceTest, NegativePriorityIsTracedAsASignedNumber) {
    Probe probe("Audio", &log);
    STickHandler* handle = registerProbe(probe, 1);
    platform_double::clearTraces();
    EXPECT_EQ(CTickScheduler_SetTickPriority(handle, -2), TickResult::Success);
    EXPECT_EQ(messages(), (std::vector<Line>{{5, kSetPriority, "Tick Handler Audio changed priority to -2"}}));
}

TEST_F(MaintenanceTest, NewHandlerBehindAHigherPriorityStaysThere) {
    Probe seven("Seven", &log);
    Probe fresh("Fresh", &log);
    STickHandler* high = registerProbe(seven, 1);
    ASSERT_EQ(CTickScheduler_SetTickPriority(high, 7), TickResult::Success);
    STickHandler* five = registerProbe(fresh, 1);
    EXPECT_EQ(handlerList(), (Handles{high, five}));
    tick(3);
    EXPECT_EQ(handlerList(), (Handles{high, five}));
    EXPECT_EQ(log.take(), (std::vector<std::string>{"Seven", "Fresh", "Seven", "Fresh", "Seven", "Fresh"}));
}

TEST_F(MaintenanceTest, PriorityOfAnUnregisteredRecordIsRefusedAndKept) {
    STickHandler* stranger = new STickHandler[1]();
    stranger->prio.store(5);
    std::snprintf(stranger->name, sizeof(stranger->name), "%s", "Ghost");
    EXPECT_EQ(CTickScheduler_SetTickPriority(stranger, 2), TickResult::Failure);
    EXPECT_EQ(stranger->prio.load(), 5);
    EXPECT_TRUE(handlerList().empty());
    EXPECT_EQ(messages(),
              (std::vector<Line>{
                  {1, kSetPriority, "Tick Handler change priority unsuccessful: Tick Handler Ghost not found"}}));
    delete[] stranger;
}

TEST_F(MaintenanceTest, PriorityChangeKeepsCounterEnabledFlagAndGroups) {
    Probe probe("P", &log);
    STickHandler* handle = registerProbe(probe, 4);
    tick();
    ASSERT_EQ(CTickScheduler_DisableTickHandler(handle), TickResult::Success);
    ASSERT_EQ(CTickScheduler_AddGroup(handle, 1), TickResult::Success);
    ASSERT_EQ(CTickScheduler_SetTickPriority(handle, -1), TickResult::Success);
    EXPECT_EQ(handle->currentInterval.load(), 1u);
    EXPECT_EQ(handle->enabled.load(), 0u);
    EXPECT_EQ(handle->groupMask.load(), 2u);
    EXPECT_EQ(handlerList(), Handles{handle});
}

// ---- Start offset -----------------------------------------------------------------

TEST_F(MaintenanceTest, StartOffsetOfANullHandlerIsRefused) {
    EXPECT_EQ(CTickScheduler_SetStartOffset(nullptr, 0), TickResult::NullArgument);
    EXPECT_EQ(messages(), (std::vector<Line>{{1, kSetOffset, "Called with nullptr argument"}}));
}

TEST_F(MaintenanceTest, StartOffsetEqualToTheIntervalIsRefusedSilently) {
    Probe probe("P", &log);
    STickHandler* handle = registerProbe(probe, 5);
    platform_double::clearTraces();
    EXPECT_EQ(CTickScheduler_SetStartOffset(handle, 5), TickResult::OutOfRange);
    EXPECT_EQ(handle->currentInterval.load(), 0u);
    EXPECT_TRUE(platform_double::traces().empty());
    EXPECT_EQ(CTickScheduler_SetStartOffset(handle, 4), TickResult::Success);
    EXPECT_EQ(handle->currentInterval.load(), 4u);
}

TEST_F(MaintenanceTest, IntervalOneAcceptsOnlyOffsetZero) {
    Probe probe("P", &log);
    STickHandler* handle = registerProbe(probe, 1);
    EXPECT_EQ(CTickScheduler_SetStartOffset(handle, 0), TickResult::Success);
    EXPECT_EQ(CTickScheduler_SetStartOffset(handle, 1), TickResult::OutOfRange);
    EXPECT_EQ(CTickScheduler_SetStartOffset(handle, 0xFFFFFFFFu), TickResult::OutOfRange);
}

TEST_F(MaintenanceTest, IntervalZeroRefusesEveryOffset) {
    Probe probe("P", &log);
    STickHandler* handle = registerProbe(probe, 0);
    EXPECT_EQ(CTickScheduler_SetStartOffset(handle, 0), TickResult::OutOfRange);
    EXPECT_EQ(CTickScheduler_SetStartOffset(handle, 1), TickResult::OutOfRange);
}

TEST_F(MaintenanceTest, StartOffsetIsWrittenIntoARecordThatIsNotRegistered) {
    STickHandler* stranger = new STickHandler[1]();
    stranger->tickInterval = 8;
    EXPECT_EQ(CTickScheduler_SetStartOffset(stranger, 6), TickResult::Success);
    EXPECT_EQ(stranger->currentInterval.load(), 6u);
    delete[] stranger;
}

TEST_F(MaintenanceTest, OffsetThreeOnIntervalFiveCallsOnTheThirdTickThenEveryFifth) {
    Probe probe("P", &log);
    STickHandler* handle = registerProbe(probe, 5);
    tick(2);  // somewhere in the grid: the offset replaces the phase
    probe.calls.store(0);
    ASSERT_EQ(CTickScheduler_SetStartOffset(handle, 3), TickResult::Success);
    std::vector<int> callTicks;
    for (int t = 1; t <= 12; ++t) {
        const int before = probe.calls.load();
        tick();
        if (probe.calls.load() != before) {
            callTicks.push_back(t);
        }
    }
    EXPECT_EQ(callTicks, (std::vector<int>{3, 8}));
}

}  // namespace
}  // namespace scheduler_test
