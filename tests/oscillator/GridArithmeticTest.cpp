// The oscillator's time arithmetic as pure functions: time subtraction, the
// per-period compensation of dropped whole seconds, and the sleep to the next
// grid point. No clock, no thread. How the timing loop combines them is
// tested on the loop itself, on a virtual clock (VirtualTimeLoopTest.cpp).
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
