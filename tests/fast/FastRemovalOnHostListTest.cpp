// Removal of any handler from inside a tick function, with the fast module on
// the reference platform's list service. Ticks are delivered by calling the
// module's dispatch directly; the module's list and mutex work zero-filled,
// so no start-up is needed. The sanitizer builds prove that no removal
// leaves the walk on freed memory. What the walk traces goes through the
// reference platform's trace service: when tick functions remove every
// handler after the one called, the list has no element left to deliver and
// the walk ends with its level-1 message, once; any other removal leaves the
// trace quiet.

#include <string>
#include <vector>

#include "HostPlatformRun.h"
#include "PlatformHost/TraceHost.h"
#include "RemovalDuringTick.h"
#include "TraceCapture.h"

namespace {

constexpr const char* kTraceModule = "ZYN.TS";
const std::string kNoElementMessage = "CTickSchedulerFast_OnTick failed in receiving tick handler";

class FastRemovalOnHostList : public ::testing::TestWithParam<fast_removal::RemovalScenario> {};

TEST_P(FastRemovalOnHostList, CallsEachHandlerLeftOnceAndTracesOnlyAWalkEndingWithoutElement) {
    // Errors and warnings only, the module's default.
    platform_host::setTraceLevel(kTraceModule, 3);
    TraceCapture capture;

    fast_removal::run(GetParam());

    EXPECT_EQ(host_run::messageTexts(capture.lines(), kTraceModule, 1, "CTickSchedulerFast_OnTick"),
              std::vector<std::string>(GetParam().walkEndsWithoutElement ? 1 : 0, kNoElementMessage));
    EXPECT_TRUE(host_run::messageTexts(capture.lines(), kTraceModule, 2, "CTickSchedulerFast_OnTick").empty());
}

INSTANTIATE_TEST_SUITE_P(Removal, FastRemovalOnHostList, ::testing::ValuesIn(fast_removal::removalScenarios()),
                         fast_removal::scenarioName);

}  // namespace
