#include "TimeSpan.h"

#include <gtest/gtest.h>

#include "ZynSupport/MonotonicClock.h"

namespace tickmon {
namespace {

using zyn_support::kNanosecondsPerMicrosecond;
using zyn_support::kNanosecondsPerSecond;

TEST(TimeSpan, ReadsEveryUnitDecimalFractionsAndTheDefaultUnitExactly) {
    struct Case {
        const char* text;
        int64_t defaultUnitNs;
        int64_t ns;
    };
    for (const Case& c :
         {Case{"7ns", kNanosecondsPerSecond, 7}, Case{"50us", kNanosecondsPerSecond, 50000},
          Case{"500ms", kNanosecondsPerSecond, 500000000}, Case{"10s", kNanosecondsPerSecond, 10000000000},
          Case{"2min", kNanosecondsPerSecond, 120000000000}, Case{"1h", kNanosecondsPerSecond, 3600000000000},
          Case{"10", kNanosecondsPerSecond, 10000000000}, Case{"50", kNanosecondsPerMicrosecond, 50000},
          Case{"1.5s", kNanosecondsPerSecond, 1500000000}, Case{"0.25ms", kNanosecondsPerSecond, 250000},
          Case{".5s", kNanosecondsPerSecond, 500000000}, Case{"0.1s", kNanosecondsPerSecond, 100000000},
          Case{"168h", kNanosecondsPerSecond, 604800000000000}}) {
        EXPECT_EQ(parseTimeSpan(c.text, c.defaultUnitNs), c.ns) << c.text;
    }
}

TEST(TimeSpan, RefusesWhatIsNotATimeSpan) {
    for (const char* bad : {"", "s", "-1s", "+1s", " 1s", "10x", "10 s", "1.2.3s", "ten", "10sec", "1e3s", "nan", "inf",
                            "99999999999999999999s", "9999999999h"}) {
        EXPECT_FALSE(parseTimeSpan(bad, kNanosecondsPerSecond).has_value()) << bad;
    }
}

}  // namespace
}  // namespace tickmon
