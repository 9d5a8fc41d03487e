// The oscillator's time arithmetic as pure functions: time subtraction, the
// per-period compensation of dropped whole seconds, and the sleep to the next
// grid point. No clock, no thread. How the timing loop combines them is
// tested on the loop itself, on a virtual clock (VirtualTimeLoopTest.cpp).
#include <gtest/gtest.h>

#include <cstdint>
#include <ctime>

#include "TickOscillator.h"
#include "ZynSupport/MonotonicClock.h"

namespace {

constexpr uint32_t kSixMs = 6000000u;
constexpr uint32_t kOneMs = 1000000u;

timespec at(time_t seconds, long nanoseconds) {
    timespec value{};
    value.tv_sec = seconds;
    value.tv_nsec = nanoseconds;
    return value;
}

/// Both fields as given: the compensation leaves its sums unnormalised, so a
/// comparison of totals would hide a misplaced second.
::testing::AssertionResult isTime(const timespec& actual, time_t seconds, long nanoseconds) {
    if (actual.tv_sec == seconds && actual.tv_nsec == nanoseconds) {
        return ::testing::AssertionSuccess();
    }
    return ::testing::AssertionFailure() << "{" << actual.tv_sec << " s, " << actual.tv_nsec << " ns}, expected {"
                                         << seconds << " s, " << nanoseconds << " ns}";
}

/// timeDiff(start, end) written into a result that held `before`; the call
/// must succeed.
timespec timeDiffOf(timespec start, timespec end, timespec before) {
    TickOscillator oscillator;
    timespec result = before;
    EXPECT_EQ(0u, oscillator.timeDiff(&start, &end, &result));
    return result;
}

timespec compensatedFor6MS(timespec elapsed) {
    TickOscillator::tickCompensation6MS(&elapsed);
    return elapsed;
}

// ---- timeDiff --------------------------------------------------------------

TEST(TimeDiff, SubtractsWithoutBorrowWhenEndNanosecondsAreLarger) {
    EXPECT_TRUE(isTime(timeDiffOf(at(10, 100), at(12, 350), at(-1, -1)), 2, 250));
}

TEST(TimeDiff, BorrowsASecondWhenStartNanosecondsAreLarger) {
    EXPECT_TRUE(isTime(timeDiffOf(at(10, 999999000), at(12, 1000), timespec{}), 1, 2000));
}

TEST(TimeDiff, EqualNanosecondsNeedNoBorrow) {
    EXPECT_TRUE(isTime(timeDiffOf(at(3, 500), at(3, 500), at(7, 7)), 0, 0));
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
                EXPECT_EQ(zyn_support::toNanoseconds(end) - zyn_support::toNanoseconds(start),
                          zyn_support::toNanoseconds(result));
                EXPECT_GE(result.tv_nsec, 0);
                EXPECT_LT(result.tv_nsec, 1000000000);
            }
        }
    }
}

// ---- compensation routines -------------------------------------------------

TEST(TickCompensation6MS, AddsFourMillisecondsWhenSecondsModThreeIsOne) {
    EXPECT_TRUE(isTime(compensatedFor6MS(at(4, 123)), 4, 4000123));
}

TEST(TickCompensation6MS, AddsTwoMillisecondsWhenSecondsModThreeIsTwo) {
    EXPECT_TRUE(isTime(compensatedFor6MS(at(5, 123)), 5, 2000123));
}

TEST(TickCompensation6MS, LeavesWholeMultiplesOfThreeSecondsAlone) {
    EXPECT_TRUE(isTime(compensatedFor6MS(at(6, 123)), 6, 123));
    EXPECT_TRUE(isTime(compensatedFor6MS(at(0, 0)), 0, 0));
}

TEST(TickCompensation6MS, LeavesTheSumUnnormalised) {
    EXPECT_TRUE(isTime(compensatedFor6MS(at(1, 999999999)), 1, 1003999999));
}

TEST(TickCompensation1MS, ChangesNothing) {
    for (time_t seconds = 0; seconds < 7; ++seconds) {
        timespec elapsed = at(seconds, 987654321);
        TickOscillator::tickCompensation1MS(&elapsed);
        EXPECT_EQ(seconds, elapsed.tv_sec);
        EXPECT_EQ(987654321, elapsed.tv_nsec);
    }
}

// ---- sleep to the next grid point ------------------------------------------

TEST(SleepToNextGridPoint, OnAGridPointSleepsAFullPeriodNeverZero) {
    EXPECT_EQ(kSixMs, TickOscillator::sleepToNextGridPoint(at(0, 0), kSixMs));
    EXPECT_EQ(kSixMs, TickOscillator::sleepToNextGridPoint(at(0, 600000000), kSixMs));
    EXPECT_EQ(kOneMs, TickOscillator::sleepToNextGridPoint(at(0, 0), kOneMs));
    EXPECT_EQ(kOneMs, TickOscillator::sleepToNextGridPoint(at(0, 999000000), kOneMs));
}

TEST(SleepToNextGridPoint, JustBeforeAGridPointSleepsOneNanosecond) {
    EXPECT_EQ(1u, TickOscillator::sleepToNextGridPoint(at(0, 5999999), kSixMs));
    EXPECT_EQ(1u, TickOscillator::sleepToNextGridPoint(at(0, 999999), kOneMs));
}

TEST(SleepToNextGridPoint, HandlesTheLargestCompensatedNanoseconds) {
    // 1 s + 999999999 ns compensated is 1003999999 ns = 167 x 6 ms + 1999999 ns.
    EXPECT_EQ(4000001u, TickOscillator::sleepToNextGridPoint(at(0, 1003999999), kSixMs));
}

}  // namespace
