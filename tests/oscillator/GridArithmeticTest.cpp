// The oscillator's time arithmetic as pure functions: time subtraction, the
// per-period compensation of dropped whole seconds, and the sleep to the next
// grid point. No clock, no thread.
#include <gtest/gtest.h>

#include <cstdint>
#include <ctime>

#include "TickOscillator.h"

namespace {

constexpr uint32_t kSixMs = 6000000u;
constexpr uint32_t kOneMs = 1000000u;

timespec at(time_t seconds, long nanoseconds) {
    timespec value{};
    value.tv_sec = seconds;
    value.tv_nsec = nanoseconds;
    return value;
}

/// What the timing loop does with an elapsed time: compensate, keep only the
/// nanoseconds, and take the sleep to the next grid point.
uint32_t loopSleepFor(timespec elapsed, TickOscillator::Compensation compensate, uint32_t period) {
    compensate(&elapsed);
    elapsed.tv_sec = 0;
    return TickOscillator::sleepToNextGridPoint(elapsed, period);
}

/// The phase the loop sees: compensated nanoseconds modulo the period.
int64_t loopPhaseFor(timespec elapsed, TickOscillator::Compensation compensate, uint32_t period) {
    compensate(&elapsed);
    return static_cast<int64_t>(elapsed.tv_nsec) % period;
}

int64_t totalNanoseconds(const timespec& elapsed) {
    return static_cast<int64_t>(elapsed.tv_sec) * 1000000000 + elapsed.tv_nsec;
}

// ---- timeDiff --------------------------------------------------------------

TEST(TimeDiff, SubtractsWithoutBorrowWhenEndNanosecondsAreLarger) {
    TickOscillator oscillator;
    timespec start = at(10, 100);
    timespec end = at(12, 350);
    timespec result = at(-1, -1);
    EXPECT_EQ(0u, oscillator.timeDiff(&start, &end, &result));
    EXPECT_EQ(2, result.tv_sec);
    EXPECT_EQ(250, result.tv_nsec);
}

TEST(TimeDiff, BorrowsASecondWhenStartNanosecondsAreLarger) {
    TickOscillator oscillator;
    timespec start = at(10, 999999000);
    timespec end = at(12, 1000);
    timespec result{};
    EXPECT_EQ(0u, oscillator.timeDiff(&start, &end, &result));
    EXPECT_EQ(1, result.tv_sec);
    EXPECT_EQ(2000, result.tv_nsec);
}

TEST(TimeDiff, EqualNanosecondsNeedNoBorrow) {
    TickOscillator oscillator;
    timespec start = at(3, 500);
    timespec end = at(3, 500);
    timespec result = at(7, 7);
    EXPECT_EQ(0u, oscillator.timeDiff(&start, &end, &result));
    EXPECT_EQ(0, result.tv_sec);
    EXPECT_EQ(0, result.tv_nsec);
}

TEST(TimeDiff, MatchesPlainSubtractionOverASweep) {
    TickOscillator oscillator;
    const long nanos[] = {0, 1, 499999999, 500000000, 999999998, 999999999};
    for (long startNs : nanos) {
        for (long endNs : nanos) {
            for (time_t gap = 1; gap < 4; ++gap) {
                timespec start = at(1000, startNs);
                timespec end = at(1000 + gap, endNs);
                timespec result{};
                oscillator.timeDiff(&start, &end, &result);
                EXPECT_EQ(totalNanoseconds(end) - totalNanoseconds(start), totalNanoseconds(result));
                EXPECT_GE(result.tv_nsec, 0);
                EXPECT_LT(result.tv_nsec, 1000000000);
            }
        }
    }
}

// ---- compensation routines -------------------------------------------------

TEST(TickCompensation6MS, AddsFourMillisecondsWhenSecondsModThreeIsOne) {
    timespec elapsed = at(4, 123);
    TickOscillator::tickCompensation6MS(&elapsed);
    EXPECT_EQ(4, elapsed.tv_sec);
    EXPECT_EQ(4000123, elapsed.tv_nsec);
}

TEST(TickCompensation6MS, AddsTwoMillisecondsWhenSecondsModThreeIsTwo) {
    timespec elapsed = at(5, 123);
    TickOscillator::tickCompensation6MS(&elapsed);
    EXPECT_EQ(5, elapsed.tv_sec);
    EXPECT_EQ(2000123, elapsed.tv_nsec);
}

TEST(TickCompensation6MS, LeavesWholeMultiplesOfThreeSecondsAlone) {
    timespec elapsed = at(6, 123);
    TickOscillator::tickCompensation6MS(&elapsed);
    EXPECT_EQ(6, elapsed.tv_sec);
    EXPECT_EQ(123, elapsed.tv_nsec);
    timespec zero = at(0, 0);
    TickOscillator::tickCompensation6MS(&zero);
    EXPECT_EQ(0, zero.tv_nsec);
}

TEST(TickCompensation6MS, LeavesTheSumUnnormalised) {
    timespec elapsed = at(1, 999999999);
    TickOscillator::tickCompensation6MS(&elapsed);
    EXPECT_EQ(1, elapsed.tv_sec);
    EXPECT_EQ(1003999999, elapsed.tv_nsec);
}

TEST(TickCompensation1MS, ChangesNothing) {
    for (time_t seconds = 0; seconds < 7; ++seconds) {
        timespec elapsed = at(seconds, 987654321);
        TickOscillator::tickCompensation1MS(&elapsed);
        EXPECT_EQ(seconds, elapsed.tv_sec);
        EXPECT_EQ(987654321, elapsed.tv_nsec);
    }
}

// ---- sleep to the next grid point: worked numbers ---------------------------

TEST(SleepToNextGridPoint, SixMsGridOneSecondInIsFourMsIntoItsPeriod) {
    EXPECT_EQ(4000000, loopPhaseFor(at(1, 0), &TickOscillator::tickCompensation6MS, kSixMs));
    EXPECT_EQ(2000000u, loopSleepFor(at(1, 0), &TickOscillator::tickCompensation6MS, kSixMs));
}

TEST(SleepToNextGridPoint, SixMsGridTwoSecondsInIsTwoMsIntoItsPeriod) {
    EXPECT_EQ(2000000, loopPhaseFor(at(2, 0), &TickOscillator::tickCompensation6MS, kSixMs));
    EXPECT_EQ(4000000u, loopSleepFor(at(2, 0), &TickOscillator::tickCompensation6MS, kSixMs));
}

TEST(SleepToNextGridPoint, SixMsGridThreeSecondsInIsOnAGridPoint) {
    EXPECT_EQ(0, loopPhaseFor(at(3, 0), &TickOscillator::tickCompensation6MS, kSixMs));
    EXPECT_EQ(6000000u, loopSleepFor(at(3, 0), &TickOscillator::tickCompensation6MS, kSixMs));
}

TEST(SleepToNextGridPoint, OneMsGridFiveSecondsAndAHalfMsLeavesHalfAMs) {
    EXPECT_EQ(500000u, loopSleepFor(at(5, 2500000), &TickOscillator::tickCompensation1MS, kOneMs));
}

TEST(SleepToNextGridPoint, OnAGridPointSleepsAFullPeriodNeverZero) {
    EXPECT_EQ(kSixMs, TickOscillator::sleepToNextGridPoint(at(0, 0), kSixMs));
    EXPECT_EQ(kSixMs, TickOscillator::sleepToNextGridPoint(at(0, 600000000), kSixMs));
    EXPECT_EQ(kOneMs, TickOscillator::sleepToNextGridPoint(at(0, 0), kOneMs));
    EXPECT_EQ(kOneMs, TickOscillator::sleepToNextGridPoint(at(0, 999000000), kOneMs));
    // 1 s + 2 ms on the 6 ms grid is 1002 ms = 167 periods: a grid point.
    EXPECT_EQ(kSixMs, loopSleepFor(at(1, 2000000), &TickOscillator::tickCompensation6MS, kSixMs));
}

TEST(SleepToNextGridPoint, JustBeforeAGridPointSleepsOneNanosecond) {
    EXPECT_EQ(1u, TickOscillator::sleepToNextGridPoint(at(0, 5999999), kSixMs));
    EXPECT_EQ(1u, TickOscillator::sleepToNextGridPoint(at(0, 999999), kOneMs));
}

TEST(SleepToNextGridPoint, HandlesTheLargestCompensatedNanoseconds) {
    // 1 s + 999999999 ns is 1999999999 ns = 333 x 6 ms + 1999999 ns.
    EXPECT_EQ(4000001u, loopSleepFor(at(1, 999999999), &TickOscillator::tickCompensation6MS, kSixMs));
}

// ---- sweeps: dropping whole seconds keeps the true phase --------------------

TEST(GridSweep, SixMsPhaseWithCompensationEqualsTotalElapsedModuloSixMs) {
    const long offsets[] = {0,       1,       999999,    1000000,   1999999,   2000000,   3999999,  4000000,
                            5999999, 6000000, 123456789, 500000000, 995999999, 996000000, 999999999};
    for (time_t seconds = 0; seconds <= 3 * 3600; ++seconds) {
        for (long offset : offsets) {
            const timespec elapsed = at(seconds, offset);
            const int64_t truePhase = totalNanoseconds(elapsed) % kSixMs;
            ASSERT_EQ(truePhase, loopPhaseFor(elapsed, &TickOscillator::tickCompensation6MS, kSixMs))
                << "elapsed " << seconds << " s + " << offset << " ns";
            ASSERT_EQ(static_cast<uint32_t>(kSixMs - truePhase),
                      loopSleepFor(elapsed, &TickOscillator::tickCompensation6MS, kSixMs))
                << "elapsed " << seconds << " s + " << offset << " ns";
        }
    }
}

TEST(GridSweep, SixMsWithoutCompensationWouldDriftFourMsPerSecond) {
    // Why the compensation exists: the bare nanoseconds are off the grid
    // whenever the whole seconds are not a multiple of three.
    for (time_t seconds = 1; seconds < 30; ++seconds) {
        const timespec elapsed = at(seconds, 0);
        const int64_t bare = elapsed.tv_nsec % kSixMs;
        const int64_t truePhase = totalNanoseconds(elapsed) % kSixMs;
        EXPECT_EQ(seconds % 3 == 0, bare == truePhase) << seconds << " s";
    }
}

TEST(GridSweep, OneMsPhaseNeedsNoCompensation) {
    const long offsets[] = {0, 1, 250000, 999999, 1000000, 123456789, 999999999};
    for (time_t seconds = 0; seconds <= 3600; ++seconds) {
        for (long offset : offsets) {
            const timespec elapsed = at(seconds, offset);
            const int64_t truePhase = totalNanoseconds(elapsed) % kOneMs;
            ASSERT_EQ(static_cast<uint32_t>(kOneMs - truePhase),
                      loopSleepFor(elapsed, &TickOscillator::tickCompensation1MS, kOneMs))
                << "elapsed " << seconds << " s + " << offset << " ns";
        }
    }
}

TEST(GridSweep, EveryWakeUpTargetLiesOnTheGrid) {
    // Elapsed time plus the computed sleep is always a whole number of periods
    // since the start: the loop never drifts, however late it measures.
    for (int64_t elapsedNs = 0; elapsedNs < 40LL * 1000000000; elapsedNs += 7777777) {
        const timespec elapsed =
            at(static_cast<time_t>(elapsedNs / 1000000000), static_cast<long>(elapsedNs % 1000000000));
        const int64_t target = elapsedNs + loopSleepFor(elapsed, &TickOscillator::tickCompensation6MS, kSixMs);
        ASSERT_EQ(0, target % kSixMs) << elapsedNs;
        ASSERT_GT(target, elapsedNs);
        ASSERT_LE(target - elapsedNs, kSixMs);
    }
}

}  // namespace
