// The oscillator on the real clock.
//
// What a correct oscillator guarantees exactly is asserted for every tick and
// on any machine: no tick comes before its grid point, and every grid point
// gives at most one tick. What depends on wake-up latency (how soon after its
// grid point a tick comes, how many grid points a run skips) is asserted only
// when the oscillator thread runs under real-time scheduling, as it does on
// the target; then the bounds hold on a loaded 2-core machine with margins of
// a millisecond or more. Without real-time scheduling those parts skip.
#include <gtest/gtest.h>

#include <pthread.h>
#include <sched.h>
#include <signal.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <limits>
#include <thread>
#include <vector>

#include "GridAnalysis.h"
#include "MonotonicClock.h"
#include "PlatformDouble.h"
#include "RealTimeScope.h"
#include "TickOscillator.h"
#include "TickRecorder.h"
#include "TimingEnvironment.h"

namespace {

using namespace oscillator_test;

constexpr int64_t kMs = kNanosecondsPerMillisecond;
constexpr int64_t kUs = 1000;
constexpr int64_t kSixMs = 6 * kMs;
constexpr int64_t kOneMs = 1 * kMs;

/// Skips the rest of the test when its latency bounds cannot be relied on.
#define REQUIRE_REAL_TIME_FOR_LATENCY_BOUNDS()                                                        \
    do {                                                                                              \
        if (!realTime) {                                                                              \
            GTEST_SKIP() << "the exact grid checks passed; latency bounds need SCHED_RR, which this " \
                            "system refuses";                                                         \
        }                                                                                             \
    } while (0)

class OscillatorTiming : public ::testing::Test {
protected:
    void SetUp() override { platform_double::reset(); }
    void TearDown() override { oscillator.stop(); }

    /// Initialises with `delay`, registers the recorder and starts; returns an
    /// instant no later than the one the oscillator thread anchors its grid on.
    int64_t startOscillator(ETickDelay delay) {
        EXPECT_EQ(0u, oscillator.initialize(delay, TICK_PRIORITY_HIGHEST));
        EXPECT_EQ(0u, oscillator.registerOnTick(recorder.receiver()));
        return restartOscillator();
    }

    int64_t restartOscillator() {
        const size_t startsBefore = startingLines();
        const int64_t beforeStart = monotonicNow();
        lastBeforeStart = beforeStart;
        EXPECT_EQ(0u, oscillator.start());
        if (realTime) {
            // What the platform's setScheduling does on the target.
            realTime = applyRoundRobin(oscillator.nativeHandle(), kOscillatorThreadPriority);
        }
        // The thread writes its starting line right after it read the start
        // instant, so the instant the line shows up bounds that one from above.
        while (startingLines() == startsBefore) {
            sched_yield();
        }
        startSeen = monotonicNow();
        return beforeStart;
    }

    static size_t startingLines() {
        size_t lines = 0;
        for (const platform_double::TraceRecord& record : platform_double::tracesOf("run")) {
            lines += (!record.entry && record.level == 5) ? 1 : 0;
        }
        return lines;
    }

    RealTimeScope testThreadScheduling{kTestThreadPriority};
    bool realTime = testThreadScheduling.isGranted();
    /// How long after its start() call the latest start instant may lie.
    int64_t startUncertainty() const { return startSeen - lastBeforeStart; }

