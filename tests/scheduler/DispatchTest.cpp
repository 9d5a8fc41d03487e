// The tick pass, driven deterministically by calling the dispatcher directly:
// which handlers are due, how the counters advance, and what a throwing tick
// function does to the pass.

#include <functional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "SchedulerFixture.h"

namespace scheduler_test {
namespace {

using Calls = std::vector<std::string>;

class DispatchTest : public SchedulerTest {
protected:
    /// The messages of one pass in which the only handler, "Thrower", runs
    /// `throwing`.
    std::vector<Line> messagesOfAPassInWhichTheHandler(std::function<void()> throwing) {
        Probe thrower("Thrower", &log);
        thrower.action = std::move(throwing);
        registerProbe(thrower, 1);
        platform_double::clearTraces();
        tick();
        return messages();
    }
};

TEST_F(DispatchTest, TickWithoutHandlersLeavesThePassUnmarked) {
    const pthread_t before = tickScheduler.tickThreadId;
    tick();
    EXPECT_FALSE(tickScheduler.inTick);
    EXPECT_TRUE(pthread_equal(tickScheduler.tickThreadId, before));
}

TEST_F(DispatchTest, IntervalsOneTwoThreeRunInTheirPattern) {
    Probe one("1", &log);
    Probe two("2", &log);
    Probe three("3", &log);
    registerProbe(one, 1);
    registerProbe(two, 2);
    registerProbe(three, 3);
    const std::vector<Calls> expected = {{"1", "2", "3"}, {"1"}, {"1", "2"}, {"1", "3"}, {"1", "2"}, {"1"}};
    for (size_t i = 0; i < expected.size(); ++i) {
        tick();
        EXPECT_EQ(log.take(), expected[i]) << "tick " << (i + 1);
    }
}

TEST_F(DispatchTest, IntervalZeroIsDueOnEveryTickLikeIntervalOne) {
    Probe zero("0", &log);
    STickHandler* handle = registerProbe(zero, 0);
    tick(5);
    EXPECT_EQ(zero.calls.load(), 5);
    EXPECT_EQ(handle->currentInterval.load(), 0u);
}

TEST_F(DispatchTest, CountersRunFromZeroToIntervalMinusOne) {
    Probe probe("P", &log);
    STickHandler* handle = registerProbe(probe, 4);
    std::vector<uint32_t> seen;
    for (int i = 0; i < 6; ++i) {
        tick();
        seen.push_back(handle->currentInterval.load());
    }
    EXPECT_EQ(seen, (std::vector<uint32_t>{1, 2, 3, 0, 1, 2}));
}

TEST_F(DispatchTest, PassRunsHandlersInListOrderNotByPriority) {
    Probe a("A", &log);
    Probe b("B", &log);
    STickHandler* handleA = registerProbe(a, 1);
    registerProbe(b, 1);
    // Written behind the scheduler's back: the pass itself never looks at prio.
    handleA->prio.store(100);
    tick();
    EXPECT_EQ(log.take(), (Calls{"A", "B"}));
}

TEST_F(DispatchTest, DisabledHandlerKeepsItsPhase) {
    Probe probe("P", &log);
    STickHandler* handle = registerProbe(probe, 3);
    tick();  // called; counter 1
    ASSERT_EQ(probe.calls.load(), 1);
    ASSERT_EQ(CTickScheduler_DisableTickHandler(handle), TickResult::Success);
    tick(4);  // counters 2, 0, 1, 2: the call due on the 3rd of them is not made
    EXPECT_EQ(probe.calls.load(), 1);
    EXPECT_EQ(handle->currentInterval.load(), 2u);
    ASSERT_EQ(CTickScheduler_EnableTickHandler(handle), TickResult::Success);
    tick();  // counter 2 on entry: not due yet
    EXPECT_EQ(probe.calls.load(), 1);
    tick();  // counter 0 on entry: the grid of the handler
    EXPECT_EQ(probe.calls.load(), 2);
}

TEST_F(DispatchTest, HandlerInADisabledGroupDoesNotRunAndKeepsCounting) {
    Probe member("Member", &log);
    Probe other("Other", &log);
    STickHandler* handle = registerProbe(member, 2);
    registerProbe(other, 1);
    ASSERT_EQ(CTickScheduler_AddGroup(handle, 1), TickResult::Success);
    ASSERT_EQ(CTickScheduler_DisableTickGroup(1), TickResult::Success);
    tick(3);
    EXPECT_EQ(member.calls.load(), 0);
    EXPECT_EQ(other.calls.load(), 3);
    EXPECT_EQ(handle->currentInterval.load(), 1u);
    ASSERT_EQ(CTickScheduler_EnableTickGroup(1), TickResult::Success);
    tick();  // counter 1 on entry
    EXPECT_EQ(member.calls.load(), 0);
    tick();  // counter 0 on entry
    EXPECT_EQ(member.calls.load(), 1);
}

TEST_F(DispatchTest, StartOffsetDelaysTheFirstCall) {
    Probe probe("P", &log);
    STickHandler* handle = registerProbe(probe, 5);
    ASSERT_EQ(CTickScheduler_SetStartOffset(handle, 3), TickResult::Success);
    std::vector<int> callTicks;
    for (int t = 1; t <= 13; ++t) {
        tick();
        if (!log.take().empty()) {
            callTicks.push_back(t);
        }
    }
    // n - o = 2 ticks skipped, then a call on the 3rd and every 5th after it.
    EXPECT_EQ(callTicks, (std::vector<int>{3, 8, 13}));
}

TEST_F(DispatchTest, StartOffsetZeroMakesTheNextTickACall) {
    Probe probe("P", &log);
    STickHandler* handle = registerProbe(probe, 4);
    tick();
    log.take();
    ASSERT_EQ(CTickScheduler_SetStartOffset(handle, 0), TickResult::Success);
    tick();
    EXPECT_EQ(log.take(), (Calls{"P"}));
}

TEST_F(DispatchTest, CounterSetAboveTheIntervalWrapsOnTheFirstTick) {
    Probe probe("P", &log);
    STickHandler* handle = registerProbe(probe, 3);
    handle->currentInterval.store(10);
    tick();
    EXPECT_EQ(probe.calls.load(), 0);
    EXPECT_EQ(handle->currentInterval.load(), 0u);
    tick();
    EXPECT_EQ(probe.calls.load(), 1);
}

TEST_F(DispatchTest, PassIsMarkedWhileTickFunctionsRun) {
    Probe probe("P", &log);
    bool inTickSeen = false;
    bool threadSeen = false;
    probe.action = [&] {
        std::lock_guard<std::mutex> lock(tickScheduler.tickMutex);
        inTickSeen = tickScheduler.inTick;
        threadSeen = pthread_equal(tickScheduler.tickThreadId, pthread_self()) != 0;
    };
    registerProbe(probe, 1);
    tick();
    EXPECT_TRUE(inTickSeen);
    EXPECT_TRUE(threadSeen);
    EXPECT_FALSE(tickScheduler.inTick);
    // The id of the last pass's thread is kept.
    EXPECT_TRUE(pthread_equal(tickScheduler.tickThreadId, pthread_self()));
}

TEST_F(DispatchTest, TickFunctionRunsWithoutTheMutexHeld) {
    Probe probe("P", &log);
    bool lockable = false;
    probe.action = [&] {
        lockable = tickScheduler.tickMutex.try_lock();
        if (lockable) {
            tickScheduler.tickMutex.unlock();
        }
    };
    registerProbe(probe, 1);
    tick();
    EXPECT_TRUE(lockable);
}

TEST_F(DispatchTest, RuntimeErrorIsTracedAndTheNextHandlerStillRuns) {
    Probe thrower("Thrower", &log);
    Probe next("Next", &log);
    thrower.action = [] { throw std::runtime_error("disk on fire"); };
    STickHandler* handle = registerProbe(thrower, 2);
    registerProbe(next, 1);
    platform_double::clearTraces();
    tick();
    EXPECT_EQ(log.take(), (Calls{"Thrower", "Next"}));
    EXPECT_EQ(messages(),
              (std::vector<Line>{{1, kOnTick, "Failed to execute TickHandler Thrower. Runtime error: disk on fire"}}));
    // Still registered and enabled, and its counter advanced.
    EXPECT_EQ(handlerList().front(), handle);
    EXPECT_EQ(handle->enabled.load(), 1u);
    EXPECT_EQ(handle->currentInterval.load(), 1u);
}

TEST_F(DispatchTest, ClassDerivedFromRuntimeErrorIsTracedWithItsText) {
    EXPECT_EQ(messagesOfAPassInWhichTheHandler([] { throw std::overflow_error("too many"); }),
              (std::vector<Line>{{1, kOnTick, "Failed to execute TickHandler Thrower. Runtime error: too many"}}));
}

TEST_F(DispatchTest, ThrownIntIsTracedWithoutARuntimeErrorSuffix) {
    Probe thrower("Thrower", &log);
    Probe next("Next", &log);
    thrower.action = [] { throw 42; };
    registerProbe(thrower, 1);
    registerProbe(next, 1);
    platform_double::clearTraces();
    tick();
    EXPECT_EQ(log.take(), (Calls{"Thrower", "Next"}));
    EXPECT_EQ(messages(), (std::vector<Line>{{1, kOnTick, "Failed to execute TickHandler Thrower"}}));
}

TEST_F(DispatchTest, OtherStandardExceptionIsTracedWithoutARuntimeErrorSuffix) {
    EXPECT_EQ(messagesOfAPassInWhichTheHandler([] { throw std::logic_error("not a runtime error"); }),
              (std::vector<Line>{{1, kOnTick, "Failed to execute TickHandler Thrower"}}));
}

TEST_F(DispatchTest, ThrowingHandlerIsCalledAgainOnItsNextDueTick) {
    Probe thrower("Thrower", &log);
    thrower.action = [] { throw std::runtime_error("again"); };
    registerProbe(thrower, 2);
    tick(3);
    EXPECT_EQ(thrower.calls.load(), 2);
}

TEST_F(DispatchTest, FailureTextIsNotBuiltWhenLevelOneIsDisabled) {
    Probe thrower("Thrower", &log);
    Probe next("Next", &log);
    thrower.action = [] { throw std::runtime_error("quiet"); };
    registerProbe(thrower, 1);
    registerProbe(next, 1);
    platform_double::setTraceLevel(0);
    platform_double::clearTraces();
    tick();
    EXPECT_TRUE(platform_double::traces().empty());
    EXPECT_EQ(log.take(), (Calls{"Thrower", "Next"}));
}

TEST_F(DispatchTest, FrozenSchedulerRunsNothingAndLeavesThePassUnmarked) {
    Probe probe("P", &log);
    STickHandler* handle = registerProbe(probe, 1);
    ASSERT_EQ(CTickScheduler_Freeze(), TickResult::Success);
    const pthread_t before = tickScheduler.tickThreadId;
    tick(3);
    EXPECT_EQ(probe.calls.load(), 0);
    // A frozen tick is not a pass: counters stand still.
    EXPECT_EQ(handle->currentInterval.load(), 0u);
    EXPECT_FALSE(tickScheduler.inTick);
    EXPECT_TRUE(pthread_equal(tickScheduler.tickThreadId, before));
    ASSERT_EQ(CTickScheduler_Unfreeze(), TickResult::Success);
    tick();
    EXPECT_EQ(probe.calls.load(), 1);
}

TEST_F(DispatchTest, HandlerDisabledByAnEarlierTickFunctionIsSkippedInTheSamePass) {
    Probe first("First", &log);
    Probe second("Second", &log);
    registerProbe(first, 1);
    STickHandler* secondHandle = registerProbe(second, 1);
    first.action = [&] { EXPECT_EQ(CTickScheduler_DisableTickHandler(secondHandle), TickResult::Success); };
    tick();
    EXPECT_EQ(log.take(), (Calls{"First"}));
    EXPECT_EQ(secondHandle->currentInterval.load(), 0u);  // interval 1: counted and wrapped
}

TEST_F(DispatchTest, HandlerEnabledByAnEarlierTickFunctionRunsInTheSamePass) {
    Probe first("First", &log);
    Probe second("Second", &log);
    registerProbe(first, 1);
    STickHandler* secondHandle = registerProbe(second, 1);
    ASSERT_EQ(CTickScheduler_DisableTickHandler(secondHandle), TickResult::Success);
    first.action = [&] { EXPECT_EQ(CTickScheduler_EnableTickHandler(secondHandle), TickResult::Success); };
    tick();
    EXPECT_EQ(log.take(), (Calls{"First", "Second"}));
}

TEST_F(DispatchTest, TickFunctionDisablingItsOwnGroupStopsLaterMembersInTheSameTick) {
    Probe earlyMember("Early", &log);
    Probe switcher("Switcher", &log);
    Probe lateMember("Late", &log);
    Probe outsider("Outsider", &log);
    STickHandler* early = registerProbe(earlyMember, 1);
    STickHandler* switching = registerProbe(switcher, 1);
    STickHandler* late = registerProbe(lateMember, 1);
    registerProbe(outsider, 1);
    for (STickHandler* member : {early, switching, late}) {
        ASSERT_EQ(CTickScheduler_AddGroup(member, 0), TickResult::Success);
    }
    switcher.action = [] { EXPECT_EQ(CTickScheduler_DisableTickGroup(0), TickResult::Success); };
    tick();
    EXPECT_EQ(log.take(), (Calls{"Early", "Switcher", "Outsider"}));
}

TEST_F(DispatchTest, FreezeFromATickFunctionTakesEffectFromTheNextPass) {
    Probe freezer("Freezer", &log);
    Probe next("Next", &log);
    freezer.action = [] { EXPECT_EQ(CTickScheduler_Freeze(), TickResult::Success); };
    registerProbe(freezer, 1);
    registerProbe(next, 1);
    tick();
    EXPECT_EQ(log.take(), (Calls{"Freezer", "Next"}));
    tick();
    EXPECT_TRUE(log.take().empty());
}

}  // namespace
}  // namespace scheduler_test
