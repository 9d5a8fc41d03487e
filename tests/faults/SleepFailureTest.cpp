// The oscillator's sleep failing: an error other than EINTR counts as a
// completed sleep (a tick follows, no retry), EINTR is resumed with the
// remaining time (no early tick), and a loop whose sleeps keep failing after
// sleeping keeps ticking at its period.

#include <cerrno>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "FaultFixture.h"
#include "TickModuleIdentity.h"
#include "TimingEnvironment.h"

namespace {

using sleep_faults::Event;
using sleep_faults::Mode;

/// An oscillator of its own whose ticks go into the sleep log.
class SleepFailure : public fault_test::FaultTest {
protected:
    void start(ETickDelay delay) {
        ASSERT_EQ(oscillator.initialize(delay, TICK_PRIORITY_HIGH), TickResult::Success);
        ASSERT_EQ(oscillator.registerOnTick(&receiver), TickResult::Success);
        sleep_faults::clearLog();
        ASSERT_EQ(oscillator.start(), TickResult::Success);
    }

    /// Stops the oscillator and returns the sequence it produced.
    std::vector<Event> stopAndTakeLog() {
        oscillator.stop();
        sleep_faults::disarm();
        return sleep_faults::log();
    }

    static size_t ticksIn(const std::vector<Event>& events) {
        size_t ticks = 0;
        for (const Event& event : events) {
            ticks += event.kind == Event::Tick ? 1 : 0;
        }
        return ticks;
    }

    static void onTick(void*) { sleep_faults::noteTick(); }

    ITickReceiver receiver{nullptr, &SleepFailure::onTick};
    TickOscillator oscillator;
};

class SleepError : public SleepFailure, public ::testing::WithParamInterface<int> {};

TEST_P(SleepError, ErrorAfterSleepingIsIgnoredAndTheGridKeepsItsRate) {
    ZYN_TS_SKIP_IF_TIMING_UNRELIABLE();
    sleep_faults::script(Mode::FailAfterSleeping, GetParam(), 0);
    const auto begin = std::chrono::steady_clock::now();
    start(TICK_DELAY_6MS);
    std::this_thread::sleep_for(std::chrono::milliseconds(600));
    const std::vector<Event> events = stopAndTakeLog();
    const double elapsedMs =
        std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - begin).count();

    // Sleep, tick, sleep, tick...: no retry after the error, no lost tick.
    ASSERT_GE(events.size(), 2u);
    for (size_t i = 0; i < events.size(); ++i) {
        ASSERT_EQ(events[i].kind, i % 2 == 0 ? Event::Sleep : Event::Tick) << "event " << i;
        if (events[i].kind == Event::Sleep) {
            EXPECT_EQ(events[i].result, GetParam());
            // The error does not lengthen the next sleep: never more than a period.
            EXPECT_GT(events[i].requestNs, 0) << "event " << i;
            EXPECT_LE(events[i].requestNs, 6000000) << "event " << i;
        }
    }
    // On the grid: never more ticks than periods, and the loop keeps its
    // rate. A stall of the host costs a few ticks; a loop at half the rate
    // does not reach the floor.
    const double periods = elapsedMs / 6.0;
    EXPECT_LE(static_cast<double>(ticksIn(events)), periods + 1.0);
    EXPECT_GE(static_cast<double>(ticksIn(events)), periods * 0.6) << "ticks: " << ticksIn(events);
}