    /// An instant no earlier than the latest start instant.
    int64_t startSeen = 0;
    int64_t lastBeforeStart = 0;
    TickOscillator oscillator;
    TickRecorder recorder;
};

/// Exact for every run: the i-th tick (counting from 1) is due at start +
/// i x period at the earliest, and at most one tick per grid point fits
/// between the start and the end of the run.
void expectNoEarlyOrExtraTicks(const std::vector<int64_t>& ticks, int64_t beforeStart, int64_t afterStop,
                               int64_t period) {
    for (size_t i = 0; i < ticks.size(); ++i) {
        const int64_t dueAtTheEarliest = beforeStart + static_cast<int64_t>(i + 1) * period;
        ASSERT_GE(ticks[i], dueAtTheEarliest)
            << "tick " << i + 1 << " came " << (dueAtTheEarliest - ticks[i]) << " ns before its grid point";
    }
    EXPECT_LE(static_cast<int64_t>(ticks.size()), (afterStop - beforeStart) / period);
}

/// Hardly a grid point is lost while the thread wakes in time: the count
/// matches the elapsed periods within a couple, or within 5 % for short
/// periods, where a rare stall of the machine costs several of them.
void expectCountMatchesElapsedTime(size_t count, int64_t from, int64_t until, int64_t period) {
    const int64_t gridPoints = (until - from) / period;
    EXPECT_GE(static_cast<int64_t>(count), gridPoints - std::max<int64_t>(2, gridPoints / 20))
        << gridPoints << " grid points passed";
}

/// Most ticks come soon after their grid point, to the end of the run (no
/// drift). The grid is taken through `gridLowerBound`, at most `uncertainty`
/// before the true grid, so phases exceed latenesses by up to that much: a
/// grid anchored anywhere else (a later restart, an unfreeze) fails this.
void expectPunctual(const std::vector<int64_t>& ticks, int64_t gridLowerBound, int64_t uncertainty, int64_t period,
                    int64_t medianBound, int64_t mostBound) {
    ASSERT_FALSE(ticks.empty());
    const std::vector<int64_t> late = latenesses(ticks, gridLowerBound, period);
    EXPECT_LE(median(late), medianBound + uncertainty);
    EXPECT_GE(shareAtMost(late, mostBound + uncertainty), 0.75);
    const std::vector<int64_t> lastQuarter(late.end() - static_cast<std::ptrdiff_t>(late.size() / 4), late.end());
    EXPECT_LE(median(lastQuarter), medianBound + uncertainty) << "the ticks drift away from the grid";
}

/// For short periods, where the start instant may be known less precisely
/// than the period allows: most ticks, to the end of the run, lie within
/// `width` after the phase the start set. The test thread and the oscillator
/// thread may read the clock on different CPUs, whose readings can differ by
/// microseconds, so that phase may begin that little before the grid through
/// `gridLowerBound`. When the start instant is known too vaguely for that,
/// what remains is that most ticks keep one phase.
void expectPhaseLocked(const std::vector<int64_t>& ticks, int64_t gridLowerBound, int64_t uncertainty, int64_t period,
                       int64_t width) {
    constexpr int64_t kClockSkew = 50 * kUs;
    ASSERT_GE(ticks.size(), 4u);
    const std::vector<int64_t> lastQuarter(ticks.end() - static_cast<std::ptrdiff_t>(ticks.size() / 4), ticks.end());
    if (uncertainty + width + kClockSkew >= period) {
        EXPECT_GE(densestPhaseWindow(ticks, gridLowerBound, period, width).share, 0.75) << "the ticks scatter";
        EXPECT_GE(densestPhaseWindow(lastQuarter, gridLowerBound, period, width).share, 0.75) << "the ticks scatter";
        return;
    }
    const auto shareOnGrid = [&](const std::vector<int64_t>& selection) {
        return shareAtMost(latenesses(selection, gridLowerBound - kClockSkew, period),
                           kClockSkew + uncertainty + width);
    };
    EXPECT_GE(shareOnGrid(ticks), 0.75) << "the ticks are not on the grid of the start";
    EXPECT_GE(shareOnGrid(lastQuarter), 0.75) << "the ticks drift away from the grid of the start";
}

TEST_F(OscillatorTiming, SixMsTicksLandOnTheGridAnchoredAtStart) {
    ZYN_TS_SKIP_IF_TIMING_UNRELIABLE();
    const int64_t beforeStart = startOscillator(TICK_DELAY_6MS);
    // Past the first whole second, where dropping the seconds without
    // compensation would shift the grid by 4 ms.
    sleepFor(1300 * kMs);
    const int64_t stopCalled = monotonicNow();
    ASSERT_EQ(0u, oscillator.stop());
    const int64_t afterStop = monotonicNow();

    const std::vector<int64_t> ticks = recorder.ticks();
    expectNoEarlyOrExtraTicks(ticks, beforeStart, afterStop, kSixMs);

    REQUIRE_REAL_TIME_FOR_LATENCY_BOUNDS();
    expectCountMatchesElapsedTime(ticks.size(), startSeen, stopCalled, kSixMs);
    expectPunctual(ticks, beforeStart, startUncertainty(), kSixMs, 1 * kMs, 2 * kMs);
}

TEST_F(OscillatorTiming, OneMsTicksLandOnTheGridAnchoredAtStart) {
    ZYN_TS_SKIP_IF_TIMING_UNRELIABLE();
    const int64_t beforeStart = startOscillator(TICK_DELAY_1MS);
    sleepFor(300 * kMs);
    const int64_t stopCalled = monotonicNow();
    ASSERT_EQ(0u, oscillator.stop());
    const int64_t afterStop = monotonicNow();

    const std::vector<int64_t> ticks = recorder.ticks();
    expectNoEarlyOrExtraTicks(ticks, beforeStart, afterStop, kOneMs);

    REQUIRE_REAL_TIME_FOR_LATENCY_BOUNDS();
    expectCountMatchesElapsedTime(ticks.size(), startSeen, stopCalled, kOneMs);
    expectPhaseLocked(ticks, beforeStart, startUncertainty(), kOneMs, 300 * kUs);
}

TEST_F(OscillatorTiming, CallbackOfTwoAndAHalfPeriodsIsFollowedByTheThirdGridPointNotABurst) {
    ZYN_TS_SKIP_IF_TIMING_UNRELIABLE();
    constexpr int64_t kLongTick = 15 * kMs;  // 2.5 periods of 6 ms
    const std::vector<size_t> longTicks = {15, 30, 45, 60, 75};
    recorder.setWork([&longTicks](size_t index, int64_t instant) {
        if (std::find(longTicks.begin(), longTicks.end(), index) != longTicks.end()) {
            spinUntil(instant + kLongTick);
        }
    });
    const int64_t beforeStart = startOscillator(TICK_DELAY_6MS);
    ASSERT_TRUE(recorder.waitForTicks(longTicks.back() + 5));
    ASSERT_EQ(0u, oscillator.stop());
    const int64_t afterStop = monotonicNow();

    const std::vector<int64_t> ticks = recorder.ticks();
    // Catch-up ticks for the grid points a long callback covered would come
    // before their own grid points.
    expectNoEarlyOrExtraTicks(ticks, beforeStart, afterStop, kSixMs);

    REQUIRE_REAL_TIME_FOR_LATENCY_BOUNDS();
    int onTheThirdGridPoint = 0;
    for (size_t index : longTicks) {
        // The callback ends half a period after a grid point: the next tick
        // belongs to the third grid point after the long tick's own.
        const int64_t callbackEnd = ticks[index] + kLongTick;
        const int64_t nextGridPoint = nextGridPointAfter(callbackEnd, beforeStart, kSixMs);
        const int64_t next = ticks[index + 1];
        const int64_t periodsApart = (next - ticks[index] + kSixMs / 2) / kSixMs;
        if (next >= nextGridPoint && next - nextGridPoint < 2 * kMs + startUncertainty() && periodsApart == 3) {
            ++onTheThirdGridPoint;
        }
    }
    EXPECT_GE(onTheThirdGridPoint, 4) << "of " << longTicks.size() << " long callbacks";
}

std::atomic<uint64_t> signalsReceived{0};

void countSignal(int /*signal*/) { signalsReceived.fetch_add(1, std::memory_order_relaxed); }

/// Installs a counting SIGUSR1 handler for the life of the object.
class CountingSignalHandler {
public:
    CountingSignalHandler() {
        struct sigaction action {};
        action.sa_handler = &countSignal;
        sigemptyset(&action.sa_mask);
        action.sa_flags = 0;
        sigaction(SIGUSR1, &action, &previous);
        signalsReceived.store(0);
    }
    ~CountingSignalHandler() { sigaction(SIGUSR1, &previous, nullptr); }
    CountingSignalHandler(const CountingSignalHandler&) = delete;
    CountingSignalHandler& operator=(const CountingSignalHandler&) = delete;

private:
    struct sigaction previous {};
};

TEST_F(OscillatorTiming, SignalStormDuringTheSleepProducesNoEarlyTick) {
    ZYN_TS_SKIP_IF_TIMING_UNRELIABLE();
    CountingSignalHandler handler;
    const int64_t beforeStart = startOscillator(TICK_DELAY_6MS);
    const pthread_t oscillatorThread = oscillator.nativeHandle();

    std::atomic<bool> storming{true};
    std::thread sender([&] {
        while (storming.load()) {
            pthread_kill(oscillatorThread, SIGUSR1);
            std::this_thread::sleep_for(std::chrono::microseconds(100));
        }
    });
    sleepFor(500 * kMs);
    storming.store(false);
    sender.join();
    const int64_t stopCalled = monotonicNow();
    ASSERT_EQ(0u, oscillator.stop());
    const int64_t afterStop = monotonicNow();

    EXPECT_GE(signalsReceived.load(), 100u) << "the storm did not reach the oscillator thread";
    const std::vector<int64_t> ticks = recorder.ticks();
    expectNoEarlyOrExtraTicks(ticks, beforeStart, afterStop, kSixMs);

    REQUIRE_REAL_TIME_FOR_LATENCY_BOUNDS();
    expectCountMatchesElapsedTime(ticks.size(), startSeen, stopCalled, kSixMs);
    expectPunctual(ticks, beforeStart, startUncertainty(), kSixMs, 1 * kMs, 2 * kMs);
}

TEST_F(OscillatorTiming, FreezeKeepsTheGridAndUnfreezeResumesOnIt) {
    ZYN_TS_SKIP_IF_TIMING_UNRELIABLE();
    const int64_t beforeStart = startOscillator(TICK_DELAY_6MS);
    REQUIRE_REAL_TIME_FOR_LATENCY_BOUNDS();
    ASSERT_TRUE(recorder.waitForTicks(10));

    ASSERT_EQ(0u, oscillator.freeze());
    const int64_t frozen = monotonicNow();
    // Unfreeze in the middle of a period: a grid restarted at unfreeze would
    // then lie half a period off the original one.
    sleepUntil(nextGridPointAfter(frozen + 100 * kMs, beforeStart, kSixMs) + kSixMs / 2);
    const int64_t unfreezeCalled = monotonicNow();
    ASSERT_EQ(0u, oscillator.unfreeze());
    ASSERT_TRUE(recorder.waitForTicks(recorder.count() + 20));
    ASSERT_EQ(0u, oscillator.stop());

    const std::vector<int64_t> ticks = recorder.ticks();
    // A tick that passed the frozen test just before freeze() may still come.
    EXPECT_TRUE(ticksBetween(ticks, frozen + 1 * kMs, unfreezeCalled).empty()) << "ticks while frozen";
    const std::vector<int64_t> resumed = ticksBetween(ticks, unfreezeCalled, std::numeric_limits<int64_t>::max());
    ASSERT_GE(resumed.size(), 20u);
    const int64_t firstGridPointAfterUnfreeze = nextGridPointAfter(unfreezeCalled, beforeStart, kSixMs);
    EXPECT_GE(resumed.front(), firstGridPointAfterUnfreeze);
    EXPECT_LE(resumed.front(), firstGridPointAfterUnfreeze + kSixMs / 2 + startUncertainty());
    expectPunctual(resumed, beforeStart, startUncertainty(), kSixMs, 1 * kMs, 2 * kMs);
}

TEST_F(OscillatorTiming, FrozenFromTheStartTheLoopKeepsTheGridOfItsStart) {
    ZYN_TS_SKIP_IF_TIMING_UNRELIABLE();
    ASSERT_EQ(0u, oscillator.initialize(TICK_DELAY_6MS, TICK_PRIORITY_HIGHEST));
    ASSERT_EQ(0u, oscillator.registerOnTick(recorder.receiver()));
    ASSERT_EQ(0u, oscillator.freeze());
    const int64_t beforeStart = restartOscillator();
    // Unfreeze half a period after a grid point of the start: a grid
    // restarted at unfreeze would lie half a period off.
    sleepUntil(beforeStart + 50 * kMs + kSixMs / 2);
    EXPECT_EQ(0u, recorder.count());
    const int64_t unfreezeCalled = monotonicNow();
    ASSERT_EQ(0u, oscillator.unfreeze());
    ASSERT_TRUE(recorder.waitForTicks(20));
    ASSERT_EQ(0u, oscillator.stop());

    const std::vector<int64_t> ticks = recorder.ticks();
    EXPECT_GE(ticks.front(), unfreezeCalled);

    REQUIRE_REAL_TIME_FOR_LATENCY_BOUNDS();
    expectPunctual(ticks, beforeStart, startUncertainty(), kSixMs, 1 * kMs, 2 * kMs);
}

TEST_F(OscillatorTiming, FrozenOscillatorStopsWithinOnePeriod) {
    ZYN_TS_SKIP_IF_TIMING_UNRELIABLE();
    startOscillator(TICK_DELAY_6MS);
    ASSERT_EQ(0u, oscillator.freeze());
    std::vector<int64_t> stopDurations;
    for (int round = 0; round < 5; ++round) {
        sleepFor(20 * kMs + round * 1100 * kUs);  // stop at different points of the period
        const int64_t stopCalled = monotonicNow();
        ASSERT_EQ(0u, oscillator.stop());
        stopDurations.push_back(monotonicNow() - stopCalled);
        restartOscillator();
    }
    ASSERT_EQ(0u, oscillator.stop());
    EXPECT_EQ(0u, recorder.count());

    REQUIRE_REAL_TIME_FOR_LATENCY_BOUNDS();
    int promptStops = 0;
    for (int64_t duration : stopDurations) {
        EXPECT_LE(duration, kSixMs + 20 * kMs);
        promptStops += duration <= kSixMs + 2 * kMs ? 1 : 0;
    }
    EXPECT_GE(promptStops, 4) << "of " << stopDurations.size() << " stops";
}

TEST_F(OscillatorTiming, StopReturnsWithinOnePeriodPlusOneTick) {
    ZYN_TS_SKIP_IF_TIMING_UNRELIABLE();
    constexpr int64_t kTickDuration = 2 * kMs;
    recorder.setWork([](size_t, int64_t instant) { spinUntil(instant + kTickDuration); });
    startOscillator(TICK_DELAY_6MS);

    std::vector<int64_t> stopDurations;
    std::vector<size_t> ticksAfterStopCall;
    for (int round = 0; round < 8; ++round) {
        ASSERT_TRUE(recorder.waitForTicks(recorder.count() + 2));
        sleepFor(round * 700 * kUs);  // stop at different points of the period
        const int64_t stopCalled = monotonicNow();
        ASSERT_EQ(0u, oscillator.stop());
        stopDurations.push_back(monotonicNow() - stopCalled);
        EXPECT_FALSE(oscillator.isRunning());
        const std::vector<int64_t> ticks = recorder.ticks();
        ticksAfterStopCall.push_back(ticksBetween(ticks, stopCalled, std::numeric_limits<int64_t>::max()).size());
        sleepFor(10 * kMs);
        EXPECT_EQ(ticks.size(), recorder.count()) << "a tick came after stop returned";
        restartOscillator();
    }

    REQUIRE_REAL_TIME_FOR_LATENCY_BOUNDS();
    // Stop waits for the rest of the current sleep, then for at most the one
    // tick that sleep ends in.
    int promptStops = 0;
    for (size_t i = 0; i < stopDurations.size(); ++i) {
        EXPECT_LE(ticksAfterStopCall[i], 1u) << "round " << i;
        EXPECT_LE(stopDurations[i], kSixMs + kTickDuration + 20 * kMs) << "round " << i;
        promptStops += stopDurations[i] <= kSixMs + kTickDuration + 2 * kMs ? 1 : 0;
    }
    EXPECT_GE(promptStops, 6) << "of " << stopDurations.size() << " stops";
}

TEST_F(OscillatorTiming, StartAfterStopBeginsANewGrid) {
    ZYN_TS_SKIP_IF_TIMING_UNRELIABLE();
    const int64_t firstStart = startOscillator(TICK_DELAY_6MS);
    ASSERT_TRUE(recorder.waitForTicks(15));
    ASSERT_EQ(0u, oscillator.stop());
    const size_t ticksOfFirstRun = recorder.count();

    // Restart half a period off the first grid: ticks still on the first grid
    // would come half a period after the restart, before the new grid's first
    // point.
    sleepUntil(nextGridPointAfter(monotonicNow() + 20 * kMs, firstStart, kSixMs) + kSixMs / 2);
    const int64_t secondStart = restartOscillator();
    ASSERT_TRUE(recorder.waitForTicks(ticksOfFirstRun + 30));
    ASSERT_EQ(0u, oscillator.stop());
    const int64_t afterStop = monotonicNow();

    const std::vector<int64_t> all = recorder.ticks();
    const std::vector<int64_t> secondRun(all.begin() + static_cast<std::ptrdiff_t>(ticksOfFirstRun), all.end());
    expectNoEarlyOrExtraTicks(secondRun, secondStart, afterStop, kSixMs);

    REQUIRE_REAL_TIME_FOR_LATENCY_BOUNDS();
    expectPunctual(secondRun, secondStart, startUncertainty(), kSixMs, 1 * kMs, 2 * kMs);
}

TEST_F(OscillatorTiming, RepeatedInitializeSwitchesThePeriodOnTheSameStartInstant) {
    ZYN_TS_SKIP_IF_TIMING_UNRELIABLE();
    const int64_t beforeStart = startOscillator(TICK_DELAY_6MS);
    REQUIRE_REAL_TIME_FOR_LATENCY_BOUNDS();
    ASSERT_TRUE(recorder.waitForTicks(10));
    const int64_t switched = monotonicNow();
    ASSERT_EQ(0u, oscillator.initialize(TICK_DELAY_1MS, TICK_PRIORITY_HIGHEST));
    sleepFor(200 * kMs);
    const int64_t stopCalled = monotonicNow();
    ASSERT_EQ(0u, oscillator.stop());

    // The iteration under way when the delay changed still sleeps to a 6 ms point.
    const int64_t settled = switched + kSixMs + kMs;
    const std::vector<int64_t> oneMsTicks = ticksBetween(recorder.ticks(), settled, stopCalled);
    EXPECT_LE(static_cast<int64_t>(oneMsTicks.size()), (stopCalled - settled) / kOneMs + 2);
    expectCountMatchesElapsedTime(oneMsTicks.size(), settled, stopCalled, kOneMs);
    // The 1 ms grid still counts from the first start.
    expectPhaseLocked(oneMsTicks, beforeStart, startUncertainty(), kOneMs, 300 * kUs);
}

}  // namespace
