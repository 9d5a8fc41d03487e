// Pinning the oscillator thread and reading where a thread ran.

#include "CpuPlacement.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

namespace tickmon {
namespace {

TEST(CpuPlacement, ListsAreWrittenWithRanges) {
    EXPECT_EQ(formatCpuList({0, 1, 2, 3, 6}), "0-3,6");
    EXPECT_EQ(formatCpuList({1}), "1");
    EXPECT_EQ(formatCpuList({0, 2, 4}), "0,2,4");
    EXPECT_EQ(formatCpuList({}), "none");
}

TEST(CpuPlacement, UnavailableCpuIsNamedInOneLine) {
    EXPECT_EQ(unavailableCpuError({1}, {0, 1}), "");
    EXPECT_EQ(unavailableCpuError({}, {0, 1}), "");
    EXPECT_EQ(unavailableCpuError({0, 5}, {0, 1}), "--cpu: CPU 5 is not available; this process may run on 0-1");
}

TEST(CpuPlacement, LastCpuIsField39EvenWithBlanksInTheName) {
    std::string line = "1234 (zyn ts) osc) S";
    for (int field = 4; field <= 38; ++field) {
        line += " " + std::to_string(field);
    }
    EXPECT_EQ(parseLastCpu(line + " 3 0 0"), 3u);
    EXPECT_FALSE(parseLastCpu(line).has_value());              // too short
    EXPECT_FALSE(parseLastCpu(line + " x 0 0").has_value());   // not a number
    EXPECT_FALSE(parseLastCpu("no parenthesis").has_value());  // malformed
}

TEST(CpuPlacement, ThreadStartedWhilePinnedInheritsTheCpusAndTheStarterGetsItsOwnBack) {
    const std::vector<uint32_t> before = allowedCpus(0);
    ASSERT_FALSE(before.empty());
    const std::vector<uint32_t> one = {before.front()};
    std::vector<uint32_t> inherited;
    {
        const CallingThreadPinned pinned(one);
        EXPECT_EQ(pinned.error(), "");
        std::thread([&inherited] { inherited = allowedCpus(0); }).join();
    }
    EXPECT_EQ(inherited, one);
    EXPECT_EQ(allowedCpus(0), before);
}

TEST(CpuPlacement, RefusedPinIsReportedAndChangesNothing) {
    const std::vector<uint32_t> before = allowedCpus(0);
    {
        const CallingThreadPinned pinned({1023});  // no such CPU here
        EXPECT_NE(pinned.error().find("sched_setaffinity"), std::string::npos);
    }
    EXPECT_EQ(allowedCpus(0), before);
}

}  // namespace
}  // namespace tickmon
