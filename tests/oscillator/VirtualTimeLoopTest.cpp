// The oscillator's real timing loop on a virtual clock: every sleep it asks
// for and every tick it delivers, to the nanosecond, whatever the wake-up
// latency, the callbacks' durations or the signals. No real time passes, so
// nothing here depends on the machine.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <vector>

#include "ParkedOscillator.h"
#include "PlatformDouble.h"
#include "TickOscillator.h"
#include "TickRecorder.h"
#include "VirtualClock.h"
#include "ZynSupport/MonotonicClock.h"

namespace {

using oscillator_test::TickRecorder;
using virtual_clock::runTo;
using virtual_clock::Sleep;
using zyn_support::kNanosecondsPerMillisecond;
using zyn_support::kNanosecondsPerSecond;

constexpr int64_t kMs = kNanosecondsPerMillisecond;
constexpr int64_t kSecond = kNanosecondsPerSecond;
constexpr int64_t kSixMs = 6 * kMs;
constexpr int64_t kOneMs = 1 * kMs;
// Off every whole second and every grid, as a real start instant is.
constexpr int64_t kStart = 4711 * kSecond + 123456789;

class VirtualTimeLoop : public ::testing::Test {
protected:
    void SetUp() override {
        platform_double::reset();
        virtual_clock::install(kStart);
    }
    void TearDown() override {
        stop();
        virtual_clock::uninstall();
    }

    /// Initialises, registers the recorder and starts; the thread parks at
    /// its first sleep call.
    void start(ETickDelay delay) {
        ASSERT_EQ(0u, oscillator.initialize(delay, TICK_PRIORITY_HIGHEST));
        ASSERT_EQ(0u, oscillator.registerOnTick(recorder.receiver()));
        restart();
    }

    /// Starts a new thread and records the instant it anchors its grid on:
    /// its first clock reading.
    void restart() { origin = virtual_clock::startParked(oscillator); }

    void stop() { virtual_clock::stopParked(oscillator); }

    /// Every sleep call from `first` on asks for the first grid point of
    /// `gridOrigin` strictly after the instant of its call.
    static void expectEverySleepTargetsTheNextGridPoint(const std::vector<Sleep>& sleeps, size_t first,
                                                        int64_t gridOrigin, int64_t period) {
        for (size_t i = first; i < sleeps.size(); ++i) {
            const Sleep& sleep = sleeps[i];
            ASSERT_EQ(0, (sleep.target() - gridOrigin) % period)
                << "sleep " << i << " called " << sleep.calledAt - gridOrigin << " ns after the start asks for "
                << sleep.requestNs << " ns";
            ASSERT_GT(sleep.requestNs, 0) << "sleep " << i;
            ASSERT_LE(sleep.requestNs, period) << "sleep " << i << " passes a grid point";
        }
    }

    /// For the sleep parked on: half a period after the grid point it asks
    /// for, so that the loop goes on from the middle of a period.
    int64_t halfAPeriodAfterTheNextGridPoint() const {
        const int64_t now = virtual_clock::now();
        const int64_t nextGridPoint = origin + ((now - origin) / kSixMs + 1) * kSixMs;
        return nextGridPoint + kSixMs / 2;
    }

    /// Six thousand sleeps with wake-ups late by up to three periods, which
    /// span at least `minimumSpan`: every sleep asks for the next grid point of
    /// the start, and one tick follows each.
    void expectSleepsOnTheGridOfTheStartUnderLateWakeUps(ETickDelay delay, int64_t minimumSpan);

