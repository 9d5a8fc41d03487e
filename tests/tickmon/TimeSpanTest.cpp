#include "TimeSpan.h"

#include <gtest/gtest.h>

namespace tickmon {
namespace {

TEST(TimeSpan, ReadsEveryUnit) {
    EXPECT_EQ(parseTimeSpan("7ns", kNanosPerSecond), 7);
    EXPECT_EQ(parseTimeSpan("50us", kNanosPerSecond), 50000);
    EXPECT_EQ(parseTimeSpan("500ms", kNanosPerSecond), 500000000);
    EXPECT_EQ(parseTimeSpan("10s", kNanosPerSecond), 10000000000);
    EXPECT_EQ(parseTimeSpan("2min", kNanosPerSecond), 120000000000);
    EXPECT_EQ(parseTimeSpan("1h", kNanosPerSecond), 3600000000000);
}

TEST(TimeSpan, NumberWithoutUnitTakesTheDefaultUnit) {
    EXPECT_EQ(parseTimeSpan("10", kNanosPerSecond), 10000000000);
    EXPECT_EQ(parseTimeSpan("50", kNanosPerMicro), 50000);
}

TEST(TimeSpan, ReadsDecimalFractionsExactly) {
    EXPECT_EQ(parseTimeSpan("1.5s", kNanosPerSecond), 1500000000);
    EXPECT_EQ(parseTimeSpan("0.25ms", kNanosPerSecond), 250000);
    EXPECT_EQ(parseTimeSpan(".5s", kNanosPerSecond), 500000000);
}

TEST(TimeSpan, RefusesWhatIsNotATimeSpan) {
    for (const char* bad :
         {"", "s", "-1s", "10x", "10 s", "1.2.3s", "ten", "10sec", "99999999999999999999s", "9999999999h"}) {
        EXPECT_FALSE(parseTimeSpan(bad, kNanosPerSecond).has_value()) << bad;
    }
}

TEST(TimeSpan, FormatsInAReadableUnit) {
    EXPECT_EQ(formatTimeSpan(10000000000), "10 s");
    EXPECT_EQ(formatTimeSpan(1500000000), "1.5 s");
    EXPECT_EQ(formatTimeSpan(500000000), "500 ms");
    EXPECT_EQ(formatTimeSpan(50000), "50 us");
    EXPECT_EQ(formatTimeSpan(7), "7 ns");
}

}  // namespace
}  // namespace tickmon
