#include "TimeSpan.h"

#include <gtest/gtest.h>

#include "ZynSupport/MonotonicClock.h"

namespace tickmon {
namespace {

using zyn_support::kNanosecondsPerMicrosecond;
using zyn_support::kNanosecondsPerSecond;

TEST(TimeSpan, ReadsEveryUnit) {
    EXPECT_EQ(parseTimeSpan("7ns", kNanosecondsPerSecond), 7);
    EXPECT_EQ(parseTimeSpan("50us", kNanosecondsPerSecond), 50000);
    EXPECT_EQ(parseTimeSpan("500ms", kNanosecondsPerSecond), 500000000);
    EXPECT_EQ(parseTimeSpan("10s", kNanosecondsPerSecond), 10000000000);
    EXPECT_EQ(parseTimeSpan("2min", kNanosecondsPerSecond), 120000000000);
    EXPECT_EQ(parseTimeSpan("1h", kNanosecondsPerSecond), 3600000000000);
}

TEST(TimeSpan, NumberWithoutUnitTakesTheDefaultUnit) {
    EXPECT_EQ(parseTimeSpan("10", kNanosecondsPerSecond), 10000000000);
    EXPECT_EQ(parseTimeSpan("50", kNanosecondsPerMicrosecond), 50000);
}

TEST(TimeSpan, ReadsDecimalFractionsExactly) {
    EXPECT_EQ(parseTimeSpan("1.5s", kNanosecondsPerSecond), 1500000000);
    EXPECT_EQ(parseTimeSpan("0.25ms", kNanosecondsPerSecond), 250000);
    EXPECT_EQ(parseTimeSpan(".5s", kNanosecondsPerSecond), 500000000);
    EXPECT_EQ(parseTimeSpan("0.1s", kNanosecondsPerSecond), 100000000);
    EXPECT_EQ(parseTimeSpan("168h", kNanosecondsPerSecond), 604800000000000);
}

TEST(TimeSpan, RefusesWhatIsNotATimeSpan) {
    for (const char* bad : {"", "s", "-1s", "+1s", " 1s", "10x", "10 s", "1.2.3s", "ten", "10sec", "1e3s", "nan", "inf",
                            "99999999999999999999s", "9999999999h"}) {
        EXPECT_FALSE(parseTimeSpan(bad, kNanosecondsPerSecond).has_value()) << bad;
    }
}

}  // namespace
}  // namespace tickmon