    TickOscillator oscillator;
    TickRecorder recorder;
    int64_t origin = 0;
};

/// Wake-ups late by anything from nothing to three periods, some of them
/// exactly on a later grid point: a fixed pseudo-random sequence.
virtual_clock::WakeUpPlan latenessUpToThreePeriods(int64_t period) {
    return [period](size_t index, int64_t requestedEnd) {
        const uint64_t mixed = (static_cast<uint64_t>(index) + 1) * 6364136223846793005ULL + 1442695040888963407ULL;
        const int64_t draw = static_cast<int64_t>((mixed >> 33) % 1000);
        if (draw < 100) {
            return requestedEnd;
        }
        if (draw < 200) {
            return requestedEnd + (draw % 3 + 1) * period;
        }
        return requestedEnd + draw * 3 * period / 1000 + draw;
    };
}

void expectOneTickAtTheEndOfEverySleep(const std::vector<Sleep>& sleeps, const std::vector<int64_t>& ticks) {
    ASSERT_EQ(sleeps.size(), ticks.size());
    for (size_t i = 0; i < ticks.size(); ++i) {
        ASSERT_EQ(sleeps[i].endedAt, ticks[i]) << "tick " << i;
    }
}

void VirtualTimeLoop::expectSleepsOnTheGridOfTheStartUnderLateWakeUps(ETickDelay delay, int64_t minimumSpan) {
    const int64_t period = static_cast<int64_t>(delay) * kMs;
    virtual_clock::setWakeUpPlan(latenessUpToThreePeriods(period));
    start(delay);
    runTo(6000);
    const std::vector<Sleep> sleeps = virtual_clock::sleeps();
    ASSERT_GT(sleeps.back().endedAt - origin, minimumSpan);
    expectEverySleepTargetsTheNextGridPoint(sleeps, 0, origin, period);
    expectOneTickAtTheEndOfEverySleep(sleeps, recorder.ticks());
}

TEST_F(VirtualTimeLoop, SixMsSleepsEndOnTheGridOfTheStartWhateverTheWakeUpLateness) {
    // Long enough for every remainder of the whole seconds modulo three.
    expectSleepsOnTheGridOfTheStartUnderLateWakeUps(TICK_DELAY_6MS, 60 * kSecond);
}

TEST_F(VirtualTimeLoop, OneMsSleepsEndOnTheGridOfTheStartWhateverTheWakeUpLateness) {
    expectSleepsOnTheGridOfTheStartUnderLateWakeUps(TICK_DELAY_1MS, 10 * kSecond);
}

TEST_F(VirtualTimeLoop, SixMsGridHoldsAcrossThreeHoursOfWholeSeconds) {
    // One wake-up in every second of three hours, at offsets near the edges
    // of a second and of a period, where a wrong correction shows first.
    const int64_t offsets[] = {0,       1,       999999,    1000000,   1999999,   2000000,   3999999,  4000000,
                               5999999, 6000000, 123456789, 500000000, 995999999, 996000000, 999999999};
    constexpr size_t kOffsets = sizeof(offsets) / sizeof(offsets[0]);
    // A sleep asked to end later than that ends when it asked to.
    virtual_clock::setWakeUpPlan([offsets](size_t index, int64_t /*requestedEnd*/) {
        return kStart + static_cast<int64_t>(index) * kSecond + offsets[index % kOffsets];
    });
    start(TICK_DELAY_6MS);
    runTo(3 * 3600 + 1);
    const std::vector<Sleep> sleeps = virtual_clock::sleeps();
    ASSERT_GE(sleeps.back().endedAt - origin, 3 * 3600 * kSecond);
    expectEverySleepTargetsTheNextGridPoint(sleeps, 0, origin, kSixMs);
}

TEST_F(VirtualTimeLoop, FirstSleepIsAFullPeriodFromTheStart) {
    start(TICK_DELAY_6MS);
    EXPECT_EQ(kStart, origin);
    runTo(1);
    const std::vector<Sleep> sleeps = virtual_clock::sleeps();
    ASSERT_EQ(1u, sleeps.size());
    EXPECT_EQ(CLOCK_MONOTONIC, sleeps[0].clock);
    EXPECT_EQ(0, sleeps[0].flags) << "a relative sleep";
    EXPECT_EQ(kSixMs, sleeps[0].requestNs);
    EXPECT_EQ(origin, sleeps[0].calledAt);
}

/// Ends sleep call i at origin + elapsed[i], then lets the loop compute the
/// next sleep from there: the requests of calls 1 to elapsed.size().
std::vector<int64_t> requestsAfterElapsedTimes(const std::vector<int64_t>& elapsed) {
    std::vector<int64_t> requests;
    const std::vector<Sleep> sleeps = virtual_clock::sleeps();
    for (size_t i = 1; i < sleeps.size() && i <= elapsed.size(); ++i) {
        EXPECT_EQ(kStart + elapsed[i - 1], sleeps[i].calledAt) << "sleep " << i;
        requests.push_back(sleeps[i].requestNs);
    }
    return requests;
}

virtual_clock::WakeUpPlan endAtElapsed(const std::vector<int64_t>& elapsed) {
    return [elapsed](size_t index, int64_t requestedEnd) {
        return index < elapsed.size() ? kStart + elapsed[index] : requestedEnd;
    };
}

TEST_F(VirtualTimeLoop, SixMsSleepAfterWholeSecondsIsTheRestOfTheTruePeriod) {
    // 1 s is 166 periods + 4 ms, 2 s is 333 periods + 2 ms, 3 s is a grid
    // point: the sleeps are what is left of the true period, not of a period
    // counted from the last whole second.
    const std::vector<int64_t> elapsed = {1 * kSecond,
                                          1 * kSecond + 2 * kMs,
                                          2 * kSecond,
                                          3 * kSecond,
                                          3 * kSecond + 11999999,
                                          4 * kSecond + 999999999,
                                          10799 * kSecond + 7 * kMs};
    virtual_clock::setWakeUpPlan(endAtElapsed(elapsed));
    start(TICK_DELAY_6MS);
    runTo(elapsed.size() + 1);
    // The largest nanoseconds after the correction (4 s + 999999999 ns gives
    // 1003999999) still leave the true phase.
    const std::vector<int64_t> expected = {2 * kMs, 6 * kMs, 4 * kMs, 6 * kMs, 1, 4000001, 3 * kMs};
    EXPECT_EQ(expected, requestsAfterElapsedTimes(elapsed));
}

TEST_F(VirtualTimeLoop, OneMsSleepAfterWholeSecondsIsTheRestOfThePeriod) {
    const std::vector<int64_t> elapsed = {5 * kSecond + 2500000, 6 * kSecond, 7 * kSecond + 999999};
    virtual_clock::setWakeUpPlan(endAtElapsed(elapsed));
    start(TICK_DELAY_1MS);
    runTo(elapsed.size() + 1);
    const std::vector<int64_t> expected = {500000, kOneMs, 1};
    EXPECT_EQ(expected, requestsAfterElapsedTimes(elapsed));
}

TEST_F(VirtualTimeLoop, CallbackOfTwoAndAHalfPeriodsIsFollowedByTheThirdGridPointNotABurst) {
    constexpr size_t kLongTick = 3;
    recorder.setWork([](size_t index, int64_t /*instant*/) {
        if (index == kLongTick) {
            virtual_clock::advance(15 * kMs);
        }
    });
    start(TICK_DELAY_6MS);
    runTo(8);
    const std::vector<int64_t> ticks = recorder.ticks();
    ASSERT_EQ(8u, ticks.size());
    for (size_t i = 0; i < ticks.size(); ++i) {
        const int64_t gridPoint = static_cast<int64_t>(i + 1 + (i > kLongTick ? 2 : 0));
        EXPECT_EQ(origin + gridPoint * kSixMs, ticks[i]) << "tick " << i;
    }
    const std::vector<Sleep> sleeps = virtual_clock::sleeps();
    EXPECT_EQ(3 * kMs, sleeps[kLongTick + 1].requestNs) << "half a period to the third grid point";
}

TEST_F(VirtualTimeLoop, InterruptedSleepIsResumedWithTheRemainderAndTheTickComesOnItsGridPoint) {
    // Call 1 is interrupted 1.5 ms in, its retry (call 2) 0.5 ms later, and
    // call 3 sleeps the rest.
    virtual_clock::interruptSleep(1, 1500000);
    virtual_clock::interruptSleep(2, 500000);
    start(TICK_DELAY_6MS);
    runTo(5);
    const std::vector<Sleep> sleeps = virtual_clock::sleeps();
    EXPECT_EQ(EINTR, sleeps[1].result);
    EXPECT_EQ(EINTR, sleeps[2].result);
    EXPECT_EQ(0, sleeps[3].result);
    for (size_t i = 1; i <= 3; ++i) {
        EXPECT_TRUE(sleeps[i].remainIsRequest) << "call " << i << ": the remainder goes back into the same record";
        EXPECT_EQ(0, sleeps[i].flags) << "call " << i;
        EXPECT_EQ(origin + 2 * kSixMs, sleeps[i].target()) << "call " << i << " aims at the second grid point";
    }
    EXPECT_EQ(kSixMs - 1500000, sleeps[2].requestNs);
    EXPECT_EQ(kSixMs - 2000000, sleeps[3].requestNs);
    const std::vector<int64_t> ticks = recorder.ticks();
    ASSERT_EQ(3u, ticks.size());
    EXPECT_EQ(origin + 1 * kSixMs, ticks[0]);
    EXPECT_EQ(origin + 2 * kSixMs, ticks[1]) << "no tick before the interrupted sleep's grid point";
    EXPECT_EQ(origin + 3 * kSixMs, ticks[2]);
}

TEST_F(VirtualTimeLoop, StopTakesEffectAfterTheCurrentSleepAndOneTick) {
    start(TICK_DELAY_6MS);
    runTo(4);
    stop();
    const std::vector<Sleep> sleeps = virtual_clock::sleeps();
    EXPECT_EQ(5u, sleeps.size()) << "no sleep after the one under way";
    EXPECT_EQ(5u, recorder.count()) << "the sleep under way ends in its tick";
}

TEST_F(VirtualTimeLoop, StartAfterStopBeginsANewGridAtTheNewStart) {
    start(TICK_DELAY_6MS);
    runTo(5);
    stop();
    const int64_t firstOrigin = origin;
    const size_t firstRunSleeps = virtual_clock::sleeps().size();
    // Half a period off the first grid.
    virtual_clock::advance(kSixMs / 2 + 42 * kMs);
    restart();
    runTo(firstRunSleeps + 10);
    EXPECT_EQ(kSixMs / 2, (origin - firstOrigin) % kSixMs);
    expectEverySleepTargetsTheNextGridPoint(virtual_clock::sleeps(), firstRunSleeps, origin, kSixMs);
}

TEST_F(VirtualTimeLoop, FreezeKeepsTheGridAndUnfreezeResumesOnIt) {
    virtual_clock::setWakeUpPlan(latenessUpToThreePeriods(kSixMs));
    start(TICK_DELAY_6MS);
    runTo(5);
    ASSERT_EQ(0u, oscillator.freeze());
    runTo(12);
    EXPECT_EQ(5u, recorder.count()) << "ticks while frozen";
    // The loop sees the unfreeze half a period after a grid point.
    ASSERT_EQ(0u, oscillator.unfreeze());
    virtual_clock::endParkedSleepAt(halfAPeriodAfterTheNextGridPoint());
    runTo(30);
    const std::vector<Sleep> sleeps = virtual_clock::sleeps();
    expectEverySleepTargetsTheNextGridPoint(sleeps, 0, origin, kSixMs);
    const std::vector<int64_t> ticks = recorder.ticks();
    ASSERT_EQ(5u + (30 - 12), ticks.size());
    for (size_t i = 12; i < 30; ++i) {
        EXPECT_EQ(sleeps[i].endedAt, ticks[i - 12 + 5]) << "sleep " << i << " ends in its tick";
    }
}

TEST_F(VirtualTimeLoop, FrozenFromTheStartTheLoopKeepsTheGridOfItsStart) {
    ASSERT_EQ(0u, oscillator.initialize(TICK_DELAY_6MS, TICK_PRIORITY_HIGHEST));
    ASSERT_EQ(0u, oscillator.registerOnTick(recorder.receiver()));
    ASSERT_EQ(0u, oscillator.freeze());
    virtual_clock::setWakeUpPlan(latenessUpToThreePeriods(kSixMs));
    restart();
    runTo(200);
    EXPECT_EQ(0u, recorder.count());
    ASSERT_EQ(0u, oscillator.unfreeze());
    virtual_clock::endParkedSleepAt(halfAPeriodAfterTheNextGridPoint());
    runTo(220);
    EXPECT_EQ(20u, recorder.count());
    expectEverySleepTargetsTheNextGridPoint(virtual_clock::sleeps(), 0, origin, kSixMs);
}

TEST_F(VirtualTimeLoop, RepeatedInitializeSwitchesThePeriodOnTheSameStartInstant) {
    virtual_clock::setWakeUpPlan(latenessUpToThreePeriods(kSixMs));
    start(TICK_DELAY_6MS);
    runTo(100);
    ASSERT_EQ(0u, oscillator.initialize(TICK_DELAY_1MS, TICK_PRIORITY_HIGHEST));
    runTo(1100);
    // Back to 6 ms after more whole seconds: the 6 ms correction comes with it.
    ASSERT_EQ(0u, oscillator.initialize(TICK_DELAY_6MS, TICK_PRIORITY_HIGHEST));
    runTo(1600);
    const std::vector<Sleep> sleeps = virtual_clock::sleeps();
    ASSERT_GT(sleeps.back().endedAt - origin, 4 * kSecond);
    // Call 100 was computed before the switch, at 6 ms.
    expectEverySleepTargetsTheNextGridPoint({sleeps.begin(), sleeps.begin() + 101}, 0, origin, kSixMs);
    expectEverySleepTargetsTheNextGridPoint({sleeps.begin(), sleeps.begin() + 1101}, 101, origin, kOneMs);
    expectEverySleepTargetsTheNextGridPoint(sleeps, 1101, origin, kSixMs);
}

}  // namespace
