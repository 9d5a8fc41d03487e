// ZYN_TICK_WAKE_LEAD switches the precision wake of a whole process without
// a code change: read once per scheduler, at its first successful
// initialisation, and never again. Its own executable: the variable is read
// at the process's first initialisation only.
#include <gtest/gtest.h>

#include <cstdlib>

#include "CTickScheduler.h"
#include "CTickSchedulerFast.h"
#include "PlatformDouble.h"
#include "SizedRecords.h"
#include "TickPrecisionWake.h"
#include "TickResultCodes.h"

namespace {

/// The figures `get` reports; the query must succeed.
STickPrecisionWake query(uint32_t (*get)(STickPrecisionWake*)) {
    return sized_record::filledBy<STickPrecisionWake>(get);
}

TEST(PrecisionWakeEnvironment, SwitchesBothSchedulersAtTheirFirstInitialisationOnly) {
    platform_double::reset();
    EXPECT_EQ(TICK_WAKE_OFF, query(&CTickScheduler_GetPrecisionWake).mode);

    ASSERT_EQ(setenv("ZYN_TICK_WAKE_LEAD", "80us", 1), 0);
    const ETickPriority priority = TICK_PRIORITY_NORMAL;
    ASSERT_EQ(TickResult::Success, CTickScheduler_Initialize(&priority));
    ASSERT_EQ(TickResult::Success, CTickSchedulerFast_Initialize());
    EXPECT_EQ(TICK_WAKE_FIXED, query(&CTickScheduler_GetPrecisionWake).mode);
    EXPECT_EQ(80000, query(&CTickScheduler_GetPrecisionWake).fixedLeadNs);
    EXPECT_EQ(TICK_WAKE_FIXED, query(&CTickSchedulerFast_GetPrecisionWake).mode);

    // A client's switch holds against a later initialisation.
    ASSERT_EQ(TickResult::Success, CTickScheduler_SetWakeLeadOff());
    ASSERT_EQ(setenv("ZYN_TICK_WAKE_LEAD", "auto", 1), 0);
    (void)CTickScheduler_Uninitialize();
    ASSERT_EQ(TickResult::Success, CTickScheduler_Initialize(&priority));
    EXPECT_EQ(TICK_WAKE_OFF, query(&CTickScheduler_GetPrecisionWake).mode);
    unsetenv("ZYN_TICK_WAKE_LEAD");
    (void)CTickScheduler_Uninitialize();
    CTickSchedulerFast_Uninitialize();
}

}  // namespace
