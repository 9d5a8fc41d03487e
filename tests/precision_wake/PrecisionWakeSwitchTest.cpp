// The exported precision-wake switches and queries of both schedulers, and
// the settings the environment variable accepts.
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>

#include "PrecisionWake.h"
#include "SizedRecords.h"
#include "TickPrecisionWake.h"
#include "TickResultCodes.h"

namespace {

/// The figures `get` reports; the query must succeed.
STickPrecisionWake query(uint32_t (*get)(STickPrecisionWake*)) {
    return sized_record::filledBy<STickPrecisionWake>(get);
}

TEST(PrecisionWakeSwitches, EachSchedulerIsOffUntilSwitchedAndReportsItsMode) {
    EXPECT_EQ(TICK_WAKE_OFF, query(&CTickScheduler_GetPrecisionWake).mode);
    EXPECT_EQ(TICK_WAKE_OFF, query(&CTickSchedulerFast_GetPrecisionWake).mode);

    EXPECT_EQ(TickResult::Success, CTickScheduler_SetWakeLeadFixed(80000));
    EXPECT_EQ(TICK_WAKE_FIXED, query(&CTickScheduler_GetPrecisionWake).mode);
    EXPECT_EQ(80000, query(&CTickScheduler_GetPrecisionWake).fixedLeadNs);
    EXPECT_EQ(TICK_WAKE_OFF, query(&CTickSchedulerFast_GetPrecisionWake).mode) << "each scheduler has its own";

    EXPECT_EQ(TickResult::Success, CTickSchedulerFast_SetWakeLeadAdaptive());
    EXPECT_EQ(TICK_WAKE_ADAPTIVE, query(&CTickSchedulerFast_GetPrecisionWake).mode);
    EXPECT_EQ(TickResult::Success, CTickScheduler_SetWakeLeadAdaptive());
    EXPECT_EQ(TICK_WAKE_ADAPTIVE, query(&CTickScheduler_GetPrecisionWake).mode);

    EXPECT_EQ(TickResult::Success, CTickScheduler_SetWakeLeadOff());
    EXPECT_EQ(TickResult::Success, CTickSchedulerFast_SetWakeLeadOff());
    EXPECT_EQ(TICK_WAKE_OFF, query(&CTickScheduler_GetPrecisionWake).mode);
    EXPECT_EQ(TICK_WAKE_OFF, query(&CTickSchedulerFast_GetPrecisionWake).mode);
    EXPECT_EQ(TickResult::Success, CTickScheduler_ResetPrecisionWake());
    EXPECT_EQ(TickResult::Success, CTickSchedulerFast_ResetPrecisionWake());
}

TEST(PrecisionWakeSwitches, AFixedLeadOutsideOneMicrosecondToHalfThePeriodIsRefusedAndChangesNothing) {
    ASSERT_EQ(TickResult::Success, CTickScheduler_SetWakeLeadOff());
    EXPECT_EQ(TickResult::OutOfRange, CTickScheduler_SetWakeLeadFixed(999));
    EXPECT_EQ(TickResult::OutOfRange, CTickScheduler_SetWakeLeadFixed(-5));
    EXPECT_EQ(TickResult::OutOfRange, CTickScheduler_SetWakeLeadFixed(3000001));
    EXPECT_EQ(TICK_WAKE_OFF, query(&CTickScheduler_GetPrecisionWake).mode);
    EXPECT_EQ(TickResult::Success, CTickScheduler_SetWakeLeadFixed(3000000));
    EXPECT_EQ(TickResult::Success, CTickScheduler_SetWakeLeadFixed(1000));

    ASSERT_EQ(TickResult::Success, CTickSchedulerFast_SetWakeLeadOff());
    EXPECT_EQ(TickResult::OutOfRange, CTickSchedulerFast_SetWakeLeadFixed(500001));
    EXPECT_EQ(TICK_WAKE_OFF, query(&CTickSchedulerFast_GetPrecisionWake).mode);
    EXPECT_EQ(TickResult::Success, CTickSchedulerFast_SetWakeLeadFixed(500000));
    EXPECT_EQ(TickResult::Success, CTickScheduler_SetWakeLeadOff());
    EXPECT_EQ(TickResult::Success, CTickSchedulerFast_SetWakeLeadOff());
}

TEST(PrecisionWakeSwitches, AQueryWithoutARecordOrWithAShortOneIsRefusedAndWritesNothing) {
    EXPECT_EQ(TickResult::NullArgument, CTickScheduler_GetPrecisionWake(nullptr));
    EXPECT_EQ(TickResult::NullArgument, CTickSchedulerFast_GetPrecisionWake(nullptr));
    STickPrecisionWake figures{};
    figures.size = sizeof(figures) - 1;
    figures.mode = 77;
    EXPECT_EQ(TickResult::NullArgument, CTickScheduler_GetPrecisionWake(&figures));
    EXPECT_EQ(TickResult::NullArgument, CTickSchedulerFast_GetPrecisionWake(&figures));
    EXPECT_EQ(77u, figures.mode);
}

TEST(PrecisionWakeSetting, AcceptsOffAutoAndWholeMicrosecondsAndIgnoresAnythingElse) {
    auto wake = std::make_unique<zyn_ts::PrecisionWake>(6000000);
    STickPrecisionWake figures{};
    figures.size = sizeof(figures);

    EXPECT_TRUE(wake->applySetting("auto"));
    wake->copyTo(figures);
    EXPECT_EQ(TICK_WAKE_ADAPTIVE, figures.mode);

    EXPECT_TRUE(wake->applySetting("80us"));
    wake->copyTo(figures);
    EXPECT_EQ(TICK_WAKE_FIXED, figures.mode);
    EXPECT_EQ(80000, figures.fixedLeadNs);

    EXPECT_TRUE(wake->applySetting("120"));
    wake->copyTo(figures);
    EXPECT_EQ(120000, figures.fixedLeadNs);

    for (const char* bad : {"", "fast", "-5", "80ms", "80 us", "0", "3001", "99999999999999999999"}) {
        EXPECT_FALSE(wake->applySetting(bad)) << '"' << bad << '"';
        wake->copyTo(figures);
        EXPECT_EQ(TICK_WAKE_FIXED, figures.mode) << '"' << bad << '"';
        EXPECT_EQ(120000, figures.fixedLeadNs) << '"' << bad << '"';
    }

    EXPECT_TRUE(wake->applySetting("off"));
    wake->copyTo(figures);
    EXPECT_EQ(TICK_WAKE_OFF, figures.mode);
}

}  // namespace