TEST_P(SleepError, ErrorWithoutSleepingCountsAsACompletedSleep) {
    sleep_faults::script(Mode::FailAtOnce, GetParam(), 5);
    start(TICK_DELAY_6MS);
    ASSERT_TRUE(fault_test::eventually([] { return sleep_faults::log().size() >= 12; }));
    const std::vector<Event> events = stopAndTakeLog();

    // Each failed sleep is followed by its tick and then by the next sleep.
    for (size_t i = 0; i < 10; ++i) {
        ASSERT_EQ(events[i].kind, i % 2 == 0 ? Event::Sleep : Event::Tick) << "event " << i;
        if (events[i].kind == Event::Sleep) {
            EXPECT_EQ(events[i].result, GetParam()) << "event " << i;
        }
    }
    EXPECT_EQ(events[10].kind, Event::Sleep);
    EXPECT_EQ(events[10].result, 0) << "the script ends and the loop sleeps for real again";
    EXPECT_EQ(events[11].kind, Event::Tick);
}

INSTANTIATE_TEST_SUITE_P(Errors, SleepError, ::testing::Values(EINVAL, EFAULT, ENOTSUP, EPERM), fault_test::errnoName);

TEST_F(SleepFailure, InterruptedSleepIsResumedWithTheRemainingTimeBeforeAnyTick) {
    sleep_faults::script(Mode::InterruptHalfway, 0, 3);
    start(TICK_DELAY_6MS);
    ASSERT_TRUE(fault_test::eventually([] { return sleep_faults::log().size() >= 6; }));
    const std::vector<Event> events = stopAndTakeLog();

    // Three interruptions in a row, each resumed with what was left, then
    // the completed sleep and only then the tick.
    for (size_t i = 0; i < 4; ++i) {
        ASSERT_EQ(events[i].kind, Event::Sleep) << "event " << i;
        EXPECT_EQ(events[i].clock, CLOCK_MONOTONIC);
        EXPECT_EQ(events[i].flags, 0) << "a relative sleep";
        EXPECT_TRUE(events[i].remainIsRequest) << "the remainder goes back into the same record";
        EXPECT_EQ(events[i].result, i < 3 ? EINTR : 0);
        if (i > 0) {
            EXPECT_EQ(events[i].requestNs, events[i - 1].remainNs) << "event " << i;
        }
    }
    EXPECT_GT(events[0].requestNs, 0);
    EXPECT_LE(events[0].requestNs, 6000000);
    EXPECT_EQ(events[4].kind, Event::Tick);
}

TEST_F(SleepFailure, LoopWhoseSleepsAllFailAtOnceStillStops) {
    sleep_faults::script(Mode::FailAtOnce, EINVAL, 0);
    start(TICK_DELAY_1MS);
    ASSERT_TRUE(fault_test::eventually([] { return sleep_faults::log().size() >= 40; }));
    EXPECT_EQ(oscillator.stop(), TickResult::Success);
    EXPECT_FALSE(oscillator.isRunning());
    sleep_faults::disarm();
}

TEST_F(SleepFailure, SchedulerHandlersKeepRunningWhileEverySleepFailsAfterSleeping) {
    ZYN_TS_SKIP_IF_TIMING_UNRELIABLE();
    fault_test::CountingClient client;
    ASSERT_EQ(client.registerWithScheduler(2, "EveryOther"), TickResult::Success);
    ASSERT_NO_FATAL_FAILURE(fault_test::initializeAndConfigureScheduler());

    sleep_faults::script(Mode::FailAfterSleeping, EINVAL, 0);
    const auto begin = std::chrono::steady_clock::now();
    ASSERT_EQ(CTickScheduler_OnPhaseActivation(nullptr, TickModule::Phase::StartTicks), TickResult::Success);
    std::this_thread::sleep_for(std::chrono::milliseconds(600));
    EXPECT_EQ(CTickScheduler_UnregisterTickHandler(&client.handle), TickResult::Success);
    const double elapsedMs =
        std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - begin).count();
    CTickScheduler_Uninitialize();
    sleep_faults::disarm();

    const double calls = client.calls.load();
    EXPECT_LE(calls, elapsedMs / 12.0 + 1.0);
    // A stall of the host costs a few calls; half the rate does not pass.
    EXPECT_GE(calls, elapsedMs / 12.0 * 0.6) << "calls: " << calls;
}

}  // namespace
